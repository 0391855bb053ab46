// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverRun.h"
#include "VaultFixture.h"
#include "core/ContainerManager.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"

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

ContainerDocument documentAt(const QString& path) {
    ContainerDocument document;
    return ContainerManager().readDocument(path, &document) ? document : ContainerDocument();
}

/// The master key, opened by hand with the associated data written out; empty when it does not
/// open.
QByteArray masterKeyIn(const ContainerCryptoMetadata& crypto, const QByteArray& password) {
    CraftedContainer hand;
    hand.keys.kdf = "Argon2id";
    hand.keys.password = password;
    hand.keys.salt = crypto.salt;
    return CraftedContainer::open(
        crypto.encryptedMasterKey, hand.passwordKey().left(32), crypto.nonce,
        "TESSEL|master-key|3|XChaCha20-Poly1305|Argon2id|0|" + crypto.salt + "|" + crypto.nonce);
}

/// A crafted vault with a folder and a file, as if it had been in use.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(u"docs/a.txt"_s, "contents of a"_ba);
    return crafted;
}

/// The container opens, and the other session lets go of it again.
bool opens(const QString& path, const QByteArray& password = TestPassword) {
    return !indexAsOpenedAnew(path, password).isEmpty();
}

/// Flips the lowest bit of one byte.
QByteArray withByteChanged(QByteArray bytes, qsizetype at) {
    bytes[at] = static_cast<char>(bytes.at(at) ^ 1);
    return bytes;
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
        const VaultFixture fixture;
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.vault.fileIndex().entries().isEmpty());
        QVERIFY(fixture.vault.fileIndex().directories().isEmpty());
        QVERIFY(fixture.vault.modifiedOpenFiles().isEmpty());
        QVERIFY(fixture.temporaryNames().isEmpty());
    }

    void aLockedVaultRefusesEveryOperation() {
        VaultFixture fixture(usedContainer());
        const QString source = fixture.write(u"source"_s, "x");
        const VaultPicture before(fixture);
        QString copy = u"untouched"_s;
        QString error = u"to be emptied"_s;
        VaultManager& vault = fixture.vault;
        QVERIFY(!vault.saveIndex({}));
        QVERIFY(!vault.importFile(source, u"b"_s));
        QVERIFY(!vault.exportFile(u"docs/a.txt"_s, fixture.file(u"e"_s)));
        QVERIFY(!QFileInfo::exists(fixture.file(u"e"_s)));
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("(refused)"));
        QVERIFY(!vault.moveFile(u"docs/a.txt"_s, QString()));
        QVERIFY(!vault.renameFile(u"docs/a.txt"_s, u"b"_s));
        QVERIFY(!vault.deleteFile(u"docs/a.txt"_s));
        QVERIFY(!vault.createDirectory(u"new"_s));
        QVERIFY(!vault.renameDirectory(u"docs"_s, u"new"_s));
        QVERIFY(!vault.deleteDirectory(u"docs"_s));
        QVERIFY(!vault.compactVault({}, &error));
        QVERIFY(error.isEmpty());
        QVERIFY(!vault.prepareFileForEditing(u"docs/a.txt"_s, &copy));
        QCOMPARE(copy, u"untouched"_s);
        COMPARE_UNCHANGED(before);
    }

    // --- Creating --------------------------------------------------------------------------

    void aCreatedVaultIsWrittenAsTheFormatSays() {
        VaultFixture fixture;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset);

        const ContainerDocument document = documentAt(fixture.container());
        const ContainerCryptoMetadata& crypto = document.crypto;
        QCOMPARE(document.formatVersion, 3);
        QCOMPARE(crypto.kdf, u"Argon2id"_s);
        QCOMPARE(crypto.cipher, u"XChaCha20-Poly1305"_s);
        QCOMPARE(crypto.kdfIterations, 0);
        QCOMPARE(crypto.salt.size(), 16);
        QCOMPARE(crypto.nonce.size(), 24);
        QCOMPARE(crypto.payloadNonce.size(), 24);
        QVERIFY(crypto.authTag.isEmpty());

        const QByteArray masterKey = masterKeyIn(crypto, TestPassword);
        QCOMPARE(masterKey.size(), 64);
        QCOMPARE(CraftedContainer::open(document.encryptedIndex, masterKey.left(32),
                                        crypto.payloadNonce,
                                        "TESSEL|index|3|XChaCha20-Poly1305|" + crypto.payloadNonce),
                 QByteArray("{\"directories\":[],\"files\":[],\"formatVersion\":1}"));
    }

    void twoVaultsOfOnePasswordShareNothing() {
        VaultFixture fixture;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        const ContainerCryptoMetadata first = documentAt(fixture.container()).crypto;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        const ContainerCryptoMetadata second = documentAt(fixture.container()).crypto;
        for (const ContainerCryptoMetadata& crypto : {first, second}) {
            QCOMPARE(crypto.salt.size(), 16);
            QCOMPARE(crypto.nonce.size(), 24);
            QCOMPARE(crypto.payloadNonce.size(), 24);
            QVERIFY(crypto.nonce != crypto.payloadNonce);
        }
        QVERIFY(first.salt != second.salt);
        QVERIFY(first.nonce != second.nonce);
        QVERIFY(first.payloadNonce != second.payloadNonce);

        const QByteArray firstKey = masterKeyIn(first, TestPassword);
        const QByteArray secondKey = masterKeyIn(second, TestPassword);
        QCOMPARE(firstKey.size(), 64);
        QCOMPARE(secondKey.size(), 64);
        // The first half seals the files; the other one was drawn as well.
        QVERIFY(firstKey.left(32) != secondKey.left(32));
        QVERIFY(firstKey.right(32) != secondKey.right(32));
    }

    void aCreatedVaultOpensEmpty() {
        VaultFixture fixture(usedContainer());
        // Whatever was at the path is replaced.
        QVERIFY(fixture.vault.createVault(fixture.container(), "another password"));
        QVERIFY(fixture.vault.unlockVault(fixture.container(), "another password"));
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QVERIFY(fixture.filePaths().isEmpty());
        QVERIFY(fixture.folderPaths().isEmpty());
        QVERIFY(fixture.store(u"a"_s, "abc"));
        QCOMPARE(fixture.stored(u"a"_s), QByteArray("abc"));
        QVERIFY(fixture.vault.lockVault());
    }

    void creatingWithoutAPasswordWritesNothing() {
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.createVault(fixture.container(), {}));
        COMPARE_UNCHANGED(before);
        const QString fresh = fixture.driveFolder() + u"/new.tvlt"_s;
        QVERIFY(!fixture.vault.createVault(fresh, {}));
        QVERIFY(!QFileInfo::exists(fresh));
    }

    void creatingWhereNothingCanBeWrittenIsFalse() {
        VaultFixture fixture;
        const QString nowhere = fixture.driveFolder() + u"/missing/tessel.tvlt"_s;
        QVERIFY(!fixture.vault.createVault(nowhere, TestPassword));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(!QFileInfo::exists(QFileInfo(nowhere).path()));
    }

    void creatingOnAFullDriveKeepsTheOldVault() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(16 * MiB);
        QVERIFY(disk.isMounted());
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.moveContainerTo(disk.filePath(u"tessel.tvlt"_s)));
        QVERIFY(disk.fillUpTo(4 * MiB));
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.createVault(fixture.container(), "another password"));
        COMPARE_UNCHANGED(before);
    }

    void creatingWhileAVaultIsOpenLocksIt() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString other = fixture.driveFolder() + u"/other.tvlt"_s;
        QVERIFY(fixture.vault.createVault(other, "another password"));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.filePaths().isEmpty());
        QVERIFY(!fixture.vault.createDirectory(u"new"_s));
        QVERIFY(opens(fixture.container()));
    }

    void creatingWithoutTheMemoryForTheKeyWritesNothing() {
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!fixture.vault.createVault(fixture.container(), "another password"));
        }
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.unlock());
    }

    void creatingOnADiskThatDoesNotTakeItKeepsTheOldVault() {
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run = runDriver({fixture.container(), u"another password"_s, u"create"_s},
                                        QString(), {u"fdatasync:error=EIO:when=1"_s});
        QVERIFY(run.refused());
        COMPARE_UNCHANGED(before);
        QCOMPARE(QDir(fixture.driveFolder()).entryList(QDir::Files | QDir::Hidden),
                 QStringList(u"tessel.tvlt"_s));
    }

    // --- Unlocking -------------------------------------------------------------------------

    void unlockingReadsTheIndex() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QCOMPARE(fixture.filePaths(), QStringList(u"docs/a.txt"_s));
        QCOMPARE(fixture.folderPaths(), QStringList(u"docs"_s));
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
        QCOMPARE(fixture.temporaryNames(), QStringList(u"Tessel"_s));
    }

    void unlockingWithArgon2idOpensAVaultMadeElsewhere() {
        CraftedContainer crafted = usedContainer();
        crafted.keys.kdf = "Argon2id";
        crafted.keys.kdfIterations = 0;
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
    }

    void unlockingWithAWrongPasswordStaysLocked_data() {
        QTest::addColumn<QByteArray>("password");
        QTest::newRow("empty") << QByteArray();
        QTest::newRow("another") << QByteArray("senha de outro");
        QTest::newRow("letter case") << QByteArray("Senha de teste");
        QTest::newRow("a blank more") << QByteArray("senha de teste ");
        QTest::newRow("a letter less") << QByteArray("senha de test");
    }
    void unlockingWithAWrongPasswordStaysLocked() {
        QFETCH(const QByteArray, password);
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.unlockVault(fixture.container(), password));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(fixture.filePaths().isEmpty());
        QVERIFY(fixture.temporaryNames().isEmpty());
        QVERIFY(!fixture.vault.createDirectory(u"new"_s));
        COMPARE_UNCHANGED(before);
        QVERIFY(fixture.unlock());
    }

    void unlockingWhatIsNoVaultStaysLocked() {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), "not a vault"));
        QVERIFY(!fixture.unlock());
        QVERIFY(QFile::remove(fixture.container()));
        QVERIFY(!fixture.unlock());
        QVERIFY(!fixture.vault.unlockVault(fixture.driveFolder(), TestPassword));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
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
        VaultFixture fixture(crafted);
        QVERIFY(opens(fixture.container()));
        crafted.setCryptoMember(member, value);
        QVERIFY(crafted.writeTo(fixture.container()));
        QVERIFY(!fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(!fixture.vault.saveIndex({}));
    }

    void aHeaderWithoutCryptoDoesNotUnlock() {
        CraftedContainer crafted;
        crafted.setHeaderMember(u"crypto"_s, QJsonValue::Undefined);
        VaultFixture fixture(crafted);
        QVERIFY(!fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
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
        VaultFixture fixture(crafted);
        QVERIFY(!fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(!fixture.vault.createDirectory(u"new"_s));
    }

    void anIndexThatDecryptsIsTrusted() {
        CraftedContainer crafted;
        crafted.setIndexJson("not JSON");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.filePaths().isEmpty());
    }

    void aPlaintextIndexInTheHeaderIsNotTheIndex() {
        CraftedContainer crafted = usedContainer();
        crafted.setHeaderMember(
            u"fileIndex"_s,
            QJsonObject{{u"directories"_s, QJsonArray{QJsonObject{{u"path"_s, u"smuggled"_s}}}}});
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.folderPaths(), QStringList(u"docs"_s));
    }

    void unlockingAnotherVaultTakesItsPlace() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        CraftedContainer other(2);
        other.keys.password = "outra senha";
        other.addFile(u"b"_s, "contents of b");
        const QString path = fixture.driveFolder() + u"/other.tvlt"_s;
        QVERIFY(other.writeTo(path));
        QVERIFY(fixture.vault.unlockVault(path, "outra senha"));
        QCOMPARE(fixture.filePaths(), QStringList(u"b"_s));
        QCOMPARE(fixture.stored(u"b"_s), QByteArray("contents of b"));
    }

    void unlockingWithoutAWorkspaceIsFalseYetUnlocked() {
        VaultFixture fixture(usedContainer());
        // Where the workspace's parent should be, a file is in the way.
        QVERIFY(writeFile(fixture.temporaryFolder() + u"/Tessel"_s, "in the way"));
        QVERIFY(!fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
        QVERIFY(fixture.vault.createDirectory(u"new"_s));
        QVERIFY(fixture.vault.lockVault());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
    }

    // --- Headers torn by a drive that was pulled out ---------------------------------------

    void aTornHeaderIsRepairedFromTheRecordBehindThePayload() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        const QByteArray whole = readFile(fixture.container());
        QVERIFY(tearHeader(fixture.container(), crafted));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
        QVERIFY(readFile(fixture.container()) == whole);
    }

    void aRecordThatIsNotWholeRepairsNothing_data() {
        QTest::addColumn<qint64>("fromTheEnd");
        QTest::newRow("mark") << qint64(1);
        QTest::newRow("size") << qint64(13);
        QTest::newRow("digest") << qint64(33);
        QTest::newRow("header") << qint64(100);
    }
    void aRecordThatIsNotWholeRepairsNothing() {
        QFETCH(const qint64, fromTheEnd);
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        QVERIFY(tearHeader(fixture.container(), crafted));
        const qint64 at = QFileInfo(fixture.container()).size() - fromTheEnd;
        const QByteArray intact = readFile(fixture.container());
        QVERIFY(overwriteAt(fixture.container(), at, withByteChanged(intact.mid(at, 1), 0)));
        const QByteArray torn = readFile(fixture.container());
        QVERIFY(!fixture.unlock());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QVERIFY(readFile(fixture.container()) == torn);
    }

    void aTornHeaderKeepsItsRecordFromAWrongPassword() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        QVERIFY(tearHeader(fixture.container(), crafted));
        const QByteArray torn = readFile(fixture.container());
        QVERIFY(!fixture.vault.unlockVault(fixture.container(), "senha de outro"));
        QVERIFY(readFile(fixture.container()) == torn);
        QVERIFY(fixture.unlock());
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
        VaultFixture fixture(crafted);
        const QByteArray whole = readFile(fixture.container());
        QVERIFY(tearHeader(fixture.container(), crafted));
        const DriverRun run =
            runDriver({fixture.container(), QString::fromUtf8(TestPassword), operation},
                      fixture.container(), {injection});
        QVERIFY(run.ended());
        QCOMPARE(run.succeeded(), operation == "unlock"_L1);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
        QCOMPARE(readFile(fixture.container()).size(), whole.size());
    }

    void aRecordBehindAGoodHeaderIsIgnoredAndGoesWithTheNextChange() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        const QByteArray whole = readFile(fixture.container());
        CraftedContainer other(2);
        other.keys = crafted.keys;
        QVERIFY(overwriteAt(fixture.container(), whole.size(), other.redoRecord()));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.filePaths(), QStringList(u"docs/a.txt"_s));
        QVERIFY(fixture.store(u"b"_s, "contents of b"));
        QCOMPARE(QFileInfo(fixture.container()).size(), whole.size() + 13 + 16);
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
        QCOMPARE(fixture.stored(u"b"_s), QByteArray("contents of b"));
    }

    // --- Associated data, byte by byte -----------------------------------------------------

    void everyByteOfTheMasterKeysAssociatedDataCounts() {
        CraftedContainer crafted;
        const CraftedKeys& keys = crafted.keys;
        const QByteArray literal = "TESSEL|master-key|3|XChaCha20-Poly1305|PBKDF2-HMAC-SHA256|1|" +
                                   keys.salt + "|" + keys.nonce;
        QCOMPARE(literal.size(), 61 + 16 + 1 + 24 - 1);
        VaultFixture fixture;
        const auto opensWith = [&](const QByteArray& associatedData) {
            crafted.setCryptoMember(
                u"encryptedMasterKey"_s,
                base64(CraftedContainer::seal(keys.masterKey, crafted.passwordKey().left(32),
                                              keys.nonce, associatedData)));
            return crafted.writeTo(fixture.container()) && opens(fixture.container());
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
        VaultFixture fixture;
        const auto opensWith = [&](const QByteArray& associatedData) {
            crafted.setEncryptedIndex(CraftedContainer::seal("{}", keys.masterKey.left(32),
                                                             keys.payloadNonce, associatedData));
            return crafted.writeTo(fixture.container()) && opens(fixture.container());
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
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
    }

    // --- Locking ---------------------------------------------------------------------------

    void lockingForgetsTheKeyAndKeepsTheIndexInMemory() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QVERIFY(fixture.vault.lockVault());
        QCOMPARE(fixture.vault.state(), VaultState::Locked);
        QCOMPARE(fixture.vault.fileIndex().toJson(), index);
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("(refused)"));
        QVERIFY(!fixture.vault.saveIndex(fixture.vault.fileIndex()));
        QVERIFY(QDir(fixture.temporaryFolder() + u"/Tessel"_s).isEmpty());
    }

    void lockingAgainIsHarmless() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
    }

    void lockingChangesNothingInTheContainer() {
        VaultFixture fixture(usedContainer());
        const QByteArray before = readFile(fixture.container());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(readFile(fixture.container()) == before);
    }

    // --- Changing the password -------------------------------------------------------------

    void aChangedPasswordOpensAndTheOldOneDoesNot() {
        CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        const QByteArray before = readFile(fixture.container());
        const ContainerDocument old = documentAt(fixture.container());
        QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        QCOMPARE(fixture.vault.state(), VaultState::Locked);

        const ContainerDocument now = documentAt(fixture.container());
        QCOMPARE(now.crypto.kdf, u"Argon2id"_s);
        QCOMPARE(now.crypto.kdfIterations, 0);
        QCOMPARE(now.crypto.cipher, u"XChaCha20-Poly1305"_s);
        QCOMPARE(now.crypto.salt.size(), 16);
        QVERIFY(now.crypto.salt != old.crypto.salt);
        QCOMPARE(now.crypto.nonce.size(), 24);
        QVERIFY(now.crypto.nonce != old.crypto.nonce);
        QCOMPARE(now.crypto.payloadNonce, old.crypto.payloadNonce);
        QCOMPARE(now.encryptedIndex, old.encryptedIndex);
        const QByteArray after = readFile(fixture.container());
        QCOMPARE(after.size(), before.size());
        QVERIFY(after.mid(PayloadOffset) == before.mid(PayloadOffset));

        QVERIFY(!fixture.unlock());
        QVERIFY(fixture.vault.unlockVault(fixture.container(), "nova senha"));
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));

        // The master key is the one of before, only wrapped anew.
        QCOMPARE(masterKeyIn(now.crypto, "nova senha"), crafted.keys.masterKey);
    }

    void aChangedPasswordCanBeChangedBack() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        QVERIFY(fixture.vault.changePassword(fixture.container(), "nova senha", TestPassword));
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.txt"_s), QByteArray("contents of a"));
    }

    void changingThePasswordIsRefused_data() {
        QTest::addColumn<QByteArray>("oldPassword");
        QTest::addColumn<QByteArray>("newPassword");
        QTest::newRow("wrong old") << QByteArray("errada") << QByteArray("nova senha");
        QTest::newRow("no old") << QByteArray() << QByteArray("nova senha");
        QTest::newRow("no new") << TestPassword << QByteArray();
    }
    void changingThePasswordIsRefused() {
        QFETCH(const QByteArray, oldPassword);
        QFETCH(const QByteArray, newPassword);
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.changePassword(fixture.container(), oldPassword, newPassword));
        COMPARE_UNCHANGED(before);
    }

    void changingThePasswordWithoutTheMemoryForTheKeyIsRefused() {
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        {
            const MemoryLimit limit(100 * MiB);
            QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        }
        COMPARE_UNCHANGED(before);
    }

    void changingThePasswordOfAnOpenVaultIsRefused() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        COMPARE_UNCHANGED(before);
    }

    void changingThePasswordOfNoVaultIsRefused() {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), "not a vault"));
        QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        QCOMPARE(readFile(fixture.container()), QByteArray("not a vault"));
        QVERIFY(QFile::remove(fixture.container()));
        QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        QVERIFY(!QFileInfo::exists(fixture.container()));
    }

    void changingThePasswordOnAReadOnlyDriveIsRefused() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const ReadOnlyMount drive(fixture.driveFolder());
        QVERIFY(drive.isMounted());
        QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, "nova senha"));
        COMPARE_UNCHANGED(before);
    }

    // --- Saving the index ------------------------------------------------------------------

    void savingTheIndexReplacesIt() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const ContainerDocument old = documentAt(fixture.container());
        const QByteArray before = readFile(fixture.container());
        SecureFileIndex index = fixture.vault.fileIndex();
        QVERIFY(index.addDirectory({u"added"_s, {}, {}}));
        QVERIFY(fixture.vault.saveIndex(index));
        QCOMPARE(fixture.vault.fileIndex().toJson(), index.toJson());
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword), index.toJson());

        const ContainerDocument now = documentAt(fixture.container());
        QVERIFY(now.encryptedIndex != old.encryptedIndex);
        QCOMPARE(now.crypto.payloadNonce.size(), 24);
        QCOMPARE(now.crypto.salt, old.crypto.salt);
        QCOMPARE(now.crypto.nonce, old.crypto.nonce);
        QCOMPARE(now.crypto.kdf, old.crypto.kdf);
        QCOMPARE(now.crypto.kdfIterations, old.crypto.kdfIterations);
        QCOMPARE(now.crypto.encryptedMasterKey, old.crypto.encryptedMasterKey);
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == before.mid(PayloadOffset));
    }

    void everySaveDrawsAFreshNonce() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QSet<QByteArray> nonces{documentAt(fixture.container()).crypto.payloadNonce};
        QSet<QByteArray> sealed{documentAt(fixture.container()).encryptedIndex};
        for (int i = 0; i < 5; ++i) {
            QVERIFY(fixture.vault.saveIndex(fixture.vault.fileIndex()));
            nonces.insert(documentAt(fixture.container()).crypto.payloadNonce);
            sealed.insert(documentAt(fixture.container()).encryptedIndex);
        }
        QCOMPARE(nonces.size(), 6);
        QCOMPARE(sealed.size(), 6);
    }

    void everyOperationSealsTheIndexUnderAFreshNonce() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QSet<QByteArray> nonces{documentAt(fixture.container()).crypto.payloadNonce};
        const auto isFresh = [&](bool done) {
            const QByteArray nonce = documentAt(fixture.container()).crypto.payloadNonce;
            const bool fresh = done && !nonces.contains(nonce);
            nonces.insert(nonce);
            return fresh;
        };
        QVERIFY(isFresh(fixture.store(u"novo.txt"_s, "um")));
        QVERIFY(isFresh(fixture.store(u"novo.txt"_s, "dois")));
        QVERIFY(isFresh(fixture.vault.createDirectory(u"nova"_s)));
        QVERIFY(isFresh(fixture.vault.moveFile(u"novo.txt"_s, u"nova"_s)));
        QVERIFY(isFresh(fixture.vault.renameDirectory(u"nova"_s, u"n"_s)));
        QVERIFY(isFresh(fixture.vault.deleteFile(u"n/novo.txt"_s)));
        QVERIFY(isFresh(fixture.vault.deleteDirectory(u"n"_s)));
        QVERIFY(isFresh(fixture.vault.compactVault({}, nullptr)));
    }

    void savingEmptiesWhatOnlyOlderLayoutsCarry() {
        CraftedContainer crafted = usedContainer();
        crafted.setCryptoMember(u"authTag"_s, u"AAAA"_s)
            .setHeaderMember(u"encryptedPayload"_s, u"AAAA"_s)
            .setHeaderMember(u"filePayloads"_s, QJsonObject{{u"a"_s, u"AAAA"_s}})
            .setHeaderMember(u"fileIndex"_s, QJsonObject{{u"files"_s, QJsonArray()}});
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.saveIndex(fixture.vault.fileIndex()));
        const ContainerDocument now = documentAt(fixture.container());
        QVERIFY(now.crypto.authTag.isEmpty());
        QVERIFY(now.encryptedPayload.isEmpty());
        QVERIFY(now.filePayloads.isEmpty());
        const QByteArray header = readFile(fixture.container()).left(4096);
        QVERIFY(!header.contains("fileIndex") && !header.contains("filePayloads"));
    }

    void theIndexIsNeverWrittenInPlain() {
        VaultFixture fixture;
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.createDirectory(u"a-very-secret-name"_s));
        QVERIFY(!readFile(fixture.container()).contains("a-very-secret-name"));
    }

    void anIndexThatDoesNotFitIsRefused() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(!fixture.vault.saveIndex(tooLargeIndex()));
        COMPARE_UNCHANGED(before);
    }

    void savingWithoutTheContainerIsRefused() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QVERIFY(QFile::rename(fixture.container(), fixture.file(u"unplugged"_s)));
        QVERIFY(!fixture.vault.saveIndex({}));
        QCOMPARE(fixture.vault.fileIndex().toJson(), index);
        QVERIFY(!QFileInfo::exists(fixture.container()));
        // Plugged in again, the session goes on.
        QVERIFY(QFile::rename(fixture.file(u"unplugged"_s), fixture.container()));
        QVERIFY(fixture.vault.saveIndex(fixture.vault.fileIndex()));
    }

    void savingOnAReadOnlyDriveIsRefused() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        const ReadOnlyMount drive(fixture.driveFolder());
        QVERIFY(drive.isMounted());
        QVERIFY(!fixture.vault.saveIndex({}));
        COMPARE_UNCHANGED(before);
    }

    void savingBeyondAFileSizeLimitIsRefused_data() {
        QTest::addColumn<qint64>("limit");
        QTest::newRow("before the header") << qint64(7);
        QTest::newRow("inside the header") << qint64(300);
    }
    void savingBeyondAFileSizeLimitIsRefused() {
        QFETCH(const qint64, limit);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        {
            const FileSizeLimit sizeLimit(limit);
            QVERIFY(!fixture.vault.saveIndex({}));
        }
        COMPARE_UNCHANGED(before);
    }

    void aDriveThatFailsWhileSavingLeavesTheHeader_data() {
        QTest::addColumn<QString>("injection");
        QTest::newRow("write refused") << u"write:error=EIO:when=1"_s;
        QTest::newRow("no room") << u"write:error=ENOSPC:when=1"_s;
        QTest::newRow("flush refused") << u"fdatasync:error=EIO:when=2"_s;
        QTest::newRow("header cannot be read") << u"read:error=EIO:when=8"_s;
        QTest::newRow("cannot be opened") << u"openat:error=EACCES:when=4"_s;
        QTest::newRow("cannot be opened for writing") << u"openat:error=EROFS:when=5"_s;
    }
    void aDriveThatFailsWhileSavingLeavesTheHeader() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run = runDriver(
            {fixture.container(), QString::fromUtf8(TestPassword), u"delete"_s, u"docs/a.txt"_s},
            fixture.container(), {injection});
        QVERIFY2(run.refused(), qPrintable(run.said.value(u"result"_s)));
        COMPARE_UNCHANGED(before);
    }

    void aDriveThatFailsWhileThePasswordChangesLeavesTheHeader_data() {
        QTest::addColumn<QString>("injection");
        QTest::newRow("write refused") << u"write:error=EIO:when=1"_s;
        QTest::newRow("flush refused") << u"fdatasync:error=EIO:when=2"_s;
    }
    void aDriveThatFailsWhileThePasswordChangesLeavesTheHeader() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run = runDriver(
            {fixture.container(), QString::fromUtf8(TestPassword), u"password"_s, u"nova senha"_s},
            fixture.container(), {injection});
        QVERIFY(run.refused());
        COMPARE_UNCHANGED(before);
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultSession>);
#include "test_vault_session.moc"
