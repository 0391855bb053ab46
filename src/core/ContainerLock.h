// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QString>

#include <memory>

class QFile;

namespace Tessel::Core {

/// An advisory lock on a container (flock), held for as long as a window has its vault unlocked.
///
/// It keeps a second window from working on the same container, and its open descriptor makes the
/// desktop's "safely remove" report that the drive is in use. The engine itself does not need it.
class ContainerLock {
public:
    ContainerLock();
    ~ContainerLock();
    Q_DISABLE_COPY_MOVE(ContainerLock)

    /// Takes the lock on the file at @p path, giving up the one held before.
    /// @return false when another window holds it, or when there is no regular file that can be
    ///         opened; true also on file systems without locks.
    [[nodiscard]] bool acquire(const QString& path);
    /// Takes the lock on the file that is at the path now, if it is another one: compaction and a
    /// restored backup replace it. The old file stays locked until the new one is.
    /// @return false when another window holds the new file, or without a lock that was acquired;
    ///         true when there is nothing at the path
    [[nodiscard]] bool follow();
    void release();

private:
    QString m_path;
    std::unique_ptr<QFile> m_file;
};

} // namespace Tessel::Core
