// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SameFile.h"

#include <QFile>

#include <sys/stat.h>

namespace Tessel::Core {

namespace {

bool statusBehind(const QString& path, struct stat* status) {
    return ::stat(QFile::encodeName(path).constData(), status) == 0;
}

} // namespace

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool isSameFile(const QString& a, const QString& b) {
    struct stat first = {};
    struct stat second = {};
    return statusBehind(a, &first) && statusBehind(b, &second) && isSameFile(first, second);
}

bool isSameFile(const QString& path, const QFileDevice& open) {
    struct stat named = {};
    struct stat opened = {};
    return statusBehind(path, &named) && ::fstat(open.handle(), &opened) == 0 &&
           isSameFile(named, opened);
}

} // namespace Tessel::Core
