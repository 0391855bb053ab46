// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What becomes of an open vault when another one is opened or created in its place and that fails.

#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

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

} // namespace

Q_DECLARE_METATYPE(Make)

class TestSecondVault : public QObject {
    Q_OBJECT

private:
    static QString otherPath(const VaultFixture& vault) {
        return vault.driveFolder() + u"/other.tvlt"_s;
    }

    /// The copy that was being edited gets back into the vault once that is open again.
    static void compareEditIsTakenBack(VaultFixture& vault, const QString& copy) {
        QCOMPARE(readFile(copy), "edited"_ba);
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "contents of a"_ba);
        QVERIFY(vault->lockVault());
        QVERIFY(!QFileInfo::exists(copy));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "edited"_ba);
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
        OpenVault vault(openContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        const VaultPicture before(vault);
        QVERIFY(make.value<Make>()(otherPath(vault)));
        QVERIFY(!vault->unlockVault(otherPath(vault), password));
        QCOMPARE(vault->state(), VaultState::Unlocked);
        COMPARE_UNCHANGED(before);

        // Its key and its container are still the session's.
        QCOMPARE(vault.stored(A), "contents of a"_ba);
        QVERIFY(vault->createDirectory(u"new"_s));
        QVERIFY(vault.isSaved());
        compareEditIsTakenBack(vault, copy);
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
                                 QString::fromLatin1(withByteChanged(sealed).toBase64()))
                .writeTo(path);
        });
        addRow("altered index", OtherPassword, [](const QString& path) {
            return otherContainer()
                .setEncryptedIndex(withByteChanged(otherContainer().encryptedIndex()))
                .writeTo(path);
        });
    }
    void whatDoesNotOpenTakesTheKeyOfTheOpenVault() {
        QFETCH(const QByteArray, password);
        QFETCH(const QVariant, make);
        OpenVault vault(openContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        const VaultPicture before(vault);
        QVERIFY(make.value<Make>()(otherPath(vault)));
        const QByteArray other = readFile(otherPath(vault));
        QVERIFY(!vault->unlockVault(otherPath(vault), password));
        QCOMPARE(vault->state(), VaultState::Unlocked);
        COMPARE_UNCHANGED(before);

        // The index stays in memory, but without the key nothing is given out, nothing is changed
        // and no edit is lost.
        compareNothingCanBeDone(vault);
        COMPARE_UNCHANGED(before);
        QVERIFY(readFile(otherPath(vault)) == other);
        QVERIFY(!vault->lockVault());
        COMPARE_UNCHANGED(before);
        QCOMPARE(vault->modifiedOpenFiles().size(), 1);
        compareEditIsTakenBack(vault, copy);
    }

    void aWrongPasswordForTheOpenVaultItselfTakesItsKey() {
        OpenVault vault(openContainer());
        const VaultPicture before(vault);
        QVERIFY(!vault->unlockVault(vault.container(), "errada"));
        QCOMPARE(vault->state(), VaultState::Unlocked);
        compareNothingCanBeDone(vault);
        COMPARE_UNCHANGED(before);
        QVERIFY(vault->lockVault());
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "contents of a"_ba);
    }

    // --- Another in its place -------------------------------------------------------------

    void aVaultInThePlaceOfTheOpenOneIsNotTouched_data() {
        QTest::addColumn<bool>("hasChanged");
        QTest::newRow("at once") << false;
        QTest::newRow("after a change") << true;
    }
    void aVaultInThePlaceOfTheOpenOneIsNotTouched() {
        // Two drives of one name are mounted at one place, one after the other.
        QFETCH(const bool, hasChanged);
        OpenVault vault(openContainer());
        QVERIFY(!hasChanged || vault->createDirectory(u"earlier"_s));
        const QString unplugged = vault.file(u"unplugged"_s);
        QVERIFY(QFile::rename(vault.container(), unplugged));
        QVERIFY(makeOther(vault.container()));
        const QByteArray other = vault.bytes();
        compareNothingCanBeDone(vault);
        QVERIFY(vault.bytes() == other);
        // With its own drive back, the session goes on.
        QVERIFY(QFile::remove(vault.container()));
        QVERIFY(QFile::rename(unplugged, vault.container()));
        QVERIFY(vault->createDirectory(u"new"_s));
        QVERIFY(vault.isSaved());
    }

    void aHeaderDamagedMeanwhileIsWrittenAgain() {
        OpenVault vault(openContainer());
        CraftedContainer damaged = openContainer();
        damaged.setEncryptedIndex(withByteChanged(damaged.encryptedIndex()));
        QVERIFY(damaged.writeTo(vault.container()));
        QVERIFY(indexOnDrive(vault.container(), TestPassword).isEmpty());
        QVERIFY(vault->createDirectory(u"new"_s));
        QVERIFY(vault.isSaved());
    }

    void aHeaderDamagedAfterAChangeIsWrittenAgain() {
        // Nothing but the session holds the index now.
        OpenVault vault(openContainer());
        QVERIFY(vault->createDirectory(QString(20000, u'x')));
        QVERIFY(overwriteAt(vault.container(), 9000, QByteArray(512, '\0')));
        QVERIFY(indexOnDrive(vault.container(), TestPassword).isEmpty());
        QVERIFY(vault->createDirectory(u"new"_s));
        QVERIFY(vault.isSaved());
    }

    void aContainerCutAfterAChangeIsNotWritten() {
        OpenVault vault(openContainer());
        QVERIFY(vault->createDirectory(u"earlier"_s));
        QVERIFY(QFile::resize(vault.container(), PayloadOffset - 1));
        const QByteArray cut = vault.bytes();
        QVERIFY(!vault->createDirectory(u"new"_s));
        QVERIFY(vault.bytes() == cut);
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
        OpenVault vault(openContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        const QByteArray container = vault.bytes();
        const QString path = vault.driveFolder() + name;
        QCOMPARE(vault->createVault(path, OtherPassword), created);
        QCOMPARE(QFileInfo::exists(path), created);
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(vault.filePaths().isEmpty());
        QVERIFY(vault.folderPaths().isEmpty());
        compareNothingCanBeDone(vault);
        QVERIFY(vault.bytes() == container);
        QCOMPARE(vault->modifiedOpenFiles().size(), 1);
        compareEditIsTakenBack(vault, copy);
    }

    void creatingOverTheOpenVaultReplacesIt() {
        OpenVault vault(openContainer());
        QVERIFY(vault->createVault(vault.container(), OtherPassword));
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(!vault.unlock());
        QVERIFY(vault->unlockVault(vault.container(), OtherPassword));
        QVERIFY(vault.filePaths().isEmpty());
    }

    void creatingWithoutAPasswordLeavesTheOpenVault() {
        OpenVault vault(openContainer());
        const VaultPicture before(vault);
        QVERIFY(!vault->createVault(otherPath(vault), {}));
        QVERIFY(!QFileInfo::exists(otherPath(vault)));
        COMPARE_UNCHANGED(before);
        QVERIFY(vault->createDirectory(u"new"_s));
    }

    void creatingWithoutTheMemoryForTheKeyLeavesTheStateAndTheCopies() {
        OpenVault vault(openContainer());
        const QString copy = vault.openAndEdit(A, "edited");
        const QByteArray container = vault.bytes();
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!vault->createVault(otherPath(vault), OtherPassword));
        }
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QVERIFY(!QFileInfo::exists(otherPath(vault)));
        // By then the session has forgotten the vault's index and turned to the path that was not
        // written. Nothing reaches the vault that was open, and no edit is lost.
        QVERIFY(vault.filePaths().isEmpty());
        QVERIFY(vault.folderPaths().isEmpty());
        compareNothingCanBeDone(vault);
        QVERIFY(!vault->lockVault());
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QVERIFY(!QFileInfo::exists(otherPath(vault)));
        QVERIFY(vault.bytes() == container);
        compareEditIsTakenBack(vault, copy);
    }

    void creatingInThePlaceOfAnotherWithoutTheMemoryLeavesThatOne() {
        OpenVault vault(openContainer());
        QVERIFY(makeOther(otherPath(vault)));
        const QByteArray other = readFile(otherPath(vault));
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!vault->createVault(otherPath(vault), OtherPassword));
        }
        // The session has turned to it, with a key that never became its own.
        compareNothingCanBeDone(vault);
        QVERIFY(readFile(otherPath(vault)) == other);
    }

    void creatingOverTheOpenVaultWithoutTheMemoryLeavesIt() {
        // The container is still wrapped as it was, the session's key is not: a change sealed with
        // that would make the vault unreadable, a compaction empty.
        OpenVault vault(openContainer());
        const QByteArray container = vault.bytes();
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!vault->createVault(vault.container(), OtherPassword));
        }
        QCOMPARE(vault->state(), VaultState::Unlocked);
        compareNothingCanBeDone(vault);
        QVERIFY(vault.bytes() == container);
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(A), "contents of a"_ba);
    }

private:
    /// Each of these would succeed in the open vault.
    static void compareNothingCanBeDone(VaultFixture& vault) {
        QCOMPARE(vault.stored(A), "(refused)"_ba);
        QVERIFY(!vault->exportFile(A, vault.file(u"out"_s)));
        QVERIFY(!vault.store(u"new"_s, "new"));
        QVERIFY(!vault->createDirectory(u"new"_s));
        QVERIFY(!vault->moveFile(A, QString()));
        QVERIFY(!vault->renameDirectory(u"docs"_s, u"new"_s));
        QVERIFY(!vault->deleteFile(A));
        QVERIFY(!vault->saveIndex(vault->fileIndex()));
        QVERIFY(!vault.compact());
        QCOMPARE(vault.kept, QString());
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestSecondVault>);
#include "test_second_vault.moc"
