// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A library to preload. Every file system reports that it is full, but still accepts writes: an
// operation that checks the free space first behaves as on a full drive.

#include <dlfcn.h>
#include <sys/statvfs.h>

namespace {

template <typename Space>
int ask(const char* name, const char* path, Space* space) {
    using Function = int (*)(const char*, Space*);
    const auto next = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
    const int result = next(path, space);
    space->f_bavail = 0;
    return result;
}

} // namespace

extern "C" {

int statvfs(const char* path, struct statvfs* space) noexcept {
    return ask("statvfs", path, space);
}

int statvfs64(const char* path, struct statvfs64* space) noexcept {
    return ask("statvfs64", path, space);
}

} // extern "C"
