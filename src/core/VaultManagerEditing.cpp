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

// Whether the local disk can tell this path from every other. Half a surrogate pair is stored as a
// replacement character, and a zero ends a name early: two vault files would share one copy, and
// each would take over the other's content.
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
    // The copy may have been watched already. What is left of it after a failure must not be taken
    // for an edit and stored in the place of the file.
    auto forget = qScopeGuard([this, &path] { m_fileSync.untrack(path); });
    const QString copyPath = m_workspace.pathForVaultFile(path);
    // Even what a failure leaves of the copy came from the vault.
    const bool written = writeVaultFileToDevice(path, &copy);
    struct stat status {};
    if (!statusOf(copy.handle(), &status) || !m_workspace.noteStored(path, status) || !written) {
        return false;
    }
    copy.close();
    // The other program is given a path: it must lead to the folder that the copy is in.
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
        // A copy that was removed has not changed; what came in its place is not ours.
        return !concerned(copy) ||
               (place == TempWorkspaceManager::Place::Here && takeBackOne(copy));
    });
}

bool VaultManager::takeBack(const TrackedTempFile& copy) {
    QFile file;
    struct stat status {};
    // Read by way of the descriptor: what takes the copy's name meanwhile is not what is stored.
    if (!m_workspace.openForReading(copy.vaultPath, &file) || !statusOf(file.handle(), &status) ||
        !importFile(u"/proc/self/fd/%1"_s.arg(file.handle()), copy.vaultPath)) {
        return false;
    }
    // Without the note a later run keeps a copy that it could remove.
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
        // Looked at before the copy is read: what is saved meanwhile counts as a change.
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
        // An editor may still hold it open: it goes on being watched, from its present state.
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
