// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/RegularFile.h"

#include <QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Tessel::Core {

bool openRegularFile(QFile& file, QIODevice::OpenMode mode) {
    const int access = mode.testFlag(QIODevice::WriteOnly) ? O_RDWR : O_RDONLY;
    // Opened first, checked then: what a name leads to may change between two calls.
    const int descriptor = ::open(QFile::encodeName(file.fileName()).constData(),
                                  access | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        !file.open(descriptor, mode | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return false;
    }
    return true;
}

} // namespace Tessel::Core
