// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace Tessel::UI {

/// A file of the computer and the folder of the vault it is to be imported to.
struct ImportSource {
    QString sourcePath;
    /// Empty for the root.
    QString directory;
};

/// What is to be imported, in order.
struct ImportPlan {
    /// The folder of the vault that all of it goes to; empty for the root.
    QString directory;
    QList<ImportSource> files;
    /// Folders of the vault that no file would bring along, because nothing is in them.
    QStringList emptyDirectories;
    /// What cannot be imported as a file or looked into: links to folders, which may lead round in
    /// a circle, links that lead nowhere, devices, folders that may not be read or whose name
    /// cannot be one in the vault, names that are no UTF-8.
    QStringList unusable;
};

/// The plan for @p paths, files and folders, into the folder @p directory of the vault. A folder
/// brings everything in it, hidden files too, into a folder of its own name.
[[nodiscard]] ImportPlan planImport(const QStringList& paths, const QString& directory);

} // namespace Tessel::UI
