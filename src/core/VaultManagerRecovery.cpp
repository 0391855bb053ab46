// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ByteCounts.h"
#include "core/DiskSync.h"
#include "core/SetAsideContainer.h"
#include "core/VaultManager.h"

#include <QFileInfo>
#include <QScopeGuard>

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

// A compaction draws a fresh nonce. Where there is the same one under both names, a drive that was
// pulled at the wrong moment may lead to the same bytes under both, as FAT does: to remove one of
// them would free what the other one needs.
bool isSameState(const ContainerDocument& a, const ContainerDocument& b) {
    return a.crypto.payloadNonce == b.crypto.payloadNonce;
}

} // namespace

bool VaultManager::isUnderBothNames(const QString& path, const ContainerDocument& document) const {
    ContainerDocument setAside;
    return readSetAside(path, &setAside) && keySlotOf(setAside) == keySlotOf(document) &&
           isSameState(setAside, document);
}

QString VaultManager::recoverSetAside(const QString& path, const QByteArray& password) {
    removeUnfinished(path);
    if (!hasSetAsideContainer(path)) {
        return path;
    }
    const auto dropKey = qScopeGuard([this] { m_masterKey.clear(); });
    ContainerDocument document;
    ContainerDocument setAside;
    SecureFileIndex index;
    const bool hasHeader = m_containerManager.readDocument(path, &document);
    if (hasHeader && openDocument(document, password, &index)) {
        removeOrphan(path, document, index);
        return path;
    }
    ContainerDocument recorded;
    if (openRedoRecord(path, password, &recorded, &index) || !isMissingOrReadable(path) ||
        !readSetAside(path, &setAside)) {
        return path;
    }
    const bool isAnotherVault = hasHeader && keySlotOf(document) != keySlotOf(setAside);
    if (isAnotherVault || !openDocument(setAside, password, &index)) {
        return path;
    }
    // On a drive that takes no writes the vault can still be read.
    return putBack(path) ? path : setAsidePath(path);
}

void VaultManager::removeOrphan(const QString& path, const ContainerDocument& document,
                                const SecureFileIndex& index) const {
    ContainerDocument setAside;
    // What is read here may be in the system's cache only, after a compaction that was killed.
    if (readSetAside(path, &setAside) && keySlotOf(setAside) == keySlotOf(document) &&
        !isSameState(setAside, document) && hasEveryBlock(index, QFileInfo(path).size()) &&
        syncAfterRename(withoutLinks(path))) {
        removeSetAside(path);
    }
}

} // namespace Tessel::Core
