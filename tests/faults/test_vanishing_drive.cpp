// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTest>

#include <functional>

#include <sys/mount.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

using Operation = std::function<bool(VaultFixture&)>;

/// A vault on a drive that can go away.
struct Drive {
    Drive() : disk(40 * MiB), container(disk.filePath(u"tessel.tvlt"_s)) {
        CraftedContainer vault(3);
        vault.addFile(u"a.bin"_s, noise(50000, 1), 16384);
        vault.addFile(u"b.txt"_s, "conteudo de b"_ba);
        vault.addFolder(u"pasta"_s);
        if (!disk.isMounted() || !vault.writeTo(container) ||
            !fixture.vault.unlockVault(container, TestPassword)) {
            qFatal("cannot set up the drive");
        }
    }

    [[nodiscard]] bool remount(bool readOnly) const {
        const unsigned long flags = readOnly ? MS_REMOUNT | MS_RDONLY : 0UL + MS_REMOUNT;
        return ::mount(nullptr, QFile::encodeName(disk.path()).constData(), nullptr, flags,
                       nullptr) == 0;
    }
    /// Mounts an empty file system over the drive.
    [[nodiscard]] bool cover() const {
        return ::mount("none", QFile::encodeName(disk.path()).constData(), "tmpfs", 0, "size=1M") ==
               0;
    }
    [[nodiscard]] bool uncover() const {
        return ::umount2(QFile::encodeName(disk.path()).constData(), 0) == 0;
    }
    /// Removes the drive as unplugging does: at once, even if files on it are open.
    [[nodiscard]] bool pull() const {
        return ::umount2(QFile::encodeName(disk.path()).constData(), MNT_DETACH) == 0;
    }

    VaultFixture fixture;
    SmallDisk disk;
    QString container;
};

} // namespace

Q_DECLARE_METATYPE(Operation)

class TestVanishingDrive : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void readOnlyDriveRefusesEveryChange_data();
    void readOnlyDriveRefusesEveryChange();
    void readOnlyDriveKeepsItsPassword();
    void coveredDriveRefusesEverything_data();
    void coveredDriveRefusesEverything();
    void pulledDriveRefusesEverything_data();
    void pulledDriveRefusesEverything();
    void driveThatTurnsReadOnlyDuringAnImportKeepsItsFiles();
    void driveThatIsPulledDuringAnImportMakesItFail();
    void driveThatIsPulledDuringCompactionMakesItFail();
    void sourceThatShrinksWhileItIsReadIsNotStored();
};

void TestVanishingDrive::init() {
    NEEDS_PRIVATE_MOUNTS();
}

static void addChanges() {
    QTest::addColumn<Operation>("operation");
    const QList<QPair<const char*, Operation>> rows{
        {"import",
         [](VaultFixture& f) {
             return f.store(u"c"_s, "de c");
         }},
        {"new folder",
         [](VaultFixture& f) {
             return f.vault.createDirectory(u"nova"_s);
         }},
        {"rename",
         [](VaultFixture& f) {
             return f.vault.renameFile(u"b.txt"_s, u"d.txt"_s);
         }},
        {"move",
         [](VaultFixture& f) {
             return f.vault.moveFile(u"b.txt"_s, u"pasta"_s);
         }},
        {"delete",
         [](VaultFixture& f) {
             return f.vault.deleteFile(u"b.txt"_s);
         }},
        {"rename folder",
         [](VaultFixture& f) {
             return f.vault.renameDirectory(u"pasta"_s, u"outra"_s);
         }},
        {"delete folder",
         [](VaultFixture& f) {
             return f.vault.deleteDirectory(u"pasta"_s);
         }},
        {"save the index",
         [](VaultFixture& f) {
             return f.vault.saveIndex(f.vault.fileIndex());
         }},
        {"take an edit back",
         [](VaultFixture& f) {
             return !f.openAndEdit(u"b.txt"_s, "editado").isEmpty() &&
                    f.vault.syncModifiedTempFiles();
         }},
        {"compaction",
         [](VaultFixture& f) {
             return f.vault.compactVault({}, nullptr);
         }},
    };
    for (const auto& [name, operation] : rows) {
        QTest::newRow(name) << operation;
    }
}

void TestVanishingDrive::readOnlyDriveRefusesEveryChange_data() {
    addChanges();
}

void TestVanishingDrive::readOnlyDriveRefusesEveryChange() {
    QFETCH(const Operation, operation);
    Drive drive;
    const QByteArray index = drive.fixture.vault.fileIndex().toJson();
    const QByteArray bytes = readFile(drive.container);
    QVERIFY(drive.remount(true));
    QVERIFY(!operation(drive.fixture));
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), index);
    QVERIFY(readFile(drive.container) == bytes);
    QCOMPARE(drive.fixture.stored(u"a.bin"_s), noise(50000, 1));
    QVERIFY(drive.remount(false));
    QVERIFY(operation(drive.fixture));
    QCOMPARE(indexAsOpenedAnew(drive.container, TestPassword),
             drive.fixture.vault.fileIndex().toJson());
}

void TestVanishingDrive::readOnlyDriveKeepsItsPassword() {
    Drive drive;
    QVERIFY(drive.fixture.vault.lockVault());
    const QByteArray bytes = readFile(drive.container);
    QVERIFY(drive.remount(true));
    QVERIFY(!drive.fixture.vault.changePassword(drive.container, TestPassword, "outra senha"));
    QVERIFY(!drive.fixture.vault.createVault(drive.container, "outra senha"));
    QVERIFY(readFile(drive.container) == bytes);
    QVERIFY(drive.fixture.vault.unlockVault(drive.container, TestPassword));
    QCOMPARE(drive.fixture.stored(u"a.bin"_s), noise(50000, 1));
}

void TestVanishingDrive::coveredDriveRefusesEverything_data() {
    addChanges();
}

void TestVanishingDrive::coveredDriveRefusesEverything() {
    QFETCH(const Operation, operation);
    Drive drive;
    const QByteArray index = drive.fixture.vault.fileIndex().toJson();
    QVERIFY(drive.cover());
    QVERIFY(!operation(drive.fixture));
    QCOMPARE(drive.fixture.stored(u"a.bin"_s), "(refused)"_ba);
    QVERIFY2(!QFileInfo::exists(drive.container), "something was left on another drive");
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), index);
    QVERIFY(drive.uncover());
    QVERIFY(operation(drive.fixture));
    QCOMPARE(indexAsOpenedAnew(drive.container, TestPassword),
             drive.fixture.vault.fileIndex().toJson());
}

void TestVanishingDrive::pulledDriveRefusesEverything_data() {
    addChanges();
}

void TestVanishingDrive::pulledDriveRefusesEverything() {
    QFETCH(const Operation, operation);
    Drive drive;
    const QByteArray index = drive.fixture.vault.fileIndex().toJson();
    QVERIFY(drive.pull());
    QVERIFY(!operation(drive.fixture));
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), index);
    QVERIFY(!QFileInfo::exists(drive.container));
    // No copy has changed and would have to be imported, so the vault can be locked.
    QVERIFY(drive.fixture.vault.lockVault());
}

void TestVanishingDrive::driveThatTurnsReadOnlyDuringAnImportKeepsItsFiles() {
    Drive drive;
    const QByteArray before = drive.fixture.vault.fileIndex().toJson();
    const QString source = drive.fixture.write(u"c"_s, noise(100000, 2));
    // A file open for writing prevents a remount, which a failing drive does not wait for: here
    // only files opened from now on are read-only.
    const QByteArray mountPoint = QFile::encodeName(drive.disk.path());
    bool turned = false;
    const auto turn = [&](qint64, qint64, const QString&) {
        turned = ::mount(mountPoint.constData(), mountPoint.constData(), nullptr, MS_BIND,
                         nullptr) == 0 &&
                 ::mount(nullptr, mountPoint.constData(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY,
                         nullptr) == 0;
    };
    QVERIFY(!drive.fixture.vault.importFile(source, u"c"_s, turn));
    QVERIFY(turned);
    QVERIFY(drive.uncover());
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), before);
    QCOMPARE(indexAsOpenedAnew(drive.container, TestPassword), before);
    QCOMPARE(drive.fixture.stored(u"a.bin"_s), noise(50000, 1));
    QVERIFY(drive.fixture.vault.importFile(source, u"c"_s));
}

void TestVanishingDrive::driveThatIsPulledDuringAnImportMakesItFail() {
    Drive drive;
    const QByteArray before = drive.fixture.vault.fileIndex().toJson();
    const QString source = drive.fixture.write(u"c"_s, noise(100000, 2));
    bool pulled = false;
    const auto pull = [&](qint64, qint64, const QString&) {
        pulled = drive.pull();
    };
    QVERIFY(!drive.fixture.vault.importFile(source, u"c"_s, pull));
    QVERIFY(pulled);
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), before);
}

void TestVanishingDrive::driveThatIsPulledDuringCompactionMakesItFail() {
    Drive drive;
    const QByteArray before = drive.fixture.vault.fileIndex().toJson();
    bool pulled = false;
    const auto pull = [&](qint64, qint64, const QString&) {
        pulled = pulled || drive.pull();
    };
    QString error = u"untouched"_s;
    QVERIFY(!drive.fixture.vault.compactVault(pull, &error));
    QVERIFY(pulled);
    QVERIFY2(error.isEmpty(), "the drive went before the container was deleted");
    QCOMPARE(drive.fixture.vault.fileIndex().toJson(), before);
}

void TestVanishingDrive::sourceThatShrinksWhileItIsReadIsNotStored() {
    Drive drive;
    const qint64 size = QFileInfo(drive.container).size();
    const QString source = drive.fixture.write(u"c"_s, noise(VaultManager::ChunkBytes + 5, 2));
    bool cut = false;
    const auto shrink = [&](qint64, qint64, const QString&) {
        cut = QFile::resize(source, VaultManager::ChunkBytes);
    };
    QVERIFY(!drive.fixture.vault.importFile(source, u"c"_s, shrink));
    QVERIFY(cut);
    QCOMPARE(QFileInfo(drive.container).size(), size);
}

namespace {

int run(int argc, char** argv) {
    static_cast<void>(enterPrivateMounts());
    return runTest<QCoreApplication, TestVanishingDrive>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_vanishing_drive.moc"
