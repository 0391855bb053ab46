// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/TempWorkspaceManager.h"

#include "core/FolderAccess.h"
#include "core/RunsFolder.h"
#include "core/WorkspaceNote.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

QByteArray nameOf(const QString& workspacePath) {
    return QFile::encodeName(QFileInfo(workspacePath).fileName());
}

QString runsFolderOf(const QString& workspacePath) {
    return QFileInfo(workspacePath).path();
}

QByteArray pathOnDisk(const QString& vaultPath) {
    return QFile::encodeName(vaultPath);
}

// The folder that holds a copy, and the copy's name in it.
struct CopyPlace {
    Descriptor folder;
    QByteArray name;
};

using FolderStep = Descriptor (*)(int parent, const QByteArray& name);

// Goes down component by component, none of which may be a link.
CopyPlace placeOfCopy(int workspace, const QString& vaultPath, FolderStep step) {
    QList<QByteArray> names = pathOnDisk(vaultPath).split('/');
    if (std::any_of(names.cbegin(), names.cend(), [](const QByteArray& name) {
            return name.isEmpty() || name == "." || name == "..";
        })) {
        return {};
    }
    CopyPlace place{Descriptor(), names.takeLast()};
    place.folder = openFolder(workspace, ".");
    for (const QByteArray& name : names) {
        place.folder = step(place.folder.get(), name);
    }
    return place;
}

int createCopy(const CopyPlace& place) {
    return ::openat(place.folder.get(), place.name.constData(),
                    O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
}

// A file that nothing else leads to: writing to it changes no file outside.
bool isPlainCopy(const struct stat& status) {
    return S_ISREG(status.st_mode) && isOurs(status) && status.st_nlink == 1;
}

Descriptor emptyCopy(const CopyPlace& place) {
    Descriptor copy(createCopy(place));
    struct stat status = {};
    if (copy.isOpen() || errno != EEXIST || !statusAt(place.folder.get(), place.name, &status)) {
        return copy;
    }
    if (!isPlainCopy(status)) {
        static_cast<void>(::unlinkat(place.folder.get(), place.name.constData(), 0));
        return Descriptor(createCopy(place));
    }
    copy = Descriptor(::openat(place.folder.get(), place.name.constData(),
                               O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    const bool emptied =
        statusOf(copy.get(), &status) && isPlainCopy(status) && ::ftruncate(copy.get(), 0) == 0;
    return emptied ? std::move(copy) : Descriptor();
}

bool giveTo(QFile* file, Descriptor descriptor, QIODevice::OpenMode mode) {
    return descriptor.isOpen() && file->open(descriptor.release(), mode | QIODevice::Unbuffered,
                                             QFileDevice::AutoCloseHandle);
}

// True also when there is no link.
bool removeLink(int parent, const QByteArray& name) {
    struct stat status = {};
    return !statusAt(parent, name, &status) || !S_ISLNK(status.st_mode) ||
           ::unlinkat(parent, name.constData(), 0) == 0;
}

bool removeEmptyFolder(int parent, const QByteArray& name) {
    return ::unlinkat(parent, name.constData(), AT_REMOVEDIR) == 0;
}

// Removes a link or a folder of ours that has the workspace's name.
bool removeByName(int parent, const QByteArray& name) {
    struct stat status = {};
    if (!removeLink(parent, name)) {
        return false;
    }
    if (!statusAt(parent, name, &status) || !S_ISDIR(status.st_mode)) {
        return true;
    }
    const Descriptor folder = openOwnFolder(parent, name);
    return folder.isOpen() && emptyFolder(folder.get()) && removeEmptyFolder(parent, name);
}

} // namespace

/// The folder, the one that holds it, and the note between the two.
struct TempWorkspaceManager::OpenWorkspace {
    Descriptor parent;
    Descriptor folder;
    WorkspaceNote note;

    [[nodiscard]] bool exists() const {
        struct stat status = {};
        return statusOf(folder.get(), &status) && status.st_nlink > 0;
    }
};

TempWorkspaceManager::TempWorkspaceManager()
    : m_workspace(
          QDir(runsFolderPath()).filePath(QUuid::createUuid().toString(QUuid::WithoutBraces))) {}

bool TempWorkspaceManager::prepare() {
    switch (place()) {
    case Place::Here:
        return true;
    case Place::Elsewhere:
        return false;
    case Place::Gone:
        break;
    }
    m_open.reset();
    auto opened = std::make_shared<OpenWorkspace>();
    const QByteArray name = nameOf(workspacePath());
    opened->parent = makeRunsFolder(runsFolderOf(workspacePath()));
    // The note comes first: a folder without a locked note counts as one of a run that is over.
    if (!opened->parent.isOpen() || !opened->note.create(opened->parent.get(), name)) {
        return false;
    }
    opened->folder = makeOwnFolder(opened->parent.get(), name);
    if (!opened->folder.isOpen() || ::fchmod(opened->folder.get(), S_IRWXU) != 0) {
        opened->note.remove();
        return false;
    }
    m_open = std::move(opened);
    return true;
}

QString TempWorkspaceManager::workspacePath() const {
    return m_workspace.absolutePath();
}

QString TempWorkspaceManager::pathForVaultFile(const QString& vaultPath) const {
    // Not QDir::filePath: it would let an absolute path out of the workspace.
    return workspacePath() + u'/' + vaultPath;
}

bool TempWorkspaceManager::cleanup() {
    const QByteArray name = nameOf(workspacePath());
    if (!m_open) {
        const Descriptor parent = openRunsFolder(runsFolderOf(workspacePath()));
        return parent.isOpen() ? removeByName(parent.get(), name)
                               : !QFileInfo(workspacePath()).isDir();
    }
    const int parent = m_open->parent.get();
    if (!m_open->exists()) {
        // It was removed by another program, and an editor that saved late may have created it
        // again.
        return removeByName(parent, name) && closeWorkspace();
    }
    const bool emptied = emptyFolder(m_open->folder.get());
    if (isAt(parent, name, m_open->folder.get())) {
        return emptied && removeEmptyFolder(parent, name) && closeWorkspace();
    }
    // It was moved away: its copies are removed, but not the folder itself. A folder that has its
    // name now is left alone.
    static_cast<void>(removeLink(parent, name));
    return !closeWorkspace();
}

bool TempWorkspaceManager::closeWorkspace() {
    m_open->note.remove();
    m_open.reset();
    return true;
}

TempWorkspaceManager::Place TempWorkspaceManager::place() const {
    if (!m_open || !m_open->exists()) {
        return Place::Gone;
    }
    return isAt(AT_FDCWD, QFile::encodeName(workspacePath()), m_open->folder.get())
               ? Place::Here
               : Place::Elsewhere;
}

bool TempWorkspaceManager::openForWriting(const QString& vaultPath, QFile* copy) {
    // No program could open it by a longer path.
    if (QFile::encodeName(pathForVaultFile(vaultPath)).size() >= PATH_MAX || !prepare()) {
        return false;
    }
    const CopyPlace where = placeOfCopy(m_open->folder.get(), vaultPath, makeOwnFolder);
    if (!giveTo(copy, emptyCopy(where), QIODevice::WriteOnly)) {
        return false;
    }
    m_open->note.addUnfinished(pathOnDisk(vaultPath));
    return true;
}

bool TempWorkspaceManager::openForReading(const QString& vaultPath, QFile* copy) const {
    if (!m_open) {
        return false;
    }
    const CopyPlace where = placeOfCopy(m_open->folder.get(), vaultPath, openFolder);
    // Not blocking: opening a pipe under the copy's name would wait for a writer.
    Descriptor file(::openat(where.folder.get(), where.name.constData(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status = {};
    return statusOf(file.get(), &status) && S_ISREG(status.st_mode) &&
           giveTo(copy, std::move(file), QIODevice::ReadOnly);
}

bool TempWorkspaceManager::noteStored(const QString& vaultPath, const struct stat& status) {
    return m_open && m_open->note.addCopy(pathOnDisk(vaultPath), status);
}

} // namespace Tessel::Core
