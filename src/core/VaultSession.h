// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"
#include "core/ContainerManager.h"
#include "core/HeaderWriter.h"
#include "core/KeyHierarchy.h"
#include "core/SecretBytes.h"
#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace Tessel::Core {

/// The open container: its path, its master key, its key slot, and what is known of its header.
/// Turns a password into an index and an index into a header, and recovers what an interrupted
/// change left behind (docs/recovery.md).
///
/// It does not hold the index, but knows the nonces of the headers that hold the caller's one.
class VaultSession {
public:
    /// The container of this session, without links; kept after close().
    [[nodiscard]] const QString& path() const { return m_path; }
    [[nodiscard]] bool hasKey() const { return !m_masterKey.isEmpty(); }

    /// Writes a new container with an empty index. Whatever was open is closed; only a failure
    /// before anything is written leaves a master key, of no container.
    [[nodiscard]] bool create(const QString& path, const QByteArray& password);
    /// Opens the container, recovering it where that is necessary and possible, and reads its
    /// index. On failure @p index is untouched.
    [[nodiscard]] bool open(const QString& path, const QByteArray& password,
                            SecureFileIndex* index);
    /// Overwrites the master key in memory, and frees what later changes would use again.
    void close();
    /// Seals the container's master key under a new password. The session itself is not touched.
    [[nodiscard]] bool rekey(const QString& path, const QByteArray& oldPassword,
                             const QByteArray& newPassword) const;

    /// Recovers the container and reads its document. Every change begins here. When the header is
    /// not one that holds the caller's index, because another session has changed the vault,
    /// @p index is read again.
    /// @return false also when another vault is in the container's place
    [[nodiscard]] bool read(ContainerDocument* document, SecureFileIndex* index);
    /// The same, with the sealed index in the document. read() leaves it out when the header is the
    /// one that this session wrote last.
    [[nodiscard]] bool readWithSealedIndex(ContainerDocument* document, SecureFileIndex* index);
    /// read() for a caller who replaces the whole index, whatever the container holds.
    [[nodiscard]] bool readForReplacing(ContainerDocument* document);
    /// Reads the index of the container's header. @return false when that is the caller's own, and
    /// when it cannot be read.
    [[nodiscard]] bool readChangedIndex(SecureFileIndex* index) const;

    /// Draws a nonce for the index of a document that read() gave.
    void renewNonce(ContainerDocument* document) const;
    /// The same, and empties what only older layouts carry.
    void prepareForSave(ContainerDocument* document) const;
    /// Seals the index under the document's nonce and rewrites the header with it. On success this
    /// is the caller's index.
    [[nodiscard]] bool save(ContainerDocument* document, const SecureFileIndex& index,
                            WithoutRecord withoutRecord = WithoutRecord::Refuse);
    /// Notes that the container's header is that of @p document and holds the caller's index.
    void setHeader(const ContainerDocument& document);

    /// Seals the index under the document's nonce into it.
    [[nodiscard]] bool encryptIndex(ContainerDocument* document,
                                    const SecureFileIndex& index) const;
    /// @return false, with @p index untouched, when the index does not open.
    [[nodiscard]] bool decryptIndex(const ContainerDocument& document,
                                    SecureFileIndex* index) const;
    [[nodiscard]] bool encryptBlock(QByteArray* buffer, VaultFileBlock* block) const;
    [[nodiscard]] bool decryptBlock(QByteArray* buffer, const VaultFileBlock& block) const;

    /// Whether the container is also under the name where compaction sets it aside. Nothing on the
    /// drive may then be removed.
    [[nodiscard]] bool isUnderBothNames(const ContainerDocument& document) const;
    /// Removes what earlier compactions of this vault left behind, if @p document, which the
    /// container's header holds, opens: then nothing of that is needed any more.
    void removeLeftovers(const ContainerDocument& document) const;

private:
    /// A document with what a password opens in it.
    struct Opened {
        /// Whether the container has such a document at all.
        bool isFound = false;
        ContainerDocument document;
        /// Empty when the document does not open.
        SecretBytes masterKey;
        SecureFileIndex index;

        [[nodiscard]] bool isOpen() const { return !masterKey.isEmpty(); }
    };

    [[nodiscard]] Opened openDocument(const ContainerDocument& document,
                                      const QByteArray& password) const;
    [[nodiscard]] Opened openHeader(const QString& path, const QByteArray& password) const;
    /// From the redo record; the document is then one for a header.
    [[nodiscard]] Opened openRedoRecord(const QString& path, const QByteArray& password) const;

    /// Leaves no redo record in this session's container: the record is written over a header that
    /// does not open, and removed when the header opens.
    [[nodiscard]] bool recover() const;
    /// The same with a password, for the container at @p path.
    /// @return the master key, which @p document holds in its key slot; empty on failure.
    [[nodiscard]] SecretBytes recover(const QString& path, const QByteArray& password,
                                      ContainerDocument* document) const;
    /// Finishes or takes back what a compaction left at @p path when it was cut: the container that
    /// is set aside replaces one that does not open, and is removed when that one opens. One of
    /// another vault is never touched.
    /// @return the path of the container to open
    [[nodiscard]] QString recoverSetAside(const QString& path, const QByteArray& password) const;
    /// Removes the container set aside beside @p path, if it belongs to the vault whose container
    /// has that document and index.
    void removeSetAsideOf(const QString& path, const ContainerDocument& document,
                          const SecureFileIndex& index) const;

    /// Whether the container's header opens with this session's key and key slot.
    [[nodiscard]] bool headerOpens() const;
    [[nodiscard]] bool readRecovered(ContainerDocument* document);
    [[nodiscard]] bool hasOurKeySlot(const ContainerDocument& document) const;
    [[nodiscard]] bool holdsCallersIndex(const ContainerDocument& document) const;

    QString m_path;
    SecretBytes m_masterKey;
    QByteArray m_keySlot;
    /// Nonces of the headers that hold the caller's index: the one last read or written, and those
    /// of rewrites that failed since, whose headers may be on the drive all the same.
    QList<QByteArray> m_indexNonces;
    HeaderWriter m_headerWriter{QString()};
    /// The header that m_headerWriter wrote last, without its index.
    ContainerDocument m_writtenDocument;
    /// Memory for the next sealed index, and for the next redo record's.
    QByteArray m_sealedIndex;
    ContainerDocument m_record;
    /// Whether this session's last change is on the drive, and nothing was read since that another
    /// session wrote. Until then the drive may still report an earlier error.
    bool m_lastChangeIsOnDrive = false;
    ContainerManager m_containerManager;
    KeyHierarchy m_keys;
};

} // namespace Tessel::Core
