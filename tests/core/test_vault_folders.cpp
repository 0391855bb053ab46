// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/VaultPath.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QFileInfo>
#include <QTest>

#include <functional>

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

/// A change of a vault that may be refused.
using Attempt = std::function<bool(VaultManager&)>;

constexpr auto Move = &VaultManager::moveFile;
constexpr auto Rename = &VaultManager::renameFile;
constexpr auto Delete = &VaultManager::deleteFile;
constexpr auto Create = &VaultManager::createDirectory;
constexpr auto RenameFolder = &VaultManager::renameDirectory;
constexpr auto DeleteFolder = &VaultManager::deleteDirectory;

/// Adds a row: a change with these paths.
template <typename Change, typename... Path>
void refused(const char* name, Change change, Path... path) {
    QTest::newRow(name) << Attempt(
        [=](VaultManager& vault) { return (vault.*change)(QString::fromLatin1(path)...); });
}

} // namespace

Q_DECLARE_METATYPE(Attempt)

class TestVaultFolders : public QObject {
    Q_OBJECT

private:
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
        OpenVault vault(usedContainer());
        const VaultFileEntry before = vault.entry(u"a/x.txt"_s);
        const QByteArray payload = vault.payload();
        QVERIFY(vault->moveFile(u"a/x.txt"_s, u"B"_s));
        // It stays where it was in the list.
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"B/x.txt"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(vault.folderPaths(), UsedFolders);
        const VaultFileEntry after = vault.entry(u"B/x.txt"_s);
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.sizeBytes, before.sizeBytes);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(after.sha256, before.sha256);
        QCOMPARE(after.blocks.size(), 1);
        QCOMPARE(after.blocks.constFirst().nonce, before.blocks.constFirst().nonce);
        QCOMPARE(vault.stored(u"B/x.txt"_s), "x in a"_ba);
        QVERIFY(vault.payload() == payload);
        QVERIFY(vault.isSaved());
    }

    void aFileIsMovedToTheRootAndBack() {
        OpenVault vault(usedContainer());
        QVERIFY(vault->moveFile(u"a/sub/deep.txt"_s, QString()));
        QVERIFY(vault.filePaths().contains(u"deep.txt"_s));
        QVERIFY(vault->moveFile(u"\\deep.txt "_s, u"/a\\sub/"_s));
        QVERIFY(vault.filePaths().contains(u"a/sub/deep.txt"_s));
        QVERIFY(vault.isSaved());
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
        OpenVault vault(usedContainer());
        QVERIFY(vault->moveFile(u"a/x.txt"_s, target));
        QCOMPARE(vault.filePaths().at(1), u"x.txt"_s);
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QCOMPARE(vault.stored(u"x.txt"_s), "x in a"_ba);
        QVERIFY(vault.isSaved());
    }

    void aMovedFileTakesTheSpellingOfTheCall() {
        // Letter case does not matter for finding the file and its folder; the new path is spelled
        // as the call spells it, and what did not move keeps its spelling.
        OpenVault vault(usedContainer());
        QVERIFY(vault->moveFile(u"A/X.TXT"_s, u"b"_s));
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"b/X.TXT"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QCOMPARE(vault.stored(u"B/x.txt"_s), "x in a"_ba);
        QVERIFY(vault->moveFile(u"A/SUB/Deep.txt"_s, QString()));
        QCOMPARE(vault.filePaths().at(2), u"Deep.txt"_s);
        QVERIFY(vault.isSaved());
    }

    void onlyTheFirstOfTwoSpellingsIsMoved() {
        CraftedContainer crafted;
        crafted.addFolder(u"B"_s).addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        OpenVault vault(crafted);
        QVERIFY(vault->moveFile(u"A"_s, u"B"_s));
        QCOMPARE(vault.filePaths(), QStringList({u"B/A"_s, u"A"_s}));
        QCOMPARE(vault.stored(u"B/A"_s), "first"_ba);
        QCOMPARE(vault.stored(u"A"_s), "second"_ba);
    }

    void aMoveOntoAnotherItemIsRefused() {
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"B/X.TXT"_s, "other").addFile(u"sub"_s, "file");
        OpenVault vault(crafted);
        const VaultPicture before(vault);
        QVERIFY(!vault->moveFile(u"a/x.txt"_s, u"B"_s));
        // A folder of that name is in the way as well.
        QVERIFY(!vault->moveFile(u"sub"_s, u"a"_s));
        COMPARE_UNCHANGED(before);
    }

    // --- Renaming files --------------------------------------------------------------------

    void aFileGetsANewWholePath() {
        OpenVault vault(usedContainer());
        const VaultFileEntry before = vault.entry(u"root.txt"_s);
        QVERIFY(vault->renameFile(u"ROOT.txt"_s, u"/new//b.txt"_s));
        // No folder is made for it.
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QCOMPARE(vault.filePaths().constFirst(), u"new/b.txt"_s);
        const VaultFileEntry after = vault.entry(u"new/b.txt"_s);
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(vault.stored(u"new/b.txt"_s), "at the root"_ba);
        QVERIFY(vault.isSaved());
    }

    void thePathOfARenamedItemMayHaveAnyForm() {
        OpenVault vault(usedContainer());
        QVERIFY(vault->renameFile(u"\\a//x.txt "_s, u"a/z.txt"_s));
        QCOMPARE(vault.filePaths().at(1), u"a/z.txt"_s);
        QVERIFY(vault->renameDirectory(u"/a/"_s, u"c"_s));
        QCOMPARE(vault.folderPaths(), QStringList({u"c"_s, u"c/sub"_s, u"B"_s}));
        QVERIFY(vault->renameDirectory(u" c\\\\sub "_s, u"d"_s));
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"c/z.txt"_s, u"d/deep.txt"_s, u"B/y.txt"_s}));
        QVERIFY(vault.isSaved());
    }

    void aRenamedFileTakesTheSpellingOfTheCall() {
        OpenVault vault(usedContainer());
        QVERIFY(vault->renameFile(u"A/X.TXT"_s, u"A/Sub/New.TXT"_s));
        QCOMPARE(vault.filePaths(), QStringList({u"root.txt"_s, u"A/Sub/New.TXT"_s,
                                                 u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QCOMPARE(vault.stored(u"a/sub/new.txt"_s), "x in a"_ba);
        QVERIFY(vault.isSaved());
    }

    void onlyTheFirstOfTwoSpellingsIsRenamed() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        OpenVault vault(crafted);
        QVERIFY(vault->renameFile(u"A"_s, u"b"_s));
        QCOMPARE(vault.filePaths(), QStringList({u"b"_s, u"A"_s}));
        QCOMPARE(vault.stored(u"b"_s), "first"_ba);
    }

    // --- Deleting files --------------------------------------------------------------------

    void aDeletedFileLeavesItsBlocks() {
        OpenVault vault(usedContainer());
        const QByteArray payload = vault.payload();
        QVERIFY(vault->deleteFile(u"/A/X.TXT"_s));
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"a/sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QVERIFY(vault.payload() == payload);
        QVERIFY(vault.isSaved());
        QVERIFY(!vault->deleteFile(u"a/x.txt"_s));
    }

    void onlyTheFirstOfTwoSpellingsIsDeleted() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        OpenVault vault(crafted);
        QVERIFY(vault->deleteFile(u"A"_s));
        QCOMPARE(vault.filePaths(), QStringList(u"A"_s));
        QCOMPARE(vault.stored(u"A"_s), "second"_ba);
    }

    // --- Creating folders ------------------------------------------------------------------

    void aFolderIsCreatedWithItsAncestors() {
        OpenVault vault(usedContainer());
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(vault->createDirectory(u" b\\x//y/ "_s));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(vault.folderPaths(), UsedFolders + QStringList({u"b/x"_s, u"b/x/y"_s}));
        for (const QString& path : {u"b/x"_s, u"b/x/y"_s}) {
            const VaultDirectoryEntry folder = vault.folder(path);
            QVERIFY(folder.createdUtc >= before && folder.createdUtc <= after);
            QCOMPARE(folder.modifiedUtc, folder.createdUtc);
        }
        QVERIFY(vault.isSaved());
    }

    // --- Renaming and moving folders -------------------------------------------------------

    void aFolderIsMovedWithAllThatIsInIt() {
        OpenVault vault(usedContainer());
        const VaultDirectoryEntry oldFolder = vault.folder(u"a"_s);
        const VaultFileEntry oldFile = vault.entry(u"a/x.txt"_s);
        const QByteArray payload = vault.payload();
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(vault->renameDirectory(u"A"_s, u"/x/y/"_s));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(vault.folderPaths(), QStringList({u"x"_s, u"x/y"_s, u"x/y/sub"_s, u"B"_s}));
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"x/y/x.txt"_s, u"x/y/sub/deep.txt"_s, u"B/y.txt"_s}));
        // What moved was changed now and created when it was.
        for (const QString& path : {u"x/y"_s, u"x/y/sub"_s}) {
            const VaultDirectoryEntry folder = vault.folder(path);
            QCOMPARE(folder.createdUtc, oldFolder.createdUtc);
            QVERIFY(folder.modifiedUtc >= before && folder.modifiedUtc <= after);
        }
        QVERIFY(vault.folder(u"x"_s).createdUtc >= before);
        QCOMPARE(vault.folder(u"B"_s).modifiedUtc, oldFolder.modifiedUtc);
        const VaultFileEntry file = vault.entry(u"x/y/x.txt"_s);
        QCOMPARE(file.lastModifiedUtc, oldFile.lastModifiedUtc);
        QCOMPARE(file.id, oldFile.id);
        QCOMPARE(vault.stored(u"x/y/sub/deep.txt"_s), "deep in a/sub"_ba);
        QVERIFY(vault.payload() == payload);
        QVERIFY(vault.isSaved());
    }

    void aFolderMovedIntoAnotherKeepsThatOnesTimes() {
        OpenVault vault(usedContainer());
        const VaultDirectoryEntry target = vault.folder(u"B"_s);
        QVERIFY(vault->renameDirectory(u"a/sub"_s, u"B/sub"_s));
        QCOMPARE(vault.folderPaths(), QStringList({u"B"_s, u"a"_s, u"B/sub"_s}));
        QCOMPARE(vault.folder(u"B"_s).createdUtc, target.createdUtc);
        QCOMPARE(vault.folder(u"B"_s).modifiedUtc, target.modifiedUtc);
        QCOMPARE(vault.stored(u"B/sub/deep.txt"_s), "deep in a/sub"_ba);
        QVERIFY(vault.isSaved());
    }

    void aFolderMovedIntoAnotherInOtherLettersFindsItThere() {
        // The index compares character for character: the folder above gets an entry as the call
        // spells it, before the one that was there, and both are the same folder for everybody who
        // asks the vault.
        OpenVault vault(usedContainer());
        const VaultDirectoryEntry target = vault.folder(u"B"_s);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(vault->renameDirectory(u"A/SUB"_s, u"b/Sub"_s));
        QCOMPARE(vault.folderPaths(), QStringList({u"b"_s, u"a"_s, u"b/Sub"_s, u"B"_s}));
        QVERIFY(vault.folder(u"b"_s).createdUtc >= before);
        QCOMPARE(vault.folder(u"B"_s).createdUtc, target.createdUtc);
        QCOMPARE(vault.folder(u"B"_s).modifiedUtc, target.modifiedUtc);
        QCOMPARE(vault.filePaths(),
                 QStringList({u"root.txt"_s, u"a/x.txt"_s, u"b/Sub/deep.txt"_s, u"B/y.txt"_s}));
        QCOMPARE(vault.stored(u"B/sub/DEEP.txt"_s), "deep in a/sub"_ba);
        QVERIFY(vault.isSaved());
        // Neither is empty, whichever spelling is asked for.
        QVERIFY(!vault->deleteDirectory(u"b"_s));
        QVERIFY(!vault->deleteDirectory(u"B"_s));
    }

    void aFolderWhoseNameBeginsAlikeStays() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(u"ab"_s).addFile(u"ab/z.txt"_s, "z");
        OpenVault vault(crafted);
        QVERIFY(vault->renameDirectory(u"a"_s, u"c"_s));
        QVERIFY(vault.filePaths().contains(u"ab/z.txt"_s));
        QVERIFY(vault.folderPaths().contains(u"ab"_s));
        // And the new name may begin like the old one without lying in it.
        QVERIFY(vault->renameDirectory(u"c"_s, u"cd"_s));
        QVERIFY(vault.filePaths().contains(u"cd/sub/deep.txt"_s));
    }

    void spellingsBelowAMovedFolderAreKept() {
        CraftedContainer crafted;
        crafted.addFolder(u"Docs"_s).addFolder(u"DOCS/Sub"_s).addFile(u"docs/SUB/File.txt"_s, "f");
        OpenVault vault(crafted);
        QVERIFY(vault->renameDirectory(u"dOCS"_s, u"new"_s));
        QCOMPARE(vault.folderPaths(), QStringList({u"new"_s, u"new/Sub"_s}));
        QCOMPARE(vault.filePaths(), QStringList(u"new/SUB/File.txt"_s));
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
        OpenVault vault(crafted);
        QVERIFY(vault->renameDirectory(u"a"_s, u"new"_s));
        QCOMPARE(vault.filePaths(), QStringList(u"new/b.txt"_s));
        QCOMPARE(vault.folderPaths(), QStringList(u"new"_s));
        QCOMPARE(vault.stored(u"new/b.txt"_s), QByteArray("was " + files.last().toUtf8()));
        QVERIFY(vault.isSaved());
    }

    // --- Deleting folders ------------------------------------------------------------------

    void anEmptyFolderIsDeletedInAnyLetterCase() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(u"Empty"_s);
        OpenVault vault(crafted);
        QVERIFY(vault->deleteDirectory(u"/EMPTY/"_s));
        QCOMPARE(vault.folderPaths(), UsedFolders);
        QCOMPARE(vault.filePaths(), UsedFiles);
        QVERIFY(vault.isSaved());
    }

    void aFolderThatHoldsAnythingIsNotDeleted() {
        CraftedContainer crafted;
        crafted.addFolder(u"outer"_s)
            .addFolder(u"OUTER/inner"_s)
            .addFolder(u"full"_s)
            .addFile(u"Full/f"_s, "f");
        OpenVault vault(crafted);
        const VaultPicture before(vault);
        QVERIFY(!vault->deleteDirectory(u"outer"_s));
        QVERIFY(!vault->deleteDirectory(u"full"_s));
        COMPARE_UNCHANGED(before);
        // From the inside out it goes.
        QVERIFY(vault->deleteDirectory(u"outer/inner"_s));
        QVERIFY(vault->deleteDirectory(u"outer"_s));
        QVERIFY(vault->deleteFile(u"full/f"_s));
        QVERIFY(vault->deleteDirectory(u"full"_s));
        QVERIFY(vault.folderPaths().isEmpty());
        QVERIFY(vault.isSaved());
    }

    // --- What is refused -------------------------------------------------------------------

    void whatIsRefusedChangesNothing_data() {
        QTest::addColumn<Attempt>("attempt");
        refused("move: no file", Move, "missing", "a");
        refused("move: a folder", Move, "a/sub", "");
        refused("move: no path", Move, "", "");
        refused("move: an unusable path", Move, "a/../root.txt", "a");
        refused("move: no such target", Move, "root.txt", "c");
        refused("move: a file as target", Move, "root.txt", "a/x.txt");
        refused("move: its own folder", Move, "a/x.txt", "a");
        refused("move: its own folder in other letters", Move, "a/x.txt", "A");
        refused("move: the root, from the root", Move, "root.txt", "");
        refused("rename: no file", Rename, "missing", "new");
        refused("rename: a folder", Rename, "a", "new");
        refused("rename: no path", Rename, "", "new");
        refused("rename: no new path", Rename, "root.txt", "");
        refused("rename: an unusable new path", Rename, "root.txt", "../new");
        refused("rename: the same path", Rename, "root.txt", "root.txt");
        refused("rename: the same path in other letters", Rename, "root.txt", "ROOT.TXT");
        refused("rename: another file", Rename, "root.txt", "A/X.txt");
        refused("rename: a folder's path", Rename, "root.txt", "A/Sub");
        refused("delete: no file", Delete, "missing");
        refused("delete: a folder", Delete, "B");
        refused("delete: no path", Delete, "");
        refused("delete: an unusable path", Delete, "./root.txt");
        refused("create: no path", Create, "");
        refused("create: the root", Create, "/");
        refused("create: an unusable path", Create, "a/../c");
        refused("create: a folder that is there", Create, "a");
        refused("create: a folder that is there in other letters", Create, "A/SUB");
        refused("create: a file's path", Create, "Root.txt");
        refused("rename a folder: no folder", RenameFolder, "missing", "new");
        refused("rename a folder: a file", RenameFolder, "root.txt", "new");
        refused("rename a folder: no path", RenameFolder, "", "new");
        refused("rename a folder: no new path", RenameFolder, "a", "");
        refused("rename a folder: an unusable new path", RenameFolder, "a", "b/..");
        refused("rename a folder: the same path", RenameFolder, "a", "a");
        refused("rename a folder: the same path in other letters", RenameFolder, "a", "A");
        refused("rename a folder: into itself", RenameFolder, "a", "a/b");
        refused("rename a folder: into itself in other letters", RenameFolder, "a", "A/sub/b");
        refused("rename a folder: another folder", RenameFolder, "a", "b");
        refused("rename a folder: a file's path", RenameFolder, "a", "ROOT.txt");
        refused("delete a folder: no folder", DeleteFolder, "missing");
        refused("delete a folder: a file", DeleteFolder, "root.txt");
        refused("delete a folder: the root", DeleteFolder, "");
        refused("delete a folder: an unusable path", DeleteFolder, "a/./sub");
    }
    void whatIsRefusedChangesNothing() {
        QFETCH(const Attempt, attempt);
        OpenVault vault(usedContainer());
        VERIFY_REFUSED(vault, attempt(vault.vault));
    }

    // --- Files that are open ---------------------------------------------------------------

    void anOpenFileIsNeitherMovedNorRenamed_data() {
        QTest::addColumn<Attempt>("attempt");
        refused("moved", Move, "a/x.txt", "B");
        refused("moved, in other letters", Move, "A/X.txt", "");
        refused("renamed", Rename, "a/x.txt", "a/z.txt");
        refused("renamed, in other letters", Rename, "A/X.TXT", "a/z.txt");
        refused("its folder renamed", RenameFolder, "a", "c");
        refused("its folder renamed, in other letters", RenameFolder, "A", "c");
    }
    void anOpenFileIsNeitherMovedNorRenamed() {
        QFETCH(const Attempt, attempt);
        OpenVault vault(usedContainer());
        QString copy;
        QVERIFY(vault->prepareFileForEditing(u"a/X.txt"_s, &copy));
        const VaultPicture before(vault);
        QVERIFY(!attempt(vault.vault));
        COMPARE_UNCHANGED(before);
        // Once the vault was locked, nothing is open any more.
        QVERIFY(vault.reopen());
        QVERIFY(attempt(vault.vault));
    }

    void aFolderIsNotRenamedWhileAFileOfItsPathIsOpen() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"Docs"_s, "a file");
        OpenVault vault(crafted);
        QString copy;
        QVERIFY(vault->prepareFileForEditing(u"Docs"_s, &copy));
        VERIFY_REFUSED(vault, vault->renameDirectory(u"docs"_s, u"x"_s));
        QVERIFY(vault.reopen());
        QVERIFY(vault->renameDirectory(u"docs"_s, u"x"_s));
        QCOMPARE(vault.folderPaths(), QStringList(u"x"_s));
        QCOMPARE(vault.filePaths(), QStringList(u"Docs"_s));
    }

    void otherFilesAreMovedWhileOneIsOpen() {
        OpenVault vault(usedContainer());
        QVERIFY(!vault.opened(u"a/x.txt"_s).isEmpty());
        QVERIFY(vault->moveFile(u"a/sub/deep.txt"_s, QString()));
        QVERIFY(vault->renameFile(u"root.txt"_s, u"a/r.txt"_s));
        QVERIFY(vault->renameDirectory(u"a/sub"_s, u"a/new"_s));
        QVERIFY(vault->renameDirectory(u"B"_s, u"C"_s));
    }

    void anOpenFileMayBeDeleted() {
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(u"a/x.txt"_s);
        QVERIFY(vault->deleteFile(u"a/x.txt"_s));
        QVERIFY(!vault.filePaths().contains(u"a/x.txt"_s));
        QVERIFY(QFileInfo::exists(copy));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultFolders>);
#include "test_vault_folders.moc"
