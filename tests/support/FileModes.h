// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFile>
#include <QString>

#include <sys/stat.h>

namespace Tessel::Tests {

/// Sets the umask for as long as the object exists.
class FileModeMask {
public:
    explicit FileModeMask(mode_t mask) : m_before(::umask(mask)) {}
    ~FileModeMask() { ::umask(m_before); }
    Q_DISABLE_COPY_MOVE(FileModeMask)

private:
    mode_t m_before;
};

/// The permission bits of a file; all bits if there is no file.
[[nodiscard]] inline mode_t modeOf(const QString& path) {
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777U
                                                                     : ~mode_t{0};
}

} // namespace Tessel::Tests
