// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QFile>
#include <QStorageInfo>
#include <QString>

#include <algorithm>

namespace Tessel::Tests {

/// Writes @p bytes as the whole file. @return false if not all of them were written.
[[nodiscard]] inline bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) &&
           file.write(bytes) == bytes.size();
}

/// The whole file; empty if it cannot be opened.
[[nodiscard]] inline QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Overwrites an existing file at @p offset with @p bytes; the file may grow.
[[nodiscard]] inline bool overwriteAt(const QString& path, qint64 offset, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered) &&
           file.seek(offset) && file.write(bytes) == bytes.size();
}

/// Bytes that look random and are the same in every run (SplitMix64) with the same @p seed.
[[nodiscard]] inline QByteArray noise(qsizetype size, quint64 seed = 1) {
    QByteArray bytes(size, Qt::Uninitialized);
    quint64 state = seed * 0x9e3779b97f4a7c15U;
    for (qsizetype i = 0; i < size; i += 8) {
        state += 0x9e3779b97f4a7c15U;
        quint64 word = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9U;
        word = (word ^ (word >> 27)) * 0x94d049bb133111ebU;
        word ^= word >> 31;
        for (qsizetype j = i; j < std::min(i + 8, size); ++j, word >>= 8) {
            bytes[j] = static_cast<char>(word & 0xff);
        }
    }
    return bytes;
}

/// SHA-256 of a file's bytes, 32 of them; empty when the file cannot be read.
[[nodiscard]] inline QByteArray sha256OfFile(const QString& path) {
    QFile file(path);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return file.open(QIODevice::ReadOnly) && hash.addData(&file) ? hash.result() : QByteArray();
}

/// Puts temporary files into memory if possible: for tests that need a thousand containers and no
/// drive.
inline void keepTemporaryFilesInMemory() {
    const QStorageInfo memory(QStringLiteral("/dev/shm"));
    constexpr qint64 Needed = 536870912;
    if (memory.isReady() && !memory.isReadOnly() && memory.bytesAvailable() > Needed) {
        qputenv("TMPDIR", "/dev/shm");
    }
}

} // namespace Tessel::Tests
