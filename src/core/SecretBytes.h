// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

#include <memory>

namespace Tessel::Core {

/// A key in memory that is locked against swapping, fenced by guard pages and overwritten when it
/// is released (libsodium's allocator). Objects that are copied share the memory; the last one
/// releases it. Needs an initialised libsodium.
class SecretBytes {
public:
    SecretBytes() = default;
    /// Copies @p bytes and overwrites them where they were.
    explicit SecretBytes(QByteArray&& bytes);

    [[nodiscard]] bool isEmpty() const { return m_size == 0; }
    /// The first @p size bytes, or all when there are fewer. The array refers to this memory, does
    /// not copy it, and must not outlive it.
    [[nodiscard]] QByteArray first(qsizetype size) const;
    [[nodiscard]] QByteArray all() const { return first(m_size); }
    void clear();

private:
    std::shared_ptr<char> m_bytes;
    qsizetype m_size = 0;
};

/// Overwrites the bytes in memory and empties the array. Only its sole owner can: the bytes of an
/// array that is shared with another one are left alone.
void wipe(QByteArray* bytes);
/// The same for a text.
void wipe(QString* text);

} // namespace Tessel::Core
