// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

namespace Tessel::Core {

/// One decrypted copy that is watched for changes.
struct TrackedTempFile {
    QString vaultPath;
    /// Absolute path of the copy.
    QString tempPath;
    /// The copy's modification time when it was tracked.
    QDateTime lastKnownModifiedUtc;
};

/// Knows which copies exist and which changed since they were tracked. Only modification times
/// are compared: a copy counts as changed when its time is later than the recorded one.
class FileSyncManager {
public:
    /// Records the copy under @p vaultPath, replacing an earlier record.
    /// @return false when @p tempPath is not an existing regular file.
    [[nodiscard]] bool track(const QString& vaultPath, const QString& tempPath);
    /// From now on the copy counts as changed when its time is later than @p modifiedUtc. Does
    /// nothing for a path that is not tracked.
    void setLastKnownModified(const QString& vaultPath, const QDateTime& modifiedUtc);
    void untrack(const QString& vaultPath);
    void clear();

    /// False for a path that is not tracked and for a copy that is gone.
    [[nodiscard]] bool isModified(const QString& vaultPath) const;
    [[nodiscard]] QList<TrackedTempFile> trackedFiles() const;
    [[nodiscard]] QList<TrackedTempFile> modifiedFiles() const;

private:
    QHash<QString, TrackedTempFile> m_tracked;
};

} // namespace Tessel::Core
