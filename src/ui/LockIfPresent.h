// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerLock.h"

#include <QFileInfo>
#include <QString>

namespace Tessel::UI {

/// Takes the lock on a file that is about to be replaced.
/// @return false when another window has the vault in it open; true also when there is no file
[[nodiscard]] inline bool lockIfPresent(Core::ContainerLock* lock, const QString& path) {
    return !QFileInfo::exists(path) || lock->acquire(path);
}

} // namespace Tessel::UI
