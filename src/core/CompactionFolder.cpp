// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/CompactionFolder.h"

#include "core/ContainerLayout.h"

#include <QDir>
#include <QFileInfo>
#include <QScopeGuard>

#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

const QString FolderPrefix = u"Tessel-compact-"_s;

int openForLocking(const QString& path) {
    return ::open(QFile::encodeName(path).constData(),
                  O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Closing the descriptor gives up the lock, so the folder of a program that was killed is free.
bool lockFolder(int descriptor) {
    return ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

// Whether it is this account's, and no other account can add or remove files in it.
bool isOurs(int descriptor) {
    struct stat info = {};
    return ::fstat(descriptor, &info) == 0 && info.st_uid == ::geteuid() &&
           (info.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Whatever has the name of one. Not by QDir, which in Qt 6.8 stops at a name that is not UTF-8.
QStringList compactionFolders() {
    QStringList folders;
    std::error_code error;
    const QByteArray temporary = QFile::encodeName(QDir::tempPath());
    std::filesystem::directory_iterator item(temporary.toStdString(), error);
    for (; !error && item != std::filesystem::directory_iterator(); item.increment(error)) {
        const QString path = QFile::decodeName(item->path().c_str());
        if (QFileInfo(path).fileName().startsWith(FolderPrefix)) {
            folders.append(path);
        }
    }
    return folders;
}

} // namespace

CompactionFolder::CompactionFolder()
    : m_folder(QDir::tempPath() + u'/' + FolderPrefix + u"XXXXXX"_s) {
    m_folder.setAutoRemove(false);
    m_lock = m_folder.isValid() ? openForLocking(m_folder.path()) : -1;
    if (m_lock >= 0) {
        static_cast<void>(lockFolder(m_lock));
    }
}

CompactionFolder::~CompactionFolder() {
    if (!m_isKept && m_folder.isValid()) {
        m_folder.remove();
    }
    if (m_lock >= 0) {
        ::close(m_lock);
    }
}

QString CompactionFolder::containerPath() const {
    return m_folder.filePath(ContainerLayout::ContainerFileName);
}

void CompactionFolder::removeLeftovers(const std::function<bool(const QString& path)>& isUnneeded) {
    const QStringList folders = compactionFolders();
    for (const QString& folder : folders) {
        const int descriptor = openForLocking(folder);
        const auto closing = qScopeGuard([descriptor] { ::close(descriptor); });
        const QString path = folder + u'/' + ContainerLayout::ContainerFileName;
        if (descriptor >= 0 && isOurs(descriptor) && lockFolder(descriptor) &&
            !QFileInfo(path).isSymLink() && isUnneeded(path) && QFile::remove(path)) {
            static_cast<void>(QDir().rmdir(folder));
        }
    }
}

} // namespace Tessel::Core
