// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/WindowGeometry.h"

#include <algorithm>

namespace Tessel::UI {

QSize centralSizeFor(const QSize& available) {
    constexpr int MinimumWidth = 900;
    constexpr QSize Largest{1152, 648};

    const int width = std::max(available.width() * 6 / 10, MinimumWidth);
    const QSize wanted = width > Largest.width() ? Largest : QSize(width, width * 9 / 16);
    if (wanted.height() <= available.height()) {
        return wanted;
    }
    return {available.height() * 16 / 9, available.height()};
}

} // namespace Tessel::UI
