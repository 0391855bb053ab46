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

/// Waits until the drive has the file at @p path, whatever it failed at before. The kernel tells of
/// a lost write at the next sync, of what is lost of the file and of its place on the drive one
/// after the other: a drive that failed once and is well again may fail two syncs. This asks for
/// both, so that they do not fail a change that has nothing to do with them.
///
/// To be called before a change writes anything. It proves nothing about what was written earlier.
/// @return false when the file cannot be opened or the drive goes on failing.
[[nodiscard]] bool syncPastEarlierErrors(const QString& path);

/// Asks the kernel to start writing these bytes now, and waits for those that end two windows
/// earlier. Progress then tells what the drive has taken, and little is left for the last sync.
/// @return false when an earlier write failed on its way to the drive.
[[nodiscard]] bool startWriteBack(QFileDevice& file, qint64 offset, qint64 size);

/// Waits until the folder that holds @p path has its entry on the drive, after the file was
/// created, replaced or removed. File systems that cannot sync a folder count as done.
[[nodiscard]] bool syncFolderOf(const QString& path);

/// Waits until the file that was just renamed to @p path is found there with all its bytes: first
/// the file, then its folder. FAT keeps the size and the first cluster in the folder's entry; the
/// entry that a rename makes has neither until the file itself is synced.
/// @return false when the name may lead to nothing or to an empty file.
[[nodiscard]] bool syncAfterRename(const QString& path);

} // namespace Tessel::Core
