// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QPair>
#include <QString>

#include <functional>
#include <optional>

namespace Tessel::Tests {

/// What the keys of a crafted container are made from. Change a field before anything is read
/// from the container: everything sealed is computed from them.
struct CraftedKeys {
    QByteArray password = QByteArrayLiteral("senha de teste");
    /// "Argon2id" costs 0.8 s and 256 MiB for each derivation; every other name selects PBKDF2.
    QByteArray kdf = QByteArrayLiteral("PBKDF2-HMAC-SHA256");
    qint32 kdfIterations = 1;
    QByteArray cipher = QByteArrayLiteral("XChaCha20-Poly1305");
    /// 16 bytes.
    QByteArray salt;
    /// 24 bytes; seals the master key.
    QByteArray nonce;
    /// 24 bytes; seals the index.
    QByteArray payloadNonce;
    /// 64 bytes.
    QByteArray masterKey;
};

/// One block as the index lists it.
struct CraftedBlock {
    qint64 offset = 0;
    qint64 plainSize = 0;
    qint64 encryptedSize = 0;
    QByteArray nonce;
};

/// A container made byte by byte as docs/container-format.md describes it, without the engine, so
/// that the engine can be tested with containers that it would never write.
///
///     CraftedContainer crafted;
///     crafted.addFolder(u"docs"_s).addFile(u"docs/a.txt"_s, "abc");
///     crafted.setHeaderMember(u"formatVersion"_s, 4);
///     QVERIFY(crafted.writeTo(path));
///
/// The same seed and the same calls give the same bytes. Unlocking costs next to nothing, because
/// the key derivation is PBKDF2 with one iteration unless `keys.kdf` says otherwise.
class CraftedContainer {
public:
    static constexpr qint64 HeaderRegionBytes = 8388608;
    static constexpr qint64 TagBytes = 16;
    static constexpr qint64 ChunkBytes = 16777216;

    explicit CraftedContainer(quint64 seed = 1);

    CraftedKeys keys;

    // --- Contents, in their order in the payload region --------------------------------------

    /// Adds a file whose blocks hold @p blockBytes of plaintext each; the last one holds the rest.
    CraftedContainer& addFile(const QString& path, const QByteArray& contents,
                              qint64 blockBytes = ChunkBytes);
    CraftedContainer& addFolder(const QString& path);
    /// Leaves @p bytes zero bytes that nothing refers to.
    CraftedContainer& leaveGap(qint64 bytes);
    /// Puts bytes into the payload region as they are; no index entry refers to them.
    CraftedContainer& addPayload(const QByteArray& bytes);

    // --- Deviations of the index, sealed like any other index --------------------------------

    /// Sets a member of the n-th file's entry, of a block of it, or of the n-th folder's entry;
    /// an undefined value removes it.
    CraftedContainer& setFileMember(qsizetype file, const QString& key, const QJsonValue& value);
    CraftedContainer& setBlockMember(qsizetype file, qsizetype block, const QString& key,
                                     const QJsonValue& value);
    CraftedContainer& setFolderMember(qsizetype folder, const QString& key,
                                      const QJsonValue& value);
    CraftedContainer& setIndexMember(const QString& key, const QJsonValue& value);
    /// Replaces text in the finished index JSON, for numbers and keys that no JSON writer writes.
    CraftedContainer& replaceInIndex(const QByteArray& before, const QByteArray& after);
    /// Uses these bytes as the index JSON, whatever they are.
    CraftedContainer& setIndexJson(const QByteArray& json);
    /// Seals nothing: "encryptedIndex" holds exactly these bytes.
    CraftedContainer& setEncryptedIndex(const QByteArray& bytes);

    // --- Deviations of the header; the associated data keeps following `keys` ----------------

    CraftedContainer& setHeaderMember(const QString& key, const QJsonValue& value);
    CraftedContainer& setCryptoMember(const QString& key, const QJsonValue& value);
    CraftedContainer& replaceInHeader(const QByteArray& before, const QByteArray& after);
    CraftedContainer& setHeaderJson(const QByteArray& json);
    CraftedContainer& setMagic(const QByteArray& magic);
    /// The whole line with its line feed. A line that is not 21 bytes long moves the payload.
    CraftedContainer& setLengthLine(const QByteArray& line);
    /// The byte that fills the header region after the header.
    CraftedContainer& setPadding(char byte);
    /// Truncates the file to this size.
    CraftedContainer& cutAt(qint64 size);

    // --- Redo records -------------------------------------------------------------------------

    /// The same vault with its index packed under another nonce, as a redo record holds it. Every
    /// file must be of the usual form.
    [[nodiscard]] CraftedContainer withPackedIndex() const;
    /// The same with any bytes for the packed index.
    [[nodiscard]] CraftedContainer withPacked(const QByteArray& packed) const;
    /// The same vault with its index in rows under another nonce, as a redo record of an earlier
    /// version holds it.
    [[nodiscard]] CraftedContainer withIndexInRows() const;
    /// The same with any bytes for the rows.
    [[nodiscard]] CraftedContainer withRows(const QByteArray& rows) const;
    /// The redo record with this vault's header and sealed index.
    [[nodiscard]] QByteArray redoRecord() const;
    /// The same as earlier versions wrote it: the sealed index is in the header.
    [[nodiscard]] QByteArray earlierRedoRecord() const;
    /// A complete redo record around any image.
    [[nodiscard]] static QByteArray recordOf(const QByteArray& image);

    // --- The result and every intermediate value -----------------------------------------------

    /// Writes the container; the empty part of the header region takes no space on the drive.
    [[nodiscard]] bool writeTo(const QString& path) const;
    /// The whole container.
    [[nodiscard]] QByteArray bytes() const;

    /// 64 bytes.
    [[nodiscard]] QByteArray passwordKey() const;
    [[nodiscard]] QByteArray masterKeyAssociatedData() const;
    [[nodiscard]] QByteArray indexAssociatedData() const;
    [[nodiscard]] static QByteArray blockAssociatedData();
    [[nodiscard]] QByteArray encryptedMasterKey() const;
    [[nodiscard]] QByteArray indexJson() const;
    [[nodiscard]] QByteArray encryptedIndex() const;
    [[nodiscard]] QByteArray headerJson() const;
    [[nodiscard]] QByteArray lengthLine() const;
    [[nodiscard]] qint64 headerOffset() const;
    [[nodiscard]] qint64 payloadOffset() const;
    [[nodiscard]] QByteArray payload() const;
    /// Size of the file as writeTo() writes it.
    [[nodiscard]] qint64 fileSize() const;
    /// The blocks of the n-th file, before any deviation.
    [[nodiscard]] QList<CraftedBlock> blocks(qsizetype file) const;

    /// Seals under the first half of the master key, as every block is sealed.
    [[nodiscard]] QByteArray sealBlock(const QByteArray& plain, const QByteArray& nonce) const;
    /// XChaCha20-Poly1305; the tag follows the ciphertext.
    [[nodiscard]] static QByteArray seal(const QByteArray& plain, const QByteArray& key,
                                         const QByteArray& nonce, const QByteArray& associatedData);
    /// The plaintext; empty when the tag does not verify.
    [[nodiscard]] static QByteArray open(const QByteArray& sealed, const QByteArray& key,
                                         const QByteArray& nonce, const QByteArray& associatedData);

private:
    struct Piece {
        /// Sealed when it belongs to a file, else taken as it is.
        QByteArray bytes;
        QByteArray nonce;
        qsizetype file = -1;
    };
    using Edit = std::function<void(QJsonObject&)>;
    using Replacement = QPair<QByteArray, QByteArray>;

    [[nodiscard]] QByteArray freshBytes(qsizetype size);
    [[nodiscard]] qint64 sizeInFile(const Piece& piece) const;
    [[nodiscard]] QJsonObject plainIndex() const;
    [[nodiscard]] CraftedContainer withIndex(const QByteArray& index, const QByteArray& purpose,
                                             char nonceByte) const;

    quint64 m_seed;
    quint64 m_drawn = 0;
    QList<Piece> m_pieces;
    QList<QJsonObject> m_files;
    QList<QJsonObject> m_folders;
    QList<Edit> m_indexEdits;
    QList<Replacement> m_indexReplacements;
    std::optional<QByteArray> m_indexJson;
    std::optional<QByteArray> m_encryptedIndex;
    QList<Edit> m_headerEdits;
    QList<Replacement> m_headerReplacements;
    std::optional<QByteArray> m_headerJson;
    QByteArray m_magic = QByteArrayLiteral("TESSEL3");
    std::optional<QByteArray> m_lengthLine;
    char m_padding = '\0';
    std::optional<qint64> m_cutAt;
};

} // namespace Tessel::Tests
