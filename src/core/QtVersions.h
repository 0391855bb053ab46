// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

// Where Qt 6.4 (Debian 12) and Qt 6.8 (Debian 13) differ. No other source asks for the version.
//
// What behaves differently without a branch, all of it in QStorageInfo:
// - Of a directory that does not exist, 6.4 gives no name and 6.8 the path. The detection does not
//   ask for one.
// - The label of a volume belongs to its path in /dev for 6.4, to its number for 6.8. A volume in
//   memory has none for 6.8.
// - Of two volumes mounted at one directory, 6.4 lists the first and 6.8 the one that is seen
// there.
// - Without /proc/self/mountinfo 6.4 reads /etc/mtab, and 6.8 lists nothing.

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
