// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A library to preload. It logs, in order, everything that the process does to the files below
// TESSEL_RECORD_ROOT, so that crash_states.py can work out what a power cut may leave.
//
// The log at TESSEL_RECORD_LOG is a sequence of events: a head as below, then a path, then bytes.
// Every event is written after its call has succeeded, with direct system calls, because this
// library replaces the functions that would do it.

#include <array>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

enum class Event : std::uint32_t {
    Create = 1,
    Truncate = 2,
    Write = 3,
    Sync = 4,
    SyncFolder = 5,
    Rename = 6,
    Remove = 7,
    MakeFolder = 8,
    Mark = 9,
    Exchange = 10
};

struct Head {
    Event event = Event::Mark;
    std::uint32_t pathBytes = 0;
    std::uint64_t inode = 0;
    std::int64_t offset = 0;
    std::uint64_t dataBytes = 0;
};

const std::string& root() {
    static const std::string path = [] {
        const char* value = std::getenv("TESSEL_RECORD_ROOT");
        return std::string(value ? value : "/nowhere") + '/';
    }();
    return path;
}

int logFile() {
    static const int descriptor = [] {
        const char* path = std::getenv("TESSEL_RECORD_LOG");
        return path ? static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path,
                                                 O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600))
                    : -1;
    }();
    return descriptor;
}

void put(const void* bytes, std::size_t size) {
    if (logFile() >= 0 && ::syscall(SYS_write, logFile(), bytes, size) != static_cast<long>(size)) {
        ::syscall(SYS_exit_group, 70);
    }
}

void record(Event event, const std::string& path, std::uint64_t inode = 0, std::int64_t offset = 0,
            const void* data = nullptr, std::size_t size = 0) {
    const int error = errno;
    const Head head{event, static_cast<std::uint32_t>(path.size()), inode, offset, size};
    put(&head, sizeof head);
    put(path.data(), path.size());
    put(data, size);
    errno = error;
}

bool isWatched(const std::string& path) {
    return path.compare(0, root().size(), root()) == 0;
}

std::string pathOf(int descriptor) {
    std::array<char, PATH_MAX> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
    return size > 0 ? std::string(path.data(), static_cast<std::size_t>(size)) : std::string();
}

// The file of a descriptor; its path is empty if the file is not recorded.
struct Watched {
    explicit Watched(int descriptor) : path(pathOf(descriptor)) {
        struct stat info = {};
        if (!isWatched(path) || ::fstat(descriptor, &info) != 0) {
            path.clear();
            return;
        }
        inode = info.st_ino;
        isFolder = S_ISDIR(info.st_mode);
    }
    explicit operator bool() const { return !path.empty(); }
    std::string path;
    std::uint64_t inode = 0;
    bool isFolder = false;
};

int openAndRecord(int folder, const char* path, int flags, mode_t mode) {
    struct stat before = {};
    const bool existed = ::fstatat(folder, path, &before, 0) == 0;
    const int result = static_cast<int>(::syscall(SYS_openat, folder, path, flags, mode));
    if (result < 0 || (flags & (O_CREAT | O_TRUNC)) == 0) {
        return result;
    }
    const int error = errno;
    if (const Watched file(result); file && !existed) {
        record(Event::Create, file.path, file.inode);
    } else if (file && (flags & O_TRUNC) != 0) {
        record(Event::Truncate, file.path, file.inode, 0);
    }
    errno = error;
    return result;
}

mode_t modeArgument(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

ssize_t writeAndRecord(int descriptor, const void* bytes, ssize_t written, off_t offset) {
    if (written > 0) {
        if (const Watched file(descriptor); file) {
            record(Event::Write, file.path, file.inode, offset, bytes,
                   static_cast<std::size_t>(written));
        }
    }
    return written;
}

int recordSync(int descriptor, int result) {
    if (result == 0) {
        if (const Watched file(descriptor); file) {
            record(file.isFolder ? Event::SyncFolder : Event::Sync, file.path, file.inode);
        }
    }
    return result;
}

int recordTruncate(int descriptor, off_t size, int result) {
    if (result == 0) {
        if (const Watched file(descriptor); file) {
            record(Event::Truncate, file.path, file.inode, size);
        }
    }
    return result;
}

int recordPath(Event event, const char* path, int result) {
    if (result == 0 && isWatched(path)) {
        record(event, path);
    }
    return result;
}

int recordRename(Event event, const char* from, const char* to, int result) {
    if (result == 0 && isWatched(to)) {
        record(event, from, 0, 0, to, std::strlen(to));
    }
    return result;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openAndRecord(AT_FDCWD, path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openAndRecord(AT_FDCWD, path, flags, mode);
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return openAndRecord(folder, path, flags, mode);
}

ssize_t write(int descriptor, const void* bytes, size_t size) {
    const off_t offset = ::lseek(descriptor, 0, SEEK_CUR);
    return writeAndRecord(descriptor, bytes, ::syscall(SYS_write, descriptor, bytes, size), offset);
}

ssize_t pwrite(int descriptor, const void* bytes, size_t size, off_t offset) {
    return writeAndRecord(descriptor, bytes,
                          ::syscall(SYS_pwrite64, descriptor, bytes, size, offset), offset);
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t size, off_t offset) {
    return pwrite(descriptor, bytes, size, offset);
}

int fsync(int descriptor) {
    return recordSync(descriptor, static_cast<int>(::syscall(SYS_fsync, descriptor)));
}

int fdatasync(int descriptor) {
    return recordSync(descriptor, static_cast<int>(::syscall(SYS_fdatasync, descriptor)));
}

int ftruncate(int descriptor, off_t size) noexcept {
    return recordTruncate(descriptor, size,
                          static_cast<int>(::syscall(SYS_ftruncate, descriptor, size)));
}

int ftruncate64(int descriptor, off_t size) noexcept {
    return ftruncate(descriptor, size);
}

int rename(const char* from, const char* to) noexcept {
    return recordRename(Event::Rename, from, to,
                        static_cast<int>(::syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to)));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to,
              unsigned flags) noexcept {
    return recordRename(
        (flags & RENAME_EXCHANGE) != 0 ? Event::Exchange : Event::Rename, from, to,
        static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags)));
}

int linkat(int fromFolder, const char* from, int toFolder, const char* to, int flags) noexcept {
    const int result =
        static_cast<int>(::syscall(SYS_linkat, fromFolder, from, toFolder, to, flags));
    struct stat info = {};
    if (result == 0 && isWatched(to) && ::stat(to, &info) == 0) {
        record(Event::Create, to, info.st_ino);
    }
    return result;
}

int unlink(const char* path) noexcept {
    return recordPath(Event::Remove, path,
                      static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, 0)));
}

int mkdir(const char* path, mode_t mode) noexcept {
    return recordPath(Event::MakeFolder, path,
                      static_cast<int>(::syscall(SYS_mkdirat, AT_FDCWD, path, mode)));
}

int rmdir(const char* path) noexcept {
    // The driver marks the begin and end of an operation with folders that do not exist.
    if (std::strncmp(path, "/tessel-", 8) == 0) {
        record(Event::Mark, path);
    }
    return recordPath(Event::Remove, path,
                      static_cast<int>(::syscall(SYS_unlinkat, AT_FDCWD, path, AT_REMOVEDIR)));
}

} // extern "C"
