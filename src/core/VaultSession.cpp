// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultSession.h"

#include "core/ContainerLayout.h"
#include "core/DiskSync.h"

#include <QFileInfo>

#include <utility>

namespace Tessel::Core {

bool VaultSession::create(const QString& path, const QByteArray& password) {
    ContainerDocument document;
    m_keys.renewKeySlot(&document.crypto);
    m_keys.renewPayloadNonce(&document);

    m_path = path;
    m_masterKey = m_keys.newMasterKey();
    // No container has this key yet: should the creation fail, none takes a change.
    m_keySlot.clear();
    m_indexNonces.clear();
    m_headerWriter = HeaderWriter(path);
    document.crypto.encryptedMasterKey = m_keys.encryptMasterKey(document, password, m_masterKey);
    if (document.crypto.encryptedMasterKey.isEmpty() ||
        !encryptIndex(&document, SecureFileIndex())) {
        return false;
    }
    close();
    return m_containerManager.writeDocument(path, document);
}

bool VaultSession::open(const QString& path, const QByteArray& password, SecureFileIndex* index) {
    const QString place = recoverSetAside(path, password);
    Opened opened = openHeader(place, password);
    if (!opened.isOpen()) {
        const bool hasHeader = opened.isFound;
        opened = openRedoRecord(place, password);
        if (!opened.isOpen()) {
            if (hasHeader || opened.isFound) {
                close();
            }
            return false;
        }
        // On a drive that takes no writes the vault can still be read.
        static_cast<void>(HeaderWriter(place).restore(opened.document));
    }
    m_masterKey = opened.masterKey;
    // A link would be replaced by the compacted container, and the drive would keep the old one.
    m_path = QFileInfo(place).canonicalFilePath();
    setHeader(opened.document);
    *index = std::move(opened.index);
    return true;
}

void VaultSession::close() {
    m_masterKey.clear();
    m_headerWriter = HeaderWriter(m_path);
    m_sealedIndex.clear();
    m_record = {};
}

VaultSession::Opened VaultSession::openDocument(const ContainerDocument& document,
                                                const QByteArray& password) const {
    Opened opened{true, document, m_keys.decryptMasterKey(document, password), {}};
    if (opened.isOpen() && !m_keys.decryptIndex(document, opened.masterKey, &opened.index)) {
        opened.masterKey.clear();
    }
    return opened;
}

VaultSession::Opened VaultSession::openHeader(const QString& path,
                                              const QByteArray& password) const {
    ContainerDocument document;
    return m_containerManager.readDocument(path, &document) ? openDocument(document, password)
                                                            : Opened();
}

VaultSession::Opened VaultSession::openRedoRecord(const QString& path,
                                                  const QByteArray& password) const {
    Opened opened;
    opened.isFound = m_containerManager.readRedoRecord(path, &opened.document);
    if (!opened.isFound) {
        return opened;
    }
    opened.masterKey = m_keys.decryptMasterKey(opened.document, password);
    if (opened.isOpen() &&
        !m_keys.decryptRecordedIndex(&opened.document, opened.masterKey, &opened.index)) {
        opened.masterKey.clear();
    }
    return opened;
}

bool VaultSession::rekey(const QString& path, const QByteArray& oldPassword,
                         const QByteArray& newPassword) const {
    const QString place = recoverSetAside(path, oldPassword);
    if (!syncPastEarlierErrors(place)) {
        return false;
    }
    ContainerDocument document;
    const SecretBytes masterKey = recover(place, oldPassword, &document);
    if (masterKey.isEmpty()) {
        return false;
    }
    m_keys.renewKeySlot(&document.crypto);
    document.crypto.encryptedMasterKey = m_keys.encryptMasterKey(document, newPassword, masterKey);
    return !document.crypto.encryptedMasterKey.isEmpty() &&
           HeaderWriter(place).rewrite(document, document, WithoutRecord::Refuse);
}

bool VaultSession::readRecovered(ContainerDocument* document) {
    if (!std::exchange(m_lastChangeIsOnDrive, false)) {
        if (!syncPastEarlierErrors(m_path)) {
            return false;
        }
    } else if (m_headerWriter.hasHeaderAsWritten()) {
        *document = m_writtenDocument;
        return true;
    }
    return recover() && m_containerManager.readDocument(m_path, document);
}

bool VaultSession::hasOurKeySlot(const ContainerDocument& document) const {
    return m_keys.keySlotOf(document) == m_keySlot;
}

bool VaultSession::holdsCallersIndex(const ContainerDocument& document) const {
    // Each save draws a new nonce, so a nonce identifies one state of the index.
    return m_indexNonces.contains(document.crypto.payloadNonce);
}

bool VaultSession::read(ContainerDocument* document, SecureFileIndex* index) {
    if (!readRecovered(document)) {
        return false;
    }
    const bool sameKeySlot = hasOurKeySlot(*document);
    if (sameKeySlot && holdsCallersIndex(*document)) {
        return true;
    }
    // Another session has changed the vault, or a copy of the container replaced it. The blocks are
    // where that header says.
    if (decryptIndex(*document, index)) {
        setHeader(*document);
        return true;
    }
    // A damaged header opens under no key. The caller's index is what can still save it.
    return sameKeySlot;
}

bool VaultSession::readWithSealedIndex(ContainerDocument* document, SecureFileIndex* index) {
    m_headerWriter = HeaderWriter(m_path);
    return read(document, index);
}

bool VaultSession::readForReplacing(ContainerDocument* document) {
    // Drives of one name are mounted at one place. A vault found there in place of the open one
    // would lose its index for good if that were sealed under this session's key.
    SecureFileIndex ignored;
    return readRecovered(document) &&
           (hasOurKeySlot(*document) || decryptIndex(*document, &ignored));
}

bool VaultSession::readChangedIndex(SecureFileIndex* index) const {
    ContainerDocument document;
    return m_containerManager.readDocument(m_path, &document) && !holdsCallersIndex(document) &&
           decryptIndex(document, index);
}

void VaultSession::renewNonce(ContainerDocument* document) const {
    m_keys.renewPayloadNonce(document);
}

void VaultSession::prepareForSave(ContainerDocument* document) const {
    document->filePayloads.clear();
    document->encryptedPayload.clear();
    document->crypto.authTag.clear();
    renewNonce(document);
}

bool VaultSession::save(ContainerDocument* document, const SecureFileIndex& index,
                        WithoutRecord withoutRecord) {
    document->fileIndex = index;
    const bool sealed = m_keys.sealIndex(*document, index, m_masterKey, &m_sealedIndex) &&
                        m_keys.sealForRecord(*document, index, m_masterKey, &m_record);
    document->encryptedIndex = m_sealedIndex;
    // What is known of the header and the padding holds for the next rewrite only.
    HeaderWriter writer = std::exchange(m_headerWriter, HeaderWriter(m_path));
    if (!sealed) {
        return false;
    }
    if (!writer.rewrite(*document, m_record, withoutRecord)) {
        // The drive may hold the new header although it reported a failure. That change was given
        // up: the caller's index still counts.
        m_indexNonces.append(document->crypto.payloadNonce);
        return false;
    }
    setHeader(*document);
    m_headerWriter = std::move(writer);
    m_writtenDocument = {};
    m_writtenDocument.formatVersion = document->formatVersion;
    m_writtenDocument.crypto = document->crypto;
    m_writtenDocument.payloadOffset = ContainerLayout::PayloadOffset;
    m_lastChangeIsOnDrive = true;
    return true;
}

void VaultSession::setHeader(const ContainerDocument& document) {
    m_keySlot = m_keys.keySlotOf(document);
    m_indexNonces = {document.crypto.payloadNonce};
    m_headerWriter = HeaderWriter(m_path);
    m_lastChangeIsOnDrive = false;
}

bool VaultSession::encryptIndex(ContainerDocument* document, const SecureFileIndex& index) const {
    document->encryptedIndex = m_keys.encryptIndex(*document, index, m_masterKey);
    return !document->encryptedIndex.isEmpty();
}

bool VaultSession::decryptIndex(const ContainerDocument& document, SecureFileIndex* index) const {
    return m_keys.decryptIndex(document, m_masterKey, index);
}

bool VaultSession::encryptBlock(QByteArray* buffer, VaultFileBlock* block) const {
    return m_keys.encryptBlock(buffer, block, m_masterKey);
}

bool VaultSession::decryptBlock(QByteArray* buffer, const VaultFileBlock& block) const {
    return m_keys.decryptBlock(buffer, block, m_masterKey);
}

} // namespace Tessel::Core
