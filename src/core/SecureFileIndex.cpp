// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SecureFileIndex.h"

#include "core/IndexJson.h"

#include <utility>

namespace Tessel::Core {

template <typename Entry>
bool SecureFileIndex::Table<Entry>::put(const QString& key, const Entry& entry) {
    if (key.isEmpty()) {
        return false;
    }
    if (const auto found = positions.constFind(key); found != positions.constEnd()) {
        entries[*found] = entry;
        dropEncodings(*found);
        return true;
    }
    positions.insert(key, entries.size());
    entries.append(entry);
    return true;
}

template <typename Entry>
bool SecureFileIndex::Table<Entry>::take(const QString& key) {
    const auto found = positions.constFind(key);
    if (found == positions.constEnd()) {
        return false;
    }
    const qsizetype position = *found;
    positions.remove(key);
    entries.removeAt(position);
    if (position < encodings.size()) {
        encodings.removeAt(position);
    }
    for (qsizetype& other : positions) {
        if (other > position) {
            --other;
        }
    }
    return true;
}

template <typename Entry>
void SecureFileIndex::Table<Entry>::dropEncodings(qsizetype position) {
    if (position < encodings.size()) {
        encodings[position] = {};
    }
}

bool SecureFileIndex::contains(const QString& vaultPath) const {
    return m_files.positions.contains(vaultPath);
}

bool SecureFileIndex::containsDirectory(const QString& path) const {
    return m_directories.positions.contains(path);
}

bool SecureFileIndex::addOrReplace(const VaultFileEntry& entry) {
    return m_files.put(entry.vaultPath, entry);
}

bool SecureFileIndex::addDirectory(const VaultDirectoryEntry& entry) {
    return m_directories.put(entry.path, entry);
}

bool SecureFileIndex::remove(const QString& vaultPath) {
    return m_files.take(vaultPath);
}

bool SecureFileIndex::removeDirectory(const QString& path) {
    return m_directories.take(path);
}

bool SecureFileIndex::renameFile(const QString& vaultPath, const QString& newPath) {
    const auto found = m_files.positions.constFind(vaultPath);
    if (found == m_files.positions.constEnd() || newPath.isEmpty() || contains(newPath)) {
        return false;
    }
    const qsizetype position = *found;
    m_files.positions.remove(vaultPath);
    m_files.positions.insert(newPath, position);
    m_files.entries[position].vaultPath = newPath;
    m_files.dropEncodings(position);
    return true;
}

void SecureFileIndex::renameFiles(const std::function<QString(const QString& vaultPath)>& newPath) {
    const Table<VaultFileEntry> before = std::exchange(m_files, {});
    reserveFiles(before.entries.size());
    m_files.encodings.reserve(before.encodings.size());
    for (qsizetype i = 0; i < before.entries.size(); ++i) {
        VaultFileEntry entry = before.entries.at(i);
        entry.vaultPath = newPath(entry.vaultPath);
        const qsizetype files = m_files.entries.size();
        static_cast<void>(addOrReplace(entry));
        const bool isAppended = m_files.entries.size() > files;
        if (isAppended && i < before.encodings.size()) {
            const bool isSame = entry.vaultPath == before.entries.at(i).vaultPath;
            m_files.encodings.append(isSame ? before.encodings.at(i) : Encodings());
        }
    }
}

void SecureFileIndex::clear() {
    m_files = {};
    clearDirectories();
}

void SecureFileIndex::clearDirectories() {
    m_directories = {};
}

void SecureFileIndex::reserveFiles(qsizetype files) {
    m_files.entries.reserve(files);
    m_files.positions.reserve(files);
}

QByteArray SecureFileIndex::toJson() const {
    return IndexJson::toJson(*this);
}

SecureFileIndex SecureFileIndex::fromJson(const QByteArray& json) {
    return IndexJson::fromJson(json);
}

} // namespace Tessel::Core
