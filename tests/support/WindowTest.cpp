// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/WindowTest.h"

namespace Tessel::Tests {

void WindowTest::init() {
    m_folder = std::make_unique<QTemporaryDir>();
    m_driver = std::make_unique<WindowDriver>();
}

void WindowTest::cleanup() {
    m_driver->window.close();
    m_driver.reset();
    m_folder.reset();
}

} // namespace Tessel::Tests
