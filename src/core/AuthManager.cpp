// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/AuthManager.h"

#include "core/SecretBytes.h"

#include <QCryptographicHash>

namespace Tessel::Core {

AuthManager::AuthManager(CryptoManager cryptoManager) : m_cryptoManager(cryptoManager) {}

bool AuthManager::authenticate(const QByteArray& password, const QByteArray& expectedVerifier,
                               const KeyDerivationParams& params) const {
    const SecretBytes key(m_cryptoManager.deriveKey(password, params));
    if (key.isEmpty() || expectedVerifier.isEmpty()) {
        return false;
    }
    return QCryptographicHash::hash(key.all(), QCryptographicHash::Sha256) == expectedVerifier;
}

} // namespace Tessel::Core
