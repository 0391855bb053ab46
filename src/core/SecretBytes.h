// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace Tessel::Core {

/// A key in memory that is locked against swapping, between guard pages, and overwritten when it is
/// freed (libsodium's allocator). Copies share the memory; the last one frees it. Needs an
/// initialised libsodium.
class SecretBytes {
public:
    SecretBytes() = default;
    /// Copies @p bytes and overwrites the original.
    explicit SecretBytes(QByteArray&& bytes);

    [[nodiscard]] bool isEmpty() const { return m_size == 0; }
    /// The first @p size bytes, or all when there are fewer. The array refers to this memory and
    /// must not outlive it.
    [[nodiscard]] QByteArray first(qsizetype size) const;
    [[nodiscard]] QByteArray all() const { return first(m_size); }
    void clear();

private:
    std::shared_ptr<char> m_bytes;
    qsizetype m_size = 0;
};

/// Overwrites the bytes in memory and empties the array. Bytes that another array shares are not
/// overwritten.
void wipe(QByteArray* bytes);
/// The same for a text.
void wipe(QString* text);

} // namespace Tessel::Core
