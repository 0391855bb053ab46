// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"

#include "core/DiskSync.h"
#include "core/HeaderWriter.h"
#include "core/IndexJson.h"

#include <QFileInfo>
#include <QScopeGuard>

#include <utility>

namespace Tessel::Core {

namespace {

constexpr int MasterKeyBytes = 64;
constexpr qint32 Argon2idIterations = 0;

const QByteArray MasterKeyPurpose = QByteArrayLiteral("master-key");
const QByteArray IndexPurpose = QByteArrayLiteral("index");
const QByteArray IndexRowsPurpose = QByteArrayLiteral("index-rows");
const QByteArray FileBlockPurpose = QByteArrayLiteral("file-block");

// New vaults and new passwords: the algorithms by name, a fresh salt and a fresh nonce.
void setFreshKeySlot(ContainerCryptoMetadata* crypto, const CryptoManager& cryptoManager) {
    crypto->kdf = QStringLiteral("Argon2id");
    crypto->kdfIterations = Argon2idIterations;
    crypto->cipher = QStringLiteral("XChaCha20-Poly1305");
    crypto->nonce = cryptoManager.generateNonce(CryptoManager::NonceBytes);
    crypto->salt = cryptoManager.generateSalt(CryptoManager::SaltBytes);
}

} // namespace

VaultManager::VaultManager() = default;

bool VaultManager::createVault(const QString& path, const QByteArray& password) {
    if (password.isEmpty()) {
        return false;
    }
    ContainerDocument document;
    setFreshKeySlot(&document.crypto, m_cryptoManager);
    renewPayloadNonce(&document);

    m_containerFilePath = path;
    m_index.clear();
    m_masterKey = SecretBytes(m_cryptoManager.generateSalt(MasterKeyBytes));
    // No container is wrapped with this key yet: should the creation fail, none takes a change.
    m_keySlot.clear();
    m_indexNonces.clear();
    document.crypto.encryptedMasterKey = encryptMasterKey(document, password, m_masterKey);
    if (document.crypto.encryptedMasterKey.isEmpty()) {
        return false;
    }
    document.encryptedIndex = encryptIndex(document, m_index);
    if (document.encryptedIndex.isEmpty()) {
        return false;
    }
    m_masterKey.clear();
    m_state = VaultState::Locked;
    return m_containerManager.writeDocument(path, document);
}

bool VaultManager::unlockVault(const QString& path, const QByteArray& password) {
    if (password.isEmpty()) {
        return false;
    }
    const QString place = recoverSetAside(path, password);
    ContainerDocument document;
    const bool opened = m_containerManager.readDocument(place, &document) &&
                        openDocument(document, password, &m_index);
    if (!opened) {
        if (!openRedoRecord(place, password, &document, &m_index)) {
            return false;
        }
        // On a drive that takes no writes the vault can still be read.
        static_cast<void>(HeaderWriter(place).restore(document));
    }
    // A link would be replaced by the compacted container, and the drive would keep the old one.
    m_containerFilePath = QFileInfo(place).canonicalFilePath();
    setIndex(SecureFileIndex(m_index), document);
    m_state = VaultState::Unlocked;
    return m_workspace.prepare();
}

bool VaultManager::openDocument(const ContainerDocument& document, const QByteArray& password,
                                SecureFileIndex* index) {
    m_masterKey = decryptMasterKey(document, password);
    if (m_masterKey.isEmpty()) {
        return false;
    }
    if (!decryptIndex(document, index)) {
        m_masterKey.clear();
        return false;
    }
    return true;
}

bool VaultManager::openRedoRecord(const QString& path, const QByteArray& password,
                                  ContainerDocument* document, SecureFileIndex* index) {
    if (!m_containerManager.readRedoRecord(path, document)) {
        return false;
    }
    m_masterKey = decryptMasterKey(*document, password);
    if (!m_masterKey.isEmpty() && openRecordedIndex(document, index)) {
        return true;
    }
    m_masterKey.clear();
    return false;
}

ContainerDocument VaultManager::documentForRecord(const ContainerDocument& document,
                                                  const SecureFileIndex& index) const {
    ContainerDocument record = document;
    renewPayloadNonce(&record);
    record.encryptedIndex = m_cryptoManager.encrypt(IndexJson::toCompact(index), workingKey(),
                                                    record.crypto.payloadNonce,
                                                    associatedData(record, IndexRowsPurpose));
    return record;
}

bool VaultManager::openRecordedIndex(ContainerDocument* document, SecureFileIndex* index) const {
    // A password change records its header as it is.
    if (decryptIndex(*document, index)) {
        return true;
    }
    const QByteArray rows = m_cryptoManager.decrypt(document->encryptedIndex, workingKey(),
                                                    document->crypto.payloadNonce,
                                                    associatedData(*document, IndexRowsPurpose));
    if (rows.isEmpty()) {
        return false;
    }
    *index = IndexJson::fromCompact(rows);
    renewPayloadNonce(document);
    document->encryptedIndex = encryptIndex(*document, *index);
    return !document->encryptedIndex.isEmpty();
}

bool VaultManager::headerOpens() const {
    ContainerDocument document;
    SecureFileIndex index;
    // A password change leaves the index as it was. One that was torn would otherwise pass for
    // whole, and nothing but the record holds the wrapping that a password opens.
    return m_containerManager.readDocument(m_containerFilePath, &document) &&
           keySlotOf(document) == m_keySlot && decryptIndex(document, &index);
}

bool VaultManager::settleRedoRecord() const {
    ContainerDocument recorded;
    if (!m_containerManager.readRedoRecord(m_containerFilePath, &recorded)) {
        return true;
    }
    // Whatever is appended next would hide the record from a header that needs it; and one that is
    // not needed would pass for the newest if the next rewrite had no room for its own.
    if (headerOpens()) {
        return HeaderWriter(m_containerFilePath).dropRecord();
    }
    SecureFileIndex index;
    return !openRecordedIndex(&recorded, &index) ||
           HeaderWriter(m_containerFilePath).restore(recorded);
}

bool VaultManager::readSettledDocument(ContainerDocument* document) {
    if (!m_lastChangeIsOnDrive && !syncPastEarlierErrors(m_containerFilePath)) {
        return false;
    }
    m_lastChangeIsOnDrive = false;
    return settleRedoRecord() && m_containerManager.readDocument(m_containerFilePath, document);
}

bool VaultManager::isOfThisSession(const ContainerDocument& document) const {
    // Drives of one name are mounted at one place. A vault found there in the place of the open one
    // would lose its index for good if that were sealed under this session's key.
    SecureFileIndex index;
    return keySlotOf(document) == m_keySlot || decryptIndex(document, &index);
}

bool VaultManager::holdsIndexInMemory(const ContainerDocument& document) const {
    // Each save draws a fresh nonce, so a nonce stands for one state of the index.
    return m_indexNonces.contains(document.crypto.payloadNonce);
}

bool VaultManager::refreshSession(ContainerDocument* document) {
    if (!readSettledDocument(document)) {
        return false;
    }
    const bool sameKeySlot = keySlotOf(*document) == m_keySlot;
    if (sameKeySlot && holdsIndexInMemory(*document)) {
        return true;
    }
    // Another session has changed the vault, or a copy of the container was put in its place. The
    // blocks are where that header says.
    SecureFileIndex index;
    if (decryptIndex(*document, &index)) {
        setIndex(index, *document);
        return true;
    }
    // A header that is damaged opens for nobody. The index in memory is what can still save it.
    return sameKeySlot;
}

void VaultManager::setIndex(const SecureFileIndex& index, const ContainerDocument& document) {
    m_index = index;
    m_keySlot = keySlotOf(document);
    m_indexNonces = {document.crypto.payloadNonce};
    m_headerPadding = HeaderPadding::Unknown;
    m_lastChangeIsOnDrive = false;
}

QByteArray VaultManager::keySlotOf(const ContainerDocument& document) const {
    return associatedData(document, MasterKeyPurpose) + document.crypto.encryptedMasterKey;
}

bool VaultManager::changePassword(const QString& path, const QByteArray& oldPassword,
                                  const QByteArray& newPassword) {
    if (m_state != VaultState::Locked || oldPassword.isEmpty() || newPassword.isEmpty()) {
        return false;
    }
    const QString place = recoverSetAside(path, oldPassword);
    if (!syncPastEarlierErrors(place)) {
        return false;
    }
    ContainerDocument document;
    const SecretBytes masterKey = masterKeyForRekeying(place, oldPassword, &document);
    if (masterKey.isEmpty()) {
        return false;
    }
    setFreshKeySlot(&document.crypto, m_cryptoManager);
    document.crypto.encryptedMasterKey = encryptMasterKey(document, newPassword, masterKey);
    return !document.crypto.encryptedMasterKey.isEmpty() &&
           HeaderWriter(place).rewrite(document, document, WithoutRecord::Refuse);
}

SecretBytes VaultManager::masterKeyForRekeying(const QString& path, const QByteArray& password,
                                               ContainerDocument* document) {
    const auto dropKey = qScopeGuard([this] { m_masterKey.clear(); });
    SecureFileIndex index;
    ContainerDocument recorded;
    const bool hasRecord = m_containerManager.readRedoRecord(path, &recorded);
    if (m_containerManager.readDocument(path, document)) {
        if (!hasRecord) {
            return decryptMasterKey(*document, password);
        }
        // A torn header may still give the master key, beside half an index: re-keying that one
        // would lose the record that holds the whole.
        if (openDocument(*document, password, &index)) {
            return HeaderWriter(path).dropRecord() ? m_masterKey : SecretBytes();
        }
    }
    const bool repaired =
        openRedoRecord(path, password, document, &index) && HeaderWriter(path).restore(*document);
    return repaired ? m_masterKey : SecretBytes();
}

bool VaultManager::saveIndex(const SecureFileIndex& index) {
    if (!isUnlocked() || m_containerFilePath.isEmpty()) {
        return false;
    }
    ContainerDocument document;
    return readSettledDocument(&document) && isOfThisSession(document) &&
           saveSessionIndex(&document, index);
}

bool VaultManager::saveSessionIndex(ContainerDocument* document, const SecureFileIndex& index,
                                    WithoutRecord withoutRecord) {
    prepareForIndexSave(document);
    return sealIndexIntoHeader(document, index, withoutRecord);
}

QByteArray VaultManager::associatedData(const ContainerDocument& document,
                                        const QByteArray& purpose) const {
    const ContainerCryptoMetadata& crypto = document.crypto;
    QByteArrayList parts{QByteArrayLiteral("TESSEL"), purpose,
                         QByteArray::number(document.formatVersion)};
    if (purpose == MasterKeyPurpose) {
        parts << crypto.cipher.toUtf8() << crypto.kdf.toUtf8()
              << QByteArray::number(crypto.kdfIterations) << crypto.salt << crypto.nonce;
    } else if (purpose != FileBlockPurpose) {
        parts << crypto.cipher.toUtf8() << crypto.payloadNonce;
    }
    return parts.join('|');
}

SecretBytes VaultManager::deriveSessionKey(const QByteArray& password,
                                           const ContainerCryptoMetadata& crypto) const {
    return SecretBytes(
        m_cryptoManager.deriveKey(password, {crypto.kdf, crypto.salt, crypto.kdfIterations, 64}));
}

QByteArray VaultManager::encryptMasterKey(const ContainerDocument& document,
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

SecretBytes VaultManager::decryptMasterKey(const ContainerDocument& document,
                                           const QByteArray& password) const {
    const SecretBytes passwordKey = deriveSessionKey(password, document.crypto);
    if (passwordKey.isEmpty() || document.crypto.encryptedMasterKey.isEmpty()) {
        return {};
    }
    return SecretBytes(m_cryptoManager.decrypt(
        document.crypto.encryptedMasterKey, passwordKey.first(CryptoManager::KeyBytes),
        document.crypto.nonce, associatedData(document, MasterKeyPurpose)));
}

QByteArray VaultManager::encryptIndex(const ContainerDocument& document,
                                      const SecureFileIndex& index) const {
    return m_cryptoManager.encrypt(index.toJson(), workingKey(), document.crypto.payloadNonce,
                                   associatedData(document, IndexPurpose));
}

bool VaultManager::decryptIndex(const ContainerDocument& document, SecureFileIndex* out) const {
    if (!out || document.encryptedIndex.isEmpty()) {
        return false;
    }
    const QByteArray json =
        m_cryptoManager.decrypt(document.encryptedIndex, workingKey(), document.crypto.payloadNonce,
                                associatedData(document, IndexPurpose));
    if (json.isEmpty()) {
        return false;
    }
    *out = SecureFileIndex::fromJson(json);
    return true;
}

QByteArray VaultManager::blockAssociatedData(const ContainerDocument& document) const {
    return associatedData(document, FileBlockPurpose);
}

void VaultManager::renewPayloadNonce(ContainerDocument* document) const {
    document->crypto.payloadNonce =
        m_cryptoManager.generateNonce(static_cast<int>(document->crypto.nonce.size()));
}

void VaultManager::prepareForIndexSave(ContainerDocument* document) const {
    document->filePayloads.clear();
    document->encryptedPayload.clear();
    document->crypto.authTag.clear();
    renewPayloadNonce(document);
}

bool VaultManager::sealIndexIntoHeader(ContainerDocument* document, const SecureFileIndex& index,
                                       WithoutRecord withoutRecord) {
    document->fileIndex = index;
    document->encryptedIndex = encryptIndex(*document, document->fileIndex);
    const ContainerDocument record = documentForRecord(*document, document->fileIndex);
    HeaderWriter writer(m_containerFilePath,
                        std::exchange(m_headerPadding, HeaderPadding::Unknown));
    if (document->encryptedIndex.isEmpty() || record.encryptedIndex.isEmpty()) {
        return false;
    }
    if (!writer.rewrite(*document, record, withoutRecord)) {
        // The drive may hold the new header although it reported a failure. That change was given
        // up: the index in memory still counts.
        m_indexNonces.append(document->crypto.payloadNonce);
        return false;
    }
    setIndex(index, *document);
    m_headerPadding = writer.padding();
    m_lastChangeIsOnDrive = true;
    return true;
}

} // namespace Tessel::Core
