// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/IndexJson.h"
#include "core/PackedIndex.h"
#include "core/QtVersions.h"
#include "core/SecureFileIndex.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTest>
#include <QTimeZone>

#include <limits>

using namespace Tessel::Core;
using namespace Qt::Literals::StringLiterals;

// Records are written down member by member, in this order.
static_assert(requires {
    VaultFileBlock{.offset = {}, .plainSize = {}, .encryptedSize = {}, .nonce = {}};
});
static_assert(requires {
    VaultFileEntry{.id = {},
                   .vaultPath = {},
                   .sizeBytes = {},
                   .lastModifiedUtc = {},
                   .sha256 = {},
                   .blocks = {}};
});
static_assert(requires { VaultDirectoryEntry{.path = {}, .createdUtc = {}, .modifiedUtc = {}}; });

namespace {

QDateTime utc(int year, int month, int day, int hour, int minute, int second, int ms) {
    return {QDate(year, month, day), QTime(hour, minute, second, ms), Utc};
}

const QDateTime Spring = utc(2025, 3, 1, 14, 5, 9, 120);
const QDateTime Summer = utc(2025, 8, 31, 23, 59, 59, 999);

VaultFileEntry file(const QString& path, qint64 size = 0) {
    VaultFileEntry entry;
    entry.vaultPath = path;
    entry.sizeBytes = size;
    return entry;
}

VaultDirectoryEntry folder(const QString& path) {
    return {path, Spring, Spring};
}

SecureFileIndex indexOf(const QStringList& files, const QStringList& folders = {}) {
    SecureFileIndex index;
    for (const QString& path : files) {
        if (!index.addOrReplace(file(path))) {
            qFatal("could not add a file");
        }
    }
    for (const QString& path : folders) {
        if (!index.addDirectory(folder(path))) {
            qFatal("could not add a folder");
        }
    }
    return index;
}

QStringList filePaths(const SecureFileIndex& index) {
    QStringList paths;
    for (const VaultFileEntry& entry : index.entries()) {
        paths.append(entry.vaultPath);
    }
    return paths;
}

QStringList folderPaths(const SecureFileIndex& index) {
    QStringList paths;
    for (const VaultDirectoryEntry& entry : index.directories()) {
        paths.append(entry.path);
    }
    return paths;
}

/// An index with the same entries that has never been written.
SecureFileIndex madeAgain(const SecureFileIndex& index) {
    SecureFileIndex again;
    for (const VaultFileEntry& entry : index.entries()) {
        if (!again.addOrReplace(entry)) {
            qFatal("could not add a file");
        }
    }
    for (const VaultDirectoryEntry& entry : index.directories()) {
        if (!again.addDirectory(entry)) {
            qFatal("could not add a folder");
        }
    }
    return again;
}

QByteArray packed(const SecureFileIndex& index) {
    QByteArray bytes;
    PackedIndex::write(index, &bytes);
    return bytes;
}

/// Changes an index in one of its ways, on a few paths, so that most are taken.
void changeAtRandom(SecureFileIndex* index, QRandomGenerator* random) {
    const QString path = u"f%1"_s.arg(random->bounded(40));
    const QString folderPath = u"d%1"_s.arg(random->bounded(10));
    const qint64 number = random->bounded(1000);
    bool changed = false;
    switch (random->bounded(8)) {
    case 0:
    case 1:
        changed = index->addOrReplace(file(path, number));
        break;
    case 2:
        changed = index->remove(path);
        break;
    case 3:
        changed = index->addDirectory({folderPath, Spring.addDays(number), Summer});
        break;
    case 4:
        changed = index->removeDirectory(folderPath);
        break;
    case 5:
        changed = index->renameFile(path, u"f%1"_s.arg(number % 40));
        break;
    case 6:
        // Some get no path, some that of another file.
        index->renameFiles([&](const QString& old) {
            return old == path ? u"f%1"_s.arg(number % 40) : old.mid(number % 50 == 0 ? 2 : 0);
        });
        break;
    default:
        if (number == 0) {
            index->clearDirectories();
        }
    }
    Q_UNUSED(changed);
}

/// A file entry with every field set and two blocks.
VaultFileEntry fullEntry() {
    VaultFileEntry entry;
    entry.id = u"0f8fad5b-d9cb-469f-a165-70867728950e"_s;
    entry.vaultPath = u"docs/a\u00e7\u00e3o \"x\".txt"_s;
    entry.sizeBytes = 16777217;
    entry.lastModifiedUtc = Spring;
    entry.sha256 = QByteArray::fromHex("ba7816bf8f01cfea414140de5dae2223"
                                       "b00361a396177a9cb410ff61f20015ad");
    entry.blocks = {{8388636, 16777216, 16777232, QByteArray(24, '\xfb')},
                    {25165868, 1, 17, QByteArray(24, '\0')}};
    return entry;
}

QByteArray fullJson() {
    return "{\"directories\":["
           "{\"createdUtc\":\"2025-03-01T14:05:09.120Z\","
           "\"modifiedUtc\":\"2025-08-31T23:59:59.999Z\",\"path\":\"docs\"}],"
           "\"files\":[{\"blocks\":["
           "{\"encryptedSize\":16777232,\"nonce\":\"+/v7+/v7+/v7+/v7+/v7+/v7+/v7+/v7\","
           "\"offset\":8388636,\"plainSize\":16777216},"
           "{\"encryptedSize\":17,\"nonce\":\"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\","
           "\"offset\":25165868,\"plainSize\":1}],"
           "\"id\":\"0f8fad5b-d9cb-469f-a165-70867728950e\","
           "\"lastModifiedUtc\":\"2025-03-01T14:05:09.120Z\","
           "\"sha256\":\"ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad\","
           "\"sizeBytes\":16777217,"
           "\"vaultPath\":\"docs/a\xc3\xa7\xc3\xa3o \\\"x\\\".txt\"}],"
           "\"formatVersion\":1}"_ba;
}

QByteArray fullRows() {
    return "[[[\"docs\",1740837909120,1756684799999]],"
           "[[\"0f8fad5b-d9cb-469f-a165-70867728950e\",\"docs/a\xc3\xa7\xc3\xa3o \\\"x\\\".txt\","
           "16777217,1740837909120,\"ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=\","
           "[[8388636,16777216,16777232,\"+/v7+/v7+/v7+/v7+/v7+/v7+/v7+/v7\"],"
           "[25165868,1,17,\"AAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA\"]]]]]"_ba;
}

/// The JSON of an index with one file that has the given members beside its path "f".
QByteArray jsonWithFile(const QByteArray& members) {
    return "{\"files\":[{\"vaultPath\":\"f\"" + members + "}]}";
}

void compareEntries(const VaultFileEntry& a, const VaultFileEntry& b) {
    QCOMPARE(a.id, b.id);
    QCOMPARE(a.vaultPath, b.vaultPath);
    QCOMPARE(a.sizeBytes, b.sizeBytes);
    QCOMPARE(a.lastModifiedUtc, b.lastModifiedUtc);
    QCOMPARE(a.sha256, b.sha256);
    QCOMPARE(a.blocks.size(), b.blocks.size());
    for (qsizetype i = 0; i < a.blocks.size(); ++i) {
        QCOMPARE(a.blocks.at(i).offset, b.blocks.at(i).offset);
        QCOMPARE(a.blocks.at(i).plainSize, b.blocks.at(i).plainSize);
        QCOMPARE(a.blocks.at(i).encryptedSize, b.blocks.at(i).encryptedSize);
        QCOMPARE(a.blocks.at(i).nonce, b.blocks.at(i).nonce);
    }
}

} // namespace

class TestSecureFileIndex : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- Files -----------------------------------------------------------------------------

    void aFreshIndexIsEmpty() {
        const SecureFileIndex index;
        QVERIFY(index.entries().isEmpty());
        QVERIFY(index.directories().isEmpty());
        QVERIFY(!index.contains(QString()));
        QVERIFY(!index.containsDirectory(QString()));
    }

    void filesKeepTheOrderTheyCameIn() {
        const QStringList paths{u"z"_s, u"a"_s, u"m/b"_s, u"m"_s};
        QCOMPARE(filePaths(indexOf(paths)), paths);
    }

    void aFileWithoutAPathIsRefused() {
        SecureFileIndex index = indexOf({u"a"_s}, {u"d"_s});
        const QByteArray before = index.toJson();
        VaultFileEntry entry = fullEntry();
        entry.vaultPath.clear();
        QVERIFY(!index.addOrReplace(entry));
        QCOMPARE(index.toJson(), before);
    }

    void replacingAFileKeepsItsPositionAndTakesEveryField() {
        SecureFileIndex index = indexOf({u"first"_s, fullEntry().vaultPath, u"last"_s});
        QVERIFY(index.addOrReplace(fullEntry()));
        QCOMPARE(filePaths(index), QStringList({u"first"_s, fullEntry().vaultPath, u"last"_s}));
        compareEntries(index.entries().at(1), fullEntry());

        // The other way: an entry without blocks or times leaves none of the old ones behind.
        QVERIFY(index.addOrReplace(file(fullEntry().vaultPath, 5)));
        compareEntries(index.entries().at(1), file(fullEntry().vaultPath, 5));
        QCOMPARE(index.entries().size(), 3);
    }

    void pathsAreComparedCharacterForCharacter_data() {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("asked");
        QTest::newRow("letter case") << u"docs/a.txt"_s << u"docs/A.txt"_s;
        QTest::newRow("case of the folder") << u"docs/a.txt"_s << u"Docs/a.txt"_s;
        QTest::newRow("leading slash") << u"a"_s << u"/a"_s;
        QTest::newRow("trailing slash") << u"a"_s << u"a/"_s;
        QTest::newRow("blank") << u"a"_s << u"a "_s;
        QTest::newRow("prefix") << u"ab"_s << u"a"_s;
        QTest::newRow("composed and decomposed") << u"\u00e9"_s << u"e\u0301"_s;
    }
    void pathsAreComparedCharacterForCharacter() {
        QFETCH(const QString, stored);
        QFETCH(const QString, asked);
        SecureFileIndex index = indexOf({stored}, {stored});
        QVERIFY(index.contains(stored));
        QVERIFY(index.containsDirectory(stored));
        QVERIFY(!index.contains(asked));
        QVERIFY(!index.containsDirectory(asked));
        QVERIFY(!index.remove(asked));
        QVERIFY(!index.removeDirectory(asked));

        // Two spellings are two entries.
        QVERIFY(index.addOrReplace(file(asked)));
        QVERIFY(index.addDirectory(folder(asked)));
        QCOMPARE(filePaths(index), QStringList({stored, asked}));
        QCOMPARE(folderPaths(index), QStringList({stored, asked}));
    }

    void filesAndFoldersOfOnePathAreApart() {
        SecureFileIndex index = indexOf({u"same"_s}, {u"same"_s});
        QVERIFY(index.remove(u"same"_s));
        QVERIFY(!index.contains(u"same"_s));
        QVERIFY(index.containsDirectory(u"same"_s));
        QVERIFY(index.addOrReplace(file(u"same"_s)));
        QVERIFY(index.removeDirectory(u"same"_s));
        QVERIFY(index.contains(u"same"_s));
        QVERIFY(!index.containsDirectory(u"same"_s));
    }

    void removingAFileTakesThatFileAlone() {
        SecureFileIndex index = indexOf({u"a"_s, u"b"_s, u"c"_s});
        QVERIFY(index.remove(u"b"_s));
        QCOMPARE(filePaths(index), QStringList({u"a"_s, u"c"_s}));
        QVERIFY(!index.remove(u"b"_s));
        QVERIFY(!index.remove(QString()));
        QCOMPARE(filePaths(index), QStringList({u"a"_s, u"c"_s}));
    }

    void lookUpsFollowRemovals_data() {
        QTest::addColumn<int>("removed");
        for (int at = 0; at < 5; ++at) {
            QTest::addRow("entry %d", at) << at;
        }
    }
    void lookUpsFollowRemovals() {
        QFETCH(const int, removed);
        QStringList paths{u"a"_s, u"b"_s, u"c"_s, u"d"_s, u"e"_s};
        SecureFileIndex index = indexOf(paths, paths);
        const QString gone = paths.takeAt(removed);
        QVERIFY(index.remove(gone));
        QVERIFY(index.removeDirectory(gone));

        // Every remaining path is found, and replacing by path reaches that entry and no other.
        for (const QString& path : std::as_const(paths)) {
            QVERIFY(index.contains(path));
            QVERIFY(index.containsDirectory(path));
            QVERIFY(index.addOrReplace(file(path, path.front().unicode())));
            QVERIFY(index.addDirectory({path, Spring, Spring.addDays(path.front().unicode())}));
        }
        QCOMPARE(filePaths(index), paths);
        QCOMPARE(folderPaths(index), paths);
        for (qsizetype i = 0; i < paths.size(); ++i) {
            const int letter = paths.at(i).front().unicode();
            QCOMPARE(index.entries().at(i).sizeBytes, letter);
            QCOMPARE(index.directories().at(i).modifiedUtc, Spring.addDays(letter));
        }

        // What comes back goes to the end.
        QVERIFY(index.addOrReplace(file(gone)));
        QVERIFY(index.addDirectory(folder(gone)));
        QCOMPARE(filePaths(index), paths + QStringList(gone));
        QCOMPARE(folderPaths(index), paths + QStringList(gone));
    }

    // --- Folders ---------------------------------------------------------------------------

    void foldersKeepTheOrderTheyCameIn() {
        const QStringList paths{u"z"_s, u"a/b"_s, u"a"_s};
        QCOMPARE(folderPaths(indexOf({}, paths)), paths);
    }

    void aFolderWithoutAPathIsRefused() {
        SecureFileIndex index = indexOf({u"a"_s}, {u"d"_s});
        const QByteArray before = index.toJson();
        QVERIFY(!index.addDirectory(folder(QString())));
        QCOMPARE(index.toJson(), before);
    }

    void replacingAFolderKeepsItsPositionAndTakesBothTimes() {
        SecureFileIndex index = indexOf({}, {u"a"_s, u"b"_s, u"c"_s});
        QVERIFY(index.addDirectory({u"b"_s, Summer, Summer.addDays(1)}));
        QCOMPARE(folderPaths(index), QStringList({u"a"_s, u"b"_s, u"c"_s}));
        QCOMPARE(index.directories().at(1).createdUtc, Summer);
        QCOMPARE(index.directories().at(1).modifiedUtc, Summer.addDays(1));
        QCOMPARE(index.directories().at(0).createdUtc, Spring);
    }

    void removingAFolderLeavesWhatIsInIt() {
        SecureFileIndex index = indexOf({u"a/f"_s, u"a/b/f"_s}, {u"a"_s, u"a/b"_s, u"ab"_s});
        QVERIFY(index.removeDirectory(u"a"_s));
        QCOMPARE(folderPaths(index), QStringList({u"a/b"_s, u"ab"_s}));
        QCOMPARE(filePaths(index), QStringList({u"a/f"_s, u"a/b/f"_s}));
        QVERIFY(!index.removeDirectory(u"a"_s));
    }

    void clearEmptiesBothLists() {
        SecureFileIndex index = indexOf({u"a"_s}, {u"d"_s});
        index.clear();
        QVERIFY(index.entries().isEmpty());
        QVERIFY(index.directories().isEmpty());
        QVERIFY(!index.contains(u"a"_s));
        QVERIFY(!index.containsDirectory(u"d"_s));
        QVERIFY(index.addOrReplace(file(u"a"_s)));
        QCOMPARE(filePaths(index), QStringList(u"a"_s));
    }

    void aCopyIsIndependent() {
        const SecureFileIndex original = indexOf({u"a"_s}, {u"d"_s});
        SecureFileIndex copy = original;
        QVERIFY(copy.remove(u"a"_s));
        QVERIFY(copy.addDirectory(folder(u"e"_s)));
        QCOMPARE(filePaths(original), QStringList(u"a"_s));
        QCOMPARE(folderPaths(original), QStringList(u"d"_s));
        QVERIFY(original.contains(u"a"_s));
        QVERIFY(!original.containsDirectory(u"e"_s));
    }

    // --- Writing JSON ----------------------------------------------------------------------

    void anEmptyIndexIsWrittenInFull() {
        QCOMPARE(SecureFileIndex().toJson(),
                 "{\"directories\":[],\"files\":[],\"formatVersion\":1}"_ba);
    }

    void jsonIsWrittenLiterallyLikeThis() {
        SecureFileIndex index;
        QVERIFY(index.addDirectory({u"docs"_s, Spring, Summer}));
        QVERIFY(index.addOrReplace(fullEntry()));
        QCOMPARE(index.toJson(), fullJson());
    }

    void unusualNamesAreEscaped_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("written");
        QTest::newRow("quote") << u"a\"b"_s << "a\\\"b"_ba;
        QTest::newRow("backslash") << u"a\\b"_s << "a\\\\b"_ba;
        QTest::newRow("line feed") << u"a\nb"_s << "a\\nb"_ba;
        QTest::newRow("tab") << u"a\tb"_s << "a\\tb"_ba;
        QTest::newRow("control") << u"a\u0001b"_s << "a\\u0001b"_ba;
        QTest::newRow("last control") << u"a\u001fb"_s << "a\\u001fb"_ba;
        QTest::newRow("zero") << u"a\u0000b"_s << "a\\u0000b"_ba;
        QTest::newRow("delete") << u"a\u007fb"_s
                                << "a\x7f"
                                   "b"_ba;
        QTest::newRow("slash") << u"a/b"_s << "a/b"_ba;
        QTest::newRow("accents") << u"\u00e1\u00e7"_s << "\xc3\xa1\xc3\xa7"_ba;
        QTest::newRow("line separator") << u"\u2028"_s << "\xe2\x80\xa8"_ba;
        QTest::newRow("beyond 16 bits") << u"\U0001f512"_s << "\xf0\x9f\x94\x92"_ba;
        QTest::newRow("byte order mark") << u"\ufeffa\ufeff"_s << "\\ufeffa\xef\xbb\xbf"_ba;
        QTest::newRow("two byte order marks") << u"\ufeff\ufeff"_s << "\\ufeff\xef\xbb\xbf"_ba;
        QTest::newRow("byte order mark and quotes")
            << u"\ufeff\"\ufeff"_s << "\\ufeff\\\"\xef\xbb\xbf"_ba;
        QTest::newRow("byte order mark in the middle") << u"a\ufeffb"_s
                                                       << "a\xef\xbb\xbf"
                                                          "b"_ba;
    }
    void unusualNamesAreEscaped() {
        QFETCH(const QString, name);
        QFETCH(const QByteArray, written);
        VaultFileEntry entry = file(name);
        entry.id = name;
        SecureFileIndex index;
        QVERIFY(index.addDirectory({name, {}, {}}));
        QVERIFY(index.addOrReplace(entry));
        const QByteArray json = index.toJson();
        QCOMPARE(json, "{\"directories\":[{\"createdUtc\":\"\",\"modifiedUtc\":\"\",\"path\":\"" +
                           written + "\"}],\"files\":[{\"blocks\":[],\"id\":\"" + written +
                           "\",\"lastModifiedUtc\":\"\",\"sha256\":\"\",\"sizeBytes\":0,"
                           "\"vaultPath\":\"" +
                           written + "\"}],\"formatVersion\":1}");
        QCOMPARE(filePaths(SecureFileIndex::fromJson(json)), QStringList(name));
        QCOMPARE(folderPaths(SecureFileIndex::fromJson(json)), QStringList(name));
        const SecureFileIndex fromRows =
            IndexJson::fromRows("[[[\"" + written + "\"]],[[\"\",\"" + written + "\"]]]");
        QCOMPARE(filePaths(fromRows), QStringList(name));
        QCOMPARE(folderPaths(fromRows), QStringList(name));
    }

    void aByteOrderMarkThatIsNotEscapedBelongsToTheName() {
        // Earlier versions wrote it as it is, and one name became another.
        const QStringList names{u"\ufeffa"_s, u"a"_s, u"\ufeff"_s, u"\"\ufeff"_s};
        const QByteArray json = indexOf(names, names).toJson().replace("\\ufeff", "\xef\xbb\xbf");
        const QByteArray rows =
            "[[[\"\ufeffa\"],[\"a\"],[\"\ufeff\"],[\"\\\"\ufeff\"]],[[1,\"\ufeffa\"],"
            "[2,\"a\"],[3,\"\ufeff\"],[4,\"\\\"\ufeff\"]]]"_ba;
        for (const SecureFileIndex& read :
             {SecureFileIndex::fromJson(json), IndexJson::fromRows(rows)}) {
            QCOMPARE(filePaths(read), names);
            QCOMPARE(folderPaths(read), names);
        }
    }

    void halfASurrogatePairIsWrittenAsQtDoes() {
        const QString name = u"a"_s + QChar(0xd83d) + u"b"_s;
        SecureFileIndex index;
        QVERIFY(index.addOrReplace(file(name)));
        const QByteArray json = index.toJson();
        QVERIFY(!QJsonDocument::fromJson(json).isNull());
        QCOMPARE(json, QJsonDocument::fromJson(json).toJson(QJsonDocument::Compact));
        QCOMPARE(filePaths(SecureFileIndex::fromJson(json)), QStringList(name));
    }

    void unsetFieldsAreWrittenEmpty() {
        SecureFileIndex index;
        QVERIFY(index.addDirectory({u"d"_s, {}, {}}));
        QVERIFY(index.addOrReplace(file(u"f"_s)));
        QCOMPARE(index.toJson(), "{\"directories\":[{\"createdUtc\":\"\",\"modifiedUtc\":\"\","
                                 "\"path\":\"d\"}],\"files\":[{\"blocks\":[],\"id\":\"\","
                                 "\"lastModifiedUtc\":\"\",\"sha256\":\"\",\"sizeBytes\":0,"
                                 "\"vaultPath\":\"f\"}],\"formatVersion\":1}"_ba);
    }

    void timesAreConvertedToUtcWhenWritten() {
        VaultFileEntry entry = file(u"f"_s);
        entry.lastModifiedUtc = Spring.toOffsetFromUtc(-3 * 3600);
        QCOMPARE(entry.lastModifiedUtc.time().hour(), 11);
        SecureFileIndex index;
        QVERIFY(index.addOrReplace(entry));
        QVERIFY(index.addDirectory(
            {u"d"_s, Spring.toOffsetFromUtc(9 * 3600), Summer.toTimeZone(QTimeZone(-5 * 3600))}));
        const QByteArray json = index.toJson();
        QVERIFY(json.contains("\"lastModifiedUtc\":\"2025-03-01T14:05:09.120Z\""));
        QVERIFY(json.contains("\"createdUtc\":\"2025-03-01T14:05:09.120Z\""));
        QVERIFY(json.contains("\"modifiedUtc\":\"2025-08-31T23:59:59.999Z\""));
    }

    void millisecondsAreAlwaysWritten() {
        VaultFileEntry entry = file(u"f"_s);
        entry.lastModifiedUtc = utc(2025, 3, 1, 14, 5, 9, 0);
        SecureFileIndex index;
        QVERIFY(index.addOrReplace(entry));
        QVERIFY(index.toJson().contains("\"2025-03-01T14:05:09.000Z\""));
    }

    // --- Reading JSON ----------------------------------------------------------------------

    void jsonIsReadBackInFull() {
        const SecureFileIndex index = SecureFileIndex::fromJson(fullJson());
        QCOMPARE(index.entries().size(), 1);
        compareEntries(index.entries().constFirst(), fullEntry());
        QCOMPARE(index.entries().constFirst().lastModifiedUtc.timeSpec(), Qt::UTC);
        QCOMPARE(index.directories().size(), 1);
        QCOMPARE(index.directories().constFirst().path, u"docs"_s);
        QCOMPARE(index.directories().constFirst().createdUtc, Spring);
        QCOMPARE(index.directories().constFirst().modifiedUtc, Summer);
        QVERIFY(index.contains(fullEntry().vaultPath));
        QVERIFY(index.containsDirectory(u"docs"_s));
        QCOMPARE(index.toJson(), fullJson());
    }

    void textThatIsNoObjectGivesAnEmptyIndex_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("array") << "[{\"files\":[{\"vaultPath\":\"f\"}]}]"_ba;
        QTest::newRow("text") << "not JSON at all"_ba;
        QTest::newRow("cut short") << fullJson().chopped(1);
        QTest::newRow("trailing garbage") << QByteArray(fullJson() + "x");
        QTest::newRow("number") << "42"_ba;
        QTest::newRow("string") << "\"files\""_ba;
        QTest::newRow("null") << "null"_ba;
        QTest::newRow("invalid UTF-8") << "{\"files\":[{\"vaultPath\":\"\xff\"}]}"_ba;
    }
    void textThatIsNoObjectGivesAnEmptyIndex() {
        QFETCH(const QByteArray, json);
        const SecureFileIndex index = SecureFileIndex::fromJson(json);
        QVERIFY(index.entries().isEmpty());
        QVERIFY(index.directories().isEmpty());
    }

    void missingListsAreEmptyLists() {
        const SecureFileIndex folders =
            SecureFileIndex::fromJson("{\"directories\":[{\"path\":\"d\"}]}");
        QVERIFY(folders.entries().isEmpty());
        QCOMPARE(folderPaths(folders), QStringList(u"d"_s));

        const SecureFileIndex files =
            SecureFileIndex::fromJson("{\"files\":[{\"vaultPath\":\"f\"}]}");
        QCOMPARE(filePaths(files), QStringList(u"f"_s));
        QVERIFY(files.directories().isEmpty());

        const SecureFileIndex neither = SecureFileIndex::fromJson("{}");
        QVERIFY(neither.entries().isEmpty() && neither.directories().isEmpty());
    }

    void theFormatVersionIsNotRead_data() {
        QTest::addColumn<QByteArray>("member");
        QTest::newRow("none") << QByteArray();
        QTest::newRow("later") << "\"formatVersion\":99,"_ba;
        QTest::newRow("text") << "\"formatVersion\":\"x\","_ba;
    }
    void theFormatVersionIsNotRead() {
        QFETCH(const QByteArray, member);
        const SecureFileIndex index =
            SecureFileIndex::fromJson("{" + member + "\"files\":[{\"vaultPath\":\"f\"}]}");
        QCOMPARE(filePaths(index), QStringList(u"f"_s));
        QVERIFY(index.toJson().endsWith("\"formatVersion\":1}"));
    }

    void numbersMayBeWrittenAsText_data() {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<qint64>("number");
        QTest::newRow("number") << "42"_ba << qint64(42);
        QTest::newRow("digits in a string") << "\"42\""_ba << qint64(42);
        QTest::newRow("negative") << "-7"_ba << qint64(-7);
        QTest::newRow("beyond a double") << "9007199254740993"_ba << qint64(9007199254740993);
        QTest::newRow("largest") << "9223372036854775807"_ba << std::numeric_limits<qint64>::max();
        QTest::newRow("largest, in a string")
            << "\"9223372036854775807\""_ba << std::numeric_limits<qint64>::max();
        QTest::newRow("words") << "\"many\""_ba << qint64(0);
        QTest::newRow("empty string") << "\"\""_ba << qint64(0);
        QTest::newRow("null") << "null"_ba << qint64(0);
        QTest::newRow("array") << "[42]"_ba << qint64(0);
        QTest::newRow("object") << "{\"a\":42}"_ba << qint64(0);
    }
    void numbersMayBeWrittenAsText() {
        QFETCH(const QByteArray, value);
        QFETCH(const qint64, number);
        const SecureFileIndex index = SecureFileIndex::fromJson(
            jsonWithFile(",\"sizeBytes\":" + value + ",\"blocks\":[{\"offset\":" + value +
                         ",\"plainSize\":" + value + ",\"encryptedSize\":" + value + "}]"));
        QCOMPARE(index.entries().size(), 1);
        const VaultFileEntry entry = index.entries().constFirst();
        QCOMPARE(entry.sizeBytes, number);
        QCOMPARE(entry.blocks.size(), 1);
        QCOMPARE(entry.blocks.constFirst().offset, number);
        QCOMPARE(entry.blocks.constFirst().plainSize, number);
        QCOMPARE(entry.blocks.constFirst().encryptedSize, number);
    }

    void largeNumbersAreWrittenExactly() {
        VaultFileEntry entry = file(u"f"_s, 9007199254740993);
        entry.blocks = {{std::numeric_limits<qint64>::max(), 1, 17, {}}};
        SecureFileIndex index;
        QVERIFY(index.addOrReplace(entry));
        const QByteArray json = index.toJson();
        QVERIFY(json.contains("\"sizeBytes\":9007199254740993"));
        QVERIFY(json.contains("\"offset\":9223372036854775807"));
    }

    void membersThatAreMissingOrOfTheWrongTypeTakeTheirDefaults_data() {
        QTest::addColumn<QByteArray>("members");
        QTest::addColumn<QByteArray>("blocks");
        const QByteArray none =
            "{\"encryptedSize\":0,\"nonce\":\"\",\"offset\":0,\"plainSize\":0}"_ba;
        QTest::newRow("missing") << ""_ba
                                 << ""_ba;
        QTest::newRow("of a block") << ",\"blocks\":[{}]"_ba << none;
        QTest::newRow("wrong type")
            << ",\"id\":7,\"lastModifiedUtc\":[],\"sha256\":{},\"blocks\":\"none\""_ba
            << ""_ba;
        QTest::newRow("blocks that are no objects")
            << ",\"blocks\":[1,{\"offset\":5,\"nonce\":\"AAEC\"},\"x\"]"_ba
            << none + ",{\"encryptedSize\":0,\"nonce\":\"AAEC\",\"offset\":5,\"plainSize\":0}," +
                   none;
    }
    void membersThatAreMissingOrOfTheWrongTypeTakeTheirDefaults() {
        QFETCH(const QByteArray, members);
        QFETCH(const QByteArray, blocks);
        const SecureFileIndex index = SecureFileIndex::fromJson(jsonWithFile(members));
        QCOMPARE(index.toJson(),
                 "{\"directories\":[],\"files\":[{\"blocks\":[" + blocks +
                     "],\"id\":\"\",\"lastModifiedUtc\":\"\",\"sha256\":\"\",\"sizeBytes\":0,"
                     "\"vaultPath\":\"f\"}],\"formatVersion\":1}");
        QVERIFY(!index.entries().constFirst().lastModifiedUtc.isValid());
    }

    void foldersAndListsOfTheWrongTypeTakeTheirDefaults() {
        const SecureFileIndex index =
            SecureFileIndex::fromJson("{\"files\":{\"a\":1},\"directories\":[{\"path\":\"d\"}]}");
        QVERIFY(index.entries().isEmpty());
        QVERIFY(!index.directories().constFirst().createdUtc.isValid());
        QVERIFY(!index.directories().constFirst().modifiedUtc.isValid());
        QVERIFY(SecureFileIndex::fromJson("{\"directories\":3}").directories().isEmpty());
    }

    void entriesWithoutAPathAreDropped() {
        const SecureFileIndex index = SecureFileIndex::fromJson(
            "{\"files\":[{\"id\":\"x\"},{\"vaultPath\":\"\"},7,null,[],{\"vaultPath\":3},"
            "{\"vaultPath\":\"kept\"}],"
            "\"directories\":[{},{\"path\":\"\"},true,{\"path\":null},{\"path\":\"kept too\"}]}");
        QCOMPARE(filePaths(index), QStringList(u"kept"_s));
        QCOMPARE(folderPaths(index), QStringList(u"kept too"_s));
    }

    void aRepeatedPathOverwritesInTheFirstPosition() {
        const SecureFileIndex index = SecureFileIndex::fromJson(
            "{\"files\":[{\"vaultPath\":\"a\",\"sizeBytes\":1,\"id\":\"old\"},"
            "{\"vaultPath\":\"b\",\"sizeBytes\":2},{\"vaultPath\":\"a\",\"sizeBytes\":3}],"
            "\"directories\":[{\"path\":\"d\"},{\"path\":\"e\"},"
            "{\"path\":\"d\",\"createdUtc\":\"2025-03-01T14:05:09.120Z\"}]}");
        QCOMPARE(filePaths(index), QStringList({u"a"_s, u"b"_s}));
        QCOMPARE(index.entries().at(0).sizeBytes, 3);
        QVERIFY(index.entries().at(0).id.isEmpty());
        QCOMPARE(folderPaths(index), QStringList({u"d"_s, u"e"_s}));
        QCOMPARE(index.directories().at(0).createdUtc, Spring);
    }

    void malformedTimesAreInvalidAndWrittenEmpty_data() {
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("empty") << ""_ba;
        QTest::newRow("words") << "yesterday"_ba;
        QTest::newRow("no such day") << "2025-02-30T10:00:00.000Z"_ba;
        QTest::newRow("no such hour") << "2025-02-28T25:00:00.000Z"_ba;
    }
    void malformedTimesAreInvalidAndWrittenEmpty() {
        QFETCH(const QByteArray, text);
        const SecureFileIndex index =
            SecureFileIndex::fromJson(jsonWithFile(",\"lastModifiedUtc\":\"" + text + "\""));
        QCOMPARE(index.entries().size(), 1);
        QVERIFY(!index.entries().constFirst().lastModifiedUtc.isValid());
        QVERIFY(index.toJson().contains("\"lastModifiedUtc\":\"\""));
    }

    void timesWithAnOffsetAreTheSameInstant() {
        const SecureFileIndex index = SecureFileIndex::fromJson(
            jsonWithFile(",\"lastModifiedUtc\":\"2025-03-01T11:05:09.120-03:00\""));
        QCOMPARE(index.entries().constFirst().lastModifiedUtc, Spring);
        QVERIFY(index.toJson().contains("\"lastModifiedUtc\":\"2025-03-01T14:05:09.120Z\""));
    }

    void timesAreWrittenAsQtWritesThem_data() {
        QTest::addColumn<QDateTime>("time");
        const auto add = [](const char* name, const QDate& date, const QTime& time) {
            QTest::newRow(name) << QDateTime(date, time, Utc);
        };
        add("first year", {1, 1, 1}, {0, 0});
        add("before the first year", {-1, 12, 31}, {23, 59, 59, 999});
        add("one digit each", {2025, 3, 1}, {4, 5, 9, 7});
        add("two digits each", {1969, 12, 31}, {23, 59, 58, 99});
        add("last year of four digits", {9999, 12, 31}, {23, 59, 59, 999});
        add("first year of five digits", {10000, 1, 1}, {0, 0});
        QTest::newRow("with an offset") << QDateTime({2025, 1, 1}, {0, 30}, QTimeZone(3 * 3600));
    }
    void timesAreWrittenAsQtWritesThem() {
        QFETCH(const QDateTime, time);
        SecureFileIndex index;
        QVERIFY(index.addDirectory({u"a"_s, time, time}));
        const QByteArray text = time.toUTC().toString(Qt::ISODateWithMs).toLatin1();
        QVERIFY(index.toJson().contains("\"createdUtc\":\"" + text + "\",\"modifiedUtc\":\"" +
                                        text + '"'));
    }

    void digestsAreReadInEitherLetterCase() {
        const SecureFileIndex index =
            SecureFileIndex::fromJson(jsonWithFile(",\"sha256\":\"00FFab\""));
        QCOMPARE(index.entries().constFirst().sha256, QByteArray::fromHex("00ffab"));
        QVERIFY(index.toJson().contains("\"sha256\":\"00ffab\""));
    }

    // --- Rows ------------------------------------------------------------------------------

    void rowsAreReadBackInFull() {
        const SecureFileIndex index = IndexJson::fromRows(fullRows());
        QCOMPARE(index.toJson(), fullJson());
        QCOMPARE(index.entries().constFirst().lastModifiedUtc.timeSpec(), Qt::UTC);
        QVERIFY(index.contains(fullEntry().vaultPath));
        QVERIFY(index.containsDirectory(u"docs"_s));
    }

    void unusualValuesAreReadFromRows() {
        const SecureFileIndex index = IndexJson::fromRows(
            "[[[\"d\",null,1740837909120],[\"e\",253402300799999,-62135596800000]],"
            "[[\"\",\"\\\"\\\\\\n\\u0001\\ud83d\\ude00\",9223372036854775807,-1,\"\","
            "[[-9223372036854775807,0,9223372036854775806,\"\"]]]]]");
        QCOMPARE(filePaths(index), QStringList(u"\"\\\n\u0001\U0001f600"_s));
        const VaultFileEntry file = index.entries().constFirst();
        QCOMPARE(file.sizeBytes, std::numeric_limits<qint64>::max());
        QCOMPARE(file.lastModifiedUtc, utc(1969, 12, 31, 23, 59, 59, 999));
        QCOMPARE(file.blocks.constFirst().offset, -std::numeric_limits<qint64>::max());
        QCOMPARE(file.blocks.constFirst().encryptedSize, std::numeric_limits<qint64>::max() - 1);
        QVERIFY(!index.directories().constFirst().createdUtc.isValid());
        QCOMPARE(index.directories().constFirst().modifiedUtc, Spring);
        QCOMPARE(index.directories().constLast().createdUtc, utc(9999, 12, 31, 23, 59, 59, 999));
        QCOMPARE(index.directories().constLast().modifiedUtc, utc(1, 1, 1, 0, 0, 0, 0));
    }

    void textThatIsNoRowsGivesAnEmptyIndex_data() {
        QTest::addColumn<QByteArray>("rows");
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("object") << fullJson();
        QTest::newRow("text") << "not JSON at all"_ba;
        QTest::newRow("cut short") << fullRows().chopped(1);
        QTest::newRow("no lists") << "[1,\"a\"]"_ba;
        QTest::newRow("no rows") << "[[1,{},null],[2,\"b\",false]]"_ba;
        QTest::newRow("empty rows") << "[[[]],[[]]]"_ba;
        QTest::newRow("empty paths") << "[[[\"\",0,0]],[[\"id\",\"\",1,0,\"\",[]]]]"_ba;
    }
    void textThatIsNoRowsGivesAnEmptyIndex() {
        QFETCH(const QByteArray, rows);
        const SecureFileIndex index = IndexJson::fromRows(rows);
        QVERIFY(index.entries().isEmpty());
        QVERIFY(index.directories().isEmpty());
    }

    void rowsThatEndEarlyHaveDefaults() {
        const SecureFileIndex index =
            IndexJson::fromRows("[[[\"d\"]],[[\"id\",\"f\"],[1,\"g\",{},\"x\",2,[[],3]]]]");
        QCOMPARE(folderPaths(index), QStringList(u"d"_s));
        QVERIFY(!index.directories().constFirst().createdUtc.isValid());
        QCOMPARE(filePaths(index), (QStringList{u"f"_s, u"g"_s}));
        const VaultFileEntry first = index.entries().constFirst();
        QCOMPARE(first.id, u"id"_s);
        QCOMPARE(first.sizeBytes, 0);
        QVERIFY(first.sha256.isEmpty() && first.blocks.isEmpty());
        const VaultFileEntry last = index.entries().constLast();
        QVERIFY(last.id.isEmpty() && !last.lastModifiedUtc.isValid());
        QCOMPARE(last.blocks.size(), 2);
        QCOMPARE(last.blocks.constLast().plainSize, 0);
    }

    void rowsTakeTheLaterOfTwoWithOnePath() {
        const SecureFileIndex index =
            IndexJson::fromRows("[[],[[\"1\",\"f\"],[\"2\",\"g\"],[\"3\",\"f\"]]]");
        QCOMPARE(filePaths(index), (QStringList{u"f"_s, u"g"_s}));
        QCOMPARE(index.entries().constFirst().id, u"3"_s);
    }

    // --- What is written as this program writes it -----------------------------------------

    void jsonIsReadAlikeWithAndWithoutQt() {
        // A blank in front of the text leaves it to Qt.
        QRandomGenerator random(20261122);
        SecureFileIndex index = SecureFileIndex::fromJson(fullJson().replace("\\\"", "'"));
        QVERIFY(index.addOrReplace(file(u"\u00e7\u4e00\U0001f600~\u007f"_s, 3)));
        QVERIFY(index.addDirectory({u"unset"_s, {}, utc(9999, 12, 31, 23, 59, 59, 999)}));
        const QByteArray whole = index.toJson();
        const QByteArray letters("\"\\{}[],:0129-+.eEZTazAF \n=\x7f\x80\xc3\xe7\xef\xbb\xbf\xff");
        for (int round = 0; round < 30000; ++round) {
            QByteArray json = whole;
            for (int edits = random.bounded(3); edits >= 0; --edits) {
                const auto at = random.bounded(static_cast<int>(json.size()));
                const char c = letters.at(random.bounded(static_cast<int>(letters.size())));
                const int kind = random.bounded(3);
                json.replace(at, kind == 0 ? 0 : 1, QByteArray(kind == 1 ? 0 : 1, c));
            }
            const SecureFileIndex read = SecureFileIndex::fromJson(json);
            const SecureFileIndex byQt = SecureFileIndex::fromJson(' ' + json);
            QVERIFY2(read.toJson() == byQt.toJson(), json);
            for (qsizetype i = 0; i < read.entries().size(); ++i) {
                compareEntries(read.entries().at(i), byQt.entries().at(i));
            }
        }
    }

    void jsonOfThisProgramIsReadInFull_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("empty") << SecureFileIndex().toJson();
        QTest::newRow("full") << fullJson();
        QTest::newRow("without escapes") << fullJson().replace("\\\"", "'");
        QTest::newRow("mark") << indexOf({u"\ufeffmark"_s, u"mark"_s}).toJson();
        QTest::newRow("files alone") << indexOf({u"a"_s, u"b"_s}).toJson();
        QTest::newRow("folders alone") << indexOf({}, {u"a"_s, u"b"_s}).toJson();
    }
    void jsonOfThisProgramIsReadInFull() {
        QFETCH(const QByteArray, json);
        QCOMPARE(SecureFileIndex::fromJson(json).toJson(), json);
        QCOMPARE(SecureFileIndex::fromJson(' ' + json).toJson(), json);
    }

    // --- Kept encodings --------------------------------------------------------------------

    void everyEncodingIsThatOfTheEntriesAsTheyAre() {
        QRandomGenerator random(20261122);
        SecureFileIndex index;
        QList<SecureFileIndex> copies;
        for (int round = 0; round < 4000; ++round) {
            changeAtRandom(&index, &random);
            if (random.bounded(3) == 0) {
                QCOMPARE(index.toJson(), madeAgain(index).toJson());
                QCOMPARE(packed(index), packed(madeAgain(index)));
            }
            // A copy of a written index, to go on with later, as after a change that failed.
            if (random.bounded(20) == 0) {
                copies.append(index);
            }
            if (!copies.isEmpty() && random.bounded(40) == 0) {
                index = copies.takeAt(random.bounded(static_cast<int>(copies.size())));
            }
        }
        for (const SecureFileIndex& copy : std::as_const(copies)) {
            QCOMPARE(copy.toJson(), madeAgain(copy).toJson());
        }
    }

    void renamedFileKeepsItsPosition() {
        SecureFileIndex index = indexOf({u"a"_s, u"b"_s, u"c"_s}, {u"x"_s});
        QVERIFY(index.renameFile(u"b"_s, u"x"_s));
        QCOMPARE(filePaths(index), QStringList({u"a"_s, u"x"_s, u"c"_s}));
        QVERIFY(index.contains(u"x"_s) && !index.contains(u"b"_s));
        QVERIFY(index.addOrReplace(file(u"x"_s, 3)));
        QCOMPARE(index.entries().at(1).sizeBytes, 3);
        QVERIFY(index.remove(u"a"_s) && index.remove(u"x"_s));
        QCOMPARE(filePaths(index), QStringList(u"c"_s));
    }

    void fileGetsNoPathThatIsNoneOrTaken() {
        SecureFileIndex index = indexOf({u"a"_s, u"b"_s});
        QVERIFY(!index.renameFile(u"c"_s, u"d"_s));
        QVERIFY(!index.renameFile(u"a"_s, QString()));
        QVERIFY(!index.renameFile(u"a"_s, u"b"_s));
        QVERIFY(!index.renameFile(u"a"_s, u"a"_s));
        QCOMPARE(index.toJson(), indexOf({u"a"_s, u"b"_s}).toJson());
        QVERIFY(index.contains(u"a"_s) && index.contains(u"b"_s));
    }

    void renamedFilesKeepTheirPositions() {
        SecureFileIndex index = indexOf({u"a"_s, u"b"_s, u"c"_s, u"d"_s}, {u"a"_s});
        index.renameFiles([](const QString& path) { return path == u"b"_s ? u"x"_s : path; });
        QCOMPARE(filePaths(index), QStringList({u"a"_s, u"x"_s, u"c"_s, u"d"_s}));
        QVERIFY(index.contains(u"x"_s) && !index.contains(u"b"_s));
        QVERIFY(index.remove(u"d"_s) && index.containsDirectory(u"a"_s));
    }

    void renamedFilesMayReplaceOthersOrGo() {
        SecureFileIndex index;
        QVERIFY(index.addOrReplace(file(u"a"_s, 1)) && index.addOrReplace(file(u"b"_s, 2)) &&
                index.addOrReplace(file(u"c"_s, 3)));
        index.renameFiles([](const QString& path) {
            return path == u"b"_s ? QString() : path == u"c"_s ? u"a"_s : path;
        });
        QCOMPARE(filePaths(index), QStringList(u"a"_s));
        QCOMPARE(index.entries().constFirst().sizeBytes, 3);
        QVERIFY(!index.contains(u"b"_s) && !index.contains(u"c"_s));
    }

    // --- Size ------------------------------------------------------------------------------

    void fifteenThousandEntriesSurviveAndAreFound() {
        constexpr int Count = 15000;
        SecureFileIndex index;
        for (int i = 0; i < Count; ++i) {
            const QString path = u"folder %1/file %2"_s.arg(i % 97).arg(i);
            QVERIFY(index.addOrReplace(file(path, i)));
            QVERIFY(index.addDirectory(folder(u"folder %1"_s.arg(i))));
        }
        // Every third goes, from both lists.
        for (int i = 0; i < Count; i += 3) {
            QVERIFY(index.remove(u"folder %1/file %2"_s.arg(i % 97).arg(i)));
            QVERIFY(index.removeDirectory(u"folder %1"_s.arg(i)));
        }

        const SecureFileIndex read = SecureFileIndex::fromJson(index.toJson());
        QCOMPARE(filePaths(read), filePaths(index));
        QCOMPARE(folderPaths(read), folderPaths(index));
        QCOMPARE(read.entries().size(), Count - Count / 3);
        for (int i = 0; i < Count; ++i) {
            const bool kept = i % 3 != 0;
            const QString path = u"folder %1/file %2"_s.arg(i % 97).arg(i);
            QCOMPARE(index.contains(path), kept);
            QCOMPARE(read.contains(path), kept);
            QCOMPARE(read.containsDirectory(u"folder %1"_s.arg(i)), kept);
        }
        QCOMPARE(read.toJson(), index.toJson());
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QCoreApplication, TestSecureFileIndex>);
#include "test_secure_file_index.moc"
