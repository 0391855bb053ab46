// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QtGlobal>

#include <cstdio>

namespace Tessel::Tests {

/// Whether a test that this machine cannot run counts as failed: continuous integration sets CI,
/// and every test must run there. tests/support/must_run.py is the same rule for Python.
[[nodiscard]] inline bool everyTestMustRun() {
    return !qEnvironmentVariableIsEmpty("CI");
}

/// Prints why nothing in this program can be tested here. @return the exit code for main():
/// skipped, or failed where every test must run.
[[nodiscard]] inline int refused(const char* reason) {
    std::fprintf(stderr, "%s: %s\n", everyTestMustRun() ? "FAIL" : "SKIP", reason);
    return everyTestMustRun() ? 1 : 77;
}

} // namespace Tessel::Tests

/// Ends a test function, or init(), unless @p condition holds: skipped, or failed where every test
/// must run. The reason is a literal and is printed.
#define SKIP_UNLESS(condition, reason)                                                             \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            if (Tessel::Tests::everyTestMustRun()) {                                               \
                QFAIL(reason "; CI is set, so this must run");                                     \
            }                                                                                      \
            QSKIP(reason);                                                                         \
        }                                                                                          \
    } while (false)
