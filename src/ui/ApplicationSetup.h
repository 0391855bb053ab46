// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <functional>

class QApplication;
class QWidget;

namespace Tessel::UI {

/// Gives the application its name, version and icon, and the toolkit's own texts (file dialogs,
/// buttons, context menus) in Brazilian Portuguese whatever the system speaks. Numbers and dates
/// keep the system's formats.
void setUpApplication(QApplication& application);

/// Makes the end of the desktop's session close @p window, as "Sair" does: see closeOrCancel(). The
/// window must not live longer than the application.
void closeAtLogOut(QApplication& application, QWidget& window);

/// Closes the window. Should it stay open, because a command is running or its vault cannot be
/// locked, calls @p cancelLogOut.
void closeOrCancel(QWidget& window, const std::function<void()>& cancelLogOut);

} // namespace Tessel::UI
