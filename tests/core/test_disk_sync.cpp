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
    addRow(u"export"_s, u"exported file"_s, u"fdatasync"_s);
    addRow(u"export"_s, u"its folder"_s, u"fsync"_s);
    addRow(u"import"_s, u"container"_s, u"fdatasync"_s);
    addRow(u"import"_s, u"container"_s, u"sync_file_range"_s);
    addRow(u"create"_s, u"container"_s, u"fsync"_s);
    addRow(u"compact"_s, u"temporary folder"_s, u"fsync"_s);
    addRow(u"compact"_s, u"drive"_s, u"fsync"_s);
}

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
        const ToolRun run = vault.run(place, injection);
        QVERIFY(run.refused());
        QCOMPARE(run.text(), QString());
        COMPARE_UNCHANGED(before);
        QVERIFY(QDir(vault.fixture.temporaryFolder())
                    .entryList({u"Tessel-compact-*"_s}, QDir::AllEntries)
                    .isEmpty());
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
            const QString injection = call + u":error="_s + QLatin1String(error);
            QVERIFY2(Operation(operation).run(place, injection).succeeded(), qPrintable(injection));
        }
    }

    void aSyncThatIsInterruptedIsAskedForAgain_data() {
        addColumns();
        addSyncs();
        addRow(u"export"_s, u"its folder"_s, u"openat"_s);
    }
    void aSyncThatIsInterruptedIsAskedForAgain() {
        QFETCH(const QString, operation);
        QFETCH(const QString, place);
        QFETCH(const QString, call);
        NEEDS_TRACING();
        const QString interrupted = call + u":error=EINTR:when=1"_s;
        QVERIFY(Operation(operation).run(place, interrupted).succeeded());
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

    // --- Their order ------------------------------------------------------------------------

    void theRebuiltContainerCanBeFoundBeforeTheOldOneGoes() {
        NEEDS_TRACING();
        const Operation vault(u"compact"_s);
        const QString temporary = escaped(vault.fixture.temporaryFolder());
        const QString drive = escaped(vault.fixture.driveFolder());
        const QStringList calls =
            vault.calls(u"write,fdatasync,fsync,unlink,rename,renameat2,linkat"_s);
        const QString rebuilt = temporary + u"/Tessel-compact-[^/]*"_s;
        const QString aside = drive + u"/tessel.tvlt.anterior"_s;
        // Each of these calls follows the one before it.
        const QStringList order{u"fdatasync\\(\\d+<"_s + rebuilt + QLatin1Char('/'),
                                u"(linkat|rename).*/tessel.tvlt"_s,
                                u"fsync\\(\\d+<"_s + rebuilt + QLatin1Char('>'),
                                u"fsync\\(\\d+<"_s + temporary + QLatin1Char('>'),
                                u"fdatasync\\(\\d+<"_s + drive + u"/tessel.tvlt>"_s,
                                u"fsync\\(\\d+<"_s + drive + QLatin1Char('>'),
                                u"renameat2\\(.*"_s + drive + u"/tessel.tvlt\", .*"_s + aside,
                                u"fsync\\(\\d+<"_s + aside,
                                u"fsync\\(\\d+<"_s + drive + u"/tessel.tvlt>"_s,
                                u"fsync\\(\\d+<"_s + drive + QLatin1Char('>'),
                                u"write\\(\\d+<"_s + drive + u"/tessel.tvlt>, \"0000"_s,
                                u"fdatasync\\(\\d+<"_s + drive + u"/tessel.tvlt>"_s,
                                u"write\\(\\d+<"_s + drive + u"/tessel.tvlt>, \"TESSEL3\""_s,
                                u"fdatasync\\(\\d+<"_s + drive + u"/tessel.tvlt>"_s,
                                u"fsync\\(\\d+<"_s + drive + QLatin1Char('>'),
                                u"unlink\\(\""_s + aside,
                                u"fsync\\(\\d+<"_s + drive + QLatin1Char('>'),
                                u"unlink\\(\""_s + rebuilt};
        qsizetype at = -1;
        for (const QString& call : order) {
            at = find(calls, call, at + 1);
            QVERIFY2(at >= 0, qPrintable(call + QLatin1Char('\n') + calls.join(QLatin1Char('\n'))));
        }
        // Nothing else is renamed or removed on the drive.
        QCOMPARE(
            calls.filter(QRegularExpression(u"(rename|renameat2|unlink)\\(.*"_s + drive)).size(),
            2);
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
