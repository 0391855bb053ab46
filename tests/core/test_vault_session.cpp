// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QSet>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

QString base64(const QByteArray& bytes) {
    return QString::fromLatin1(bytes.toBase64());
}

/// A crafted vault with a folder and a file, as if it had been in use.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(u"docs/a.txt"_s, "contents of a"_ba);
    return crafted;
}

/// The container opens, and the other session lets go of it again.
bool opens(const QString& path, const QByteArray& password = TestPassword) {
    return !indexOnDrive(path, password).isEmpty();
}

/// Leaves the container as a rewrite that was cut short does: half a header, and the record.
bool tearHeader(const QString& path, const CraftedContainer& crafted) {
    return overwriteAt(path, 300, noise(200)) &&
           overwriteAt(path, crafted.fileSize(), crafted.redoRecord());
}

/// An index whose JSON does not fit into the header region.
SecureFileIndex tooLargeIndex() {
    SecureFileIndex index;
    for (int i = 0; i < 9; ++i) {
        const QString path = QString::number(i) + QString(1000000, QLatin1Char('x'));
        if (!index.addDirectory({path, {}, {}})) {
            qFatal("cannot fill the index");
        }
    }
    return index;
}

} // namespace

class TestVaultSession : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- States ----------------------------------------------------------------------------

    void statesHaveTheirNumbers() {
        QCOMPARE(static_cast<int>(VaultState::Locked), 0);
        QCOMPARE(static_cast<int>(VaultState::Unlocked), 1);
    }

    void aFreshVaultIsLockedAndEmpty() {
        const VaultFixture vault;
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(vault->fileIndex().entries().isEmpty());
        QVERIFY(vault->fileIndex().directories().isEmpty());
        QVERIFY(vault->modifiedOpenFiles().isEmpty());
        QVERIFY(vault.temporaryNames().isEmpty());
    }

    void aLockedVaultRefusesEveryOperation() {
        VaultFixture vault(usedContainer());
        const QString source = vault.write(u"source"_s, "x");
        const VaultPicture before(vault);
        QVERIFY(!vault->saveIndex({}));
        QVERIFY(!vault->importFile(source, u"b"_s));
        QVERIFY(!vault->exportFile(u"docs/a.txt"_s, vault.file(u"e"_s)));
        QVERIFY(!QFileInfo::exists(vault.file(u"e"_s)));
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "(refused)"_ba);
        QVERIFY(!vault->moveFile(u"docs/a.txt"_s, QString()));
        QVERIFY(!vault->renameFile(u"docs/a.txt"_s, u"b"_s));
        QVERIFY(!vault->deleteFile(u"docs/a.txt"_s));
        QVERIFY(!vault->createDirectory(u"new"_s));
        QVERIFY(!vault->renameDirectory(u"docs"_s, u"new"_s));
        QVERIFY(!vault->deleteDirectory(u"docs"_s));
        QVERIFY(!vault.compact());
        QCOMPARE(vault.kept, QString());
        QString copy = u"untouched"_s;
        QVERIFY(!vault->prepareFileForEditing(u"docs/a.txt"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
        COMPARE_UNCHANGED(before);
    }

    // --- Creating --------------------------------------------------------------------------

    void creatingWithoutAPasswordWritesNothing() {
        VaultFixture vault(usedContainer());
        VERIFY_REFUSED(vault, vault->createVault(vault.container(), {}));
        const QString fresh = vault.driveFolder() + u"/new.tvlt"_s;
        QVERIFY(!vault->createVault(fresh, {}));
        QVERIFY(!QFileInfo::exists(fresh));
    }

    void creatingOnAFullDriveKeepsTheOldVault() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(16 * MiB);
        VaultFixture vault(usedContainer());
        QVERIFY(vault.moveContainerTo(disk.filePath(u"tessel.tvlt"_s)));
        QVERIFY(disk.fillUpTo(4 * MiB));
        VERIFY_REFUSED(vault, vault->createVault(vault.container(), "another password"));
    }

    void creatingWithoutTheMemoryForTheKeyWritesNothing() {
        VaultFixture vault(usedContainer());
        const VaultPicture before(vault);
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!vault->createVault(vault.container(), "another password"));
        }
        COMPARE_UNCHANGED(before);
        QVERIFY(vault.unlock());
    }

    // --- Unlocking -------------------------------------------------------------------------

    void unlockingReadsTheIndex() {
        OpenVault vault(usedContainer());
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QCOMPARE(vault.filePaths(), QStringList(u"docs/a.txt"_s));
        QCOMPARE(vault.folderPaths(), QStringList(u"docs"_s));
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
        QCOMPARE(vault.temporaryNames(), QStringList(u"Tessel"_s));
    }

    void unlockingWithArgon2idOpensAVaultMadeElsewhere() {
        CraftedContainer crafted = usedContainer();
        crafted.keys.kdf = "Argon2id";
        crafted.keys.kdfIterations = 0;
        OpenVault vault(crafted);
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
    }

    void unlockingWithAWrongPasswordStaysLocked_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("another") << "senha de outro"_ba;
        QTest::newRow("letter case") << "Senha de teste"_ba;
        QTest::newRow("a blank more") << "senha de teste "_ba;
        QTest::newRow("a letter less") << "senha de test"_ba;
    }
    void unlockingWithAWrongPasswordStaysLocked() {
        QFETCH(const QByteArray, password);
        VaultFixture vault(usedContainer());
        const VaultPicture before(vault);
        QVERIFY(!vault->unlockVault(vault.container(), password));
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(vault.filePaths().isEmpty());
        QVERIFY(vault.temporaryNames().isEmpty());
        QVERIFY(!vault->createDirectory(u"new"_s));
        COMPARE_UNCHANGED(before);
        QVERIFY(vault.unlock());
    }

    void unlockingWhatIsNoVaultStaysLocked() {
        VaultFixture vault;
        QVERIFY(writeFile(vault.container(), "not a vault"));
        QVERIFY(!vault.unlock());
        QVERIFY(QFile::remove(vault.container()));
        QVERIFY(!vault.unlock());
        QVERIFY(!vault->unlockVault(vault.driveFolder(), TestPassword));
        QCOMPARE(vault->state(), VaultState::Locked);
    }

    void theMasterKeyIsBoundToTheHeader_data() {
        QTest::addColumn<QString>("member");
        QTest::addColumn<QJsonValue>("value");
        const CraftedKeys keys = CraftedContainer().keys;
        QTest::newRow("salt") << u"salt"_s << QJsonValue(base64(withByteChanged(keys.salt, 15)));
        QTest::newRow("longer salt") << u"salt"_s << QJsonValue(base64(keys.salt + '\0'));
        QTest::newRow("nonce") << u"nonce"_s << QJsonValue(base64(withByteChanged(keys.nonce, 0)));
        QTest::newRow("shorter nonce") << u"nonce"_s << QJsonValue(base64(keys.nonce.chopped(1)));
        // Derives the same key; only the associated data tells them apart.
        QTest::newRow("kdf") << u"kdf"_s << QJsonValue(u"PBKDF2-HMAC-SHA257"_s);
        QTest::newRow("cipher") << u"cipher"_s << QJsonValue(u"XChaCha20-Poly1304"_s);
        QTest::newRow("no cipher") << u"cipher"_s << QJsonValue(QJsonValue::Undefined);
        QTest::newRow("kdfIterations") << u"kdfIterations"_s << QJsonValue(2);
        QTest::newRow("no master key") << u"encryptedMasterKey"_s << QJsonValue(QString());
        QTest::newRow("master key")
            << u"encryptedMasterKey"_s
            << QJsonValue(base64(withByteChanged(CraftedContainer().encryptedMasterKey(), 79)));
        QTest::newRow("index nonce")
            << u"payloadNonce"_s << QJsonValue(base64(withByteChanged(keys.payloadNonce, 23)));
        QTest::newRow("no index nonce") << u"payloadNonce"_s << QJsonValue(QString());
    }
    void theMasterKeyIsBoundToTheHeader() {
        QFETCH(const QString, member);
        QFETCH(const QJsonValue, value);
        CraftedContainer crafted;
        VaultFixture vault(crafted);
        QVERIFY(opens(vault.container()));
        crafted.setCryptoMember(member, value);
        QVERIFY(crafted.writeTo(vault.container()));
        QVERIFY(!vault.unlock());
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(!vault->saveIndex({}));
    }

    void aHeaderWithoutCryptoDoesNotUnlock() {
        CraftedContainer crafted;
        crafted.setHeaderMember(u"crypto"_s, QJsonValue::Undefined);
        VaultFixture vault(crafted);
        QVERIFY(!vault.unlock());
        QCOMPARE(vault->state(), VaultState::Locked);
    }

    void anIndexThatWasTouchedDoesNotUnlock_data() {
        QTest::addColumn<QByteArray>("sealed");
        const QByteArray sealed = CraftedContainer().encryptedIndex();
        QTest::newRow("none") << QByteArray();
        QTest::newRow("first byte") << withByteChanged(sealed, 0);
        QTest::newRow("last byte of the tag") << withByteChanged(sealed, sealed.size() - 1);
        QTest::newRow("cut short") << sealed.chopped(1);
        QTest::newRow("shorter than a tag") << sealed.left(15);
        // Sealed properly, but holding nothing.
        const CraftedKeys keys = CraftedContainer().keys;
        QTest::newRow("tag over nothing")
            << CraftedContainer::seal({}, keys.masterKey.left(32), keys.payloadNonce,
                                      CraftedContainer().indexAssociatedData());
    }
    void anIndexThatWasTouchedDoesNotUnlock() {
        QFETCH(const QByteArray, sealed);
        CraftedContainer crafted;
        crafted.setEncryptedIndex(sealed);
        VaultFixture vault(crafted);
        QVERIFY(!vault.unlock());
        QCOMPARE(vault->state(), VaultState::Locked);
        QVERIFY(!vault->createDirectory(u"new"_s));
    }

    void anIndexThatDecryptsIsTrusted() {
        CraftedContainer crafted;
        crafted.setIndexJson("not JSON");
        OpenVault vault(crafted);
        QVERIFY(vault.filePaths().isEmpty());
    }

    void aPlaintextIndexInTheHeaderIsNotTheIndex() {
        CraftedContainer crafted = usedContainer();
        crafted.setHeaderMember(
            u"fileIndex"_s,
            QJsonObject{{u"directories"_s, QJsonArray{QJsonObject{{u"path"_s, u"smuggled"_s}}}}});
        OpenVault vault(crafted);
        QCOMPARE(vault.folderPaths(), QStringList(u"docs"_s));
    }

    void unlockingAnotherVaultTakesItsPlace() {
        OpenVault vault(usedContainer());
        CraftedContainer other(2);
        other.keys.password = "outra senha";
        other.addFile(u"b"_s, "contents of b");
        const QString path = vault.driveFolder() + u"/other.tvlt"_s;
        QVERIFY(other.writeTo(path));
        QVERIFY(vault->unlockVault(path, "outra senha"));
        QCOMPARE(vault.filePaths(), QStringList(u"b"_s));
        QCOMPARE(vault.stored(u"b"_s), "contents of b"_ba);
    }

    void unlockingWithoutAWorkspaceIsFalseYetUnlocked() {
        VaultFixture vault(usedContainer());
        // Where the workspace's parent should be, a file is in the way.
        QVERIFY(writeFile(vault.temporaryFolder() + u"/Tessel"_s, "in the way"));
        QVERIFY(!vault.unlock());
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
        QVERIFY(vault->createDirectory(u"new"_s));
        QVERIFY(vault->lockVault());
        QCOMPARE(vault->state(), VaultState::Locked);
    }

    // --- Headers torn by a drive that was pulled out ---------------------------------------

    void aTornHeaderKeepsItsRecordFromAWrongPassword() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture vault(crafted);
        QVERIFY(tearHeader(vault.container(), crafted));
        const QByteArray torn = vault.bytes();
        QVERIFY(!vault->unlockVault(vault.container(), "senha de outro"));
        QVERIFY(vault.bytes() == torn);
        QVERIFY(vault.unlock());
    }

    void aTornHeaderKeepsItsRecordWhenTheRepairFails_data() {
        QTest::addColumn<QString>("operation");
        QTest::addColumn<QString>("injection");
        QTest::newRow("once") << u"unlock"_s << u"write:error=EIO:when=1"_s;
        QTest::newRow("for good") << u"unlock"_s << u"write:error=EIO:when=1+"_s;
        QTest::newRow("unreadable") << u"unlock"_s << u"read:error=EIO:when=10+"_s;
        QTest::newRow("read-only") << u"unlock"_s << u"openat:error=EROFS:when=5"_s;
        // Every other write fails: each rewrite, but never the way back from it.
        QTest::newRow("and a change after it") << u"save"_s << u"write:error=EIO:when=1+2"_s;
        QTest::newRow("and a change after it, for good")
            << u"save"_s << u"write:error=EIO:when=1+"_s;
    }
    void aTornHeaderKeepsItsRecordWhenTheRepairFails() {
        QFETCH(const QString, operation);
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        const CraftedContainer crafted = usedContainer();
        VaultFixture vault(crafted);
        const QByteArray whole = vault.bytes();
        QVERIFY(tearHeader(vault.container(), crafted));
        const ToolRun run = runTool({vault.container(), QString::fromUtf8(TestPassword), operation},
                                    vault.container(), {injection});
        QVERIFY(run.ended());
        QCOMPARE(run.succeeded(), operation == "unlock"_L1);
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
        QCOMPARE(vault.bytes().size(), whole.size());
    }

    // --- Associated data, byte by byte -----------------------------------------------------

    void everyByteOfTheMasterKeysAssociatedDataCounts() {
        CraftedContainer crafted;
        const CraftedKeys& keys = crafted.keys;
        const QByteArray literal = "TESSEL|master-key|3|XChaCha20-Poly1305|PBKDF2-HMAC-SHA256|1|" +
                                   keys.salt + "|" + keys.nonce;
        QCOMPARE(literal.size(), 61 + 16 + 1 + 24 - 1);
        VaultFixture vault;
        const auto opensWith = [&](const QByteArray& associatedData) {
            crafted.setCryptoMember(
                u"encryptedMasterKey"_s,
                base64(CraftedContainer::seal(keys.masterKey, crafted.passwordKey().left(32),
                                              keys.nonce, associatedData)));
            return crafted.writeTo(vault.container()) && opens(vault.container());
        };
        QVERIFY(opensWith(literal));
        for (qsizetype at = 0; at < literal.size(); ++at) {
            QVERIFY2(!opensWith(withByteChanged(literal, at)), qPrintable(QString::number(at)));
        }
        QVERIFY(!opensWith(literal + '|'));
        QVERIFY(!opensWith(literal.chopped(1)));
        QVERIFY(opensWith(literal));
    }

    void everyByteOfTheIndexesAssociatedDataCounts() {
        CraftedContainer crafted;
        const CraftedKeys& keys = crafted.keys;
        const QByteArray literal = "TESSEL|index|3|XChaCha20-Poly1305|" + keys.payloadNonce;
        QCOMPARE(literal.size(), 34 + 24);
        VaultFixture vault;
        const auto opensWith = [&](const QByteArray& associatedData) {
            crafted.setEncryptedIndex(CraftedContainer::seal("{}", keys.masterKey.left(32),
                                                             keys.payloadNonce, associatedData));
            return crafted.writeTo(vault.container()) && opens(vault.container());
        };
        QVERIFY(opensWith(literal));
        for (qsizetype at = 0; at < literal.size(); ++at) {
            QVERIFY2(!opensWith(withByteChanged(literal, at)), qPrintable(QString::number(at)));
        }
        QVERIFY(!opensWith(literal + '|'));
        QVERIFY(!opensWith(literal.chopped(1)));
    }

    void onlyTheFirstHalfOfTheMasterKeySeals() {
        // Two containers whose master keys differ in the second half only share their index.
        CraftedContainer crafted = usedContainer();
        const QByteArray sealed = crafted.encryptedIndex();
        crafted.keys.masterKey = withByteChanged(crafted.keys.masterKey, 32);
        QCOMPARE(crafted.encryptedIndex(), sealed);
        OpenVault vault(crafted);
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
    }

    // --- Locking ---------------------------------------------------------------------------

    void lockingForgetsTheKeyAndKeepsTheIndexInMemory() {
        OpenVault vault(usedContainer());
        const QByteArray index = vault->fileIndex().toJson();
        QVERIFY(vault->lockVault());
        QCOMPARE(vault->state(), VaultState::Locked);
        QCOMPARE(vault->fileIndex().toJson(), index);
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "(refused)"_ba);
        QVERIFY(!vault->saveIndex(vault->fileIndex()));
        QVERIFY(QDir(vault.temporaryFolder() + u"/Tessel"_s).isEmpty());
    }

    void lockingAgainIsHarmless() {
        VaultFixture vault(usedContainer());
        QVERIFY(vault.reopen());
        QVERIFY(vault->lockVault());
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
    }

    void lockingChangesNothingInTheContainer() {
        VaultFixture vault(usedContainer());
        const QByteArray before = vault.bytes();
        QVERIFY(vault.unlock());
        QVERIFY(vault->lockVault());
        QVERIFY(vault.bytes() == before);
    }

    // --- Changing the password -------------------------------------------------------------

    void changingThePasswordIsRefused_data() {
        QTest::addColumn<QByteArray>("oldPassword");
        QTest::addColumn<QByteArray>("newPassword");
        QTest::newRow("wrong old") << "errada"_ba
                                   << "nova senha"_ba;
        QTest::newRow("no old") << QByteArray() << "nova senha"_ba;
        QTest::newRow("no new") << TestPassword << QByteArray();
    }
    void changingThePasswordIsRefused() {
        QFETCH(const QByteArray, oldPassword);
        QFETCH(const QByteArray, newPassword);
        VaultFixture vault(usedContainer());
        const VaultPicture before(vault);
        QVERIFY(!vault->changePassword(vault.container(), oldPassword, newPassword));
        COMPARE_UNCHANGED(before);
    }

    void changingThePasswordWithoutTheMemoryForTheKeyIsRefused() {
        VaultFixture vault(usedContainer());
        const VaultPicture before(vault);
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!vault->changePassword(vault.container(), TestPassword, "nova senha"));
        }
        COMPARE_UNCHANGED(before);
    }

    void changingThePasswordOfAnOpenVaultIsRefused() {
        OpenVault vault(usedContainer());
        VERIFY_REFUSED(vault, vault->changePassword(vault.container(), TestPassword, "nova senha"));
    }

    void changingThePasswordOfNoVaultIsRefused() {
        VaultFixture vault;
        QVERIFY(writeFile(vault.container(), "not a vault"));
        QVERIFY(!vault->changePassword(vault.container(), TestPassword, "nova senha"));
        QCOMPARE(vault.bytes(), "not a vault"_ba);
        QVERIFY(QFile::remove(vault.container()));
        QVERIFY(!vault->changePassword(vault.container(), TestPassword, "nova senha"));
        QVERIFY(!QFileInfo::exists(vault.container()));
    }

    // --- Saving the index ------------------------------------------------------------------

    void savingTheIndexReplacesIt() {
        OpenVault vault(usedContainer());
        const ContainerDocument old = vault.document();
        const QByteArray before = vault.bytes();
        SecureFileIndex index = vault->fileIndex();
        QVERIFY(index.addDirectory({u"added"_s, {}, {}}));
        QVERIFY(vault->saveIndex(index));
        QCOMPARE(vault->fileIndex().toJson(), index.toJson());
        QCOMPARE(indexOnDrive(vault.container(), TestPassword), index.toJson());

        const ContainerDocument now = vault.document();
        QVERIFY(now.encryptedIndex != old.encryptedIndex);
        QCOMPARE(now.crypto.payloadNonce.size(), 24);
        QCOMPARE(now.crypto.salt, old.crypto.salt);
        QCOMPARE(now.crypto.nonce, old.crypto.nonce);
        QCOMPARE(now.crypto.kdf, old.crypto.kdf);
        QCOMPARE(now.crypto.kdfIterations, old.crypto.kdfIterations);
        QCOMPARE(now.crypto.encryptedMasterKey, old.crypto.encryptedMasterKey);
        QVERIFY(vault.payload() == before.mid(PayloadOffset));
    }

    void everySaveDrawsAFreshNonce() {
        OpenVault vault(usedContainer());
        QSet<QByteArray> nonces{vault.document().crypto.payloadNonce};
        QSet<QByteArray> sealed{vault.document().encryptedIndex};
        for (int i = 0; i < 5; ++i) {
            QVERIFY(vault->saveIndex(vault->fileIndex()));
            nonces.insert(vault.document().crypto.payloadNonce);
            sealed.insert(vault.document().encryptedIndex);
        }
        QCOMPARE(nonces.size(), 6);
        QCOMPARE(sealed.size(), 6);
    }

    void everyOperationSealsTheIndexUnderAFreshNonce() {
        OpenVault vault(usedContainer());
        QSet<QByteArray> nonces{vault.document().crypto.payloadNonce};
        const auto isFresh = [&](bool done) {
            const QByteArray nonce = vault.document().crypto.payloadNonce;
            const bool fresh = done && !nonces.contains(nonce);
            nonces.insert(nonce);
            return fresh;
        };
        QVERIFY(isFresh(vault.store(u"novo.txt"_s, "um")));
        QVERIFY(isFresh(vault.store(u"novo.txt"_s, "dois")));
        QVERIFY(isFresh(vault->createDirectory(u"nova"_s)));
        QVERIFY(isFresh(vault->moveFile(u"novo.txt"_s, u"nova"_s)));
        QVERIFY(isFresh(vault->renameDirectory(u"nova"_s, u"n"_s)));
        QVERIFY(isFresh(vault->deleteFile(u"n/novo.txt"_s)));
        QVERIFY(isFresh(vault->deleteDirectory(u"n"_s)));
        QVERIFY(isFresh(vault->compactVault({}, nullptr)));
    }

    void savingEmptiesWhatOnlyOlderLayoutsCarry() {
        CraftedContainer crafted = usedContainer();
        crafted.setCryptoMember(u"authTag"_s, u"AAAA"_s)
            .setHeaderMember(u"encryptedPayload"_s, u"AAAA"_s)
            .setHeaderMember(u"filePayloads"_s, QJsonObject{{u"a"_s, u"AAAA"_s}})
            .setHeaderMember(u"fileIndex"_s, QJsonObject{{u"files"_s, QJsonArray()}});
        OpenVault vault(crafted);
        QVERIFY(vault->saveIndex(vault->fileIndex()));
        const ContainerDocument now = vault.document();
        QVERIFY(now.crypto.authTag.isEmpty());
        QVERIFY(now.encryptedPayload.isEmpty());
        QVERIFY(now.filePayloads.isEmpty());
        const QByteArray header = vault.bytes().left(4096);
        QVERIFY(!header.contains("fileIndex") && !header.contains("filePayloads"));
    }

    void theIndexIsNeverWrittenInPlain() {
        OpenVault vault;
        QVERIFY(vault->createDirectory(u"a-very-secret-name"_s));
        QVERIFY(!vault.bytes().contains("a-very-secret-name"));
    }

    void anIndexThatDoesNotFitIsRefused() {
        OpenVault vault(usedContainer());
        VERIFY_REFUSED(vault, vault->saveIndex(tooLargeIndex()));
    }

    void savingBeyondAFileSizeLimitIsRefused_data() {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("before the header") << qint64(7);
        QTest::newRow("inside the header") << qint64(300);
    }
    void savingBeyondAFileSizeLimitIsRefused() {
        QFETCH(const qint64, limit);
        OpenVault vault(usedContainer());
        const VaultPicture before(vault);
        {
            const FileSizeLimit sizeLimit(limit);
            QVERIFY(!vault->saveIndex({}));
        }
        COMPARE_UNCHANGED(before);
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultSession>);
#include "test_vault_session.moc"
