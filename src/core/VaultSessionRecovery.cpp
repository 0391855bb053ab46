// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ByteCounts.h"
#include "core/CompactionFolder.h"
#include "core/DiskSync.h"
#include "core/SetAsideContainer.h"
#include "core/VaultSession.h"

#include <QFileInfo>

#include <algorithm>

namespace Tessel::Core {

namespace {

bool endsWithin(const VaultFileBlock& block, qint64 size) {
    return block.offset >= 0 && addByteCounts(block.offset, block.encryptedSize) <= size;
}

bool hasEveryBlock(const SecureFileIndex& index, qint64 size) {
    const QList<VaultFileEntry> entries = index.entries();
    return std::all_of(entries.cbegin(), entries.cend(), [size](const VaultFileEntry& entry) {
        return std::all_of(entry.blocks.cbegin(), entry.blocks.cend(),
                           [size](const VaultFileBlock& block) { return endsWithin(block, size); });
    });
}

// Compaction draws a new nonce. Where both names have the same one, a drive that was unplugged at
// the wrong moment may have the same clusters under both, as FAT does: removing one name would free
// what the other one needs.
bool isSameState(const ContainerDocument& a, const ContainerDocument& b) {
    return a.crypto.payloadNonce == b.crypto.payloadNonce;
}

} // namespace

bool VaultSession::headerOpens() const {
    ContainerDocument document;
    SecureFileIndex index;
    // A password change leaves the index as it was: a header that it tore could pass for whole,
    // and only the record holds the key slot that a password opens.
    return m_containerManager.readDocument(m_path, &document) && hasOurKeySlot(document) &&
           decryptIndex(document, &index);
}

bool VaultSession::recover() const {
    ContainerDocument recorded;
    if (!m_containerManager.readRedoRecord(m_path, &recorded)) {
        return true;
    }
    // Recover before appending: a record is only found at the end of the file. One that is not
    // needed would be taken for the newest if the next rewrite had no space for its own.
    const HeaderWriter writer(m_path);
    if (headerOpens()) {
        return writer.dropRecord();
    }
    SecureFileIndex index;
    return !m_keys.decryptRecordedIndex(&recorded, m_masterKey, &index) || writer.restore(recorded);
}

SecretBytes VaultSession::recover(const QString& path, const QByteArray& password,
                                  ContainerDocument* document) const {
    const HeaderWriter writer(path);
    ContainerDocument recorded;
    const bool hasRecord = m_containerManager.readRedoRecord(path, &recorded);
    if (m_containerManager.readDocument(path, document)) {
        if (!hasRecord) {
            return m_keys.decryptMasterKey(*document, password);
        }
        // A torn header may still give the master key, with half an index: sealing that one again
        // would lose the record that holds the whole index.
        const Opened header = openDocument(*document, password);
        if (header.isOpen()) {
            return writer.dropRecord() ? header.masterKey : SecretBytes();
        }
    }
    const Opened record = openRedoRecord(path, password);
    *document = record.document;
    return record.isOpen() && writer.restore(*document) ? record.masterKey : SecretBytes();
}

QString VaultSession::recoverSetAside(const QString& path, const QByteArray& password) const {
    removeUnfinished(path);
    if (!hasSetAsideContainer(path)) {
        return path;
    }
    const Opened header = openHeader(path, password);
    if (header.isOpen()) {
        removeSetAsideOf(path, header.document, header.index);
        return path;
    }
    ContainerDocument setAside;
    if (openRedoRecord(path, password).isOpen() || !isMissingOrReadable(path) ||
        !readSetAside(path, &setAside)) {
        return path;
    }
    const bool isAnotherVault =
        header.isFound && m_keys.keySlotOf(header.document) != m_keys.keySlotOf(setAside);
    if (isAnotherVault || !openDocument(setAside, password).isOpen()) {
        return path;
    }
    // On a drive that takes no writes the vault can still be read.
    return putBack(path) ? path : setAsidePath(path);
}

void VaultSession::removeSetAsideOf(const QString& path, const ContainerDocument& document,
                                    const SecureFileIndex& index) const {
    ContainerDocument setAside;
    // What is read here may be in the system's cache only, after a compaction that was killed.
    if (readSetAside(path, &setAside) && m_keys.keySlotOf(setAside) == m_keys.keySlotOf(document) &&
        !isSameState(setAside, document) && hasEveryBlock(index, QFileInfo(path).size()) &&
        syncAfterRename(withoutLinks(path))) {
        removeSetAside(path);
    }
}

bool VaultSession::isUnderBothNames(const ContainerDocument& document) const {
    ContainerDocument setAside;
    return readSetAside(m_path, &setAside) &&
           m_keys.keySlotOf(setAside) == m_keys.keySlotOf(document) &&
           isSameState(setAside, document);
}

void VaultSession::removeLeftovers(const ContainerDocument& document) const {
    SecureFileIndex index;
    if (!decryptIndex(document, &index)) {
        return;
    }
    removeSetAsideOf(m_path, document, index);
    CompactionFolder::removeLeftovers([this, &document](const QString& path) {
        ContainerDocument leftover;
        return m_containerManager.readDocument(path, &leftover) &&
               m_keys.keySlotOf(leftover) == m_keys.keySlotOf(document);
    });
}

} // namespace Tessel::Core
