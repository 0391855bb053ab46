// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QtGlobal>

class QFileDevice;
class QString;

namespace Tessel::Core {

/// Flushes the open file and waits until the drive has its bytes (fdatasync).
/// @return false when a byte may be missing. The kernel reports a lost write once, so a failed
///         sync must fail the operation: a second, successful one would prove nothing.
[[nodiscard]] bool syncToDrive(QFileDevice& file);

/// Syncs the file at @p path, ignoring errors of earlier writes. The kernel reports a lost write at
/// the next sync, and lost data and lost metadata separately, so after one failure two syncs may
/// fail although the drive works again. This takes those reports, so that they do not fail a change
/// that has nothing to do with them.
///
/// Call it before a change writes anything. It proves nothing about what was written earlier.
/// @return false when the file cannot be opened or the drive keeps failing.
[[nodiscard]] bool syncPastEarlierErrors(const QString& path);

/// Asks the kernel to start writing these bytes now, and waits for those written two calls earlier.
/// Progress then shows what the drive has taken, and little is left for the last sync.
/// @return false when an earlier write failed on its way to the drive.
[[nodiscard]] bool startWriteBack(QFileDevice& file, qint64 offset, qint64 size);

/// Waits until the folder of @p path has its entry for it on the drive, after the file was created,
/// replaced or removed. Where the file system cannot sync a folder, this succeeds.
[[nodiscard]] bool syncFolderOf(const QString& path);

/// Waits until the drive has the file that was just renamed to @p path: first the file, then its
/// folder. FAT keeps the size and the first cluster in the folder's entry, and the entry that a
/// rename makes has neither until the file itself is synced.
/// @return false when the name may lead to nothing or to an empty file.
[[nodiscard]] bool syncAfterRename(const QString& path);

} // namespace Tessel::Core
