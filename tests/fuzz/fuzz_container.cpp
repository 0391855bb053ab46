// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A hostile container header, read by the engine and by a simple second reader: both must accept
// or refuse it, and find the same in it.

#include "core/ContainerManager.h"
#include "fuzz/FuzzTarget.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <array>
#include <optional>

using namespace Tessel::Core;
using namespace Tessel::Fuzz;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 HeaderRegionBytes = 8388608;
const QByteArray Magic = "TESSEL3"_ba;

struct HostileFile {
    QByteArray start;
    qint64 size = 0;

    [[nodiscard]] qint64 headerOffset() const { return start.indexOf('\n', Magic.size()) + 1; }
};

// The first byte selects how the rest becomes a file: as it is, or as the header after a valid
// magic and length line; and where the file ends.
HostileFile fileFrom(Input input) {
    constexpr std::uint8_t HeaderOnly = 1;
    const std::uint8_t shape = input.takeByte();
    HostileFile file;
    file.start = input.takeRest();
    if ((shape & HeaderOnly) != 0) {
        file.start.prepend(Magic + QByteArray::number(file.start.size()).rightJustified(20, '0') +
                           '\n');
    }
    const qint64 whole = file.headerOffset() + HeaderRegionBytes;
    const std::array<qint64, 4> sizes{whole, whole - 1, whole + 1, file.start.size()};
    file.size = sizes.at((shape >> 1U) & 3U);
    return file;
}

// The header's JSON object, if the file is a container.
std::optional<QJsonObject> secondReading(const HostileFile& file) {
    const qint64 offset = file.headerOffset();
    if (!file.start.startsWith(Magic) || offset == 0 || file.size < offset + HeaderRegionBytes) {
        return std::nullopt;
    }
    bool isNumber = false;
    const QByteArray line = file.start.mid(Magic.size(), offset - Magic.size());
    const qint64 length = line.trimmed().toLongLong(&isNumber);
    // Qt takes a zero byte for the end of the number.
    if (!isNumber || line.contains('\0') || length < 1 || length > HeaderRegionBytes) {
        return std::nullopt;
    }
    const QByteArray header = file.start.mid(offset).leftJustified(length, '\0', true);
    const QJsonDocument document = QJsonDocument::fromJson(header);
    const QJsonObject object = document.object();
    const bool good = document.isObject() && object.value(u"magic").isString() &&
                      object.value(u"magic").toString() == "TESSEL"_L1 &&
                      object.value(u"formatVersion").toInt(0) == 3;
    return good ? std::optional<QJsonObject>(object) : std::nullopt;
}

QByteArray fromBase64(const QJsonValue& value) {
    return QByteArray::fromBase64(value.toString().toLatin1());
}

void checkCrypto(const ContainerCryptoMetadata& crypto, const QJsonObject& object) {
    expect(crypto.kdf == object.value(u"kdf").toString(), "the kdf is the header's");
    expect(crypto.cipher == object.value(u"cipher").toString(), "the cipher is the header's");
    expect(crypto.kdfIterations == object.value(u"kdfIterations").toInt(250000),
           "the iterations are the header's");
    expect(crypto.salt == fromBase64(object.value(u"salt")) &&
               crypto.nonce == fromBase64(object.value(u"nonce")) &&
               crypto.payloadNonce == fromBase64(object.value(u"payloadNonce")) &&
               crypto.authTag == fromBase64(object.value(u"authTag")) &&
               crypto.encryptedMasterKey == fromBase64(object.value(u"encryptedMasterKey")),
           "the byte fields are the header's");
}

void checkDocument(const ContainerDocument& document, const QJsonObject& object) {
    checkCrypto(document.crypto, object.value(u"crypto").toObject());
    expect(document.encryptedIndex == fromBase64(object.value(u"encryptedIndex")),
           "the sealed index is the header's");
    expect(document.encryptedPayload == fromBase64(object.value(u"encryptedPayload")),
           "the older payload is the header's");
    const QJsonObject payloads = object.value(u"filePayloads").toObject();
    expect(document.filePayloads.size() == payloads.size(), "every older file is read");
    for (auto payload = payloads.constBegin(); payload != payloads.constEnd(); ++payload) {
        expect(document.filePayloads.value(payload.key()) == fromBase64(payload.value()),
               "an older file is the header's");
    }
    const QJsonDocument index(object.value(u"fileIndex").toObject());
    expect(document.fileIndex.toJson() ==
               SecureFileIndex::fromJson(index.toJson(QJsonDocument::Compact)).toJson(),
           "the plain index is the header's");
}

void checkWrittenHeader(const ContainerManager& manager, const ContainerDocument& document) {
    const QJsonObject object{
        {u"magic"_s, u"TESSEL"_s},
        {u"formatVersion"_s, document.formatVersion},
        {u"crypto"_s, manager.cryptoMetadataToJson(document.crypto)},
        {u"encryptedIndex"_s, QString::fromLatin1(document.encryptedIndex.toBase64())}};
    const QByteArray header = manager.buildHeader(document);
    expect(header == QJsonDocument(object).toJson(QJsonDocument::Compact),
           "the header is written as Qt would write it");
    const QJsonObject crypto = QJsonDocument::fromJson(header).object().value(u"crypto").toObject();
    expect(manager.cryptoMetadataToJson(manager.cryptoMetadataFromJson(crypto)) ==
               manager.cryptoMetadataToJson(document.crypto),
           "what is written reads back");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr qint64 Untouched = -77;
    static const MemoryFile memory;
    const HostileFile file = fileFrom(Input(data, size));
    memory.reset(file.size);
    memory.write(0, file.start.left(file.size));

    const ContainerManager manager;
    ContainerDocument document;
    document.payloadOffset = Untouched;
    const bool read = manager.readDocument(memory.path(), &document);
    const std::optional<QJsonObject> expected = secondReading(file);
    expect(read == expected.has_value(), "both readers agree on what is a container");
    if (!read) {
        expect(document.payloadOffset == Untouched && document.encryptedIndex.isEmpty(),
               "a refused container leaves the document untouched");
        return 0;
    }
    expect(document.formatVersion == 3, "only one format version is read");
    expect(document.payloadOffset == file.headerOffset() + HeaderRegionBytes,
           "the payload follows the header region");
    checkDocument(document, *expected);
    checkWrittenHeader(manager, document);
    return 0;
}
