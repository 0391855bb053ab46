// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <functional>

class QApplication;
class QWidget;

namespace Tessel::UI {

/// Sets the application's name, version and icon, and makes Qt's own texts (file dialogs, buttons,
/// context menus) Brazilian Portuguese in every locale. Numbers and dates keep the system's
/// formats.
void setUpApplication(QApplication& application);

/// Closes @p window at the end of the desktop session, as "Sair" does; see closeOrCancel(). The
/// application must outlive the window.
void closeAtLogOut(QApplication& application, QWidget& window);

/// Closes the window. When it stays open, because a command is running or its vault cannot be
/// locked, calls @p cancelLogOut.
void closeOrCancel(QWidget& window, const std::function<void()>& cancelLogOut);

} // namespace Tessel::UI
