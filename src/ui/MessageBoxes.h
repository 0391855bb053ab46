// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

class QWidget;

namespace Tessel::UI {

// Message boxes. Texts hold names of files and folders, so all are shown as plain text.

/// The parent for a new box or dialog: the dialog in front, or @p window without one.
[[nodiscard]] QWidget* frontWindow(QWidget* window);

/// Asks with "Continuar" and "Cancelar"; the latter is the default and what closing the box means.
[[nodiscard]] bool questionContinueCancel(QWidget* parent, const QString& title,
                                          const QString& text);

/// Asks with "Sim" and "Não"; the latter is the default and what closing the box means.
[[nodiscard]] bool questionYesNo(QWidget* parent, const QString& title, const QString& text);

/// Returns when the user has acknowledged the message.
void showWarning(QWidget* parent, const QString& title, const QString& text);
/// Returns when the user has acknowledged the message.
void showInformation(QWidget* parent, const QString& title, const QString& text);
/// Returns at once: the message stays beside the window, which goes on working, until the user has
/// acknowledged it or the window is gone. Its text can be selected.
void leaveInformation(QWidget* parent, const QString& title, const QString& text);

} // namespace Tessel::UI
