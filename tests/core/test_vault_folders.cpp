// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverRun.h"
#include "VaultFixture.h"
#include "core/VaultPath.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QFileInfo>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// Folders "a", "a/sub" and "B"; files at the root and in each folder.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"a"_s)
        .addFolder(u"a/sub"_s)
        .addFolder(u"B"_s)
        .addFile(u"root.txt"_s, "at the root")
        .addFile(u"a/x.txt"_s, "x in a")
        .addFile(u"a/sub/deep.txt"_s, "deep in a/sub")
        .addFile(u"B/y.txt"_s, "y in B");
    return crafted;
}

const QStringList UsedFiles{u"root.txt"_s, u"a/x.txt"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s};
const QStringList UsedFolders{u"a"_s, u"a/sub"_s, u"B"_s};

SecureFileIndex indexWith(const QStringList& files, const QStringList& folders) {
    SecureFileIndex index;
    for (const QString& path : folders) {
        if (!index.addDirectory({path, {}, {}})) {
            qFatal("cannot add a folder");
        }
    }
    for (const QString& path : files) {
        VaultFileEntry entry;
        entry.vaultPath = path;
        if (!index.addOrReplace(entry)) {
            qFatal("cannot add a file");
        }
    }
    return index;
}

QStringList foldersOf(const SecureFileIndex& index) {
    QStringList paths;
    const QList<VaultDirectoryEntry> folders = index.directories();
    for (const VaultDirectoryEntry& folder : folders) {
        paths.append(folder.path);
    }
    return paths;
}

/// A change that must not happen, on a vault whose "a/x.txt" may be open.
using Attempt = bool (*)(VaultManager&);

void addRefusal(const char* name, Attempt attempt) {
    QTest::newRow(name) << QVariant::fromValue(attempt);
}

} // namespace

Q_DECLARE_METATYPE(Attempt)

class TestVaultFolders : public QObject {
    Q_OBJECT

private:
    /// The vault that others find in the container is the one in memory.
    static bool isSaved(const VaultFixture& fixture) {
        return indexAsOpenedAnew(fixture.container(), TestPassword) ==
               fixture.vault.fileIndex().toJson();
    }

private Q_SLOTS:
    // --- Paths -----------------------------------------------------------------------------

    void pathsHaveOneCanonicalForm_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("canonical");
        const auto row = [](const char* path, const char* canonical) {
            QTest::addRow("'%s'", path) << QString::fromUtf8(path) << QString::fromUtf8(canonical);
        };
        row("docs/report.txt", "docs/report.txt");
        row("docs\\report.txt", "docs/report.txt");
        row("  docs/report.txt\t", "docs/report.txt");
        row("/docs/report.txt", "docs/report.txt");
        row("///docs/report.txt", "docs/report.txt");
        row("docs//report.txt", "docs/report.txt");
        row("docs/\\//report.txt", "docs/report.txt");
        row("docs/report.txt/", "docs/report.txt");
        row("docs/report.txt\\\\", "docs/report.txt");
        row(" \\docs\\\\ report.txt /", "docs/report.txt");
        row(" docs / report.txt ", "docs/report.txt");
        row("a b/c  d", "a b/c  d");
        row("DOCS/Report.TXT", "DOCS/Report.TXT");
        row("a\u00e7\u00e3o/\u00e9", "a\u00e7\u00e3o/\u00e9");
        row(".hidden/..two/three..", ".hidden/..two/three..");
        row("...", "...");
        row("a", "a");
        row("", "");
        row("   ", "");
        row("/", "");
        row("\\/\\/", "");
        row(" / ", "");
        row(".", "");
        row("..", "");
        row("a/./b", "");
        row("a/../b", "");
        row("../a", "");
        row("a/..", "");
        row("./a", "");
        row("a/ . /b", "");
        row("a\\..\\b", "");
        row("a/ /b", "");
        row("a/\t/b", "");
    }
    void pathsHaveOneCanonicalForm() {
        QFETCH(const QString, path);
        QFETCH(const QString, canonical);
        QCOMPARE(normalizedVaultPath(path), canonical);
        QCOMPARE(normalizedVaultPath(canonical), canonical);
    }

    void pathsAreTakenApart() {
        QCOMPARE(parentVaultPath(u"a/b/c"_s), u"a/b"_s);
        QCOMPARE(parentVaultPath(u"a"_s), QString());
        QCOMPARE(vaultBaseName(u"a/b/c"_s), u"c"_s);
        QCOMPARE(vaultBaseName(u"a"_s), u"a"_s);
    }

    void membershipIgnoresLetterCase() {
        const SecureFileIndex index = indexWith({u"Docs/A.txt"_s}, {u"Docs"_s});
        QVERIFY(indexContainsFilePath(index, u"docs/a.TXT"_s));
        QVERIFY(!indexContainsFilePath(index, u"Docs"_s));
        QVERIFY(!indexContainsFilePath(index, u"Docs/A"_s));
        QVERIFY(indexContainsDirectoryPath(index, u"DOCS"_s));
        QVERIFY(!indexContainsDirectoryPath(index, u"Docs/A.txt"_s));
        QVERIFY(!indexContainsDirectoryPath(index, QString()));
    }

    void insideMeansBeneathInAnyLetterCase_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("inside");
        QTest::newRow("child") << u"a/b"_s << true;
        QTest::newRow("other letter case") << u"A/b"_s << true;
        QTest::newRow("grandchild") << u"a/b/c"_s << true;
        QTest::newRow("itself") << u"a"_s << false;
        QTest::newRow("longer name") << u"ab/c"_s << false;
        QTest::newRow("elsewhere") << u"b/a/c"_s << false;
        QTest::newRow("parent") << QString() << false;
    }
    void insideMeansBeneathInAnyLetterCase() {
        QFETCH(const QString, path);
        QFETCH(const bool, inside);
        QCOMPARE(pathIsInsideDirectory(path, u"a"_s), inside);
    }

    void missingAncestorsAreAddedWithOneTime() {
        SecureFileIndex index = indexWith({}, {u"A"_s});
        const QDateTime before = QDateTime::currentDateTimeUtc();
        ensureParentDirectories(&index, u"a/b/c/file"_s);
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(foldersOf(index), QStringList({u"A"_s, u"a/b"_s, u"a/b/c"_s}));
        const QList<VaultDirectoryEntry> folders = index.directories();
        QVERIFY(folders.at(1).createdUtc >= before && folders.at(1).createdUtc <= after);
        QCOMPARE(folders.at(1).createdUtc.timeSpec(), Qt::UTC);
        QCOMPARE(folders.at(1).modifiedUtc, folders.at(1).createdUtc);
        QCOMPARE(folders.at(2).createdUtc, folders.at(1).createdUtc);
        QCOMPARE(folders.at(2).modifiedUtc, folders.at(1).createdUtc);

        ensureParentDirectories(&index, u"file"_s);
        QCOMPARE(index.directories().size(), 3);
    }

    // --- Moving files ----------------------------------------------------------------------

    void aFileIsMovedAndKeepsAllElse() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultFileEntry before = fixture.entry(u"a/x.txt"_s);
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        QVERIFY(fixture.vault.moveFile(u"a/x.txt"_s, u"B"_s));
        // It stays where it was in the list.
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"B/x.txt"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        const VaultFileEntry after = fixture.entry(u"B/x.txt"_s);
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.sizeBytes, before.sizeBytes);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(after.sha256, before.sha256);
        QCOMPARE(after.blocks.size(), 1);
        QCOMPARE(after.blocks.constFirst().nonce, before.blocks.constFirst().nonce);
        QCOMPARE(fixture.stored(u"B/x.txt"_s), QByteArray("x in a"));
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
    }

    void aFileIsMovedToTheRootAndBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(u"a/sub/deep.txt"_s, QString()));
        QVERIFY(fixture.filePaths().contains(u"deep.txt"_s));
        QVERIFY(fixture.vault.moveFile(u"\\deep.txt "_s, u"/a\\sub/"_s));
        QVERIFY(fixture.filePaths().contains(u"a/sub/deep.txt"_s));
        QVERIFY(isSaved(fixture));
    }

    void anUnusableTargetIsTheRoot_data() {
        QTest::addColumn<QString>("target");
        QTest::newRow("a slash") << u"/"_s;
        QTest::newRow("blanks") << u"  "_s;
        QTest::newRow("the folder above") << u"a/.."_s;
        QTest::newRow("the folder itself") << u"./a"_s;
        QTest::newRow("a blank name") << u"a/ /sub"_s;
    }
    void anUnusableTargetIsTheRoot() {
        QFETCH(const QString, target);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(u"a/x.txt"_s, target));
        QCOMPARE(fixture.filePaths().at(1), u"x.txt"_s);
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(u"x.txt"_s), QByteArray("x in a"));
        QVERIFY(isSaved(fixture));
    }

    void aMovedFileTakesTheSpellingOfTheCall() {
        // Letter case does not matter for finding the file and its folder; the new path is spelled
        // as the call spells it, and what did not move keeps its spelling.
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(u"A/X.TXT"_s, u"b"_s));
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"b/X.TXT"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(u"B/x.txt"_s), QByteArray("x in a"));
        QVERIFY(fixture.vault.moveFile(u"A/SUB/Deep.txt"_s, QString()));
        QCOMPARE(fixture.filePaths().at(2), u"Deep.txt"_s);
        QVERIFY(isSaved(fixture));
    }

    void onlyTheFirstOfTwoSpellingsIsMoved() {
        CraftedContainer crafted;
        crafted.addFolder(u"B"_s).addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(u"A"_s, u"B"_s));
        QCOMPARE(fixture.filePaths(), QStringList({u"B/A"_s, u"A"_s}));
        QCOMPARE(fixture.stored(u"B/A"_s), QByteArray("first"));
        QCOMPARE(fixture.stored(u"A"_s), QByteArray("second"));
    }

    void movesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file",
                   [](VaultManager& vault) { return vault.moveFile(u"missing"_s, u"a"_s); });
        addRefusal("a folder",
                   [](VaultManager& vault) { return vault.moveFile(u"a/sub"_s, QString()); });
        addRefusal("no path",
                   [](VaultManager& vault) { return vault.moveFile(QString(), QString()); });
        addRefusal("an unusable path",
                   [](VaultManager& vault) { return vault.moveFile(u"a/../root.txt"_s, u"a"_s); });
        addRefusal("no such target",
                   [](VaultManager& vault) { return vault.moveFile(u"root.txt"_s, u"c"_s); });
        addRefusal("a file as target",
                   [](VaultManager& vault) { return vault.moveFile(u"root.txt"_s, u"a/x.txt"_s); });
        addRefusal("its own folder",
                   [](VaultManager& vault) { return vault.moveFile(u"a/x.txt"_s, u"a"_s); });
        addRefusal("its own folder in other letters",
                   [](VaultManager& vault) { return vault.moveFile(u"a/x.txt"_s, u"A"_s); });
        addRefusal("the root, from the root",
                   [](VaultManager& vault) { return vault.moveFile(u"root.txt"_s, QString()); });
    }
    void movesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    void aMoveOntoAnotherItemIsRefused() {
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"B/X.TXT"_s, "other").addFile(u"sub"_s, "file");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.moveFile(u"a/x.txt"_s, u"B"_s));
        // A folder of that name is in the way as well.
        QVERIFY(!fixture.vault.moveFile(u"sub"_s, u"a"_s));
        COMPARE_UNCHANGED(before);
    }

    // --- Renaming files --------------------------------------------------------------------

    void aFileGetsANewWholePath() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultFileEntry before = fixture.entry(u"root.txt"_s);
        QVERIFY(fixture.vault.renameFile(u"ROOT.txt"_s, u"/new//b.txt"_s));
        // No folder is made for it.
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.filePaths().constFirst(), u"new/b.txt"_s);
        const VaultFileEntry after = fixture.entry(u"new/b.txt"_s);
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(fixture.stored(u"new/b.txt"_s), QByteArray("at the root"));
        QVERIFY(isSaved(fixture));
    }

    void thePathOfARenamedItemMayHaveAnyForm() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameFile(u"\\a//x.txt "_s, u"a/z.txt"_s));
        QCOMPARE(fixture.filePaths().at(1), u"a/z.txt"_s);
        QVERIFY(fixture.vault.renameDirectory(u"/a/"_s, u"c"_s));
        QCOMPARE(fixture.folderPaths(), QStringList({u"c"_s, u"c/sub"_s, u"B"_s}));
        QVERIFY(fixture.vault.renameDirectory(u" c\\\\sub "_s, u"d"_s));
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"c/z.txt"_s, u"d/deep.txt"_s, u"B/y.txt"_s}));
        QVERIFY(isSaved(fixture));
    }

    void aRenamedFileTakesTheSpellingOfTheCall() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameFile(u"A/X.TXT"_s, u"A/Sub/New.TXT"_s));
        QCOMPARE(fixture.filePaths(), QStringList({u"root.txt"_s, u"A/Sub/New.TXT"_s,
                                                   u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(u"a/sub/new.txt"_s), QByteArray("x in a"));
        QVERIFY(isSaved(fixture));
    }

    void onlyTheFirstOfTwoSpellingsIsRenamed() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameFile(u"A"_s, u"b"_s));
        QCOMPARE(fixture.filePaths(), QStringList({u"b"_s, u"A"_s}));
        QCOMPARE(fixture.stored(u"b"_s), QByteArray("first"));
    }

    void fileRenamesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file",
                   [](VaultManager& vault) { return vault.renameFile(u"missing"_s, u"new"_s); });
        addRefusal("a folder",
                   [](VaultManager& vault) { return vault.renameFile(u"a"_s, u"new"_s); });
        addRefusal("no path",
                   [](VaultManager& vault) { return vault.renameFile(QString(), u"new"_s); });
        addRefusal("no new path",
                   [](VaultManager& vault) { return vault.renameFile(u"root.txt"_s, QString()); });
        addRefusal("an unusable new path", [](VaultManager& vault) {
            return vault.renameFile(u"root.txt"_s, u"../new"_s);
        });
        addRefusal("the same path", [](VaultManager& vault) {
            return vault.renameFile(u"root.txt"_s, u"root.txt"_s);
        });
        addRefusal("the same path in other letters", [](VaultManager& vault) {
            return vault.renameFile(u"root.txt"_s, u"ROOT.TXT"_s);
        });
        addRefusal("another file", [](VaultManager& vault) {
            return vault.renameFile(u"root.txt"_s, u"A/X.txt"_s);
        });
        addRefusal("a folder's path",
                   [](VaultManager& vault) { return vault.renameFile(u"root.txt"_s, u"A/Sub"_s); });
    }
    void fileRenamesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Deleting files --------------------------------------------------------------------

    void aDeletedFileLeavesItsBlocks() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        QVERIFY(fixture.vault.deleteFile(u"/A/X.TXT"_s));
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
        QVERIFY(!fixture.vault.deleteFile(u"a/x.txt"_s));
    }

    void onlyTheFirstOfTwoSpellingsIsDeleted() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.deleteFile(u"A"_s));
        QCOMPARE(fixture.filePaths(), QStringList(u"A"_s));
        QCOMPARE(fixture.stored(u"A"_s), QByteArray("second"));
    }

    void deletionsThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file", [](VaultManager& vault) { return vault.deleteFile(u"missing"_s); });
        addRefusal("a folder", [](VaultManager& vault) { return vault.deleteFile(u"B"_s); });
        addRefusal("no path", [](VaultManager& vault) { return vault.deleteFile(QString()); });
        addRefusal("an unusable path",
                   [](VaultManager& vault) { return vault.deleteFile(u"./root.txt"_s); });
    }
    void deletionsThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Creating folders ------------------------------------------------------------------

    void aFolderIsCreatedWithItsAncestors() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.createDirectory(u" b\\x//y/ "_s));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(fixture.folderPaths(), UsedFolders + QStringList({u"b/x"_s, u"b/x/y"_s}));
        for (const QString& path : {u"b/x"_s, u"b/x/y"_s}) {
            const VaultDirectoryEntry folder = fixture.folder(path);
            QVERIFY(folder.createdUtc >= before && folder.createdUtc <= after);
            QCOMPARE(folder.modifiedUtc, folder.createdUtc);
        }
        QVERIFY(isSaved(fixture));
    }

    void foldersThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no path", [](VaultManager& vault) { return vault.createDirectory(QString()); });
        addRefusal("the root", [](VaultManager& vault) { return vault.createDirectory(u"/"_s); });
        addRefusal("an unusable path",
                   [](VaultManager& vault) { return vault.createDirectory(u"a/../c"_s); });
        addRefusal("a folder that is there",
                   [](VaultManager& vault) { return vault.createDirectory(u"a"_s); });
        addRefusal("a folder that is there in other letters",
                   [](VaultManager& vault) { return vault.createDirectory(u"A/SUB"_s); });
        addRefusal("a file's path",
                   [](VaultManager& vault) { return vault.createDirectory(u"Root.txt"_s); });
    }
    void foldersThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Renaming and moving folders -------------------------------------------------------

    void aFolderIsMovedWithAllThatIsInIt() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry oldFolder = fixture.folder(u"a"_s);
        const VaultFileEntry oldFile = fixture.entry(u"a/x.txt"_s);
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.renameDirectory(u"A"_s, u"/x/y/"_s));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(fixture.folderPaths(), QStringList({u"x"_s, u"x/y"_s, u"x/y/sub"_s, u"B"_s}));
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"x/y/x.txt"_s, u"x/y/sub/deep.txt"_s, u"B/y.txt"_s}));
        // What moved was changed now and created when it was.
        for (const QString& path : {u"x/y"_s, u"x/y/sub"_s}) {
            const VaultDirectoryEntry folder = fixture.folder(path);
            QCOMPARE(folder.createdUtc, oldFolder.createdUtc);
            QVERIFY(folder.modifiedUtc >= before && folder.modifiedUtc <= after);
        }
        QVERIFY(fixture.folder(u"x"_s).createdUtc >= before);
        QCOMPARE(fixture.folder(u"B"_s).modifiedUtc, oldFolder.modifiedUtc);
        const VaultFileEntry file = fixture.entry(u"x/y/x.txt"_s);
        QCOMPARE(file.lastModifiedUtc, oldFile.lastModifiedUtc);
        QCOMPARE(file.id, oldFile.id);
        QCOMPARE(fixture.stored(u"x/y/sub/deep.txt"_s), QByteArray("deep in a/sub"));
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
    }

    void aFolderMovedIntoAnotherKeepsThatOnesTimes() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry target = fixture.folder(u"B"_s);
        QVERIFY(fixture.vault.renameDirectory(u"a/sub"_s, u"B/sub"_s));
        QCOMPARE(fixture.folderPaths(), QStringList({u"B"_s, u"a"_s, u"B/sub"_s}));
        QCOMPARE(fixture.folder(u"B"_s).createdUtc, target.createdUtc);
        QCOMPARE(fixture.folder(u"B"_s).modifiedUtc, target.modifiedUtc);
        QCOMPARE(fixture.stored(u"B/sub/deep.txt"_s), QByteArray("deep in a/sub"));
        QVERIFY(isSaved(fixture));
    }

    void aFolderMovedIntoAnotherInOtherLettersFindsItThere() {
        // The index compares character for character: the folder above gets an entry as the call
        // spells it, before the one that was there, and both are the same folder for everybody who
        // asks the vault.
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry target = fixture.folder(u"B"_s);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.renameDirectory(u"A/SUB"_s, u"b/Sub"_s));
        QCOMPARE(fixture.folderPaths(), QStringList({u"b"_s, u"a"_s, u"b/Sub"_s, u"B"_s}));
        QVERIFY(fixture.folder(u"b"_s).createdUtc >= before);
        QCOMPARE(fixture.folder(u"B"_s).createdUtc, target.createdUtc);
        QCOMPARE(fixture.folder(u"B"_s).modifiedUtc, target.modifiedUtc);
        QCOMPARE(fixture.filePaths(),
                 QStringList({u"root.txt"_s, u"a/x.txt"_s, u"b/Sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(fixture.stored(u"B/sub/DEEP.txt"_s), QByteArray("deep in a/sub"));
        QVERIFY(isSaved(fixture));
        // Neither is empty, whichever spelling is asked for.
        QVERIFY(!fixture.vault.deleteDirectory(u"b"_s));
        QVERIFY(!fixture.vault.deleteDirectory(u"B"_s));
    }

    void aFolderWhoseNameBeginsAlikeStays() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(u"ab"_s).addFile(u"ab/z.txt"_s, "z");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(u"a"_s, u"c"_s));
        QVERIFY(fixture.filePaths().contains(u"ab/z.txt"_s));
        QVERIFY(fixture.folderPaths().contains(u"ab"_s));
        // And the new name may begin like the old one without lying in it.
        QVERIFY(fixture.vault.renameDirectory(u"c"_s, u"cd"_s));
        QVERIFY(fixture.filePaths().contains(u"cd/sub/deep.txt"_s));
    }

    void spellingsBelowAMovedFolderAreKept() {
        CraftedContainer crafted;
        crafted.addFolder(u"Docs"_s).addFolder(u"DOCS/Sub"_s).addFile(u"docs/SUB/File.txt"_s, "f");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(u"dOCS"_s, u"new"_s));
        QCOMPARE(fixture.folderPaths(), QStringList({u"new"_s, u"new/Sub"_s}));
        QCOMPARE(fixture.filePaths(), QStringList(u"new/SUB/File.txt"_s));
    }

    void ofTwoFilesThatGetOnePathTheLaterStays_data() {
        QTest::addColumn<QStringList>("files");
        QTest::newRow("the moved one") << QStringList{u"new/b.txt"_s, u"a/b.txt"_s};
        QTest::newRow("the other one") << QStringList{u"a/b.txt"_s, u"new/b.txt"_s};
    }
    void ofTwoFilesThatGetOnePathTheLaterStays() {
        // A file may lie where no folder has an entry; a folder may then be given that path, and
        // the index keeps one file for each path.
        QFETCH(const QStringList, files);
        CraftedContainer crafted;
        crafted.addFolder(u"a"_s);
        for (const QString& path : files) {
            crafted.addFile(path, "was " + path.toUtf8());
        }
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(u"a"_s, u"new"_s));
        QCOMPARE(fixture.filePaths(), QStringList(u"new/b.txt"_s));
        QCOMPARE(fixture.folderPaths(), QStringList(u"new"_s));
        QCOMPARE(fixture.stored(u"new/b.txt"_s), QByteArray("was " + files.last().toUtf8()));
        QVERIFY(isSaved(fixture));
    }

    void folderRenamesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no folder", [](VaultManager& vault) {
            return vault.renameDirectory(u"missing"_s, u"new"_s);
        });
        addRefusal("a file", [](VaultManager& vault) {
            return vault.renameDirectory(u"root.txt"_s, u"new"_s);
        });
        addRefusal("no path",
                   [](VaultManager& vault) { return vault.renameDirectory(QString(), u"new"_s); });
        addRefusal("no new path",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, QString()); });
        addRefusal("an unusable new path",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"b/.."_s); });
        addRefusal("the same path",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"a"_s); });
        addRefusal("the same path in other letters",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"A"_s); });
        addRefusal("into itself",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"a/b"_s); });
        addRefusal("into itself in other letters",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"A/sub/b"_s); });
        addRefusal("another folder",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"b"_s); });
        addRefusal("a file's path", [](VaultManager& vault) {
            return vault.renameDirectory(u"a"_s, u"ROOT.txt"_s);
        });
    }
    void folderRenamesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Deleting folders ------------------------------------------------------------------

    void anEmptyFolderIsDeletedInAnyLetterCase() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(u"Empty"_s);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.deleteDirectory(u"/EMPTY/"_s));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.filePaths(), UsedFiles);
        QVERIFY(isSaved(fixture));
    }

    void aFolderThatHoldsAnythingIsNotDeleted() {
        CraftedContainer crafted;
        crafted.addFolder(u"outer"_s)
            .addFolder(u"OUTER/inner"_s)
            .addFolder(u"full"_s)
            .addFile(u"Full/f"_s, "f");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.deleteDirectory(u"outer"_s));
        QVERIFY(!fixture.vault.deleteDirectory(u"full"_s));
        COMPARE_UNCHANGED(before);
        // From the inside out it goes.
        QVERIFY(fixture.vault.deleteDirectory(u"outer/inner"_s));
        QVERIFY(fixture.vault.deleteDirectory(u"outer"_s));
        QVERIFY(fixture.vault.deleteFile(u"full/f"_s));
        QVERIFY(fixture.vault.deleteDirectory(u"full"_s));
        QVERIFY(fixture.folderPaths().isEmpty());
        QVERIFY(isSaved(fixture));
    }

    void folderDeletionsThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no folder",
                   [](VaultManager& vault) { return vault.deleteDirectory(u"missing"_s); });
        addRefusal("a file",
                   [](VaultManager& vault) { return vault.deleteDirectory(u"root.txt"_s); });
        addRefusal("the root",
                   [](VaultManager& vault) { return vault.deleteDirectory(QString()); });
        addRefusal("an unusable path",
                   [](VaultManager& vault) { return vault.deleteDirectory(u"a/./sub"_s); });
    }
    void folderDeletionsThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Files that are open ---------------------------------------------------------------

    void anOpenFileIsNeitherMovedNorRenamed_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("moved",
                   [](VaultManager& vault) { return vault.moveFile(u"a/x.txt"_s, u"B"_s); });
        addRefusal("moved, in other letters",
                   [](VaultManager& vault) { return vault.moveFile(u"A/X.txt"_s, QString()); });
        addRefusal("renamed", [](VaultManager& vault) {
            return vault.renameFile(u"a/x.txt"_s, u"a/z.txt"_s);
        });
        addRefusal("renamed, in other letters", [](VaultManager& vault) {
            return vault.renameFile(u"A/X.TXT"_s, u"a/z.txt"_s);
        });
        addRefusal("its folder renamed",
                   [](VaultManager& vault) { return vault.renameDirectory(u"a"_s, u"c"_s); });
        addRefusal("its folder renamed, in other letters",
                   [](VaultManager& vault) { return vault.renameDirectory(u"A"_s, u"c"_s); });
    }
    void anOpenFileIsNeitherMovedNorRenamed() {
        QFETCH(const QVariant, attempt);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(u"a/X.txt"_s, &copy));
        const VaultPicture before(fixture);
        QVERIFY(!attempt.value<Attempt>()(fixture.vault));
        COMPARE_UNCHANGED(before);
        // Once the vault was locked, nothing is open any more.
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QVERIFY(attempt.value<Attempt>()(fixture.vault));
    }

    void aFolderIsNotRenamedWhileAFileOfItsPathIsOpen() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"Docs"_s, "a file");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(u"Docs"_s, &copy));
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.renameDirectory(u"docs"_s, u"x"_s));
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(u"docs"_s, u"x"_s));
        QCOMPARE(fixture.folderPaths(), QStringList(u"x"_s));
        QCOMPARE(fixture.filePaths(), QStringList(u"Docs"_s));
    }

    void otherFilesAreMovedWhileOneIsOpen() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(u"a/x.txt"_s, &copy));
        QVERIFY(fixture.vault.moveFile(u"a/sub/deep.txt"_s, QString()));
        QVERIFY(fixture.vault.renameFile(u"root.txt"_s, u"a/r.txt"_s));
        QVERIFY(fixture.vault.renameDirectory(u"a/sub"_s, u"a/new"_s));
        QVERIFY(fixture.vault.renameDirectory(u"B"_s, u"C"_s));
    }

    void anOpenFileMayBeDeleted() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(u"a/x.txt"_s, &copy));
        QVERIFY(fixture.vault.deleteFile(u"a/x.txt"_s));
        QVERIFY(!fixture.filePaths().contains(u"a/x.txt"_s));
        QVERIFY(QFileInfo::exists(copy));
    }

    // --- Drives that fail ------------------------------------------------------------------

    void nothingIsRearrangedOnAReadOnlyDrive() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createDirectory(u"empty"_s));
        const VaultPicture before(fixture);
        const ReadOnlyMount drive(fixture.driveFolder());
        QVERIFY(drive.isMounted());
        everyChangeIsRefused(fixture.vault);
        COMPARE_UNCHANGED(before);
    }

    void nothingIsRearrangedWithoutTheContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createDirectory(u"empty"_s));
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QVERIFY(QFile::remove(fixture.container()));
        everyChangeIsRefused(fixture.vault);
        QCOMPARE(fixture.vault.fileIndex().toJson(), index);
        QVERIFY(!QFileInfo::exists(fixture.container()));
    }

    void aDriveThatFailsDuringAChangeKeepsTheVault_data() {
        QTest::addColumn<QStringList>("operation");
        QTest::newRow("mkdir") << QStringList{u"mkdir"_s, u"new"_s};
        QTest::newRow("delete") << QStringList{u"delete"_s, u"root.txt"_s};
        QTest::newRow("rename") << QStringList{u"rename"_s, u"root.txt"_s, u"new.txt"_s};
        QTest::newRow("move") << QStringList{u"move"_s, u"root.txt"_s, u"a"_s};
        QTest::newRow("rename-folder") << QStringList{u"rename-folder"_s, u"a"_s, u"c"_s};
        QTest::newRow("delete-folder") << QStringList{u"delete-folder"_s, u"empty"_s};
    }
    void aDriveThatFailsDuringAChangeKeepsTheVault() {
        QFETCH(const QStringList, operation);
        NEEDS_TRACING();
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(u"empty"_s);
        VaultFixture fixture(crafted);
        const QStringList arguments =
            QStringList{fixture.container(), QString::fromUtf8(TestPassword)} + operation;
        const VaultPicture before(fixture);
        QVERIFY(runDriver(arguments, fixture.container(), {u"write:error=EIO:when=1"_s}).refused());
        COMPARE_UNCHANGED(before);
        QVERIFY(
            runDriver(arguments, fixture.container(), {u"fdatasync:error=EIO:when=2"_s}).refused());
        COMPARE_UNCHANGED(before);
        QVERIFY(runDriver(arguments, fixture.container(), {}).succeeded());
    }

private:
    static void attemptIsRefused() {
        QFETCH(const QVariant, attempt);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!attempt.value<Attempt>()(fixture.vault));
        COMPARE_UNCHANGED(before);
    }

    /// Each of these would succeed on a healthy drive.
    static void everyChangeIsRefused(VaultManager& vault) {
        QVERIFY(!vault.moveFile(u"root.txt"_s, u"a"_s));
        QVERIFY(!vault.renameFile(u"root.txt"_s, u"new.txt"_s));
        QVERIFY(!vault.deleteFile(u"root.txt"_s));
        QVERIFY(!vault.createDirectory(u"new"_s));
        QVERIFY(!vault.renameDirectory(u"a"_s, u"c"_s));
        QVERIFY(!vault.deleteDirectory(u"empty"_s));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultFolders>);
#include "test_vault_folders.moc"
