// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QTest>

namespace Tessel::Tests {

/// What main() would be if a test source were a program of its own.
using TestMain = int (*)(int argc, char** argv);

/// Adds a test source to its module's test program, which runs the source that its first argument
/// names: "test_base64" for test_base64.cpp. The source's main() does not see that argument.
class TestRegistration {
public:
    TestRegistration(const char* sourceFile, TestMain run);
};

/// The name of the test source that this process runs, for a test that starts its own program.
[[nodiscard]] const char* runningTest();

/// Runs one test class under an application object. Its static initMain(), if there is one, comes
/// first.
template <typename Application, typename Test>
int runTest(int argc, char** argv) {
    if constexpr (requires { Test::initMain(); }) {
        Test::initMain();
    }
    Application application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace Tessel::Tests

/// Ends a test source: registers the function that runs its test class.
#define TESSEL_TEST_MAIN(...)                                                                      \
    static const Tessel::Tests::TestRegistration registration(__FILE__, __VA_ARGS__)
