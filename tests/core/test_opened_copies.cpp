// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "VaultFixture.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TestProgram.h"

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

QDateTime modifiedTime(const QString& path) {
    return QFileInfo(path).lastModified().toUTC();
}

bool setModified(const QString& path, const QDateTime& time) {
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(time, QFileDevice::FileModificationTime);
}

/// A copy's time is set instead of waited for: file systems differ in how fine their clock is.
bool makeLater(const QString& path, qint64 ms = 2000) {
    return setModified(path, modifiedTime(path).addMSecs(ms));
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

/// Opens a file of the vault; empty when that fails.
QString opened(VaultFixture& fixture, const QString& vaultPath) {
    QString copy;
    return fixture.vault.prepareFileForEditing(vaultPath, &copy) ? copy : QString();
}

bool lockAndUnlock(VaultFixture& fixture) {
    return fixture.vault.lockVault() && fixture.unlock();
}

/// The folder of opened copies, once the vault was unlocked.
QString workspaceOf(const VaultFixture& fixture) {
    const QDir parent(fixture.temporaryFolder() + u"/Tessel"_s);
    const QStringList runs = parent.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    return runs.size() == 1 ? parent.filePath(runs.first()) : QString();
}

} // namespace

class TestOpenedCopies : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- Knowing what changed --------------------------------------------------------------

    void onlyRegularFilesAreTracked() {
        const VaultFixture fixture;
        FileSyncManager sync;
        QVERIFY(!sync.track(A, fixture.file(u"missing"_s)));
        QVERIFY(!sync.track(A, fixture.temporaryFolder()));
        QVERIFY(!sync.track(A, QString()));
        QVERIFY(sync.trackedFiles().isEmpty());
        QVERIFY(!sync.isModified(A));
    }

    void aTrackedFileIsRecordedInFull() {
        const VaultFixture fixture;
        const QString copy = fixture.write(u"copy"_s, "x");
        const QDateTime time(QDate(2025, 3, 1), QTime(14, 5, 9, 120), Qt::UTC);
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
        const VaultFixture fixture;
        const QString first = fixture.write(u"first"_s, "x");
        const QString second = fixture.write(u"second"_s, "y");
        FileSyncManager sync;
        QVERIFY(sync.track(A, first));
        QVERIFY(sync.track(A, second));
        QCOMPARE(sync.trackedFiles().size(), 1);
        QCOMPARE(sync.trackedFiles().constFirst().tempPath, second);
        // A failed attempt leaves the record.
        QVERIFY(!sync.track(A, fixture.file(u"missing"_s)));
        QCOMPARE(sync.trackedFiles().constFirst().tempPath, second);
        // Another letter case is another path here.
        QVERIFY(sync.track(A.toUpper(), first));
        QCOMPARE(sync.trackedFiles().size(), 2);
    }

    void recordsAreForgotten() {
        const VaultFixture fixture;
        const QString copy = fixture.write(u"copy"_s, "x");
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
        const VaultFixture fixture;
        const QString copy = fixture.write(u"copy"_s, "x");
        const QString still = fixture.write(u"still"_s, "x");
        const QDateTime time(QDate(2025, 3, 1), QTime(14, 5, 9, 120), Qt::UTC);
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
        const VaultFixture fixture;
        const QString copy = fixture.write(u"copy"_s, "x");
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
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        const QString copy = opened(fixture, A);
        QCOMPARE(copy, workspaceOf(fixture) + u"/docs/a.txt"_s);
        QCOMPARE(readFile(copy), QByteArray("line of a\n"));
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QCOMPARE(opened(fixture, u" \\c.bin/ "_s), workspaceOf(fixture) + u"/c.bin"_s);
        QCOMPARE(readFile(workspaceOf(fixture) + u"/c.bin"_s), noise(3000));
        COMPARE_UNCHANGED(before);
    }

    void aCopyIsForItsUserAlone_data() {
        QTest::addColumn<mode_t>("mask");
        QTest::newRow("no mask") << mode_t{0};
        QTest::newRow("the usual mask") << mode_t{0022};
    }
    void aCopyIsForItsUserAlone() {
        QFETCH(const mode_t, mask);
        VaultFixture fixture(usedContainer());
        const FileModeMask fileModeMask(mask);
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QCOMPARE(modeOf(copy), mode_t{0600});
        QCOMPARE(modeOf(QFileInfo(copy).path()), mode_t{0700});
        QCOMPARE(modeOf(workspaceOf(fixture)), mode_t{0700});
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
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        const QString other = fixture.write(u"other"_s, "not the vault's");
        QVERIFY(QFile::remove(copy));
        QCOMPARE(QProcess::execute(u"sh"_s, {u"-ec"_s, command, u"sh"_s, copy, other}), 0);
        QCOMPARE(opened(fixture, A), copy);
        QVERIFY(QFileInfo(copy).isFile() && !QFileInfo(copy).isSymLink());
        QCOMPARE(readFile(copy), QByteArray("line of a\n"));
        QCOMPARE(readFile(other), QByteArray("not the vault's"));
        QVERIFY(!QFileInfo::exists(other + u"-missing"_s));
        QVERIFY(fixture.vault.lockVault());
        QCOMPARE(readFile(other), QByteArray("not the vault's"));
    }

    void aLinkAmongTheFoldersOfACopyIsNotFollowed() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString outside = fixture.file(u"outside"_s);
        QVERIFY(QDir().mkdir(outside));
        QVERIFY(QFile::link(outside, workspaceOf(fixture) + u"/docs"_s));
        QVERIFY(opened(fixture, A).isEmpty());
        QVERIFY(QDir(outside).isEmpty());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(QFileInfo(outside).isDir());
    }

    void aWorkspaceThatWasRemovedIsMadeAgain() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copyOfA = opened(fixture, A);
        // A service that clears the temporary folder.
        QVERIFY(QDir(fixture.temporaryFolder() + u"/Tessel"_s).removeRecursively());
        const QString copyOfB = opened(fixture, B);
        QCOMPARE(readFile(copyOfB), QByteArray("line of b\n"));
        QVERIFY(writeFile(copyOfB, "edited") && makeLater(copyOfB));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("line of a\n"));
        QCOMPARE(fixture.stored(B), QByteArray("edited"));
    }

    void aWorkspaceThatWasExchangedIsNotUsed_data() {
        QTest::addColumn<bool>("isLink");
        QTest::newRow("for a folder") << false;
        QTest::newRow("for a link") << true;
    }
    void aWorkspaceThatWasExchangedIsNotUsed() {
        QFETCH(const bool, isLink);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString workspace = workspaceOf(fixture);
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "edited") && makeLater(copy));
        // Somebody who may rename folders in "Tessel" puts another in the workspace's place.
        const QString moved = fixture.temporaryFolder() + u"/moved"_s;
        const QString planted = isLink ? fixture.file(u"planted"_s) : workspace;
        QVERIFY(QDir().rename(workspace, moved));
        QVERIFY(QDir().mkpath(planted + u"/docs"_s));
        QVERIFY(!isLink || QFile::link(planted, workspace));
        QVERIFY(writeFile(copy, "planted") && makeLater(copy, 3600000));
        const VaultPicture before(fixture);
        QVERIFY(opened(fixture, B).isEmpty());
        QVERIFY(!QFileInfo::exists(planted + QLatin1Char('/') + B));
        QVERIFY(!fixture.vault.syncModifiedTempFiles());
        QVERIFY(!fixture.vault.lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(readFile(planted + QLatin1Char('/') + A), QByteArray("planted"));
        QCOMPARE(readFile(moved + QLatin1Char('/') + A), QByteArray("edited"));
        // Put right, it locks, and takes the edit back.
        QVERIFY(isLink ? QFile::remove(workspace) : QDir(workspace).removeRecursively());
        QVERIFY(QDir().rename(moved, workspace));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

    void anEmptyFileIsOpened() {
        VaultFixture fixture;
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.store(u"empty"_s, {}));
        const QString copy = opened(fixture, u"empty"_s);
        QVERIFY(QFileInfo(copy).isFile());
        QCOMPARE(QFileInfo(copy).size(), 0);
    }

    void openingAgainOverwritesTheCopyAndItsRecord() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "a much longer text that was never taken back\n"));
        QVERIFY(makeLater(copy, 3600000));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QCOMPARE(opened(fixture, A), copy);
        QCOMPARE(readFile(copy), QByteArray("line of a\n"));
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("line of a\n"));
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
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString copy = u"untouched"_s;
        QVERIFY(!fixture.vault.prepareFileForEditing(vaultPath, &copy));
        QCOMPARE(copy, u"untouched"_s);
        QVERIFY(!fixture.vault.prepareFileForEditing(A, nullptr));
        COMPARE_UNCHANGED(before);
        // Nothing is watched, so nothing is taken back.
        QVERIFY(fixture.vault.lockVault());
        COMPARE_UNCHANGED(VaultPicture(fixture));
    }

    void aCopyWhosePlaceIsTakenGivesNoPath() {
        CraftedContainer crafted;
        crafted.addFile(u"x"_s, "a file").addFile(u"x/y"_s, "beneath a file");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy = u"untouched"_s;
        QVERIFY(!opened(fixture, u"x"_s).isEmpty());
        // A folder is needed where the first copy lies.
        QVERIFY(!fixture.vault.prepareFileForEditing(u"x/y"_s, &copy));
        QVERIFY(lockAndUnlock(fixture));
        QVERIFY(!opened(fixture, u"x/y"_s).isEmpty());
        QVERIFY(!fixture.vault.prepareFileForEditing(u"x"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
    }

    void anAlteredFileIsNotOpenedAndItsRemainsAreNotTakenBack() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        const qint64 at = crafted.blocks(2).at(1).offset;
        QVERIFY(overwriteAt(fixture.container(), at, "altered"));
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString copy = u"untouched"_s;
        QVERIFY(!fixture.vault.prepareFileForEditing(u"c.bin"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
        const QString remains = workspaceOf(fixture) + u"/c.bin"_s;
        QCOMPARE(readFile(remains), noise(3000).left(1000));
        QVERIFY(makeLater(remains));
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        COMPARE_UNCHANGED(before);
    }

    void aCopyThatCouldNotBeOpenedAgainIsNotTakenBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(!copy.isEmpty());
        // The drive is out for a moment, just when the file is opened again.
        const QString unplugged = fixture.file(u"unplugged"_s);
        QVERIFY(QFile::rename(fixture.container(), unplugged));
        QVERIFY(opened(fixture, A).isEmpty());
        QVERIFY(QFile::rename(unplugged, fixture.container()));
        QVERIFY(!QFileInfo::exists(copy) || makeLater(copy));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("line of a\n"));
    }

    void aLocalDiskWithoutRoomGivesNoPath() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(MiB);
        QVERIFY(disk.isMounted());
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"big"_s, noise(2 * MiB));
        VaultFixture fixture(crafted);
        qputenv("TMPDIR", QFile::encodeName(disk.path()));
        VaultManager vault;
        qputenv("TMPDIR", QFile::encodeName(fixture.temporaryFolder()));
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
        QTest::newRow("appending in place")
            << u"echo more >> \"$1\""_s << QByteArray("line of a\nmore\n");
        QTest::newRow("appending twice")
            << u"echo one >> \"$1\"; echo two >> \"$1\""_s << QByteArray("line of a\none\ntwo\n");
        QTest::newRow("truncating and writing") << u"echo new > \"$1\""_s << QByteArray("new\n");
        QTest::newRow("writing a new file and renaming it")
            << u"sed -i s/line/words/ \"$1\""_s << QByteArray("words of a\n");
        QTest::newRow("keeping a backup beside it")
            << u"sed -i.bak s/line/words/ \"$1\""_s << QByteArray("words of a\n");
        QTest::newRow("moving the old one away first")
            << u"mv \"$1\" \"$1~\"; echo new > \"$1\""_s << QByteArray("new\n");
        QTest::newRow("writing beside it and moving it over")
            << u"echo new > \"$1.part\"; mv \"$1.part\" \"$1\""_s << QByteArray("new\n");
        QTest::newRow("lock files and folders beside it")
            << QStringLiteral("d=$(dirname \"$1\"); mkdir \"$d/.tmp\"; : > \"$d/.~lock#\"; "
                              "echo more >> \"$1\"")
            << QByteArray("line of a\nmore\n");
        QTest::newRow("emptying it") << u": > \"$1\""_s << QByteArray();
        QTest::newRow("deleting it") << u"rm \"$1\""_s << QByteArray("line of a\n");
    }
    void editsAreTakenBackWhenTheVaultIsLocked() {
        QFETCH(const QString, editor);
        QFETCH(const QByteArray, expected);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(runEditor(editor, copy));
        const bool deleted = !QFileInfo::exists(copy);
        QVERIFY(deleted || makeLater(copy));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()),
                 deleted ? QStringList() : QStringList(A));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), expected);
        // The rest of the vault is as it was; what the editor left beside the copy is in no vault
        // and, the workspace being new, in no folder either.
        QCOMPARE(fixture.stored(B), QByteArray("line of b\n"));
        QCOMPARE(fixture.filePaths().size(), 3);
        QCOMPARE(fixture.folderPaths(), QStringList(u"docs"_s));
        QVERIFY(QDir(workspaceOf(fixture)).isEmpty());
    }

    void aCopySavedTwiceIsTakenBackTwice() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(runEditor(u"echo one >> \"$1\""_s, copy) && makeLater(copy));
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        QCOMPARE(fixture.stored(A), QByteArray("line of a\none\n"));
        QVERIFY(runEditor(u"echo two >> \"$1\""_s, copy) && makeLater(copy, 4000));
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        QCOMPARE(fixture.stored(A), QByteArray("line of a\none\ntwo\n"));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("line of a\none\ntwo\n"));
    }

    void takingBackStoresTheCopyAsAnyFile() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultFileEntry before = fixture.entry(A);
        const qint64 sizeBefore = QFileInfo(fixture.container()).size();
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "edited"));
        QVERIFY(makeLater(copy));
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        const VaultFileEntry after = fixture.entry(A);
        QVERIFY(after.id != before.id);
        QCOMPARE(after.sizeBytes, 6);
        QCOMPARE(after.lastModifiedUtc, modifiedTime(copy));
        QCOMPARE(QFileInfo(fixture.container()).size(), sizeBefore + 6 + 16);
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
    }

    void aChangedCopyIsTakenBackAtEverySynchronisation() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "edited") && makeLater(copy));
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        const QString first = fixture.entry(A).id;
        // Its record keeps the time of the opening, so it still counts as changed.
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QVERIFY(fixture.vault.syncModifiedTempFiles());
        QVERIFY(fixture.entry(A).id != first);
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

    void onlyChangedCopiesAreTakenBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString idOfB = fixture.entry(B).id;
        const QString copyOfA = opened(fixture, A);
        const QString copyOfB = opened(fixture, B);
        QVERIFY(!opened(fixture, u"c.bin"_s).isEmpty());
        QVERIFY(runEditor(u"echo more >> \"$1\""_s, copyOfA) && makeLater(copyOfA));
        // Put back by a backup program: other bytes, but an earlier time.
        QVERIFY(writeFile(copyOfB, "older") && makeLater(copyOfB, -86400000));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("line of a\nmore\n"));
        QCOMPARE(fixture.stored(B), QByteArray("line of b\n"));
        QCOMPARE(fixture.entry(B).id, idOfB);
        QCOMPARE(fixture.stored(u"c.bin"_s), noise(3000));
    }

    void severalChangedCopiesAreAllTakenBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        for (const QString& path : {A, B, u"c.bin"_s}) {
            const QString copy = opened(fixture, path);
            QVERIFY(writeFile(copy, "edited " + path.toUtf8()) && makeLater(copy));
        }
        QCOMPARE(fixture.vault.modifiedOpenFiles().size(), 3);
        QVERIFY(lockAndUnlock(fixture));
        for (const QString& path : {A, B, u"c.bin"_s}) {
            QCOMPARE(fixture.stored(path), QByteArray("edited " + path.toUtf8()));
        }
        QCOMPARE(fixture.filePaths().size(), 3);
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
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        for (const QString& path : fixture.filePaths()) {
            QVERIFY(!fixture.openAndEdit(path, "edited").isEmpty());
        }
        // They are taken back in the order in which they are listed, which is any.
        const QList<TrackedTempFile> changed = fixture.vault.modifiedOpenFiles();
        QCOMPARE(changed.size(), 5);
        QVERIFY(replaceByLaterFolder(changed.at(failing).tempPath));
        QStringList idsBefore;
        for (const TrackedTempFile& file : changed) {
            idsBefore.append(fixture.entry(file.vaultPath).id);
        }
        QVERIFY(!fixture.vault.syncModifiedTempFiles());
        for (qsizetype i = 0; i < changed.size(); ++i) {
            const QString path = changed.at(i).vaultPath;
            QCOMPARE(fixture.entry(path).id != idsBefore.at(i), i < failing);
            QCOMPARE(fixture.stored(path), QByteArray(i < failing ? "edited" : "as stored"));
        }
        // What was taken back is saved.
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), vaultPathsOf(changed));
    }

    void aFileDeletedFromTheVaultComesBackWithItsEdits() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copyOfA = opened(fixture, A);
        const QString copyOfB = opened(fixture, B);
        QVERIFY(fixture.vault.deleteFile(A) && fixture.vault.deleteFile(B));
        QVERIFY(writeFile(copyOfA, "edited") && makeLater(copyOfA));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
        // The other copy was not changed: it stays deleted.
        QVERIFY(!fixture.filePaths().contains(B));
    }

    // --- One file at a time ----------------------------------------------------------------

    void oneChangedCopyIsTakenBackAndCountsAsUnchanged() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited a");
        QVERIFY(!copy.isEmpty() && !fixture.openAndEdit(B, "edited b").isEmpty());
        QVERIFY(fixture.vault.syncModifiedTempFile(u"/DOCS/a.TXT"_s));
        QCOMPARE(fixture.stored(A), QByteArray("edited a"));
        QCOMPARE(fixture.stored(B), QByteArray("line of b\n"));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(B));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        // The next save counts.
        QVERIFY(writeFile(copy, "edited again") && makeLater(copy, 3600000));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited again"));
        QCOMPARE(fixture.stored(B), QByteArray("edited b"));
    }

    void aFileWithoutAChangedCopyIsLeftAlone() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(!opened(fixture, A).isEmpty());
        const VaultPicture before(fixture);
        QVERIFY(fixture.vault.syncModifiedTempFile(A));
        QVERIFY(fixture.vault.syncModifiedTempFile(B));
        QVERIFY(fixture.vault.syncModifiedTempFile(QString()));
        QVERIFY(fixture.vault.refreshTempFile(B));
        QVERIFY(fixture.vault.refreshTempFile(QString()));
        COMPARE_UNCHANGED(before);
    }

    void oneCopyThatCannotBeTakenBackStaysAsItIs() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited");
        const QDateTime time = modifiedTime(copy);
        // The drive is out for a moment.
        const QString unplugged = fixture.file(u"unplugged"_s);
        QVERIFY(QFile::rename(fixture.container(), unplugged));
        QVERIFY(!fixture.vault.syncModifiedTempFile(A));
        QVERIFY(QFile::rename(unplugged, fixture.container()));
        QCOMPARE(readFile(copy), QByteArray("edited"));
        QCOMPARE(modifiedTime(copy), time);
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

    void anImportOverAnOpenedFileOutlivesTheEditBeforeIt() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "the older edit");
        QVERIFY(fixture.store(u"docs/A.TXT"_s, "imported"));
        QVERIFY(fixture.vault.refreshTempFile(u"docs/A.TXT"_s));
        QCOMPARE(readFile(copy), QByteArray("imported"));
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("imported"));
    }

    void whatIsSavedAfterAnImportStillCounts() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "the older edit");
        QVERIFY(fixture.store(A, "imported"));
        QVERIFY(fixture.vault.refreshTempFile(A));
        QVERIFY(runEditor(u"echo ' and more' >> \"$1\""_s, copy) && makeLater(copy));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("imported and more\n"));
    }

    void aCopyThatCannotBeRefreshedIsNotTakenForANewerEdit() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "the older edit");
        QVERIFY(fixture.store(A, "imported"));
        {
            // The local disk is full.
            const FileSizeLimit limit(0);
            QVERIFY(!fixture.vault.refreshTempFile(A));
        }
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        // Its editor may still save it.
        QVERIFY(writeFile(copy, "saved later") && makeLater(copy));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("saved later"));
    }

    // --- Locking ---------------------------------------------------------------------------

    void aLockThatFailsAgainTakesNothingInTwice() {
        CraftedContainer crafted;
        for (int i = 0; i < 5; ++i) {
            crafted.addFile(QString::number(i), "as stored");
        }
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        for (const QString& path : fixture.filePaths()) {
            QVERIFY(!fixture.openAndEdit(path, "edited").isEmpty());
        }
        const QList<TrackedTempFile> changed = fixture.vault.modifiedOpenFiles();
        const TrackedTempFile& first = changed.constFirst();
        const TrackedTempFile& deleted = changed.at(1);
        const TrackedTempFile& last = changed.constLast();
        QVERIFY(replaceByLaterFolder(last.tempPath));
        QVERIFY(!fixture.vault.lockVault());
        const VaultPicture before(fixture);
        const QString idOfSecond = fixture.entry(changed.at(2).vaultPath).id;
        QVERIFY(!fixture.vault.lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(fixture.vault.modifiedOpenFiles().size(), 5);

        // What was saved again, and what the vault no longer has as it was taken in, is taken in.
        QVERIFY(writeFile(first.tempPath, "edited again") && makeLater(first.tempPath, 3600000));
        QVERIFY(fixture.vault.deleteFile(deleted.vaultPath));
        QVERIFY(!fixture.vault.lockVault());
        QCOMPARE(fixture.stored(first.vaultPath), QByteArray("edited again"));
        QCOMPARE(fixture.stored(deleted.vaultPath), QByteArray("edited"));
        QCOMPARE(fixture.entry(changed.at(2).vaultPath).id, idOfSecond);

        QVERIFY(QDir().rmdir(last.tempPath));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(first.vaultPath), QByteArray("edited again"));
        QCOMPARE(fixture.entry(changed.at(2).vaultPath).id, idOfSecond);
        // The next session starts afresh.
        QVERIFY(!fixture.openAndEdit(first.vaultPath, "in the next session").isEmpty());
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(first.vaultPath), QByteArray("in the next session"));
    }

    void lockingRemovesTheWorkspaceAndForgetsTheCopies() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString workspace = workspaceOf(fixture);
        const QString copy = opened(fixture, A);
        QVERIFY(!copy.isEmpty());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!QFileInfo::exists(workspace));
        QVERIFY(QFileInfo(fixture.temporaryFolder() + u"/Tessel"_s).isDir());
        // A late save of the editor is not the vault's any more.
        QVERIFY(QDir().mkpath(QFileInfo(copy).path()) && writeFile(copy, "late"));
        QVERIFY(makeLater(copy, 3600000));
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!QFileInfo::exists(workspace));
        QVERIFY(fixture.unlock());
        QCOMPARE(workspaceOf(fixture), workspace);
        QCOMPARE(fixture.stored(A), QByteArray("line of a\n"));
    }

    void lockingUnchangedCopiesLeavesTheContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray before = readFile(fixture.container());
        QVERIFY(!opened(fixture, A).isEmpty() && !opened(fixture, B).isEmpty());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(readFile(fixture.container()) == before);
    }

    void aDriveThatTakesNothingKeepsTheVaultOpen() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "edited") && makeLater(copy));
        const VaultPicture before(fixture);
        {
            const ReadOnlyMount drive(fixture.driveFolder());
            QVERIFY(drive.isMounted());
            QVERIFY(!fixture.vault.syncModifiedTempFiles());
            QVERIFY(!fixture.vault.lockVault());
            COMPARE_UNCHANGED(before);
        }
        // Nothing is lost: the copy waits for another try.
        QCOMPARE(readFile(copy), QByteArray("edited"));
        QCOMPARE(vaultPathsOf(fixture.vault.modifiedOpenFiles()), QStringList(A));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

    void aFullDriveKeepsTheVaultOpen() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(16 * MiB);
        QVERIFY(disk.isMounted());
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.moveContainerTo(disk.filePath(u"tessel.tvlt"_s)));
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, noise(100000)) && makeLater(copy));
        QVERIFY(disk.fillUpTo(8192));
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.lockVault());
        COMPARE_UNCHANGED(before);
        QVERIFY(QFile::remove(disk.filePath(u"filler"_s)));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), noise(100000));
        QVERIFY(fixture.vault.lockVault());
    }

    void oneCopyThatCannotBeReadKeepsTheVaultOpen() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copyOfA = opened(fixture, A);
        const QString copyOfB = opened(fixture, B);
        QVERIFY(writeFile(copyOfA, "edited a") && makeLater(copyOfA));
        // An editor that makes a folder of it: it exists, and is later.
        QVERIFY(replaceByLaterFolder(copyOfB));
        QVERIFY(!fixture.vault.lockVault());
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QCOMPARE(fixture.stored(B), QByteArray("line of b\n"));
        QVERIFY(QFileInfo::exists(copyOfA));
        QCOMPARE(fixture.vault.modifiedOpenFiles().size(), 2);
        // Put right, it locks.
        QVERIFY(QDir().rmdir(copyOfB));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("edited a"));
        QCOMPARE(fixture.stored(B), QByteArray("line of b\n"));
    }

    void aLinkInACopysPlaceIsNotTakenBack_data() {
        QTest::addColumn<QString>("link");
        QTest::newRow("the copy") << A;
        QTest::newRow("its folder") << u"docs"_s;
    }
    void aLinkInACopysPlaceIsNotTakenBack() {
        QFETCH(const QString, link);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(!copy.isEmpty());
        const QString linkPath = workspaceOf(fixture) + QLatin1Char('/') + link;
        const QString outside = fixture.file(u"outside"_s);
        QVERIFY(QDir().rename(linkPath, outside) && QFile::link(outside, linkPath));
        QVERIFY(writeFile(copy, "not the vault's") && makeLater(copy));
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.lockVault());
        COMPARE_UNCHANGED(before);
        // Without the link it locks; what the link led to is as it was.
        QVERIFY(QFile::remove(linkPath));
        QVERIFY(fixture.vault.lockVault());
        const QString file = link == A ? outside : outside + u"/a.txt"_s;
        QCOMPARE(readFile(file), QByteArray("not the vault's"));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("line of a\n"));
    }

    void aWorkspaceThatCannotBeRemovedIsReportedAndTheVaultLocked() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = opened(fixture, A);
        QVERIFY(writeFile(copy, "edited") && makeLater(copy));
        {
            const PinnedFile pinned(copy);
            QVERIFY(pinned.isMounted());
            QVERIFY(!fixture.vault.lockVault());
        }
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QCOMPARE(fixture.stored(A), QByteArray("(refused)"));
        QVERIFY(QFileInfo::exists(copy));
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

    void anAbandonedSessionLeavesTheCopyAndTheContainer() {
        // Only locking takes copies back and removes them: a program that just ends loses no edit.
        VaultFixture fixture(usedContainer());
        const QByteArray before = readFile(fixture.container());
        QString copy;
        {
            VaultManager session;
            QVERIFY(session.unlockVault(fixture.container(), TestPassword));
            QVERIFY(session.prepareFileForEditing(A, &copy));
            QVERIFY(writeFile(copy, "edited") && makeLater(copy));
            QCOMPARE(vaultPathsOf(session.modifiedOpenFiles()), QStringList(A));
        }
        QCOMPARE(readFile(copy), QByteArray("edited"));
        QVERIFY(readFile(fixture.container()) == before);
    }

    void aFullFlowWithARealKeyKeepsTheEdits() {
        VaultFixture fixture;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.store(A, "line of a\n"));
        const QString copy = opened(fixture, A);
        QVERIFY(runEditor(u"sed -i s/line/words/ \"$1\""_s, copy) && makeLater(copy));
        QVERIFY(lockAndUnlock(fixture));
        QCOMPARE(fixture.stored(A), QByteArray("words of a\n"));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestOpenedCopies>);
#include "test_opened_copies.moc"
