// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QFile>
#include <QString>
#include <QTemporaryDir>

#include <functional>

namespace Tessel::Core {

/// The folder in the system's temporary folder in which a compaction rebuilds the container. It is
/// locked while the object lives and removed with it, unless it is kept.
class CompactionFolder {
public:
    CompactionFolder();
    ~CompactionFolder();
    Q_DISABLE_COPY_MOVE(CompactionFolder)

    [[nodiscard]] bool isValid() const { return m_folder.isValid(); }
    [[nodiscard]] QString path() const { return m_folder.path(); }
    /// The path of the rebuilt container.
    [[nodiscard]] QString containerPath() const;
    /// Keeps the folder: the rebuilt container may be the only one.
    void keep() { m_isKept = true; }

    /// Removes the rebuilt containers, and their folders, that earlier compactions of this account
    /// left, if @p isUnneeded returns true for the container's path.
    static void removeLeftovers(const std::function<bool(const QString& path)>& isUnneeded);

private:
    QTemporaryDir m_folder;
    int m_lock = -1;
    bool m_isKept = false;
};

} // namespace Tessel::Core
