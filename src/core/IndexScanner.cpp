// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/IndexScanner.h"

#include "core/Base64.h"
#include "core/QtVersions.h"

#include <QUtf8StringView>

#include <algorithm>
#include <utility>

namespace Tessel::Core {

namespace {

constexpr qsizetype SmallestTypicalEntryBytes = 300;
constexpr QByteArrayView ByteOrderMark("\xef\xbb\xbf");

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// The value of a hexadecimal digit; negative for anything else.
int hexValue(char c) {
    if (isDigit(c)) {
        return c - '0';
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// Takes one value after the other from the text. After the first one that is not written as
// expected, it has failed and gives nothing of use.
class Scanner {
public:
    explicit Scanner(QByteArrayView text) : m_rest(text) {}

    bool failed() const { return m_failed; }
    bool atEnd() const { return m_rest.isEmpty(); }

    bool tryToTake(QByteArrayView expected) {
        if (!m_rest.startsWith(expected)) {
            return false;
        }
        m_rest = m_rest.sliced(expected.size());
        return true;
    }

    void take(QByteArrayView expected) {
        if (!tryToTake(expected)) {
            m_failed = true;
        }
    }

    qint64 takeNumber() {
        // Fewer digits than the largest number has.
        constexpr qsizetype MostDigits = 18;
        qint64 number = 0;
        qsizetype digits = 0;
        while (digits < std::min(m_rest.size(), MostDigits) && isDigit(m_rest[digits])) {
            number = number * 10 + (m_rest[digits++] - '0');
        }
        const bool hasLeadingZero = digits > 1 && m_rest.front() == '0';
        const bool goesOn = digits < m_rest.size() && isDigit(m_rest[digits]);
        if (digits < 1 || goesOn || hasLeadingZero) {
            return fail<qint64>();
        }
        m_rest = m_rest.sliced(digits);
        return number;
    }

    QString takeText() {
        const QByteArrayView text = takeQuoted();
        if (std::all_of(text.cbegin(), text.cend(), [](char c) { return c >= ' '; })) {
            return QString::fromLatin1(text);
        }
        // A char is signed: what is below a space is a control character or not ASCII.
        const bool hasControls =
            std::any_of(text.cbegin(), text.cend(), [](char c) { return c >= 0 && c < ' '; });
        if (hasControls || text.startsWith(ByteOrderMark) ||
            !QUtf8StringView(text.data(), text.size()).isValidUtf8()) {
            return fail<QString>();
        }
        return QString::fromUtf8(text);
    }

    QByteArray takeBase64() {
        const std::optional<QByteArray> bytes = decodeWellFormedBase64(takeQuoted());
        return bytes ? *bytes : fail<QByteArray>();
    }

    QByteArray takeHexadecimal() {
        const QByteArrayView digits = takeQuoted();
        QByteArray bytes(digits.size() / 2, Qt::Uninitialized);
        int seen = digits.size() % 2 == 0 ? 0 : -1;
        for (qsizetype i = 0; i < bytes.size(); ++i) {
            const int high = hexValue(digits[2 * i]);
            const int low = hexValue(digits[2 * i + 1]);
            seen |= high | low;
            bytes[i] = static_cast<char>(high * 16 + low);
        }
        return seen < 0 ? fail<QByteArray>() : bytes;
    }

    QDateTime takeDate() {
        const QByteArrayView text = takeQuoted();
        if (text.isEmpty()) {
            return {};
        }
        constexpr QByteArrayView Layout("dddd-dd-ddTdd:dd:dd.dddZ");
        const bool isLaidOut =
            std::equal(text.cbegin(), text.cend(), Layout.cbegin(), Layout.cend(),
                       [](char c, char place) { return place == 'd' ? isDigit(c) : c == place; });
        if (!isLaidOut) {
            return fail<QDateTime>();
        }
        const auto number = [text](qsizetype begin, qsizetype digits) {
            int value = 0;
            for (const char c : text.sliced(begin, digits)) {
                value = value * 10 + (c - '0');
            }
            return value;
        };
        const QDate date(number(0, 4), number(5, 2), number(8, 2));
        const QTime time(number(11, 2), number(14, 2), number(17, 2), number(20, 3));
        if (!date.isValid() || !time.isValid()) {
            return fail<QDateTime>();
        }
        return QDateTime(date, time, Utc);
    }

private:
    // Everything up to the next quote, after one. An escape is left to Qt.
    QByteArrayView takeQuoted() {
        take("\"");
        const qsizetype end = m_rest.indexOf('"');
        if (m_failed || end < 0 || m_rest.first(end).contains('\\')) {
            return fail<QByteArrayView>();
        }
        return std::exchange(m_rest, m_rest.sliced(end + 1)).first(end);
    }

    template <typename Value>
    Value fail() {
        m_failed = true;
        return {};
    }

    QByteArrayView m_rest;
    bool m_failed = false;
};

// An array of what @p takeOne takes. Its opening bracket is taken already.
template <typename TakeOne>
void takeArray(Scanner* scanner, TakeOne takeOne) {
    if (scanner->tryToTake("]")) {
        return;
    }
    do {
        takeOne();
    } while (!scanner->failed() && scanner->tryToTake(","));
    scanner->take("]");
}

VaultFileBlock takeBlock(Scanner* scanner) {
    VaultFileBlock block;
    scanner->take("{\"encryptedSize\":");
    block.encryptedSize = scanner->takeNumber();
    scanner->take(",\"nonce\":");
    block.nonce = scanner->takeBase64();
    scanner->take(",\"offset\":");
    block.offset = scanner->takeNumber();
    scanner->take(",\"plainSize\":");
    block.plainSize = scanner->takeNumber();
    scanner->take("}");
    return block;
}

VaultFileEntry takeEntry(Scanner* scanner) {
    VaultFileEntry entry;
    scanner->take("{\"blocks\":[");
    takeArray(scanner, [&] { entry.blocks.append(takeBlock(scanner)); });
    scanner->take(",\"id\":");
    entry.id = scanner->takeText();
    scanner->take(",\"lastModifiedUtc\":");
    entry.lastModifiedUtc = scanner->takeDate();
    scanner->take(",\"sha256\":");
    entry.sha256 = scanner->takeHexadecimal();
    scanner->take(",\"sizeBytes\":");
    entry.sizeBytes = scanner->takeNumber();
    scanner->take(",\"vaultPath\":");
    entry.vaultPath = scanner->takeText();
    scanner->take("}");
    return entry;
}

VaultDirectoryEntry takeDirectory(Scanner* scanner) {
    VaultDirectoryEntry directory;
    scanner->take("{\"createdUtc\":");
    directory.createdUtc = scanner->takeDate();
    scanner->take(",\"modifiedUtc\":");
    directory.modifiedUtc = scanner->takeDate();
    scanner->take(",\"path\":");
    directory.path = scanner->takeText();
    scanner->take("}");
    return directory;
}

} // namespace

std::optional<SecureFileIndex> scanIndex(QByteArrayView json) {
    Scanner scanner(json);
    SecureFileIndex index;
    scanner.take("{\"directories\":[");
    // An entry without a path is refused, and so dropped.
    takeArray(&scanner, [&] { static_cast<void>(index.addDirectory(takeDirectory(&scanner))); });
    scanner.take(",\"files\":[");
    if (!scanner.failed()) {
        index.reserveFiles(json.size() / SmallestTypicalEntryBytes);
    }
    takeArray(&scanner, [&] { static_cast<void>(index.addOrReplace(takeEntry(&scanner))); });
    scanner.take(",\"formatVersion\":1}");
    return scanner.failed() || !scanner.atEnd() ? std::nullopt
                                                : std::optional<SecureFileIndex>(index);
}

} // namespace Tessel::Core
