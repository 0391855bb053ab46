// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/HeaderCodec.h"

#include "core/Base64.h"
#include "core/ContainerLayout.h"
#include "core/LengthLine.h"

#include <QJsonDocument>

namespace Tessel::Core {

using namespace Qt::Literals::StringLiterals;

namespace {

using namespace ContainerLayout;

constexpr qint64 LargestImage = LengthLineBytes + HeaderRegionBytes;

struct ParsedHeader {
    QJsonObject object;
    QByteArray sealedIndex;
};

QByteArray bytesFromBase64(const QJsonValue& value) {
    return decodeBase64(value.toString().toLatin1());
}

QString bytesToBase64(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64());
}

// Nearly all of a header is the sealed index, in symbols that need no escape. Where our writer puts
// it, it is decoded in place: Qt would first parse, widen and narrow megabytes of it. Qt gets the
// header with an empty text instead.
ParsedHeader splitHeader(const QByteArray& header) {
    constexpr QByteArrayView Before(",\"encryptedIndex\":\"");
    constexpr QByteArrayView After("\",\"formatVersion\":3,\"magic\":\"TESSEL\"}");
    const qsizetype begin = header.indexOf(Before) + Before.size();
    const qsizetype end = header.size() - After.size();
    if (begin >= Before.size() && begin <= end && header.endsWith(After)) {
        const QByteArrayView symbols = QByteArrayView(header).sliced(begin, end - begin);
        if (const std::optional<QByteArray> index = decodeWellFormedBase64(symbols)) {
            const QByteArray rest = header.first(begin) + header.sliced(end);
            return {QJsonDocument::fromJson(rest).object(), *index};
        }
    }
    const QJsonObject object = QJsonDocument::fromJson(header).object();
    return {object, bytesFromBase64(object.value("encryptedIndex"_L1))};
}

// Put together by hand, in Qt's sorted order: the sealed index is megabytes of plain Base64, and a
// JSON value of it would be built, widened and escaped only to come out the same.
void appendHeader(QByteArray* header, const ContainerDocument& document,
                  const QByteArray& sealedIndex) {
    const QByteArray crypto =
        QJsonDocument(cryptoMetadataToJson(document.crypto)).toJson(QJsonDocument::Compact);
    *header += "{\"crypto\":" + crypto + ",\"encryptedIndex\":\"";
    appendBase64(header, sealedIndex);
    *header += "\",\"formatVersion\":" + QByteArray::number(document.formatVersion) +
               ",\"magic\":\"TESSEL\"}";
}

// The length line and the header.
void writeImage(QByteArray* image, const ContainerDocument& document,
                const QByteArray& sealedIndex) {
    // All length lines are of one size: this one is a placeholder.
    image->resize(0);
    image->append(lengthLineFor(0));
    appendHeader(image, document, sealedIndex);
    const qsizetype headerBytes = image->size() - LengthLineBytes;
    image->replace(0, LengthLineBytes, lengthLineFor(headerBytes));
}

} // namespace

QByteArray buildHeader(const ContainerDocument& document) {
    QByteArray header;
    appendHeader(&header, document, document.encryptedIndex);
    return header;
}

bool encodeHeader(const ContainerDocument& document, QByteArray* image) {
    writeImage(image, document, document.encryptedIndex);
    return image->size() <= LargestImage;
}

bool encodeRecordImage(const ContainerDocument& document, QByteArray* image) {
    writeImage(image, document, {});
    image->append(document.encryptedIndex);
    return image->size() <= LargestImage;
}

std::optional<ContainerDocument> parseHeader(const QByteArray& header) {
    const auto [object, sealedIndex] = splitHeader(header);
    if (object.value("magic"_L1) != "TESSEL"_L1 ||
        object.value("formatVersion"_L1).toInt(0) != FormatVersion) {
        return std::nullopt;
    }
    ContainerDocument document;
    document.crypto = cryptoMetadataFromJson(object.value("crypto"_L1).toObject());
    document.fileIndex = SecureFileIndex::fromJson(
        QJsonDocument(object.value("fileIndex"_L1).toObject()).toJson(QJsonDocument::Compact));
    document.encryptedIndex = sealedIndex;
    document.encryptedPayload = bytesFromBase64(object.value("encryptedPayload"_L1));
    const QJsonObject payloads = object.value("filePayloads"_L1).toObject();
    for (auto payload = payloads.constBegin(); payload != payloads.constEnd(); ++payload) {
        document.filePayloads.insert(payload.key(), bytesFromBase64(payload.value()));
    }
    return document;
}

QJsonObject cryptoMetadataToJson(const ContainerCryptoMetadata& metadata) {
    return {{u"kdf"_s, metadata.kdf},
            {u"cipher"_s, metadata.cipher},
            {u"kdfIterations"_s, metadata.kdfIterations},
            {u"salt"_s, bytesToBase64(metadata.salt)},
            {u"nonce"_s, bytesToBase64(metadata.nonce)},
            {u"payloadNonce"_s, bytesToBase64(metadata.payloadNonce)},
            {u"authTag"_s, bytesToBase64(metadata.authTag)},
            {u"encryptedMasterKey"_s, bytesToBase64(metadata.encryptedMasterKey)}};
}

ContainerCryptoMetadata cryptoMetadataFromJson(const QJsonObject& object) {
    ContainerCryptoMetadata metadata;
    metadata.kdf = object.value("kdf"_L1).toString();
    metadata.cipher = object.value("cipher"_L1).toString();
    metadata.kdfIterations = object.value("kdfIterations"_L1).toInt(metadata.kdfIterations);
    metadata.salt = bytesFromBase64(object.value("salt"_L1));
    metadata.nonce = bytesFromBase64(object.value("nonce"_L1));
    metadata.payloadNonce = bytesFromBase64(object.value("payloadNonce"_L1));
    metadata.authTag = bytesFromBase64(object.value("authTag"_L1));
    metadata.encryptedMasterKey = bytesFromBase64(object.value("encryptedMasterKey"_L1));
    return metadata;
}

} // namespace Tessel::Core
