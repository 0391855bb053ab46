// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QLineEdit;

namespace Tessel::UI {

/// Adds an eye at the end of a password field. A click on it, or Ctrl+M in the field, shows what
/// was typed and hides it again. The field starts hidden.
void addPasswordEye(QLineEdit* edit);

} // namespace Tessel::UI
