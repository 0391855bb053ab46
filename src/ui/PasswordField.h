// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

class QLineEdit;

namespace Tessel::UI {

/// Makes a line edit a field for a password: its text is hidden, and a paste loses one line break
/// at its end. A line that is copied from elsewhere brings one along, unseen, and the password
/// typed later would be another. Nothing else of what is typed or pasted changes.
void makePasswordField(QLineEdit* edit);

/// The field's text in UTF-8, for the engine; wipe it when it is done with (Core::wipe).
[[nodiscard]] QByteArray passwordIn(const QLineEdit& edit);

/// Overwrites the text of a field that is shown no more, and empties it. What the line edit has
/// noted for undoing is out of reach.
void wipePassword(QLineEdit* edit);

} // namespace Tessel::UI
