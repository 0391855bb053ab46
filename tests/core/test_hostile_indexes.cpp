// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QTest>

#include <functional>
#include <limits>
#include <optional>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

using Spoil = std::function<void(CraftedContainer&)>;

constexpr qint64 MebiByte = 1048576;
/// One block in plain and sealed, and what the test itself and Qt need.
constexpr qint64 MemoryForOneBlock = 48 * MebiByte;

const QString Bad = u"bad"_s;
const QString Good = u"good"_s;
const QByteArray GoodBytes = noise(3000, 5);
const QByteArray BadBytes = noise(2000, 6);

/// A vault with a file that the test spoils, one that must stay whole, and a folder.
CraftedContainer vaultWith(const QString& badPath = Bad) {
    CraftedContainer crafted;
    crafted.addFile(badPath, BadBytes, 1000).addFile(Good, GoodBytes, 1000);
    crafted.addFolder(u"folder"_s);
    return crafted;
}

/// Every file and folder below a folder, as paths relative to it.
QStringList everythingIn(const QString& folder) {
    QStringList names;
    QDirIterator walk(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                      QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        names.append(QDir(folder).relativeFilePath(walk.next()));
    }
    names.sort();
    return names;
}

/// Uses one path in every operation of the vault. What they answer is their business; the caller
/// looks at what they did.
void useEverywhere(VaultFixture& fixture, const QString& path) {
    VaultManager& vault = fixture.vault;
    const QString source = fixture.write(u"source"_s, "new contents");
    QBuffer sink;
    QString copy;
    QString error;
    QVERIFY(sink.open(QIODevice::WriteOnly));
    const QList<bool> answers = {
        vault.writeVaultFileToDevice(path, &sink),
        vault.exportFile(path, fixture.file(u"exported"_s)),
        vault.createDirectory(path),
        vault.createDirectory(path + u"/sub"_s),
        vault.moveFile(path, u"folder"_s),
        vault.moveFile(Good, path),
        vault.renameFile(path, u"renamed"_s),
        vault.renameFile(u"renamed"_s, path),
        vault.renameDirectory(u"folder"_s, path),
        vault.renameDirectory(path, u"folder"_s),
        vault.deleteDirectory(path),
        vault.prepareFileForEditing(path, &copy),
        vault.importFile(source, path),
        vault.prepareFileForEditing(path, &copy),
        vault.syncModifiedTempFiles(),
        vault.compactVault({}, &error),
        vault.deleteFile(path),
    };
    QVERIFY(!answers.isEmpty());
}

/// What an export of the path gives; nothing when it is refused.
std::optional<QByteArray> exported(const VaultFixture& fixture, const QString& path) {
    const QString target = fixture.file(u"exported"_s);
    return fixture.vault.exportFile(path, target) ? std::optional<QByteArray>(readFile(target))
                                                  : std::nullopt;
}

} // namespace

/// An index that opens is trusted, but an attacker with the password may have made it,
/// and a damaged program may have written it. Nothing in it may crash the engine, make it take
/// more memory than a block, or lead it out of its folders.
class TestHostileIndexes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { keepTemporaryFilesInMemory(); }
    void badBlocksAreRefused_data() {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QByteArray>("value");
        const QList<QPair<const char*, QByteArray>> numbers = {
            {"-1", "-1"},
            {"0", "0"},
            {"1", "1"},
            {"16", "16"},
            {"one more than a block", "16777233"},
            {"2^31", "2147483648"},
            {"2^32", "4294967296"},
            {"2^53 + 1", "9007199254740993"},
            {"2^63 - 1", "9223372036854775807"},
            {"2^63 - 8", "9223372036854775800"},
            {"2^63", "9223372036854775808"},
            {"2^64", "18446744073709551616"},
            {"-2^63", "-9223372036854775808"},
            {"below -2^63", "-9223372036854775809"},
            {"1e300", "1e300"},
            {"-1e300", "-1e300"},
            {"fraction", "0.5"},
            {"text", "\"NaN\""},
            {"infinite text", "\"Infinity\""},
            {"hexadecimal text", "\"0x10\""},
            {"empty text", "\"\""},
            {"digits beyond 63 bits", "\"9223372036854775808\""},
            {"true", "true"},
            {"null", "null"},
            {"array", "[1000]"},
            {"object", "{}"},
        };
        for (const char* key : {"offset", "plainSize", "encryptedSize"}) {
            for (const auto& [name, value] : numbers) {
                QTest::addRow("%s: %s", key, name) << QString::fromLatin1(key) << value;
            }
        }
        QTest::addRow("nonce: missing") << u"nonce"_s << QByteArray("null");
        QTest::addRow("nonce: empty") << u"nonce"_s << QByteArray("\"\"");
        QTest::addRow("nonce: 23 bytes")
            << u"nonce"_s << QByteArray('"' + QByteArray(23, 'n').toBase64() + '"');
        QTest::addRow("nonce: a megabyte")
            << u"nonce"_s << QByteArray('"' + QByteArray(1000000, 'A') + '"');
    }
    void badBlocksAreRefused() {
        QFETCH(const QString, key);
        QFETCH(const QByteArray, value);
        CraftedContainer crafted = vaultWith();
        crafted.setBlockMember(0, 0, key, u"HERE"_s);
        crafted.replaceInIndex("\"HERE\"", value);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture picture(fixture);
        const PeakMemory memory;

        QVERIFY(!exported(fixture, Bad));
        QCOMPARE(exported(fixture, Good), GoodBytes);
        QString copy = u"as before"_s;
        QVERIFY(!fixture.vault.prepareFileForEditing(Bad, &copy));
        QCOMPARE(copy, u"as before"_s);
        COMPARE_UNCHANGED(picture);
        QString error;
        const bool compacted = fixture.vault.compactVault({}, &error);
        QCOMPARE(error, QString());
        if (!compacted) {
            COMPARE_UNCHANGED(picture);
        }
        QVERIFY(!exported(fixture, Bad));
        QCOMPARE(exported(fixture, Good), GoodBytes);

        // The file that cannot be read can be replaced, and deleted.
        QVERIFY(fixture.store(Bad, "new contents"));
        QCOMPARE(exported(fixture, Bad), QByteArray("new contents"));
        QVERIFY(fixture.vault.deleteFile(Bad));
        QVERIFY(fixture.vault.compactVault({}, &error));
        QCOMPARE(exported(fixture, Good), GoodBytes);
        QVERIFY(memory.canMeasure());
        QVERIFY2(memory.growth() < MemoryForOneBlock, qPrintable(QString::number(memory.growth())));
    }

    void wrongTypesAreDefaults_data() {
        QTest::addColumn<Spoil>("spoil");
        const QList<QJsonValue> values = {QJsonValue(),     QJsonValue(true),
                                          QJsonValue(-1.5), QJsonValue(u"\xff"_s),
                                          QJsonArray{1, 2}, QJsonObject{{u"a"_s, 1}}};
        for (const QJsonValue& value : values) {
            const int type = value.type();
            for (const char* key : {"id", "sizeBytes", "lastModifiedUtc", "sha256"}) {
                QTest::addRow("file's %s of JSON type %d", key, type)
                    << Spoil([=](auto& c) { c.setFileMember(0, QString::fromLatin1(key), value); });
            }
            for (const char* key : {"createdUtc", "modifiedUtc"}) {
                QTest::addRow("folder's %s of JSON type %d", key, type) << Spoil(
                    [=](auto& c) { c.setFolderMember(0, QString::fromLatin1(key), value); });
            }
            QTest::addRow("formatVersion of JSON type %d", type)
                << Spoil([=](auto& c) { c.setIndexMember(u"formatVersion"_s, value); });
        }
        for (const char* date : {"2025-02-30T00:00:00.000Z", "9999999-01-01T00:00:00.000Z",
                                 "-2025-01-01", "2025-03-01T14:05:09.120+99:99", "now"}) {
            QTest::addRow("date %s", date) << Spoil([=](auto& c) {
                c.setFileMember(0, u"lastModifiedUtc"_s, QString::fromLatin1(date));
            });
        }
        QTest::addRow("digest of a megabyte") << Spoil(
            [](auto& c) { c.setFileMember(0, u"sha256"_s, QString(1000000, QLatin1Char('a'))); });
        QTest::addRow("size of 2^63 - 1") << Spoil([](auto& c) {
            c.setFileMember(0, u"sizeBytes"_s, std::numeric_limits<qint64>::max());
        });
        QTest::addRow("size of -2^63") << Spoil([](auto& c) {
            c.setFileMember(0, u"sizeBytes"_s, std::numeric_limits<qint64>::min());
        });
    }
    void wrongTypesAreDefaults() {
        QFETCH(const Spoil, spoil);
        CraftedContainer crafted = vaultWith();
        spoil(crafted);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        // None of these members is needed to open the file, and all survive a rewrite.
        QCOMPARE(exported(fixture, Bad), BadBytes);
        QVERIFY(fixture.vault.compactVault([](qint64, qint64, const QString&) {}, nullptr));
        QVERIFY(fixture.vault.renameFile(Bad, u"folder/other"_s));
        QCOMPARE(exported(fixture, u"folder/other"_s), BadBytes);
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.filePaths(), QStringList({u"folder/other"_s, Good}));
        QCOMPARE(exported(fixture, Good), GoodBytes);
    }

    void whatIsNoIndexIsAnEmptyOne_data() {
        QTest::addColumn<QByteArray>("json");
        const QByteArray entry("{\"vaultPath\":\"a\"}");
        QTest::addRow("one byte") << QByteArray("x");
        QTest::addRow("array") << QByteArray("[" + entry + "]");
        QTest::addRow("empty object") << QByteArray("{}");
        QTest::addRow("not-a-number") << QByteArray("{\"files\":[" + entry + "],\"x\":NaN}");
        QTest::addRow("invalid UTF-8") << QByteArray("{\"files\":[{\"vaultPath\":\"a\xff\"}]}");
        QTest::addRow("overlong UTF-8")
            << QByteArray("{\"files\":[{\"vaultPath\":\"..\xc0\xaf\"}]}");
        QTest::addRow("1,025 nested arrays")
            << QByteArray("{\"files\":[" + entry + "],\"x\":" + QByteArray(1025, '[') +
                          QByteArray(1025, ']') + "}");
        QTest::addRow("brackets without end") << QByteArray(1000000, '[');
        QTest::addRow("objects without end") << QByteArray("{\"a\":").repeated(200000);
        QTest::addRow("files is an object") << QByteArray("{\"files\":{\"0\":" + entry + "}}");
        QTest::addRow("files is text") << QByteArray("{\"files\":\"a\",\"directories\":7}");
        QTest::addRow("no entry is an object") << QByteArray(
            "{\"files\":[null,1,true,\"a\",[" + entry + "]],\"directories\":[null,[]]}");
        QTest::addRow("no entry has a path") << QByteArray(
            "{\"files\":[{},{\"vaultPath\":\"\"},{\"vaultPath\":7},{\"vaultPath\":null},"
            "{\"path\":\"a\"}],\"directories\":[{},{\"path\":\"\"},{\"path\":[]}]}");
        QTest::addRow("second list counts")
            << QByteArray("{\"files\":[" + entry + "],\"files\":[]}");
    }
    void whatIsNoIndexIsAnEmptyOne() {
        QFETCH(const QByteArray, json);
        CraftedContainer crafted;
        crafted.setIndexJson(json);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.filePaths(), QStringList());
        QCOMPARE(fixture.folderPaths(), QStringList());
        QVERIFY(fixture.store(u"a"_s, "contents"));
        QCOMPARE(exported(fixture, u"a"_s), QByteArray("contents"));
    }

    void hostilePathsNeverLeadOutside_data() {
        QTest::addColumn<QString>("path");
        const auto row = [](const char* name, const QString& path) {
            QTest::newRow(name) << path;
        };
        row("two levels up", u"../../x"_s);
        row("far up", u"../"_s.repeated(40) + u"x"_s);
        row("up from a folder", u"folder/../../x"_s);
        row("up with backslashes", u"..\\..\\x"_s);
        row("up with blanks", u" .. / .. /x"_s);
        row("up with line feeds", u"..\n/..\n/x"_s);
        row("parent alone", u".."_s);
        row("folder itself", u"."_s);
        row("three dots", u"..."_s);
        row("ends in the parent", u"folder/.."_s);
        row("absolute", u"/tmp/tessel-hostile"_s);
        row("absolute twice", u"//tmp/tessel-hostile"_s);
        row("home", u"~/x"_s);
        row("slash", u"/"_s);
        row("ends with a slash", u"x/"_s);
        row("blank", u"   "_s);
        row("blank component", u"a/ /b"_s);
        row("backslash", u"a\\b"_s);
        row("address", u"file:///tmp/x"_s);
        row("resource", u":/icons/x"_s);
        row("control characters", QStringLiteral("a\n\r\t\x1b[31m\x7f"
                                                 "b"));
        row("zero byte", u"a"_s + QChar(0) + u"b"_s);
        row("zero byte, then up", u"a"_s + QChar(0) + u"/../../x"_s);
        row("up, then zero byte", u".."_s + QChar(0) + u"/x"_s);
        row("half a surrogate pair", QString(QChar(0xd800)) + u"/x"_s);
        row("right to left", QString(QChar(0x202e)) + u"fdp.exe"_s);
        row("wide dots", QString(2, QChar(0xff0e)) + u"/x"_s);
        row("name of 255 bytes", QString(255, QLatin1Char('n')));
        row("name of 300 characters", QString(300, QLatin1Char('n')));
        row("name of 200 wide characters", QString(200, QChar(0x20ac)));
        row("path of 5,000 characters", u"abcd/"_s.repeated(1000) + QLatin1Char('x'));
        row("path of 100,000 folders", u"a/"_s.repeated(100000) + QLatin1Char('x'));
        row("the workspace's parent", u"Tessel"_s);
        row("percent signs", u"%1%2%n%s%99999d"_s);
        row("upper case of another name", u"GOOD/x"_s);
    }
    void hostilePathsNeverLeadOutside() {
        QFETCH(const QString, path);
        CraftedContainer crafted = vaultWith(path);
        crafted.addFolder(path);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QStringList workspaces = everythingIn(fixture.temporaryFolder());
        // The folder of all runs, this run's note, and its workspace.
        QCOMPARE(workspaces.size(), 3);
        const QString& note = workspaces.at(1);
        const QString& workspace = workspaces.last();
        const PeakMemory memory;
        useEverywhere(fixture, path);
        QVERIFY2(memory.growth() < MemoryForOneBlock, qPrintable(QString::number(memory.growth())));

        const QStringList left = everythingIn(fixture.temporaryFolder());
        for (const QString& name : left) {
            QVERIFY2(name == "Tessel"_L1 || name == note || name == workspace ||
                         name.startsWith(workspace + QLatin1Char('/')),
                     qPrintable(name));
        }
        QCOMPARE(QDir(fixture.driveFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList{u"tessel.tvlt"_s});
        QVERIFY(!QFileInfo::exists(u"/tmp/tessel-hostile"_s));
        QVERIFY(fixture.vault.lockVault());
        QCOMPARE(everythingIn(fixture.temporaryFolder()), QStringList{u"Tessel"_s});
        QVERIFY(fixture.unlock());
    }

    void copiesOfOpenedFilesStayInTheWorkspace_data() { hostilePathsNeverLeadOutside_data(); }
    void copiesOfOpenedFilesStayInTheWorkspace() {
        QFETCH(const QString, path);
        VaultFixture fixture(vaultWith(path));
        QVERIFY(fixture.unlock());
        const QString workspace = fixture.temporaryFolder() + QLatin1Char('/') +
                                  everythingIn(fixture.temporaryFolder()).last() + QLatin1Char('/');
        QString copy = u"as before"_s;
        if (fixture.vault.prepareFileForEditing(path, &copy)) {
            QVERIFY2(QFileInfo(copy).canonicalFilePath().startsWith(workspace), qPrintable(copy));
            QCOMPARE(readFile(copy), BadBytes);
        } else {
            QCOMPARE(copy, u"as before"_s);
        }
    }

    void aPathOfTooManyFoldersIsRefused() {
        // Its ancestors' names together are longer than a container's header.
        const QString deep = u"a/"_s.repeated(100000) + QLatin1Char('x');
        VaultFixture fixture(vaultWith());
        QVERIFY(fixture.unlock());
        const VaultPicture picture(fixture);
        const PeakMemory memory;
        QVERIFY(!fixture.vault.createDirectory(deep));
        QVERIFY(!fixture.store(deep, "contents"));
        QVERIFY(!fixture.vault.renameDirectory(u"folder"_s, deep));
        QVERIFY2(memory.growth() < MemoryForOneBlock, qPrintable(QString::number(memory.growth())));
        COMPARE_UNCHANGED(picture);
        // A path of a thousand folders is unusual, and no more than that.
        QVERIFY(fixture.vault.createDirectory(deep.left(2000)));
        QCOMPARE(fixture.folderPaths().size(), 1001);
    }

    void lettersKeepTheirSizeWhenCaseIsIgnored() {
        // Paths of different lengths are taken for different without comparing their letters.
        for (char32_t letter = 0; letter <= QChar::LastValidCodePoint; ++letter) {
            QCOMPARE(QChar::requiresSurrogates(QChar::toCaseFolded(letter)),
                     QChar::requiresSurrogates(letter));
        }
    }

    void repeatedEntriesCountOnce() {
        CraftedContainer crafted = vaultWith();
        crafted.addFile(Bad, "second contents").addFolder(u"folder"_s);
        crafted.addFile(u"BAD"_s, "in another case");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.filePaths(), QStringList({Bad, Good, u"BAD"_s}));
        QCOMPARE(fixture.folderPaths(), QStringList{u"folder"_s});
        // Two names that differ in letter case alone lead to the first of them, until that is gone.
        QCOMPARE(exported(fixture, u"BAD"_s), QByteArray("second contents"));
        QVERIFY(fixture.vault.deleteFile(u"BAD"_s));
        QCOMPARE(exported(fixture, Bad), QByteArray("in another case"));
        QVERIFY(fixture.vault.deleteFile(Bad));
        QVERIFY(!exported(fixture, Bad));
        QCOMPARE(exported(fixture, Good), GoodBytes);
    }

    void aFileAndAFolderOfOneNameDoNotMeetInTheWorkspace() {
        CraftedContainer crafted = vaultWith();
        crafted.addFile(u"bad/below"_s, "below");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(Bad, &copy));
        QString below = u"as before"_s;
        QVERIFY(!fixture.vault.prepareFileForEditing(u"bad/below"_s, &below));
        QCOMPARE(below, u"as before"_s);
        QCOMPARE(readFile(copy), BadBytes);
        QVERIFY(fixture.vault.lockVault());
    }

    void blocksThatOverlapAreCopiedForEachFile() {
        CraftedContainer crafted = vaultWith();
        const CraftedBlock shared = crafted.blocks(1).first();
        for (const qsizetype block : {0, 1}) {
            crafted.setBlockMember(0, block, u"offset"_s, shared.offset);
            crafted.setBlockMember(0, block, u"nonce"_s,
                                   QString::fromLatin1(shared.nonce.toBase64()));
        }
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QByteArray twice = GoodBytes.left(1000).repeated(2);
        QCOMPARE(exported(fixture, Bad), twice);
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(exported(fixture, Bad), twice);
        QCOMPARE(exported(fixture, Good), GoodBytes);
        QVERIFY(fixture.vault.deleteFile(Bad));
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(exported(fixture, Good), GoodBytes);
    }

    void anIndexThatFillsTheHeaderIsUsable() {
        CraftedContainer crafted;
        const QByteArray entry("{\"vaultPath\":\"%1\"},");
        QByteArray files;
        constexpr qsizetype Room = 6291137 - 100;
        for (int i = 0; files.size() + entry.size() + 10 < Room; ++i) {
            files += QByteArray(entry).replace("%1", QByteArray::number(i));
        }
        files.chop(1);
        crafted.setIndexJson("{\"directories\":[],\"files\":[" + files + "],\"formatVersion\":1}");
        VaultFixture fixture(crafted);
        const PeakMemory memory;
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.fileIndex().entries().size() > 200000);
        const VaultPicture picture(fixture);
        // Written back, the entries have all their members and no longer fit: a plain refusal.
        QVERIFY(!fixture.vault.deleteFile(u"7"_s));
        QVERIFY(!fixture.store(u"new"_s, "contents"));
        QVERIFY(!fixture.vault.compactVault({}, nullptr));
        COMPARE_UNCHANGED(picture);
        QVERIFY2(memory.growth() < 1024 * MebiByte, qPrintable(QString::number(memory.growth())));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestHostileIndexes>);
#include "test_hostile_indexes.moc"
