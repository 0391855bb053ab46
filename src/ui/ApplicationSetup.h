// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QApplication;

namespace Tessel::UI {

/// Gives the application its name, version and icon, and the toolkit's own texts (file dialogs,
/// buttons, context menus) in Brazilian Portuguese whatever the system speaks. Numbers and dates
/// keep the system's formats.
void setUpApplication(QApplication& application);

} // namespace Tessel::UI
