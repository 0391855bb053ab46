// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

class QWidget;

namespace Tessel::UI {

// Message boxes. Their texts hold names of files and folders, so all is shown as plain text.

/// The parent for a new box or dialog: the dialog in front, or @p window without one.
[[nodiscard]] QWidget* frontWindow(QWidget* window);

/// Asks with "Continuar" and "Cancelar", the default. Closing the box counts as "Cancelar".
[[nodiscard]] bool questionContinueCancel(QWidget* parent, const QString& title,
                                          const QString& text);

/// Asks with "Sim" and "Não", the default. Closing the box counts as "Não".
[[nodiscard]] bool questionYesNo(QWidget* parent, const QString& title, const QString& text);

/// Returns when the user has acknowledged the message.
void showWarning(QWidget* parent, const QString& title, const QString& text);
/// Returns when the user has acknowledged the message.
void showInformation(QWidget* parent, const QString& title, const QString& text);
/// Returns at once. The message blocks nothing and stays until the user acknowledges it or the
/// window is closed. Its text can be selected.
void leaveInformation(QWidget* parent, const QString& title, const QString& text);

} // namespace Tessel::UI
