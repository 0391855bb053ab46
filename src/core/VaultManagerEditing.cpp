// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/FolderAccess.h"
#include "core/VaultManager.h"
#include "core/VaultPath.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>

#include <algorithm>

#include <sys/stat.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

// Whether a file name can hold this path unchanged. Half a surrogate pair becomes a replacement
// character, and a zero ends a name: two vault files would share one copy, and each would get the
// other's contents.
bool isNameOnDisk(const QString& path) {
    return !path.contains(QChar::Null) && QFile::decodeName(QFile::encodeName(path)) == path;
}

bool anyCopy(const TrackedTempFile& /*copy*/) {
    return true;
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
    QFile copy;
    if (!m_workspace.openForWriting(path, &copy)) {
        return false;
    }
    // The copy may have been watched already. What a failure leaves of it must not be taken for an
    // edit, and so replace the file.
    auto forget = qScopeGuard([this, &path] { m_fileSync.untrack(path); });
    const QString copyPath = m_workspace.pathForVaultFile(path);
    // Even an incomplete copy came from the vault.
    const bool written = writeVaultFileToDevice(path, &copy);
    struct stat status = {};
    if (!statusOf(copy.handle(), &status) || !m_workspace.noteStored(path, status) || !written) {
        return false;
    }
    copy.close();
    // The other program gets a path, which must lead to the folder with the copy.
    if (m_workspace.place() != TempWorkspaceManager::Place::Here ||
        !m_fileSync.track(path, copyPath)) {
        return false;
    }
    forget.dismiss();
    *tempPath = copyPath;
    return true;
}

bool VaultManager::takeBackChanged(const CopyTest& concerned, const CopyTest& takeBackOne) const {
    const QList<TrackedTempFile> tracked = m_fileSync.trackedFiles();
    const TempWorkspaceManager::Place place = m_workspace.place();
    // The paths no longer tell what was done to the copies.
    if (place == TempWorkspaceManager::Place::Elsewhere) {
        return std::none_of(tracked.cbegin(), tracked.cend(), concerned);
    }
    const QList<TrackedTempFile> changed = m_fileSync.modifiedFiles();
    return std::all_of(changed.cbegin(), changed.cend(), [&](const TrackedTempFile& copy) {
        // A copy that was removed has not changed; a file that has its name now is not ours.
        return !concerned(copy) ||
               (place == TempWorkspaceManager::Place::Here && takeBackOne(copy));
    });
}

bool VaultManager::takeBack(const TrackedTempFile& copy) {
    QFile file;
    struct stat status = {};
    // Read through the descriptor: a file that gets the copy's name meanwhile is not stored.
    if (!m_workspace.openForReading(copy.vaultPath, &file) || !statusOf(file.handle(), &status) ||
        !importFile(u"/proc/self/fd/%1"_s.arg(file.handle()), copy.vaultPath)) {
        return false;
    }
    // Without the note a later run keeps a copy that it could have removed.
    static_cast<void>(m_workspace.noteStored(copy.vaultPath, status));
    return true;
}

bool VaultManager::syncModifiedTempFiles() {
    return takeBackChanged(anyCopy, [this](const TrackedTempFile& copy) { return takeBack(copy); });
}

bool VaultManager::syncModifiedTempFile(const QString& vaultPath) {
    const QString path = normalizedVaultPath(vaultPath);
    const auto concerned = [&path](const TrackedTempFile& copy) {
        return sameVaultPath(copy.vaultPath, path);
    };
    return takeBackChanged(concerned, [this](const TrackedTempFile& copy) {
        // Taken before the copy is read: anything saved meanwhile counts as a change.
        const QDateTime savedUtc = QFileInfo(copy.tempPath).lastModified().toUTC();
        if (!takeBack(copy)) {
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
        // An editor may still have it open, so it is watched from its present state on.
        if (!m_fileSync.track(copy.vaultPath, copy.tempPath)) {
            m_fileSync.untrack(copy.vaultPath);
        }
    }
    return refreshed;
}

VaultManager::TakenBack VaultManager::presentState(const TrackedTempFile& copy) const {
    const QFileInfo info(copy.tempPath);
    const std::optional<VaultFileEntry> entry = findFile(m_index, copy.vaultPath);
    return {info.lastModified().toUTC(), info.size(), entry ? entry->id : QString()};
}

bool VaultManager::syncForLock() {
    return takeBackChanged(anyCopy, [this](const TrackedTempFile& copy) {
        TakenBack state = presentState(copy);
        if (m_takenBack.value(copy.vaultPath) == state) {
            return true;
        }
        if (!takeBack(copy)) {
            return false;
        }
        state.fileId = presentState(copy).fileId;
        m_takenBack.insert(copy.vaultPath, state);
        return true;
    });
}

} // namespace Tessel::Core
