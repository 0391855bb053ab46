// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SetAsideContainer.h"

#include "core/ContainerLayout.h"
#include "core/ContainerManager.h"
#include "core/DiskSync.h"
#include "core/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

enum class Found { Nothing, CutCopy, Container, Unknown };

bool existsHere(const QString& path) {
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0;
}

bool isMissing(const QString& path) {
    return !existsHere(path) && errno == ENOENT;
}

bool renameFile(const QString& from, const QString& to) {
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0;
}

bool createEmpty(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered);
}

// FAT keeps a file's size and first cluster in its folder entry, and a rename makes an entry
// without them: a drive that is unplugged before the sync has the container under neither name.
// When two names are exchanged, each keeps its entry until then, and one of them leads to the
// container.
bool exchange(const QString& a, const QString& b) {
    return ::renameat2(AT_FDCWD, QFile::encodeName(a).constData(), AT_FDCWD,
                       QFile::encodeName(b).constData(), RENAME_EXCHANGE) == 0;
}

bool exchangeWithEmpty(const QString& path, const QString& empty) {
    if (!createEmpty(empty)) {
        return false;
    }
    if (exchange(path, empty)) {
        return true;
    }
    static_cast<void>(QFile::remove(empty));
    return false;
}

// A lock on the whole file that belongs to the open file, not to the process: another descriptor in
// the same process sees it too. The window's lock is a flock and does not conflict.
struct flock wholeFile(short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return lock;
}

void markInUse(QFile& container) {
    struct flock lock = wholeFile(F_RDLCK);
    // Some file systems have no locks.
    static_cast<void>(::fcntl(container.handle(), F_OFD_SETLK, &lock));
}

bool isInUse(const QString& path) {
    QFile file(path);
    struct flock lock = wholeFile(F_WRLCK);
    return openRegularFile(file, QIODevice::ReadOnly) &&
           ::fcntl(file.handle(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

Found whatIsAt(const QString& path) {
    if (isMissing(path)) {
        return Found::Nothing;
    }
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadOnly)) {
        return Found::Unknown;
    }
    const QByteArray magic = file.read(ContainerLayout::FileMagic.size());
    if (file.error() != QFileDevice::NoError) {
        return Found::Unknown;
    }
    return magic == ContainerLayout::FileMagic ? Found::Container : Found::CutCopy;
}

// A copy gets its magic last; until then it begins with zeros or is empty.
bool isWithoutMagicYet(const QString& path) {
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray begin = file.read(ContainerLayout::FileMagic.size());
    return file.error() == QFileDevice::NoError && begin == QByteArray(begin.size(), '\0');
}

// Otherwise the drive fails, and its only container must not be deleted instead.
bool isRefusal(int error) {
    return error != EIO && error != EROFS && error != ENODEV && error != ENXIO && error != ENOENT;
}

} // namespace

QString withoutLinks(const QString& path) {
    constexpr int MostLinks = 40;
    QString target = path;
    for (int i = 0; i < MostLinks && QFileInfo(target).isSymLink(); ++i) {
        target = QFileInfo(target).symLinkTarget();
    }
    return target;
}

QString setAsidePath(const QString& containerPath) {
    return withoutLinks(containerPath) + u".anterior"_s;
}

bool hasSetAsideContainer(const QString& containerPath) {
    const QString path = setAsidePath(containerPath);
    ContainerDocument document;
    return existsHere(path) && !QFileInfo(path).isSymLink() &&
           ContainerManager().readDocument(path, &document) && !isInUse(path);
}

bool readSetAside(const QString& containerPath, ContainerDocument* out) {
    const QString path = setAsidePath(containerPath);
    QFile file(path);
    // Read from the drive: the bytes may have changed under the other name.
    static_cast<void>(openRegularFile(file, QIODevice::ReadOnly) &&
                      ::posix_fadvise(file.handle(), 0, 0, POSIX_FADV_DONTNEED) == 0);
    return hasSetAsideContainer(containerPath) && ContainerManager().readDocument(path, out);
}

bool recoverContainer(const QString& containerPath) {
    removeUnfinished(containerPath);
    if (!hasSetAsideContainer(containerPath)) {
        return false;
    }
    const Found found = whatIsAt(withoutLinks(containerPath));
    return (found == Found::Nothing || found == Found::CutCopy) && putBack(containerPath);
}

SetAsideResult setAside(const QString& path, QFile& container) {
    const QString aside = setAsidePath(path);
    removeUnfinished(path);
    if (existsHere(aside)) {
        return SetAsideResult::Refused;
    }
    markInUse(container);
    if (!exchangeWithEmpty(path, aside) && !renameFile(path, aside)) {
        return isRefusal(errno) ? SetAsideResult::Refused : SetAsideResult::Failed;
    }
    // In this order: until the second sync, both names lead to the old container on FAT.
    if (syncAfterRename(aside) && (!existsHere(path) || syncAfterRename(path))) {
        return SetAsideResult::Done;
    }
    putBack(path);
    return SetAsideResult::Failed;
}

bool putBack(const QString& containerPath) {
    const QString path = withoutLinks(containerPath);
    const QString aside = setAsidePath(path);
    const bool exchanged = isMissing(path) ? exchangeWithEmpty(aside, path) : exchange(aside, path);
    if (!exchanged && !renameFile(aside, path)) {
        return false;
    }
    // If the drive loses the rename, the next recovery finds the same state as this one.
    if (syncAfterRename(path) && exchanged) {
        removeSetAside(path);
    }
    return true;
}

void removeUnfinished(const QString& containerPath) {
    const QString aside = setAsidePath(containerPath);
    ContainerDocument document;
    if (existsHere(aside) && !QFileInfo(aside).isSymLink() && isWithoutMagicYet(aside) &&
        ContainerManager().readDocument(containerPath, &document)) {
        removeSetAside(containerPath);
    }
}

void removeSetAside(const QString& containerPath) {
    const QString path = withoutLinks(containerPath);
    if (QFile::remove(setAsidePath(path))) {
        // If it comes back after a power cut, the next recovery removes it.
        static_cast<void>(syncFolderOf(path));
    }
}

bool isMissingOrReadable(const QString& path) {
    const Found found = whatIsAt(withoutLinks(path));
    if (found != Found::Container) {
        return found != Found::Unknown;
    }
    constexpr qint64 Piece = qint64{256} * 1024;
    // The largest redo record that may be at the end.
    constexpr qint64 TailBytes = ContainerLayout::PayloadOffset + Piece;
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadOnly)) {
        return false;
    }
    const qint64 size = file.size();
    const qint64 tail = std::max(ContainerLayout::PayloadOffset, size - TailBytes);
    for (qint64 at = 0; at < size; at = file.pos()) {
        const bool between = at >= ContainerLayout::PayloadOffset && at < tail;
        if ((between && !file.seek(tail)) || file.read(Piece).isEmpty()) {
            return false;
        }
    }
    return true;
}

} // namespace Tessel::Core
