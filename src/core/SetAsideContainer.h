// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

class QFile;

namespace Tessel::Core {

struct ContainerDocument;

// A compaction renames the old container to a name beside it while it writes the new one. If it is
// interrupted there, the old one is put back (docs/recovery.md).

/// The path that @p path leads to through links; no file has to be there.
[[nodiscard]] QString withoutLinks(const QString& path);

/// The name beside the container at @p containerPath under which it is set aside.
[[nodiscard]] QString setAsidePath(const QString& containerPath);

/// Whether a container is set aside beside that one and no compaction is at work on it.
[[nodiscard]] bool hasSetAsideContainer(const QString& containerPath);

/// Reads the document of the set-aside container, as far as hasSetAsideContainer() finds one.
[[nodiscard]] bool readSetAside(const QString& containerPath, ContainerDocument* out);

/// Puts the set-aside container back if there is nothing at @p containerPath, or an incomplete
/// copy. It needs no password; unlocking does the same and more.
/// @return whether it was put back
bool recoverContainer(const QString& containerPath);

enum class SetAsideResult {
    /// The container is on the drive under its other name.
    Done,
    /// The file system cannot rename it, or the name is taken; nothing has changed.
    Refused,
    /// The drive fails; the container was put back where that was possible.
    Failed
};

/// Sets the container at @p path aside; at its path there is then an empty file or none.
/// @param path no link
/// @param container is open there; until it is closed, no recovery touches the set-aside file
[[nodiscard]] SetAsideResult setAside(const QString& path, QFile& container);

/// Renames the set-aside container to @p containerPath, replacing what is there, and waits until
/// the drive has it. @return whether it was renamed.
bool putBack(const QString& containerPath);

/// Removes an empty file or an incomplete copy under the set-aside name, if the container can be
/// read: setting aside or putting back was interrupted.
void removeUnfinished(const QString& containerPath);

/// Removes the set-aside container.
void removeSetAside(const QString& containerPath);

/// Whether there is no file at @p path, or one whose header and end can be read. A container that
/// the drive fails to read is not known to be damaged.
[[nodiscard]] bool isMissingOrReadable(const QString& path);

} // namespace Tessel::Core
