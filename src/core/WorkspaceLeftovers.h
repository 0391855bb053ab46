// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/WorkspaceNote.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace Tessel::Core {

/// What runs of this account that ended without locking, killed for instance, have left in the
/// system's temporary folder. Runs that live, and other accounts' runs, are not touched.
class WorkspaceLeftovers {
public:
    /// Removes the copies that are as they were made or taken back, and the folders that are empty
    /// then. Copies that changed stay, and so does every file that no run has noted.
    void clear();
    /// Absolute paths of the folders in which files stay that the user has not been told of.
    [[nodiscard]] QStringList untoldFolders() const;
    /// Notes that the user has been told, in this run or in later ones.
    void markTold();

private:
    struct Leftover {
        QString folder;
        WorkspaceNote note;
    };

    void clearRun(int parent, const QString& runsFolder, const QByteArray& workspace);

    std::vector<Leftover> m_untold;
};

} // namespace Tessel::Core
