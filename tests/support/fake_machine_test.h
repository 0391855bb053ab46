// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/fake_usb.h"

#include <QTest>

namespace Tessel::Tests {

/// The main() of a test that needs FakeUsb. The application object is created after the
/// namespace is entered, because it may start threads.
template <typename Application, typename Test>
int runOnFakeMachine(int argc, char** argv) {
    if (const int code = enterFakeMachine(); code != 0) {
        return code;
    }
    const Application application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace Tessel::Tests
