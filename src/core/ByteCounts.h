// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QtGlobal>
#include <QtNumeric>

#include <limits>

namespace Tessel::Core {

/// The sum of two byte counts; the nearest number that fits where the sum does not. Sizes in a
/// damaged index may add up to anything.
[[nodiscard]] inline qint64 addByteCounts(qint64 a, qint64 b) {
    qint64 sum = 0;
    if (!qAddOverflow(a, b, &sum)) {
        return sum;
    }
    return b < 0 ? std::numeric_limits<qint64>::min() : std::numeric_limits<qint64>::max();
}

} // namespace Tessel::Core
