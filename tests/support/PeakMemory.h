// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/Files.h"

#include <QByteArray>

namespace Tessel::Tests {

/// By how much the peak of this process's resident memory has grown since the object was created.
class PeakMemory {
public:
    PeakMemory() {
        // 5 makes the kernel forget the peak so far (proc(5), clear_refs).
        m_canMeasure = writeFile(QStringLiteral("/proc/self/clear_refs"), "5");
        m_before = kilobytes();
    }

    /// Whether the system reports the peak; growth() has no meaning where it does not.
    [[nodiscard]] bool canMeasure() const { return m_canMeasure && m_before > 0; }
    /// In bytes. 0 under the address sanitizer, which keeps freed memory to catch its use and so
    /// grows by everything ever freed: only the plain build measures.
    [[nodiscard]] qint64 growth() const {
        return FreedMemoryStays ? 0 : (kilobytes() - m_before) * 1024;
    }

private:
#ifdef __SANITIZE_ADDRESS__
    static constexpr bool FreedMemoryStays = true;
#else
    static constexpr bool FreedMemoryStays = false;
#endif

    static qint64 kilobytes() {
        const QByteArray status = readFile(QStringLiteral("/proc/self/status"));
        const qsizetype label = status.indexOf("VmHWM:");
        const QByteArray line = status.mid(label + 6, status.indexOf('\n', label) - label - 6);
        return line.trimmed().split(' ').first().toLongLong();
    }

    bool m_canMeasure = false;
    qint64 m_before = 0;
};

} // namespace Tessel::Tests
