// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>
#include <QStringList>

class QWidget;

namespace Tessel::UI {

// The file dialogs of the window. Each returns what was chosen; empty when cancelled.

/// An existing container file.
[[nodiscard]] QString askContainerToOpen(QWidget* parent);
/// Where a new container is to be. The dialog asks before a file is replaced.
[[nodiscard]] QString askContainerToCreate(QWidget* parent);
/// Where a backup is to be; a name with the present time in the home folder is proposed.
[[nodiscard]] QString askBackupDestination(QWidget* parent);
[[nodiscard]] QStringList askFilesToImport(QWidget* parent);
/// @param fileName is proposed
[[nodiscard]] QString askExportDestination(QWidget* parent, const QString& fileName);

} // namespace Tessel::UI
