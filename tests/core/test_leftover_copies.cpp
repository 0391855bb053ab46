// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/WorkspaceLeftovers.h"
#include "support/Files.h"
#include "support/KilledRun.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

#include <memory>

#include <fcntl.h>
#include <sys/stat.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString A = u"docs/a.txt"_s;
const QString B = u"b.txt"_s;
const QString Workspace = u"0f8fad5b-d9cb-469f-a165-70867728950e"_s;

CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(A, "line of a\n").addFile(B, "line of b\n");
    return crafted;
}

/// What a run does before it is killed: opens both files.
bool openBoth(VaultFixture& fixture) {
    QString copy;
    return fixture.unlock() && fixture.vault.prepareFileForEditing(A, &copy) &&
           fixture.vault.prepareFileForEditing(B, &copy);
}

/// As a program that starts: clears what is left. @return the folders of which the user is told.
QStringList start() {
    WorkspaceLeftovers leftovers;
    leftovers.clear();
    const QStringList folders = leftovers.untoldFolders();
    leftovers.markTold();
    return folders;
}

timespec nanosecondsAfter(timespec time, int nanoseconds) {
    constexpr qint64 SecondNs = 1000000000;
    const qint64 sum = time.tv_sec * SecondNs + time.tv_nsec + nanoseconds;
    return {sum / SecondNs, sum % SecondNs};
}

} // namespace

class TestLeftoverCopies : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<VaultFixture> m_fixture;

    [[nodiscard]] QDir runs() const { return QDir(m_fixture->temporaryFolder() + u"/Tessel"_s); }
    /// Everything in "Tessel", notes included.
    [[nodiscard]] QStringList left() const {
        return runs().entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                QDir::NoDotAndDotDot);
    }
    /// The only workspace.
    [[nodiscard]] QString workspace() const {
        const QStringList folders = runs().entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        return folders.size() == 1 ? runs().filePath(folders.first()) : QString();
    }
    [[nodiscard]] QString inWorkspace(const QString& name) const {
        return workspace() + QLatin1Char('/') + name;
    }
    /// A workspace that no run made, and its note.
    [[nodiscard]] bool plant(const QByteArray& note) const {
        return QDir().mkpath(runs().filePath(Workspace)) &&
               writeFile(runs().filePath(Workspace + u"/a"_s), "bytes") &&
               writeFile(notePath(), note);
    }
    [[nodiscard]] QString notePath() const { return runs().filePath(u".%1.lock"_s.arg(Workspace)); }

private Q_SLOTS:
    void init() { m_fixture = std::make_unique<VaultFixture>(usedContainer()); }
    // Before the next one, which would be made inside of it.
    void cleanup() { m_fixture.reset(); }

    void aVaultThatIsNeverOpenedMakesNothing() {
        {
            const VaultManager vault;
            QCOMPARE(start(), QStringList());
        }
        QCOMPARE(m_fixture->temporaryNames(), QStringList());
    }

    void unchangedCopiesOfAKilledRunAreRemoved() {
        KilledRun run([this] { return openBoth(*m_fixture); });
        QVERIFY(run.isReady());
        QCOMPARE(readFile(inWorkspace(A)), "line of a\n"_ba);
        run.kill();
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), QStringList());
    }

    void aRunThatLivesIsLeftAlone() {
        KilledRun run([this] { return openBoth(*m_fixture); });
        QVERIFY(run.isReady());
        QCOMPARE(start(), QStringList());
        QCOMPARE(readFile(inWorkspace(A)), "line of a\n"_ba);
        QCOMPARE(readFile(inWorkspace(B)), "line of b\n"_ba);
    }

    void changedCopiesStayAndAreToldOfOnce() {
        KilledRun run([this] {
            return openBoth(*m_fixture) && !m_fixture->openAndEdit(A, "edited").isEmpty();
        });
        QVERIFY(run.isReady());
        run.kill();
        const QString folder = workspace();
        QCOMPARE(start(), QStringList(folder));
        QCOMPARE(readFile(folder + QLatin1Char('/') + A), "edited"_ba);
        QVERIFY(!QFileInfo::exists(folder + QLatin1Char('/') + B));
        QCOMPARE(start(), QStringList());
        QCOMPARE(readFile(folder + QLatin1Char('/') + A), "edited"_ba);
        // Once the user has removed the folder, its note goes too.
        QVERIFY(QDir(folder).removeRecursively());
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), QStringList());
    }

    void aCopyOfTheSameSizeOrTimeIsChangedAllTheSame_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("laterNs");
        QTest::newRow("same size, a nanosecond later") << "LINE OF A\n"_ba << 1;
        QTest::newRow("same size, a nanosecond earlier") << "LINE OF A\n"_ba << -1;
        QTest::newRow("other size, same time") << "shorter"_ba << 0;
    }
    void aCopyOfTheSameSizeOrTimeIsChangedAllTheSame() {
        QFETCH(const QByteArray, bytes);
        QFETCH(const int, laterNs);
        KilledRun run([this] { return openBoth(*m_fixture); });
        QVERIFY(run.isReady());
        run.kill();
        const QString copy = inWorkspace(A);
        const QByteArray path = QFile::encodeName(copy);
        struct stat made = {};
        QCOMPARE(::stat(path.constData(), &made), 0);
        QVERIFY(writeFile(copy, bytes));
        const timespec times[] = {made.st_mtim, nanosecondsAfter(made.st_mtim, laterNs)};
        QCOMPARE(::utimensat(AT_FDCWD, path.constData(), times, 0), 0);
        QCOMPARE(start().size(), 1);
        QCOMPARE(readFile(copy), bytes);
    }

    void whatTheVaultHasTakenBackIsRemoved() {
        KilledRun run([this] {
            return openBoth(*m_fixture) && !m_fixture->openAndEdit(A, "edited").isEmpty() &&
                   m_fixture->vault.syncModifiedTempFiles();
        });
        QVERIFY(run.isReady());
        run.kill();
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), QStringList());
        QVERIFY(m_fixture->unlock());
        QCOMPARE(m_fixture->stored(A), "edited"_ba);
        QVERIFY(m_fixture->vault.lockVault());
    }

    void filesThatNoRunHasNotedStay() {
        KilledRun run(
            [this] { return openBoth(*m_fixture) && writeFile(inWorkspace(u"docs/new"_s), "x"); });
        QVERIFY(run.isReady());
        run.kill();
        const QString folder = workspace();
        QCOMPARE(start(), QStringList(folder));
        QCOMPARE(readFile(folder + u"/docs/new"_s), "x"_ba);
        QVERIFY(!QFileInfo::exists(folder + QLatin1Char('/') + A));
    }

    void linksInALeftoverAreRemovedAndNotFollowed() {
        const QString outside = m_fixture->file(u"outside"_s);
        QVERIFY(QDir().mkdir(outside));
        QVERIFY(writeFile(outside + u"/a.txt"_s, "not the vault's"));
        KilledRun run([&] {
            return openBoth(*m_fixture) && QDir(inWorkspace(u"docs"_s)).removeRecursively() &&
                   QFile::link(outside, inWorkspace(u"docs"_s));
        });
        QVERIFY(run.isReady());
        run.kill();
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), QStringList());
        QCOMPARE(readFile(outside + u"/a.txt"_s), "not the vault's"_ba);
    }

    void aSessionOfThisProcessIsNoEarlierRun() {
        QString copy;
        {
            VaultManager vault;
            QVERIFY(vault.unlockVault(m_fixture->container(), TestPassword));
            QVERIFY(vault.prepareFileForEditing(A, &copy));
        }
        QCOMPARE(start(), QStringList());
        QCOMPARE(readFile(copy), "line of a\n"_ba);
    }

    void lockingLeavesNothing() {
        QVERIFY(openBoth(*m_fixture));
        QCOMPARE(left().size(), 2);
        QVERIFY(m_fixture->vault.lockVault());
        QCOMPARE(left(), QStringList());
    }

    void aCopyThatWasNotFinishedIsRemoved() {
        QVERIFY(plant("unfinished a\n"));
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), QStringList());
    }

    void aNoteThatTellsNothingUsefulKeepsTheCopy_data() {
        QTest::addColumn<QByteArray>("note");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("another file") << "unfinished b\n"_ba;
        QTest::newRow("a line cut short") << "unfinished a"_ba;
        QTest::newRow("no numbers") << "copy x y a\n"_ba;
        QTest::newRow("numbers too large") << "copy 99999999999999999999999 5 a\n"_ba;
        QTest::newRow("up and back") << "unfinished ../"_ba + Workspace.toLatin1() + "/a\n";
        QTest::newRow("absolute") << "unfinished /a\n"_ba;
        QTest::newRow("too many words") << "unfinished a b c d e f\n"_ba;
        QTest::newRow("only blanks") << QByteArray(1048576, ' ') + "\nunfinished\n";
        QTest::newRow("zero bytes") << QByteArray(1048576, '\0') + "\n";
        QTest::newRow("larger than any note")
            << "unfinished a\n"_ba + QByteArray(5 * 1048576, '\n');
        QTest::newRow("many names") << "unfinished b\n"_ba.repeated(100000);
    }
    void aNoteThatTellsNothingUsefulKeepsTheCopy() {
        QFETCH(const QByteArray, note);
        QVERIFY(plant(note));
        const QString folder = runs().filePath(Workspace);
        const PeakMemory memory;
        QCOMPARE(start(), QStringList(folder));
        QVERIFY2(memory.growth() < 128 * 1048576, qPrintable(QString::number(memory.growth())));
        QCOMPARE(readFile(folder + u"/a"_s), "bytes"_ba);
    }

    void aNoteNeverLeadsOutOfItsFolder() {
        const QString outside = runs().filePath(u"outside"_s);
        QVERIFY(plant("unfinished ../outside\nunfinished " + QFile::encodeName(outside) + "\n"));
        QVERIFY(writeFile(outside, "not the vault's"));
        QCOMPARE(start().size(), 1);
        QCOMPARE(readFile(outside), "not the vault's"_ba);
    }

    void whatIsNoNoteOfOursIsLeftAlone_data() {
        QTest::addColumn<QString>("command");
        QTest::newRow("a link") << u"mv \"$1\" note; ln -s note \"$1\""_s;
        QTest::newRow("a second name") << u"ln \"$1\" note"_s;
        QTest::newRow("a pipe") << u"rm \"$1\"; mkfifo \"$1\""_s;
        QTest::newRow("a folder") << u"rm \"$1\"; mkdir \"$1\""_s;
        QTest::newRow("another name") << u"mv \"$1\" .x.lock"_s;
        QTest::newRow("none") << u"rm \"$1\""_s;
        QTest::newRow("the workspace is a link")
            << u"mv \"$2\" elsewhere; ln -s elsewhere \"$2\""_s;
    }
    void whatIsNoNoteOfOursIsLeftAlone() {
        QFETCH(const QString, command);
        QVERIFY(plant("unfinished a\n"));
        const QString folder = runs().filePath(Workspace);
        QCOMPARE(QProcess::execute(u"sh"_s, {u"-ec"_s, u"cd \"$0\"; "_s + command, runs().path(),
                                             notePath(), folder}),
                 0);
        const QStringList before = left();
        QCOMPARE(start(), QStringList());
        QCOMPARE(left(), before);
        QCOMPARE(readFile(folder + u"/a"_s), "bytes"_ba);
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestLeftoverCopies>);
#include "test_leftover_copies.moc"
