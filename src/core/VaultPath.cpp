// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultPath.h"

#include "core/ContainerLayout.h"
#include "core/SecureFileIndex.h"

#include <QStringList>

#include <algorithm>

namespace Tessel::Core {

namespace {

constexpr QLatin1Char Separator('/');

// A slash in first place has nothing before it and does not count.
qsizetype lastSeparator(const QString& path) {
    const qsizetype slash = path.lastIndexOf(Separator);
    return slash >= 1 ? slash : -1;
}

} // namespace

QString normalizedVaultPath(QString path) {
    path = path.trimmed();
    path.replace(QLatin1Char('\\'), Separator);
    QStringList components = path.split(Separator, Qt::SkipEmptyParts);
    for (QString& component : components) {
        component = component.trimmed();
        if (component.isEmpty() || component == QLatin1String(".") ||
            component == QLatin1String("..")) {
            return {};
        }
    }
    return components.join(Separator);
}

QString joinVaultPath(const QString& directory, const QString& name) {
    return normalizedVaultPath(directory.isEmpty() ? name : directory + u'/' + name);
}

QString parentVaultPath(const QString& path) {
    const qsizetype slash = lastSeparator(path);
    return slash < 0 ? QString() : path.left(slash);
}

QString vaultBaseName(const QString& path) {
    return path.mid(path.lastIndexOf(Separator) + 1);
}

bool sameVaultPath(const QString& a, const QString& b) {
    // Letters keep their size when case is ignored, and most paths differ in length.
    return a.size() == b.size() && a.compare(b, Qt::CaseInsensitive) == 0;
}

bool indexContainsFilePath(const SecureFileIndex& index, const QString& path) {
    const QList<VaultFileEntry> entries = index.entries();
    return std::any_of(entries.cbegin(), entries.cend(), [&path](const VaultFileEntry& entry) {
        return sameVaultPath(entry.vaultPath, path);
    });
}

bool indexContainsDirectoryPath(const SecureFileIndex& index, const QString& path) {
    const QList<VaultDirectoryEntry> folders = index.directories();
    return std::any_of(
        folders.cbegin(), folders.cend(),
        [&path](const VaultDirectoryEntry& folder) { return sameVaultPath(folder.path, path); });
}

bool ancestorsFitIntoAnIndex(const QString& path) {
    qint64 characters = 0;
    for (qsizetype slash = path.indexOf(Separator); slash >= 0;
         slash = path.indexOf(Separator, slash + 1)) {
        characters += slash;
    }
    return characters <= ContainerLayout::HeaderRegionBytes;
}

void ensureParentDirectories(SecureFileIndex* index, const QString& path) {
    const qsizetype slash = path.lastIndexOf(Separator);
    if (slash < 0) {
        return;
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QString prefix;
    const QStringList components = path.left(slash).split(Separator, Qt::SkipEmptyParts);
    for (const QString& component : components) {
        prefix = prefix.isEmpty() ? component : prefix + Separator + component;
        if (!indexContainsDirectoryPath(*index, prefix)) {
            static_cast<void>(index->addDirectory({prefix, now, now}));
        }
    }
}

bool pathIsInsideDirectory(const QString& path, const QString& directory) {
    return path.startsWith(directory + Separator, Qt::CaseInsensitive);
}

} // namespace Tessel::Core
