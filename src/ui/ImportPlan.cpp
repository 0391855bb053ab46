// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ImportPlan.h"

#include "core/VaultPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// The names in a folder as its file system has them; nothing when it cannot be read completely.
/// Qt lists a folder that it cannot read as empty, and Qt 6.8 stops at a name that is not UTF-8:
/// files would be left out unnoticed.
std::optional<QList<QByteArray>> namesIn(const QString& folder) {
    QList<QByteArray> names;
    std::error_code error;
    std::filesystem::directory_iterator item(QFile::encodeName(folder).toStdString(), error);
    while (!error && item != std::filesystem::directory_iterator()) {
        names.append(QByteArray::fromStdString(item->path().filename().native()));
        item.increment(error);
    }
    return error ? std::nullopt : std::optional(names);
}

/// Whether the name is UTF-8. Qt cannot open the files of other names.
bool isText(const QByteArray& name) {
    return QFile::encodeName(QFile::decodeName(name)) == name;
}

void addFolder(ImportPlan* plan, const QFileInfo& folder, const QString& parent) {
    const std::optional<QList<QByteArray>> names = namesIn(folder.filePath());
    if (!Core::isValidVaultName(folder.fileName()) || !names) {
        plan->unusable.append(folder.filePath());
        return;
    }
    QStringList contents;
    for (const QByteArray& name : *names) {
        const QString path = folder.filePath() + u'/' + QFile::decodeName(name);
        QStringList& list = isText(name) ? contents : plan->unusable;
        list.append(path);
    }
    contents.sort();
    const QString directory = Core::joinVaultPath(parent, folder.fileName());
    if (contents.isEmpty()) {
        plan->emptyDirectories.append(directory);
    }
    for (const QString& path : std::as_const(contents)) {
        const QFileInfo item(path);
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
    plan.directory = directory;
    for (const QString& path : paths) {
        const QFileInfo info(QDir::cleanPath(path));
        if (info.isDir() && info.isSymLink()) {
            plan.unusable.append(info.filePath());
        } else if (info.isDir()) {
            addFolder(&plan, info, directory);
        } else {
            // A file that has disappeared meanwhile is refused by name, with the others.
            plan.files.append({path, directory});
        }
    }
    return plan;
}

} // namespace Tessel::UI
