// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/FakeDesktop.h"

#include <QDesktopServices>

namespace Tessel::Tests {

FakeDesktop::FakeDesktop(const QString& scheme) : m_scheme(scheme) {
    QDesktopServices::setUrlHandler(m_scheme, this, "open");
}

FakeDesktop::~FakeDesktop() {
    QDesktopServices::unsetUrlHandler(m_scheme);
}

} // namespace Tessel::Tests
