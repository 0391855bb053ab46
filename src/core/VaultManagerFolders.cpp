// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "core/VaultSession.h"

#include <algorithm>
#include <optional>

namespace Tessel::Core {

namespace {

bool itemExists(const SecureFileIndex& index, const QString& path) {
    return indexContainsFilePath(index, path) || indexContainsDirectoryPath(index, path);
}

bool hasContents(const SecureFileIndex& index, const QString& directory) {
    const QList<VaultDirectoryEntry> folders = index.directories();
    const QList<VaultFileEntry> entries = index.entries();
    return std::any_of(folders.cbegin(), folders.cend(),
                       [&directory](const VaultDirectoryEntry& folder) {
                           return pathIsInsideDirectory(folder.path, directory);
                       }) ||
           std::any_of(entries.cbegin(), entries.cend(), [&directory](const VaultFileEntry& entry) {
               return pathIsInsideDirectory(entry.vaultPath, directory);
           });
}

// The path of an item of the old folder once the folder has its new path.
QString carriedPath(const QString& path, const QString& oldDirectory, const QString& newDirectory) {
    return newDirectory + path.mid(oldDirectory.size());
}

bool isOpen(const FileSyncManager& copies, const QString& vaultPath) {
    const QList<TrackedTempFile> tracked = copies.trackedFiles();
    return std::any_of(tracked.cbegin(), tracked.cend(), [&vaultPath](const TrackedTempFile& copy) {
        return sameVaultPath(copy.vaultPath, vaultPath);
    });
}

bool hasOpenCopyIn(const FileSyncManager& copies, const QString& directory) {
    const QList<TrackedTempFile> tracked = copies.trackedFiles();
    return std::any_of(tracked.cbegin(), tracked.cend(), [&directory](const TrackedTempFile& copy) {
        return sameVaultPath(copy.vaultPath, directory) ||
               pathIsInsideDirectory(copy.vaultPath, directory);
    });
}

// A foreign index may hold two paths that differ in letter case alone: the first one opens, and it
// alone gets the new path.
bool renameFirstFile(SecureFileIndex* index, const QString& path, const QString& newPath) {
    const std::optional<VaultFileEntry> stored = findFile(*index, path);
    return stored && index->renameFile(stored->vaultPath, newPath);
}

// The index with a folder, and all that is in it, at a new path.
SecureFileIndex withDirectoryAt(const SecureFileIndex& index, const QString& oldDirectory,
                                const QString& newDirectory) {
    SecureFileIndex working = index;
    working.clearDirectories();
    ensureParentDirectories(&working, newDirectory);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QList<VaultDirectoryEntry> folders = index.directories();
    for (VaultDirectoryEntry folder : folders) {
        if (sameVaultPath(folder.path, oldDirectory) ||
            pathIsInsideDirectory(folder.path, oldDirectory)) {
            folder.path = carriedPath(folder.path, oldDirectory, newDirectory);
            folder.modifiedUtc = now;
        }
        static_cast<void>(working.addDirectory(folder));
    }
    working.renameFiles([&](const QString& path) {
        return pathIsInsideDirectory(path, oldDirectory)
                   ? carriedPath(path, oldDirectory, newDirectory)
                   : path;
    });
    return working;
}

} // namespace

bool VaultManager::moveFile(const QString& vaultPath, const QString& targetDirectory) {
    const QString path = normalizedVaultPath(vaultPath);
    const QString target = normalizedVaultPath(targetDirectory);
    ContainerDocument document;
    if (!isUnlocked() || path.isEmpty() || !beginChange(&document) ||
        !indexContainsFilePath(m_index, path)) {
        return false;
    }
    if (!target.isEmpty() && !indexContainsDirectoryPath(m_index, target)) {
        return false;
    }
    const QString name = vaultBaseName(path);
    const QString newPath = target.isEmpty() ? name : target + u'/' + name;
    if (newPath.isEmpty() || sameVaultPath(newPath, path) || itemExists(m_index, newPath) ||
        isOpen(m_fileSync, path)) {
        return false;
    }
    SecureFileIndex working = m_index;
    return renameFirstFile(&working, path, newPath) &&
           save(&document, working, WithoutRecord::Refuse);
}

bool VaultManager::renameFile(const QString& vaultPath, const QString& newVaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    const QString newPath = normalizedVaultPath(newVaultPath);
    if (!isUnlocked() || path.isEmpty() || newPath.isEmpty() || sameVaultPath(path, newPath)) {
        return false;
    }
    ContainerDocument document;
    if (!beginChange(&document) || !indexContainsFilePath(m_index, path) ||
        itemExists(m_index, newPath) || isOpen(m_fileSync, path)) {
        return false;
    }
    SecureFileIndex working = m_index;
    return renameFirstFile(&working, path, newPath) &&
           save(&document, working, WithoutRecord::Refuse);
}

bool VaultManager::deleteFile(const QString& vaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    ContainerDocument document;
    if (!isUnlocked() || path.isEmpty() || !beginChange(&document)) {
        return false;
    }
    // The entry may spell the path in other letter case.
    const std::optional<VaultFileEntry> stored = findFile(m_index, path);
    SecureFileIndex working = m_index;
    return stored && working.remove(stored->vaultPath) &&
           save(&document, working, WithoutRecord::Rewrite);
}

bool VaultManager::createDirectory(const QString& path) {
    const QString newPath = normalizedVaultPath(path);
    ContainerDocument document;
    if (!isUnlocked() || newPath.isEmpty() || !ancestorsFitIntoAnIndex(newPath) ||
        !beginChange(&document) || itemExists(m_index, newPath)) {
        return false;
    }
    SecureFileIndex working = m_index;
    ensureParentDirectories(&working, newPath);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return working.addDirectory({newPath, now, now}) &&
           save(&document, working, WithoutRecord::Refuse);
}

bool VaultManager::renameDirectory(const QString& path, const QString& newPath) {
    const QString oldDirectory = normalizedVaultPath(path);
    const QString newDirectory = normalizedVaultPath(newPath);
    if (!isUnlocked() || oldDirectory.isEmpty() || newDirectory.isEmpty() ||
        sameVaultPath(oldDirectory, newDirectory) ||
        pathIsInsideDirectory(newDirectory, oldDirectory)) {
        return false;
    }
    ContainerDocument document;
    if (!beginChange(&document) || !indexContainsDirectoryPath(m_index, oldDirectory) ||
        itemExists(m_index, newDirectory) || !ancestorsFitIntoAnIndex(newDirectory) ||
        hasOpenCopyIn(m_fileSync, oldDirectory)) {
        return false;
    }
    return save(&document, withDirectoryAt(m_index, oldDirectory, newDirectory),
                WithoutRecord::Refuse);
}

bool VaultManager::deleteDirectory(const QString& path) {
    const QString directory = normalizedVaultPath(path);
    ContainerDocument document;
    if (!isUnlocked() || directory.isEmpty() || !beginChange(&document)) {
        return false;
    }
    const std::optional<VaultDirectoryEntry> stored = findDirectory(m_index, directory);
    if (!stored || hasContents(m_index, directory)) {
        return false;
    }
    SecureFileIndex working = m_index;
    return working.removeDirectory(stored->path) &&
           save(&document, working, WithoutRecord::Rewrite);
}

} // namespace Tessel::Core
