// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/DiskSync.h"

#include <QFile>
#include <QFileDevice>
#include <QFileInfo>
#include <QScopeGuard>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace Tessel::Core {

namespace {

// Errors of a file system that does not support the request, as opposed to failing at it.
bool isUnsupported(int error) {
    return error == EINVAL || error == ENOSYS || error == EOPNOTSUPP || error == ENOTTY;
}

template <typename Call>
int retryInterrupted(Call call) {
    int result = 0;
    do {
        result = call();
    } while (result < 0 && errno == EINTR);
    return result;
}

bool syncDescriptor(int descriptor) {
    return retryInterrupted([=] { return ::fdatasync(descriptor); }) == 0 || isUnsupported(errno);
}

int openForSync(const QString& path, int flags) {
    const QByteArray name = QFile::encodeName(path);
    return retryInterrupted(
        [&name, flags] { return ::open(name.constData(), O_RDONLY | O_CLOEXEC | flags); });
}

// Data and all metadata (fsync).
bool syncAndClose(int descriptor) {
    const auto closing = qScopeGuard([descriptor] { ::close(descriptor); });
    return retryInterrupted([=] { return ::fsync(descriptor); }) == 0 || isUnsupported(errno);
}

} // namespace

bool syncToDrive(QFileDevice& file) {
    if (!file.flush()) {
        return false;
    }
    const int descriptor = file.handle();
    return descriptor >= 0 && syncDescriptor(descriptor);
}

bool startWriteBack(QFileDevice& file, qint64 offset, qint64 size) {
    const int descriptor = file.handle();
    if (descriptor < 0) {
        return false;
    }
    const auto range = [descriptor, size](qint64 from, unsigned flags) {
        return retryInterrupted([=] { return ::sync_file_range(descriptor, from, size, flags); }) ==
                   0 ||
               isUnsupported(errno);
    };
    if (!range(offset, SYNC_FILE_RANGE_WRITE)) {
        return false;
    }
    const qint64 earlier = offset - 2 * size;
    return earlier < 0 || range(earlier, SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE |
                                             SYNC_FILE_RANGE_WAIT_AFTER);
}

bool syncPastEarlierErrors(const QString& path) {
    constexpr int Attempts = 3;
    // A pipe under the container's name would block the open for ever.
    const int descriptor = openForSync(path, O_NONBLOCK);
    if (descriptor < 0) {
        return false;
    }
    const auto closing = qScopeGuard([descriptor] { ::close(descriptor); });
    bool synced = false;
    for (int attempt = 1; attempt <= Attempts && !synced; ++attempt) {
        synced = syncDescriptor(descriptor);
    }
    return synced;
}

bool syncFolderOf(const QString& path) {
    const int descriptor = openForSync(QFileInfo(path).absolutePath(), O_DIRECTORY);
    if (descriptor < 0) {
        // A folder in which we may create files, but which we may not read, cannot be synced.
        return errno == EACCES;
    }
    return syncAndClose(descriptor);
}

bool syncAfterRename(const QString& path) {
    const int descriptor = openForSync(path, 0);
    return descriptor >= 0 && syncAndClose(descriptor) && syncFolderOf(path);
}

} // namespace Tessel::Core
