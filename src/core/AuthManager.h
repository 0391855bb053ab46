// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/CryptoManager.h"

namespace Tessel::Core {

/// Checks a password against a stored verifier: the SHA-256 digest of the derived key.
class AuthManager {
public:
    explicit AuthManager(CryptoManager cryptoManager);

    /// @param expectedVerifier SHA-256 of the key that deriveKey(password, params) gives.
    /// @return false for another password, an empty verifier, or a derivation that fails.
    [[nodiscard]] bool authenticate(const QByteArray& password, const QByteArray& expectedVerifier,
                                    const KeyDerivationParams& params) const;

private:
    CryptoManager m_cryptoManager;
};

} // namespace Tessel::Core
