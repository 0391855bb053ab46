// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What becomes of an open vault when another one is opened or created in its place and that fails.

#include "VaultFixture.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFileInfo>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString A = u"docs/a.txt"_s;
const QByteArray OtherPassword = "outra senha"_ba;

/// The vault that is open.
CraftedContainer openContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(A, "contents of a"_ba);
    return crafted;
}

/// The vault that is to take its place.
CraftedContainer otherContainer() {
    CraftedContainer crafted(2);
    crafted.keys.password = OtherPassword;
    crafted.addFile(u"b"_s, "contents of b");
    return crafted;
}

/// Leaves something at the path of the other container.
using Make = bool (*)(const QString& path);

void addRow(const char* name, const QByteArray& password, Make make) {
    QTest::newRow(name) << password << QVariant::fromValue(make);
}

bool makeOther(const QString& path) {
    return otherContainer().writeTo(path);
}

QByteArray withLastByteChanged(QByteArray bytes) {
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    return bytes;
}

} // namespace

Q_DECLARE_METATYPE(Make)

class TestSecondVault : public QObject {
    Q_OBJECT

private:
    static QString otherPath(const VaultFixture& fixture) {
        return fixture.driveFolder() + u"/other.tvlt"_s;
    }

    /// The copy that was being edited gets back into the vault once that is open again.
    static void compareEditIsTakenBack(VaultFixture& fixture, const QString& copy) {
        QCOMPARE(readFile(copy), QByteArray("edited"));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("contents of a"));
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("edited"));
    }

private Q_SLOTS:
    // --- Opening another ------------------------------------------------------------------

    void whatCannotBeReadLeavesTheOpenVault_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QVariant>("make");
        addRow("no password", {}, makeOther);
        addRow("nothing there", OtherPassword, [](const QString&) { return true; });
        addRow("a folder", OtherPassword, [](const QString& path) { return QDir().mkdir(path); });
        addRow("no container", OtherPassword,
               [](const QString& path) { return writeFile(path, "no container"); });
        addRow("another version", OtherPassword, [](const QString& path) {
            return otherContainer().setHeaderMember(u"formatVersion"_s, 4).writeTo(path);
        });
        addRow("cut short", OtherPassword, [](const QString& path) {
            return otherContainer().cutAt(PayloadOffset - 1).writeTo(path);
        });
    }
    void whatCannotBeReadLeavesTheOpenVault() {
        QFETCH(const QByteArray, password);
        QFETCH(const QVariant, make);
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited");
        const VaultPicture before(fixture);
        QVERIFY(make.value<Make>()(otherPath(fixture)));
        QVERIFY(!fixture.vault.unlockVault(otherPath(fixture), password));
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        COMPARE_UNCHANGED(before);

        // Its key and its container are still the session's.
        QCOMPARE(fixture.stored(A), QByteArray("contents of a"));
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
        compareEditIsTakenBack(fixture, copy);
    }

    void whatDoesNotOpenTakesTheKeyOfTheOpenVault_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::addColumn<QVariant>("make");
        addRow("wrong password", "errada", makeOther);
        addRow("the open vault's password", TestPassword, makeOther);
        addRow("altered master key", OtherPassword, [](const QString& path) {
            const QByteArray sealed = otherContainer().encryptedMasterKey();
            return otherContainer()
                .setCryptoMember(u"encryptedMasterKey"_s,
                                 QString::fromLatin1(withLastByteChanged(sealed).toBase64()))
                .writeTo(path);
        });
        addRow("altered index", OtherPassword, [](const QString& path) {
            return otherContainer()
                .setEncryptedIndex(withLastByteChanged(otherContainer().encryptedIndex()))
                .writeTo(path);
        });
    }
    void whatDoesNotOpenTakesTheKeyOfTheOpenVault() {
        QFETCH(const QByteArray, password);
        QFETCH(const QVariant, make);
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited");
        const VaultPicture before(fixture);
        QVERIFY(make.value<Make>()(otherPath(fixture)));
        const QByteArray other = readFile(otherPath(fixture));
        QVERIFY(!fixture.vault.unlockVault(otherPath(fixture), password));
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        COMPARE_UNCHANGED(before);

        // The index stays in memory, but without the key nothing is given out, nothing is changed
        // and no edit is lost.
        compareNothingCanBeDone(fixture);
        COMPARE_UNCHANGED(before);
        QVERIFY(readFile(otherPath(fixture)) == other);
        QVERIFY(!fixture.vault.lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(fixture.vault.modifiedOpenFiles().size(), 1);
        compareEditIsTakenBack(fixture, copy);
    }

    void aWrongPasswordForTheOpenVaultItselfTakesItsKey() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.unlockVault(fixture.container(), "errada"));
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        compareNothingCanBeDone(fixture);
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.vault.lockVault());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("contents of a"));
    }

    // --- Another in its place -------------------------------------------------------------

    void aVaultThatLiesInThePlaceOfTheOpenOneIsNotTouched() {
        // Two drives of one name are mounted at one place, one after the other.
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QString unplugged = fixture.file(u"unplugged"_s);
        QVERIFY(QFile::rename(fixture.container(), unplugged));
        QVERIFY(makeOther(fixture.container()));
        const QByteArray other = readFile(fixture.container());
        compareNothingCanBeDone(fixture);
        QVERIFY(readFile(fixture.container()) == other);
        // With its own drive back, the session goes on.
        QVERIFY(QFile::remove(fixture.container()));
        QVERIFY(QFile::rename(unplugged, fixture.container()));
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
    }

    void aHeaderDamagedMeanwhileIsWrittenAnew() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        CraftedContainer damaged = openContainer();
        damaged.setEncryptedIndex(withLastByteChanged(damaged.encryptedIndex()));
        QVERIFY(damaged.writeTo(fixture.container()));
        QVERIFY(indexAsOpenedAnew(fixture.container(), TestPassword).isEmpty());
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
    }

    void aPasswordChangedMeanwhileIsKept() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(VaultManager().changePassword(fixture.container(), TestPassword, OtherPassword));
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), OtherPassword),
                 fixture.vault.fileIndex().toJson());
    }

    // --- Creating another -----------------------------------------------------------------

    void creatingLocksTheOpenVaultAndLeavesItsCopies_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("created");
        QTest::newRow("written") << u"/new.tvlt"_s << true;
        QTest::newRow("not written") << u"/missing/new.tvlt"_s << false;
    }
    void creatingLocksTheOpenVaultAndLeavesItsCopies() {
        QFETCH(const QString, name);
        QFETCH(const bool, created);
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited");
        const QByteArray container = readFile(fixture.container());
        const QString path = fixture.driveFolder() + name;
        QCOMPARE(fixture.vault.createVault(path, OtherPassword), created);
        QCOMPARE(QFileInfo::exists(path), created);
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.filePaths().isEmpty());
        QVERIFY(fixture.folderPaths().isEmpty());
        compareNothingCanBeDone(fixture);
        QVERIFY(readFile(fixture.container()) == container);
        QCOMPARE(fixture.vault.modifiedOpenFiles().size(), 1);
        compareEditIsTakenBack(fixture, copy);
    }

    void creatingOverTheOpenVaultReplacesIt() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createVault(fixture.container(), OtherPassword));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(!fixture.unlock());
        QVERIFY(fixture.vault.unlockVault(fixture.container(), OtherPassword));
        QVERIFY(fixture.filePaths().isEmpty());
    }

    void creatingWithoutAPasswordLeavesTheOpenVault() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.createVault(otherPath(fixture), {}));
        QVERIFY(!QFileInfo::exists(otherPath(fixture)));
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
    }

    void creatingWithoutTheMemoryForTheKeyLeavesTheStateAndTheCopies() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(A, "edited");
        const QByteArray container = readFile(fixture.container());
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!fixture.vault.createVault(otherPath(fixture), OtherPassword));
        }
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QVERIFY(!QFileInfo::exists(otherPath(fixture)));
        // By then the session has forgotten the vault's index and turned to the path that was not
        // written. Nothing reaches the vault that was open, and no edit is lost.
        QVERIFY(fixture.filePaths().isEmpty());
        QVERIFY(fixture.folderPaths().isEmpty());
        compareNothingCanBeDone(fixture);
        QVERIFY(!fixture.vault.lockVault());
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QVERIFY(!QFileInfo::exists(otherPath(fixture)));
        QVERIFY(readFile(fixture.container()) == container);
        compareEditIsTakenBack(fixture, copy);
    }

    void creatingInThePlaceOfAnotherWithoutTheMemoryLeavesThatOne() {
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(makeOther(otherPath(fixture)));
        const QByteArray other = readFile(otherPath(fixture));
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!fixture.vault.createVault(otherPath(fixture), OtherPassword));
        }
        // The session has turned to it, with a key that never became its own.
        compareNothingCanBeDone(fixture);
        QVERIFY(readFile(otherPath(fixture)) == other);
    }

    void creatingOverTheOpenVaultWithoutTheMemoryLeavesIt() {
        // The container is still wrapped as it was, the session's key is not: a change sealed with
        // that would make the vault unreadable, a compaction empty.
        VaultFixture fixture(openContainer());
        QVERIFY(fixture.unlock());
        const QByteArray container = readFile(fixture.container());
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!fixture.vault.createVault(fixture.container(), OtherPassword));
        }
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        compareNothingCanBeDone(fixture);
        QVERIFY(readFile(fixture.container()) == container);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(A), QByteArray("contents of a"));
    }

private:
    /// Each of these would succeed in the open vault.
    static void compareNothingCanBeDone(VaultFixture& fixture) {
        VaultManager& vault = fixture.vault;
        QCOMPARE(fixture.stored(A), QByteArray("(refused)"));
        QVERIFY(!vault.exportFile(A, fixture.file(u"out"_s)));
        QVERIFY(!fixture.store(u"new"_s, "new"));
        QVERIFY(!vault.createDirectory(u"new"_s));
        QVERIFY(!vault.moveFile(A, QString()));
        QVERIFY(!vault.renameDirectory(u"docs"_s, u"new"_s));
        QVERIFY(!vault.deleteFile(A));
        QVERIFY(!vault.saveIndex(vault.fileIndex()));
        QString error = u"to be emptied"_s;
        QVERIFY(!vault.compactVault({}, &error));
        QCOMPARE(error, QString());
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestSecondVault>);
#include "test_second_vault.moc"
