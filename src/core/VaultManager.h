// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"
#include "core/ContainerManager.h"
#include "core/CryptoManager.h"
#include "core/FileSyncManager.h"
#include "core/HeaderWriter.h"
#include "core/SecretBytes.h"
#include "core/SecureFileIndex.h"
#include "core/TempWorkspaceManager.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QFile;
class QIODevice;

namespace Tessel::Core {

enum class VaultState { Locked = 0, Unlocked = 1 };

/// The vault engine's one entry point: a session on a container, and every operation on what is
/// in it.
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

    [[nodiscard]] VaultState state() const { return m_state; }
    /// A copy of the index; after locking, the index as it was.
    [[nodiscard]] SecureFileIndex fileIndex() const { return m_index; }
    /// The opened copies that changed since they were opened.
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
    /// Wraps the master key anew; only while locked. The payload and the index stay as they are.
    [[nodiscard]] bool changePassword(const QString& path, const QByteArray& oldPassword,
                                      const QByteArray& newPassword);
    /// Seals @p index under a fresh nonce, rewrites the header and makes it the vault's index.
    [[nodiscard]] bool saveIndex(const SecureFileIndex& index);

    // --- Files ------------------------------------------------------------------------------

    /// Stores the file at @p sourcePath as @p vaultPath, in place of a file of the same path;
    /// missing folders are created. @p progress counts plaintext bytes, is called after each block
    /// with the normalized vault path, and may be empty. A source that says it is empty is read to
    /// its end; its total is 0. A failed import leaves the container at its former length.
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
    /// Renames or moves a folder with all that is in it; missing ancestors of the new path are
    /// created. Refused while a file in it is open.
    [[nodiscard]] bool renameDirectory(const QString& path, const QString& newPath);
    /// Deletes a folder that holds neither files nor folders.
    [[nodiscard]] bool deleteDirectory(const QString& path);

    // --- Compaction -------------------------------------------------------------------------

    /// Rebuilds the container on the local disk without the blocks that nothing refers to and puts
    /// it in the place of the old one. @p progress counts plaintext bytes while rebuilding and
    /// container bytes while copying back, and may be empty.
    /// @param error may be null. Empty after a failure that left the old container in place; else
    ///        the absolute path of the rebuilt container, which was kept because it is now the
    ///        only one.
    [[nodiscard]] bool compactVault(const Progress& progress, QString* error);

    // --- Opened copies ----------------------------------------------------------------------

    /// Writes a decrypted copy into the workspace and watches it.
    /// @param tempPath receives the copy's path; untouched on failure.
    [[nodiscard]] bool prepareFileForEditing(const QString& vaultPath, QString* tempPath);
    /// Imports every changed copy; stops at the first that fails. They go on counting as changed.
    [[nodiscard]] bool syncModifiedTempFiles();
    /// Imports the copy of this one file if it changed; it then counts as unchanged until it is
    /// saved again. True when there is nothing to take back. After a failure it is as it was.
    [[nodiscard]] bool syncModifiedTempFile(const QString& vaultPath);
    /// Writes the copy of this file, if it is open, again from the vault: for a file that was
    /// replaced. Only what is saved in it from now on counts as a change, even when it cannot be
    /// written and the result is false.
    [[nodiscard]] bool refreshTempFile(const QString& vaultPath);

private:
    [[nodiscard]] QByteArray associatedData(const ContainerDocument& document,
                                            const QByteArray& purpose) const;
    [[nodiscard]] SecretBytes deriveSessionKey(const QByteArray& password,
                                               const ContainerCryptoMetadata& crypto) const;
    [[nodiscard]] QByteArray encryptMasterKey(const ContainerDocument& document,
                                              const QByteArray& password,
                                              const SecretBytes& masterKey) const;
    [[nodiscard]] SecretBytes decryptMasterKey(const ContainerDocument& document,
                                               const QByteArray& password) const;
    [[nodiscard]] QByteArray encryptIndex(const ContainerDocument& document,
                                          const SecureFileIndex& index) const;
    [[nodiscard]] bool decryptIndex(const ContainerDocument& document, SecureFileIndex* out) const;

    /// The document whose header protects the rewrite with @p index: the same wrapping, and the
    /// index in rows, sealed under a nonce of its own. Its index is empty when that fails.
    [[nodiscard]] ContainerDocument documentForRecord(const ContainerDocument& document,
                                                      const SecureFileIndex& index) const;
    /// Takes the index from a document that a redo record holds, and makes it one that a header
    /// can hold.
    [[nodiscard]] bool openRecordedIndex(ContainerDocument* document, SecureFileIndex* index) const;
    /// Takes the master key and the index from the document; no key is kept on failure.
    [[nodiscard]] bool openDocument(const ContainerDocument& document, const QByteArray& password,
                                    SecureFileIndex* index);
    /// The same from the container's redo record; the document is then one for a header.
    [[nodiscard]] bool openRedoRecord(const QString& path, const QByteArray& password,
                                      ContainerDocument* document, SecureFileIndex* index);
    /// Whether the container's header opens with the session's key.
    [[nodiscard]] bool headerOpens() const;
    /// Leaves no redo record: it is put into its header's place when that does not open, and cut
    /// off when it does.
    [[nodiscard]] bool settleRedoRecord() const;
    /// Everything that the password opens the master key with, and the sealed key itself.
    [[nodiscard]] QByteArray keySlotOf(const ContainerDocument& document) const;
    /// Recovers the header where that is necessary, and reads it. A change begins here.
    [[nodiscard]] bool readSettledDocument(ContainerDocument* document);
    /// Whether this is the vault that was opened: its master key is wrapped as it was then, or its
    /// index opens with the session's key.
    [[nodiscard]] bool isOfThisSession(const ContainerDocument& document) const;
    /// Whether the header is one that holds the index in memory.
    [[nodiscard]] bool holdsIndexInMemory(const ContainerDocument& document) const;
    /// Reads the document of the unlocked container, which is about to be changed. When another
    /// session has changed it, the index is read again: every change starts with this and works on
    /// the index that it finds.
    /// @return false also when another vault is in the container's place
    [[nodiscard]] bool refreshSession(ContainerDocument* document);
    /// Makes this the index in memory, as the header of @p document holds it.
    void setIndex(const SecureFileIndex& index, const ContainerDocument& document);
    /// The document whose wrapping a password change renews, and its master key.
    [[nodiscard]] SecretBytes masterKeyForRekeying(const QString& path, const QByteArray& password,
                                                   ContainerDocument* document);

    /// The part of the master key that seals the index and the blocks, where it is.
    [[nodiscard]] QByteArray workingKey() const {
        return m_masterKey.first(CryptoManager::KeyBytes);
    }
    [[nodiscard]] bool isUnlocked() const { return m_state == VaultState::Unlocked; }

    /// Draws a fresh nonce for the index.
    void renewPayloadNonce(ContainerDocument* document) const;
    /// Empties what only older layouts carry and draws a fresh nonce for the index.
    void prepareForIndexSave(ContainerDocument* document) const;
    /// Seals the index under the document's nonce, rewrites the container's header and makes the
    /// index the one in memory.
    [[nodiscard]] bool sealIndexIntoHeader(ContainerDocument* document,
                                           const SecureFileIndex& index,
                                           WithoutRecord withoutRecord = WithoutRecord::Refuse);
    /// The same, with a document that is not prepared for it yet.
    [[nodiscard]] bool saveSessionIndex(ContainerDocument* document, const SecureFileIndex& index,
                                        WithoutRecord withoutRecord = WithoutRecord::Refuse);

    /// The vault's index without the file of this path, but with the folders above it.
    [[nodiscard]] SecureFileIndex indexWithout(const QString& path) const;
    /// Seals the source chunk by chunk at the container's position; fills in blocks and digest.
    [[nodiscard]] bool appendBlocks(QFile& source, QFile& container,
                                    const ContainerDocument& document, VaultFileEntry* entry,
                                    const Progress& progress) const;
    [[nodiscard]] QByteArray blockAssociatedData(const ContainerDocument& document) const;
    /// Reads the sealed bytes of a block. @return false when it cannot be one of ours.
    [[nodiscard]] static bool readSealedBlock(QFile& container, const VaultFileBlock& block,
                                              QByteArray* sealed);
    /// How far the content of a file has come on its way out.
    enum class Written { All, UnreadableBlock, DeviceFailed };
    /// Writes the blocks from number @p *next on, and counts them there.
    [[nodiscard]] Written writeBlocks(const VaultFileEntry& entry, QIODevice* device,
                                      qsizetype* next) const;
    /// The entry as the container holds it now. Nothing when the container has not changed since
    /// the index was read, or has no such file.
    [[nodiscard]] std::optional<VaultFileEntry> entryOnDrive(const QString& path) const;

    /// A copy as it was taken back by a lock that then failed.
    struct TakenBack {
        QDateTime modifiedUtc;
        qint64 size = -1;
        /// Of the file that came of it.
        QString fileId;

        bool operator==(const TakenBack&) const = default;
    };

    [[nodiscard]] TakenBack presentState(const TrackedTempFile& copy) const;
    /// Imports every changed copy but those that an earlier try of this lock has taken back.
    [[nodiscard]] bool syncForLock();
    using CopyTest = std::function<bool(const TrackedTempFile& copy)>;
    /// Calls @p takeBackOne for every changed copy that is @p concerned, up to the first for which
    /// it returns false. @return false also when the workspace's path leads somewhere else.
    [[nodiscard]] bool takeBackChanged(const CopyTest& concerned,
                                       const CopyTest& takeBackOne) const;
    /// Imports the copy, which may not be reached through a link.
    [[nodiscard]] bool takeBack(const TrackedTempFile& copy);
    [[nodiscard]] bool isOpenForEditing(const QString& vaultPath) const;
    [[nodiscard]] bool hasOpenCopyIn(const QString& directory) const;
    /// Gives one file a new path and saves; the common end of moving and renaming.
    [[nodiscard]] bool saveWithFileAt(ContainerDocument* document, const QString& oldPath,
                                      const QString& newPath);
    [[nodiscard]] bool fillWithRenamedDirectory(SecureFileIndex* working,
                                                const QString& oldDirectory,
                                                const QString& newDirectory) const;

    /// Finishes or takes back what a compaction that was cut left at @p path: the old container
    /// that is set aside goes back in place when the one there does not open and it does, and is
    /// removed when the one there does. That of another vault is never touched.
    /// @return the path of the container to open
    [[nodiscard]] QString recoverSetAside(const QString& path, const QByteArray& password);
    /// Whether what is set aside beside the container at @p path is that container itself. Nothing
    /// on the drive may then be removed.
    [[nodiscard]] bool isUnderBothNames(const QString& path,
                                        const ContainerDocument& document) const;
    /// Removes the container that is set aside beside the one at @p path, which has that document
    /// and index, if it is of the same vault.
    void removeOrphan(const QString& path, const ContainerDocument& document,
                      const SecureFileIndex& index) const;
    /// Removes what compactions of this vault left behind. Only where its document is the one that
    /// the container's header holds, and opens, is nothing of that needed any more.
    void removeLeftovers(const ContainerDocument& document) const;
    [[nodiscard]] bool writeRebuiltContainer(const QString& rebuiltPath, QFile& source,
                                             ContainerDocument* document, SecureFileIndex* index,
                                             const Progress& progress) const;
    [[nodiscard]] bool copyLiveBlocks(QFile& source, QIODevice* device, SecureFileIndex* index,
                                      const Progress& progress) const;
    [[nodiscard]] bool isRebuiltContainerWhole(const QString& rebuiltPath,
                                               const SecureFileIndex& expected) const;

    VaultState m_state = VaultState::Locked;
    QString m_containerFilePath;
    SecretBytes m_masterKey;
    /// How the unlocked container holds its master key.
    QByteArray m_keySlot;
    /// Nonces of the headers that hold the index in memory: the one last read or written, and
    /// those of rewrites that failed since, whose headers may be on the drive all the same.
    QList<QByteArray> m_indexNonces;
    /// Of the unlocked container, as far as this session has seen to it.
    HeaderPadding m_headerPadding = HeaderPadding::Unknown;
    /// Whether the change before the next one was the session's and is on the drive. Until then the
    /// drive may still tell of an error of an earlier time.
    bool m_lastChangeIsOnDrive = false;
    SecureFileIndex m_index;
    ContainerManager m_containerManager;
    CryptoManager m_cryptoManager;
    TempWorkspaceManager m_workspace;
    FileSyncManager m_fileSync;
    /// By vault path as tracked.
    QHash<QString, TakenBack> m_takenBack;
};

} // namespace Tessel::Core
