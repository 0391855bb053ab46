// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "VaultFixture.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"

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

namespace {

using Spoil = std::function<void(CraftedContainer&)>;

constexpr qint64 MebiByte = 1048576;
/// One block in plain and sealed, and what the test itself and the toolkit need.
constexpr qint64 MemoryForOneBlock = 48 * MebiByte;

const QString Bad = QStringLiteral("bad");
const QString Good = QStringLiteral("good");
const QByteArray GoodBytes = noise(3000, 5);
const QByteArray BadBytes = noise(2000, 6);

/// A vault with a file that the test spoils, one that must stay whole, and a folder.
CraftedContainer vaultWith(const QString& badPath = Bad) {
    CraftedContainer crafted;
    crafted.addFile(badPath, BadBytes, 1000).addFile(Good, GoodBytes, 1000);
    crafted.addFolder(QStringLiteral("folder"));
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
    const QString source = fixture.write(QStringLiteral("source"), "new contents");
    QBuffer sink;
    QString copy;
    QString error;
    QVERIFY(sink.open(QIODevice::WriteOnly));
    const QList<bool> answers = {
        vault.writeVaultFileToDevice(path, &sink),
        vault.exportFile(path, fixture.file(QStringLiteral("exported"))),
        vault.createDirectory(path),
        vault.createDirectory(path + QStringLiteral("/sub")),
        vault.moveFile(path, QStringLiteral("folder")),
        vault.moveFile(Good, path),
        vault.renameFile(path, QStringLiteral("renamed")),
        vault.renameFile(QStringLiteral("renamed"), path),
        vault.renameDirectory(QStringLiteral("folder"), path),
        vault.renameDirectory(path, QStringLiteral("folder")),
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
    const QString target = fixture.file(QStringLiteral("exported"));
    return fixture.vault.exportFile(path, target) ? std::optional<QByteArray>(readFile(target))
                                                  : std::nullopt;
}

} // namespace

/// An index that opens is trusted, but whoever made it may have had the password and bad intent,
/// and a damaged program may have written it. Nothing in it may crash the engine, make it take
/// more memory than a block, or lead it out of its folders.
class TestHostileIndexes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { keepTemporaryFilesInMemory(); }
    void badBlocksAreRefused_data();
    void badBlocksAreRefused();
    void wrongTypesAreDefaults_data();
    void wrongTypesAreDefaults();
    void whatIsNoIndexIsAnEmptyOne_data();
    void whatIsNoIndexIsAnEmptyOne();
    void hostilePathsNeverLeadOutside_data();
    void hostilePathsNeverLeadOutside();
    void copiesOfOpenedFilesStayInTheWorkspace_data();
    void copiesOfOpenedFilesStayInTheWorkspace();
    void aPathOfTooManyFoldersIsRefused();
    void lettersKeepTheirSizeWhenCaseIsIgnored();
    void repeatedEntriesCountOnce();
    void aFileAndAFolderOfOneNameDoNotMeetInTheWorkspace();
    void blocksThatOverlapAreCopiedForEachFile();
    void anIndexThatFillsTheHeaderIsUsable();
};

void TestHostileIndexes::badBlocksAreRefused_data() {
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
    QTest::addRow("nonce: missing") << QStringLiteral("nonce") << QByteArray("null");
    QTest::addRow("nonce: empty") << QStringLiteral("nonce") << QByteArray("\"\"");
    QTest::addRow("nonce: 23 bytes")
        << QStringLiteral("nonce") << QByteArray('"' + QByteArray(23, 'n').toBase64() + '"');
    QTest::addRow("nonce: a megabyte")
        << QStringLiteral("nonce") << QByteArray('"' + QByteArray(1000000, 'A') + '"');
}

void TestHostileIndexes::badBlocksAreRefused() {
    QFETCH(const QString, key);
    QFETCH(const QByteArray, value);
    CraftedContainer crafted = vaultWith();
    crafted.setBlockMember(0, 0, key, QStringLiteral("HERE"));
    crafted.replaceInIndex("\"HERE\"", value);
    VaultFixture fixture(crafted);
    QVERIFY(fixture.unlock());
    const VaultPicture picture(fixture);
    const PeakMemory memory;

    QVERIFY(!exported(fixture, Bad));
    QCOMPARE(exported(fixture, Good), GoodBytes);
    QString copy = QStringLiteral("as before");
    QVERIFY(!fixture.vault.prepareFileForEditing(Bad, &copy));
    QCOMPARE(copy, QStringLiteral("as before"));
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

void TestHostileIndexes::wrongTypesAreDefaults_data() {
    QTest::addColumn<Spoil>("spoil");
    const QList<QJsonValue> values = {QJsonValue(),     QJsonValue(true),
                                      QJsonValue(-1.5), QJsonValue(QStringLiteral("\xff")),
                                      QJsonArray{1, 2}, QJsonObject{{QStringLiteral("a"), 1}}};
    for (const QJsonValue& value : values) {
        const int type = value.type();
        for (const char* key : {"id", "sizeBytes", "lastModifiedUtc", "sha256"}) {
            QTest::addRow("file's %s of JSON type %d", key, type)
                << Spoil([=](auto& c) { c.setFileMember(0, QString::fromLatin1(key), value); });
        }
        for (const char* key : {"createdUtc", "modifiedUtc"}) {
            QTest::addRow("folder's %s of JSON type %d", key, type)
                << Spoil([=](auto& c) { c.setFolderMember(0, QString::fromLatin1(key), value); });
        }
        QTest::addRow("formatVersion of JSON type %d", type)
            << Spoil([=](auto& c) { c.setIndexMember(QStringLiteral("formatVersion"), value); });
    }
    for (const char* date : {"2025-02-30T00:00:00.000Z", "9999999-01-01T00:00:00.000Z",
                             "-2025-01-01", "2025-03-01T14:05:09.120+99:99", "now"}) {
        QTest::addRow("date %s", date) << Spoil([=](auto& c) {
            c.setFileMember(0, QStringLiteral("lastModifiedUtc"), QString::fromLatin1(date));
        });
    }
    QTest::addRow("digest of a megabyte") << Spoil([](auto& c) {
        c.setFileMember(0, QStringLiteral("sha256"), QString(1000000, QLatin1Char('a')));
    });
    QTest::addRow("size of 2^63 - 1") << Spoil([](auto& c) {
        c.setFileMember(0, QStringLiteral("sizeBytes"), std::numeric_limits<qint64>::max());
    });
    QTest::addRow("size of -2^63") << Spoil([](auto& c) {
        c.setFileMember(0, QStringLiteral("sizeBytes"), std::numeric_limits<qint64>::min());
    });
}

void TestHostileIndexes::wrongTypesAreDefaults() {
    QFETCH(const Spoil, spoil);
    CraftedContainer crafted = vaultWith();
    spoil(crafted);
    VaultFixture fixture(crafted);
    QVERIFY(fixture.unlock());
    // None of these members is needed to open the file, and all survive a rewrite.
    QCOMPARE(exported(fixture, Bad), BadBytes);
    QVERIFY(fixture.vault.compactVault([](qint64, qint64, const QString&) {}, nullptr));
    QVERIFY(fixture.vault.renameFile(Bad, QStringLiteral("folder/other")));
    QCOMPARE(exported(fixture, QStringLiteral("folder/other")), BadBytes);
    QVERIFY(fixture.vault.lockVault());
    QVERIFY(fixture.unlock());
    QCOMPARE(fixture.filePaths(), QStringList({QStringLiteral("folder/other"), Good}));
    QCOMPARE(exported(fixture, Good), GoodBytes);
}

void TestHostileIndexes::whatIsNoIndexIsAnEmptyOne_data() {
    QTest::addColumn<QByteArray>("json");
    const QByteArray entry("{\"vaultPath\":\"a\"}");
    QTest::addRow("one byte") << QByteArray("x");
    QTest::addRow("array") << QByteArray("[" + entry + "]");
    QTest::addRow("empty object") << QByteArray("{}");
    QTest::addRow("not-a-number") << QByteArray("{\"files\":[" + entry + "],\"x\":NaN}");
    QTest::addRow("invalid UTF-8") << QByteArray("{\"files\":[{\"vaultPath\":\"a\xff\"}]}");
    QTest::addRow("overlong UTF-8") << QByteArray("{\"files\":[{\"vaultPath\":\"..\xc0\xaf\"}]}");
    QTest::addRow("1,025 nested arrays") << QByteArray(
        "{\"files\":[" + entry + "],\"x\":" + QByteArray(1025, '[') + QByteArray(1025, ']') + "}");
    QTest::addRow("brackets without end") << QByteArray(1000000, '[');
    QTest::addRow("objects without end") << QByteArray("{\"a\":").repeated(200000);
    QTest::addRow("files is an object") << QByteArray("{\"files\":{\"0\":" + entry + "}}");
    QTest::addRow("files is text") << QByteArray("{\"files\":\"a\",\"directories\":7}");
    QTest::addRow("no entry is an object")
        << QByteArray("{\"files\":[null,1,true,\"a\",[" + entry + "]],\"directories\":[null,[]]}");
    QTest::addRow("no entry has a path")
        << QByteArray("{\"files\":[{},{\"vaultPath\":\"\"},{\"vaultPath\":7},{\"vaultPath\":null},"
                      "{\"path\":\"a\"}],\"directories\":[{},{\"path\":\"\"},{\"path\":[]}]}");
    QTest::addRow("second list counts") << QByteArray("{\"files\":[" + entry + "],\"files\":[]}");
}

void TestHostileIndexes::whatIsNoIndexIsAnEmptyOne() {
    QFETCH(const QByteArray, json);
    CraftedContainer crafted;
    crafted.setIndexJson(json);
    VaultFixture fixture(crafted);
    QVERIFY(fixture.unlock());
    QCOMPARE(fixture.filePaths(), QStringList());
    QCOMPARE(fixture.folderPaths(), QStringList());
    QVERIFY(fixture.store(QStringLiteral("a"), "contents"));
    QCOMPARE(exported(fixture, QStringLiteral("a")), QByteArray("contents"));
}

void TestHostileIndexes::hostilePathsNeverLeadOutside_data() {
    QTest::addColumn<QString>("path");
    const auto row = [](const char* name, const QString& path) {
        QTest::newRow(name) << path;
    };
    row("two levels up", QStringLiteral("../../x"));
    row("far up", QStringLiteral("../").repeated(40) + QStringLiteral("x"));
    row("up from a folder", QStringLiteral("folder/../../x"));
    row("up with backslashes", QStringLiteral("..\\..\\x"));
    row("up with blanks", QStringLiteral(" .. / .. /x"));
    row("up with line feeds", QStringLiteral("..\n/..\n/x"));
    row("parent alone", QStringLiteral(".."));
    row("folder itself", QStringLiteral("."));
    row("three dots", QStringLiteral("..."));
    row("ends in the parent", QStringLiteral("folder/.."));
    row("absolute", QStringLiteral("/tmp/tessel-hostile"));
    row("absolute twice", QStringLiteral("//tmp/tessel-hostile"));
    row("home", QStringLiteral("~/x"));
    row("slash", QStringLiteral("/"));
    row("ends with a slash", QStringLiteral("x/"));
    row("blank", QStringLiteral("   "));
    row("blank component", QStringLiteral("a/ /b"));
    row("backslash", QStringLiteral("a\\b"));
    row("address", QStringLiteral("file:///tmp/x"));
    row("resource", QStringLiteral(":/icons/x"));
    row("control characters", QStringLiteral("a\n\r\t\x1b[31m\x7f"
                                             "b"));
    row("zero byte", QStringLiteral("a") + QChar(0) + QStringLiteral("b"));
    row("zero byte, then up", QStringLiteral("a") + QChar(0) + QStringLiteral("/../../x"));
    row("up, then zero byte", QStringLiteral("..") + QChar(0) + QStringLiteral("/x"));
    row("half a surrogate pair", QString(QChar(0xd800)) + QStringLiteral("/x"));
    row("right to left", QString(QChar(0x202e)) + QStringLiteral("fdp.exe"));
    row("wide dots", QString(2, QChar(0xff0e)) + QStringLiteral("/x"));
    row("name of 255 bytes", QString(255, QLatin1Char('n')));
    row("name of 300 characters", QString(300, QLatin1Char('n')));
    row("name of 200 wide characters", QString(200, QChar(0x20ac)));
    row("path of 5,000 characters", QStringLiteral("abcd/").repeated(1000) + QLatin1Char('x'));
    row("path of 100,000 folders", QStringLiteral("a/").repeated(100000) + QLatin1Char('x'));
    row("the workspace's parent", QStringLiteral("Tessel"));
    row("percent signs", QStringLiteral("%1%2%n%s%99999d"));
    row("upper case of another name", QStringLiteral("GOOD/x"));
}

void TestHostileIndexes::hostilePathsNeverLeadOutside() {
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
        QVERIFY2(name == QLatin1String("Tessel") || name == note || name == workspace ||
                     name.startsWith(workspace + QLatin1Char('/')),
                 qPrintable(name));
    }
    QCOMPARE(QDir(fixture.driveFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{QStringLiteral("tessel.tvlt")});
    QVERIFY(!QFileInfo::exists(QStringLiteral("/tmp/tessel-hostile")));
    QVERIFY(fixture.vault.lockVault());
    QCOMPARE(everythingIn(fixture.temporaryFolder()), QStringList{QStringLiteral("Tessel")});
    QVERIFY(fixture.unlock());
}

void TestHostileIndexes::copiesOfOpenedFilesStayInTheWorkspace_data() {
    hostilePathsNeverLeadOutside_data();
}

void TestHostileIndexes::copiesOfOpenedFilesStayInTheWorkspace() {
    QFETCH(const QString, path);
    VaultFixture fixture(vaultWith(path));
    QVERIFY(fixture.unlock());
    const QString workspace = fixture.temporaryFolder() + QLatin1Char('/') +
                              everythingIn(fixture.temporaryFolder()).last() + QLatin1Char('/');
    QString copy = QStringLiteral("as before");
    if (fixture.vault.prepareFileForEditing(path, &copy)) {
        QVERIFY2(QFileInfo(copy).canonicalFilePath().startsWith(workspace), qPrintable(copy));
        QCOMPARE(readFile(copy), BadBytes);
    } else {
        QCOMPARE(copy, QStringLiteral("as before"));
    }
}

void TestHostileIndexes::aPathOfTooManyFoldersIsRefused() {
    // Its ancestors' names together are longer than a container's header.
    const QString deep = QStringLiteral("a/").repeated(100000) + QLatin1Char('x');
    VaultFixture fixture(vaultWith());
    QVERIFY(fixture.unlock());
    const VaultPicture picture(fixture);
    const PeakMemory memory;
    QVERIFY(!fixture.vault.createDirectory(deep));
    QVERIFY(!fixture.store(deep, "contents"));
    QVERIFY(!fixture.vault.renameDirectory(QStringLiteral("folder"), deep));
    QVERIFY2(memory.growth() < MemoryForOneBlock, qPrintable(QString::number(memory.growth())));
    COMPARE_UNCHANGED(picture);
    // A path of a thousand folders is unusual, and no more than that.
    QVERIFY(fixture.vault.createDirectory(deep.left(2000)));
    QCOMPARE(fixture.folderPaths().size(), 1001);
}

void TestHostileIndexes::lettersKeepTheirSizeWhenCaseIsIgnored() {
    // Paths of different lengths are taken for different without comparing their letters.
    for (char32_t letter = 0; letter <= QChar::LastValidCodePoint; ++letter) {
        QCOMPARE(QChar::requiresSurrogates(QChar::toCaseFolded(letter)),
                 QChar::requiresSurrogates(letter));
    }
}

void TestHostileIndexes::repeatedEntriesCountOnce() {
    CraftedContainer crafted = vaultWith();
    crafted.addFile(Bad, "second contents").addFolder(QStringLiteral("folder"));
    crafted.addFile(QStringLiteral("BAD"), "in another case");
    VaultFixture fixture(crafted);
    QVERIFY(fixture.unlock());
    QCOMPARE(fixture.filePaths(), QStringList({Bad, Good, QStringLiteral("BAD")}));
    QCOMPARE(fixture.folderPaths(), QStringList{QStringLiteral("folder")});
    // Two names that differ in letter case alone lead to the first of them, until that is gone.
    QCOMPARE(exported(fixture, QStringLiteral("BAD")), QByteArray("second contents"));
    QVERIFY(fixture.vault.deleteFile(QStringLiteral("BAD")));
    QCOMPARE(exported(fixture, Bad), QByteArray("in another case"));
    QVERIFY(fixture.vault.deleteFile(Bad));
    QVERIFY(!exported(fixture, Bad));
    QCOMPARE(exported(fixture, Good), GoodBytes);
}

void TestHostileIndexes::aFileAndAFolderOfOneNameDoNotMeetInTheWorkspace() {
    CraftedContainer crafted = vaultWith();
    crafted.addFile(QStringLiteral("bad/below"), "below");
    VaultFixture fixture(crafted);
    QVERIFY(fixture.unlock());
    QString copy;
    QVERIFY(fixture.vault.prepareFileForEditing(Bad, &copy));
    QString below = QStringLiteral("as before");
    QVERIFY(!fixture.vault.prepareFileForEditing(QStringLiteral("bad/below"), &below));
    QCOMPARE(below, QStringLiteral("as before"));
    QCOMPARE(readFile(copy), BadBytes);
    QVERIFY(fixture.vault.lockVault());
}

void TestHostileIndexes::blocksThatOverlapAreCopiedForEachFile() {
    CraftedContainer crafted = vaultWith();
    const CraftedBlock shared = crafted.blocks(1).first();
    for (const qsizetype block : {0, 1}) {
        crafted.setBlockMember(0, block, QStringLiteral("offset"), shared.offset);
        crafted.setBlockMember(0, block, QStringLiteral("nonce"),
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

void TestHostileIndexes::anIndexThatFillsTheHeaderIsUsable() {
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
    QVERIFY(!fixture.vault.deleteFile(QStringLiteral("7")));
    QVERIFY(!fixture.store(QStringLiteral("new"), "contents"));
    QVERIFY(!fixture.vault.compactVault({}, nullptr));
    COMPARE_UNCHANGED(picture);
    QVERIFY2(memory.growth() < 1024 * MebiByte, qPrintable(QString::number(memory.growth())));
}

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestHostileIndexes>);
#include "test_hostile_indexes.moc"
