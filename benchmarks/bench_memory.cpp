// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Prints by how much the peak memory of a process grows while it imports, exports and compacts one
// large file. Usage: bench_memory [GIBIBYTES], 2 by default.

#include "BenchVault.h"

#include <QCoreApplication>

using namespace Tessel::Bench;

namespace {

/// Peak resident memory of this process in KiB, as the kernel counts it.
qint64 peakKib() {
    QFile status(QStringLiteral("/proc/self/status"));
    require(status.open(QIODevice::ReadOnly), "reading /proc/self/status");
    const QList<QByteArray> lines = status.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith("VmHWM:")) {
            return line.mid(6).trimmed().split(' ').first().toLongLong();
        }
    }
    return 0;
}

/// Makes the present memory the new peak.
void resetPeak() {
    QFile refs(QStringLiteral("/proc/self/clear_refs"));
    require(refs.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && refs.write("5") == 1,
            "resetting the peak");
}

template <typename Operation>
void report(const char* name, Operation operation) {
    resetPeak();
    const qint64 before = peakKib();
    require(operation(), name);
    std::printf("%-12s peak grew by %6.1f MiB\n", name,
                static_cast<double>(peakKib() - before) / 1024.0);
}

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const qint64 gibibytes = argc > 1 ? QByteArray(argv[1]).toLongLong() : 2;
    BenchVault bench;
    const QString source = bench.path(QStringLiteral("source"));
    writeNoise(source, gibibytes << 30);
    std::printf("one file of %lld GiB\n", static_cast<long long>(gibibytes));
    auto& vault = bench.vault();
    const QString name = QStringLiteral("f");
    report("import", [&] { return vault.importFile(source, name); });
    report("export", [&] { return vault.exportFile(name, source); });
    report("compaction", [&] { return vault.compactVault({}, nullptr); });
    return 0;
}
