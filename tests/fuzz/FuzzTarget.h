// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace Tessel::Fuzz {

/// Aborts if a promise of the product is broken; the fuzzer then keeps the input.
inline void expect(bool holds, const char* promise) {
    if (!holds) {
        std::fprintf(stderr, "This does not hold: %s\n", promise);
        std::abort();
    }
}

/// The hostile bytes, taken from the front. After their end every value is zero or empty.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : m_bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size)) {}

    [[nodiscard]] std::uint8_t takeByte() {
        const QByteArray byte = take(1);
        return byte.isEmpty() ? std::uint8_t(0) : static_cast<std::uint8_t>(byte.front());
    }
    [[nodiscard]] QByteArray take(qsizetype count) {
        const QByteArray bytes = m_bytes.mid(m_position, count);
        m_position += bytes.size();
        return bytes;
    }
    [[nodiscard]] QByteArray takeRest() { return take(m_bytes.size() - m_position); }

private:
    QByteArray m_bytes;
    qsizetype m_position = 0;
};

/// A file in memory, reachable by a path. Unwritten parts are zero and take no memory, so a header
/// region of 8 MiB costs nothing.
class MemoryFile {
public:
    MemoryFile() : m_descriptor(::memfd_create("tessel-fuzz", MFD_CLOEXEC)) {
        expect(m_descriptor >= 0, "a file can be made in memory");
    }
    ~MemoryFile() { ::close(m_descriptor); }
    Q_DISABLE_COPY_MOVE(MemoryFile)

    [[nodiscard]] QString path() const {
        return QStringLiteral("/proc/self/fd/%1").arg(m_descriptor);
    }
    /// Makes the file @p size zero bytes long.
    void reset(qint64 size) const {
        expect(::ftruncate(m_descriptor, 0) == 0 && ::ftruncate(m_descriptor, size) == 0,
               "the file in memory takes its size");
    }
    void write(qint64 offset, const QByteArray& bytes) const {
        expect(::pwrite(m_descriptor, bytes.constData(), static_cast<std::size_t>(bytes.size()),
                        offset) == bytes.size(),
               "the file in memory takes its bytes");
    }
    [[nodiscard]] QByteArray read(qint64 offset, qint64 size) const {
        QByteArray bytes(size, Qt::Uninitialized);
        const ssize_t count =
            ::pread(m_descriptor, bytes.data(), static_cast<std::size_t>(size), offset);
        return bytes.left(count);
    }
    [[nodiscard]] qint64 size() const { return ::lseek(m_descriptor, 0, SEEK_END); }

private:
    int m_descriptor;
};

} // namespace Tessel::Fuzz
