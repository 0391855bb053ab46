// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerReplacement.h"

#include "core/DiskSync.h"
#include "core/SetAsideContainer.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

// What a file system may need besides the bytes: the rest of a cluster, tables, a folder entry.
constexpr qint64 MarginBytes = qint64{1} * 1024 * 1024;

bool hasSpaceFor(qint64 bytes, const QString& path) {
    struct statvfs space = {};
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    if (::statvfs(folder.constData(), &space) != 0) {
        return false;
    }
    const auto blocks = static_cast<qint64>(space.f_bavail);
    const auto blockBytes = static_cast<qint64>(space.f_frsize);
    return blockBytes > 0 && (bytes + MarginBytes) / blockBytes < blocks;
}

// Gives the file the old one's owner and mode. Failing is no fault: FAT has neither.
void takeOver(const struct stat& owner, QFile& file) {
    [[maybe_unused]] const int result = ::fchown(file.handle(), owner.st_uid, owner.st_gid);
    static_cast<void>(::fchmod(file.handle(), owner.st_mode & 07777));
}

ReplacementResult giveUp(const QString& path) {
    return QFile::remove(path) || !QFileInfo::exists(path) ? ReplacementResult::NoneLeft
                                                           : ReplacementResult::Unfinished;
}

ReplacementResult writeNewContainer(const QString& rebuiltPath, const QString& path,
                                    const struct stat& owner, const CopyProgress& progress) {
    QFile rebuilt(rebuiltPath);
    QFile target(path);
    if (!rebuilt.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return giveUp(path);
    }
    takeOver(owner, target);
    if (!copyContainer(rebuilt, target, progress)) {
        target.close();
        return giveUp(path);
    }
    return syncFolderOf(path) ? ReplacementResult::Done : ReplacementResult::Unfinished;
}

} // namespace

ReplacementResult replaceContainer(const QString& rebuiltPath, const QString& path, QFile& old,
                                   const CopyProgress& progress) {
    struct stat owner = {};
    // The drive reports errors of earlier writes now, while nothing has changed.
    if (::fstat(old.handle(), &owner) != 0 || !syncToDrive(old) || !syncFolderOf(path)) {
        return ReplacementResult::NothingDone;
    }
    SetAsideResult aside = SetAsideResult::Refused;
    if (hasSpaceFor(QFileInfo(rebuiltPath).size(), path)) {
        aside = setAside(path, old);
    }
    if (aside == SetAsideResult::Failed) {
        return ReplacementResult::NothingDone;
    }
    if (aside == SetAsideResult::Refused) {
        // Its space is freed only when no one has it open.
        old.close();
        return QFile::remove(path) ? writeNewContainer(rebuiltPath, path, owner, progress)
                                   : ReplacementResult::NothingDone;
    }
    const ReplacementResult result = writeNewContainer(rebuiltPath, path, owner, progress);
    if (result != ReplacementResult::Unfinished) {
        removeSetAside(path);
    }
    return result;
}

} // namespace Tessel::Core
