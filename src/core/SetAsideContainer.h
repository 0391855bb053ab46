// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

class QFile;

namespace Tessel::Core {

struct ContainerDocument;

// A compaction renames the old container to a name beside it while it writes the new one. Where the
// compaction is cut there, the old one is put back in place.

/// The file that @p path leads to through links, also when there is none yet.
[[nodiscard]] QString withoutLinks(const QString& path);

/// The name beside the container at @p containerPath under which it is set aside.
[[nodiscard]] QString setAsidePath(const QString& containerPath);

/// Whether a container is set aside there that no compaction at work needs.
[[nodiscard]] bool hasSetAsideContainer(const QString& containerPath);

/// Reads the document of the container that is set aside there, if no compaction at work needs it.
[[nodiscard]] bool readSetAside(const QString& containerPath, ContainerDocument* out);

/// Puts the container back that is set aside there, when at @p containerPath there is nothing or a
/// copy that was cut. It needs no password; where one is at hand, unlocking does the same and more.
/// @return whether it was put back
bool recoverContainer(const QString& containerPath);

enum class SetAsideResult {
    /// The container is on the drive under its other name.
    Done,
    /// The file system does not rename it, or the name is taken; nothing has changed.
    Refused,
    /// The drive fails; the container is where it was, as far as that was possible.
    Failed
};

/// Sets the container at @p path aside, which is no link, and open; at its path there is an empty
/// file then, or none. Until @p container is closed, nothing else takes it for the remains of a
/// compaction that was cut.
[[nodiscard]] SetAsideResult setAside(const QString& path, QFile& container);

/// Puts the set-aside container in the place of whatever is at @p containerPath, and waits until
/// the drive has it there. @return whether it was renamed.
bool putBack(const QString& containerPath);

/// Removes what setting a container aside, or putting it back, left under its name when it was cut:
/// an empty file or a part of a copy, beside a container.
void removeUnfinished(const QString& containerPath);

/// Removes what is set aside there.
void removeSetAside(const QString& containerPath);

/// Whether there is no file at @p path, or one whose header and end can be read from the drive. A
/// container that a drive fails to read is not a damaged one.
[[nodiscard]] bool isMissingOrReadable(const QString& path);

} // namespace Tessel::Core
