// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerCopy.h"

#include <QString>

class QFile;

namespace Tessel::Core {

enum class ReplacementResult {
    /// The new container is on the drive, the old one is gone.
    Done,
    /// The old container is where it was.
    NothingDone,
    /// The drive has no container: neither the old one nor a part of the new one.
    NoneLeft,
    /// The new container is there but its folder could not be synced, or a part of it is and could
    /// not be removed. The old one is still set aside where there was room for both.
    Unfinished
};

/// Puts a copy of the rebuilt container in the place of the one at @p path, which is no link; @p
/// old is that one, open for reading. Where the drive has room for both, the old one is set aside
/// until the new one is on the drive; elsewhere it is deleted first. The new file gets the old
/// one's permissions.
/// @param progress is first called when the new file is there and has no bytes yet
[[nodiscard]] ReplacementResult replaceContainer(const QString& rebuiltPath, const QString& path,
                                                 QFile& old, const CopyProgress& progress);

} // namespace Tessel::Core
