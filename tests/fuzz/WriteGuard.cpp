// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "fuzz/WriteGuard.h"

#include "fuzz/FuzzTarget.h"

#include <climits>
#include <cstdarg>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tessel::Fuzz {

namespace {

QByteArray& guardedFolder() {
    static QByteArray folder;
    return folder;
}

void checkWritten(const char* path) {
    const QByteArray& folder = guardedFolder();
    if (folder.isEmpty() || !path) {
        return;
    }
    const QByteArray name(path);
    const bool beneath = name == folder || name.startsWith(folder + '/');
    const bool leaves = name.contains("/../") || name.endsWith("/..");
    if (!beneath || leaves) {
        std::fprintf(stderr, "written outside %s: %s\n", folder.constData(), path);
        std::abort();
    }
}

// The same for a name in an open folder.
void checkWrittenAt(int folder, const char* path) {
    if (guardedFolder().isEmpty() || folder == AT_FDCWD || path[0] == '/') {
        checkWritten(path);
        return;
    }
    char name[PATH_MAX] = {};
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(folder);
    const ssize_t size = ::readlink(link.constData(), name, sizeof(name) - 1);
    // Nothing can be written to a folder that is not open.
    if (size >= 0) {
        const QByteArray whole = QByteArray(name, size) + '/' + path;
        checkWritten(whole.constData());
    }
}

} // namespace

WriteGuard::WriteGuard(const QByteArray& folder) : m_before(guardedFolder()) {
    guardedFolder() = folder;
}

WriteGuard::~WriteGuard() {
    guardedFolder() = m_before;
}

} // namespace Tessel::Fuzz

// All calls come here, Qt's too, because the program's symbols take precedence over the C
// library's.
extern "C" {

int open64(const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const bool makesFile = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = makesFile ? va_arg(arguments, mode_t) : mode_t(0);
    va_end(arguments);
    if (makesFile || (flags & O_ACCMODE) != O_RDONLY) {
        Tessel::Fuzz::checkWritten(path);
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

int openat(int folder, const char* path, int flags, ...) {
    std::va_list arguments;
    va_start(arguments, flags);
    const bool makesFile = (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE;
    const mode_t mode = makesFile ? va_arg(arguments, mode_t) : mode_t(0);
    va_end(arguments);
    if (makesFile || (flags & O_ACCMODE) != O_RDONLY) {
        Tessel::Fuzz::checkWrittenAt(folder, path);
    }
    return static_cast<int>(::syscall(SYS_openat, folder, path, flags, mode));
}

int mkdirat(int folder, const char* path, mode_t mode) noexcept {
    Tessel::Fuzz::checkWrittenAt(folder, path);
    return static_cast<int>(::syscall(SYS_mkdirat, folder, path, mode));
}

int mkdir(const char* path, mode_t mode) noexcept {
    Tessel::Fuzz::checkWritten(path);
    return static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode));
}

int rename(const char* from, const char* to) noexcept {
    Tessel::Fuzz::checkWritten(from);
    Tessel::Fuzz::checkWritten(to);
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
    Tessel::Fuzz::checkWritten(to);
    return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept {
    Tessel::Fuzz::checkWritten(to);
    return static_cast<int>(::syscall(SYS_linkat, fromFolder, from, toFolder, to, flags));
}

int symlink(const char* target, const char* path) noexcept {
    Tessel::Fuzz::checkWritten(path);
    return static_cast<int>(::syscall(SYS_symlinkat, target, AT_FDCWD, path));
}

int unlink(const char* path) noexcept {
    Tessel::Fuzz::checkWritten(path);
    return static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

int truncate64(const char* path, off64_t size) noexcept {
    Tessel::Fuzz::checkWritten(path);
    return static_cast<int>(::syscall(SYS_truncate, path, size));
}
}
