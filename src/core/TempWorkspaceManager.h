// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QDir>
#include <QString>

#include <memory>

class QFile;
struct stat;

namespace Tessel::Core {

/// The private folder for decrypted copies: "Tessel/UUID" in the system's temporary folder, a new
/// UUID for each object. It mirrors the vault's folders.
///
/// Once prepared, the folder is kept open, and copies are created, read and removed through its
/// descriptor: another account that exchanges what the path leads to reaches none of them. Copies
/// of the object share the open folder.
class TempWorkspaceManager {
public:
    /// Where the path of the workspace leads.
    enum class Place {
        Here,      ///< to the folder that is open
        Gone,      ///< the folder has been removed, or was never prepared
        Elsewhere, ///< the folder was moved away, or something else is in its place
    };

    /// Chooses the folder; creates nothing.
    TempWorkspaceManager();

    /// Creates the folder, for this account alone, and missing folders above it. "Tessel" is
    /// created for all accounts. @return false also when "Tessel" belongs to an account that could
    /// exchange the folder, and when the folder's name is taken by another account.
    [[nodiscard]] bool prepare();
    /// Absolute path of the folder.
    [[nodiscard]] QString workspacePath() const;
    /// The path of the copy of @p vaultPath.
    [[nodiscard]] QString pathForVaultFile(const QString& vaultPath) const;
    /// Removes the folder and everything in it. Links are removed, not followed. A folder that was
    /// moved away is emptied, and whatever has its name now is left alone.
    /// @return false when something could not be removed; true when there was nothing.
    [[nodiscard]] bool cleanup();

    [[nodiscard]] Place place() const;
    /// Opens the copy of @p vaultPath for writing, empty, and creates the folders above it. A link,
    /// and anything else that is not a plain file of ours, is removed and not written to. Prepares
    /// the workspace again if it was removed.
    [[nodiscard]] bool openForWriting(const QString& vaultPath, QFile* copy);
    /// Opens the copy for reading, if it is a regular file that can be reached without a link.
    [[nodiscard]] bool openForReading(const QString& vaultPath, QFile* copy) const;
    /// Notes that the vault holds the copy's contents of the time when it had this @p status. If
    /// this run is killed, a later one removes the copy unless it has changed since.
    /// @return false when the note cannot be written.
    [[nodiscard]] bool noteStored(const QString& vaultPath, const struct stat& status);

private:
    struct OpenWorkspace;

    /// Forgets the folder and its note. @return true.
    bool closeWorkspace();

    QDir m_workspace;
    std::shared_ptr<OpenWorkspace> m_open;
};

} // namespace Tessel::Core
