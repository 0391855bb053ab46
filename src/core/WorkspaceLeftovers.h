// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/WorkspaceNote.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace Tessel::Core {

/// Decrypted copies in the system's temporary folder that runs of this account left because they
/// ended without locking. Runs at work, and those of other accounts, are not touched.
class WorkspaceLeftovers {
public:
    /// Removes the copies that are unchanged since they were written or taken back, and folders
    /// that are then empty. Changed copies stay, and so does every file that no run has noted.
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
