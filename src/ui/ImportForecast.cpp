// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ImportForecast.h"

namespace Tessel::UI {

namespace {

constexpr qint64 MebiByte = qint64{1024} * 1024;
constexpr qint64 ReserveBytes = 16 * MebiByte;
/// The user is asked before less than this is left.
constexpr qint64 ComfortableBytes = 128 * MebiByte;

ImportFit classify(qint64 remainingBytes) {
    if (remainingBytes < 0) {
        return ImportFit::TooLarge;
    }
    return remainingBytes < ComfortableBytes ? ImportFit::LittleSpaceLeft : ImportFit::Fits;
}

} // namespace

ImportForecast forecastImport(qint64 selectedBytes, qint64 availableBytes) {
    // 5 % as a twentieth, in whole bytes: 1.05 times the sum, truncated, without rounding errors.
    const qint64 withMargin = addByteCounts(selectedBytes, selectedBytes / 20);
    const qint64 required = addByteCounts(withMargin, ReserveBytes);
    const qint64 remaining = availableBytes - required;
    return {required, remaining, classify(remaining)};
}

} // namespace Tessel::UI
