// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDateTime>

#include <optional>

namespace Tessel::Core {

/// 0001-01-01T00:00:00.000Z and 9999-12-31T23:59:59.999Z.
inline constexpr qint64 EarliestIndexDate = -62135596800000;
inline constexpr qint64 LatestIndexDate = 253402300799999;

/// Milliseconds since 1970-01-01T00:00:00Z. Nothing for a date that is not set: one in an index
/// has a year of four digits, and any other one counts as not set.
[[nodiscard]] inline std::optional<qint64> indexDate(const QDateTime& dateTime) {
    const qint64 time = dateTime.isValid() ? dateTime.toMSecsSinceEpoch() : LatestIndexDate + 1;
    return EarliestIndexDate <= time && time <= LatestIndexDate ? std::optional<qint64>(time)
                                                                : std::nullopt;
}

} // namespace Tessel::Core
