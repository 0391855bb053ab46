// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"

#include <cerrno>

#include <sys/file.h>

namespace Tessel::Core {

bool ContainerLock::acquire(const QString& path) {
    release();
    m_file.setFileName(path);
    if (!m_file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        return false;
    }
    // flock and not fcntl: closing another descriptor of the container must not give it up.
    if (::flock(m_file.handle(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        release();
        return false;
    }
    return true;
}

void ContainerLock::release() {
    m_file.close();
}

} // namespace Tessel::Core
