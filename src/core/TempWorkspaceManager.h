// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDir>
#include <QString>

namespace Tessel::Core {

/// The private folder for decrypted copies: "Tessel/UUID" in the system's temporary folder, a new
/// UUID for each object. It mirrors the vault's folders.
class TempWorkspaceManager {
public:
    /// Chooses the folder; creates nothing.
    TempWorkspaceManager();

    /// Creates the folder and what is missing above it.
    [[nodiscard]] bool prepare();
    /// Absolute path of the folder.
    [[nodiscard]] QString workspacePath() const;
    /// Where the copy of @p vaultPath lies.
    [[nodiscard]] QString pathForVaultFile(const QString& vaultPath) const;
    /// Removes the folder with all that is in it. Links are removed, not followed.
    /// @return false when something could not be removed; true when there was nothing.
    [[nodiscard]] bool cleanup();

private:
    QDir m_workspace;
};

} // namespace Tessel::Core
