// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QObject>
#include <QString>

class QLabel;
class QStatusBar;
class QWidget;

namespace Tessel::UI {

/// The permanent labels of the status bar: container, version, today's date, state of the vault.
class StatusLabels : public QObject {
    Q_OBJECT

public:
    /// Adds the labels to @p bar, which owns them and this object.
    explicit StatusLabels(QStatusBar* bar);

    /// @param containerPath empty when none is chosen
    void showContainer(const QString& containerPath);
    void showVaultState(bool unlocked);

private:
    [[nodiscard]] QWidget* buildContainerBox();

    QLabel* m_container = nullptr;
    QLabel* m_vaultState = nullptr;
};

} // namespace Tessel::UI
