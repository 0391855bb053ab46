// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Hostile lines of the kernel's mount table: anyone who may mount a drive chooses its label and the
// folder where it is mounted. The parser is private to its source, so the source is included.

#include "platform/linux/LinuxDeviceManager.cpp" // NOLINT(bugprone-suspicious-include)

#include "fuzz/FuzzTarget.h"

#include <array>
#include <utility>

using namespace Tessel::Fuzz;
using namespace Qt::Literals::StringLiterals;

namespace Tessel::Platform::Linux {

namespace {

// Escapes do not overlap, and none appears by decoding if the backslash is decoded last, so one
// pass from left to right must give the same result.
QString decodedInOnePass(const QString& token) {
    static const std::array<std::pair<QString, QString>, 4> escapes{{{u"\\040"_s, u" "_s},
                                                                     {u"\\011"_s, u"\t"_s},
                                                                     {u"\\012"_s, u"\n"_s},
                                                                     {u"\\134"_s, u"\\"_s}}};
    QString decoded;
    for (qsizetype i = 0; i < token.size();) {
        bool found = false;
        for (const auto& [escape, character] : escapes) {
            if (!found && QStringView(token).sliced(i).startsWith(escape)) {
                decoded += character;
                i += escape.size();
                found = true;
            }
        }
        if (!found) {
            decoded += token.at(i++);
        }
    }
    return decoded;
}

void checkLine(const QString& line) {
    MountTableEntry entry;
    const bool parsed = parseMountTableLine(line, &entry);
    expect(!parsed || line.contains(u" - "_s), "a line without its separator is skipped");
    if (!parsed) {
        expect(entry.mountPoint.isEmpty() && entry.source.isEmpty(),
               "a skipped line leaves nothing behind");
        return;
    }
    expect(!entry.mountPoint.isEmpty() && !entry.fileSystemType.isEmpty() &&
               !entry.source.isEmpty(),
           "the fields of a line are not empty");
    const qsizetype separator = line.indexOf(u" - "_s);
    expect(entry.mountPoint ==
               decodedInOnePass(line.left(separator).split(u' ', Qt::SkipEmptyParts).at(4)),
           "the mount point is the fifth field");
    expect(!isDeviceNode(entry.source) ||
               !fallbackDisplayName(entry.source, entry.mountPoint).contains(u'/'),
           "a fallback name is one component");

    Findings findings;
    addMountTableEntry(entry, &findings);
    for (const UsbDevice& device : std::as_const(findings.devices)) {
        expect(isDeviceNode(device.devicePath) && !device.rootPath.isEmpty() &&
                   !device.displayName.isEmpty(),
               "a listed volume has a device, a folder and a name");
    }
}

} // namespace

} // namespace Tessel::Platform::Linux

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace Detector = Tessel::Platform::Linux;
    const QList<QByteArray> lines = Input(data, size).takeRest().split('\n');
    for (const QByteArray& line : lines) {
        const QString text = QString::fromLocal8Bit(line);
        expect(Detector::decodeMountInfoToken(text) == Detector::decodedInOnePass(text),
               "escapes are decoded once");
        Detector::checkLine(text);
    }
    return 0;
}
