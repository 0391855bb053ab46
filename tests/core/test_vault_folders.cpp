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

namespace {

/// Folders "a", "a/sub" and "B"; files at the root and in each folder.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(QStringLiteral("a"))
        .addFolder(QStringLiteral("a/sub"))
        .addFolder(QStringLiteral("B"))
        .addFile(QStringLiteral("root.txt"), "at the root")
        .addFile(QStringLiteral("a/x.txt"), "x in a")
        .addFile(QStringLiteral("a/sub/deep.txt"), "deep in a/sub")
        .addFile(QStringLiteral("B/y.txt"), "y in B");
    return crafted;
}

const QStringList UsedFiles{QStringLiteral("root.txt"), QStringLiteral("a/x.txt"),
                            QStringLiteral("a/sub/deep.txt"), QStringLiteral("B/y.txt")};
const QStringList UsedFolders{QStringLiteral("a"), QStringLiteral("a/sub"), QStringLiteral("B")};

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
        QCOMPARE(parentVaultPath(QStringLiteral("a/b/c")), QStringLiteral("a/b"));
        QCOMPARE(parentVaultPath(QStringLiteral("a")), QString());
        QCOMPARE(vaultBaseName(QStringLiteral("a/b/c")), QStringLiteral("c"));
        QCOMPARE(vaultBaseName(QStringLiteral("a")), QStringLiteral("a"));
    }

    void membershipIgnoresLetterCase() {
        const SecureFileIndex index =
            indexWith({QStringLiteral("Docs/A.txt")}, {QStringLiteral("Docs")});
        QVERIFY(indexContainsFilePath(index, QStringLiteral("docs/a.TXT")));
        QVERIFY(!indexContainsFilePath(index, QStringLiteral("Docs")));
        QVERIFY(!indexContainsFilePath(index, QStringLiteral("Docs/A")));
        QVERIFY(indexContainsDirectoryPath(index, QStringLiteral("DOCS")));
        QVERIFY(!indexContainsDirectoryPath(index, QStringLiteral("Docs/A.txt")));
        QVERIFY(!indexContainsDirectoryPath(index, QString()));
    }

    void insideMeansBeneathInAnyLetterCase_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("inside");
        QTest::newRow("child") << QStringLiteral("a/b") << true;
        QTest::newRow("other letter case") << QStringLiteral("A/b") << true;
        QTest::newRow("grandchild") << QStringLiteral("a/b/c") << true;
        QTest::newRow("itself") << QStringLiteral("a") << false;
        QTest::newRow("longer name") << QStringLiteral("ab/c") << false;
        QTest::newRow("elsewhere") << QStringLiteral("b/a/c") << false;
        QTest::newRow("parent") << QString() << false;
    }
    void insideMeansBeneathInAnyLetterCase() {
        QFETCH(const QString, path);
        QFETCH(const bool, inside);
        QCOMPARE(pathIsInsideDirectory(path, QStringLiteral("a")), inside);
    }

    void missingAncestorsAreAddedWithOneTime() {
        SecureFileIndex index = indexWith({}, {QStringLiteral("A")});
        const QDateTime before = QDateTime::currentDateTimeUtc();
        ensureParentDirectories(&index, QStringLiteral("a/b/c/file"));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(foldersOf(index), QStringList({QStringLiteral("A"), QStringLiteral("a/b"),
                                                QStringLiteral("a/b/c")}));
        const QList<VaultDirectoryEntry> folders = index.directories();
        QVERIFY(folders.at(1).createdUtc >= before && folders.at(1).createdUtc <= after);
        QCOMPARE(folders.at(1).createdUtc.timeSpec(), Qt::UTC);
        QCOMPARE(folders.at(1).modifiedUtc, folders.at(1).createdUtc);
        QCOMPARE(folders.at(2).createdUtc, folders.at(1).createdUtc);
        QCOMPARE(folders.at(2).modifiedUtc, folders.at(1).createdUtc);

        ensureParentDirectories(&index, QStringLiteral("file"));
        QCOMPARE(index.directories().size(), 3);
    }

    // --- Moving files ----------------------------------------------------------------------

    void aFileIsMovedAndKeepsAllElse() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultFileEntry before = fixture.entry(QStringLiteral("a/x.txt"));
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        QVERIFY(fixture.vault.moveFile(QStringLiteral("a/x.txt"), QStringLiteral("B")));
        // It stays where it was in the list.
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("B/x.txt"),
                              QStringLiteral("a/sub/deep.txt"), QStringLiteral("B/y.txt")}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        const VaultFileEntry after = fixture.entry(QStringLiteral("B/x.txt"));
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.sizeBytes, before.sizeBytes);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(after.sha256, before.sha256);
        QCOMPARE(after.blocks.size(), 1);
        QCOMPARE(after.blocks.constFirst().nonce, before.blocks.constFirst().nonce);
        QCOMPARE(fixture.stored(QStringLiteral("B/x.txt")), QByteArray("x in a"));
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
    }

    void aFileIsMovedToTheRootAndBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(QStringLiteral("a/sub/deep.txt"), QString()));
        QVERIFY(fixture.filePaths().contains(QStringLiteral("deep.txt")));
        QVERIFY(fixture.vault.moveFile(QStringLiteral("\\deep.txt "), QStringLiteral("/a\\sub/")));
        QVERIFY(fixture.filePaths().contains(QStringLiteral("a/sub/deep.txt")));
        QVERIFY(isSaved(fixture));
    }

    void anUnusableTargetIsTheRoot_data() {
        QTest::addColumn<QString>("target");
        QTest::newRow("a slash") << QStringLiteral("/");
        QTest::newRow("blanks") << QStringLiteral("  ");
        QTest::newRow("the folder above") << QStringLiteral("a/..");
        QTest::newRow("the folder itself") << QStringLiteral("./a");
        QTest::newRow("a blank name") << QStringLiteral("a/ /sub");
    }
    void anUnusableTargetIsTheRoot() {
        QFETCH(const QString, target);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(QStringLiteral("a/x.txt"), target));
        QCOMPARE(fixture.filePaths().at(1), QStringLiteral("x.txt"));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(QStringLiteral("x.txt")), QByteArray("x in a"));
        QVERIFY(isSaved(fixture));
    }

    void aMovedFileTakesTheSpellingOfTheCall() {
        // Letter case does not matter for finding the file and its folder; the new path is spelled
        // as the call spells it, and what did not move keeps its spelling.
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(QStringLiteral("A/X.TXT"), QStringLiteral("b")));
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("b/X.TXT"),
                              QStringLiteral("a/sub/deep.txt"), QStringLiteral("B/y.txt")}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(QStringLiteral("B/x.txt")), QByteArray("x in a"));
        QVERIFY(fixture.vault.moveFile(QStringLiteral("A/SUB/Deep.txt"), QString()));
        QCOMPARE(fixture.filePaths().at(2), QStringLiteral("Deep.txt"));
        QVERIFY(isSaved(fixture));
    }

    void onlyTheFirstOfTwoSpellingsIsMoved() {
        CraftedContainer crafted;
        crafted.addFolder(QStringLiteral("B"))
            .addFile(QStringLiteral("a"), "first")
            .addFile(QStringLiteral("A"), "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.moveFile(QStringLiteral("A"), QStringLiteral("B")));
        QCOMPARE(fixture.filePaths(), QStringList({QStringLiteral("B/A"), QStringLiteral("A")}));
        QCOMPARE(fixture.stored(QStringLiteral("B/A")), QByteArray("first"));
        QCOMPARE(fixture.stored(QStringLiteral("A")), QByteArray("second"));
    }

    void movesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("missing"), QStringLiteral("a"));
        });
        addRefusal("a folder", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("a/sub"), QString());
        });
        addRefusal("no path",
                   [](VaultManager& vault) { return vault.moveFile(QString(), QString()); });
        addRefusal("an unusable path", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("a/../root.txt"), QStringLiteral("a"));
        });
        addRefusal("no such target", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("root.txt"), QStringLiteral("c"));
        });
        addRefusal("a file as target", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("root.txt"), QStringLiteral("a/x.txt"));
        });
        addRefusal("its own folder", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("a/x.txt"), QStringLiteral("a"));
        });
        addRefusal("its own folder in other letters", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("a/x.txt"), QStringLiteral("A"));
        });
        addRefusal("the root, from the root", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("root.txt"), QString());
        });
    }
    void movesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    void aMoveOntoAnotherItemIsRefused() {
        CraftedContainer crafted = usedContainer();
        crafted.addFile(QStringLiteral("B/X.TXT"), "other").addFile(QStringLiteral("sub"), "file");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.moveFile(QStringLiteral("a/x.txt"), QStringLiteral("B")));
        // A folder of that name is in the way as well.
        QVERIFY(!fixture.vault.moveFile(QStringLiteral("sub"), QStringLiteral("a")));
        COMPARE_UNCHANGED(before);
    }

    // --- Renaming files --------------------------------------------------------------------

    void aFileGetsANewWholePath() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultFileEntry before = fixture.entry(QStringLiteral("root.txt"));
        QVERIFY(
            fixture.vault.renameFile(QStringLiteral("ROOT.txt"), QStringLiteral("/new//b.txt")));
        // No folder is made for it.
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.filePaths().constFirst(), QStringLiteral("new/b.txt"));
        const VaultFileEntry after = fixture.entry(QStringLiteral("new/b.txt"));
        QCOMPARE(after.id, before.id);
        QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
        QCOMPARE(fixture.stored(QStringLiteral("new/b.txt")), QByteArray("at the root"));
        QVERIFY(isSaved(fixture));
    }

    void thePathOfARenamedItemMayHaveAnyForm() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameFile(QStringLiteral("\\a//x.txt "), QStringLiteral("a/z.txt")));
        QCOMPARE(fixture.filePaths().at(1), QStringLiteral("a/z.txt"));
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("/a/"), QStringLiteral("c")));
        QCOMPARE(fixture.folderPaths(),
                 QStringList({QStringLiteral("c"), QStringLiteral("c/sub"), QStringLiteral("B")}));
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral(" c\\\\sub "), QStringLiteral("d")));
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("c/z.txt"),
                              QStringLiteral("d/deep.txt"), QStringLiteral("B/y.txt")}));
        QVERIFY(isSaved(fixture));
    }

    void aRenamedFileTakesTheSpellingOfTheCall() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(
            fixture.vault.renameFile(QStringLiteral("A/X.TXT"), QStringLiteral("A/Sub/New.TXT")));
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("A/Sub/New.TXT"),
                              QStringLiteral("a/sub/deep.txt"), QStringLiteral("B/y.txt")}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.stored(QStringLiteral("a/sub/new.txt")), QByteArray("x in a"));
        QVERIFY(isSaved(fixture));
    }

    void onlyTheFirstOfTwoSpellingsIsRenamed() {
        CraftedContainer crafted;
        crafted.addFile(QStringLiteral("a"), "first").addFile(QStringLiteral("A"), "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameFile(QStringLiteral("A"), QStringLiteral("b")));
        QCOMPARE(fixture.filePaths(), QStringList({QStringLiteral("b"), QStringLiteral("A")}));
        QCOMPARE(fixture.stored(QStringLiteral("b")), QByteArray("first"));
    }

    void fileRenamesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("missing"), QStringLiteral("new"));
        });
        addRefusal("a folder", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("a"), QStringLiteral("new"));
        });
        addRefusal("no path", [](VaultManager& vault) {
            return vault.renameFile(QString(), QStringLiteral("new"));
        });
        addRefusal("no new path", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QString());
        });
        addRefusal("an unusable new path", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("../new"));
        });
        addRefusal("the same path", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("root.txt"));
        });
        addRefusal("the same path in other letters", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("ROOT.TXT"));
        });
        addRefusal("another file", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("A/X.txt"));
        });
        addRefusal("a folder's path", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("A/Sub"));
        });
    }
    void fileRenamesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Deleting files --------------------------------------------------------------------

    void aDeletedFileLeavesItsBlocks() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        QVERIFY(fixture.vault.deleteFile(QStringLiteral("/A/X.TXT")));
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("a/sub/deep.txt"),
                              QStringLiteral("B/y.txt")}));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
        QVERIFY(!fixture.vault.deleteFile(QStringLiteral("a/x.txt")));
    }

    void onlyTheFirstOfTwoSpellingsIsDeleted() {
        CraftedContainer crafted;
        crafted.addFile(QStringLiteral("a"), "first").addFile(QStringLiteral("A"), "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.deleteFile(QStringLiteral("A")));
        QCOMPARE(fixture.filePaths(), QStringList(QStringLiteral("A")));
        QCOMPARE(fixture.stored(QStringLiteral("A")), QByteArray("second"));
    }

    void deletionsThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no file",
                   [](VaultManager& vault) { return vault.deleteFile(QStringLiteral("missing")); });
        addRefusal("a folder",
                   [](VaultManager& vault) { return vault.deleteFile(QStringLiteral("B")); });
        addRefusal("no path", [](VaultManager& vault) { return vault.deleteFile(QString()); });
        addRefusal("an unusable path", [](VaultManager& vault) {
            return vault.deleteFile(QStringLiteral("./root.txt"));
        });
    }
    void deletionsThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Creating folders ------------------------------------------------------------------

    void aFolderIsCreatedWithItsAncestors() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.createDirectory(QStringLiteral(" b\\x//y/ ")));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(fixture.folderPaths(),
                 UsedFolders + QStringList({QStringLiteral("b/x"), QStringLiteral("b/x/y")}));
        for (const QString& path : {QStringLiteral("b/x"), QStringLiteral("b/x/y")}) {
            const VaultDirectoryEntry folder = fixture.folder(path);
            QVERIFY(folder.createdUtc >= before && folder.createdUtc <= after);
            QCOMPARE(folder.modifiedUtc, folder.createdUtc);
        }
        QVERIFY(isSaved(fixture));
    }

    void foldersThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no path", [](VaultManager& vault) { return vault.createDirectory(QString()); });
        addRefusal("the root",
                   [](VaultManager& vault) { return vault.createDirectory(QStringLiteral("/")); });
        addRefusal("an unusable path", [](VaultManager& vault) {
            return vault.createDirectory(QStringLiteral("a/../c"));
        });
        addRefusal("a folder that is there",
                   [](VaultManager& vault) { return vault.createDirectory(QStringLiteral("a")); });
        addRefusal("a folder that is there in other letters", [](VaultManager& vault) {
            return vault.createDirectory(QStringLiteral("A/SUB"));
        });
        addRefusal("a file's path", [](VaultManager& vault) {
            return vault.createDirectory(QStringLiteral("Root.txt"));
        });
    }
    void foldersThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Renaming and moving folders -------------------------------------------------------

    void aFolderIsMovedWithAllThatIsInIt() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry oldFolder = fixture.folder(QStringLiteral("a"));
        const VaultFileEntry oldFile = fixture.entry(QStringLiteral("a/x.txt"));
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("A"), QStringLiteral("/x/y/")));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(fixture.folderPaths(),
                 QStringList({QStringLiteral("x"), QStringLiteral("x/y"), QStringLiteral("x/y/sub"),
                              QStringLiteral("B")}));
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("x/y/x.txt"),
                              QStringLiteral("x/y/sub/deep.txt"), QStringLiteral("B/y.txt")}));
        // What moved was changed now and created when it was.
        for (const QString& path : {QStringLiteral("x/y"), QStringLiteral("x/y/sub")}) {
            const VaultDirectoryEntry folder = fixture.folder(path);
            QCOMPARE(folder.createdUtc, oldFolder.createdUtc);
            QVERIFY(folder.modifiedUtc >= before && folder.modifiedUtc <= after);
        }
        QVERIFY(fixture.folder(QStringLiteral("x")).createdUtc >= before);
        QCOMPARE(fixture.folder(QStringLiteral("B")).modifiedUtc, oldFolder.modifiedUtc);
        const VaultFileEntry file = fixture.entry(QStringLiteral("x/y/x.txt"));
        QCOMPARE(file.lastModifiedUtc, oldFile.lastModifiedUtc);
        QCOMPARE(file.id, oldFile.id);
        QCOMPARE(fixture.stored(QStringLiteral("x/y/sub/deep.txt")), QByteArray("deep in a/sub"));
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QVERIFY(isSaved(fixture));
    }

    void aFolderMovedIntoAnotherKeepsThatOnesTimes() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry target = fixture.folder(QStringLiteral("B"));
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("a/sub"), QStringLiteral("B/sub")));
        QCOMPARE(fixture.folderPaths(),
                 QStringList({QStringLiteral("B"), QStringLiteral("a"), QStringLiteral("B/sub")}));
        QCOMPARE(fixture.folder(QStringLiteral("B")).createdUtc, target.createdUtc);
        QCOMPARE(fixture.folder(QStringLiteral("B")).modifiedUtc, target.modifiedUtc);
        QCOMPARE(fixture.stored(QStringLiteral("B/sub/deep.txt")), QByteArray("deep in a/sub"));
        QVERIFY(isSaved(fixture));
    }

    void aFolderMovedIntoAnotherInOtherLettersFindsItThere() {
        // The index compares character for character: the folder above gets an entry as the call
        // spells it, before the one that was there, and both are the same folder for everybody who
        // asks the vault.
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultDirectoryEntry target = fixture.folder(QStringLiteral("B"));
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("A/SUB"), QStringLiteral("b/Sub")));
        QCOMPARE(fixture.folderPaths(),
                 QStringList({QStringLiteral("b"), QStringLiteral("a"), QStringLiteral("b/Sub"),
                              QStringLiteral("B")}));
        QVERIFY(fixture.folder(QStringLiteral("b")).createdUtc >= before);
        QCOMPARE(fixture.folder(QStringLiteral("B")).createdUtc, target.createdUtc);
        QCOMPARE(fixture.folder(QStringLiteral("B")).modifiedUtc, target.modifiedUtc);
        QCOMPARE(fixture.filePaths(),
                 QStringList({QStringLiteral("root.txt"), QStringLiteral("a/x.txt"),
                              QStringLiteral("b/Sub/deep.txt"), QStringLiteral("B/y.txt")}));
        QCOMPARE(fixture.stored(QStringLiteral("B/sub/DEEP.txt")), QByteArray("deep in a/sub"));
        QVERIFY(isSaved(fixture));
        // Neither is empty, whichever spelling is asked for.
        QVERIFY(!fixture.vault.deleteDirectory(QStringLiteral("b")));
        QVERIFY(!fixture.vault.deleteDirectory(QStringLiteral("B")));
    }

    void aFolderWhoseNameBeginsAlikeStays() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(QStringLiteral("ab")).addFile(QStringLiteral("ab/z.txt"), "z");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("a"), QStringLiteral("c")));
        QVERIFY(fixture.filePaths().contains(QStringLiteral("ab/z.txt")));
        QVERIFY(fixture.folderPaths().contains(QStringLiteral("ab")));
        // And the new name may begin like the old one without lying in it.
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("c"), QStringLiteral("cd")));
        QVERIFY(fixture.filePaths().contains(QStringLiteral("cd/sub/deep.txt")));
    }

    void spellingsBelowAMovedFolderAreKept() {
        CraftedContainer crafted;
        crafted.addFolder(QStringLiteral("Docs"))
            .addFolder(QStringLiteral("DOCS/Sub"))
            .addFile(QStringLiteral("docs/SUB/File.txt"), "f");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("dOCS"), QStringLiteral("new")));
        QCOMPARE(fixture.folderPaths(),
                 QStringList({QStringLiteral("new"), QStringLiteral("new/Sub")}));
        QCOMPARE(fixture.filePaths(), QStringList(QStringLiteral("new/SUB/File.txt")));
    }

    void ofTwoFilesThatGetOnePathTheLaterStays_data() {
        QTest::addColumn<QStringList>("files");
        QTest::newRow("the moved one")
            << QStringList{QStringLiteral("new/b.txt"), QStringLiteral("a/b.txt")};
        QTest::newRow("the other one")
            << QStringList{QStringLiteral("a/b.txt"), QStringLiteral("new/b.txt")};
    }
    void ofTwoFilesThatGetOnePathTheLaterStays() {
        // A file may lie where no folder has an entry; a folder may then be given that path, and
        // the index keeps one file for each path.
        QFETCH(const QStringList, files);
        CraftedContainer crafted;
        crafted.addFolder(QStringLiteral("a"));
        for (const QString& path : files) {
            crafted.addFile(path, "was " + path.toUtf8());
        }
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("a"), QStringLiteral("new")));
        QCOMPARE(fixture.filePaths(), QStringList(QStringLiteral("new/b.txt")));
        QCOMPARE(fixture.folderPaths(), QStringList(QStringLiteral("new")));
        QCOMPARE(fixture.stored(QStringLiteral("new/b.txt")),
                 QByteArray("was " + files.last().toUtf8()));
        QVERIFY(isSaved(fixture));
    }

    void folderRenamesThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no folder", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("missing"), QStringLiteral("new"));
        });
        addRefusal("a file", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("root.txt"), QStringLiteral("new"));
        });
        addRefusal("no path", [](VaultManager& vault) {
            return vault.renameDirectory(QString(), QStringLiteral("new"));
        });
        addRefusal("no new path", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QString());
        });
        addRefusal("an unusable new path", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("b/.."));
        });
        addRefusal("the same path", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("a"));
        });
        addRefusal("the same path in other letters", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("A"));
        });
        addRefusal("into itself", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("a/b"));
        });
        addRefusal("into itself in other letters", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("A/sub/b"));
        });
        addRefusal("another folder", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("b"));
        });
        addRefusal("a file's path", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("ROOT.txt"));
        });
    }
    void folderRenamesThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Deleting folders ------------------------------------------------------------------

    void anEmptyFolderIsDeletedInAnyLetterCase() {
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(QStringLiteral("Empty"));
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.deleteDirectory(QStringLiteral("/EMPTY/")));
        QCOMPARE(fixture.folderPaths(), UsedFolders);
        QCOMPARE(fixture.filePaths(), UsedFiles);
        QVERIFY(isSaved(fixture));
    }

    void aFolderThatHoldsAnythingIsNotDeleted() {
        CraftedContainer crafted;
        crafted.addFolder(QStringLiteral("outer"))
            .addFolder(QStringLiteral("OUTER/inner"))
            .addFolder(QStringLiteral("full"))
            .addFile(QStringLiteral("Full/f"), "f");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.deleteDirectory(QStringLiteral("outer")));
        QVERIFY(!fixture.vault.deleteDirectory(QStringLiteral("full")));
        COMPARE_UNCHANGED(before);
        // From the inside out it goes.
        QVERIFY(fixture.vault.deleteDirectory(QStringLiteral("outer/inner")));
        QVERIFY(fixture.vault.deleteDirectory(QStringLiteral("outer")));
        QVERIFY(fixture.vault.deleteFile(QStringLiteral("full/f")));
        QVERIFY(fixture.vault.deleteDirectory(QStringLiteral("full")));
        QVERIFY(fixture.folderPaths().isEmpty());
        QVERIFY(isSaved(fixture));
    }

    void folderDeletionsThatAreRefusedChangeNothing_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("no folder", [](VaultManager& vault) {
            return vault.deleteDirectory(QStringLiteral("missing"));
        });
        addRefusal("a file", [](VaultManager& vault) {
            return vault.deleteDirectory(QStringLiteral("root.txt"));
        });
        addRefusal("the root",
                   [](VaultManager& vault) { return vault.deleteDirectory(QString()); });
        addRefusal("an unusable path", [](VaultManager& vault) {
            return vault.deleteDirectory(QStringLiteral("a/./sub"));
        });
    }
    void folderDeletionsThatAreRefusedChangeNothing() { attemptIsRefused(); }

    // --- Files that are open ---------------------------------------------------------------

    void anOpenFileIsNeitherMovedNorRenamed_data() {
        QTest::addColumn<QVariant>("attempt");
        addRefusal("moved", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("a/x.txt"), QStringLiteral("B"));
        });
        addRefusal("moved, in other letters", [](VaultManager& vault) {
            return vault.moveFile(QStringLiteral("A/X.txt"), QString());
        });
        addRefusal("renamed", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("a/x.txt"), QStringLiteral("a/z.txt"));
        });
        addRefusal("renamed, in other letters", [](VaultManager& vault) {
            return vault.renameFile(QStringLiteral("A/X.TXT"), QStringLiteral("a/z.txt"));
        });
        addRefusal("its folder renamed", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("a"), QStringLiteral("c"));
        });
        addRefusal("its folder renamed, in other letters", [](VaultManager& vault) {
            return vault.renameDirectory(QStringLiteral("A"), QStringLiteral("c"));
        });
    }
    void anOpenFileIsNeitherMovedNorRenamed() {
        QFETCH(const QVariant, attempt);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(QStringLiteral("a/X.txt"), &copy));
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
        crafted.addFolder(QStringLiteral("docs")).addFile(QStringLiteral("Docs"), "a file");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(QStringLiteral("Docs"), &copy));
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.renameDirectory(QStringLiteral("docs"), QStringLiteral("x")));
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("docs"), QStringLiteral("x")));
        QCOMPARE(fixture.folderPaths(), QStringList(QStringLiteral("x")));
        QCOMPARE(fixture.filePaths(), QStringList(QStringLiteral("Docs")));
    }

    void otherFilesAreMovedWhileOneIsOpen() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(QStringLiteral("a/x.txt"), &copy));
        QVERIFY(fixture.vault.moveFile(QStringLiteral("a/sub/deep.txt"), QString()));
        QVERIFY(fixture.vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("a/r.txt")));
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("a/sub"), QStringLiteral("a/new")));
        QVERIFY(fixture.vault.renameDirectory(QStringLiteral("B"), QStringLiteral("C")));
    }

    void anOpenFileMayBeDeleted() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(QStringLiteral("a/x.txt"), &copy));
        QVERIFY(fixture.vault.deleteFile(QStringLiteral("a/x.txt")));
        QVERIFY(!fixture.filePaths().contains(QStringLiteral("a/x.txt")));
        QVERIFY(QFileInfo::exists(copy));
    }

    // --- Drives that fail ------------------------------------------------------------------

    void nothingIsRearrangedOnAReadOnlyDrive() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createDirectory(QStringLiteral("empty")));
        const VaultPicture before(fixture);
        const ReadOnlyMount drive(fixture.driveFolder());
        QVERIFY(drive.isMounted());
        everyChangeIsRefused(fixture.vault);
        COMPARE_UNCHANGED(before);
    }

    void nothingIsRearrangedWithoutTheContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createDirectory(QStringLiteral("empty")));
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QVERIFY(QFile::remove(fixture.container()));
        everyChangeIsRefused(fixture.vault);
        QCOMPARE(fixture.vault.fileIndex().toJson(), index);
        QVERIFY(!QFileInfo::exists(fixture.container()));
    }

    void aDriveThatFailsDuringAChangeKeepsTheVault_data() {
        QTest::addColumn<QStringList>("operation");
        QTest::newRow("mkdir") << QStringList{QStringLiteral("mkdir"), QStringLiteral("new")};
        QTest::newRow("delete") << QStringList{QStringLiteral("delete"),
                                               QStringLiteral("root.txt")};
        QTest::newRow("rename") << QStringList{QStringLiteral("rename"), QStringLiteral("root.txt"),
                                               QStringLiteral("new.txt")};
        QTest::newRow("move") << QStringList{QStringLiteral("move"), QStringLiteral("root.txt"),
                                             QStringLiteral("a")};
        QTest::newRow("rename-folder") << QStringList{QStringLiteral("rename-folder"),
                                                      QStringLiteral("a"), QStringLiteral("c")};
        QTest::newRow("delete-folder")
            << QStringList{QStringLiteral("delete-folder"), QStringLiteral("empty")};
    }
    void aDriveThatFailsDuringAChangeKeepsTheVault() {
        QFETCH(const QStringList, operation);
        NEEDS_TRACING();
        CraftedContainer crafted = usedContainer();
        crafted.addFolder(QStringLiteral("empty"));
        VaultFixture fixture(crafted);
        const QStringList arguments =
            QStringList{fixture.container(), QString::fromUtf8(TestPassword)} + operation;
        const VaultPicture before(fixture);
        QVERIFY(
            runDriver(arguments, fixture.container(), {QStringLiteral("write:error=EIO:when=1")})
                .refused());
        COMPARE_UNCHANGED(before);
        QVERIFY(runDriver(arguments, fixture.container(),
                          {QStringLiteral("fdatasync:error=EIO:when=2")})
                    .refused());
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
        QVERIFY(!vault.moveFile(QStringLiteral("root.txt"), QStringLiteral("a")));
        QVERIFY(!vault.renameFile(QStringLiteral("root.txt"), QStringLiteral("new.txt")));
        QVERIFY(!vault.deleteFile(QStringLiteral("root.txt")));
        QVERIFY(!vault.createDirectory(QStringLiteral("new")));
        QVERIFY(!vault.renameDirectory(QStringLiteral("a"), QStringLiteral("c")));
        QVERIFY(!vault.deleteDirectory(QStringLiteral("empty")));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultFolders>);
#include "test_vault_folders.moc"
