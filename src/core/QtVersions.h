// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

// Where Qt 6.4 (Debian 12) and Qt 6.8 (Debian 13) differ. No other source asks for the version.
//
// What behaves differently without a branch here:
// - QStorageInfo, a directory that does not exist: 6.4 gives no name, 6.8 the path. The detection
//   asks for none.
// - QStorageInfo, labels: 6.4 looks for the path in /dev, 6.8 for the number of the device, and for
//   no volume in memory.
// - QStorageInfo, a directory with more slashes than it needs: 6.8 gives the shortest path.
// - QStorageInfo, two volumes at one directory: 6.4 lists the first, 6.8 the one that is seen.
// - QStorageInfo without /proc/self/mountinfo: 6.4 reads /etc/mtab, 6.8 lists nothing.
// - QDir, a folder with a name that is not UTF-8: 6.8 stops there. Folders that may hold one are
//   read without it.
// - QAbstractItemView, a click beside the rows: 6.4 takes the highlight away, 6.8 does not. The
//   vault's table does it itself.

#include <QTimeZone>

namespace Tessel::Core {

/// Tells QDateTime that a time is in UTC. Newer versions deprecate Qt::UTC there, and the older
/// ones have nothing else that gives the same.
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
inline constexpr QTimeZone::Initialization Utc = QTimeZone::UTC;
#else
inline constexpr Qt::TimeSpec Utc = Qt::UTC;
#endif

} // namespace Tessel::Core
