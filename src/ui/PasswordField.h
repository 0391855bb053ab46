// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QLineEdit;

namespace Tessel::UI {

/// Makes a line edit a field for a password: its text is hidden, and a paste loses one line break
/// at its end. A line that is copied from elsewhere brings one along, unseen, and the password
/// typed later would be another. Nothing else of what is typed or pasted changes.
void makePasswordField(QLineEdit* edit);

} // namespace Tessel::UI
