// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Runs a command on a machine with fake USB drives, for tests that drive the program from outside:
//
//   with_fake_usb --mounted sdz1=/media/ana/PEN:64 --label sdz1=PEN --unmounted sdy1 -- COMMAND...
//
// The size is in MiB and may be left out (8). An unmounted drive has no label unless it is given as
// sdy1=LABEL. Exits like the command, or with 77 if the machine does not allow it.

#include "support/fake_usb.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QRegularExpression>

#include <cstdio>
#include <vector>

#include <unistd.h>

using Tessel::Tests::FakeUsb;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int exitNotStarted = 127;

void addDrive(FakeUsb* machine, const QString& device) {
    static const QRegularExpression partitionNumber(u"[0-9]+$"_s);
    QString disk = device;
    disk.remove(partitionNumber);
    if (!QFile::exists(u"/sys/class/block/%1"_s.arg(disk))) {
        machine->addDisk(disk);
        machine->setAttribute(disk, u"removable"_s, "1");
    }
    if (disk != device) {
        machine->addPartition(disk, device);
    }
}

void addMounted(FakeUsb* machine, const QString& drive) {
    const QString device = drive.section(u'=', 0, 0);
    const QString where = drive.section(u'=', 1);
    const QString mebibytes = where.section(u':', 1, 1);
    addDrive(machine, device);
    machine->mountVolume(device, where.section(u':', 0, 0),
                         (mebibytes.isEmpty() ? 8 : mebibytes.toLongLong()) << 20);
}

void addUnmounted(FakeUsb* machine, const QString& drive) {
    const QString device = drive.section(u'=', 0, 0);
    const QString label = drive.section(u'=', 1);
    addDrive(machine, device);
    if (!label.isEmpty()) {
        machine->addLabel(label, device);
    }
}

// Returns only if the command cannot be started.
int become(const QStringList& command) {
    QList<QByteArray> words;
    for (const QString& word : command) {
        words.append(QFile::encodeName(word));
    }
    std::vector<char*> arguments;
    for (QByteArray& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execvp(arguments.front(), arguments.data());
    std::perror(arguments.front());
    return exitNotStarted;
}

} // namespace

int main(int argc, char** argv) {
    if (const int code = Tessel::Tests::enterFakeMachine(); code != 0) {
        return code;
    }
    const QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setOptionsAfterPositionalArgumentsMode(QCommandLineParser::ParseAsPositionalArguments);
    parser.addOptions({{u"mounted"_s, u"A drive with its directory."_s, u"DEVICE=DIR[:MIB]"_s},
                       {u"label"_s, u"The label of a mounted drive."_s, u"DEVICE=LABEL"_s},
                       {u"unmounted"_s, u"A drive that is not mounted."_s, u"DEVICE[=LABEL]"_s}});
    parser.addPositionalArgument(u"command"_s, u"What to run, with its arguments."_s);
    parser.addHelpOption();
    parser.process(application);
    if (parser.positionalArguments().isEmpty()) {
        parser.showHelp(exitNotStarted);
    }
    // The command replaces this process and keeps its namespaces.
    FakeUsb machine;
    for (const QString& drive : parser.values(u"mounted"_s)) {
        addMounted(&machine, drive);
    }
    for (const QString& label : parser.values(u"label"_s)) {
        machine.addLabel(label.section(u'=', 1), label.section(u'=', 0, 0));
    }
    for (const QString& drive : parser.values(u"unmounted"_s)) {
        addUnmounted(&machine, drive);
    }
    return become(parser.positionalArguments());
}
