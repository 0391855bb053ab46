// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A hostile index, as JSON, in rows and packed: text is always read, what is written reads back
// equal, and the engine's JSON writer gives the same bytes as Qt's.

#include "core/IndexJson.h"
#include "core/PackedIndex.h"
#include "core/SecureFileIndex.h"
#include "fuzz/FuzzTarget.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <algorithm>
#include <optional>

using namespace Tessel::Core;
using namespace Tessel::Fuzz;
using namespace Qt::Literals::StringLiterals;

namespace {

// Years that do not have four digits in ISO 8601 have no text.
QString textOf(const QDateTime& dateTime) {
    return dateTime.isValid() ? dateTime.toUTC().toString(Qt::ISODateWithMs) : QString();
}

// Qt writes a byte order mark at the beginning of a text as it is, and drops it when it reads that.
// Only a quote of JSON itself has no backslash before it.
QByteArray withEscapedMarks(QByteArray json) {
    const QByteArray mark = "\"\xef\xbb\xbf"_ba;
    for (qsizetype at = json.indexOf(mark); at >= 0; at = json.indexOf(mark, at + 1)) {
        if (json.at(at - 1) != '\\') {
            json.replace(at, mark.size(), "\"\\ufeff");
        }
    }
    return json;
}

QJsonObject qtBlock(const VaultFileBlock& block) {
    return {{u"offset"_s, block.offset},
            {u"plainSize"_s, block.plainSize},
            {u"encryptedSize"_s, block.encryptedSize},
            {u"nonce"_s, QString::fromLatin1(block.nonce.toBase64())}};
}

QJsonObject qtFile(const VaultFileEntry& entry) {
    QJsonArray blocks;
    for (const VaultFileBlock& block : entry.blocks) {
        blocks.append(qtBlock(block));
    }
    return {{u"id"_s, entry.id},
            {u"vaultPath"_s, entry.vaultPath},
            {u"sizeBytes"_s, entry.sizeBytes},
            {u"lastModifiedUtc"_s, textOf(entry.lastModifiedUtc)},
            {u"sha256"_s, QString::fromLatin1(entry.sha256.toHex())},
            {u"blocks"_s, blocks}};
}

QByteArray qtJson(const SecureFileIndex& index) {
    QJsonArray files;
    const QList<VaultFileEntry> entries = index.entries();
    for (const VaultFileEntry& entry : entries) {
        files.append(qtFile(entry));
    }
    QJsonArray folders;
    const QList<VaultDirectoryEntry> directories = index.directories();
    for (const VaultDirectoryEntry& directory : directories) {
        folders.append(QJsonObject{{u"path"_s, directory.path},
                                   {u"createdUtc"_s, textOf(directory.createdUtc)},
                                   {u"modifiedUtc"_s, textOf(directory.modifiedUtc)}});
    }
    const QJsonObject object{
        {u"files"_s, files}, {u"directories"_s, folders}, {u"formatVersion"_s, 1}};
    return withEscapedMarks(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

bool sameTime(const QDateTime& before, const QDateTime& after) {
    return textOf(before).isEmpty() ? !after.isValid() : before == after;
}

bool sameBlock(const VaultFileBlock& a, const VaultFileBlock& b) {
    return a.offset == b.offset && a.plainSize == b.plainSize &&
           a.encryptedSize == b.encryptedSize && a.nonce == b.nonce;
}

bool sameFile(const VaultFileEntry& before, const VaultFileEntry& after) {
    return before.id == after.id && before.vaultPath == after.vaultPath &&
           before.sizeBytes == after.sizeBytes && before.sha256 == after.sha256 &&
           sameTime(before.lastModifiedUtc, after.lastModifiedUtc) &&
           std::equal(before.blocks.cbegin(), before.blocks.cend(), after.blocks.cbegin(),
                      after.blocks.cend(), sameBlock);
}

bool sameFolder(const VaultDirectoryEntry& before, const VaultDirectoryEntry& after) {
    return before.path == after.path && sameTime(before.createdUtc, after.createdUtc) &&
           sameTime(before.modifiedUtc, after.modifiedUtc);
}

void checkRereading(const SecureFileIndex& before, const SecureFileIndex& after) {
    const QList<VaultFileEntry> files = before.entries();
    const QList<VaultFileEntry> filesAfter = after.entries();
    expect(
        std::equal(files.cbegin(), files.cend(), filesAfter.cbegin(), filesAfter.cend(), sameFile),
        "files read back equal and in order");
    const QList<VaultDirectoryEntry> folders = before.directories();
    const QList<VaultDirectoryEntry> foldersAfter = after.directories();
    expect(std::equal(folders.cbegin(), folders.cend(), foldersAfter.cbegin(), foldersAfter.cend(),
                      sameFolder),
           "folders read back equal and in order");
}

void checkKeys(SecureFileIndex index) {
    QSet<QString> seen;
    const QList<VaultFileEntry> entries = index.entries();
    for (const VaultFileEntry& entry : entries) {
        expect(!entry.vaultPath.isEmpty() && !seen.contains(entry.vaultPath), "file keys differ");
        seen.insert(entry.vaultPath);
        expect(index.contains(entry.vaultPath), "a listed file is found");
    }
    seen.clear();
    const QList<VaultDirectoryEntry> directories = index.directories();
    for (const VaultDirectoryEntry& directory : directories) {
        expect(!directory.path.isEmpty() && !seen.contains(directory.path), "folder keys differ");
        seen.insert(directory.path);
        expect(index.containsDirectory(directory.path), "a listed folder is found");
    }
    for (const VaultFileEntry& entry : entries) {
        expect(index.remove(entry.vaultPath) && !index.contains(entry.vaultPath),
               "a listed file is removed");
    }
    for (const VaultDirectoryEntry& directory : directories) {
        expect(index.removeDirectory(directory.path), "a listed folder is removed");
    }
    expect(index.toJson() == SecureFileIndex().toJson(), "nothing is left");
}

// A record with the packed index must bring back what the header would have held.
void checkPacking(const SecureFileIndex& index) {
    QByteArray packed;
    PackedIndex::write(index, &packed);
    const std::optional<SecureFileIndex> again = PackedIndex::read(packed);
    expect(again.has_value(), "a packed index is read");
    checkRereading(index, *again);
    expect(again->toJson() == index.toJson(), "a packed index brings back the same JSON");
    QByteArray packedAgain;
    PackedIndex::write(*again, &packedAgain);
    expect(packedAgain == packed, "packing again gives the same bytes");
}

// Bytes of which most begin like a packed index.
void checkPackedBytes(const QByteArray& bytes) {
    if (const std::optional<SecureFileIndex> index = PackedIndex::read(bytes)) {
        checkPacking(*index);
        checkKeys(*index);
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray text = Input(data, size).takeRest();
    checkPackedBytes(text);
    checkPacking(IndexJson::fromRows(text));
    const SecureFileIndex index = SecureFileIndex::fromJson(text);
    checkPacking(index);
    const QByteArray json = index.toJson();
    expect(json == qtJson(index), "the index is written as Qt would write it");
    const SecureFileIndex again = SecureFileIndex::fromJson(json);
    checkRereading(index, again);
    expect(again.toJson() == json, "writing again gives the same bytes");
    checkKeys(index);
    return 0;
}
