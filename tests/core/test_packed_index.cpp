// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/PackedIndex.h"
#include "core/QtVersions.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QRandomGenerator>
#include <QTest>
#include <QTimeZone>

#include <limits>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 Largest = std::numeric_limits<qint64>::max();
constexpr qint64 Smallest = std::numeric_limits<qint64>::min();
const QString Id = u"0f8fad5b-d9cb-469f-a165-70867728950e"_s;
const QByteArray IdBytes = QByteArray::fromHex("0f8fad5bd9cb469fa16570867728950e");
const QByteArray Digest(32, 'd');
const QByteArray Nonce(24, 'n');

/// A file as the program stores it.
VaultFileEntry usualFile() {
    return {.id = Id,
            .vaultPath = u"f"_s,
            .sizeBytes = 300,
            .lastModifiedUtc = {},
            .sha256 = Digest,
            .blocks = {{8388636, 300, 316, Nonce}}};
}

SecureFileIndex indexWith(const VaultFileEntry& file) {
    SecureFileIndex index;
    if (!index.addOrReplace(file)) {
        qFatal("could not add a file");
    }
    return index;
}

SecureFileIndex indexWithFolder(const VaultDirectoryEntry& folder) {
    SecureFileIndex index;
    if (!index.addDirectory(folder)) {
        qFatal("could not add a folder");
    }
    return index;
}

QByteArray packed(const SecureFileIndex& index) {
    QByteArray bytes = "what was there before"_ba;
    PackedIndex::write(index, &bytes);
    return bytes;
}

bool isRefused(const QByteArray& bytes) {
    return !PackedIndex::read(bytes);
}

QDateTime utc(int year, int month, int day, const QTime& time) {
    return {QDate(year, month, day), time, Utc};
}

QByteArray hex(const char* digits) {
    return QByteArray::fromHex(digits);
}

/// Ten bytes: the number 2^64 - 1.
const QByteArray LargestNumber = hex("ffffffffffffffffff01");

/// An index with everything that there can be in it.
SecureFileIndex fullIndex() {
    SecureFileIndex index = indexWith(usualFile());
    VaultFileEntry general{.id = u"a name"_s,
                           .vaultPath = u"half \xd83d"_s,
                           .sizeBytes = -1,
                           .lastModifiedUtc = utc(2025, 3, 1, {14, 5, 9, 120}),
                           .sha256 = "short"_ba,
                           .blocks = {{-5, 7, 8, "n"_ba}, {Largest, Smallest, 0, {}}}};
    if (!index.addOrReplace(general) || !index.addDirectory({u"d"_s, {}, {}}) ||
        !index.addDirectory({u"\u00e7"_s, utc(1969, 12, 31, {23, 59, 59, 999}), {}})) {
        qFatal("could not fill the index");
    }
    return index;
}

} // namespace

class TestPackedIndex : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void workedExampleOfTheFormat() {
        // docs/container-format.md has it.
        SecureFileIndex index = indexWithFolder({u"docs"_s, utc(2025, 3, 1, {14, 5, 9, 120}), {}});
        const QByteArray nothing =
            QByteArray::fromHex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
        QVERIFY(index.addOrReplace({.id = Id,
                                    .vaultPath = u"docs/\u00e7"_s,
                                    .sizeBytes = 0,
                                    .lastModifiedUtc = {},
                                    .sha256 = nothing,
                                    .blocks = {}}));
        QCOMPARE(packed(index), hex("01 08646f6373 81cab3a0aa65 00 01"
                                    "01 0f8fad5bd9cb469fa16570867728950e"
                                    "0e646f63732fc3a7 00 00") +
                                    nothing + hex("00"));
    }

    void bytesAreLiterallyThese() {
        SecureFileIndex index;
        QVERIFY(index.addDirectory({u"docs"_s, utc(2025, 3, 1, {14, 5, 9, 120}), {}}));
        VaultFileEntry file = usualFile();
        file.vaultPath = u"docs/\u00e7"_s;
        file.lastModifiedUtc = utc(1969, 12, 31, {23, 59, 59, 999});
        QVERIFY(index.addOrReplace(file));
        file = {.id = u"x"_s,
                .vaultPath = u"\xd83d"_s,
                .sizeBytes = -1,
                .lastModifiedUtc = {},
                .sha256 = "s"_ba,
                .blocks = {{0, 1, 2, "n"_ba}}};
        QVERIFY(index.addOrReplace(file));
        const QByteArray folders = hex("01") + hex("08") + "docs" + hex("81cab3a0aa65") + hex("00");
        const QByteArray usual = hex("01") + IdBytes + hex("0e") + "docs/" + hex("c3a7") +
                                 hex("ac02") + hex("02") + Digest + hex("01") + hex("9c808004") +
                                 hex("ac02") + Nonce;
        const QByteArray general = hex("00") + hex("02") + "x" + hex("03") + hex("3dd8") +
                                   LargestNumber + hex("00") + hex("01") + "s" + hex("01") +
                                   hex("000102") + hex("01") + "n";
        QCOMPARE(packed(index), folders + hex("02") + usual + general);
        QCOMPARE(packed(SecureFileIndex()), hex("0000"));
    }

    void everyEntryComesBack_data() {
        QTest::addColumn<SecureFileIndex>("index");
        QTest::newRow("empty") << SecureFileIndex();
        QTest::newRow("everything") << fullIndex();
        addFolders();
        addIds();
        addSizes();
        addNames();
    }
    void everyEntryComesBack() {
        QFETCH(const SecureFileIndex, index);
        const QByteArray bytes = packed(index);
        const std::optional<SecureFileIndex> read = PackedIndex::read(bytes);
        QVERIFY(read);
        QCOMPARE(read->toJson(), index.toJson());
        QCOMPARE(packed(*read), bytes);
        // A header's JSON holds the same.
        QCOMPARE(packed(SecureFileIndex::fromJson(index.toJson())), bytes);
    }

    void datesComeBackInUtc() {
        const QDateTime local({2025, 3, 1}, {11, 5, 9, 120}, QTimeZone(-3 * 3600));
        const auto read = PackedIndex::read(packed(indexWithFolder({u"d"_s, local, {}})));
        QVERIFY(read);
        const VaultDirectoryEntry folder = read->directories().constFirst();
        QCOMPARE(folder.createdUtc, local);
        QCOMPARE(folder.createdUtc.timeSpec(), Qt::UTC);
        QVERIFY(!folder.modifiedUtc.isValid());
    }

    void datesWithoutFourDigitsOfAYearAreUnknown() {
        // A file may be as old, or as far ahead, as its file system lets it be.
        for (const QDateTime& date : {utc(-1, 12, 31, {23, 59, 59, 999}), utc(10000, 1, 1, {0, 0}),
                                      QDateTime::fromMSecsSinceEpoch(Largest, Utc),
                                      QDateTime::fromMSecsSinceEpoch(Smallest, Utc)}) {
            const QByteArray bytes = packed(indexWithFolder({u"d"_s, date, date}));
            QCOMPARE(bytes, packed(indexWithFolder({u"d"_s, {}, {}})));
        }
    }

    void manyEntriesAndBlocksComeBack() {
        SecureFileIndex index;
        for (int i = 0; i < 5000; ++i) {
            VaultFileEntry file = usualFile();
            file.vaultPath = u"folder %1/file %2"_s.arg(i % 97).arg(i);
            file.sizeBytes = i;
            QVERIFY(index.addOrReplace(file));
        }
        VaultFileEntry large = usualFile();
        for (qint64 i = 0; i < 5000; ++i) {
            large.blocks.append({i << 24, 16777216, 16777232, QByteArray(24, char(i % 256))});
        }
        QVERIFY(index.addOrReplace(large));
        const auto read = PackedIndex::read(packed(index));
        QVERIFY(read);
        QCOMPARE(read->toJson(), index.toJson());
        QVERIFY(read->contains(u"folder 1/file 1"_s));
        QVERIFY(packed(index).size() * 3 < index.toJson().size());
    }

    void laterOfTwoWithOnePathTakesThePositionOfTheEarlierOne() {
        const QByteArray first = hex("02") + "d" + hex("0000");
        const QByteArray other = hex("02") + "e" + hex("0000");
        const QByteArray later = hex("02") + "d" + hex("0100");
        const QByteArray files = packed(indexWith(usualFile())).mid(2);
        const auto read = PackedIndex::read(hex("03") + first + other + later + hex("02") + files +
                                            QByteArray(files).replace(hex("ac02"), hex("ad02")));
        QVERIFY(read);
        QCOMPARE(read->directories().size(), 2);
        QCOMPARE(read->directories().constFirst().path, u"d"_s);
        QCOMPARE(read->directories().constFirst().createdUtc, utc(1970, 1, 1, {0, 0}));
        QCOMPARE(read->entries().size(), 1);
        QCOMPARE(read->entries().constFirst().sizeBytes, 301);
    }

    void malformedBytesAreRefused_data() {
        QTest::addColumn<QByteArray>("bytes");
        addMalformedNumbersAndCounts();
        addMalformedFolders();
        addMalformedFiles();
    }
    void malformedBytesAreRefused() {
        QFETCH(const QByteArray, bytes);
        QVERIFY(isRefused(bytes));
    }

    void bytesThatEndEarlyOrLateAreRefused() {
        const QByteArray whole = packed(fullIndex());
        QVERIFY(!isRefused(whole));
        for (qsizetype size = 0; size < whole.size(); ++size) {
            QVERIFY2(isRefused(whole.first(size)), qPrintable(QString::number(size)));
        }
        for (const char c : {'\0', '\1', '\x80', '\xff'}) {
            QVERIFY(isRefused(whole + c));
        }
    }

    void alteredBytesAreRefusedOrReadAsTheyAre() {
        QRandomGenerator random(20261122);
        const QByteArray whole = packed(fullIndex());
        int refused = 0;
        constexpr int Rounds = 50000;
        for (int round = 0; round < Rounds; ++round) {
            QByteArray bytes = whole;
            for (int edits = random.bounded(3); edits >= 0; --edits) {
                const auto at = random.bounded(static_cast<int>(bytes.size()));
                bytes[at] = static_cast<char>(random.bounded(256));
            }
            const std::optional<SecureFileIndex> read = PackedIndex::read(bytes);
            refused += read ? 0 : 1;
            if (read) {
                const auto again = PackedIndex::read(packed(*read));
                QVERIFY2(again && again->toJson() == read->toJson(), bytes.toHex());
            }
        }
        QVERIFY(refused > Rounds / 10 && refused < Rounds);
    }

    void countsTakeNoMoreMemoryThanTheBytes_data() {
        QTest::addColumn<QByteArray>("start");
        const QByteArray million = hex("c0843d");
        QTest::newRow("files") << hex("00") + million;
        QTest::newRow("blocks of a usual file") << hex("00") + hex("01") + hex("01") + IdBytes +
                                                       hex("02") + "f" + hex("0000") + Digest +
                                                       hex("e0a712");
        QTest::newRow("blocks of a general file") << hex("00") + hex("01") + hex("00") + hex("00") +
                                                         hex("02") + "f" + hex("000000") + million;
    }
    void countsTakeNoMoreMemoryThanTheBytes() {
        // The first entry after the count is malformed: nothing of use is read.
        QFETCH(const QByteArray, start);
        const QByteArray bytes = start + QByteArray(8000000, '\xff');
        const PeakMemory memory;
        QVERIFY(isRefused(bytes));
        QVERIFY2(memory.growth() < 3 * bytes.size(), qPrintable(QString::number(memory.growth())));
    }

private:
    static void addFolders() {
        const auto row = [](const char* name, const QDateTime& created, const QDateTime& modified) {
            QTest::newRow(name) << indexWithFolder({u"d"_s, created, modified});
        };
        row("no dates", {}, {});
        row("first date", utc(1, 1, 1, {0, 0}), {});
        row("last date", {}, utc(9999, 12, 31, {23, 59, 59, 999}));
        row("with and without milliseconds", utc(2025, 3, 1, {14, 5, 9, 120}),
            utc(2025, 3, 1, {14, 5, 9}));
        row("around 1970", utc(1969, 12, 31, {23, 59, 59, 999}), utc(1970, 1, 1, {0, 0}));
        row("just after 1970", utc(1970, 1, 1, {0, 0, 0, 1}), {});
    }

    static void addIds() {
        const auto row = [](const char* name, const QString& id) {
            VaultFileEntry file = usualFile();
            file.id = id;
            QTest::newRow(name) << indexWith(file);
        };
        row("usual", Id);
        row("no id", {});
        row("id in capitals", Id.toUpper());
        row("id in braces", u'{' + Id + u'}');
        row("id of zeros", u"00000000-0000-0000-0000-000000000000"_s);
        row("id with more behind it", Id + u'0');
        row("id that is no UUID", u"0f8fad5b_d9cb_469f_a165_70867728950e"_s);
    }

    static void addSizes() {
        const auto row = [](const char* name, auto change) {
            VaultFileEntry file = usualFile();
            change(&file);
            QTest::newRow(name) << indexWith(file);
        };
        row("empty file", [](auto* file) { file->blocks.clear(); });
        row("largest file", [](auto* file) { file->sizeBytes = Largest; });
        row("smallest size", [](auto* file) { file->sizeBytes = Smallest; });
        row("no digest", [](auto* file) { file->sha256.clear(); });
        row("long digest", [](auto* file) { file->sha256.append('d'); });
        row("no nonce", [](auto* file) { file->blocks.first().nonce.clear(); });
        row("long nonce", [](auto* file) { file->blocks.first().nonce.append(300, 'n'); });
        const auto sizes = [&](const char* name, qint64 offset, qint64 plain, qint64 encrypted) {
            row(name, [&](auto* file) {
                file->blocks = {{offset, plain, encrypted, Nonce}, {1, 1, 17, Nonce}};
            });
        };
        sizes("largest offset", Largest, 1, 17);
        sizes("smallest offset", Smallest, 1, 17);
        sizes("largest usual block", 0, Largest - 16, Largest);
        sizes("largest sizes", 0, Largest, Largest);
        sizes("smallest sizes", 0, Smallest, Smallest);
        sizes("sizes that wrap around", 0, Largest, Smallest + 15);
        sizes("negative plain size", 0, -16, 0);
        sizes("without a tag", 0, 100, 100);
        sizes("block of nothing", 0, 0, 16);
    }

    static void addNames() {
        const auto row = [](const char* name, const QString& path) {
            VaultFileEntry file = usualFile();
            file.vaultPath = path;
            SecureFileIndex index = indexWith(file);
            if (!index.addDirectory({path, {}, {}})) {
                qFatal("could not add a folder");
            }
            QTest::newRow(name) << index;
        };
        row("accents", u"docs/a\u00e7\u00e3o"_s);
        row("beyond 16 bits", u"\U0001f512"_s);
        row("byte order mark", u"\ufeffa\ufeff"_s);
        row("byte order mark alone", u"\ufeff"_s);
        row("zero", u"a\0b"_s);
        row("no characters", u"\ufffe\uffff"_s);
        row("first half of a pair", u"a\xd83d"_s);
        row("second half of a pair", u"\xde00\u00e7"_s);
        row("halves in the wrong order", u"\xde00\xd83d"_s);
        row("byte order mark and half a pair", u"\ufeff\xd83d"_s);
        row("63 bytes", QString(63, u'x'));
        row("64 bytes", QString(64, u'x'));
        row("long", QString(70000, u'\u4e00'));
    }

    static void addMalformedNumbersAndCounts() {
        const auto row = [](const char* name, const QByteArray& bytes) {
            QTest::newRow(name) << bytes;
        };
        row("nothing", {});
        row("no count of files", hex("00"));
        row("count in more bytes than it needs", hex("800000"));
        row("count in ten bytes", hex("8080808080808080800000"));
        row("count without an end", hex("0080"));
        row("count of 65 bits", hex("ffffffffffffffffff0200"));
        row("count of eleven bytes", hex("808080808080808080800100"));
        row("byte after the end", hex("000000"));
        row("folder that is not there", hex("0100"));
        row("file that is not there", hex("0001"));
        row("most folders", LargestNumber + hex("00"));
        row("most files", hex("00") + LargestNumber);
        row("JSON", SecureFileIndex().toJson());
    }

    static void addMalformedFolders() {
        const auto row = [](const char* name, const QByteArray& path,
                            const QByteArray& dates = hex("0000")) {
            QTest::newRow(name) << hex("01") + path + dates + hex("00");
        };
        const QByteArray d = hex("02") + "d";
        QVERIFY(!isRefused(hex("01") + d + hex("0000") + hex("00")));
        QTest::newRow("one folder less than the count") << hex("02") + d + hex("0000") + hex("00");
        row("no path", hex("00"));
        row("no path in UTF-16", hex("01"));
        row("path longer than what is left", hex("7e") + "d");
        row("largest path", LargestNumber + "d");
        row("path of 2^63 bytes", hex("80808080808080808001") + "d");
        row("byte that begins nothing", hex("0280"));
        row("sequence cut short", hex("04c3") + "d");
        row("sequence longer than it needs", hex("04c080"));
        row("surrogate in UTF-8", hex("06eda080"));
        row("beyond Unicode", hex("08f4908080"));
        row("UTF-16 longer than what is left", hex("ff01") + "d");
        row("date before the first year", d, hex("82e0e6a2e2a01c") + hex("00"));
        row("date after the last year", d, hex("81f0fea1fa9d73") + hex("00"));
        row("largest date", d, LargestNumber + hex("00"));
        row("smallest date", d, hex("feffffffffffffffff01") + hex("00"));
        row("date in more bytes than it needs", d, hex("8000") + hex("00"));
    }

    static void addMalformedFiles() {
        const QByteArray usual = hex("01") + IdBytes;
        const QByteArray general = hex("00") + hex("00");
        const QByteArray path = hex("02") + "f" + hex("0000");
        const QByteArray block = hex("0003") + Nonce;
        const auto row = [](const char* name, const QByteArray& file) {
            QTest::newRow(name) << hex("0001") + file;
        };
        QVERIFY(!isRefused(hex("0001") + usual + path + Digest + hex("01") + block));
        QVERIFY(!isRefused(hex("0001") + general + path + hex("00") + hex("01") + hex("00030400")));
        row("unknown form", hex("02") + IdBytes + path + Digest + hex("00"));
        row("unknown form of a general file", hex("02") + hex("00") + path + hex("00") + hex("00"));
        row("size of 65 bits", general + hex("02") + "f" + hex("ffffffffffffffffff02") + hex("00") +
                                   hex("00") + hex("00"));
        row("size of eleven bytes", general + hex("02") + "f" + hex("8080808080808080808101") +
                                        hex("00") + hex("00") + hex("00"));
        row("largest form", LargestNumber + IdBytes + path + Digest + hex("00"));
        row("no path", usual + hex("00") + hex("0000") + Digest + hex("00"));
        row("id cut short", hex("01") + IdBytes.first(15));
        row("digest cut short", usual + path + Digest.first(31));
        row("digest longer than what is left", general + path + hex("03") + "ab");
        row("largest digest", general + path + LargestNumber + hex("00"));
        row("block that is not there", usual + path + Digest + hex("01"));
        row("one block less than the count", usual + path + Digest + hex("02") + block);
        row("most blocks", usual + path + Digest + LargestNumber + block);
        row("nonce cut short", usual + path + Digest + hex("01") + block.chopped(1));
        row("negative plain size",
            usual + path + Digest + hex("01") + hex("00") + LargestNumber + Nonce);
        row("plain size too large for a tag",
            usual + path + Digest + hex("01") + hex("00") + hex("f0ffffffffffffff7f") + Nonce);
        row("nonce longer than what is left",
            general + path + hex("00") + hex("01") + hex("00030402") + "n");
        row("file after the last one", usual + path + Digest + hex("00") + usual);
    }
};

Q_DECLARE_METATYPE(SecureFileIndex)

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestPackedIndex>);
#include "test_packed_index.moc"
