// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ByteCounts.h"
#include "core/CompactionFolder.h"
#include "core/ContainerReplacement.h"
#include "core/DiskSync.h"
#include "core/RegularFile.h"
#include "core/SetAsideContainer.h"
#include "core/VaultManager.h"

#include <QDir>
#include <QFile>

#include <numeric>

namespace Tessel::Core {

namespace {

qint64 sumOfSizes(const QList<VaultFileEntry>& entries) {
    return std::accumulate(entries.cbegin(), entries.cend(), qint64(0),
                           [](qint64 sum, const VaultFileEntry& entry) {
                               return addByteCounts(sum, entry.sizeBytes);
                           });
}

CopyProgress copyBackProgress(const VaultManager::Progress& progress) {
    return [&progress](qint64 done, qint64 total) {
        if (progress) {
            progress(done, total, QStringLiteral("Substituindo container no USB"));
        }
    };
}

} // namespace

bool VaultManager::compactVault(const Progress& progress, QString* error) {
    if (error) {
        error->clear();
    }
    if (!isUnlocked() || m_containerFilePath.isEmpty()) {
        return false;
    }
    ContainerDocument document;
    const QString path = withoutLinks(m_containerFilePath);
    QFile source(path);
    if (!refreshSession(&document) || !openRegularFile(source, QIODevice::ReadOnly)) {
        return false;
    }
    if (isUnderBothNames(path, document)) {
        return false;
    }
    removeLeftovers(document);
    CompactionFolder folder;
    if (!folder.isValid()) {
        return false;
    }
    prepareForIndexSave(&document);
    SecureFileIndex index;
    // The rebuilt container must be found again after a power cut: it, its folder's entry for it,
    // and the entry of that folder.
    const QString rebuiltPath = folder.containerPath();
    if (!writeRebuiltContainer(rebuiltPath, source, &document, &index, progress) ||
        !isRebuiltContainerWhole(rebuiltPath, index) || !syncFolderOf(folder.path())) {
        return false;
    }
    switch (replaceContainer(rebuiltPath, path, source, copyBackProgress(progress))) {
    case ReplacementResult::Done:
        setIndex(index, document);
        return true;
    case ReplacementResult::NothingDone:
        return false;
    case ReplacementResult::NoneLeft:
    case ReplacementResult::Unfinished:
        break;
    }
    folder.keep();
    if (error) {
        *error = QDir(rebuiltPath).absolutePath();
    }
    return false;
}

void VaultManager::removeLeftovers(const ContainerDocument& document) const {
    SecureFileIndex index;
    if (!decryptIndex(document, &index)) {
        return;
    }
    removeOrphan(m_containerFilePath, document, index);
    CompactionFolder::removeLeftovers([this, &document](const QString& path) {
        ContainerDocument leftover;
        return m_containerManager.readDocument(path, &leftover) &&
               keySlotOf(leftover) == keySlotOf(document);
    });
}

bool VaultManager::writeRebuiltContainer(const QString& rebuiltPath, QFile& source,
                                         ContainerDocument* document, SecureFileIndex* index,
                                         const Progress& progress) const {
    const QList<VaultDirectoryEntry> folders = m_index.directories();
    for (const VaultDirectoryEntry& folder : folders) {
        static_cast<void>(index->addDirectory(folder));
    }
    const auto writePayload = [&](QIODevice* device) {
        if (!copyLiveBlocks(source, device, index, progress)) {
            return false;
        }
        document->encryptedIndex = encryptIndex(*document, *index);
        return !document->encryptedIndex.isEmpty();
    };
    return m_containerManager.writeDocument(rebuiltPath, *document, writePayload);
}

bool VaultManager::copyLiveBlocks(QFile& source, QIODevice* device, SecureFileIndex* index,
                                  const Progress& progress) const {
    const QList<VaultFileEntry> entries = m_index.entries();
    const qint64 total = sumOfSizes(entries);
    QByteArray sealed;
    qint64 done = 0;
    for (const VaultFileEntry& entry : entries) {
        VaultFileEntry moved = entry;
        moved.blocks.clear();
        for (VaultFileBlock block : entry.blocks) {
            if (!readSealedBlock(source, block, &sealed)) {
                return false;
            }
            block.offset = device->pos();
            if (device->write(sealed) != sealed.size()) {
                return false;
            }
            moved.blocks.append(block);
            done = addByteCounts(done, block.plainSize);
            if (progress) {
                progress(done, total, entry.vaultPath);
            }
        }
        if (!index->addOrReplace(moved)) {
            return false;
        }
    }
    return true;
}

bool VaultManager::isRebuiltContainerWhole(const QString& rebuiltPath,
                                           const SecureFileIndex& expected) const {
    ContainerDocument document;
    SecureFileIndex found;
    return m_containerManager.readDocument(rebuiltPath, &document) &&
           decryptIndex(document, &found) && found.entries().size() == expected.entries().size() &&
           found.directories().size() == expected.directories().size();
}

} // namespace Tessel::Core
