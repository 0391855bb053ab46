// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/TestProgram.h"

#include <cstdio>
#include <map>
#include <string>
#include <string_view>

namespace Tessel::Tests {

namespace {

// Filled before main(), by the sources' registrations.
std::map<std::string, TestMain, std::less<>>& registered() {
    static std::map<std::string, TestMain, std::less<>> tests;
    return tests;
}

std::string running;

std::string stemOf(std::string_view file) {
    file.remove_prefix(file.rfind('/') + 1);
    return std::string(file.substr(0, file.rfind('.')));
}

} // namespace

TestRegistration::TestRegistration(const char* sourceFile, TestMain run) {
    registered().emplace(stemOf(sourceFile), run);
}

const char* runningTest() {
    return running.c_str();
}

} // namespace Tessel::Tests

int main(int argc, char** argv) {
    using namespace Tessel::Tests;
    const auto test = registered().find(std::string_view(argc > 1 ? argv[1] : ""));
    if (test == registered().end()) {
        std::fprintf(stderr, "Usage: %s TEST [ARGUMENT...]\nThe tests here:\n", argv[0]);
        for (const auto& [name, run] : registered()) {
            std::fprintf(stderr, "  %s\n", name.c_str());
        }
        return 2;
    }
    running = test->first;
    // Qt keeps the array, so its end moves as well: the null pointer behind the last argument.
    for (int i = 1; i < argc; ++i) {
        argv[i] = argv[i + 1];
    }
    return test->second(argc - 1, argv);
}
