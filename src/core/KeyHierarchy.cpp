// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/KeyHierarchy.h"

#include "core/IndexJson.h"
#include "core/PackedIndex.h"

#include <QByteArrayList>

#include <optional>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int MasterKeyBytes = 64;
constexpr qint32 PasswordKeyBytes = 64;
constexpr qint32 Argon2idIterations = 0;

const QByteArray MasterKeyPurpose = "master-key"_ba;
const QByteArray IndexPurpose = "index"_ba;
const QByteArray PackedIndexPurpose = "index-packed"_ba;
// Of an earlier version.
const QByteArray RowsPurpose = "index-rows"_ba;
const QByteArray FileBlockPurpose = "file-block"_ba;

QByteArray associatedData(const ContainerDocument& document, const QByteArray& purpose) {
    const ContainerCryptoMetadata& crypto = document.crypto;
    QByteArrayList parts{"TESSEL"_ba, purpose, QByteArray::number(document.formatVersion)};
    if (purpose == MasterKeyPurpose) {
        parts << crypto.cipher.toUtf8() << crypto.kdf.toUtf8()
              << QByteArray::number(crypto.kdfIterations) << crypto.salt << crypto.nonce;
    } else if (purpose != FileBlockPurpose) {
        parts << crypto.cipher.toUtf8() << crypto.payloadNonce;
    }
    return parts.join('|');
}

// A block is bound to the format, not to the container that holds it: compaction moves it.
QByteArray blockAssociatedData() {
    return associatedData(ContainerDocument(), FileBlockPurpose);
}

// The part of the master key that seals the index and the blocks, without a copy of it.
QByteArray workingKey(const SecretBytes& masterKey) {
    return masterKey.first(CryptoManager::KeyBytes);
}

} // namespace

SecretBytes KeyHierarchy::newMasterKey() const {
    return SecretBytes(m_cryptoManager.generateSalt(MasterKeyBytes));
}

void KeyHierarchy::renewKeySlot(ContainerCryptoMetadata* crypto) const {
    crypto->kdf = u"Argon2id"_s;
    crypto->kdfIterations = Argon2idIterations;
    crypto->cipher = u"XChaCha20-Poly1305"_s;
    crypto->nonce = m_cryptoManager.generateNonce(CryptoManager::NonceBytes);
    crypto->salt = m_cryptoManager.generateSalt(CryptoManager::SaltBytes);
}

void KeyHierarchy::renewPayloadNonce(ContainerDocument* document) const {
    document->crypto.payloadNonce =
        m_cryptoManager.generateNonce(static_cast<int>(document->crypto.nonce.size()));
}

QByteArray KeyHierarchy::keySlotOf(const ContainerDocument& document) const {
    return associatedData(document, MasterKeyPurpose) + document.crypto.encryptedMasterKey;
}

SecretBytes KeyHierarchy::deriveSessionKey(const QByteArray& password,
                                           const ContainerCryptoMetadata& crypto) const {
    return SecretBytes(m_cryptoManager.deriveKey(
        password, {crypto.kdf, crypto.salt, crypto.kdfIterations, PasswordKeyBytes}));
}

QByteArray KeyHierarchy::encryptMasterKey(const ContainerDocument& document,
                                          const QByteArray& password,
                                          const SecretBytes& masterKey) const {
    const SecretBytes passwordKey = deriveSessionKey(password, document.crypto);
    if (passwordKey.isEmpty() || masterKey.isEmpty()) {
        return {};
    }
    return m_cryptoManager.encrypt(masterKey.all(), passwordKey.first(CryptoManager::KeyBytes),
                                   document.crypto.nonce,
                                   associatedData(document, MasterKeyPurpose));
}

SecretBytes KeyHierarchy::decryptMasterKey(const ContainerDocument& document,
                                           const QByteArray& password) const {
    const SecretBytes passwordKey = deriveSessionKey(password, document.crypto);
    if (passwordKey.isEmpty() || document.crypto.encryptedMasterKey.isEmpty()) {
        return {};
    }
    return SecretBytes(m_cryptoManager.decrypt(
        document.crypto.encryptedMasterKey, passwordKey.first(CryptoManager::KeyBytes),
        document.crypto.nonce, associatedData(document, MasterKeyPurpose)));
}

QByteArray KeyHierarchy::encryptIndex(const ContainerDocument& document,
                                      const SecureFileIndex& index,
                                      const SecretBytes& masterKey) const {
    QByteArray sealed;
    return sealIndex(document, index, masterKey, &sealed) ? sealed : QByteArray();
}

bool KeyHierarchy::sealIndex(const ContainerDocument& document, const SecureFileIndex& index,
                             const SecretBytes& masterKey, QByteArray* sealed) const {
    IndexJson::writeJson(index, sealed);
    if (m_cryptoManager.encryptInPlace(sealed, workingKey(masterKey), document.crypto.payloadNonce,
                                       associatedData(document, IndexPurpose))) {
        return true;
    }
    // What it holds may be plaintext.
    wipe(sealed);
    return false;
}

bool KeyHierarchy::decryptIndex(const ContainerDocument& document, const SecretBytes& masterKey,
                                SecureFileIndex* index) const {
    if (document.encryptedIndex.isEmpty()) {
        return false;
    }
    const QByteArray json = m_cryptoManager.decrypt(document.encryptedIndex, workingKey(masterKey),
                                                    document.crypto.payloadNonce,
                                                    associatedData(document, IndexPurpose));
    if (json.isEmpty()) {
        return false;
    }
    *index = IndexJson::fromJson(json);
    return true;
}

bool KeyHierarchy::sealForRecord(const ContainerDocument& document, const SecureFileIndex& index,
                                 const SecretBytes& masterKey, ContainerDocument* record) const {
    record->formatVersion = document.formatVersion;
    record->crypto = document.crypto;
    renewPayloadNonce(record);
    PackedIndex::write(index, &record->encryptedIndex);
    if (m_cryptoManager.encryptInPlace(&record->encryptedIndex, workingKey(masterKey),
                                       record->crypto.payloadNonce,
                                       associatedData(*record, PackedIndexPurpose))) {
        return true;
    }
    wipe(&record->encryptedIndex);
    return false;
}

bool KeyHierarchy::decryptRecordedIndex(ContainerDocument* document, const SecretBytes& masterKey,
                                        SecureFileIndex* index) const {
    // A password change records its header as it is.
    if (decryptIndex(*document, masterKey, index)) {
        return true;
    }
    const auto openedWith = [&](const QByteArray& purpose) {
        return m_cryptoManager.decrypt(document->encryptedIndex, workingKey(masterKey),
                                       document->crypto.payloadNonce,
                                       associatedData(*document, purpose));
    };
    if (const QByteArray packed = openedWith(PackedIndexPurpose); !packed.isEmpty()) {
        const std::optional<SecureFileIndex> read = PackedIndex::read(packed);
        if (!read) {
            return false;
        }
        *index = *read;
    } else if (const QByteArray rows = openedWith(RowsPurpose); !rows.isEmpty()) {
        *index = IndexJson::fromRows(rows);
    } else {
        return false;
    }
    renewPayloadNonce(document);
    document->encryptedIndex = encryptIndex(*document, *index, masterKey);
    return !document->encryptedIndex.isEmpty();
}

bool KeyHierarchy::encryptBlock(QByteArray* buffer, VaultFileBlock* block,
                                const SecretBytes& masterKey) const {
    block->nonce = m_cryptoManager.generateNonce(CryptoManager::NonceBytes);
    block->plainSize = buffer->size();
    const bool sealed = m_cryptoManager.encryptInPlace(buffer, workingKey(masterKey), block->nonce,
                                                       blockAssociatedData());
    block->encryptedSize = buffer->size();
    return sealed;
}

bool KeyHierarchy::decryptBlock(QByteArray* buffer, const VaultFileBlock& block,
                                const SecretBytes& masterKey) const {
    return m_cryptoManager.decryptInPlace(buffer, workingKey(masterKey), block.nonce,
                                          blockAssociatedData()) &&
           buffer->size() == block.plainSize;
}

} // namespace Tessel::Core
