// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/FileSyncManager.h"

#include <QFileInfo>

namespace Tessel::Core {

bool FileSyncManager::track(const QString& vaultPath, const QString& tempPath) {
    const QFileInfo copy(tempPath);
    if (!copy.isFile()) {
        return false;
    }
    m_tracked.insert(vaultPath, {vaultPath, tempPath, copy.lastModified().toUTC()});
    return true;
}

void FileSyncManager::setLastKnownModified(const QString& vaultPath, const QDateTime& modifiedUtc) {
    const auto record = m_tracked.find(vaultPath);
    if (record != m_tracked.end()) {
        record->lastKnownModifiedUtc = modifiedUtc;
    }
}

void FileSyncManager::untrack(const QString& vaultPath) {
    m_tracked.remove(vaultPath);
}

void FileSyncManager::clear() {
    m_tracked.clear();
}

bool FileSyncManager::isModified(const QString& vaultPath) const {
    const auto record = m_tracked.constFind(vaultPath);
    if (record == m_tracked.constEnd()) {
        return false;
    }
    const QFileInfo copy(record->tempPath);
    return copy.exists() && record->lastKnownModifiedUtc < copy.lastModified().toUTC();
}

QList<TrackedTempFile> FileSyncManager::trackedFiles() const {
    return m_tracked.values();
}

QList<TrackedTempFile> FileSyncManager::modifiedFiles() const {
    QList<TrackedTempFile> modified;
    for (const TrackedTempFile& record : m_tracked) {
        if (isModified(record.vaultPath)) {
            modified.append(record);
        }
    }
    return modified;
}

} // namespace Tessel::Core
