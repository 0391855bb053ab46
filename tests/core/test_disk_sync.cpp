// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// When an operation reports success its bytes are on the drive, under a name that is found again.
// A drive often tells of a lost write only when it is asked to sync, and tells it once.

#include "DriverRun.h"
#include "VaultFixture.h"
#include "core/ContainerManager.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;

namespace {

const QString A = QStringLiteral("docs/a.txt");
const QString B = QStringLiteral("b.bin");

/// An import of two blocks, the second one short: for that one it waits until the drive has what
/// was written earlier.
QByteArray sourceBytes() {
    return noise(VaultManager::ChunkBytes + 1000);
}

CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(QStringLiteral("docs")).addFile(A, "contents of a").leaveGap(100);
    return crafted;
}

/// One operation on a vault of its own, in another process.
struct Operation {
    explicit Operation(const QString& name) : fixture(usedContainer()) {
        if (name == QLatin1String("import")) {
            arguments = {fixture.write(QStringLiteral("source"), sourceBytes()), B};
        } else if (name == QLatin1String("export")) {
            arguments = {A, fixture.file(QStringLiteral("out"))};
        } else if (name == QLatin1String("delete")) {
            arguments = {A};
        }
        arguments =
            QStringList{fixture.container(), QString::fromUtf8(TestPassword), name} + arguments;
    }

    /// A path in the words of the tables below.
    [[nodiscard]] QString path(const QString& place) const {
        const QMap<QString, QString> places{
            {QStringLiteral("container"), fixture.container()},
            {QStringLiteral("drive"), fixture.driveFolder()},
            {QStringLiteral("temporary folder"), fixture.temporaryFolder()},
            {QStringLiteral("exported file"), fixture.file(QStringLiteral("out"))},
            {QStringLiteral("its folder"), QFileInfo(fixture.file(QStringLiteral("out"))).path()}};
        return places.value(place);
    }
    [[nodiscard]] DriverRun run(const QString& place, const QString& injection) const {
        return runDriver(arguments, path(place), {injection});
    }
    [[nodiscard]] QStringList calls(const QString& names) const {
        return callsOfDriver(arguments, names);
    }

    VaultFixture fixture;
    QStringList arguments;
};

void addColumns() {
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("place");
    QTest::addColumn<QString>("call");
}

void addRow(const QString& operation, const QString& place, const QString& call) {
    QTest::addRow("%s: %s, %s", qPrintable(operation), qPrintable(call), qPrintable(place))
        << operation << place << call;
}

/// Every kind of sync that the engine asks for, once.
void addSyncs() {
    addRow(QStringLiteral("export"), QStringLiteral("exported file"), QStringLiteral("fdatasync"));
    addRow(QStringLiteral("export"), QStringLiteral("its folder"), QStringLiteral("fsync"));
    addRow(QStringLiteral("import"), QStringLiteral("container"), QStringLiteral("fdatasync"));
    addRow(QStringLiteral("import"), QStringLiteral("container"),
           QStringLiteral("sync_file_range"));
    addRow(QStringLiteral("create"), QStringLiteral("container"), QStringLiteral("fsync"));
    addRow(QStringLiteral("compact"), QStringLiteral("temporary folder"), QStringLiteral("fsync"));
    addRow(QStringLiteral("compact"), QStringLiteral("drive"), QStringLiteral("fsync"));
}

/// The position of the first call that looks like this, from a position on; -1 when there is none.
qsizetype find(const QStringList& calls, const QString& pattern, qsizetype from = 0) {
    return calls.indexOf(QRegularExpression(QStringLiteral(".*") + pattern + QStringLiteral(".*")),
                         from);
}

QString escaped(const QString& path) {
    return QRegularExpression::escape(QFileInfo(path).canonicalFilePath());
}

} // namespace

class TestDiskSync : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- Syncs that fail --------------------------------------------------------------------

    void aSyncThatFailsIsAFailure_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("injection");
        const auto row = [](const char* operation, const char* place, const char* injection) {
            QTest::addRow("%s: %s, %s", operation, injection, place)
                << QString::fromLatin1(operation) << QString::fromLatin1(place)
                << QString::fromLatin1(injection);
        };
        row("export", "exported file", "fdatasync:error=EIO");
        row("export", "exported file", "fdatasync:error=ENOSPC");
        row("export", "its folder", "fsync:error=EIO");
        row("export", "its folder", "openat:error=EMFILE");
        row("import", "container", "sync_file_range:error=EIO:when=1");
        row("import", "container", "sync_file_range:error=EIO:when=2");
        // Told only while waiting for what was written earlier.
        row("import", "container", "sync_file_range:error=EIO:when=3");
        // The first sync of a change only asks for errors of an earlier time.
        row("import", "container", "fdatasync:error=EIO:when=2");
        row("import", "container", "fdatasync:error=EIO:when=3");
        row("import", "container", "fdatasync:error=EIO:when=1+");
        row("delete", "container", "fdatasync:error=EIO:when=2");
        row("delete", "container", "fdatasync:error=EIO:when=3");
        row("delete", "container", "fdatasync:error=EIO:when=1+");
        row("compact", "", "fdatasync:error=EIO:when=2");
        row("compact", "", "fsync:error=EIO:when=1");
        row("compact", "", "fsync:error=EIO:when=2");
        row("compact", "temporary folder", "fsync:error=EIO");
        // Unlocking opens it, and so does the look for what an earlier compaction left.
        row("compact", "temporary folder", "openat:error=EMFILE:when=5");
        row("compact", "container", "fdatasync:error=EIO:when=2");
        row("compact", "drive", "fsync:error=EIO:when=1");
        row("compact", "drive", "fsync:error=EIO:when=2");
        row("compact", "drive", "openat:error=EMFILE");
    }
    void aSyncThatFailsIsAFailure() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        const Operation vault(operation);
        const VaultPicture before(vault.fixture);
        const DriverRun run = vault.run(place, injection);
        QVERIFY(run.refused());
        QCOMPARE(run.text(), QString());
        COMPARE_UNCHANGED(before);
        QVERIFY(QDir(vault.fixture.temporaryFolder())
                    .entryList({QStringLiteral("Tessel-compact-*")}, QDir::AllEntries)
                    .isEmpty());
    }

    void aCopyBackThatTheDriveDoesNotTakeKeepsTheRebuiltContainer_data() {
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("injection");
        QTest::newRow("first piece")
            << QStringLiteral("container") << QStringLiteral("sync_file_range:error=EIO:when=1");
        QTest::newRow("last piece")
            << QStringLiteral("container") << QStringLiteral("sync_file_range:error=EIO:when=2");
        QTest::newRow("an earlier piece")
            << QStringLiteral("container") << QStringLiteral("sync_file_range:error=EIO:when=3");
        // The first ones are for the old container.
        QTest::newRow("file") << QStringLiteral("container")
                              << QStringLiteral("fdatasync:error=EIO:when=3");
        QTest::newRow("magic") << QStringLiteral("container")
                               << QStringLiteral("fdatasync:error=EIO:when=4");
    }
    void aCopyBackThatTheDriveDoesNotTakeKeepsTheRebuiltContainer() {
        QFETCH(const QString, place);
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        Operation vault(QStringLiteral("compact"));
        const DriverRun run = vault.run(place, injection);
        QVERIFY(run.refused());
        QVERIFY(!QFileInfo::exists(vault.fixture.container()));
        QVERIFY(vault.fixture.vault.unlockVault(run.text(), TestPassword));
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
    }

    void aCopyIsNotDeletedBecauseOfItsFolder_data() {
        QTest::addColumn<QString>("injection");
        // The folder is synced before the old container is set aside, and twice after that.
        QTest::newRow("sync") << QStringLiteral("fsync:error=EIO:when=4");
        QTest::newRow("opened") << QStringLiteral("openat:error=EMFILE:when=4");
    }
    void aCopyIsNotDeletedBecauseOfItsFolder() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        Operation vault(QStringLiteral("compact"));
        const DriverRun run = vault.run(QStringLiteral("drive"), injection);
        QVERIFY(run.refused());
        QVERIFY(vault.fixture.unlock());
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
        QVERIFY(vault.fixture.vault.lockVault());
        QVERIFY(vault.fixture.vault.unlockVault(run.text(), TestPassword));
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
    }

    void anErrorThatIsToldTwiceFailsOneChange_data() {
        QTest::addColumn<QString>("operation");
        QTest::newRow("import") << QStringLiteral("import");
        QTest::newRow("delete") << QStringLiteral("delete");
    }
    void anErrorThatIsToldTwiceFailsOneChange() {
        // What a drive lost is told by the next sync of the file, and by the one after that when
        // its place on the drive was lost as well. The drive itself is well again by then.
        QFETCH(const QString, operation);
        NEEDS_TRACING();
        qputenv("TESSEL_TRY_AGAIN", "1");
        const auto unset = qScopeGuard([] { qunsetenv("TESSEL_TRY_AGAIN"); });
        for (int first = 1; first <= 4; ++first) {
            Operation vault(operation);
            const DriverRun run = vault.run(
                QStringLiteral("container"),
                QStringLiteral("fdatasync:error=EIO:when=%1..%2").arg(first).arg(first + 1));
            const QString again = run.said.value(QStringLiteral("again"));
            QVERIFY2(run.succeeded() || again == QLatin1String("true"),
                     qPrintable(QString::number(first)));
            QVERIFY(vault.fixture.unlock());
            QCOMPARE(vault.fixture.folderPaths().contains(QStringLiteral("depois")),
                     !run.succeeded());
            QVERIFY(vault.fixture.vault.createDirectory(QStringLiteral("tambem")));
        }
    }

    // --- Syncs that are none ----------------------------------------------------------------

    void whatAFileSystemDoesNotKnowIsNoFailure_data() {
        addColumns();
        addSyncs();
    }
    void whatAFileSystemDoesNotKnowIsNoFailure() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, call);
        NEEDS_TRACING();
        for (const char* error : {"EINVAL", "ENOSYS", "EOPNOTSUPP", "ENOTTY"}) {
            const QString injection = call + QStringLiteral(":error=") + QLatin1String(error);
            QVERIFY2(Operation(operation).run(place, injection).succeeded(), qPrintable(injection));
        }
    }

    void aSyncThatIsInterruptedIsAskedForAgain_data() {
        addColumns();
        addSyncs();
        addRow(QStringLiteral("export"), QStringLiteral("its folder"), QStringLiteral("openat"));
    }
    void aSyncThatIsInterruptedIsAskedForAgain() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, call);
        NEEDS_TRACING();
        const QString interrupted = call + QStringLiteral(":error=EINTR:when=1");
        QVERIFY(Operation(operation).run(place, interrupted).succeeded());
    }

    void aFolderThatMayNotBeListedTakesFiles() {
        VaultFixture fixture(usedContainer());
        const QFile::Permissions enterOnly =
            QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
        const QStringList folders{fixture.driveFolder(), fixture.temporaryFolder(),
                                  QFileInfo(fixture.file(QStringLiteral("out"))).path()};
        const QString source = fixture.write(QStringLiteral("source"), "contents of b");
        const ObeyPermissions obey;
        const auto restore = qScopeGuard([&] {
            for (const QString& folder : folders) {
                QFile::setPermissions(folder, enterOnly | QFile::ReadOwner);
            }
        });
        for (const QString& folder : folders) {
            QVERIFY(QFile::setPermissions(folder, enterOnly));
            QVERIFY2(QDir(folder).entryList(QDir::Files).isEmpty(), "the folder can be listed");
        }
        // Nobody who may not list it can sync it, and that is no reason to refuse.
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.importFile(source, B));
        QVERIFY(fixture.vault.exportFile(B, fixture.file(QStringLiteral("out"))));
        QCOMPARE(readFile(fixture.file(QStringLiteral("out"))), QByteArray("contents of b"));
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        QVERIFY(ContainerManager().writeContainer(fixture.driveFolder() + QStringLiteral("/copy"),
                                                  readFile(fixture.container())));
    }

    // --- Their order ------------------------------------------------------------------------

    void theRebuiltContainerCanBeFoundBeforeTheOldOneGoes() {
        NEEDS_TRACING();
        const Operation vault(QStringLiteral("compact"));
        const QString temporary = escaped(vault.fixture.temporaryFolder());
        const QString drive = escaped(vault.fixture.driveFolder());
        const QStringList calls =
            vault.calls(QStringLiteral("write,fdatasync,fsync,unlink,rename,renameat2,linkat"));
        const QString rebuilt = temporary + QStringLiteral("/Tessel-compact-[^/]*");
        const QString aside = drive + QStringLiteral("/tessel.tvlt.anterior");
        // Each of these calls follows the one before it.
        const QStringList order{
            QStringLiteral("fdatasync\\(\\d+<") + rebuilt + QLatin1Char('/'),
            QStringLiteral("(linkat|rename).*/tessel.tvlt"),
            QStringLiteral("fsync\\(\\d+<") + rebuilt + QLatin1Char('>'),
            QStringLiteral("fsync\\(\\d+<") + temporary + QLatin1Char('>'),
            QStringLiteral("fdatasync\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>"),
            QStringLiteral("fsync\\(\\d+<") + drive + QLatin1Char('>'),
            QStringLiteral("renameat2\\(.*") + drive + QStringLiteral("/tessel.tvlt\", .*") + aside,
            QStringLiteral("fsync\\(\\d+<") + aside,
            QStringLiteral("fsync\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>"),
            QStringLiteral("fsync\\(\\d+<") + drive + QLatin1Char('>'),
            QStringLiteral("write\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>, \"0000"),
            QStringLiteral("fdatasync\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>"),
            QStringLiteral("write\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>, \"TESSEL3\""),
            QStringLiteral("fdatasync\\(\\d+<") + drive + QStringLiteral("/tessel.tvlt>"),
            QStringLiteral("fsync\\(\\d+<") + drive + QLatin1Char('>'),
            QStringLiteral("unlink\\(\"") + aside,
            QStringLiteral("fsync\\(\\d+<") + drive + QLatin1Char('>'),
            QStringLiteral("unlink\\(\"") + rebuilt};
        qsizetype at = -1;
        for (const QString& call : order) {
            at = find(calls, call, at + 1);
            QVERIFY2(at >= 0, qPrintable(call + QLatin1Char('\n') + calls.join(QLatin1Char('\n'))));
        }
        // Nothing else is renamed or removed on the drive.
        QCOMPARE(calls
                     .filter(QRegularExpression(QStringLiteral("(rename|renameat2|unlink)\\(.*") +
                                                drive))
                     .size(),
                 2);
    }

    void importedBlocksAreSyncedWhileTheirFileIsOpen() {
        // Once nobody has the file open, the kernel may forget that it could not write a block.
        NEEDS_TRACING();
        const Operation vault(QStringLiteral("import"));
        const QString container = escaped(vault.fixture.container());
        const QStringList calls = vault.calls(QStringLiteral("write,pwrite64,fdatasync,close"));
        const qsizetype block = find(calls, QStringLiteral("write\\(\\d+<") + container);
        QVERIFY(block >= 0);
        const QRegularExpression descriptor(QStringLiteral("write\\((\\d+)<"));
        const QString number = descriptor.match(calls.at(block)).captured(1);
        const qsizetype synced =
            find(calls, QStringLiteral("fdatasync\\(\\d+<") + container + QStringLiteral(".* = 0"),
                 block);
        const qsizetype closed =
            find(calls, QStringLiteral("close\\(") + number + QLatin1Char('<') + container, block);
        const qsizetype header = find(
            calls, QStringLiteral("[^p]write\\(\\d+<") + container + QStringLiteral(".*, \"0{10}"),
            block);
        QVERIFY2(synced > block && header > synced && closed > header,
                 qPrintable(calls.join(QLatin1Char('\n'))));
    }

    // --- Closing ----------------------------------------------------------------------------

    void aCloseThatFailsComesAfterEverySync_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("place");
        QTest::newRow("import") << QStringLiteral("import") << QStringLiteral("container");
        QTest::newRow("delete") << QStringLiteral("delete") << QStringLiteral("container");
        QTest::newRow("compact") << QStringLiteral("compact") << QStringLiteral("container");
        QTest::newRow("export") << QStringLiteral("export") << QStringLiteral("exported file");
    }
    void aCloseThatFailsComesAfterEverySync() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        NEEDS_TRACING();
        const Operation rehearsal(operation);
        const QString closing =
            QStringLiteral("close\\(\\d+<") + QRegularExpression::escape(rehearsal.path(place));
        const QStringList calls =
            rehearsal.calls(QStringLiteral("close")).filter(QRegularExpression(closing));
        QVERIFY(!calls.isEmpty());
        for (int which = 1; which <= calls.size(); ++which) {
            Operation vault(operation);
            const DriverRun run =
                vault.run(place, QStringLiteral("close:error=EIO:when=%1").arg(which));
            // What was synced is on the drive, whatever closing says.
            QVERIFY2(run.succeeded(), qPrintable(QString::number(which)));
            QVERIFY(vault.fixture.unlock());
            const bool deleted = operation == QLatin1String("delete");
            QCOMPARE(vault.fixture.stored(A), QByteArray(deleted ? "(refused)" : "contents of a"));
            if (operation == QLatin1String("import")) {
                QVERIFY(vault.fixture.stored(B) == sourceBytes());
            }
            if (operation == QLatin1String("export")) {
                QCOMPARE(readFile(vault.path(place)), QByteArray("contents of a"));
            }
        }
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestDiskSync>);
#include "test_disk_sync.moc"
