// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "BenchVault.h"

#include <QElapsedTimer>

#include <ctime>

namespace Tessel::Bench {

/// The number of a line "name: number" in a file of /proc/self, in the kernel's units.
inline qint64 processNumber(const char* fileName, QByteArrayView name) {
    QFile file(QStringLiteral("/proc/self/") + QLatin1String(fileName));
    require(file.open(QIODevice::ReadOnly), fileName);
    const QList<QByteArray> lines = file.readAll().split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith(name)) {
            return line.mid(name.size()).simplified().split(' ').first().toLongLong();
        }
    }
    return 0;
}

/// What one operation costs; made right before it and printed right after it.
class Measurement {
public:
    Measurement() {
        // Makes the present memory the new peak.
        QFile references(QStringLiteral("/proc/self/clear_refs"));
        require(references.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
                    references.write("5") == 1,
                "resetting the peak");
        m_peakKib = peakKib();
        m_written = writtenBytes();
        m_toDrive = bytesToDrive();
        m_cpu = cpuSeconds();
        m_timer.start();
    }

    /// One line of JSON: seconds that passed and that a processor worked, bytes handed to write
    /// calls, bytes of the pages that these dirtied (none in memory file systems), and the growth
    /// of the peak memory.
    void print(const char* job) const {
        const double seconds = static_cast<double>(m_timer.nsecsElapsed()) / 1e9;
        const double cpu = cpuSeconds() - m_cpu;
        std::printf("{\"job\": \"%s\", \"seconds\": %.6f, \"cpu\": %.6f, \"written\": %lld, "
                    "\"toDrive\": %lld, \"peakKib\": %lld}\n",
                    job, seconds, cpu, writtenBytes() - m_written, bytesToDrive() - m_toDrive,
                    peakKib() - m_peakKib);
    }

private:
    static qint64 peakKib() { return processNumber("status", "VmHWM:"); }
    static qint64 writtenBytes() { return processNumber("io", "wchar:"); }
    static qint64 bytesToDrive() { return processNumber("io", "write_bytes:"); }

    static double cpuSeconds() {
        timespec time{};
        require(::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time) == 0, "reading the clock");
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
    }

    qint64 m_peakKib = 0;
    qint64 m_written = 0;
    qint64 m_toDrive = 0;
    double m_cpu = 0;
    QElapsedTimer m_timer;
};

/// Runs the operation once and prints what it cost.
template <typename Operation>
void measure(const char* job, Operation operation) {
    const Measurement measurement;
    require(operation(), job);
    measurement.print(job);
}

} // namespace Tessel::Bench
