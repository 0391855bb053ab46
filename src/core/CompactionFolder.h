// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <functional>

namespace Tessel::Core {

/// The folder of the system's temporary folder in which a compaction rebuilds the container. It is
/// removed with the object unless it is kept, and locked while the object lives.
class CompactionFolder {
public:
    CompactionFolder();
    ~CompactionFolder();
    Q_DISABLE_COPY_MOVE(CompactionFolder)

    [[nodiscard]] bool isValid() const { return m_folder.isValid(); }
    [[nodiscard]] QString path() const { return m_folder.path(); }
    /// Where the rebuilt container belongs.
    [[nodiscard]] QString containerPath() const;
    /// Leaves the folder where it is: the rebuilt container may be the only one.
    void keep() { m_isKept = true; }

    /// Removes the rebuilt containers, and their folders, that compactions which have ended left
    /// behind, where @p isUnneeded says so of the container at a path. Only folders of this user
    /// count.
    static void removeLeftovers(const std::function<bool(const QString& path)>& isUnneeded);

private:
    QTemporaryDir m_folder;
    int m_lock = -1;
    bool m_isKept = false;
};

} // namespace Tessel::Core
