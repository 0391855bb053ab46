// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/PackedIndex.h"

#include "core/CryptoManager.h"
#include "core/EntryEncodings.h"
#include "core/IndexDate.h"
#include "core/QtVersions.h"

#include <QUtf8StringView>
#include <QUuid>
#include <QtEndian>

#include <algorithm>
#include <utility>

namespace Tessel::Core {

namespace {

constexpr quint64 GeneralForm = 0;
// What every file has that this program stored: a UUID, a digest and nonces of the usual sizes, and
// a tag after the bytes of each block.
constexpr quint64 UsualForm = 1;
constexpr qsizetype IdBytes = 16;
constexpr qsizetype DigestBytes = 32;
constexpr qsizetype NonceBytes = CryptoManager::NonceBytes;
constexpr qint64 TagBytes = CryptoManager::TagBytes;
constexpr QByteArrayView ByteOrderMark("\xef\xbb\xbf");

// The least that each takes. A count of more than the bytes that are left can hold is malformed.
constexpr qsizetype LeastFolderBytes = 4;
constexpr qsizetype LeastFileBytes = 8;
constexpr qsizetype LeastBlockBytes = 4;
// The least that a usual one takes. Memory is reserved for no more than as many as fit: a file
// takes twice as much in memory, a block as well.
constexpr qsizetype LeastUsualFileBytes = 54;
constexpr qsizetype LeastUsualBlockBytes = 26;

// --- Writing --------------------------------------------------------------------------------

// Seven bits in a byte, the lowest first; all bytes but the last have the eighth bit.
void appendNumber(QByteArray* packed, quint64 number) {
    for (; number >= 0x80; number >>= 7) {
        packed->append(static_cast<char>(number | 0x80));
    }
    packed->append(static_cast<char>(number));
}

void appendSigned(QByteArray* packed, qint64 number) {
    appendNumber(packed, static_cast<quint64>(number));
}

void appendSizedBytes(QByteArray* packed, const QByteArray& bytes) {
    appendSigned(packed, bytes.size());
    packed->append(bytes);
}

// UTF-8 after an even number, UTF-16 after an odd one: UTF-8 cannot hold half a surrogate pair.
void appendText(QByteArray* packed, const QString& text) {
    if (text.isValidUtf16()) {
        const QByteArray utf8 = text.toUtf8();
        appendSigned(packed, utf8.size() * 2);
        packed->append(utf8);
        return;
    }
    appendSigned(packed, text.size() * 2 + 1);
    for (const QChar c : text) {
        packed->append(static_cast<char>(c.cell()));
        packed->append(static_cast<char>(c.row()));
    }
}

// 0 for a date that is not set. Else the milliseconds: those since 1970 in odd numbers, those
// before in even ones.
void appendDate(QByteArray* packed, const QDateTime& dateTime) {
    const std::optional<qint64> time = indexDate(dateTime);
    if (!time) {
        appendNumber(packed, 0);
    } else {
        appendSigned(packed, *time >= 0 ? *time * 2 + 1 : *time * -2);
    }
}

QString idFromBytes(QByteArrayView bytes) {
    return QUuid::fromRfc4122(bytes).toString(QUuid::WithoutBraces);
}

// The bytes of a UUID as this program writes it; nothing for any other text.
QByteArray bytesOfId(const QString& id) {
    const QByteArray bytes = QUuid::fromString(id).toRfc4122();
    return idFromBytes(bytes) == id ? bytes : QByteArray();
}

bool hasUsualForm(const VaultFileBlock& block) {
    return block.nonce.size() == NonceBytes && block.plainSize >= 0 &&
           block.encryptedSize >= TagBytes && block.encryptedSize - TagBytes == block.plainSize;
}

void appendBlock(QByteArray* packed, const VaultFileBlock& block, bool isUsual) {
    appendSigned(packed, block.offset);
    appendSigned(packed, block.plainSize);
    if (isUsual) {
        packed->append(block.nonce);
    } else {
        appendSigned(packed, block.encryptedSize);
        appendSizedBytes(packed, block.nonce);
    }
}

void appendFile(QByteArray* packed, const VaultFileEntry& entry) {
    const QByteArray id = bytesOfId(entry.id);
    const bool isUsual = !id.isEmpty() && entry.sha256.size() == DigestBytes &&
                         std::all_of(entry.blocks.cbegin(), entry.blocks.cend(),
                                     [](const auto& block) { return hasUsualForm(block); });
    if (isUsual) {
        appendNumber(packed, UsualForm);
        packed->append(id);
    } else {
        appendNumber(packed, GeneralForm);
        appendText(packed, entry.id);
    }
    appendText(packed, entry.vaultPath);
    appendSigned(packed, entry.sizeBytes);
    appendDate(packed, entry.lastModifiedUtc);
    if (isUsual) {
        packed->append(entry.sha256);
    } else {
        appendSizedBytes(packed, entry.sha256);
    }
    appendSigned(packed, entry.blocks.size());
    for (const VaultFileBlock& block : entry.blocks) {
        appendBlock(packed, block, isUsual);
    }
}

void appendFolder(QByteArray* packed, const VaultDirectoryEntry& folder) {
    appendText(packed, folder.path);
    appendDate(packed, folder.createdUtc);
    appendDate(packed, folder.modifiedUtc);
}

// --- Reading --------------------------------------------------------------------------------

// Takes one value after the other from the bytes. After the first malformed one it has failed, and
// every further value is empty or 0.
class Reader {
public:
    explicit Reader(QByteArrayView bytes) : m_rest(bytes) {}

    bool failed() const { return m_failed; }
    bool atEnd() const { return m_rest.isEmpty(); }
    qsizetype bytesLeft() const { return m_rest.size(); }
    void fail() {
        m_failed = true;
        m_rest = {};
    }

    QByteArrayView takeBytes(qsizetype size) {
        if (size < 0 || size > m_rest.size()) {
            fail();
            return {};
        }
        return std::exchange(m_rest, m_rest.sliced(size)).first(size);
    }

    quint64 takeNumber() {
        constexpr int LastShift = 63;
        quint64 number = 0;
        for (int shift = 0; shift <= LastShift; shift += 7) {
            const QByteArrayView byte = takeBytes(1);
            const quint64 bits = byte.isEmpty() ? 0 : static_cast<quint8>(byte.front());
            // There is one way to write a number: without a last byte of 0 and a 65th bit.
            if (m_failed || (shift > 0 && bits == 0) || (shift == LastShift && bits > 1)) {
                break;
            }
            number |= (bits & 0x7f) << shift;
            if (bits < 0x80) {
                return number;
            }
        }
        fail();
        return 0;
    }

    qint64 takeSigned() { return static_cast<qint64>(takeNumber()); }

    // Of items that take so many bytes at least.
    qsizetype takeCount(qsizetype leastBytes) {
        const quint64 count = takeNumber();
        if (count > static_cast<quint64>(m_rest.size() / leastBytes)) {
            fail();
            return 0;
        }
        return static_cast<qsizetype>(count);
    }

    QByteArray takeSizedBytes() { return takeBytes(takeCount(1)).toByteArray(); }

    QString takeText() {
        const quint64 form = takeNumber();
        if (form / 2 > static_cast<quint64>(m_rest.size())) {
            fail();
            return {};
        }
        const auto size = static_cast<qsizetype>(form / 2);
        return form % 2 == 0 ? textFromUtf8(takeBytes(size)) : textFromUtf16(takeBytes(size * 2));
    }

    QDateTime takeDate() {
        const quint64 number = takeNumber();
        if (number == 0) {
            return {};
        }
        const auto half = static_cast<qint64>(number / 2);
        const qint64 time = number % 2 == 1 ? half : -half;
        if (time < EarliestIndexDate || time > LatestIndexDate) {
            fail();
            return {};
        }
        return QDateTime::fromMSecsSinceEpoch(time, Utc);
    }

private:
    QString textFromUtf8(QByteArrayView bytes) {
        if (!QUtf8StringView(bytes.data(), bytes.size()).isValidUtf8()) {
            fail();
            return {};
        }
        // Qt would drop a byte order mark.
        return bytes.startsWith(ByteOrderMark)
                   ? QChar(QChar::ByteOrderMark) +
                         QString::fromUtf8(bytes.sliced(ByteOrderMark.size()))
                   : QString::fromUtf8(bytes);
    }

    static QString textFromUtf16(QByteArrayView bytes) {
        QString text(bytes.size() / 2, Qt::Uninitialized);
        for (qsizetype i = 0; i < text.size(); ++i) {
            text[i] = QChar(qFromLittleEndian<quint16>(bytes.data() + 2 * i));
        }
        return text;
    }

    QByteArrayView m_rest;
    bool m_failed = false;
};

VaultFileBlock takeUsualBlock(Reader* reader) {
    VaultFileBlock block;
    block.offset = reader->takeSigned();
    block.plainSize = reader->takeSigned();
    block.nonce = reader->takeBytes(NonceBytes).toByteArray();
    if (block.plainSize < 0 || qAddOverflow(block.plainSize, TagBytes, &block.encryptedSize)) {
        reader->fail();
    }
    return block;
}

VaultFileBlock takeGeneralBlock(Reader* reader) {
    VaultFileBlock block;
    block.offset = reader->takeSigned();
    block.plainSize = reader->takeSigned();
    block.encryptedSize = reader->takeSigned();
    block.nonce = reader->takeSizedBytes();
    return block;
}

QList<VaultFileBlock> takeBlocks(Reader* reader, bool isUsual) {
    QList<VaultFileBlock> blocks;
    const qsizetype count = reader->takeCount(isUsual ? LeastUsualBlockBytes : LeastBlockBytes);
    blocks.reserve(std::min(count, reader->bytesLeft() / LeastUsualBlockBytes));
    for (qsizetype i = 0; i < count && !reader->failed(); ++i) {
        blocks.append(isUsual ? takeUsualBlock(reader) : takeGeneralBlock(reader));
    }
    return blocks;
}

VaultFileEntry takeFile(Reader* reader) {
    const quint64 form = reader->takeNumber();
    if (form != UsualForm && form != GeneralForm) {
        reader->fail();
    }
    const bool isUsual = form == UsualForm;
    VaultFileEntry entry;
    entry.id = isUsual ? idFromBytes(reader->takeBytes(IdBytes)) : reader->takeText();
    entry.vaultPath = reader->takeText();
    entry.sizeBytes = reader->takeSigned();
    entry.lastModifiedUtc = reader->takeDate();
    entry.sha256 =
        isUsual ? reader->takeBytes(DigestBytes).toByteArray() : reader->takeSizedBytes();
    entry.blocks = takeBlocks(reader, isUsual);
    return entry;
}

VaultDirectoryEntry takeFolder(Reader* reader) {
    VaultDirectoryEntry folder;
    folder.path = reader->takeText();
    folder.createdUtc = reader->takeDate();
    folder.modifiedUtc = reader->takeDate();
    return folder;
}

// An index holds nothing without a path.
void takeFolders(Reader* reader, SecureFileIndex* index) {
    const qsizetype count = reader->takeCount(LeastFolderBytes);
    for (qsizetype i = 0; i < count && !reader->failed(); ++i) {
        if (!index->addDirectory(takeFolder(reader))) {
            reader->fail();
        }
    }
}

void takeFiles(Reader* reader, SecureFileIndex* index) {
    const qsizetype count = reader->takeCount(LeastFileBytes);
    index->reserveFiles(std::min(count, reader->bytesLeft() / LeastUsualFileBytes));
    for (qsizetype i = 0; i < count && !reader->failed(); ++i) {
        if (!index->addOrReplace(takeFile(reader))) {
            reader->fail();
        }
    }
}

} // namespace

void PackedIndex::write(const SecureFileIndex& index, QByteArray* packed) {
    packed->resize(0);
    appendSigned(packed, index.directories().size());
    EntryEncodings::appendDirectories(packed, index, EntryEncodings::Packed, {}, appendFolder);
    appendSigned(packed, index.entries().size());
    EntryEncodings::appendFiles(packed, index, EntryEncodings::Packed, {}, appendFile);
}

std::optional<SecureFileIndex> PackedIndex::read(QByteArrayView packed) {
    Reader reader(packed);
    SecureFileIndex index;
    takeFolders(&reader, &index);
    takeFiles(&reader, &index);
    return reader.failed() || !reader.atEnd() ? std::nullopt
                                              : std::optional<SecureFileIndex>(index);
}

} // namespace Tessel::Core
