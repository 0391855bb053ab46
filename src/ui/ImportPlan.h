// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace Tessel::UI {

/// A file of the computer and the vault folder that it is imported to.
struct ImportSource {
    QString sourcePath;
    /// Empty for the root.
    QString directory;
};

/// What is to be imported, in order.
struct ImportPlan {
    /// The vault folder that everything goes to; empty for the root.
    QString directory;
    QList<ImportSource> files;
    /// Vault folders to be made by themselves, because they hold no file.
    QStringList emptyDirectories;
    /// What can be neither imported nor listed: links to folders, which may form a loop, broken
    /// links, devices, folders that cannot be read or whose name is not valid in the vault, names
    /// that are not UTF-8.
    QStringList unusable;
};

/// The plan for importing the files and folders @p paths into the vault folder @p directory. A
/// folder is imported with everything in it, hidden files too, into a folder of its own name.
[[nodiscard]] ImportPlan planImport(const QStringList& paths, const QString& directory);

} // namespace Tessel::UI
