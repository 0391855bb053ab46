// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

namespace Tessel::Core {

/// How a password becomes a key.
struct KeyDerivationParams {
    /// Exactly "Argon2id" selects Argon2id; anything else selects PBKDF2-HMAC-SHA256.
    QString algorithm;
    /// Argon2id uses the first 16 bytes and refuses fewer; PBKDF2 uses all of it.
    QByteArray salt;
    /// PBKDF2 iterations; Argon2id does not look at it.
    qint32 iterations = 250000;
    /// Bytes of key wanted.
    qint32 keyLength = 64;
};

/// All of the vault's cryptography: stateless, re-entrant calls of libsodium.
///
/// Every failure is an empty byte array. A wrong key and altered data cannot be told apart, and
/// neither can an empty plaintext, which is why nothing in the vault ever seals one.
class CryptoManager {
public:
    static constexpr qsizetype KeyBytes = 32;
    static constexpr qsizetype NonceBytes = 24;
    static constexpr qsizetype TagBytes = 16;
    static constexpr qsizetype SaltBytes = 16;
    static constexpr qsizetype HmacBytes = 32;

    /// Initialises libsodium; a repeated initialisation is harmless.
    CryptoManager();

    /// @p length random bytes from the system's generator; empty when @p length is below 1.
    [[nodiscard]] QByteArray generateSalt(int length) const;
    /// The same as generateSalt, for call sites that draw a nonce.
    [[nodiscard]] QByteArray generateNonce(int length) const;

    /// Seals @p plaintext with XChaCha20-Poly1305 (draft-irtf-cfrg-xchacha-03, section 2).
    /// @return the ciphertext followed by its 16-byte tag; empty unless @p key has 32 bytes and
    ///         @p nonce 24.
    [[nodiscard]] QByteArray encrypt(const QByteArray& plaintext, const QByteArray& key,
                                     const QByteArray& nonce,
                                     const QByteArray& associatedData) const;
    /// Opens what encrypt() sealed.
    /// @return the plaintext; empty when a length is wrong or the tag does not verify.
    [[nodiscard]] QByteArray decrypt(const QByteArray& ciphertext, const QByteArray& key,
                                     const QByteArray& nonce,
                                     const QByteArray& associatedData) const;

    /// encrypt() without a second buffer: @p buffer holds the plaintext and then what encrypt()
    /// would return. @return false, with the buffer's content undefined, where encrypt() fails.
    [[nodiscard]] bool encryptInPlace(QByteArray* buffer, const QByteArray& key,
                                      const QByteArray& nonce,
                                      const QByteArray& associatedData) const;
    /// decrypt() without a second buffer: @p buffer holds the sealed bytes and then the plaintext.
    /// @return false, with the buffer's content undefined, when it does not open; an empty
    ///         plaintext counts as failure.
    [[nodiscard]] bool decryptInPlace(QByteArray* buffer, const QByteArray& key,
                                      const QByteArray& nonce,
                                      const QByteArray& associatedData) const;

    /// HMAC-SHA256 (RFC 2104) of @p message under the first 32 bytes of @p key.
    /// @return 32 bytes; empty when the key is shorter than 32 bytes.
    [[nodiscard]] QByteArray hmacSha256(const QByteArray& message, const QByteArray& key) const;

    /// Whether both arrays hold the same bytes, in a time that depends on their lengths only.
    [[nodiscard]] bool constantTimeEquals(const QByteArray& a, const QByteArray& b) const;

    /// Derives a key from a password: Argon2id version 1.3 (RFC 9106) with 3 passes over 256 MiB,
    /// or PBKDF2-HMAC-SHA256 (RFC 8018, section 5.2).
    /// @return `keyLength` bytes; empty for an empty password or salt, a length or iteration count
    ///         below 1, or when the memory cannot be had.
    [[nodiscard]] QByteArray deriveKey(const QByteArray& password,
                                       const KeyDerivationParams& params) const;
};

} // namespace Tessel::Core
