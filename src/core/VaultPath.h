// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QString>

#include <optional>

namespace Tessel::Core {

/// The canonical form of a vault path: components joined by single slashes, none at the ends,
/// each trimmed. "\" counts as a separator. Empty when a component is blank, "." or "..", or when
/// nothing is left. Letter case is kept.
[[nodiscard]] QString normalizedVaultPath(QString path);

/// Whether the name, without blanks around it, can be one component of a vault path.
[[nodiscard]] bool isValidVaultName(const QString& name);

/// The path of @p name in the folder @p directory, empty for the root. Empty when that cannot be
/// the path of an item.
[[nodiscard]] QString joinVaultPath(const QString& directory, const QString& name);

/// The text before the last "/"; empty (the root) when there is none.
[[nodiscard]] QString parentVaultPath(const QString& path);

/// The text after the last "/", or the whole path.
[[nodiscard]] QString vaultBaseName(const QString& path);

/// Whether two vault paths name the same item: equal without regard to letter case.
[[nodiscard]] bool sameVaultPath(const QString& a, const QString& b);

/// The first file or folder of the index with this path, ignoring letter case. Nothing when there
/// is none.
[[nodiscard]] std::optional<VaultFileEntry> findFile(const SecureFileIndex& index,
                                                     const QString& path);
[[nodiscard]] std::optional<VaultDirectoryEntry> findDirectory(const SecureFileIndex& index,
                                                               const QString& path);

/// Whether some file of the index has this path, ignoring letter case.
[[nodiscard]] bool indexContainsFilePath(const SecureFileIndex& index, const QString& path);

/// Whether some folder of the index has this path, ignoring letter case.
[[nodiscard]] bool indexContainsDirectoryPath(const SecureFileIndex& index, const QString& path);

/// Whether an index that names every ancestor folder of @p path can fit into a container. One that
/// cannot is not worth building: the folders of a very long path take its length squared.
[[nodiscard]] bool ancestorsFitIntoAnIndex(const QString& path);

/// Adds every missing ancestor folder of @p path to the index, all with the same current time.
void ensureParentDirectories(SecureFileIndex* index, const QString& path);

/// Whether @p path is beneath @p directory, ignoring letter case; a folder is not inside itself.
[[nodiscard]] bool pathIsInsideDirectory(const QString& path, const QString& directory);

} // namespace Tessel::Core
