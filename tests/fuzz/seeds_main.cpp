// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "fuzz/FuzzTarget.h"
#include "support/Files.h"

#include <QDir>
#include <QFile>

#include <vector>

// Replaces libFuzzer where there is none: passes the target every file of the given folders, each
// in a buffer of exactly its size, so that a sanitizer detects a read beyond it.
int main(int argc, char** argv) {
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        const QDir folder(QFile::decodeName(argv[i]));
        const QStringList names = folder.entryList(QDir::Files, QDir::Name);
        for (const QString& name : names) {
            std::printf("%s\n", qUtf8Printable(name));
            std::fflush(stdout);
            const QByteArray bytes = Tessel::Tests::readFile(folder.filePath(name));
            const std::vector<std::uint8_t> input(bytes.cbegin(), bytes.cend());
            LLVMFuzzerTestOneInput(input.data(), input.size());
            ++count;
        }
    }
    std::printf("%d seeds\n", count);
    return count > 0 ? 0 : 1;
}
