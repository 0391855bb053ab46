// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#include <QString>
#include <QtEndian>

#include <algorithm>
#include <cstddef>
#include <cstring>

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

/// The time of the last change, in UTC.
[[nodiscard]] inline QDateTime modifiedTime(const QString& path) {
    return QFileInfo(path).lastModified().toUTC();
}

[[nodiscard]] inline bool setModified(const QString& path, const QDateTime& time) {
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(time, QFileDevice::FileModificationTime);
}

/// Gives a file a later time, as if it had been saved then: file systems differ in how fine their
/// clock is.
[[nodiscard]] inline bool makeLater(const QString& path, qint64 milliseconds = 2000) {
    return setModified(path, modifiedTime(path).addMSecs(milliseconds));
}

/// The bytes with the lowest bit of one of them changed; the last one if none is named.
[[nodiscard]] inline QByteArray withByteChanged(QByteArray bytes, qsizetype at = -1) {
    char& byte = bytes.data()[at < 0 ? bytes.size() - 1 : at];
    byte = static_cast<char>(byte ^ 1);
    return bytes;
}

/// Bytes that look random and are the same in every run (SplitMix64) with the same @p seed.
[[nodiscard]] inline QByteArray noise(qsizetype size, quint64 seed = 1) {
    QByteArray bytes(size, Qt::Uninitialized);
    char* const out = bytes.data();
    quint64 state = seed * 0x9e3779b97f4a7c15U;
    for (qsizetype i = 0; i < size; i += 8) {
        state += 0x9e3779b97f4a7c15U;
        quint64 word = (state ^ (state >> 30)) * 0xbf58476d1ce4e5b9U;
        word = (word ^ (word >> 27)) * 0x94d049bb133111ebU;
        word = qToLittleEndian(word ^ (word >> 31));
        // Whole words: tests are not optimised, and ask for tens of megabytes.
        std::memcpy(out + i, &word, static_cast<std::size_t>(std::min<qsizetype>(8, size - i)));
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
