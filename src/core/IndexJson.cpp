// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/IndexJson.h"

#include "core/Base64.h"
#include "core/EntryEncodings.h"
#include "core/IndexDate.h"
#include "core/IndexScanner.h"
#include "core/QtVersions.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>

#include <algorithm>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

constexpr int IndexFormatVersion = 1;
constexpr qsizetype TypicalEntryBytes = 400;

// Writes @p number over the digits that end at @p end.
void putDigits(QByteArray* text, qsizetype end, qsizetype digits, int number) {
    for (qsizetype i = 1; i <= digits; ++i, number /= 10) {
        (*text)[end - i] = static_cast<char>('0' + number % 10);
    }
}

// Qt formats a date piece by piece, which took more than a third of the time of the whole index.
QByteArray dateToText(const QDateTime& dateTime) {
    if (!indexDate(dateTime)) {
        return {};
    }
    const QDateTime utc = dateTime.toUTC();
    const QDate date = utc.date();
    const QTime time = utc.time();
    QByteArray text = "0000-00-00T00:00:00.000Z"_ba;
    putDigits(&text, 4, 4, date.year());
    putDigits(&text, 7, 2, date.month());
    putDigits(&text, 10, 2, date.day());
    putDigits(&text, 13, 2, time.hour());
    putDigits(&text, 16, 2, time.minute());
    putDigits(&text, 19, 2, time.second());
    putDigits(&text, 23, 3, time.msec());
    return text;
}

QDateTime dateFromText(const QString& text) {
    const QDateTime dateTime = QDateTime::fromString(text, Qt::ISODateWithMs);
    return dateTime.isValid() ? dateTime.toUTC() : QDateTime();
}

// Numbers and numeric text count; a truth value or anything else is no size.
qint64 toInt64(const QJsonValue& value) {
    return value.isDouble() || value.isString() ? value.toVariant().toLongLong() : 0;
}

VaultFileBlock blockFromJson(const QJsonObject& object) {
    VaultFileBlock block;
    block.offset = toInt64(object.value("offset"_L1));
    block.plainSize = toInt64(object.value("plainSize"_L1));
    block.encryptedSize = toInt64(object.value("encryptedSize"_L1));
    block.nonce = decodeBase64(object.value("nonce"_L1).toString().toLatin1());
    return block;
}

VaultFileEntry entryFromJson(const QJsonObject& object) {
    VaultFileEntry entry;
    entry.id = object.value("id"_L1).toString();
    entry.vaultPath = object.value("vaultPath"_L1).toString();
    entry.sizeBytes = toInt64(object.value("sizeBytes"_L1));
    entry.lastModifiedUtc = dateFromText(object.value("lastModifiedUtc"_L1).toString());
    entry.sha256 = QByteArray::fromHex(object.value("sha256"_L1).toString().toLatin1());
    const QJsonArray blocks = object.value("blocks"_L1).toArray();
    entry.blocks.reserve(blocks.size());
    for (const auto& block : blocks) {
        entry.blocks.append(blockFromJson(block.toObject()));
    }
    return entry;
}

VaultDirectoryEntry directoryFromJson(const QJsonObject& object) {
    return {object.value("path"_L1).toString(),
            dateFromText(object.value("createdUtc"_L1).toString()),
            dateFromText(object.value("modifiedUtc"_L1).toString())};
}

// Whether JSON needs no escape for the text. Quotes, control characters and halves of surrogate
// pairs are left to Qt.
bool isPlain(const QString& text) {
    return std::none_of(text.cbegin(), text.cend(), [](QChar c) {
        return c < u' ' || c == u'"' || c == u'\\' || c.isSurrogate();
    });
}

// The text as it is between the quotes in JSON.
QByteArray textInJson(const QString& text) {
    if (isPlain(text)) {
        return text.toUtf8();
    }
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.sliced(2).chopped(2);
}

void appendText(QByteArray* json, const QString& text) {
    // Qt's reader drops a byte order mark at the beginning of a text, unless it is escaped.
    const bool isMarked = text.startsWith(QChar::ByteOrderMark);
    *json += isMarked ? "\"\\ufeff" : "\"";
    *json += textInJson(isMarked ? text.sliced(1) : text);
    *json += '"';
}

// Escapes each byte order mark at the beginning of a text. Earlier versions wrote it raw, and two
// names became one when they were read. The bytes can follow a quote within a text as well, where
// the escape means the same.
QByteArray withEscapedMarks(QByteArray json) {
    constexpr QByteArrayView Mark("\"\xef\xbb\xbf");
    return json.contains(Mark) ? json.replace(Mark, "\"\\ufeff") : json;
}

template <typename Item, typename Append>
void appendJoined(QByteArray* json, const QList<Item>& items, Append append) {
    const char* separator = "";
    for (const Item& item : items) {
        *json += separator;
        append(json, item);
        separator = ",";
    }
}

void appendBlock(QByteArray* json, const VaultFileBlock& block) {
    *json += "{\"encryptedSize\":" + QByteArray::number(block.encryptedSize) + ",\"nonce\":\"" +
             block.nonce.toBase64() + "\",\"offset\":" + QByteArray::number(block.offset) +
             ",\"plainSize\":" + QByteArray::number(block.plainSize) + '}';
}

void appendEntry(QByteArray* json, const VaultFileEntry& entry) {
    *json += "{\"blocks\":[";
    appendJoined(json, entry.blocks, appendBlock);
    *json += "],\"id\":";
    appendText(json, entry.id);
    *json += ",\"lastModifiedUtc\":\"" + dateToText(entry.lastModifiedUtc) + "\",\"sha256\":\"" +
             entry.sha256.toHex() + "\",\"sizeBytes\":" + QByteArray::number(entry.sizeBytes) +
             ",\"vaultPath\":";
    appendText(json, entry.vaultPath);
    *json += '}';
}

void appendDirectory(QByteArray* json, const VaultDirectoryEntry& directory) {
    *json += "{\"createdUtc\":\"" + dateToText(directory.createdUtc) + "\",\"modifiedUtc\":\"" +
             dateToText(directory.modifiedUtc) + "\",\"path\":";
    appendText(json, directory.path);
    *json += '}';
}

QDateTime timeFromJson(const QJsonValue& value) {
    return value.isDouble() ? QDateTime::fromMSecsSinceEpoch(toInt64(value), Utc) : QDateTime();
}

VaultFileBlock blockFromRow(const QJsonArray& row) {
    return {toInt64(row.at(0)), toInt64(row.at(1)), toInt64(row.at(2)),
            decodeBase64(row.at(3).toString().toLatin1())};
}

VaultFileEntry entryFromRow(const QJsonArray& row) {
    VaultFileEntry entry;
    entry.id = row.at(0).toString();
    entry.vaultPath = row.at(1).toString();
    entry.sizeBytes = toInt64(row.at(2));
    entry.lastModifiedUtc = timeFromJson(row.at(3));
    entry.sha256 = decodeBase64(row.at(4).toString().toLatin1());
    const QJsonArray blocks = row.at(5).toArray();
    entry.blocks.reserve(blocks.size());
    for (const auto& block : blocks) {
        entry.blocks.append(blockFromRow(block.toArray()));
    }
    return entry;
}

VaultDirectoryEntry directoryFromRow(const QJsonArray& row) {
    return {row.at(0).toString(), timeFromJson(row.at(1)), timeFromJson(row.at(2))};
}

// An entry without a path is refused, and so dropped.
template <typename EntryFrom>
void addFiles(SecureFileIndex* index, const QJsonArray& files, EntryFrom entryFrom) {
    index->reserveFiles(files.size());
    for (const auto& file : files) {
        static_cast<void>(index->addOrReplace(entryFrom(file)));
    }
}

template <typename DirectoryFrom>
void addDirectories(SecureFileIndex* index, const QJsonArray& folders,
                    DirectoryFrom directoryFrom) {
    for (const auto& folder : folders) {
        static_cast<void>(index->addDirectory(directoryFrom(folder)));
    }
}

} // namespace

QByteArray IndexJson::toJson(const SecureFileIndex& index) {
    QByteArray json;
    writeJson(index, &json);
    return json;
}

void IndexJson::writeJson(const SecureFileIndex& index, QByteArray* json) {
    // Written straight into one array, byte for byte what Qt's compact form gives with its sorted
    // keys: the index is sealed again after every change.
    json->resize(0);
    json->reserve((index.entries().size() + index.directories().size()) * TypicalEntryBytes);
    *json += "{\"directories\":[";
    EntryEncodings::appendDirectories(json, index, EntryEncodings::Json, ",", appendDirectory);
    *json += "],\"files\":[";
    EntryEncodings::appendFiles(json, index, EntryEncodings::Json, ",", appendEntry);
    *json += "],\"formatVersion\":" + QByteArray::number(IndexFormatVersion) + '}';
}

SecureFileIndex IndexJson::fromJson(const QByteArray& json) {
    if (const std::optional<SecureFileIndex> scanned = scanIndex(json)) {
        return *scanned;
    }
    SecureFileIndex index;
    const QJsonObject object = QJsonDocument::fromJson(withEscapedMarks(json)).object();
    addFiles(&index, object.value("files"_L1).toArray(),
             [](const auto& value) { return entryFromJson(value.toObject()); });
    addDirectories(&index, object.value("directories"_L1).toArray(),
                   [](const auto& value) { return directoryFromJson(value.toObject()); });
    return index;
}

SecureFileIndex IndexJson::fromRows(const QByteArray& rows) {
    SecureFileIndex index;
    const QJsonArray lists = QJsonDocument::fromJson(withEscapedMarks(rows)).array();
    addDirectories(&index, lists.at(0).toArray(),
                   [](const auto& value) { return directoryFromRow(value.toArray()); });
    addFiles(&index, lists.at(1).toArray(),
             [](const auto& value) { return entryFromRow(value.toArray()); });
    return index;
}

} // namespace Tessel::Core
