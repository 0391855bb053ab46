// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/CryptoManager.h"

#include "core/SecretBytes.h"

#include <QMessageAuthenticationCode>
#include <QtEndian>

#include <sodium.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

// libsodium's "moderate" limits as numbers: they are part of the container format, and a later
// libsodium might change its constants.
constexpr unsigned long long Argon2Passes = 3;
constexpr std::size_t Argon2MemoryBytes = 268435456;

// More than what libsodium's calls leave on the stack.
constexpr std::size_t UsedStackBytes = std::size_t{64} * 1024;

static_assert(CryptoManager::KeyBytes == crypto_aead_xchacha20poly1305_ietf_KEYBYTES);
static_assert(CryptoManager::NonceBytes == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);
static_assert(CryptoManager::TagBytes == crypto_aead_xchacha20poly1305_ietf_ABYTES);
static_assert(CryptoManager::SaltBytes == crypto_pwhash_argon2id_SALTBYTES);
static_assert(CryptoManager::HmacBytes == crypto_auth_hmacsha256_BYTES);

const unsigned char* bytesOf(const QByteArray& array) {
    return reinterpret_cast<const unsigned char*>(array.constData());
}

unsigned char* bytesOf(QByteArray& array) {
    return reinterpret_cast<unsigned char*>(array.data());
}

unsigned long long sizeOf(const QByteArray& array) {
    return static_cast<unsigned long long>(array.size());
}

// Both ciphers work in place as well: input and output may be the same memory.
bool seal(const unsigned char* plain, unsigned long long plainSize, unsigned char* sealed,
          const QByteArray& key, const QByteArray& nonce, const QByteArray& associatedData) {
    unsigned long long sealedSize = 0;
    return crypto_aead_xchacha20poly1305_ietf_encrypt(
               sealed, &sealedSize, plain, plainSize, bytesOf(associatedData),
               sizeOf(associatedData), nullptr, bytesOf(nonce), bytesOf(key)) == 0;
}

bool open(const unsigned char* sealed, unsigned long long sealedSize, unsigned char* plain,
          const QByteArray& key, const QByteArray& nonce, const QByteArray& associatedData) {
    unsigned long long plainSize = 0;
    return crypto_aead_xchacha20poly1305_ietf_decrypt(
               plain, &plainSize, nullptr, sealed, sealedSize, bytesOf(associatedData),
               sizeOf(associatedData), bytesOf(nonce), bytesOf(key)) == 0;
}

QByteArray argon2id(const QByteArray& password, const KeyDerivationParams& params) {
    if (params.salt.size() < CryptoManager::SaltBytes) {
        return {};
    }
    QByteArray key(params.keyLength, Qt::Uninitialized);
    const int result = crypto_pwhash(bytesOf(key), sizeOf(key), password.constData(),
                                     sizeOf(password), bytesOf(params.salt), Argon2Passes,
                                     Argon2MemoryBytes, crypto_pwhash_ALG_ARGON2ID13);
    // The key was computed there.
    sodium_stackzero(UsedStackBytes);
    return result == 0 ? key : QByteArray();
}

QByteArray pbkdf2HmacSha256(const QByteArray& password, const KeyDerivationParams& params) {
    if (params.iterations < 1) {
        return {};
    }
    QMessageAuthenticationCode hmac(QCryptographicHash::Sha256, password);
    const auto prf = [&hmac](const QByteArray& message) {
        hmac.reset();
        hmac.addData(message);
        return hmac.result();
    };

    QByteArray output;
    // A reallocation would leave a copy of the beginning.
    output.reserve(params.keyLength + CryptoManager::HmacBytes);
    for (quint32 counter = 1; output.size() < params.keyLength; ++counter) {
        QByteArray counterBytes(sizeof(quint32), Qt::Uninitialized);
        qToBigEndian(counter, counterBytes.data());
        QByteArray u = prf(params.salt + counterBytes);
        QByteArray t = u;
        for (qint32 remaining = params.iterations - 1; remaining > 0; --remaining) {
            u = prf(u);
            for (qsizetype i = 0; i < t.size(); ++i) {
                t[i] = static_cast<char>(t.at(i) ^ u.at(i));
            }
        }
        output += t;
        wipe(&u);
        wipe(&t);
    }
    output.truncate(params.keyLength);
    return output;
}

} // namespace

CryptoManager::CryptoManager() {
    // A failed initialisation leaves libsodium's portable code in use; the random generator aborts
    // by itself when the system has none.
    [[maybe_unused]] const int result = sodium_init();
}

QByteArray CryptoManager::generateSalt(int length) const {
    if (length < 1) {
        return {};
    }
    QByteArray bytes(length, Qt::Uninitialized);
    randombytes_buf(bytes.data(), static_cast<std::size_t>(length));
    return bytes;
}

QByteArray CryptoManager::generateNonce(int length) const {
    return generateSalt(length);
}

QByteArray CryptoManager::encrypt(const QByteArray& plaintext, const QByteArray& key,
                                  const QByteArray& nonce, const QByteArray& associatedData) const {
    if (key.size() != KeyBytes || nonce.size() != NonceBytes) {
        return {};
    }
    QByteArray sealed(plaintext.size() + TagBytes, Qt::Uninitialized);
    return seal(bytesOf(plaintext), sizeOf(plaintext), bytesOf(sealed), key, nonce, associatedData)
               ? sealed
               : QByteArray();
}

QByteArray CryptoManager::decrypt(const QByteArray& ciphertext, const QByteArray& key,
                                  const QByteArray& nonce, const QByteArray& associatedData) const {
    if (key.size() != KeyBytes || nonce.size() != NonceBytes || ciphertext.size() < TagBytes) {
        return {};
    }
    QByteArray plaintext(ciphertext.size() - TagBytes, Qt::Uninitialized);
    return open(bytesOf(ciphertext), sizeOf(ciphertext), bytesOf(plaintext), key, nonce,
                associatedData)
               ? plaintext
               : QByteArray();
}

bool CryptoManager::encryptInPlace(QByteArray* buffer, const QByteArray& key,
                                   const QByteArray& nonce,
                                   const QByteArray& associatedData) const {
    if (key.size() != KeyBytes || nonce.size() != NonceBytes) {
        return false;
    }
    const unsigned long long plainSize = sizeOf(*buffer);
    buffer->resize(buffer->size() + TagBytes);
    return seal(bytesOf(*buffer), plainSize, bytesOf(*buffer), key, nonce, associatedData);
}

bool CryptoManager::decryptInPlace(QByteArray* buffer, const QByteArray& key,
                                   const QByteArray& nonce,
                                   const QByteArray& associatedData) const {
    if (key.size() != KeyBytes || nonce.size() != NonceBytes || buffer->size() <= TagBytes) {
        return false;
    }
    const bool opened =
        open(bytesOf(*buffer), sizeOf(*buffer), bytesOf(*buffer), key, nonce, associatedData);
    buffer->resize(buffer->size() - TagBytes);
    return opened;
}

QByteArray CryptoManager::hmacSha256(const QByteArray& message, const QByteArray& key) const {
    if (key.size() < static_cast<qsizetype>(crypto_auth_hmacsha256_KEYBYTES)) {
        return {};
    }
    QByteArray code(HmacBytes, Qt::Uninitialized);
    crypto_auth_hmacsha256(bytesOf(code), bytesOf(message), sizeOf(message), bytesOf(key));
    return code;
}

bool CryptoManager::constantTimeEquals(const QByteArray& a, const QByteArray& b) const {
    if (a.size() != b.size()) {
        return false;
    }
    unsigned difference = 0;
    for (qsizetype i = 0; i < a.size(); ++i) {
        difference |= static_cast<unsigned>(a.at(i) ^ b.at(i));
    }
    return difference == 0;
}

QByteArray CryptoManager::deriveKey(const QByteArray& password,
                                    const KeyDerivationParams& params) const {
    if (password.isEmpty() || params.salt.isEmpty() || params.keyLength < 1) {
        return {};
    }
    if (params.algorithm == "Argon2id"_L1) {
        return argon2id(password, params);
    }
    return pbkdf2HmacSha256(password, params);
}

} // namespace Tessel::Core
