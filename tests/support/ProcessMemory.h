// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <functional>

namespace Tessel::Tests {

/// Calls @p look with the bytes of every writable region of a process's memory.
/// @return false when the memory of that process cannot be read here.
[[nodiscard]] inline bool forEachMemoryRegion(qint64 process,
                                              const std::function<void(const QByteArray&)>& look) {
    const QString folder = QStringLiteral("/proc/%1/").arg(process);
    QFile maps(folder + QStringLiteral("maps"));
    QFile memory(folder + QStringLiteral("mem"));
    if (!maps.open(QIODevice::ReadOnly) ||
        !memory.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    const QList<QByteArray> lines = maps.readAll().split('\n');
    for (const QByteArray& line : lines) {
        const QList<QByteArray> words = line.split(' ');
        const QList<QByteArray> ends = words.first().split('-');
        if (words.size() < 2 || !words.at(1).startsWith("rw")) {
            continue;
        }
        const qint64 begin = ends.at(0).toLongLong(nullptr, 16);
        if (memory.seek(begin)) {
            look(memory.read(ends.at(1).toLongLong(nullptr, 16) - begin));
        }
    }
    return true;
}

} // namespace Tessel::Tests
