// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/QtVersions.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString A = u"docs/a.txt"_s;
const QString B = u"b.txt"_s;

CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s)
        .addFile(A, "line of a\n")
        .addFile(B, "line of b\n")
        .addFile(u"c.bin"_s, noise(3000), 1000);
    return crafted;
}

/// Runs a program on the copy, as the desktop would: its path is in "$1".
bool runEditor(const QString& shellCommand, const QString& copy) {
    QProcess shell;
    shell.start(u"sh"_s, {u"-ec"_s, shellCommand, u"editor"_s, copy});
    return shell.waitForFinished() && shell.exitCode() == 0;
}

/// The copy still exists and is later, and no import can read it.
bool replaceByLaterFolder(const QString& copy) {
    return runEditor(u"rm \"$1\"; mkdir \"$1\"; touch -d '1 hour' \"$1\""_s, copy);
}

QStringList vaultPathsOf(const QList<TrackedTempFile>& files) {
    QStringList paths;
    for (const TrackedTempFile& file : files) {
        paths.append(file.vaultPath);
    }
    paths.sort();
    return paths;
}

/// The files whose copies have changed.
QStringList changedIn(const VaultFixture& vault) {
    return vaultPathsOf(vault->modifiedOpenFiles());
}

/// The folder of opened copies, once the vault was unlocked.
QString workspaceOf(const VaultFixture& vault) {
    const QDir parent(vault.temporaryFolder() + u"/Tessel"_s);
    const QStringList runs = parent.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return runs.size() == 1 ? parent.filePath(runs.first()) : QString();
}

} // namespace

class TestOpenedCopies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- Knowing what changed --------------------------------------------------------------

    void onlyRegularFilesAreTracked() {
        const VaultFixture vault;
        FileSyncManager sync;
        QVERIFY(!sync.track(A, vault.file(u"missing"_s)));
        QVERIFY(!sync.track(A, vault.temporaryFolder()));
        QVERIFY(!sync.track(A, QString()));
        QVERIFY(sync.trackedFiles().isEmpty());
        QVERIFY(!sync.isModified(A));
    }

    void aTrackedFileIsRecordedInFull() {
        const VaultFixture vault;
        const QString copy = vault.write(u"copy"_s, "x");
        const QDateTime time(QDate(2025, 3, 1), QTime(14, 5, 9, 120), Utc);
        QVERIFY(setModified(copy, time));
        FileSyncManager sync;
        QVERIFY(sync.track(A, copy));
        QCOMPARE(sync.trackedFiles().size(), 1);
        const TrackedTempFile record = sync.trackedFiles().constFirst();
        QCOMPARE(record.vaultPath, A);
        QCOMPARE(record.tempPath, copy);
        QCOMPARE(record.lastKnownModifiedUtc, time);
        QCOMPARE(record.lastKnownModifiedUtc.timeSpec(), Qt::UTC);
    }

    void trackingAgainReplacesTheRecord() {
        const VaultFixture vault;
        const QString first = vault.write(u"first"_s, "x");
        const QString second = vault.write(u"second"_s, "y");
        FileSyncManager sync;
        QVERIFY(sync.track(A, first));
        QVERIFY(sync.track(A, second));
        QCOMPARE(sync.trackedFiles().size(), 1);
        QCOMPARE(sync.trackedFiles().constFirst().tempPath, second);
        // A failed attempt leaves the record.
        QVERIFY(!sync.track(A, vault.file(u"missing"_s)));
        QCOMPARE(sync.trackedFiles().constFirst().tempPath, second);
        // Another letter case is another path here.
        QVERIFY(sync.track(A.toUpper(), first));
        QCOMPARE(sync.trackedFiles().size(), 2);
    }

    void recordsAreForgotten() {
        const VaultFixture vault;
        const QString copy = vault.write(u"copy"_s, "x");
        FileSyncManager sync;
        QVERIFY(sync.track(A, copy) && sync.track(B, copy));
        sync.untrack(A.toUpper());
        QCOMPARE(sync.trackedFiles().size(), 2);
        sync.untrack(A);
        QCOMPARE(vaultPathsOf(sync.trackedFiles()), QStringList(B));
        sync.clear();
        QVERIFY(sync.trackedFiles().isEmpty());
        QVERIFY(sync.modifiedFiles().isEmpty());
    }

    void onlyALaterTimeCountsAsAChange_data() {
        QTest::addColumn<qint64>("milliseconds");
        QTest::addColumn<bool>("modified");
        QTest::newRow("unchanged") << qint64(0) << false;
        QTest::newRow("a millisecond later") << qint64(1) << true;
        QTest::newRow("a day later") << qint64(86400000) << true;
        QTest::newRow("a millisecond earlier") << qint64(-1) << false;
        QTest::newRow("a day earlier") << qint64(-86400000) << false;
    }
    void onlyALaterTimeCountsAsAChange() {
        QFETCH(const qint64, milliseconds);
        QFETCH(const bool, modified);
        const VaultFixture vault;
        const QString copy = vault.write(u"copy"_s, "x");
        const QString still = vault.write(u"still"_s, "x");
        const QDateTime time(QDate(2025, 3, 1), QTime(14, 5, 9, 120), Utc);
        QVERIFY(setModified(copy, time));
        FileSyncManager sync;
        QVERIFY(sync.track(A, copy) && sync.track(B, still));
        // The bytes do not matter, neither when they change nor when they do not.
        QVERIFY(writeFile(copy, modified ? "x" : "quite different"));
        QVERIFY(setModified(copy, time.addMSecs(milliseconds)));
        QCOMPARE(sync.isModified(A), modified);
        QVERIFY(!sync.isModified(A.toUpper()));
        QCOMPARE(vaultPathsOf(sync.modifiedFiles()), modified ? QStringList(A) : QStringList());
        QCOMPARE(sync.trackedFiles().size(), 2);
    }

    void aCopyThatIsGoneCountsAsUnchanged() {
        const VaultFixture vault;
        const QString copy = vault.write(u"copy"_s, "x");
        FileSyncManager sync;
        QVERIFY(sync.track(A, copy));
        QVERIFY(makeLater(copy));
        QVERIFY(sync.isModified(A));
        QVERIFY(QFile::remove(copy));
        QVERIFY(!sync.isModified(A));
        QVERIFY(sync.modifiedFiles().isEmpty());
        QCOMPARE(sync.trackedFiles().size(), 1);
        // When it comes back with a later time it counts again.
        QVERIFY(writeFile(copy, "back"));
        QVERIFY(makeLater(copy));
        QVERIFY(sync.isModified(A));
    }

    // --- Opening ---------------------------------------------------------------------------

    void anOpenedCopyMirrorsItsPlaceInTheVault() {
        OpenVault vault(usedContainer());
        const VaultPicture before(vault);
        const QString copy = vault.opened(A);
        QCOMPARE(copy, workspaceOf(vault) + u"/docs/a.txt"_s);
        QCOMPARE(readFile(copy), "line of a\n"_ba);
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QCOMPARE(vault.opened(u" \\c.bin/ "_s), workspaceOf(vault) + u"/c.bin"_s);
        QCOMPARE(readFile(workspaceOf(vault) + u"/c.bin"_s), noise(3000));
        COMPARE_UNCHANGED(before);
    }

    void aCopyIsForItsUserAlone_data() {
        QTest::addColumn<mode_t>("mask");
        QTest::newRow("no mask") << mode_t{0};
        QTest::newRow("the usual mask") << mode_t{0022};
    }
    void aCopyIsForItsUserAlone() {
        QFETCH(const mode_t, mask);
        VaultFixture vault(usedContainer());
        const FileModeMask fileModeMask(mask);
        QVERIFY(vault.unlock());
        const QString copy = vault.opened(A);
        QCOMPARE(modeOf(copy), mode_t{0600});
        QCOMPARE(modeOf(QFileInfo(copy).path()), mode_t{0700});
        QCOMPARE(modeOf(workspaceOf(vault)), mode_t{0700});
    }

    void whatIsInACopysPlaceIsReplacedAndNotWrittenTo_data() {
        QTest::addColumn<QString>("command");
        QTest::newRow("a link to a file") << u"ln -s \"$2\" \"$1\""_s;
        QTest::newRow("a second name of a file") << u"ln \"$2\" \"$1\""_s;
        QTest::newRow("a link to nothing") << u"ln -s \"$2-missing\" \"$1\""_s;
        QTest::newRow("a pipe") << u"mkfifo \"$1\""_s;
    }
    void whatIsInACopysPlaceIsReplacedAndNotWrittenTo() {
        QFETCH(const QString, command);
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        const QString other = vault.write(u"other"_s, "not the vault's");
        QVERIFY(QFile::remove(copy));
        QCOMPARE(QProcess::execute(u"sh"_s, {u"-ec"_s, command, u"sh"_s, copy, other}), 0);
        QCOMPARE(vault.opened(A), copy);
        QVERIFY(QFileInfo(copy).isFile() && !QFileInfo(copy).isSymLink());
        QCOMPARE(readFile(copy), "line of a\n"_ba);
        QCOMPARE(readFile(other), "not the vault's"_ba);
        QVERIFY(!QFileInfo::exists(other + u"-missing"_s));
        QVERIFY(vault->lockVault());
        QCOMPARE(readFile(other), "not the vault's"_ba);
    }

    void aLinkAmongTheFoldersOfACopyIsNotFollowed() {
        OpenVault vault(usedContainer());
        const QString outside = vault.file(u"outside"_s);
        QVERIFY(QDir().mkdir(outside));
        QVERIFY(QFile::link(outside, workspaceOf(vault) + u"/docs"_s));
        QVERIFY(vault.opened(A).isEmpty());
        QVERIFY(QDir(outside).isEmpty());
        QVERIFY(vault->lockVault());
        QVERIFY(QFileInfo(outside).isDir());
    }

    void aWorkspaceThatWasRemovedIsMadeAgain() {
        OpenVault vault(usedContainer());
        const QString copyOfA = vault.opened(A);
        // A service that clears the temporary folder.
        QVERIFY(QDir(vault.temporaryFolder() + u"/Tessel"_s).removeRecursively());
        const QString copyOfB = vault.opened(B);
        QCOMPARE(readFile(copyOfB), "line of b\n"_ba);
        QVERIFY(writeFile(copyOfB, "edited") && makeLater(copyOfB));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "line of a\n"_ba);
        QCOMPARE(vault.stored(B), "edited"_ba);
    }

    void aWorkspaceThatWasExchangedIsNotUsed_data() {
        QTest::addColumn<bool>("isLink");
        QTest::newRow("for a folder") << false;
        QTest::newRow("for a link") << true;
    }
    void aWorkspaceThatWasExchangedIsNotUsed() {
        QFETCH(const bool, isLink);
        OpenVault vault(usedContainer());
        const QString workspace = workspaceOf(vault);
        const QString copy = vault.openAndEdit(A, "edited");
        // Somebody who may rename folders in "Tessel" puts another in the workspace's place.
        const QString moved = vault.temporaryFolder() + u"/moved"_s;
        const QString planted = isLink ? vault.file(u"planted"_s) : workspace;
        QVERIFY(QDir().rename(workspace, moved));
        QVERIFY(QDir().mkpath(planted + u"/docs"_s));
        QVERIFY(!isLink || QFile::link(planted, workspace));
        QVERIFY(writeFile(copy, "planted") && makeLater(copy, 3600000));
        const VaultPicture before(vault);
        QVERIFY(vault.opened(B).isEmpty());
        QVERIFY(!QFileInfo::exists(planted + QLatin1Char('/') + B));
        QVERIFY(!vault->syncModifiedTempFiles());
        QVERIFY(!vault->lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(readFile(planted + QLatin1Char('/') + A), "planted"_ba);
        QCOMPARE(readFile(moved + QLatin1Char('/') + A), "edited"_ba);
        // Put right, it locks, and takes the edit back.
        QVERIFY(isLink ? QFile::remove(workspace) : QDir(workspace).removeRecursively());
        QVERIFY(QDir().rename(moved, workspace));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "edited"_ba);
    }

    void anEmptyFileIsOpened() {
        OpenVault vault;
        QVERIFY(vault.store(u"empty"_s, {}));
        const QString copy = vault.opened(u"empty"_s);
        QVERIFY(QFileInfo(copy).isFile());
        QCOMPARE(QFileInfo(copy).size(), 0);
    }

    void openingAgainOverwritesTheCopyAndItsRecord() {
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        QVERIFY(writeFile(copy, "a much longer text that was never taken back\n"));
        QVERIFY(makeLater(copy, 3600000));
        QCOMPARE(changedIn(vault), QStringList(A));
        QCOMPARE(vault.opened(A), copy);
        QCOMPARE(readFile(copy), "line of a\n"_ba);
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "line of a\n"_ba);
    }

    void whatCannotBeOpenedGivesNoPath_data() {
        QTest::addColumn<QString>("vaultPath");
        QTest::newRow("no path") << QString();
        QTest::newRow("an unusable path") << u"docs/../b.txt"_s;
        QTest::newRow("not in the vault") << u"docs/missing.txt"_s;
        QTest::newRow("a folder") << u"docs"_s;
    }
    void whatCannotBeOpenedGivesNoPath() {
        QFETCH(const QString, vaultPath);
        OpenVault vault(usedContainer());
        const VaultPicture before(vault);
        QString copy = u"untouched"_s;
        QVERIFY(!vault->prepareFileForEditing(vaultPath, &copy));
        QCOMPARE(copy, u"untouched"_s);
        QVERIFY(!vault->prepareFileForEditing(A, nullptr));
        COMPARE_UNCHANGED(before);
        // Nothing is watched, so nothing is taken back.
        QVERIFY(vault->lockVault());
        COMPARE_UNCHANGED(VaultPicture(vault));
    }

    void aCopyWhosePlaceIsTakenGivesNoPath() {
        CraftedContainer crafted;
        crafted.addFile(u"x"_s, "a file").addFile(u"x/y"_s, "beneath a file");
        OpenVault vault(crafted);
        QString copy = u"untouched"_s;
        QVERIFY(!vault.opened(u"x"_s).isEmpty());
        // A folder is needed where the first copy lies.
        QVERIFY(!vault->prepareFileForEditing(u"x/y"_s, &copy));
        QVERIFY(vault.reopen());
        QVERIFY(!vault.opened(u"x/y"_s).isEmpty());
        QVERIFY(!vault->prepareFileForEditing(u"x"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
    }

    void anAlteredFileIsNotOpenedAndItsRemainsAreNotTakenBack() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture vault(crafted);
        const qint64 at = crafted.blocks(2).at(1).offset;
        QVERIFY(overwriteAt(vault.container(), at, "altered"));
        QVERIFY(vault.unlock());
        const VaultPicture before(vault);
        QString copy = u"untouched"_s;
        QVERIFY(!vault->prepareFileForEditing(u"c.bin"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
        const QString remains = workspaceOf(vault) + u"/c.bin"_s;
        QCOMPARE(readFile(remains), noise(3000).left(1000));
        QVERIFY(makeLater(remains));
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QVERIFY(vault->syncModifiedTempFiles());
        COMPARE_UNCHANGED(before);
    }

    void aCopyThatCouldNotBeOpenedAgainIsNotTakenBack() {
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        QVERIFY(!copy.isEmpty());
        // The drive is out for a moment, just when the file is opened again.
        const QString unplugged = vault.file(u"unplugged"_s);
        QVERIFY(QFile::rename(vault.container(), unplugged));
        QVERIFY(vault.opened(A).isEmpty());
        QVERIFY(QFile::rename(unplugged, vault.container()));
        QVERIFY(!QFileInfo::exists(copy) || makeLater(copy));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "line of a\n"_ba);
    }

    void aLocalDiskWithoutRoomGivesNoPath() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(MiB);
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"big"_s, noise(2 * MiB));
        const VaultFixture fixture(crafted);
        const TemporaryFolderAt temporary(disk.path());
        VaultManager vault;
        QVERIFY(vault.unlockVault(fixture.container(), TestPassword));
        QString copy = u"untouched"_s;
        QVERIFY(!vault.prepareFileForEditing(u"big"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
        QVERIFY(vault.modifiedOpenFiles().isEmpty());
        QVERIFY(vault.lockVault());
        QCOMPARE(QDir(disk.path() + u"/Tessel"_s)
                     .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    // --- Edits by other programs -----------------------------------------------------------

    void editsAreTakenBackWhenTheVaultIsLocked_data() {
        QTest::addColumn<QString>("editor");
        QTest::addColumn<QByteArray>("expected");
        QTest::newRow("appending in place") << u"echo more >> \"$1\""_s << "line of a\nmore\n"_ba;
        QTest::newRow("appending twice")
            << u"echo one >> \"$1\"; echo two >> \"$1\""_s << "line of a\none\ntwo\n"_ba;
        QTest::newRow("truncating and writing") << u"echo new > \"$1\""_s << "new\n"_ba;
        QTest::newRow("writing a new file and renaming it")
            << u"sed -i s/line/words/ \"$1\""_s << "words of a\n"_ba;
        QTest::newRow("keeping a backup beside it")
            << u"sed -i.bak s/line/words/ \"$1\""_s << "words of a\n"_ba;
        QTest::newRow("moving the old one away first")
            << u"mv \"$1\" \"$1~\"; echo new > \"$1\""_s << "new\n"_ba;
        QTest::newRow("writing beside it and moving it over")
            << u"echo new > \"$1.part\"; mv \"$1.part\" \"$1\""_s << "new\n"_ba;
        QTest::newRow("lock files and folders beside it")
            << QStringLiteral("d=$(dirname \"$1\"); mkdir \"$d/.tmp\"; : > \"$d/.~lock#\"; "
                              "echo more >> \"$1\"")
            << "line of a\nmore\n"_ba;
        QTest::newRow("emptying it") << u": > \"$1\""_s << QByteArray();
        QTest::newRow("deleting it") << u"rm \"$1\""_s << "line of a\n"_ba;
    }
    void editsAreTakenBackWhenTheVaultIsLocked() {
        QFETCH(const QString, editor);
        QFETCH(const QByteArray, expected);
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        QVERIFY(runEditor(editor, copy));
        const bool deleted = !QFileInfo::exists(copy);
        QVERIFY(deleted || makeLater(copy));
        QCOMPARE(changedIn(vault), deleted ? QStringList() : QStringList(A));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), expected);
        // The rest of the vault is as it was; what the editor left beside the copy is in no vault
        // and, the workspace being new, in no folder either.
        QCOMPARE(vault.stored(B), "line of b\n"_ba);
        QCOMPARE(vault.filePaths().size(), 3);
        QCOMPARE(vault.folderPaths(), QStringList(u"docs"_s));
        QVERIFY(QDir(workspaceOf(vault)).isEmpty());
    }

    void aCopySavedTwiceIsTakenBackTwice() {
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        QVERIFY(runEditor(u"echo one >> \"$1\""_s, copy) && makeLater(copy));
        QVERIFY(vault->syncModifiedTempFiles());
        QCOMPARE(vault.stored(A), "line of a\none\n"_ba);
        QVERIFY(runEditor(u"echo two >> \"$1\""_s, copy) && makeLater(copy, 4000));
        QVERIFY(vault->syncModifiedTempFiles());
        QCOMPARE(vault.stored(A), "line of a\none\ntwo\n"_ba);
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "line of a\none\ntwo\n"_ba);
    }

    void takingBackStoresTheCopyAsAnyFile() {
        OpenVault vault(usedContainer());
        const VaultFileEntry before = vault.entry(A);
        const qint64 sizeBefore = vault.containerSize();
        const QString copy = vault.opened(A);
        QVERIFY(writeFile(copy, "edited"));
        QVERIFY(makeLater(copy));
        QVERIFY(vault->syncModifiedTempFiles());
        const VaultFileEntry after = vault.entry(A);
        QVERIFY(after.id != before.id);
        QCOMPARE(after.sizeBytes, 6);
        QCOMPARE(after.lastModifiedUtc, modifiedTime(copy));
        QCOMPARE(vault.containerSize(), sizeBefore + 6 + 16);
        QVERIFY(vault.isSaved());
    }

    void aChangedCopyIsTakenBackAtEverySynchronisation() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        QVERIFY(vault->syncModifiedTempFiles());
        const QString first = vault.entry(A).id;
        // Its record keeps the time of the opening, so it still counts as changed.
        QCOMPARE(changedIn(vault), QStringList(A));
        QVERIFY(vault->syncModifiedTempFiles());
        QVERIFY(vault.entry(A).id != first);
        QCOMPARE(vault.stored(A), "edited"_ba);
    }

    void onlyChangedCopiesAreTakenBack() {
        OpenVault vault(usedContainer());
        const QString idOfB = vault.entry(B).id;
        const QString copyOfA = vault.opened(A);
        const QString copyOfB = vault.opened(B);
        QVERIFY(!vault.opened(u"c.bin"_s).isEmpty());
        QVERIFY(runEditor(u"echo more >> \"$1\""_s, copyOfA) && makeLater(copyOfA));
        // Put back by a backup program: other bytes, but an earlier time.
        QVERIFY(writeFile(copyOfB, "older") && makeLater(copyOfB, -86400000));
        QCOMPARE(changedIn(vault), QStringList(A));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "line of a\nmore\n"_ba);
        QCOMPARE(vault.stored(B), "line of b\n"_ba);
        QCOMPARE(vault.entry(B).id, idOfB);
        QCOMPARE(vault.stored(u"c.bin"_s), noise(3000));
    }

    void severalChangedCopiesAreAllTakenBack() {
        OpenVault vault(usedContainer());
        for (const QString& path : {A, B, u"c.bin"_s}) {
            const QString copy = vault.opened(path);
            QVERIFY(writeFile(copy, "edited " + path.toUtf8()) && makeLater(copy));
        }
        QCOMPARE(vault->modifiedOpenFiles().size(), 3);
        QVERIFY(vault.reopen());
        for (const QString& path : {A, B, u"c.bin"_s}) {
            QCOMPARE(vault.stored(path), QByteArray("edited " + path.toUtf8()));
        }
        QCOMPARE(vault.filePaths().size(), 3);
    }

    void takingBackStopsAtTheFirstCopyThatFails_data() {
        QTest::addColumn<qsizetype>("failing");
        QTest::newRow("the first") << qsizetype(0);
        QTest::newRow("in the middle") << qsizetype(2);
        QTest::newRow("the last") << qsizetype(4);
    }
    void takingBackStopsAtTheFirstCopyThatFails() {
        QFETCH(const qsizetype, failing);
        CraftedContainer crafted;
        for (int i = 0; i < 5; ++i) {
            crafted.addFile(QString::number(i), "as stored");
        }
        OpenVault vault(crafted);
        for (const QString& path : vault.filePaths()) {
            QVERIFY(!vault.openAndEdit(path, "edited").isEmpty());
        }
        // They are taken back in the order in which they are listed, which is any.
        const QList<TrackedTempFile> changed = vault->modifiedOpenFiles();
        QCOMPARE(changed.size(), 5);
        QVERIFY(replaceByLaterFolder(changed.at(failing).tempPath));
        QStringList idsBefore;
        for (const TrackedTempFile& file : changed) {
            idsBefore.append(vault.entry(file.vaultPath).id);
        }
        QVERIFY(!vault->syncModifiedTempFiles());
        for (qsizetype i = 0; i < changed.size(); ++i) {
            const QString path = changed.at(i).vaultPath;
            QCOMPARE(vault.entry(path).id != idsBefore.at(i), i < failing);
            QCOMPARE(vault.stored(path), QByteArray(i < failing ? "edited" : "as stored"));
        }
        // What was taken back is saved.
        QVERIFY(vault.isSaved());
        QCOMPARE(changedIn(vault), vaultPathsOf(changed));
    }

    void aFileDeletedFromTheVaultComesBackWithItsEdits() {
        OpenVault vault(usedContainer());
        const QString copyOfA = vault.opened(A);
        const QString copyOfB = vault.opened(B);
        QVERIFY(vault->deleteFile(A) && vault->deleteFile(B));
        QVERIFY(writeFile(copyOfA, "edited") && makeLater(copyOfA));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "edited"_ba);
        // The other copy was not changed: it stays deleted.
        QVERIFY(!vault.filePaths().contains(B));
    }

    // --- One file at a time ----------------------------------------------------------------

    void oneChangedCopyIsTakenBackAndCountsAsUnchanged() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "edited a");
        QVERIFY(!copy.isEmpty() && !vault.openAndEdit(B, "edited b").isEmpty());
        QVERIFY(vault->syncModifiedTempFile(u"/DOCS/a.TXT"_s));
        QCOMPARE(vault.stored(A), "edited a"_ba);
        QCOMPARE(vault.stored(B), "line of b\n"_ba);
        QCOMPARE(changedIn(vault), QStringList(B));
        QVERIFY(vault.isSaved());
        // The next save counts.
        QVERIFY(writeFile(copy, "edited again") && makeLater(copy, 3600000));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "edited again"_ba);
        QCOMPARE(vault.stored(B), "edited b"_ba);
    }

    void aFileWithoutAChangedCopyIsLeftAlone() {
        OpenVault vault(usedContainer());
        QVERIFY(!vault.opened(A).isEmpty());
        const VaultPicture before(vault);
        QVERIFY(vault->syncModifiedTempFile(A));
        QVERIFY(vault->syncModifiedTempFile(B));
        QVERIFY(vault->syncModifiedTempFile(QString()));
        QVERIFY(vault->refreshTempFile(B));
        QVERIFY(vault->refreshTempFile(QString()));
        COMPARE_UNCHANGED(before);
    }

    void oneCopyThatCannotBeTakenBackStaysAsItIs() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        const QDateTime time = modifiedTime(copy);
        // The drive is out for a moment.
        const QString unplugged = vault.file(u"unplugged"_s);
        QVERIFY(QFile::rename(vault.container(), unplugged));
        QVERIFY(!vault->syncModifiedTempFile(A));
        QVERIFY(QFile::rename(unplugged, vault.container()));
        QCOMPARE(readFile(copy), "edited"_ba);
        QCOMPARE(modifiedTime(copy), time);
        QCOMPARE(changedIn(vault), QStringList(A));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "edited"_ba);
    }

    void anImportOverAnOpenedFileOutlivesTheEditBeforeIt() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "the older edit");
        QVERIFY(vault.store(u"docs/A.TXT"_s, "imported"));
        QVERIFY(vault->refreshTempFile(u"docs/A.TXT"_s));
        QCOMPARE(readFile(copy), "imported"_ba);
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "imported"_ba);
    }

    void whatIsSavedAfterAnImportStillCounts() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "the older edit");
        QVERIFY(vault.store(A, "imported"));
        QVERIFY(vault->refreshTempFile(A));
        QVERIFY(runEditor(u"echo ' and more' >> \"$1\""_s, copy) && makeLater(copy));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "imported and more\n"_ba);
    }

    void aCopyThatCannotBeRefreshedIsNotTakenForANewerEdit() {
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "the older edit");
        QVERIFY(vault.store(A, "imported"));
        {
            // The local disk is full.
            const FileSizeLimit limit(0);
            QVERIFY(!vault->refreshTempFile(A));
        }
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        // Its editor may still save it.
        QVERIFY(writeFile(copy, "saved later") && makeLater(copy));
        QCOMPARE(changedIn(vault), QStringList(A));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "saved later"_ba);
    }

    // --- Locking ---------------------------------------------------------------------------

    void aLockThatFailsAgainTakesNothingInTwice() {
        CraftedContainer crafted;
        for (int i = 0; i < 5; ++i) {
            crafted.addFile(QString::number(i), "as stored");
        }
        OpenVault vault(crafted);
        for (const QString& path : vault.filePaths()) {
            QVERIFY(!vault.openAndEdit(path, "edited").isEmpty());
        }
        const QList<TrackedTempFile> changed = vault->modifiedOpenFiles();
        const TrackedTempFile& first = changed.constFirst();
        const TrackedTempFile& deleted = changed.at(1);
        const TrackedTempFile& last = changed.constLast();
        QVERIFY(replaceByLaterFolder(last.tempPath));
        QVERIFY(!vault->lockVault());
        const VaultPicture before(vault);
        const QString idOfSecond = vault.entry(changed.at(2).vaultPath).id;
        QVERIFY(!vault->lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(vault->modifiedOpenFiles().size(), 5);

        // What was saved again, and what the vault no longer has as it was taken in, is taken in.
        QVERIFY(writeFile(first.tempPath, "edited again") && makeLater(first.tempPath, 3600000));
        QVERIFY(vault->deleteFile(deleted.vaultPath));
        QVERIFY(!vault->lockVault());
        QCOMPARE(vault.stored(first.vaultPath), "edited again"_ba);
        QCOMPARE(vault.stored(deleted.vaultPath), "edited"_ba);
        QCOMPARE(vault.entry(changed.at(2).vaultPath).id, idOfSecond);

        QVERIFY(QDir().rmdir(last.tempPath));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(first.vaultPath), "edited again"_ba);
        QCOMPARE(vault.entry(changed.at(2).vaultPath).id, idOfSecond);
        // The next session starts afresh.
        QVERIFY(!vault.openAndEdit(first.vaultPath, "in the next session").isEmpty());
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(first.vaultPath), "in the next session"_ba);
    }

    void lockingRemovesTheWorkspaceAndForgetsTheCopies() {
        OpenVault vault(usedContainer());
        const QString workspace = workspaceOf(vault);
        const QString copy = vault.opened(A);
        QVERIFY(!copy.isEmpty());
        QVERIFY(vault->lockVault());
        QVERIFY(!QFileInfo::exists(workspace));
        QVERIFY(QFileInfo(vault.temporaryFolder() + u"/Tessel"_s).isDir());
        // A late save of the editor is not the vault's any more.
        QVERIFY(QDir().mkpath(QFileInfo(copy).path()) && writeFile(copy, "late"));
        QVERIFY(makeLater(copy, 3600000));
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QVERIFY(vault->lockVault());
        QVERIFY(!QFileInfo::exists(workspace));
        QVERIFY(vault.unlock());
        QCOMPARE(workspaceOf(vault), workspace);
        QCOMPARE(vault.stored(A), "line of a\n"_ba);
    }

    void lockingUnchangedCopiesLeavesTheContainer() {
        OpenVault vault(usedContainer());
        const QByteArray before = vault.bytes();
        QVERIFY(!vault.opened(A).isEmpty() && !vault.opened(B).isEmpty());
        QVERIFY(vault->lockVault());
        QVERIFY(vault.bytes() == before);
    }

    void aFullDriveKeepsTheVaultOpen() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(16 * MiB);
        OpenVault vault(usedContainer(), disk.filePath(u"tessel.tvlt"_s));
        const QString copy = vault.openAndEdit(A, noise(100000));
        QVERIFY(disk.fillUpTo(8192));
        VERIFY_REFUSED(vault, vault->lockVault());
        QVERIFY(QFile::remove(disk.filePath(u"filler"_s)));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), noise(100000));
        QVERIFY(vault->lockVault());
    }

    void oneCopyThatCannotBeReadKeepsTheVaultOpen() {
        OpenVault vault(usedContainer());
        const QString copyOfA = vault.opened(A);
        const QString copyOfB = vault.opened(B);
        QVERIFY(writeFile(copyOfA, "edited a") && makeLater(copyOfA));
        // An editor that makes a folder of it: it exists, and is later.
        QVERIFY(replaceByLaterFolder(copyOfB));
        QVERIFY(!vault->lockVault());
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QCOMPARE(vault.stored(B), "line of b\n"_ba);
        QVERIFY(QFileInfo::exists(copyOfA));
        QCOMPARE(vault->modifiedOpenFiles().size(), 2);
        // Put right, it locks.
        QVERIFY(QDir().rmdir(copyOfB));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(A), "edited a"_ba);
        QCOMPARE(vault.stored(B), "line of b\n"_ba);
    }

    void aLinkInACopysPlaceIsNotTakenBack_data() {
        QTest::addColumn<QString>("link");
        QTest::newRow("the copy") << A;
        QTest::newRow("its folder") << u"docs"_s;
    }
    void aLinkInACopysPlaceIsNotTakenBack() {
        QFETCH(const QString, link);
        OpenVault vault(usedContainer());
        const QString copy = vault.opened(A);
        QVERIFY(!copy.isEmpty());
        const QString linkPath = workspaceOf(vault) + QLatin1Char('/') + link;
        const QString outside = vault.file(u"outside"_s);
        QVERIFY(QDir().rename(linkPath, outside) && QFile::link(outside, linkPath));
        QVERIFY(writeFile(copy, "not the vault's") && makeLater(copy));
        VERIFY_REFUSED(vault, vault->lockVault());
        // Without the link it locks; what the link led to is as it was.
        QVERIFY(QFile::remove(linkPath));
        QVERIFY(vault->lockVault());
        const QString file = link == A ? outside : outside + u"/a.txt"_s;
        QCOMPARE(readFile(file), "not the vault's"_ba);
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "line of a\n"_ba);
    }

    void aWorkspaceThatCannotBeRemovedIsReportedAndTheVaultLocked() {
        NEEDS_PRIVATE_MOUNTS();
        OpenVault vault(usedContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        {
            const PinnedFile pinned(copy);
            QVERIFY(!vault->lockVault());
        }
        QCOMPARE(vault->state(), VaultState::Locked);
        QCOMPARE(vault.stored(A), "(refused)"_ba);
        QVERIFY(QFileInfo::exists(copy));
        QVERIFY(vault->lockVault());
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "edited"_ba);
    }

    void anAbandonedSessionLeavesTheCopyAndTheContainer() {
        // Only locking takes copies back and removes them: a program that just ends loses no edit.
        VaultFixture vault(usedContainer());
        const QByteArray before = vault.bytes();
        QString copy;
        {
            VaultManager session;
            QVERIFY(session.unlockVault(vault.container(), TestPassword));
            QVERIFY(session.prepareFileForEditing(A, &copy));
            QVERIFY(writeFile(copy, "edited") && makeLater(copy));
            QCOMPARE(vaultPathsOf(session.modifiedOpenFiles()), QStringList(A));
        }
        QCOMPARE(readFile(copy), "edited"_ba);
        QVERIFY(vault.bytes() == before);
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestOpenedCopies>);
#include "test_opened_copies.moc"
