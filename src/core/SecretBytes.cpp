// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SecretBytes.h"

#include <algorithm>
#include <cstring>

#include <sodium.h>

namespace Tessel::Core {

SecretBytes::SecretBytes(QByteArray&& bytes) {
    const auto size = static_cast<std::size_t>(bytes.size());
    if (size > 0) {
        m_bytes.reset(static_cast<char*>(sodium_malloc(size)), sodium_free);
    }
    if (m_bytes) {
        std::memcpy(m_bytes.get(), bytes.constData(), size);
        m_size = bytes.size();
    }
    wipe(&bytes);
}

QByteArray SecretBytes::first(qsizetype size) const {
    return m_bytes ? QByteArray::fromRawData(m_bytes.get(), std::min(size, m_size)) : QByteArray();
}

void SecretBytes::clear() {
    m_bytes.reset();
    m_size = 0;
}

void wipe(QByteArray* bytes) {
    if (bytes->isDetached()) {
        sodium_memzero(bytes->data(), static_cast<std::size_t>(bytes->size()));
    }
    bytes->clear();
}

void wipe(QString* text) {
    if (text->isDetached()) {
        sodium_memzero(text->data(), static_cast<std::size_t>(text->size()) * sizeof(QChar));
    }
    text->clear();
}

} // namespace Tessel::Core
