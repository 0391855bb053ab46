// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFile>
#include <QString>

namespace Tessel::Core {

/// An advisory lock on a container, held for as long as a window has its vault unlocked.
///
/// It keeps a second window from working on the same container, and its open descriptor makes the
/// desktop's "safely remove" say that the drive is in use. The engine itself does not ask for it.
class ContainerLock {
public:
    ContainerLock() = default;
    Q_DISABLE_COPY_MOVE(ContainerLock)

    /// Takes the lock on the file at @p path, giving up the one held before.
    /// @return false when another window holds it or the file cannot be opened; true also on file
    ///         systems that know no locks.
    [[nodiscard]] bool acquire(const QString& path);
    void release();

private:
    QFile m_file;
};

} // namespace Tessel::Core
