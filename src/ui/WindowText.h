// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QCoreApplication>

namespace Tessel::UI {

/// The translation context that all parts of the window share.
struct WindowText {
    Q_DECLARE_TR_FUNCTIONS(Tessel::UI::MainWindow)
};

} // namespace Tessel::UI
