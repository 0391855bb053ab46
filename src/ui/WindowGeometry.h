// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QSize>

class QString;

namespace Tessel::UI {

/// The size of the window's central part without a screen.
inline constexpr QSize DefaultCentralSize{960, 540};

/// The fixed size of the window's central part on a screen with this available area: three fifths
/// of its width at 16:9, between 900 and 1152 wide, and never higher than the area.
[[nodiscard]] QSize centralSizeFor(const QSize& available);

/// How wide a window is that shows the whole title, with the buttons that the desktop adds.
[[nodiscard]] int widthForTitle(const QString& title);

} // namespace Tessel::UI
