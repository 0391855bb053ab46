// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultPath.h"

#include "core/ContainerLayout.h"

#include <QStringList>

#include <algorithm>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr QChar Separator(u'/');

// A slash in first place has nothing before it and does not count.
qsizetype lastSeparator(const QString& path) {
    const qsizetype slash = path.lastIndexOf(Separator);
    return slash >= 1 ? slash : -1;
}

template <typename Entry>
using PathMember = QString Entry::*;

template <typename Entry>
std::optional<Entry> findByPath(const QList<Entry>& entries, const QString& path,
                                PathMember<Entry> pathOf) {
    const auto found = std::find_if(entries.cbegin(), entries.cend(), [&](const Entry& entry) {
        return sameVaultPath(entry.*pathOf, path);
    });
    return found == entries.cend() ? std::nullopt : std::optional<Entry>(*found);
}

} // namespace

QString normalizedVaultPath(QString path) {
    path = path.trimmed();
    path.replace(u'\\', Separator);
    QStringList components = path.split(Separator, Qt::SkipEmptyParts);
    for (QString& component : components) {
        component = component.trimmed();
        if (!isValidVaultName(component)) {
            return {};
        }
    }
    return components.join(Separator);
}

bool isValidVaultName(const QString& name) {
    const QString trimmed = name.trimmed();
    return !trimmed.isEmpty() && !trimmed.contains(Separator) && !trimmed.contains(u'\\') &&
           trimmed != "."_L1 && trimmed != ".."_L1;
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
    // Folding the case keeps a text's length, and most paths differ in it.
    return a.size() == b.size() && a.compare(b, Qt::CaseInsensitive) == 0;
}

std::optional<VaultFileEntry> findFile(const SecureFileIndex& index, const QString& path) {
    return findByPath(index.entries(), path, &VaultFileEntry::vaultPath);
}

std::optional<VaultDirectoryEntry> findDirectory(const SecureFileIndex& index,
                                                 const QString& path) {
    return findByPath(index.directories(), path, &VaultDirectoryEntry::path);
}

bool indexContainsFilePath(const SecureFileIndex& index, const QString& path) {
    return findFile(index, path).has_value();
}

bool indexContainsDirectoryPath(const SecureFileIndex& index, const QString& path) {
    return findDirectory(index, path).has_value();
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
