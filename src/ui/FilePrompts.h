// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace Tessel::UI {

// The file dialogs of the window. Each returns what was chosen; empty when cancelled. Those that
// ask for a file to be written ask before another one is replaced.

/// Where a file dialog starts, and what it shows beside the usual places.
struct FilePlaces {
    /// A folder. Without it, or when it does not exist, the dialog starts where Qt lets it.
    QString start;
    /// Where drives are mounted.
    QStringList drives;
};

/// An existing container file.
[[nodiscard]] QString askContainerToOpen(QWidget* parent, const FilePlaces& places);
/// Where a new container is to be. A name without suffix gets that of containers.
[[nodiscard]] QString askContainerToCreate(QWidget* parent, const FilePlaces& places);
/// Where a backup is to be; a name with the present time is proposed. A name without suffix gets
/// that of containers.
[[nodiscard]] QString askBackupDestination(QWidget* parent, const FilePlaces& places);
[[nodiscard]] QStringList askFilesToImport(QWidget* parent, const FilePlaces& places);
/// @param fileName is proposed, whatever characters it has
[[nodiscard]] QString askExportDestination(QWidget* parent, const FilePlaces& places,
                                           const QString& fileName);

} // namespace Tessel::UI
