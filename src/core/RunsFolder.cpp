// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/RunsFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <fcntl.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

// Every account may create folders in it, and move or remove only its own.
constexpr mode_t ForAllAccounts = S_ISVTX | ACCESSPERMS;

// Links on the way to the temporary folder are the system's or the user's own.
Descriptor openTemporaryFolder(const QString& runsFolder) {
    const QByteArray path = QFile::encodeName(QFileInfo(runsFolder).path());
    // We may be allowed to enter it and not to list it.
    return Descriptor(::open(path.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

QByteArray nameOf(const QString& path) {
    return QFile::encodeName(QFileInfo(path).fileName());
}

bool isTrusted(const struct stat& status) {
    return isOurs(status) || status.st_uid == 0 || (status.st_mode & S_ISVTX) != 0;
}

// An earlier version created the folder for its own account alone.
bool openToAllAccounts(int folder, const struct stat& status) {
    const mode_t others = S_IWGRP | S_IWOTH;
    return !isOurs(status) || (status.st_mode & ALLPERMS) == ForAllAccounts ||
           ::fchmod(folder, ForAllAccounts) == 0 || (status.st_mode & others) == 0 ||
           (status.st_mode & S_ISVTX) != 0;
}

} // namespace

QString runsFolderPath() {
    return QDir(QDir(QStandardPaths::writableLocation(QStandardPaths::TempLocation))
                    .filePath(u"Tessel"_s))
        .absolutePath();
}

Descriptor openRunsFolder(const QString& path) {
    const Descriptor temporary = openTemporaryFolder(path);
    Descriptor folder = openFolder(temporary.get(), nameOf(path));
    struct stat status = {};
    return statusOf(folder.get(), &status) && isTrusted(status) ? std::move(folder) : Descriptor();
}

Descriptor makeRunsFolder(const QString& path) {
    if (!QDir().mkpath(QFileInfo(path).path())) {
        return {};
    }
    const Descriptor temporary = openTemporaryFolder(path);
    // Opening it shows whether it is there now.
    static_cast<void>(::mkdirat(temporary.get(), nameOf(path).constData(), S_IRWXU));
    Descriptor folder = openRunsFolder(path);
    struct stat status = {};
    return statusOf(folder.get(), &status) && openToAllAccounts(folder.get(), status)
               ? std::move(folder)
               : Descriptor();
}

} // namespace Tessel::Core
