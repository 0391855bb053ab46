// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultManager.h"
#include "core/VaultPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace Tessel::Core {

namespace {

// Whether the local disk can tell this path from every other. Half a surrogate pair is stored as a
// replacement character, and a zero ends a name early: two vault files would share one copy, and
// each would take over the other's content.
bool isNameOnDisk(const QString& path) {
    return !path.contains(QChar::Null) && QFile::decodeName(QFile::encodeName(path)) == path;
}

} // namespace

QList<TrackedTempFile> VaultManager::modifiedOpenFiles() const {
    return m_fileSync.modifiedFiles();
}

bool VaultManager::prepareFileForEditing(const QString& vaultPath, QString* tempPath) {
    const QString path = normalizedVaultPath(vaultPath);
    if (!isUnlocked() || !tempPath || path.isEmpty() || !isNameOnDisk(path)) {
        return false;
    }
    const QString copyPath = m_workspace.pathForVaultFile(path);
    QFile copy(copyPath);
    if (!QDir().mkpath(QFileInfo(copyPath).absolutePath()) ||
        !copy.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return false;
    }
    if (!writeVaultFileToDevice(path, &copy)) {
        // The copy may have been watched already. What is left of it must not be taken for an edit
        // and stored in the place of the file.
        m_fileSync.untrack(path);
        return false;
    }
    copy.close();
    if (!m_fileSync.track(path, copyPath)) {
        return false;
    }
    *tempPath = copyPath;
    return true;
}

bool VaultManager::syncModifiedTempFiles() {
    const QList<TrackedTempFile> modified = m_fileSync.modifiedFiles();
    return std::all_of(modified.cbegin(), modified.cend(), [this](const TrackedTempFile& copy) {
        return importFile(copy.tempPath, copy.vaultPath);
    });
}

bool VaultManager::syncModifiedTempFile(const QString& vaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    const QList<TrackedTempFile> modified = m_fileSync.modifiedFiles();
    return std::all_of(modified.cbegin(), modified.cend(), [&](const TrackedTempFile& copy) {
        if (!sameVaultPath(copy.vaultPath, path)) {
            return true;
        }
        // Looked at before the copy is read: what is saved meanwhile counts as a change.
        const QDateTime savedUtc = QFileInfo(copy.tempPath).lastModified().toUTC();
        if (!importFile(copy.tempPath, copy.vaultPath)) {
            return false;
        }
        m_fileSync.setLastKnownModified(copy.vaultPath, savedUtc);
        return true;
    });
}

bool VaultManager::refreshTempFile(const QString& vaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    const QList<TrackedTempFile> tracked = m_fileSync.trackedFiles();
    bool refreshed = true;
    for (const TrackedTempFile& copy : tracked) {
        QString tempPath;
        if (!sameVaultPath(copy.vaultPath, path) ||
            prepareFileForEditing(copy.vaultPath, &tempPath)) {
            continue;
        }
        refreshed = false;
        // An editor may still hold it open: it goes on being watched, from its present state.
        if (!m_fileSync.track(copy.vaultPath, copy.tempPath)) {
            m_fileSync.untrack(copy.vaultPath);
        }
    }
    return refreshed;
}

VaultManager::TakenBack VaultManager::presentState(const TrackedTempFile& copy) const {
    const QFileInfo info(copy.tempPath);
    const QList<VaultFileEntry> entries = m_index.entries();
    const auto entry =
        std::find_if(entries.cbegin(), entries.cend(), [&copy](const VaultFileEntry& other) {
            return other.vaultPath == copy.vaultPath;
        });
    return {info.lastModified().toUTC(), info.size(),
            entry == entries.cend() ? QString() : entry->id};
}

bool VaultManager::syncForLock() {
    const QList<TrackedTempFile> modified = m_fileSync.modifiedFiles();
    return std::all_of(modified.cbegin(), modified.cend(), [this](const TrackedTempFile& copy) {
        TakenBack state = presentState(copy);
        if (m_takenBack.value(copy.vaultPath) == state) {
            return true;
        }
        if (!importFile(copy.tempPath, copy.vaultPath)) {
            return false;
        }
        state.fileId = presentState(copy).fileId;
        m_takenBack.insert(copy.vaultPath, state);
        return true;
    });
}

bool VaultManager::lockVault() {
    // Each copy that is taken back costs the drive its size. A lock that is tried again because one
    // of them fails leaves the others as they are in the vault.
    if (isUnlocked() && !syncForLock()) {
        return false;
    }
    m_takenBack.clear();
    m_fileSync.clear();
    const bool cleaned = m_workspace.cleanup();
    m_masterKey.clear();
    m_state = VaultState::Locked;
    return cleaned;
}

} // namespace Tessel::Core
