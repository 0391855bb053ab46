// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ByteCounts.h"
#include "core/CompactionFolder.h"
#include "core/ContainerReplacement.h"
#include "core/DiskSync.h"
#include "core/RegularFile.h"
#include "core/SealedBlock.h"
#include "core/SetAsideContainer.h"
#include "core/VaultManager.h"
#include "core/VaultSession.h"

#include <QDir>
#include <QFile>

#include <numeric>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

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
            progress(done, total, u"Substituindo container no USB"_s);
        }
    };
}

// Copies the sealed blocks that the index refers to; @p moved receives the files with their new
// offsets.
bool copyLiveBlocks(const SecureFileIndex& index, QFile& source, QIODevice* device,
                    SecureFileIndex* moved, const VaultManager::Progress& progress) {
    const QList<VaultFileEntry> entries = index.entries();
    const qint64 total = sumOfSizes(entries);
    QByteArray sealed;
    qint64 done = 0;
    for (VaultFileEntry entry : entries) {
        for (VaultFileBlock& block : entry.blocks) {
            if (!readSealedBlock(source, block, &sealed)) {
                return false;
            }
            block.offset = device->pos();
            if (device->write(sealed) != sealed.size()) {
                return false;
            }
            done = addByteCounts(done, block.plainSize);
            if (progress) {
                progress(done, total, entry.vaultPath);
            }
        }
        if (!moved->addOrReplace(entry)) {
            return false;
        }
    }
    return true;
}

// Writes the container without the blocks that nothing refers to; @p moved receives its index,
// which goes into @p document.
bool writeRebuiltContainer(const VaultSession& session, const QString& rebuiltPath,
                           const SecureFileIndex& index, QFile& source, ContainerDocument* document,
                           SecureFileIndex* moved, const VaultManager::Progress& progress) {
    const QList<VaultDirectoryEntry> folders = index.directories();
    for (const VaultDirectoryEntry& folder : folders) {
        static_cast<void>(moved->addDirectory(folder));
    }
    const auto writePayload = [&](QIODevice* device) {
        return copyLiveBlocks(index, source, device, moved, progress) &&
               session.encryptIndex(document, *moved);
    };
    return ContainerManager().writeDocument(rebuiltPath, *document, writePayload);
}

bool isRebuiltContainerWhole(const VaultSession& session, const QString& rebuiltPath,
                             const SecureFileIndex& expected) {
    ContainerDocument document;
    SecureFileIndex found;
    return ContainerManager().readDocument(rebuiltPath, &document) &&
           session.decryptIndex(document, &found) &&
           found.entries().size() == expected.entries().size() &&
           found.directories().size() == expected.directories().size();
}

} // namespace

bool VaultManager::compactVault(const Progress& progress, QString* error) {
    if (error) {
        error->clear();
    }
    if (!isUnlocked() || m_session->path().isEmpty()) {
        return false;
    }
    ContainerDocument document;
    const QString path = withoutLinks(m_session->path());
    QFile source(path);
    if (!m_session->readWithSealedIndex(&document, &m_index) ||
        !openRegularFile(source, QIODevice::ReadOnly) || m_session->isUnderBothNames(document)) {
        return false;
    }
    m_session->removeLeftovers(document);
    CompactionFolder folder;
    if (!folder.isValid()) {
        return false;
    }
    m_session->prepareForSave(&document);
    SecureFileIndex index;
    // The rebuilt container must be there after a power cut, so its folder's own entry is synced
    // as well.
    const QString rebuiltPath = folder.containerPath();
    if (!writeRebuiltContainer(*m_session, rebuiltPath, m_index, source, &document, &index,
                               progress) ||
        !isRebuiltContainerWhole(*m_session, rebuiltPath, index) || !syncFolderOf(folder.path())) {
        return false;
    }
    switch (replaceContainer(rebuiltPath, path, source, copyBackProgress(progress))) {
    case ReplacementResult::Done:
        m_session->setHeader(document);
        m_index = index;
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

} // namespace Tessel::Core
