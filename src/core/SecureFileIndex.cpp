// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SecureFileIndex.h"

#include "core/Base64.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVariant>

#include <algorithm>

namespace Tessel::Core {

namespace {

constexpr int IndexFormatVersion = 1;
constexpr qsizetype TypicalEntryBytes = 400;
constexpr qsizetype TypicalRowBytes = 250;

// Dates have four digits of a year; every other one counts as not known.
bool isRepresentable(const QDateTime& dateTime) {
    // 0001-01-01T00:00:00.000Z and 9999-12-31T23:59:59.999Z.
    constexpr qint64 Earliest = -62135596800000;
    constexpr qint64 Latest = 253402300799999;
    const qint64 time = dateTime.isValid() ? dateTime.toMSecsSinceEpoch() : Latest + 1;
    return Earliest <= time && time <= Latest;
}

// Writes @p number over the digits that end at @p end.
void putDigits(QByteArray* text, qsizetype end, qsizetype digits, int number) {
    for (qsizetype i = 1; i <= digits; ++i, number /= 10) {
        (*text)[end - i] = static_cast<char>('0' + number % 10);
    }
}

// The toolkit puts a date together from printf pieces, which cost more than a third of the whole
// index's JSON.
QByteArray dateToText(const QDateTime& dateTime) {
    if (!isRepresentable(dateTime)) {
        return {};
    }
    const QDateTime utc = dateTime.toUTC();
    const QDate date = utc.date();
    const QTime time = utc.time();
    QByteArray text = QByteArrayLiteral("0000-00-00T00:00:00.000Z");
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
    block.offset = toInt64(object.value(u"offset"));
    block.plainSize = toInt64(object.value(u"plainSize"));
    block.encryptedSize = toInt64(object.value(u"encryptedSize"));
    block.nonce = decodeBase64(object.value(u"nonce").toString().toLatin1());
    return block;
}

VaultFileEntry entryFromJson(const QJsonObject& object) {
    VaultFileEntry entry;
    entry.id = object.value(u"id").toString();
    entry.vaultPath = object.value(u"vaultPath").toString();
    entry.sizeBytes = toInt64(object.value(u"sizeBytes"));
    entry.lastModifiedUtc = dateFromText(object.value(u"lastModifiedUtc").toString());
    entry.sha256 = QByteArray::fromHex(object.value(u"sha256").toString().toLatin1());
    const QJsonArray blocks = object.value(u"blocks").toArray();
    entry.blocks.reserve(blocks.size());
    for (const auto& block : blocks) {
        entry.blocks.append(blockFromJson(block.toObject()));
    }
    return entry;
}

VaultDirectoryEntry directoryFromJson(const QJsonObject& object) {
    return {object.value(u"path").toString(), dateFromText(object.value(u"createdUtc").toString()),
            dateFromText(object.value(u"modifiedUtc").toString())};
}

// Letters that stand for themselves in JSON. Quotes, control characters and halves of surrogate
// pairs are left to the toolkit.
bool isPlain(const QString& text) {
    return std::none_of(text.cbegin(), text.cend(), [](QChar c) {
        return c < QLatin1Char(' ') || c == QLatin1Char('"') || c == QLatin1Char('\\') ||
               c.isSurrogate();
    });
}

// What stands between the quotes of a JSON text.
QByteArray textInJson(const QString& text) {
    if (isPlain(text)) {
        return text.toUtf8();
    }
    const QByteArray array = QJsonDocument(QJsonArray{text}).toJson(QJsonDocument::Compact);
    return array.sliced(2).chopped(2);
}

void appendText(QByteArray* json, const QString& text) {
    // Qt's reader takes a byte order mark at the beginning for no part of the text, unless it is
    // escaped.
    const bool isMarked = text.startsWith(QChar::ByteOrderMark);
    *json += isMarked ? "\"\\ufeff" : "\"";
    *json += textInJson(isMarked ? text.sliced(1) : text);
    *json += '"';
}

// JSON in which no text begins with a byte order mark as it is: earlier versions wrote it so, and
// two names became one when they were read. The bytes can follow a quote within a text as well,
// where the escape means the same.
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

// Milliseconds since 1970 in UTC; null when the time is not known.
void appendTime(QByteArray* json, const QDateTime& dateTime) {
    *json += isRepresentable(dateTime) ? QByteArray::number(dateTime.toMSecsSinceEpoch())
                                       : QByteArrayLiteral("null");
}

QDateTime timeFromJson(const QJsonValue& value) {
    return value.isDouble() ? QDateTime::fromMSecsSinceEpoch(toInt64(value), Qt::UTC) : QDateTime();
}

void appendBlockRow(QByteArray* json, const VaultFileBlock& block) {
    *json += '[' + QByteArray::number(block.offset) + ',' + QByteArray::number(block.plainSize) +
             ',' + QByteArray::number(block.encryptedSize) + ",\"" + block.nonce.toBase64() + "\"]";
}

VaultFileBlock blockFromRow(const QJsonArray& row) {
    return {toInt64(row.at(0)), toInt64(row.at(1)), toInt64(row.at(2)),
            decodeBase64(row.at(3).toString().toLatin1())};
}

void appendEntryRow(QByteArray* json, const VaultFileEntry& entry) {
    *json += '[';
    appendText(json, entry.id);
    *json += ',';
    appendText(json, entry.vaultPath);
    *json += ',' + QByteArray::number(entry.sizeBytes) + ',';
    appendTime(json, entry.lastModifiedUtc);
    *json += ",\"" + entry.sha256.toBase64() + "\",[";
    appendJoined(json, entry.blocks, appendBlockRow);
    *json += "]]";
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

void appendDirectoryRow(QByteArray* json, const VaultDirectoryEntry& directory) {
    *json += '[';
    appendText(json, directory.path);
    *json += ',';
    appendTime(json, directory.createdUtc);
    *json += ',';
    appendTime(json, directory.modifiedUtc);
    *json += ']';
}

VaultDirectoryEntry directoryFromRow(const QJsonArray& row) {
    return {row.at(0).toString(), timeFromJson(row.at(1)), timeFromJson(row.at(2))};
}

// Both lists work alike: a list in insertion order and a hash from key to position.
template <typename Entry>
bool putEntry(QList<Entry>* list, QHash<QString, qsizetype>* positions, const QString& key,
              const Entry& entry) {
    if (key.isEmpty()) {
        return false;
    }
    if (const auto found = positions->constFind(key); found != positions->constEnd()) {
        (*list)[*found] = entry;
        return true;
    }
    positions->insert(key, list->size());
    list->append(entry);
    return true;
}

template <typename Entry>
bool takeEntry(QList<Entry>* list, QHash<QString, qsizetype>* positions, const QString& key) {
    const auto found = positions->constFind(key);
    if (found == positions->constEnd()) {
        return false;
    }
    const qsizetype position = *found;
    positions->erase(found);
    list->removeAt(position);
    for (qsizetype& other : *positions) {
        if (other > position) {
            --other;
        }
    }
    return true;
}

} // namespace

bool SecureFileIndex::contains(const QString& vaultPath) const {
    return m_entryPositions.contains(vaultPath);
}

bool SecureFileIndex::containsDirectory(const QString& path) const {
    return m_directoryPositions.contains(path);
}

bool SecureFileIndex::addOrReplace(const VaultFileEntry& entry) {
    return putEntry(&m_entries, &m_entryPositions, entry.vaultPath, entry);
}

bool SecureFileIndex::addDirectory(const VaultDirectoryEntry& entry) {
    return putEntry(&m_directories, &m_directoryPositions, entry.path, entry);
}

bool SecureFileIndex::remove(const QString& vaultPath) {
    return takeEntry(&m_entries, &m_entryPositions, vaultPath);
}

bool SecureFileIndex::removeDirectory(const QString& path) {
    return takeEntry(&m_directories, &m_directoryPositions, path);
}

void SecureFileIndex::clear() {
    m_entries.clear();
    m_directories.clear();
    m_entryPositions.clear();
    m_directoryPositions.clear();
}

QByteArray SecureFileIndex::toJson() const {
    // Written straight into one array, byte for byte what the toolkit's compact form gives with
    // its sorted keys: the index is sealed anew after every change.
    QByteArray json;
    json.reserve(m_entries.size() * TypicalEntryBytes + m_directories.size() * TypicalEntryBytes);
    json += "{\"directories\":[";
    appendJoined(&json, m_directories, appendDirectory);
    json += "],\"files\":[";
    appendJoined(&json, m_entries, appendEntry);
    json += "],\"formatVersion\":" + QByteArray::number(IndexFormatVersion) + '}';
    return json;
}

SecureFileIndex SecureFileIndex::fromJson(const QByteArray& json) {
    SecureFileIndex index;
    const QJsonObject object = QJsonDocument::fromJson(withEscapedMarks(json)).object();
    const QJsonArray files = object.value(u"files").toArray();
    index.m_entries.reserve(files.size());
    index.m_entryPositions.reserve(files.size());
    for (const auto& file : files) {
        const VaultFileEntry entry = entryFromJson(file.toObject());
        putEntry(&index.m_entries, &index.m_entryPositions, entry.vaultPath, entry);
    }
    const QJsonArray folders = object.value(u"directories").toArray();
    for (const auto& folder : folders) {
        const VaultDirectoryEntry directory = directoryFromJson(folder.toObject());
        putEntry(&index.m_directories, &index.m_directoryPositions, directory.path, directory);
    }
    return index;
}

QByteArray SecureFileIndex::toCompact() const {
    QByteArray rows;
    rows.reserve(m_entries.size() * TypicalRowBytes + m_directories.size() * TypicalRowBytes);
    rows += "[[";
    appendJoined(&rows, m_directories, appendDirectoryRow);
    rows += "],[";
    appendJoined(&rows, m_entries, appendEntryRow);
    rows += "]]";
    return rows;
}

SecureFileIndex SecureFileIndex::fromCompact(const QByteArray& rows) {
    SecureFileIndex index;
    const QJsonArray lists = QJsonDocument::fromJson(withEscapedMarks(rows)).array();
    const QJsonArray folders = lists.at(0).toArray();
    for (const auto& row : folders) {
        const VaultDirectoryEntry directory = directoryFromRow(row.toArray());
        putEntry(&index.m_directories, &index.m_directoryPositions, directory.path, directory);
    }
    const QJsonArray files = lists.at(1).toArray();
    index.m_entries.reserve(files.size());
    index.m_entryPositions.reserve(files.size());
    for (const auto& row : files) {
        const VaultFileEntry entry = entryFromRow(row.toArray());
        putEntry(&index.m_entries, &index.m_entryPositions, entry.vaultPath, entry);
    }
    return index;
}

} // namespace Tessel::Core
