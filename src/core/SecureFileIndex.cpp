// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SecureFileIndex.h"

#include "core/IndexJson.h"

namespace Tessel::Core {

namespace {

// Both lists work alike: a list in insertion order and a hash from key to position.
template <typename Entry>
bool putEntry(QList<Entry>* list, QHash<QString, qsizetype>* positions, const QString& key,
              const Entry& entry) {
    if (key.isEmpty()) {
        return false;
    }
    if (const auto found = positions->constFind(key); found != positions->constEnd()) {
        (*list)[*found] = entry;
        return true;
    }
    positions->insert(key, list->size());
    list->append(entry);
    return true;
}

template <typename Entry>
bool takeEntry(QList<Entry>* list, QHash<QString, qsizetype>* positions, const QString& key) {
    const auto found = positions->constFind(key);
    if (found == positions->constEnd()) {
        return false;
    }
    const qsizetype position = *found;
    positions->erase(found);
    list->removeAt(position);
    for (qsizetype& other : *positions) {
        if (other > position) {
            --other;
        }
    }
    return true;
}

} // namespace

bool SecureFileIndex::contains(const QString& vaultPath) const {
    return m_entryPositions.contains(vaultPath);
}

bool SecureFileIndex::containsDirectory(const QString& path) const {
    return m_directoryPositions.contains(path);
}

bool SecureFileIndex::addOrReplace(const VaultFileEntry& entry) {
    return putEntry(&m_entries, &m_entryPositions, entry.vaultPath, entry);
}

bool SecureFileIndex::addDirectory(const VaultDirectoryEntry& entry) {
    return putEntry(&m_directories, &m_directoryPositions, entry.path, entry);
}

bool SecureFileIndex::remove(const QString& vaultPath) {
    return takeEntry(&m_entries, &m_entryPositions, vaultPath);
}

bool SecureFileIndex::removeDirectory(const QString& path) {
    return takeEntry(&m_directories, &m_directoryPositions, path);
}

void SecureFileIndex::clear() {
    m_entries.clear();
    m_directories.clear();
    m_entryPositions.clear();
    m_directoryPositions.clear();
}

void SecureFileIndex::reserveFiles(qsizetype files) {
    m_entries.reserve(files);
    m_entryPositions.reserve(files);
}

QByteArray SecureFileIndex::toJson() const {
    return IndexJson::toJson(*this);
}

SecureFileIndex SecureFileIndex::fromJson(const QByteArray& json) {
    return IndexJson::fromJson(json);
}

} // namespace Tessel::Core
