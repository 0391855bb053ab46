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

bool VaultManager::lockVault() {
    if (isUnlocked() && !syncModifiedTempFiles()) {
        return false;
    }
    m_fileSync.clear();
    const bool cleaned = m_workspace.cleanup();
    m_masterKey.clear();
    m_state = VaultState::Locked;
    return cleaned;
}

} // namespace Tessel::Core
