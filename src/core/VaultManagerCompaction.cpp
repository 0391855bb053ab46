// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerCopy.h"
#include "core/DiskSync.h"
#include "core/RegularFile.h"
#include "core/VaultManager.h"

#include <QDir>
#include <QFile>
#include <QScopeGuard>
#include <QTemporaryDir>

#include <numeric>

namespace Tessel::Core {

namespace {

// Sizes of a damaged index may add up to anything. They only feed the progress: one that makes a
// sum that no number holds is left out.
qint64 addedSize(qint64 sum, qint64 size) {
    qint64 result = 0;
    return qAddOverflow(sum, size, &result) ? sum : result;
}

qint64 sumOfSizes(const QList<VaultFileEntry>& entries) {
    return std::accumulate(
        entries.cbegin(), entries.cend(), qint64(0),
        [](qint64 sum, const VaultFileEntry& entry) { return addedSize(sum, entry.sizeBytes); });
}

// Copies the rebuilt container to the drive.
bool copyBack(QFile& rebuilt, QFile& target, const VaultManager::Progress& progress) {
    const QString label = QStringLiteral("Substituindo container no USB");
    return copyContainer(rebuilt, target, [&progress, &label](qint64 done, qint64 total) {
        if (progress) {
            progress(done, total, label);
        }
    });
}

// Puts the rebuilt container where the deleted one was. A copy that fails is removed again.
bool replaceContainer(const QString& rebuiltPath, const QString& containerPath,
                      const VaultManager::Progress& progress) {
    QFile rebuilt(rebuiltPath);
    QFile target(containerPath);
    if (!rebuilt.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return false;
    }
    if (copyBack(rebuilt, target, progress) && syncFolderOf(containerPath)) {
        return true;
    }
    target.close();
    target.remove();
    return false;
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
    QFile source(m_containerFilePath);
    if (!refreshSession(&document) || !openRegularFile(source, QIODevice::ReadOnly)) {
        return false;
    }
    QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/Tessel-compact-XXXXXX"));
    if (!folder.isValid()) {
        return false;
    }
    folder.setAutoRemove(false);
    auto removeFolder = qScopeGuard([&folder] { folder.remove(); });
    const QString rebuiltPath = folder.filePath(QStringLiteral("tessel.tvlt"));
    prepareForIndexSave(&document);

    SecureFileIndex index;
    if (!writeRebuiltContainer(rebuiltPath, source, &document, &index, progress)) {
        return false;
    }
    source.close();
    // The rebuilt container must be found again after a power cut: it, its folder's entry for it,
    // and the entry of that folder.
    if (!isRebuiltContainerWhole(rebuiltPath, index) || !syncFolderOf(folder.path()) ||
        !QFile::remove(m_containerFilePath)) {
        return false;
    }
    // From here on the rebuilt container is the vault, until its copy is on the drive.
    if (!replaceContainer(rebuiltPath, m_containerFilePath, progress)) {
        removeFolder.dismiss();
        if (error) {
            *error = QDir(rebuiltPath).absolutePath();
        }
        return false;
    }
    setIndex(index, document);
    return true;
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
            done = addedSize(done, block.plainSize);
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
