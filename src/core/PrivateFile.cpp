// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/PrivateFile.h"

#include <QFileInfo>
#include <QSaveFile>

namespace Tessel::Core {

bool openPrivately(QSaveFile& file) {
    const bool replaces = QFileInfo::exists(file.fileName());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        return false;
    }
    if (!replaces) {
        // FAT has no modes.
        static_cast<void>(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    }
    return true;
}

} // namespace Tessel::Core
