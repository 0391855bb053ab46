// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/DiskSync.h"
#include "core/FileDigest.h"
#include "core/RedoRecord.h"
#include "core/RegularFile.h"
#include "core/SameFile.h"
#include "core/VaultManager.h"
#include "core/VaultPath.h"

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

constexpr qint64 DigestBytes = qint64{256} * 1024;
constexpr qint64 LargestSealedBlock = VaultManager::ChunkBytes + CryptoManager::TagBytes;

VaultFileEntry newEntryFor(const QFileInfo& source, const QString& vaultPath) {
    VaultFileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = vaultPath;
    entry.sizeBytes = source.size();
    entry.lastModifiedUtc = source.lastModified().toUTC();
    return entry;
}

// Reads the next chunk of the source into the buffer, and digests it piece by piece while the bytes
// are still in the processor's cache. Only a read that gives nothing is the end: the size is what
// the source says, and some say 0. The chunk is empty at the end.
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

// Opens an ordinary file for writing, created or emptied, and nothing else: a pipe would keep the
// caller waiting for a reader, and a device is no place for a file.
bool openOrdinaryFile(const QString& path, QFile* file) {
    const QByteArray name = QFile::encodeName(path);
    const int descriptor = ::open(
        name.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, S_IRUSR | S_IWUSR);
    struct stat status {};
    if (descriptor < 0 || ::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        !file->open(descriptor, QIODevice::WriteOnly | QIODevice::Unbuffered,
                    QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return false;
    }
    return true;
}

// Cuts the container back to its former length. A redo record at its end was left by a header that
// could not be put back: the drive may hold the new one, and the blocks that it names must stay.
void truncateContainer(QFile& container, qint64 size) {
    if (container.size() > size && !findRedoRecord(container) && container.resize(size)) {
        static_cast<void>(syncToDrive(container));
    }
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
    // A container that swallows itself would grow for as long as it is read.
    if (!sourceInfo.isFile() || isSameFile(sourcePath, m_containerFilePath)) {
        return false;
    }
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    ContainerDocument document;
    if (!refreshSession(&document)) {
        return false;
    }
    SecureFileIndex working = indexWithout(path);
    VaultFileEntry entry = newEntryFor(sourceInfo, path);
    renewPayloadNonce(&document);

    QFile container(m_containerFilePath);
    if (!openRegularFile(container, QIODevice::ReadWrite)) {
        return false;
    }
    const qint64 formerSize = container.size();
    auto rollback =
        qScopeGuard([&container, formerSize] { truncateContainer(container, formerSize); });
    if (!container.seek(formerSize) ||
        !appendBlocks(source, container, document, &entry, progress) || !container.flush()) {
        return false;
    }
    // The header's rewrite waits until the blocks are on the drive. The container stays open for
    // so long: the kernel may forget that a block was lost once nobody has the file open.
    if (!working.addOrReplace(entry) || !sealIndexIntoHeader(&document, working)) {
        return false;
    }
    rollback.dismiss();
    return true;
}

SecureFileIndex VaultManager::indexWithout(const QString& path) const {
    SecureFileIndex working;
    const QList<VaultDirectoryEntry> folders = m_index.directories();
    for (const VaultDirectoryEntry& folder : folders) {
        static_cast<void>(working.addDirectory(folder));
    }
    ensureParentDirectories(&working, path);
    const QList<VaultFileEntry> entries = m_index.entries();
    for (const VaultFileEntry& entry : entries) {
        if (!sameVaultPath(entry.vaultPath, path)) {
            static_cast<void>(working.addOrReplace(entry));
        }
    }
    return working;
}

bool VaultManager::appendBlocks(QFile& source, QFile& container, const ContainerDocument& document,
                                VaultFileEntry* entry, const Progress& progress) const {
    const QByteArray key = workingKey();
    const QByteArray blockData = blockAssociatedData(document);
    const int nonceBytes = static_cast<int>(document.crypto.nonce.size());
    const qint64 total = entry->sizeBytes;
    FileDigest digest;
    QByteArray buffer;
    buffer.reserve(std::min(total, ChunkBytes - DigestBytes) + DigestBytes +
                   CryptoManager::TagBytes);
    qint64 done = 0;
    for (;;) {
        VaultFileBlock block;
        block.nonce = m_cryptoManager.generateNonce(nonceBytes);
        block.offset = container.pos();
        if (!readChunk(source, &buffer, &digest)) {
            return false;
        }
        if (buffer.isEmpty()) {
            break;
        }
        block.plainSize = buffer.size();
        if (!m_cryptoManager.encryptInPlace(&buffer, key, block.nonce, blockData) ||
            container.write(buffer) != buffer.size() ||
            !startWriteBack(container, block.offset, buffer.size())) {
            return false;
        }
        block.encryptedSize = buffer.size();
        entry->blocks.append(block);
        done += block.plainSize;
        if (progress) {
            progress(done, total, entry->vaultPath);
        }
    }
    entry->sha256 = digest.result();
    // A source that says it is empty has not told its size.
    entry->sizeBytes = total > 0 ? total : done;
    // A file that became shorter than it was is not the file that was to be stored.
    return done >= total && !entry->sha256.isEmpty();
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
    Written result = writeBlocks(*entry, device, &next);
    if (result == Written::UnreadableBlock) {
        // Another session may have compacted the vault. What is already written can only be
        // followed by blocks of the same stored copy.
        const std::optional<VaultFileEntry> moved = entryOnDrive(vaultPath);
        if (moved && (next == 0 || moved->id == entry->id)) {
            result = writeBlocks(*moved, device, &next);
        }
    }
    return result == Written::All;
}

VaultManager::Written VaultManager::writeBlocks(const VaultFileEntry& entry, QIODevice* device,
                                                qsizetype* next) const {
    QFile container(m_containerFilePath);
    if (!openRegularFile(container, QIODevice::ReadOnly)) {
        return Written::UnreadableBlock;
    }
    const QByteArray key = workingKey();
    // A fresh document: a block is bound to the format, not to the container that holds it.
    const QByteArray blockData = blockAssociatedData(ContainerDocument());
    QByteArray buffer;
    for (; *next < entry.blocks.size(); ++*next) {
        const VaultFileBlock& block = entry.blocks.at(*next);
        if (!readSealedBlock(container, block, &buffer) ||
            !m_cryptoManager.decryptInPlace(&buffer, key, block.nonce, blockData) ||
            buffer.size() != block.plainSize) {
            return Written::UnreadableBlock;
        }
        if (device->write(buffer) != buffer.size()) {
            return Written::DeviceFailed;
        }
    }
    return Written::All;
}

std::optional<VaultFileEntry> VaultManager::entryOnDrive(const QString& path) const {
    ContainerDocument document;
    SecureFileIndex index;
    if (!m_containerManager.readDocument(m_containerFilePath, &document) ||
        holdsIndexInMemory(document) || !decryptIndex(document, &index)) {
        return std::nullopt;
    }
    return findFile(index, path);
}

bool VaultManager::readSealedBlock(QFile& container, const VaultFileBlock& block,
                                   QByteArray* sealed) {
    // The sizes come from the index; none of ours is larger, and none is worth the memory.
    if (block.offset < 0 || block.encryptedSize <= CryptoManager::TagBytes ||
        block.encryptedSize > LargestSealedBlock ||
        block.encryptedSize > container.size() - block.offset || !container.seek(block.offset)) {
        return false;
    }
    sealed->resize(block.encryptedSize);
    return container.read(sealed->data(), sealed->size()) == sealed->size();
}

bool VaultManager::exportFile(const QString& vaultPath, const QString& destinationPath) const {
    const QString path = normalizedVaultPath(vaultPath);
    // Opening the container for writing would empty it.
    if (!isUnlocked() || path.isEmpty() || destinationPath.contains(QChar::Null) ||
        isSameFile(destinationPath, m_containerFilePath)) {
        return false;
    }
    QFile destination;
    return openOrdinaryFile(destinationPath, &destination) &&
           writeVaultFileToDevice(path, &destination) && syncToDrive(destination) &&
           syncFolderOf(destinationPath);
}

} // namespace Tessel::Core
