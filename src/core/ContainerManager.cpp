// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerManager.h"

#include "core/Base64.h"
#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/PrivateFile.h"
#include "core/RedoRecord.h"
#include "core/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSaveFile>

#include <algorithm>
#include <array>
#include <limits>
#include <optional>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

struct LengthLine {
    /// The number the line holds.
    qint64 headerBytes = 0;
    /// Bytes of the line in the file, its line feed included.
    qint64 lineBytes = 0;

    qint64 headerEnd() const { return LengthLineOffset + lineBytes + headerBytes; }
};

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads the number of a length line character by character, so that a line without an end costs
// time and no memory.
class LengthParser {
public:
    /// @return false when the text so far can no longer be a number.
    bool add(char c) {
        if (isSpace(c)) {
            m_ended = m_started;
            return true;
        }
        if (m_ended) {
            return false;
        }
        const bool signAllowed = !m_started;
        m_started = true;
        if (c >= '0' && c <= '9') {
            m_hasDigits = true;
            m_value = std::min(m_value * 10 + (c - '0'), TooLarge);
            return true;
        }
        m_negative = c == '-';
        return signAllowed && (c == '-' || c == '+');
    }

    /// The number, if there is one and a header of that many bytes can exist.
    std::optional<qint64> value() const {
        const bool good =
            m_hasDigits && !m_negative && m_value >= 1 && m_value <= HeaderRegionBytes;
        return good ? std::optional<qint64>(m_value) : std::nullopt;
    }

private:
    static constexpr qint64 TooLarge = HeaderRegionBytes + 1;

    qint64 m_value = 0;
    bool m_started = false;
    bool m_ended = false;
    bool m_hasDigits = false;
    bool m_negative = false;
};

bool readMagic(QFile& file) {
    return file.read(FileMagic.size()) == FileMagic;
}

// Reads the line at the file's position, which is left anywhere.
std::optional<LengthLine> readLengthLine(QFile& file) {
    LengthParser parser;
    LengthLine line;
    std::array<char, 4096> piece{};
    qint64 size = 0;
    while ((size = file.read(piece.data(), piece.size())) > 0) {
        for (qint64 i = 0; i < size; ++i) {
            const char c = piece[static_cast<std::size_t>(i)];
            ++line.lineBytes;
            if (c == '\n') {
                const std::optional<qint64> value = parser.value();
                line.headerBytes = value.value_or(0);
                return value ? std::optional<LengthLine>(line) : std::nullopt;
            }
            if (!parser.add(c)) {
                return std::nullopt;
            }
        }
    }
    return std::nullopt;
}

bool writeWhole(QIODevice& device, const QByteArray& bytes) {
    return device.write(bytes) == bytes.size();
}

QByteArray bytesFromBase64(const QJsonValue& value) {
    return decodeBase64(value.toString().toLatin1());
}

QString bytesToBase64(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64());
}

// A shorter length line than ours puts the payload so early that our header region would reach
// into it.
bool headerRegionWouldReachPayload(const QFile& file, const std::optional<LengthLine>& line) {
    return line && line->lineBytes < LengthLineBytes &&
           file.size() > LengthLineOffset + line->lineBytes + HeaderRegionBytes;
}

// The length line and the header, unless the region has no room for that.
std::optional<QByteArray> encodeHeader(const QByteArray& header) {
    return header.size() > HeaderRegionBytes
               ? std::nullopt
               : std::optional<QByteArray>(lengthLineFor(header.size()) + header);
}

struct ParsedHeader {
    QJsonObject object;
    QByteArray sealedIndex;
};

// Nearly all of a header is the sealed index, whose letters stand for themselves. Where it lies as
// our writer puts it, it is decoded from where it stands: the toolkit would read, widen and narrow
// megabytes of it first. What is left for the toolkit has an empty text in its place.
ParsedHeader splitHeader(const QByteArray& header) {
    constexpr QByteArrayView Before(",\"encryptedIndex\":\"");
    constexpr QByteArrayView After("\",\"formatVersion\":3,\"magic\":\"TESSEL\"}");
    const qsizetype begin = header.indexOf(Before) + Before.size();
    const qsizetype end = header.size() - After.size();
    if (begin >= Before.size() && begin <= end && header.endsWith(After)) {
        const QByteArrayView letters = QByteArrayView(header).sliced(begin, end - begin);
        if (const std::optional<QByteArray> index = decodeWellFormedBase64(letters)) {
            const QByteArray rest = header.first(begin) + header.sliced(end);
            return {QJsonDocument::fromJson(rest).object(), *index};
        }
    }
    const QJsonObject object = QJsonDocument::fromJson(header).object();
    return {object, bytesFromBase64(object.value(u"encryptedIndex"))};
}

std::optional<ParsedHeader> parseHeader(const QByteArray& header) {
    const ParsedHeader parsed = splitHeader(header);
    const bool good = parsed.object.value(u"magic") == QLatin1String("TESSEL") &&
                      parsed.object.value(u"formatVersion").toInt(0) == FormatVersion;
    return good ? std::optional<ParsedHeader>(parsed) : std::nullopt;
}

ContainerDocument documentFromHeader(const ContainerManager& manager, const ParsedHeader& parsed) {
    const QJsonObject& header = parsed.object;
    ContainerDocument document;
    document.crypto = manager.cryptoMetadataFromJson(header.value(u"crypto").toObject());
    document.fileIndex = SecureFileIndex::fromJson(
        QJsonDocument(header.value(u"fileIndex").toObject()).toJson(QJsonDocument::Compact));
    document.encryptedIndex = parsed.sealedIndex;
    document.encryptedPayload = bytesFromBase64(header.value(u"encryptedPayload"));
    const QJsonObject payloads = header.value(u"filePayloads").toObject();
    for (auto payload = payloads.constBegin(); payload != payloads.constEnd(); ++payload) {
        document.filePayloads.insert(payload.key(), bytesFromBase64(payload.value()));
    }
    return document;
}

} // namespace

QString ContainerManager::containerPath(const QString& directory) const {
    return QDir(directory).filePath(ContainerFileName);
}

bool ContainerManager::containerExists(const QString& directory) const {
    return QFile::exists(containerPath(directory));
}

bool ContainerManager::readDocument(const QString& path, ContainerDocument* out) const {
    QFile file(path);
    if (!out || !openRegularFile(file, QIODevice::ReadOnly) || !readMagic(file)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    if (!line) {
        return false;
    }
    const qint64 headerOffset = LengthLineOffset + line->lineBytes;
    const qint64 payloadOffset = headerOffset + HeaderRegionBytes;
    // The region must be whole, but only the header's own bytes are worth reading.
    if (file.size() < payloadOffset || !file.seek(headerOffset)) {
        return false;
    }
    const QByteArray header = file.read(line->headerBytes);
    const std::optional<ParsedHeader> parsed = parseHeader(header);
    if (header.size() != line->headerBytes || !parsed) {
        return false;
    }
    *out = documentFromHeader(*this, *parsed);
    out->payloadOffset = payloadOffset;
    return true;
}

bool ContainerManager::readRedoRecord(const QString& path, ContainerDocument* out) const {
    QFile file(path);
    if (!out || !openRegularFile(file, QIODevice::ReadOnly) || !readMagic(file)) {
        return false;
    }
    const std::optional<RedoRecord> record = findRedoRecord(file);
    const std::optional<ParsedHeader> parsed =
        record ? parseHeader(record->headerImage.sliced(LengthLineBytes)) : std::nullopt;
    if (!parsed) {
        return false;
    }
    *out = documentFromHeader(*this, *parsed);
    out->payloadOffset = PayloadOffset;
    return true;
}

bool ContainerManager::repairHeader(const QString& path, const ContainerDocument& document) const {
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadWrite) || !readMagic(file) || !findRedoRecord(file)) {
        return false;
    }
    const std::optional<QByteArray> image = encodeHeader(buildHeader(document));
    return image && rewriteHeaderAndDropRecords(file, *image);
}

bool ContainerManager::dropRedoRecord(const QString& path) const {
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadWrite) || !readMagic(file)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    if (!line || headerRegionWouldReachPayload(file, line) || !file.seek(LengthLineOffset)) {
        return false;
    }
    const QByteArray image = file.read(line->lineBytes + line->headerBytes);
    return image.size() == line->lineBytes + line->headerBytes &&
           rewriteHeaderAndDropRecords(file, image);
}

bool ContainerManager::writeDocument(const QString& path, const ContainerDocument& document,
                                     const PayloadWriter& payloadWriter) const {
    QSaveFile file(path);
    if (!openPrivately(file)) {
        return false;
    }
    if (!writeWhole(file, FileMagic.toByteArray() + lengthLineFor(0)) ||
        !writeWhole(file, QByteArray(HeaderRegionBytes, '\0'))) {
        return false;
    }
    if (payloadWriter && !payloadWriter(&file)) {
        return false;
    }
    const QByteArray header = buildHeader(document);
    if (header.size() > HeaderRegionBytes) {
        return false;
    }
    // The rest of the region is zero already.
    return file.seek(LengthLineOffset) && writeWhole(file, lengthLineFor(header.size()) + header) &&
           syncToDrive(file) && file.commit() && syncAfterRename(path);
}

bool ContainerManager::writeDocument(const QString& path, const ContainerDocument& document) const {
    return writeDocument(path, document, {});
}

bool ContainerManager::updateDocumentHeader(const QString& path,
                                            const ContainerDocument& document) const {
    return updateDocumentHeader(path, document, document, WithoutRecord::Rewrite, nullptr);
}

bool ContainerManager::updateDocumentHeader(const QString& path, const ContainerDocument& document,
                                            const ContainerDocument& record,
                                            WithoutRecord withoutRecord,
                                            HeaderPadding* padding) const {
    const HeaderPadding presentPadding = padding ? *padding : HeaderPadding::Unknown;
    if (padding) {
        *padding = HeaderPadding::Unknown;
    }
    QFile file(path);
    if (!openRegularFile(file, QIODevice::ReadWrite) || !readMagic(file)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    const std::optional<QByteArray> image = encodeHeader(buildHeader(document));
    const std::optional<QByteArray> recorded = encodeHeader(buildHeader(record));
    if (headerRegionWouldReachPayload(file, line) || !image || !recorded) {
        return false;
    }
    HeaderRewrite rewrite{*image, *recorded, {}, HeaderPadding::Unknown, withoutRecord};
    if (line) {
        rewrite.presentEnd = line->headerEnd();
        rewrite.padding =
            line->lineBytes == LengthLineBytes ? presentPadding : HeaderPadding::Unknown;
    }
    const std::optional<HeaderPadding> newPadding = rewriteHeader(file, rewrite);
    if (padding) {
        *padding = newPadding.value_or(HeaderPadding::Unknown);
    }
    return newPadding.has_value();
}

QByteArray ContainerManager::buildHeader(const ContainerDocument& document) const {
    // Put together by hand, in the toolkit's sorted order: the sealed index is megabytes of plain
    // Base64, and a JSON value of it would be built, widened and escaped only to come out the same.
    const QByteArray crypto =
        QJsonDocument(cryptoMetadataToJson(document.crypto)).toJson(QJsonDocument::Compact);
    return "{\"crypto\":" + crypto + ",\"encryptedIndex\":\"" + document.encryptedIndex.toBase64() +
           "\",\"formatVersion\":" + QByteArray::number(document.formatVersion) +
           ",\"magic\":\"TESSEL\"}";
}

QJsonObject ContainerManager::cryptoMetadataToJson(const ContainerCryptoMetadata& metadata) const {
    return {{QStringLiteral("kdf"), metadata.kdf},
            {QStringLiteral("cipher"), metadata.cipher},
            {QStringLiteral("kdfIterations"), metadata.kdfIterations},
            {QStringLiteral("salt"), bytesToBase64(metadata.salt)},
            {QStringLiteral("nonce"), bytesToBase64(metadata.nonce)},
            {QStringLiteral("payloadNonce"), bytesToBase64(metadata.payloadNonce)},
            {QStringLiteral("authTag"), bytesToBase64(metadata.authTag)},
            {QStringLiteral("encryptedMasterKey"), bytesToBase64(metadata.encryptedMasterKey)}};
}

ContainerCryptoMetadata ContainerManager::cryptoMetadataFromJson(const QJsonObject& object) const {
    ContainerCryptoMetadata metadata;
    metadata.kdf = object.value(u"kdf").toString();
    metadata.cipher = object.value(u"cipher").toString();
    metadata.kdfIterations = object.value(u"kdfIterations").toInt(metadata.kdfIterations);
    metadata.salt = bytesFromBase64(object.value(u"salt"));
    metadata.nonce = bytesFromBase64(object.value(u"nonce"));
    metadata.payloadNonce = bytesFromBase64(object.value(u"payloadNonce"));
    metadata.authTag = bytesFromBase64(object.value(u"authTag"));
    metadata.encryptedMasterKey = bytesFromBase64(object.value(u"encryptedMasterKey"));
    return metadata;
}

QByteArray ContainerManager::readContainer(const QString& path) const {
    QFile file(path);
    return openRegularFile(file, QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool ContainerManager::writeContainer(const QString& path, const QByteArray& bytes) const {
    QSaveFile file(path);
    return openPrivately(file) && writeWhole(file, bytes) && syncToDrive(file) && file.commit() &&
           syncAfterRename(path);
}

} // namespace Tessel::Core
