// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ImportPlan.h"

#include "core/VaultPath.h"
#include "ui/VaultNames.h"

#include <QDir>
#include <QFileInfo>

namespace Tessel::UI {

namespace {

void addFolder(ImportPlan* plan, const QFileInfo& folder, const QString& parent) {
    if (!isValidVaultName(folder.fileName())) {
        plan->unusable.append(folder.filePath());
        return;
    }
    const QString directory = Core::joinVaultPath(parent, folder.fileName());
    const QFileInfoList contents =
        QDir(folder.filePath())
            .entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                           QDir::Name);
    if (contents.isEmpty()) {
        plan->emptyDirectories.append(directory);
    }
    for (const QFileInfo& item : contents) {
        if (item.isFile()) {
            plan->files.append({item.filePath(), directory});
        } else if (item.isDir() && !item.isSymLink()) {
            addFolder(plan, item, directory);
        } else {
            plan->unusable.append(item.filePath());
        }
    }
}

} // namespace

ImportPlan planImport(const QStringList& paths, const QString& directory) {
    ImportPlan plan;
    for (const QString& path : paths) {
        const QFileInfo info(QDir::cleanPath(path));
        if (info.isDir()) {
            addFolder(&plan, info, directory);
        } else {
            // What has gone in the meantime is refused by name with the others.
            plan.files.append({path, directory});
        }
    }
    return plan;
}

} // namespace Tessel::UI
