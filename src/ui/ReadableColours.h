// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QWidget;

namespace Tessel::UI {

/// Shows the widget in the colours of the application's palette, now and after each change of it,
/// so that its text can always be read:
///
/// - without the focus as with it. Some themes grey out what has no focus, and the vault's table
///   never has it;
/// - on a highlight as well: where a theme's highlighted text has less than 4.5 : 1 of contrast
///   with its highlight, the highlight becomes darker or lighter. A style sheet's
///   "palette(highlight)" is the application's all the same.
///
/// A style sheet must have been set before.
void keepReadable(QWidget* widget);

} // namespace Tessel::UI
