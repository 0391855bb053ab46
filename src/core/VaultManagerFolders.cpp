// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "core/VaultPath.h"

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

// Where an item of the old folder lies once the folder has its new path.
QString carriedPath(const QString& path, const QString& oldDirectory, const QString& newDirectory) {
    return newDirectory + path.mid(oldDirectory.size());
}

} // namespace

bool VaultManager::isOpenForEditing(const QString& vaultPath) const {
    const QList<TrackedTempFile> tracked = m_fileSync.trackedFiles();
    return std::any_of(tracked.cbegin(), tracked.cend(), [&vaultPath](const TrackedTempFile& copy) {
        return sameVaultPath(copy.vaultPath, vaultPath);
    });
}

bool VaultManager::saveWithFileAt(ContainerDocument* document, const QString& oldPath,
                                  const QString& newPath) {
    SecureFileIndex working;
    const QList<VaultDirectoryEntry> folders = m_index.directories();
    for (const VaultDirectoryEntry& folder : folders) {
        if (!working.addDirectory(folder)) {
            return false;
        }
    }
    const QList<VaultFileEntry> entries = m_index.entries();
    bool moved = false;
    for (VaultFileEntry entry : entries) {
        // A foreign index may hold two paths that differ in letter case alone. Only the first is
        // the one that opens, and two files on one path would be one file less.
        if (!moved && sameVaultPath(entry.vaultPath, oldPath)) {
            entry.vaultPath = newPath;
            moved = true;
        }
        if (!working.addOrReplace(entry)) {
            return false;
        }
    }
    return saveSessionIndex(document, working);
}

bool VaultManager::moveFile(const QString& vaultPath, const QString& targetDirectory) {
    const QString path = normalizedVaultPath(vaultPath);
    const QString target = normalizedVaultPath(targetDirectory);
    ContainerDocument document;
    if (!isUnlocked() || path.isEmpty() || !refreshSession(&document) ||
        !indexContainsFilePath(m_index, path)) {
        return false;
    }
    if (!target.isEmpty() && !indexContainsDirectoryPath(m_index, target)) {
        return false;
    }
    const QString name = vaultBaseName(path);
    const QString newPath = target.isEmpty() ? name : target + QLatin1Char('/') + name;
    if (newPath.isEmpty() || sameVaultPath(newPath, path) || itemExists(m_index, newPath) ||
        isOpenForEditing(path)) {
        return false;
    }
    return saveWithFileAt(&document, path, newPath);
}

bool VaultManager::renameFile(const QString& vaultPath, const QString& newVaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    const QString newPath = normalizedVaultPath(newVaultPath);
    if (!isUnlocked() || path.isEmpty() || newPath.isEmpty() || sameVaultPath(path, newPath)) {
        return false;
    }
    ContainerDocument document;
    if (!refreshSession(&document) || !indexContainsFilePath(m_index, path) ||
        itemExists(m_index, newPath) || isOpenForEditing(path)) {
        return false;
    }
    return saveWithFileAt(&document, path, newPath);
}

bool VaultManager::deleteFile(const QString& vaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    ContainerDocument document;
    if (!isUnlocked() || path.isEmpty() || !refreshSession(&document)) {
        return false;
    }
    // The entry may spell the path in other letter case.
    const std::optional<VaultFileEntry> stored = findFile(m_index, path);
    SecureFileIndex working = m_index;
    return stored && working.remove(stored->vaultPath) &&
           saveSessionIndex(&document, working, WithoutRecord::Rewrite);
}

bool VaultManager::createDirectory(const QString& path) {
    const QString newPath = normalizedVaultPath(path);
    ContainerDocument document;
    if (!isUnlocked() || newPath.isEmpty() || !ancestorsFitIntoAnIndex(newPath) ||
        !refreshSession(&document) || itemExists(m_index, newPath)) {
        return false;
    }
    SecureFileIndex working = m_index;
    ensureParentDirectories(&working, newPath);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    return working.addDirectory({newPath, now, now}) && saveSessionIndex(&document, working);
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
    if (!refreshSession(&document) || !indexContainsDirectoryPath(m_index, oldDirectory) ||
        itemExists(m_index, newDirectory) || !ancestorsFitIntoAnIndex(newDirectory) ||
        hasOpenCopyIn(oldDirectory)) {
        return false;
    }
    SecureFileIndex working;
    return fillWithRenamedDirectory(&working, oldDirectory, newDirectory) &&
           saveSessionIndex(&document, working);
}

bool VaultManager::hasOpenCopyIn(const QString& directory) const {
    const QList<TrackedTempFile> tracked = m_fileSync.trackedFiles();
    return std::any_of(tracked.cbegin(), tracked.cend(), [&directory](const TrackedTempFile& copy) {
        return sameVaultPath(copy.vaultPath, directory) ||
               pathIsInsideDirectory(copy.vaultPath, directory);
    });
}

bool VaultManager::fillWithRenamedDirectory(SecureFileIndex* working, const QString& oldDirectory,
                                            const QString& newDirectory) const {
    ensureParentDirectories(working, newDirectory);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const QList<VaultDirectoryEntry> folders = m_index.directories();
    for (VaultDirectoryEntry folder : folders) {
        if (sameVaultPath(folder.path, oldDirectory) ||
            pathIsInsideDirectory(folder.path, oldDirectory)) {
            folder.path = carriedPath(folder.path, oldDirectory, newDirectory);
            folder.modifiedUtc = now;
        }
        if (!working->addDirectory(folder)) {
            return false;
        }
    }
    const QList<VaultFileEntry> entries = m_index.entries();
    for (VaultFileEntry entry : entries) {
        if (pathIsInsideDirectory(entry.vaultPath, oldDirectory)) {
            entry.vaultPath = carriedPath(entry.vaultPath, oldDirectory, newDirectory);
        }
        if (!working->addOrReplace(entry)) {
            return false;
        }
    }
    return true;
}

bool VaultManager::deleteDirectory(const QString& path) {
    const QString directory = normalizedVaultPath(path);
    ContainerDocument document;
    if (!isUnlocked() || directory.isEmpty() || !refreshSession(&document)) {
        return false;
    }
    const std::optional<VaultDirectoryEntry> stored = findDirectory(m_index, directory);
    if (!stored || hasContents(m_index, directory)) {
        return false;
    }
    SecureFileIndex working = m_index;
    return working.removeDirectory(stored->path) &&
           saveSessionIndex(&document, working, WithoutRecord::Rewrite);
}

} // namespace Tessel::Core
