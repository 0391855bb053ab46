// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

#include <functional>

namespace Tessel::Core {

/// One sealed block of a file in the container's payload region.
struct VaultFileBlock {
    /// Where the sealed bytes begin, from the start of the container file.
    qint64 offset = 0;
    /// Bytes of plaintext in the block.
    qint64 plainSize = 0;
    /// Bytes at `offset`: the ciphertext and its 16-byte tag.
    qint64 encryptedSize = 0;
    /// The block's own 24-byte nonce.
    QByteArray nonce;
};

/// One protected file.
struct VaultFileEntry {
    /// Random UUID without braces, new each time the file is stored.
    QString id;
    /// The entry's key; never empty in an index.
    QString vaultPath;
    /// Plaintext bytes of the whole file.
    qint64 sizeBytes = 0;
    QDateTime lastModifiedUtc;
    /// Raw 32-byte digest of the plaintext.
    QByteArray sha256;
    /// In plaintext order.
    QList<VaultFileBlock> blocks;
};

/// One folder of the vault.
struct VaultDirectoryEntry {
    /// The entry's key; never empty in an index.
    QString path;
    QDateTime createdUtc;
    QDateTime modifiedUtc;
};

/// The vault's table of contents: its files and folders, each in insertion order.
///
/// A plain value. Paths are compared character for character and taken as given. No two files
/// share a path and no two folders do; a file and a folder may. Look-ups take constant time.
class SecureFileIndex {
public:
    [[nodiscard]] QList<VaultFileEntry> entries() const { return m_files.entries; }
    [[nodiscard]] QList<VaultDirectoryEntry> directories() const { return m_directories.entries; }

    [[nodiscard]] bool contains(const QString& vaultPath) const;
    [[nodiscard]] bool containsDirectory(const QString& path) const;

    /// Overwrites the entry with the same path at its position, or appends.
    /// @return false, with nothing changed, for an empty path.
    [[nodiscard]] bool addOrReplace(const VaultFileEntry& entry);
    [[nodiscard]] bool addDirectory(const VaultDirectoryEntry& entry);

    /// Removes the file entry; its blocks stay in the container.
    /// @return whether there was one.
    [[nodiscard]] bool remove(const QString& vaultPath);
    /// Removes the folder entry alone, not what is beneath it.
    /// @return whether there was one.
    [[nodiscard]] bool removeDirectory(const QString& path);

    /// Gives a file another path; it keeps its position.
    /// @return false, with nothing changed, when there is no such file, the new path is empty, or a
    ///         file has it already.
    [[nodiscard]] bool renameFile(const QString& vaultPath, const QString& newPath);
    /// Gives each file the path that @p newPath returns for its present one. A file that gets no
    /// path is dropped; one that gets the path of a file before it replaces that one in its
    /// position.
    void renameFiles(const std::function<QString(const QString& vaultPath)>& newPath);

    void clear();
    void clearDirectories();
    /// Allocates memory for that many files, before they are added.
    void reserveFiles(qsizetype files);

    /// Compact UTF-8 JSON; docs/container-format.md describes it.
    [[nodiscard]] QByteArray toJson() const;
    /// Reads what toJson() wrote. Never fails: text that is no JSON object gives an empty index,
    /// a malformed member its default value, an entry without a path is dropped.
    [[nodiscard]] static SecureFileIndex fromJson(const QByteArray& json);

private:
    friend class EntryEncodings;

    /// The encodings of one entry; empty until they are needed.
    struct Encodings {
        QByteArray json;
        QByteArray packed;
    };

    /// Entries in insertion order, the position of each by its path, and their encodings.
    template <typename Entry>
    struct Table {
        QList<Entry> entries;
        QHash<QString, qsizetype> positions;
        /// In the order of the entries; those at the end may be missing. An index is encoded again
        /// after each change, of which most concern one entry.
        mutable QList<Encodings> encodings;

        bool put(const QString& key, const Entry& entry);
        bool take(const QString& key);
        void dropEncodings(qsizetype position);
    };

    Table<VaultFileEntry> m_files;
    Table<VaultDirectoryEntry> m_directories;
};

} // namespace Tessel::Core
