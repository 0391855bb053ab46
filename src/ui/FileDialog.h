// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFileDialog>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

class QLineEdit;

namespace Tessel::UI {

struct FilePlaces;

/// A file dialog that takes every name as it is.
///
/// Qt's own dialog reads ":a" as a resource, "~" as the home folder and quotation marks as those of
/// a list of names. Here a proposed name, or one of a file that exists, means just that. Where the
/// desktop has a dialog of its own, that one is shown, and none of this is needed.
///
/// It has no Q_OBJECT: the desktop's dialog is shown only in place of the class QFileDialog itself.
class FileDialog : public QFileDialog {
public:
    FileDialog(QWidget* parent, const QString& title, const FilePlaces& places);
    ~FileDialog() override;
    Q_DISABLE_COPY_MOVE(FileDialog)

    /// Asks for one file, which need not exist. Asks before one is replaced.
    /// @param proposal a name
    /// @param suffix is given to a name that has none; empty for no such suffix
    /// @return its path; empty when cancelled
    [[nodiscard]] QString chooseDestination(const QString& proposal, const QString& suffix);
    /// Asks for one or several files that exist. @return their paths; empty when cancelled
    [[nodiscard]] QStringList chooseFiles(FileMode mode);

protected:
    void accept() override;

private:
    /// Null in a dialog of the desktop's.
    [[nodiscard]] QLineEdit* nameField() const;
    /// What the text means here; empty where it means what Qt takes it for.
    [[nodiscard]] QStringList filesMeant() const;
    [[nodiscard]] QString pathOf(QStringView name) const;
    /// Called with each new text of the field.
    void followText(const QString& text);
    void updateButton();
    void deselectOtherRows();
    [[nodiscard]] bool mayReplace(const QString& path);

    /// What the dialog shows as places without the drives.
    QList<QUrl> m_usualPlaces;
    QString m_suffix;
    QString m_proposal;
    /// The proposal as the field shows it.
    QString m_shownProposal;
    QStringList m_chosen;
};

} // namespace Tessel::UI
