// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// When an operation reports success its bytes are on the drive, under a name that is found again.
// A drive often tells of a lost write only when it is asked to sync, and tells it once.

#include "core/ContainerManager.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString A = u"docs/a.txt"_s;
const QString B = u"b.bin"_s;

/// An import of two blocks, the second one short: for that one it waits until the drive has what
/// was written earlier.
QByteArray sourceBytes() {
    return noise(VaultManager::ChunkBytes + 1000);
}

CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(A, "contents of a").leaveGap(100);
    return crafted;
}

/// One operation on a vault of its own, in another process.
struct Operation {
    explicit Operation(const QString& name) : fixture(usedContainer()) {
        if (name == "import"_L1) {
            arguments = {fixture.write(u"source"_s, sourceBytes()), B};
        } else if (name == "export"_L1) {
            arguments = {A, fixture.file(u"out"_s)};
        } else if (name == "delete"_L1) {
            arguments = {A};
        }
        arguments =
            QStringList{fixture.container(), QString::fromUtf8(TestPassword), name} + arguments;
    }

    /// A path in the words of the tables below.
    [[nodiscard]] QString path(const QString& place) const {
        const QMap<QString, QString> places{
            {u"container"_s, fixture.container()},
            {u"drive"_s, fixture.driveFolder()},
            {u"temporary folder"_s, fixture.temporaryFolder()},
            {u"exported file"_s, fixture.file(u"out"_s)},
            {u"its folder"_s, QFileInfo(fixture.file(u"out"_s)).path()}};
        return places.value(place);
    }
    [[nodiscard]] ToolRun run(const QString& place, const QString& injection) const {
        return runTool(arguments, path(place), {injection});
    }
    [[nodiscard]] QStringList calls(const QString& names) const {
        return callsOfTool(arguments, names);
    }

    VaultFixture fixture;
    QStringList arguments;
};

/// The position of the first call that looks like this, from a position on; -1 when there is none.
qsizetype find(const QStringList& calls, const QString& pattern, qsizetype from = 0) {
    return calls.indexOf(QRegularExpression(u".*"_s + pattern + u".*"_s), from);
}

QString escaped(const QString& path) {
    return QRegularExpression::escape(QFileInfo(path).canonicalFilePath());
}

} // namespace

class TestDiskSync : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // For the other process.
    void initTestCase() { qputenv("TESSEL_CHEAP_DERIVATION", "1"); }

    // --- Syncs that fail: tests/faults/failing_calls.py fails each of them, these say the rest ---

    void whatCannotBeSyncedBeforehandChangesNothing_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("injection");
        QTest::newRow("export") << u"export"_s << u"its folder"_s << u"openat:error=EMFILE"_s;
        QTest::newRow("compact") << u"compact"_s << u"drive"_s << u"openat:error=EMFILE"_s;
        // What the drive says of earlier writes comes before the old container goes.
        QTest::newRow("old container")
            << u"compact"_s << u"container"_s << u"fdatasync:error=EIO:when=2"_s;
    }
    void whatCannotBeSyncedBeforehandChangesNothing() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        const Operation vault(operation);
        const VaultPicture before(vault.fixture);
        const ToolRun run = vault.run(place, injection);
        QVERIFY(run.refused());
        QCOMPARE(run.text(), QString());
        COMPARE_UNCHANGED(before);
    }

    void theOnlyContainerStaysWhenItsFolderCannotBeSynced() {
        NEEDS_TRACING();
        NEEDS_PRIVATE_MOUNTS();
        Operation vault(u"compact"_s);
        const SmallDisk drive(12 * MiB);
        const QString container = drive.filePath(u"tessel.tvlt"_s);
        QVERIFY(vault.fixture.moveContainerTo(container) && drive.fillUpTo(MiB));
        const VaultPicture before(vault.fixture);
        vault.arguments.front() = container;
        const ToolRun run =
            runTool(vault.arguments, QFileInfo(container).path(), {u"fsync:error=EIO:when=1"_s});
        QVERIFY(run.refused());
        COMPARE_UNCHANGED(before);
    }

    void aCopyBackThatTheDriveDoesNotTakeKeepsTheRebuiltContainer_data() {
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("injection");
        QTest::newRow("first piece") << u"container"_s << u"sync_file_range:error=EIO:when=1"_s;
        QTest::newRow("last piece") << u"container"_s << u"sync_file_range:error=EIO:when=2"_s;
        QTest::newRow("an earlier piece")
            << u"container"_s << u"sync_file_range:error=EIO:when=3"_s;
        // The first ones are for the old container.
        QTest::newRow("file") << u"container"_s << u"fdatasync:error=EIO:when=3"_s;
        QTest::newRow("magic") << u"container"_s << u"fdatasync:error=EIO:when=4"_s;
    }
    void aCopyBackThatTheDriveDoesNotTakeKeepsTheRebuiltContainer() {
        QFETCH(const QString, place);
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        Operation vault(u"compact"_s);
        const ToolRun run = vault.run(place, injection);
        QVERIFY(run.refused());
        QVERIFY(!QFileInfo::exists(vault.fixture.container()));
        QVERIFY(vault.fixture.vault.unlockVault(run.text(), TestPassword));
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
    }

    void aCopyIsNotDeletedBecauseOfItsFolder_data() {
        QTest::addColumn<QString>("injection");
        // The folder is synced before the old container is set aside, and twice after that.
        QTest::newRow("sync") << u"fsync:error=EIO:when=4"_s;
        QTest::newRow("opened") << u"openat:error=EMFILE:when=4"_s;
    }
    void aCopyIsNotDeletedBecauseOfItsFolder() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        Operation vault(u"compact"_s);
        const ToolRun run = vault.run(u"drive"_s, injection);
        QVERIFY(run.refused());
        QVERIFY(vault.fixture.unlock());
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
        QVERIFY(vault.fixture.vault.lockVault());
        QVERIFY(vault.fixture.vault.unlockVault(run.text(), TestPassword));
        QCOMPARE(vault.fixture.stored(A), QByteArray("contents of a"));
    }
    // --- Syncs that are none ----------------------------------------------------------------

    /// Every kind of sync that the engine asks for, once.
    void aSyncThatIsInterruptedOrUnknownIsNoFailure_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("place");
        QTest::addColumn<QString>("call");
        const auto row = [](const QString& operation, const QString& place, const QString& call) {
            QTest::addRow("%s: %s, %s", qPrintable(operation), qPrintable(call), qPrintable(place))
                << operation << place << call;
        };
        row(u"export"_s, u"exported file"_s, u"fdatasync"_s);
        row(u"export"_s, u"its folder"_s, u"fsync"_s);
        row(u"export"_s, u"its folder"_s, u"openat"_s);
        row(u"import"_s, u"container"_s, u"fdatasync"_s);
        row(u"import"_s, u"container"_s, u"sync_file_range"_s);
        row(u"create"_s, u"container"_s, u"fsync"_s);
        row(u"compact"_s, u"temporary folder"_s, u"fsync"_s);
        row(u"compact"_s, u"drive"_s, u"fsync"_s);
    }
    void aSyncThatIsInterruptedOrUnknownIsNoFailure() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, call);
        NEEDS_TRACING();
        // The first is asked again; the others say what the file system cannot do.
        QStringList errors{u"EINTR:when=1"_s};
        if (call != "openat"_L1) {
            errors << u"EINVAL"_s << u"ENOSYS"_s << u"EOPNOTSUPP"_s << u"ENOTTY"_s;
        }
        for (const QString& error : errors) {
            const QString injection = call + u":error="_s + error;
            QVERIFY2(Operation(operation).run(place, injection).succeeded(), qPrintable(injection));
        }
    }

    void aFolderThatMayNotBeListedTakesFiles() {
        VaultFixture fixture(usedContainer());
        const QFile::Permissions enterOnly =
            QFile::WriteOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
        const QStringList folders{fixture.driveFolder(), fixture.temporaryFolder(),
                                  QFileInfo(fixture.file(u"out"_s)).path()};
        const QString source = fixture.write(u"source"_s, "contents of b");
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
        QVERIFY(fixture.vault.exportFile(B, fixture.file(u"out"_s)));
        QCOMPARE(readFile(fixture.file(u"out"_s)), QByteArray("contents of b"));
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        QVERIFY(ContainerManager().writeContainer(fixture.driveFolder() + u"/copy"_s,
                                                  readFile(fixture.container())));
    }

    void importedBlocksAreSyncedWhileTheirFileIsOpen() {
        // Once nobody has the file open, the kernel may forget that it could not write a block.
        NEEDS_TRACING();
        const Operation vault(u"import"_s);
        const QString container = escaped(vault.fixture.container());
        const QStringList calls = vault.calls(u"write,pwrite64,fdatasync,close"_s);
        const qsizetype block = find(calls, u"write\\(\\d+<"_s + container);
        QVERIFY(block >= 0);
        const QRegularExpression descriptor(u"write\\((\\d+)<"_s);
        const QString number = descriptor.match(calls.at(block)).captured(1);
        const qsizetype synced =
            find(calls, u"fdatasync\\(\\d+<"_s + container + u".* = 0"_s, block);
        const qsizetype closed =
            find(calls, u"close\\("_s + number + QLatin1Char('<') + container, block);
        const qsizetype header =
            find(calls, u"[^p]write\\(\\d+<"_s + container + u".*, \"0{10}"_s, block);
        QVERIFY2(synced > block && header > synced && closed > header,
                 qPrintable(calls.join(QLatin1Char('\n'))));
    }

    // --- Closing ----------------------------------------------------------------------------

    void aCloseThatFailsComesAfterEverySync_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("place");
        QTest::newRow("import") << u"import"_s << u"container"_s;
        QTest::newRow("delete") << u"delete"_s << u"container"_s;
        QTest::newRow("compact") << u"compact"_s << u"container"_s;
        QTest::newRow("export") << u"export"_s << u"exported file"_s;
    }
    void aCloseThatFailsComesAfterEverySync() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        NEEDS_TRACING();
        const Operation rehearsal(operation);
        const QString closing =
            u"close\\(\\d+<"_s + QRegularExpression::escape(rehearsal.path(place));
        const QStringList calls = rehearsal.calls(u"close"_s).filter(QRegularExpression(closing));
        QVERIFY(!calls.isEmpty());
        for (int which = 1; which <= calls.size(); ++which) {
            Operation vault(operation);
            const ToolRun run = vault.run(place, u"close:error=EIO:when=%1"_s.arg(which));
            // What was synced is on the drive, whatever closing says.
            QVERIFY2(run.succeeded(), qPrintable(QString::number(which)));
            QVERIFY(vault.fixture.unlock());
            const bool deleted = operation == "delete"_L1;
            QCOMPARE(vault.fixture.stored(A), QByteArray(deleted ? "(refused)" : "contents of a"));
            if (operation == "import"_L1) {
                QVERIFY(vault.fixture.stored(B) == sourceBytes());
            }
            if (operation == "export"_L1) {
                QCOMPARE(readFile(vault.path(place)), QByteArray("contents of a"));
            }
        }
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestDiskSync>);
#include "test_disk_sync.moc"
