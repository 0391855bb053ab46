// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/MustRun.h"
#include "support/TestProgram.h"

#include <QByteArray>
#include <QList>

#include <vector>

#include <unistd.h>

namespace Tessel::Tests {

/// Whether this program has been started by startOnOwnDisplay().
[[nodiscard]] inline bool isOnOwnDisplay() {
    return qEnvironmentVariableIsSet("TESSEL_TEST_ON_OWN_DISPLAY");
}

/// Starts this test again on a virtual X display, for what the offscreen platform cannot do. Call
/// it first in the test's main(). Returns only if there is no such display.
/// @param launcher a command that runs the command in its arguments, such as a session's.
[[nodiscard]] inline int startOnOwnDisplay(int argc, char** argv,
                                           const QList<QByteArray>& launcher = {}) {
    qputenv("TESSEL_TEST_ON_OWN_DISPLAY", "1");
    qputenv("QT_QPA_PLATFORM", "xcb");
    QList<QByteArray> words{"xvfb-run", "--auto-servernum"};
    words.append(launcher);
    QByteArray test(runningTest());
    std::vector<char*> command;
    for (QByteArray& word : words) {
        command.push_back(word.data());
    }
    command.push_back(argv[0]);
    command.push_back(test.data());
    command.insert(command.end(), argv + 1, argv + argc);
    command.push_back(nullptr);
    ::execvp(command.front(), command.data());
    return refused("xvfb-run is not installed here");
}

} // namespace Tessel::Tests
