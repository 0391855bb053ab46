// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/DiskSync.h"
#include "core/FileDigest.h"
#include "core/RedoRecord.h"
#include "core/RegularFile.h"
#include "core/SameFile.h"
#include "core/SealedBlock.h"
#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "core/VaultSession.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QUuid>

#include <algorithm>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

static_assert(VaultManager::ChunkBytes == LargestPlainBlock);
constexpr qint64 DigestBytes = qint64{256} * 1024;

VaultFileEntry newEntryFor(const QFileInfo& source, const QString& vaultPath) {
    VaultFileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = vaultPath;
    entry.sizeBytes = source.size();
    entry.lastModifiedUtc = source.lastModified().toUTC();
    return entry;
}

// Reads the next chunk of the source, and digests it in pieces while the bytes are still in the
// processor's cache. Only an empty read is the end, since some sources report a size of 0. The
// chunk is empty at the end.
bool readChunk(QFile& source, QByteArray* chunk, FileDigest* digest) {
    qint64 size = 0;
    for (qint64 got = 1; got > 0 && size < VaultManager::ChunkBytes; size += got) {
        const qint64 piece = std::min(VaultManager::ChunkBytes - size, DigestBytes);
        chunk->resize(size + piece);
        got = source.read(chunk->data() + size, piece);
        if (got < 0 || !digest->addData(QByteArrayView(chunk->constData() + size, got))) {
            return false;
        }
    }
    chunk->resize(size);
    return true;
}

// Opens a regular file for writing, created or emptied. Anything else is refused: a pipe would keep
// the caller waiting for a reader, and a device keeps no file.
bool createRegularFile(const QString& path, QFile* file) {
    const QByteArray name = QFile::encodeName(path);
    const int descriptor = ::open(
        name.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR);
    struct stat status = {};
    if (descriptor < 0 || ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        !file->open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                    QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return false;
    }
    return true;
}

// Cuts the container back to its former length. A redo record at its end means that the old header
// could not be put back: the drive may hold the new one, and its blocks must stay.
void truncateContainer(QFile& container, qint64 size) {
    if (container.size() > size && !findRedoRecord(container) && container.resize(size)) {
        static_cast<void>(syncToDrive(container));
    }
}

// The index without the file of this path, but with the folders above it.
SecureFileIndex indexWithout(const SecureFileIndex& index, const QString& path) {
    SecureFileIndex working = index;
    ensureParentDirectories(&working, path);
    // A foreign index may hold several paths that differ in letter case alone.
    while (const std::optional<VaultFileEntry> former = findFile(working, path)) {
        static_cast<void>(working.remove(former->vaultPath));
    }
    return working;
}

// Seals the source chunk by chunk at the container's position; fills in blocks, digest and size.
bool appendBlocks(const VaultSession& session, QFile& source, QFile& container,
                  VaultFileEntry* entry, const VaultManager::Progress& progress) {
    const qint64 total = entry->sizeBytes;
    FileDigest digest;
    QByteArray buffer;
    buffer.reserve(std::min(total, VaultManager::ChunkBytes - DigestBytes) + DigestBytes +
                   CryptoManager::TagBytes);
    qint64 done = 0;
    for (;;) {
        VaultFileBlock block;
        block.offset = container.pos();
        if (!readChunk(source, &buffer, &digest)) {
            return false;
        }
        if (buffer.isEmpty()) {
            break;
        }
        if (!session.encryptBlock(&buffer, &block) || container.write(buffer) != buffer.size() ||
            !startWriteBack(container, block.offset, buffer.size())) {
            return false;
        }
        entry->blocks.append(block);
        done += block.plainSize;
        if (progress) {
            progress(done, total, entry->vaultPath);
        }
    }
    entry->sha256 = digest.result();
    // A source that reports a size of 0 has not told its size.
    entry->sizeBytes = total > 0 ? total : done;
    // A file that became shorter than it was is not the file that was to be stored.
    return done >= total && !entry->sha256.isEmpty();
}

// How far the content of a file has come on its way out.
enum class Written { All, UnreadableBlock, DeviceFailed };

// Writes the blocks from number @p *next on, and counts them there.
Written writeBlocks(const VaultSession& session, const VaultFileEntry& entry, QIODevice* device,
                    qsizetype* next) {
    QFile container(session.path());
    if (!openRegularFile(container, QIODevice::ReadOnly)) {
        return Written::UnreadableBlock;
    }
    QByteArray buffer;
    for (; *next < entry.blocks.size(); ++*next) {
        const VaultFileBlock& block = entry.blocks.at(*next);
        if (!readSealedBlock(container, block, &buffer) || !session.decryptBlock(&buffer, block)) {
            return Written::UnreadableBlock;
        }
        if (device->write(buffer) != buffer.size()) {
            return Written::DeviceFailed;
        }
    }
    return Written::All;
}

} // namespace

bool VaultManager::importFile(const QString& sourcePath, const QString& vaultPath) {
    return importFile(sourcePath, vaultPath, {});
}

bool VaultManager::importFile(const QString& sourcePath, const QString& vaultPath,
                              const Progress& progress) {
    const QString path = normalizedVaultPath(vaultPath);
    if (!isUnlocked() || path.isEmpty() || !ancestorsFitIntoAnIndex(path)) {
        return false;
    }
    const QFileInfo sourceInfo(sourcePath);
    // A container imported into itself would grow as long as it is read.
    if (!sourceInfo.isFile() || isSameFile(sourcePath, m_session->path())) {
        return false;
    }
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    ContainerDocument document;
    if (!beginChange(&document)) {
        return false;
    }
    SecureFileIndex working = indexWithout(m_index, path);
    VaultFileEntry entry = newEntryFor(sourceInfo, path);
    m_session->renewNonce(&document);

    QFile container(m_session->path());
    if (!openRegularFile(container, QIODevice::ReadWrite)) {
        return false;
    }
    const qint64 formerSize = container.size();
    auto rollback =
        qScopeGuard([&container, formerSize] { truncateContainer(container, formerSize); });
    if (!container.seek(formerSize) ||
        !appendBlocks(*m_session, source, container, &entry, progress) || !container.flush()) {
        return false;
    }
    // The header's rewrite waits until the blocks are on the drive. The container stays open until
    // then: the kernel may forget that a block was lost once no one has the file open.
    if (!working.addOrReplace(entry) || !m_session->save(&document, working)) {
        return false;
    }
    rollback.dismiss();
    m_index = working;
    return true;
}

bool VaultManager::writeVaultFileToDevice(const QString& vaultPath, QIODevice* device) const {
    if (!device || !isUnlocked()) {
        return false;
    }
    const std::optional<VaultFileEntry> entry = findFile(m_index, vaultPath);
    if (!entry) {
        return false;
    }
    qsizetype next = 0;
    Written result = writeBlocks(*m_session, *entry, device, &next);
    if (result == Written::UnreadableBlock) {
        // Another session may have compacted the vault. What is already written can only be
        // followed by blocks of the same stored copy.
        const std::optional<VaultFileEntry> moved = fileOnDrive(vaultPath);
        if (moved && (next == 0 || moved->id == entry->id)) {
            result = writeBlocks(*m_session, *moved, device, &next);
        }
    }
    return result == Written::All;
}

std::optional<VaultFileEntry> VaultManager::fileOnDrive(const QString& path) const {
    SecureFileIndex index;
    return m_session->readChangedIndex(&index) ? findFile(index, path) : std::nullopt;
}

bool VaultManager::exportFile(const QString& vaultPath, const QString& destinationPath) const {
    const QString path = normalizedVaultPath(vaultPath);
    // Opening the container for writing would empty it.
    if (!isUnlocked() || path.isEmpty() || destinationPath.contains(QChar::Null) ||
        isSameFile(destinationPath, m_session->path())) {
        return false;
    }
    QFile destination;
    return createRegularFile(destinationPath, &destination) &&
           writeVaultFileToDevice(path, &destination) && syncToDrive(destination) &&
           syncFolderOf(destinationPath);
}

} // namespace Tessel::Core
