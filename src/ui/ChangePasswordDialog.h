// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QDialog>

class QLineEdit;

namespace Tessel::UI {

/// Asks for the current password and, twice, for the new one.
///
/// Once accepted, the current password is not empty and the new one has at least
/// MinimumPasswordLength characters and was typed the same twice. The dialog does not know whether
/// the current password is right; the vault checks it.
class ChangePasswordDialog : public QDialog {
    Q_OBJECT

public:
    /// Counted in characters of the text, not in bytes of its encoding.
    static constexpr qsizetype MinimumPasswordLength = 10;

    explicit ChangePasswordDialog(QWidget* parent);
    /// Overwrites what was typed.
    ~ChangePasswordDialog() override;

    /// As UTF-8, like the next one.
    [[nodiscard]] QByteArray currentPassword() const;
    [[nodiscard]] QByteArray newPassword() const;

private:
    void buildUi();
    /// Accepts the dialog, or shows the first objection and leaves it open.
    void validateAndAccept();
    /// What is wrong with the fields, in the user's words; empty when nothing is.
    [[nodiscard]] QString objection() const;

    QLineEdit* m_currentPassword = nullptr;
    QLineEdit* m_newPassword = nullptr;
    QLineEdit* m_confirmation = nullptr;
};

} // namespace Tessel::UI
