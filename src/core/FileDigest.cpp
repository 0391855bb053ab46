// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/FileDigest.h"

#include <openssl/evp.h>

namespace Tessel::Core {

struct FileDigest::Context {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> evp{EVP_MD_CTX_new(), &EVP_MD_CTX_free};
    bool good = false;
};

FileDigest::FileDigest() : m_context(std::make_unique<Context>()) {
    m_context->good =
        m_context->evp && EVP_DigestInit_ex(m_context->evp.get(), EVP_sha256(), nullptr) == 1;
}

FileDigest::~FileDigest() = default;

bool FileDigest::addData(QByteArrayView bytes) {
    m_context->good =
        m_context->good && EVP_DigestUpdate(m_context->evp.get(), bytes.data(),
                                            static_cast<std::size_t>(bytes.size())) == 1;
    return m_context->good;
}

QByteArray FileDigest::result() {
    if (!m_context->good) {
        return {};
    }
    m_context->good = false;
    QByteArray digest(EVP_MD_get_size(EVP_sha256()), Qt::Uninitialized);
    unsigned size = 0;
    if (EVP_DigestFinal_ex(m_context->evp.get(), reinterpret_cast<unsigned char*>(digest.data()),
                           &size) != 1 ||
        size != static_cast<unsigned>(digest.size())) {
        return {};
    }
    return digest;
}

} // namespace Tessel::Core
