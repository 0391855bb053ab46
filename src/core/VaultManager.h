// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"
#include "core/ContainerManager.h"
#include "core/CryptoManager.h"
#include "core/FileSyncManager.h"
#include "core/SecureFileIndex.h"
#include "core/TempWorkspaceManager.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QIODevice;

namespace Tessel::Core {

class VaultSession;

enum class WithoutRecord;

enum class VaultState { Locked = 0, Unlocked = 1 };

/// The vault engine's entry point: opens and locks a container, and changes what is in it.
///
/// Operations are synchronous and belong to one thread. They return false without a reason: a
/// wrong password, altered data and a missing file look alike. An operation that changes the vault
/// has saved the change in the container when it returns true, and has changed nothing when it
/// returns false, except where it says otherwise. Vault paths may be given in any form that
/// normalizedVaultPath() accepts and are matched without regard to letter case.
class VaultManager {
public:
    /// Called on the caller's thread with (done, total, name); see each operation for the units.
    using Progress = std::function<void(qint64 done, qint64 total, const QString& name)>;

    /// Plaintext bytes in every block of a file but the last.
    static constexpr qint64 ChunkBytes = qint64{16} * 1024 * 1024;

    VaultManager();
    /// Does not lock the vault; the key in memory is overwritten.
    ~VaultManager();
    VaultManager(VaultManager&& other) noexcept;
    VaultManager& operator=(VaultManager&& other) noexcept;
    Q_DISABLE_COPY(VaultManager)

    [[nodiscard]] VaultState state() const { return m_state; }
    /// A copy of the index; after locking, the index as it was.
    [[nodiscard]] SecureFileIndex fileIndex() const { return m_index; }
    /// The opened copies that have changed.
    [[nodiscard]] QList<TrackedTempFile> modifiedOpenFiles() const;

    // --- Session ---------------------------------------------------------------------------

    /// Writes a new, empty container at @p path, replacing what is there. The vault is locked
    /// afterwards. @return false for an empty password or when the container cannot be written.
    [[nodiscard]] bool createVault(const QString& path, const QByteArray& password);
    /// Opens the container. When only the temporary workspace cannot be created, the result is
    /// false and the vault is nevertheless unlocked.
    [[nodiscard]] bool unlockVault(const QString& path, const QByteArray& password);
    /// Takes changed copies back into the vault, removes the workspace and drops the key.
    /// @return false with the vault still unlocked when a copy could not be taken back; false with
    ///         the vault locked when the workspace could not be removed.
    [[nodiscard]] bool lockVault();
    /// Seals the master key under a new password; only while locked. The payload and the index stay
    /// as they are.
    [[nodiscard]] bool changePassword(const QString& path, const QByteArray& oldPassword,
                                      const QByteArray& newPassword);
    /// Seals @p index under a fresh nonce, rewrites the header and makes it the vault's index.
    [[nodiscard]] bool saveIndex(const SecureFileIndex& index);

    // --- Files ------------------------------------------------------------------------------

    /// Stores the file at @p sourcePath as @p vaultPath, replacing a file of the same path; missing
    /// folders are created. @p progress counts plaintext bytes, is called after each block
    /// with the normalized vault path, and may be empty. A source that reports a size of 0 is read
    /// to its end; its total is 0. A failed import cuts the container back to its former length.
    [[nodiscard]] bool importFile(const QString& sourcePath, const QString& vaultPath,
                                  const Progress& progress);
    [[nodiscard]] bool importFile(const QString& sourcePath, const QString& vaultPath);
    /// Writes the plaintext of the file to @p device, which is open for writing. Every block is
    /// authenticated before it is written. The path is taken as given, not normalized.
    [[nodiscard]] bool writeVaultFileToDevice(const QString& vaultPath, QIODevice* device) const;
    /// Writes the plaintext to @p destinationPath, created or truncated. What was written before a
    /// failure stays there. Pipes and devices are refused.
    [[nodiscard]] bool exportFile(const QString& vaultPath, const QString& destinationPath) const;

    // --- Folders and paths ------------------------------------------------------------------

    /// Moves a file into a folder that exists; empty is the root. Refused while it is open.
    [[nodiscard]] bool moveFile(const QString& vaultPath, const QString& targetDirectory);
    /// Gives a file a new whole path. A change of letter case alone is refused, and so is a file
    /// that is open. No folders are created.
    [[nodiscard]] bool renameFile(const QString& vaultPath, const QString& newVaultPath);
    /// Removes a file from the index; its blocks stay until compaction.
    [[nodiscard]] bool deleteFile(const QString& vaultPath);
    /// Creates a folder and its missing ancestors.
    [[nodiscard]] bool createDirectory(const QString& path);
    /// Renames or moves a folder with everything in it; missing ancestors of the new path are
    /// created. Refused while a file in it is open.
    [[nodiscard]] bool renameDirectory(const QString& path, const QString& newPath);
    /// Deletes a folder that holds neither files nor folders.
    [[nodiscard]] bool deleteDirectory(const QString& path);

    // --- Compaction -------------------------------------------------------------------------

    /// Rebuilds the container on the local disk without the blocks that nothing refers to, and
    /// replaces the old one by it. @p progress counts plaintext bytes while rebuilding and
    /// container bytes while copying back, and may be empty.
    /// @param error may be null. Empty after a failure that left the old container in place; else
    ///        the absolute path of the rebuilt container, which was kept because it is now the
    ///        only one.
    [[nodiscard]] bool compactVault(const Progress& progress, QString* error);

    // --- Opened copies ----------------------------------------------------------------------

    /// Writes a decrypted copy into the workspace and watches it.
    /// @param tempPath receives the copy's path; untouched on failure.
    [[nodiscard]] bool prepareFileForEditing(const QString& vaultPath, QString* tempPath);
    /// Imports every changed copy; stops at the first that fails. They still count as changed.
    [[nodiscard]] bool syncModifiedTempFiles();
    /// Imports the copy of this one file if it changed; it then counts as unchanged until it is
    /// saved again. True when there is nothing to import. After a failure it is as it was.
    [[nodiscard]] bool syncModifiedTempFile(const QString& vaultPath);
    /// Writes the copy of this file, if it is open, again from the vault: for a file that was
    /// replaced. Only what is saved in it from now on counts as a change, even when it cannot be
    /// written and the result is false.
    [[nodiscard]] bool refreshTempFile(const QString& vaultPath);

private:
    /// A copy as it was taken back by a lock that then failed.
    struct TakenBack {
        QDateTime modifiedUtc;
        qint64 size = -1;
        /// Of the file in the vault that was made from it.
        QString fileId;

        bool operator==(const TakenBack&) const = default;
    };
    using CopyTest = std::function<bool(const TrackedTempFile& copy)>;

    [[nodiscard]] bool isUnlocked() const { return m_state == VaultState::Unlocked; }

    /// Reads the document of the unlocked container, and its index too if another session has
    /// changed it. Every change begins here and works on the index found.
    [[nodiscard]] bool beginChange(ContainerDocument* document);
    /// Saves @p index with a document that beginChange() gave; it is then the index in memory.
    /// Deletions are saved also where no redo record fits.
    [[nodiscard]] bool save(ContainerDocument* document, const SecureFileIndex& index,
                            WithoutRecord withoutRecord);

    /// The file as the container holds it now. Nothing when the container has not changed since
    /// the index was read, or has no such file.
    [[nodiscard]] std::optional<VaultFileEntry> fileOnDrive(const QString& path) const;

    [[nodiscard]] TakenBack presentState(const TrackedTempFile& copy) const;
    /// Imports every changed copy but those that an earlier try of this lock has taken back.
    [[nodiscard]] bool syncForLock();
    /// Calls @p takeBackOne for every changed copy that is @p concerned, up to the first for which
    /// it returns false. @return false also when the workspace's path leads somewhere else.
    [[nodiscard]] bool takeBackChanged(const CopyTest& concerned,
                                       const CopyTest& takeBackOne) const;
    /// Imports the copy, which may not be reached through a link.
    [[nodiscard]] bool takeBack(const TrackedTempFile& copy);

    VaultState m_state = VaultState::Locked;
    SecureFileIndex m_index;
    std::unique_ptr<VaultSession> m_session;
    TempWorkspaceManager m_workspace;
    FileSyncManager m_fileSync;
    /// By vault path as tracked.
    QHash<QString, TakenBack> m_takenBack;
};

} // namespace Tessel::Core
