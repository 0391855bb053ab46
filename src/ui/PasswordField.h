// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

class QLineEdit;

namespace Tessel::UI {

/// Makes a line edit a password field: its text is hidden until its eye is pressed, and one line
/// break at the end of a paste is removed. A copied line brings such a break along, unseen, and
/// would make a password that typing never matches. Nothing else of what is typed or pasted
/// changes.
void makePasswordField(QLineEdit* edit);

/// The field's text in UTF-8, for the engine. Wipe it after use (Core::wipe).
[[nodiscard]] QByteArray passwordIn(const QLineEdit& edit);

/// Overwrites the text of a field that is no longer shown, and empties it. The line edit's undo
/// history is out of reach.
void wipePassword(QLineEdit* edit);

} // namespace Tessel::UI
