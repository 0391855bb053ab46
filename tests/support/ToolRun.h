// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/MustRun.h"

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>

namespace Tessel::Tests {

/// What vault_tool said of its operation.
struct ToolRun {
    int exitCode = -1;
    /// "result", "state", "index", "text"; see vault_tool.cpp.
    QMap<QString, QString> said;

    [[nodiscard]] bool ended() const { return exitCode == 0; }
    /// The operation returned false and left the index in memory as it was.
    [[nodiscard]] bool refused() const {
        return ended() && said.value(QStringLiteral("result")) == QLatin1String("false") &&
               said.value(QStringLiteral("index")) != QLatin1String("new");
    }
    [[nodiscard]] bool succeeded() const {
        return ended() && said.value(QStringLiteral("result")) == QLatin1String("true");
    }
    [[nodiscard]] QString text() const { return said.value(QStringLiteral("text")); }
};

/// Whether processes may be traced here; tests that need it begin with NEEDS_TRACING.
[[nodiscard]] bool canInjectFaults();

/// Runs one operation of a vault in a process of its own, in which system calls fail as
/// @p injections say, each in strace's words: "fdatasync:error=EIO:when=2". Only calls on
/// @p watchedPath count, unless it is empty.
[[nodiscard]] ToolRun runTool(const QStringList& arguments, const QString& watchedPath,
                              const QStringList& injections);

/// The system calls of those names that the operation makes, in order, as strace writes them, with
/// the path behind each descriptor: "fsync(4</tmp>) = 0". They tell which one an injection has to
/// count to.
[[nodiscard]] QStringList callsOfTool(const QStringList& arguments, const QString& names);

} // namespace Tessel::Tests

/// Begins a test function that makes a process's system calls fail, or lists them.
#define NEEDS_TRACING()                                                                            \
    SKIP_UNLESS(Tessel::Tests::canInjectFaults(),                                                  \
                "needs strace, which is missing or not allowed to trace here")
