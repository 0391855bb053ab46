// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A drive that fails while the vault is changed: one table over the operations. The operation is
// refused and nothing is left behind.
// A drive that turns read-only or goes away is the subject of
// tests/faults/test_vanishing_drive.cpp.

#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

using Change = bool (*)(VaultFixture& vault);

/// Two files of three blocks each, with dead bytes for a compaction, and two folders.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s)
        .addFolder(u"empty"_s)
        .leaveGap(5000)
        .addFile(u"docs/a"_s, noise(2500, 1), 1000)
        .addFile(u"b"_s, noise(700, 2), 300);
    return crafted;
}

/// The driver's arguments for one operation.
QStringList argumentsOf(const QString& operation, const VaultFixture& vault) {
    const QStringList words = operation.split(QLatin1Char(' '));
    QStringList arguments{vault.container(), QString::fromUtf8(TestPassword)};
    arguments += words;
    return arguments.replaceInStrings(u"@source"_s, vault.file(u"source"_s));
}

} // namespace

Q_DECLARE_METATYPE(Change)

class TestFailingDrive : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void aCallThatFailsRefusesTheOperation_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("watched");
        QTest::addColumn<QString>("faults");
        const auto rows = [](const char* operation, const char* watched,
                             const QStringList& faults) {
            for (const QString& fault : faults) {
                QTest::addRow("%s, %s", operation, qPrintable(fault))
                    << QString::fromLatin1(operation) << QString::fromLatin1(watched) << fault;
            }
        };
        rows("create", "", {u"fdatasync:error=EIO:when=1"_s});
        rows("password new", "container",
             {u"write:error=EIO:when=1"_s, u"fdatasync:error=EIO:when=2"_s});
        // The first sync is for earlier errors; the seventh to ninth reads are the document's.
        rows("delete docs/a", "container",
             {u"write:error=EIO:when=1"_s, u"write:error=ENOSPC:when=1"_s,
              u"fdatasync:error=EIO:when=2"_s, u"read:error=EIO:when=8"_s,
              u"openat:error=EACCES:when=4"_s, u"openat:error=EROFS:when=5"_s});
        for (const char* operation : {"mkdir new", "rename b new", "move b docs",
                                      "rename-folder docs new", "delete-folder empty"}) {
            rows(operation, "container",
                 {u"write:error=EIO:when=1"_s, u"fdatasync:error=EIO:when=2"_s});
        }
        // Two blocks and the header are written, and the redo record between them.
        rows("import @source docs/A", "container",
             {u"read:error=EIO:when=7"_s, u"read:error=EIO:when=8"_s, u"read:error=EIO:when=9"_s,
              u"openat:error=EROFS:when=5"_s, u"openat:error=EROFS:when=6"_s,
              u"write:error=EIO:when=1"_s, u"write:error=EIO:when=2"_s,
              u"write:error=ENOSPC:when=2"_s, u"write:error=EIO:when=3"_s,
              u"sync_file_range:error=EIO:when=1"_s, u"sync_file_range:error=EIO:when=2"_s,
              u"pwrite64:error=EIO:when=1"_s, u"pwrite64:error=EIO:when=2"_s,
              u"fdatasync:error=EIO:when=2"_s, u"fdatasync:error=EIO:when=3"_s});
        rows("import @source docs/A", "source",
             {u"openat:error=EACCES:when=1"_s, u"read:error=EIO:when=1"_s,
              u"read:error=EIO:when=2"_s});
        // Up to the moment in which the new container takes the old one's place.
        rows("compact", "container",
             {u"read:error=EIO:when=7"_s, u"openat:error=EACCES:when=5"_s,
              u"read:error=EIO:when=10"_s, u"read:error=EIO:when=15"_s, u"lseek:error=EIO:when=9"_s,
              u"renameat2:error=EROFS rename:error=EROFS"_s,
              u"renameat2:error=EPERM rename:error=EPERM unlink:error=EROFS"_s,
              u"fdatasync:error=EIO:when=2"_s});
        rows("compact", "set aside", {u"fsync:error=EIO:when=1"_s});
        rows("compact", "folder", {u"fsync:error=EIO:when=1"_s, u"fsync:error=EIO:when=2"_s});
        rows("compact", "", {u"fdatasync:error=EIO:when=2"_s});
    }
    void aCallThatFailsRefusesTheOperation() {
        QFETCH(const QString, operation);
        QFETCH(const QString, watched);
        QFETCH(const QString, faults);
        NEEDS_TRACING();
        const VaultFixture vault(usedContainer());
        const QString source = vault.write(u"source"_s, noise(VaultManager::ChunkBytes + 1000));
        const QMap<QString, QString> places{{u"container"_s, vault.container()},
                                            {u"source"_s, source},
                                            {u"set aside"_s, vault.container() + u".anterior"_s},
                                            {u"folder"_s, vault.driveFolder()}};
        const VaultPicture before(vault);
        const ToolRun run = runTool(argumentsOf(operation, vault), places.value(watched),
                                    faults.split(QLatin1Char(' ')));
        QVERIFY(run.refused());
        QCOMPARE(run.text(), QString());
        COMPARE_UNCHANGED(before);
        QCOMPARE(QDir(vault.driveFolder()).entryList(QDir::Files | QDir::Hidden),
                 QStringList(u"tessel.tvlt"_s));
        QVERIFY(vault.temporaryNames().filter(u"Tessel-compact"_s).isEmpty());
    }

    void withoutAFaultTheOperationsSucceed_data() {
        QTest::addColumn<QString>("operation");
        for (const char* operation :
             {"delete docs/a", "mkdir new", "rename b new", "move b docs", "rename-folder docs new",
              "delete-folder empty", "import @source docs/A", "compact"}) {
            QTest::newRow(operation) << QString::fromLatin1(operation);
        }
    }
    void withoutAFaultTheOperationsSucceed() {
        QFETCH(const QString, operation);
        NEEDS_TRACING();
        const VaultFixture vault(usedContainer());
        static_cast<void>(vault.write(u"source"_s, "source"));
        const ToolRun run =
            runTool(argumentsOf(operation, vault), vault.container(), QStringList());
        QVERIFY(run.succeeded());
    }

    void aContainerThatIsBrokenOrGoneTakesNoChange_data() {
        QTest::addColumn<Change>("change");
        const auto row = [](const char* name, Change change) {
            QTest::newRow(name) << change;
        };
        row("import", [](VaultFixture& vault) { return vault.store(u"new"_s, "new"); });
        row("save", [](VaultFixture& vault) { return vault->saveIndex(vault->fileIndex()); });
        row("new folder", [](VaultFixture& vault) { return vault->createDirectory(u"new"_s); });
        row("rename", [](VaultFixture& vault) { return vault->renameFile(u"b"_s, u"new"_s); });
        row("move", [](VaultFixture& vault) { return vault->moveFile(u"b"_s, u"docs"_s); });
        row("delete", [](VaultFixture& vault) { return vault->deleteFile(u"b"_s); });
        row("rename folder",
            [](VaultFixture& vault) { return vault->renameDirectory(u"docs"_s, u"new"_s); });
        row("delete folder",
            [](VaultFixture& vault) { return vault->deleteDirectory(u"empty"_s); });
        row("compact", [](VaultFixture& vault) {
            QString kept = u"to be emptied"_s;
            return vault->compactVault({}, &kept) || !kept.isEmpty();
        });
    }
    void aContainerThatIsBrokenOrGoneTakesNoChange() {
        QFETCH(const Change, change);
        OpenVault vault(usedContainer());
        const QByteArray index = vault->fileIndex().toJson();
        const QByteArray whole = vault.bytes();
        QVERIFY(overwriteAt(vault.container(), 0, "BROKEN!"));
        const QByteArray broken = vault.bytes();
        QVERIFY(!change(vault));
        QVERIFY(vault.bytes() == broken);
        QVERIFY(QFile::remove(vault.container()));
        QVERIFY(!change(vault));
        QVERIFY(!QFileInfo::exists(vault.container()));
        QVERIFY(vault.temporaryNames().filter(u"Tessel-compact"_s).isEmpty());
        QCOMPARE(vault->fileIndex().toJson(), index);
        // Plugged in again, the session goes on.
        QVERIFY(writeFile(vault.container(), whole));
        QVERIFY(change(vault));
        QVERIFY(vault.isSaved());
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestFailingDrive>);
#include "test_failing_drive.moc"
