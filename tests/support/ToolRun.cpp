// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/ToolRun.h"

#include "support/Files.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryFile>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

constexpr int PatienceMs = 60000;

// -f because some of strace's injections are lost without it; -o because it would otherwise mix
// its report with what the tool says.
const QStringList StraceOptions{u"-f"_s, u"-qq"_s, u"-o"_s, u"/dev/null"_s};

int run(QProcess& process, const QStringList& arguments) {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // The leak check traces the process itself and cannot while strace does.
    environment.insert(u"ASAN_OPTIONS"_s, u"detect_leaks=0"_s);
    process.setProcessEnvironment(environment);
    process.start(u"strace"_s, arguments);
    const bool ended = process.waitForFinished(PatienceMs);
    return ended && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

} // namespace

bool canInjectFaults() {
    QProcess process;
    return run(process, StraceOptions + QStringList(u"true"_s)) == 0;
}

ToolRun runTool(const QStringList& arguments, const QString& watchedPath,
                const QStringList& injections) {
    QStringList options = StraceOptions;
    if (!watchedPath.isEmpty()) {
        options << u"-P"_s << watchedPath;
    }
    QStringList names;
    for (const QString& injection : injections) {
        options << u"-e"_s << u"inject="_s + injection;
        names << injection.section(u':', 0, 0);
    }
    options << u"-e"_s << u"trace="_s + (names.isEmpty() ? u"none"_s : names.join(u','));
    if (!names.isEmpty() && injections.filter(u"signal="_s).isEmpty()) {
        // Only these calls stop the program, but strace cannot kill it there.
        options << u"--seccomp-bpf"_s;
    }
    options << QStringLiteral(TESSEL_VAULT_TOOL);

    ToolRun result;
    QProcess process;
    result.exitCode = run(process, options + arguments);
    const QStringList lines = QString::fromUtf8(process.readAllStandardOutput())
                                  .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (const QString& line : lines) {
        const qsizetype equals = line.indexOf(QLatin1Char('='));
        result.said.insert(line.left(equals), line.mid(equals + 1));
    }
    return result;
}

QStringList callsOfTool(const QStringList& arguments, const QString& names) {
    QTemporaryFile trace;
    if (!trace.open()) {
        return {};
    }
    QProcess process;
    const QStringList options{u"-f"_s,
                              u"-qq"_s,
                              u"-y"_s,
                              u"-o"_s,
                              trace.fileName(),
                              u"-e"_s,
                              u"trace="_s + names,
                              QStringLiteral(TESSEL_VAULT_TOOL)};
    if (run(process, options + arguments) != 0) {
        return {};
    }
    return QString::fromUtf8(readFile(trace.fileName()))
        .split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

} // namespace Tessel::Tests
