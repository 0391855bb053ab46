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
    /// The new container is there, but its folder could not be synced; or a part of it is there and
    /// could not be removed. The old one is still set aside if there was space for both.
    Unfinished
};

/// Replaces the container at @p path, which is no link, by a copy of the rebuilt one. Where the
/// drive has space for both, the old one is set aside until the new one is on the drive; elsewhere
/// it is deleted first. The new file gets the old one's owner and permissions.
/// @param old the container at @p path, open for reading
/// @param progress is first called when the new file is there and has no bytes yet
[[nodiscard]] ReplacementResult replaceContainer(const QString& rebuiltPath, const QString& path,
                                                 QFile& old, const CopyProgress& progress);

} // namespace Tessel::Core
