// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

class QWidget;

namespace Tessel::UI {

enum class BackupResult {
    Done,
    /// Another window has the container open, or it cannot be read.
    SourceNotOpened,
    /// Another window has the vault at the destination open, or no file can be made there.
    DestinationNotCreated,
    /// The copy was begun and is removed again.
    CopyFailed,
};

[[nodiscard]] QString backupTitle();

/// Copies a locked container byte for byte, with its progress.
[[nodiscard]] BackupResult copyBackup(QWidget* parent, const QString& containerPath,
                                      const QString& destinationPath);

} // namespace Tessel::UI
