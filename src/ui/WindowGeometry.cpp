// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/WindowGeometry.h"

#include <QApplication>
#include <QFontMetrics>
#include <QString>

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

int widthForTitle(const QString& title) {
    // An icon and three buttons, each with some space around it.
    constexpr int LinesBeside = 10;
    // The font of the title bars where the desktop tells it; they are often bold.
    QFont font = QApplication::font("QMdiSubWindowTitleBar");
    font.setBold(true);
    const QFontMetrics metrics(font);
    return metrics.horizontalAdvance(title) + LinesBeside * metrics.height();
}

} // namespace Tessel::UI
