// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"

#include "core/RegularFile.h"
#include "core/SameFile.h"

#include <QFile>

#include <cerrno>

#include <sys/file.h>

namespace Tessel::Core {

namespace {

// The locked file at the path; null when there is none.
std::unique_ptr<QFile> lockedFileAt(const QString& path) {
    // Between the open and the lock another window may replace this file; its lock then protects
    // nothing.
    constexpr int Tries = 3;
    for (int i = 0; i < Tries; ++i) {
        auto file = std::make_unique<QFile>(path);
        if (!openRegularFile(*file, QIODevice::ReadOnly)) {
            return nullptr;
        }
        // flock, not fcntl: closing another descriptor of the container must not release it.
        if (::flock(file->handle(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            return nullptr;
        }
        if (isSameFile(path, *file)) {
            return file;
        }
    }
    return nullptr;
}

} // namespace

ContainerLock::ContainerLock() = default;
ContainerLock::~ContainerLock() = default;

bool ContainerLock::acquire(const QString& path) {
    release();
    m_path = path;
    m_file = lockedFileAt(path);
    return m_file != nullptr;
}

bool ContainerLock::follow() {
    if (!m_file) {
        return false;
    }
    if (!QFile::exists(m_path) || isSameFile(m_path, *m_file)) {
        return true;
    }
    std::unique_ptr<QFile> successor = lockedFileAt(m_path);
    if (!successor) {
        return false;
    }
    m_file = std::move(successor);
    return true;
}

void ContainerLock::release() {
    m_file.reset();
}

} // namespace Tessel::Core
