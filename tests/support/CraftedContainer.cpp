// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"

#include "support/Files.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <sodium.h>

#include <cstring>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

const QString SomeDate = u"2025-03-01T14:05:09.120Z"_s;

const unsigned char* bytesOf(const QByteArray& array) {
    return reinterpret_cast<const unsigned char*>(array.constData());
}

unsigned char* bytesOf(QByteArray& array) {
    return reinterpret_cast<unsigned char*>(array.data());
}

std::size_t sizeOf(const QByteArray& array) {
    return static_cast<std::size_t>(array.size());
}

QString base64(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64());
}

QJsonValue milliseconds(const QJsonValue& date) {
    const QDateTime time = QDateTime::fromString(date.toString(), Qt::ISODateWithMs);
    return time.isValid() ? QJsonValue(time.toMSecsSinceEpoch()) : QJsonValue();
}

QJsonArray rowOfFile(const QJsonObject& file) {
    QJsonArray blocks;
    const QJsonArray list = file.value(u"blocks").toArray();
    for (const auto& item : list) {
        const QJsonObject block = item.toObject();
        blocks.append(QJsonArray{block.value(u"offset"), block.value(u"plainSize"),
                                 block.value(u"encryptedSize"), block.value(u"nonce")});
    }
    const QByteArray digest = QByteArray::fromHex(file.value(u"sha256").toString().toLatin1());
    return {file.value(u"id"),        file.value(u"vaultPath"),
            file.value(u"sizeBytes"), milliseconds(file.value(u"lastModifiedUtc")),
            base64(digest),           blocks};
}

// The index in rows, as redo records of an earlier version hold it.
QByteArray rowsOf(const QJsonObject& index) {
    QJsonArray folders;
    const QJsonArray directories = index.value(u"directories").toArray();
    for (const auto& item : directories) {
        const QJsonObject folder = item.toObject();
        folders.append(QJsonArray{folder.value(u"path"), milliseconds(folder.value(u"createdUtc")),
                                  milliseconds(folder.value(u"modifiedUtc"))});
    }
    QJsonArray files;
    const QJsonArray entries = index.value(u"files").toArray();
    for (const auto& item : entries) {
        files.append(rowOfFile(item.toObject()));
    }
    return QJsonDocument(QJsonArray{folders, files}).toJson(QJsonDocument::Compact);
}

QByteArray packedNumber(qint64 number) {
    QByteArray packed;
    for (; number > 127; number /= 128) {
        packed += static_cast<char>(128 + number % 128);
    }
    return packed + static_cast<char>(number);
}

QByteArray packedText(const QJsonValue& text) {
    const QByteArray utf8 = text.toString().toUtf8();
    return packedNumber(utf8.size() * 2) + utf8;
}

QByteArray packedDate(const QJsonValue& date) {
    const QJsonValue time = milliseconds(date);
    return packedNumber(time.isNull() ? 0 : time.toInteger() * 2 + 1);
}

QByteArray packedFile(const QJsonObject& file) {
    const QByteArray id = file.value(u"id").toString().toLatin1();
    const QJsonArray blocks = file.value(u"blocks").toArray();
    QByteArray packed = packedNumber(1) + QByteArray::fromHex(id) +
                        packedText(file.value(u"vaultPath")) +
                        packedNumber(file.value(u"sizeBytes").toInteger()) +
                        packedDate(file.value(u"lastModifiedUtc")) +
                        QByteArray::fromHex(file.value(u"sha256").toString().toLatin1()) +
                        packedNumber(blocks.size());
    for (const auto& item : blocks) {
        const QJsonObject block = item.toObject();
        packed += packedNumber(block.value(u"offset").toInteger()) +
                  packedNumber(block.value(u"plainSize").toInteger()) +
                  QByteArray::fromBase64(block.value(u"nonce").toString().toLatin1());
    }
    return packed;
}

// The packed index, of files of the usual form.
QByteArray packedIndexOf(const QJsonObject& index) {
    const QJsonArray directories = index.value(u"directories").toArray();
    QByteArray packed = packedNumber(directories.size());
    for (const auto& item : directories) {
        const QJsonObject folder = item.toObject();
        packed += packedText(folder.value(u"path")) + packedDate(folder.value(u"createdUtc")) +
                  packedDate(folder.value(u"modifiedUtc"));
    }
    const QJsonArray files = index.value(u"files").toArray();
    packed += packedNumber(files.size());
    for (const auto& item : files) {
        packed += packedFile(item.toObject());
    }
    return packed;
}

QByteArray hmac(const QByteArray& key, const QByteArray& message) {
    crypto_auth_hmacsha256_state state;
    QByteArray code(crypto_auth_hmacsha256_BYTES, Qt::Uninitialized);
    crypto_auth_hmacsha256_init(&state, bytesOf(key), sizeOf(key));
    crypto_auth_hmacsha256_update(&state, bytesOf(message), sizeOf(message));
    crypto_auth_hmacsha256_final(&state, bytesOf(code));
    return code;
}

// One block of PBKDF2 (RFC 8018, section 5.2); two of them make a 64-byte key.
QByteArray pbkdf2Block(const CraftedKeys& keys, char number) {
    QByteArray u = hmac(keys.password, keys.salt + QByteArray(3, '\0') + number);
    QByteArray block = u;
    for (qint32 i = 1; i < keys.kdfIterations; ++i) {
        u = hmac(keys.password, u);
        for (qsizetype j = 0; j < block.size(); ++j) {
            block[j] = static_cast<char>(block.at(j) ^ u.at(j));
        }
    }
    return block;
}

QByteArray argon2id(const CraftedKeys& keys) {
    QByteArray key(64, '\0');
    if (crypto_pwhash(bytesOf(key), 64, keys.password.constData(), sizeOf(keys.password),
                      bytesOf(keys.salt), 3, 268435456, crypto_pwhash_ALG_ARGON2ID13) != 0) {
        qFatal("no memory for Argon2id");
    }
    return key;
}

void setMember(QJsonObject& object, const QString& key, const QJsonValue& value) {
    if (value.isUndefined()) {
        object.remove(key);
    } else {
        object.insert(key, value);
    }
}

// Changes the n-th object of the array with this key.
void editElement(QJsonObject& object, const QString& key, qsizetype position,
                 const std::function<void(QJsonObject&)>& edit) {
    QJsonArray array = object.value(key).toArray();
    QJsonObject element = array.at(position).toObject();
    edit(element);
    array.replace(position, element);
    object.insert(key, array);
}

QByteArray compact(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QByteArray withReplacements(QByteArray text, const QList<QPair<QByteArray, QByteArray>>& pairs) {
    for (const auto& [before, after] : pairs) {
        if (!text.contains(before)) {
            qFatal("\"%s\" is not in the text to be crafted", before.constData());
        }
        text.replace(before, after);
    }
    return text;
}

} // namespace

CraftedContainer::CraftedContainer(quint64 seed) : m_seed(seed) {
    if (sodium_init() < 0) {
        qFatal("libsodium cannot be initialised");
    }
    keys.salt = freshBytes(16);
    keys.nonce = freshBytes(24);
    keys.payloadNonce = freshBytes(24);
    keys.masterKey = freshBytes(64);
}

QByteArray CraftedContainer::freshBytes(qsizetype size) {
    return noise(size, m_seed * 1000003 + m_drawn++);
}

CraftedContainer& CraftedContainer::addFile(const QString& path, const QByteArray& contents,
                                            qint64 blockBytes) {
    const QByteArray digest = QCryptographicHash::hash(contents, QCryptographicHash::Sha256);
    const QString id =
        u"00000000-0000-4000-8000-%1"_s.arg(m_files.size(), 12, 16, QLatin1Char('0'));
    const QJsonObject entry{{u"id"_s, id},
                            {u"vaultPath"_s, path},
                            {u"sizeBytes"_s, contents.size()},
                            {u"lastModifiedUtc"_s, SomeDate},
                            {u"sha256"_s, QString::fromLatin1(digest.toHex())}};
    for (qint64 begin = 0; begin < contents.size(); begin += blockBytes) {
        m_pieces.append({contents.mid(begin, blockBytes), freshBytes(24), m_files.size()});
    }
    m_files.append(entry);
    return *this;
}

CraftedContainer& CraftedContainer::addFolder(const QString& path) {
    m_folders.append(
        {{u"path"_s, path}, {u"createdUtc"_s, SomeDate}, {u"modifiedUtc"_s, SomeDate}});
    return *this;
}

CraftedContainer& CraftedContainer::leaveGap(qint64 bytes) {
    return addPayload(QByteArray(bytes, '\0'));
}

CraftedContainer& CraftedContainer::addPayload(const QByteArray& bytes) {
    m_pieces.append({bytes, {}, -1});
    return *this;
}

CraftedContainer& CraftedContainer::setFileMember(qsizetype file, const QString& key,
                                                  const QJsonValue& value) {
    m_indexEdits.append([=](QJsonObject& index) {
        editElement(index, u"files"_s, file,
                    [&](QJsonObject& entry) { setMember(entry, key, value); });
    });
    return *this;
}

CraftedContainer& CraftedContainer::setBlockMember(qsizetype file, qsizetype block,
                                                   const QString& key, const QJsonValue& value) {
    m_indexEdits.append([=](QJsonObject& index) {
        editElement(index, u"files"_s, file, [&](QJsonObject& entry) {
            editElement(entry, u"blocks"_s, block,
                        [&](QJsonObject& element) { setMember(element, key, value); });
        });
    });
    return *this;
}

CraftedContainer& CraftedContainer::setFolderMember(qsizetype folder, const QString& key,
                                                    const QJsonValue& value) {
    m_indexEdits.append([=](QJsonObject& index) {
        editElement(index, u"directories"_s, folder,
                    [&](QJsonObject& entry) { setMember(entry, key, value); });
    });
    return *this;
}

CraftedContainer& CraftedContainer::setIndexMember(const QString& key, const QJsonValue& value) {
    m_indexEdits.append([=](QJsonObject& index) { setMember(index, key, value); });
    return *this;
}

CraftedContainer& CraftedContainer::replaceInIndex(const QByteArray& before,
                                                   const QByteArray& after) {
    m_indexReplacements.append({before, after});
    return *this;
}

CraftedContainer& CraftedContainer::setIndexJson(const QByteArray& json) {
    m_indexJson = json;
    return *this;
}

CraftedContainer& CraftedContainer::setEncryptedIndex(const QByteArray& bytes) {
    m_encryptedIndex = bytes;
    return *this;
}

CraftedContainer& CraftedContainer::setHeaderMember(const QString& key, const QJsonValue& value) {
    m_headerEdits.append([=](QJsonObject& header) { setMember(header, key, value); });
    return *this;
}

CraftedContainer& CraftedContainer::setCryptoMember(const QString& key, const QJsonValue& value) {
    m_headerEdits.append([=](QJsonObject& header) {
        QJsonObject crypto = header.value(u"crypto").toObject();
        setMember(crypto, key, value);
        header.insert(u"crypto", crypto);
    });
    return *this;
}

CraftedContainer& CraftedContainer::replaceInHeader(const QByteArray& before,
                                                    const QByteArray& after) {
    m_headerReplacements.append({before, after});
    return *this;
}

CraftedContainer& CraftedContainer::setHeaderJson(const QByteArray& json) {
    m_headerJson = json;
    return *this;
}

CraftedContainer& CraftedContainer::setMagic(const QByteArray& magic) {
    m_magic = magic;
    return *this;
}

CraftedContainer& CraftedContainer::setLengthLine(const QByteArray& line) {
    m_lengthLine = line;
    return *this;
}

CraftedContainer& CraftedContainer::setPadding(char byte) {
    m_padding = byte;
    return *this;
}

CraftedContainer& CraftedContainer::cutAt(qint64 size) {
    m_cutAt = size;
    return *this;
}

CraftedContainer CraftedContainer::withIndexInRows() const {
    return withRows(rowsOf(QJsonDocument::fromJson(indexJson()).object()));
}

CraftedContainer CraftedContainer::withRows(const QByteArray& rows) const {
    return withIndex(rows, "index-rows", 'R');
}

CraftedContainer CraftedContainer::withPackedIndex() const {
    return withPacked(packedIndexOf(QJsonDocument::fromJson(indexJson()).object()));
}

CraftedContainer CraftedContainer::withPacked(const QByteArray& packed) const {
    return withIndex(packed, "index-packed", 'P');
}

CraftedContainer CraftedContainer::withIndex(const QByteArray& index, const QByteArray& purpose,
                                             char nonceByte) const {
    CraftedContainer copy = *this;
    copy.keys.payloadNonce = QByteArray(24, nonceByte);
    copy.m_encryptedIndex =
        seal(index, keys.masterKey.left(32), copy.keys.payloadNonce,
             "TESSEL|" + purpose + "|3|" + keys.cipher + '|' + copy.keys.payloadNonce);
    return copy;
}

QByteArray CraftedContainer::redoRecord() const {
    CraftedContainer withoutIndex = *this;
    withoutIndex.setEncryptedIndex({});
    return recordOf(withoutIndex.lengthLine() + withoutIndex.headerJson() + encryptedIndex());
}

QByteArray CraftedContainer::earlierRedoRecord() const {
    return recordOf(lengthLine() + headerJson());
}

QByteArray CraftedContainer::recordOf(const QByteArray& image) {
    return image + QCryptographicHash::hash(image, QCryptographicHash::Sha256) +
           QByteArray::number(image.size()).rightJustified(20, '0') + "TESSEL-REDO\n";
}

bool CraftedContainer::writeTo(const QString& path) const {
    const QByteArray start = m_magic + lengthLine() + headerJson();
    const qint64 paddingBytes = payloadOffset() - start.size();
    if (m_padding != '\0' || paddingBytes < 0) {
        return writeFile(path, bytes());
    }
    QFile file(path);
    const QByteArray region = payload();
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered) &&
           file.write(start) == start.size() && file.seek(payloadOffset()) &&
           file.write(region) == region.size() && file.resize(fileSize());
}

QByteArray CraftedContainer::bytes() const {
    QByteArray all = m_magic + lengthLine() + headerJson();
    all = all.leftJustified(payloadOffset(), m_padding) + payload();
    return m_cutAt ? all.leftJustified(*m_cutAt, '\0', true) : all;
}

QByteArray CraftedContainer::passwordKey() const {
    return keys.kdf == "Argon2id" ? argon2id(keys) : pbkdf2Block(keys, 1) + pbkdf2Block(keys, 2);
}

QByteArray CraftedContainer::masterKeyAssociatedData() const {
    return "TESSEL|master-key|3|" + keys.cipher + '|' + keys.kdf + '|' +
           QByteArray::number(keys.kdfIterations) + '|' + keys.salt + '|' + keys.nonce;
}

QByteArray CraftedContainer::indexAssociatedData() const {
    return "TESSEL|index|3|" + keys.cipher + '|' + keys.payloadNonce;
}

QByteArray CraftedContainer::blockAssociatedData() {
    return "TESSEL|file-block|3"_ba;
}

QByteArray CraftedContainer::encryptedMasterKey() const {
    return seal(keys.masterKey, passwordKey().left(32), keys.nonce, masterKeyAssociatedData());
}

QJsonObject CraftedContainer::plainIndex() const {
    QJsonArray files;
    for (qsizetype i = 0; i < m_files.size(); ++i) {
        QJsonArray list;
        const QList<CraftedBlock> fileBlocks = blocks(i);
        for (const CraftedBlock& block : fileBlocks) {
            list.append(QJsonObject{{u"offset"_s, block.offset},
                                    {u"plainSize"_s, block.plainSize},
                                    {u"encryptedSize"_s, block.encryptedSize},
                                    {u"nonce"_s, base64(block.nonce)}});
        }
        QJsonObject entry = m_files.at(i);
        entry.insert(u"blocks", list);
        files.append(entry);
    }
    QJsonArray folders;
    for (const QJsonObject& folder : m_folders) {
        folders.append(folder);
    }
    return {{u"formatVersion"_s, 1}, {u"files"_s, files}, {u"directories"_s, folders}};
}

QByteArray CraftedContainer::indexJson() const {
    if (m_indexJson) {
        return *m_indexJson;
    }
    QJsonObject index = plainIndex();
    for (const Edit& edit : m_indexEdits) {
        edit(index);
    }
    return withReplacements(compact(index), m_indexReplacements);
}

QByteArray CraftedContainer::encryptedIndex() const {
    return m_encryptedIndex ? *m_encryptedIndex
                            : seal(indexJson(), keys.masterKey.left(32), keys.payloadNonce,
                                   indexAssociatedData());
}

QByteArray CraftedContainer::headerJson() const {
    if (m_headerJson) {
        return *m_headerJson;
    }
    const QJsonObject crypto{{u"kdf"_s, QString::fromUtf8(keys.kdf)},
                             {u"cipher"_s, QString::fromUtf8(keys.cipher)},
                             {u"kdfIterations"_s, keys.kdfIterations},
                             {u"salt"_s, base64(keys.salt)},
                             {u"nonce"_s, base64(keys.nonce)},
                             {u"payloadNonce"_s, base64(keys.payloadNonce)},
                             {u"authTag"_s, QString()},
                             {u"encryptedMasterKey"_s, base64(encryptedMasterKey())}};
    QJsonObject header{{u"magic"_s, u"TESSEL"_s},
                       {u"formatVersion"_s, 3},
                       {u"crypto"_s, crypto},
                       {u"encryptedIndex"_s, base64(encryptedIndex())}};
    for (const Edit& edit : m_headerEdits) {
        edit(header);
    }
    return withReplacements(compact(header), m_headerReplacements);
}

QByteArray CraftedContainer::lengthLine() const {
    return m_lengthLine.value_or(QByteArray::number(headerJson().size()).rightJustified(20, '0') +
                                 '\n');
}

qint64 CraftedContainer::headerOffset() const {
    return m_magic.size() + (m_lengthLine ? m_lengthLine->size() : 21);
}

qint64 CraftedContainer::payloadOffset() const {
    return headerOffset() + HeaderRegionBytes;
}

qint64 CraftedContainer::sizeInFile(const Piece& piece) const {
    return piece.bytes.size() + (piece.file < 0 ? 0 : TagBytes);
}

QByteArray CraftedContainer::payload() const {
    QByteArray region;
    for (const Piece& piece : m_pieces) {
        region += piece.file < 0 ? piece.bytes : sealBlock(piece.bytes, piece.nonce);
    }
    return region;
}

qint64 CraftedContainer::fileSize() const {
    qint64 size = payloadOffset();
    for (const Piece& piece : m_pieces) {
        size += sizeInFile(piece);
    }
    return m_cutAt.value_or(size);
}

QList<CraftedBlock> CraftedContainer::blocks(qsizetype file) const {
    QList<CraftedBlock> list;
    qint64 offset = payloadOffset();
    for (const Piece& piece : m_pieces) {
        if (piece.file == file) {
            list.append({offset, piece.bytes.size(), sizeInFile(piece), piece.nonce});
        }
        offset += sizeInFile(piece);
    }
    return list;
}

QByteArray CraftedContainer::sealBlock(const QByteArray& plain, const QByteArray& nonce) const {
    return seal(plain, keys.masterKey.left(32), nonce, blockAssociatedData());
}

QByteArray CraftedContainer::seal(const QByteArray& plain, const QByteArray& key,
                                  const QByteArray& nonce, const QByteArray& associatedData) {
    if (key.size() != 32 || nonce.size() != 24) {
        qFatal("a key of 32 bytes and a nonce of 24 are needed");
    }
    QByteArray sealed(plain.size() + TagBytes, Qt::Uninitialized);
    crypto_aead_xchacha20poly1305_ietf_encrypt(
        bytesOf(sealed), nullptr, bytesOf(plain), sizeOf(plain), bytesOf(associatedData),
        sizeOf(associatedData), nullptr, bytesOf(nonce), bytesOf(key));
    return sealed;
}

QByteArray CraftedContainer::open(const QByteArray& sealed, const QByteArray& key,
                                  const QByteArray& nonce, const QByteArray& associatedData) {
    if (key.size() != 32 || nonce.size() != 24 || sealed.size() < TagBytes) {
        return {};
    }
    QByteArray plain(sealed.size() - TagBytes, Qt::Uninitialized);
    const int result = crypto_aead_xchacha20poly1305_ietf_decrypt(
        bytesOf(plain), nullptr, nullptr, bytesOf(sealed), sizeOf(sealed), bytesOf(associatedData),
        sizeOf(associatedData), bytesOf(nonce), bytesOf(key));
    return result == 0 ? plain : QByteArray();
}

} // namespace Tessel::Tests
