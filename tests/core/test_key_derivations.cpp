// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How often a password is run through Argon2id, and with what. Each run costs a person most of a
// second and the machine 256 MiB, so none may be made twice.

#include "VaultFixture.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QTest>

#include <algorithm>

#include <sodium.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// The passwords that were derived from, in their order. One that was asked for with anything but
/// the fixed limits stands as "(other limits)".
QByteArrayList g_derivedFrom;

QByteArrayList takeDerivations() {
    QByteArrayList taken;
    taken.swap(g_derivedFrom);
    return taken;
}

const QByteArray NewPassword = "outra senha longa"_ba;

} // namespace

// Stands before libsodium's. It need not be slow to be counted, but other passwords and salts give
// other keys.
extern "C" int crypto_pwhash(unsigned char* out, unsigned long long outBytes, const char* password,
                             unsigned long long passwordBytes, const unsigned char* salt,
                             unsigned long long passes, size_t memory, int algorithm) {
    const QByteArray from(password, static_cast<qsizetype>(passwordBytes));
    const bool usual = outBytes == 64 && passes == 3 && memory == 268435456 &&
                       algorithm == crypto_pwhash_ALG_ARGON2ID13;
    g_derivedFrom.append(usual ? from : "(other limits)"_ba);
    const QByteArray key = QCryptographicHash::hash(
        QByteArray::fromRawData(reinterpret_cast<const char*>(salt), crypto_pwhash_SALTBYTES) +
            from,
        QCryptographicHash::Sha512);
    std::copy_n(key.cbegin(), std::min<size_t>(outBytes, 64), out);
    return 0;
}

class TestKeyDerivations : public QObject {
    Q_OBJECT

private:
    /// A vault as the engine makes one; what that took is not counted.
    static bool create(VaultFixture& fixture) {
        const bool created = fixture.vault.createVault(fixture.container(), TestPassword);
        g_derivedFrom.clear();
        return created;
    }

private Q_SLOTS:
    void init() { g_derivedFrom.clear(); }

    void creatingDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void creatingWhereNothingCanBeWrittenDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(!fixture.vault.createVault(fixture.file(u"missing/x"_s), TestPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void unlockingDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(fixture.unlock());
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void unlockingWithAWrongPasswordDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(!fixture.vault.unlockVault(fixture.container(), "errada"));
        QCOMPARE(takeDerivations(), QByteArrayList{"errada"});
    }

    void unlockingWhileAVaultIsOpenDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.unlock());
        QCOMPARE(takeDerivations(), (QByteArrayList{TestPassword, TestPassword}));
    }

    void anAlteredIndexDerivesOnce() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        // Its sealed index is the only text of this length behind the keys.
        const QByteArray before = readFile(fixture.container()).left(1000);
        const qsizetype at = before.indexOf("\"encryptedIndex\":\"") + 18;
        QVERIFY(overwriteAt(fixture.container(), at, before.at(at) == 'A' ? "B" : "A"));
        QVERIFY(!fixture.unlock());
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void changingThePasswordDerivesFromTheOldAndTheNewOnce() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), (QByteArrayList{TestPassword, NewPassword}));
        QVERIFY(fixture.vault.unlockVault(fixture.container(), NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{NewPassword});
    }

    void changingAWrongPasswordDerivesFromItAlone() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(!fixture.vault.changePassword(fixture.container(), "errada", NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{"errada"});
    }

    void whatIsRefusedAtOnceDerivesNothing() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        VaultManager& vault = fixture.vault;
        const QString path = fixture.container();
        QVERIFY(!vault.createVault(path, {}));
        QVERIFY(!vault.unlockVault(path, {}));
        QVERIFY(!vault.changePassword(path, {}, NewPassword));
        QVERIFY(!vault.changePassword(path, TestPassword, {}));
        QVERIFY(!vault.unlockVault(fixture.file(u"missing"_s), TestPassword));
        QVERIFY(!vault.changePassword(fixture.file(u"missing"_s), TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList());
        QVERIFY(fixture.unlock());
        g_derivedFrom.clear();
        QVERIFY(!vault.changePassword(path, TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList());
    }

    void anOpenVaultDerivesNothing() {
        VaultFixture fixture;
        QVERIFY(create(fixture));
        QVERIFY(fixture.unlock());
        g_derivedFrom.clear();
        VaultManager& vault = fixture.vault;
        QVERIFY(fixture.store(u"a"_s, "a"));
        QVERIFY(fixture.store(u"a"_s, "another a"));
        QCOMPARE(fixture.stored(u"a"_s), QByteArray("another a"));
        QVERIFY(vault.exportFile(u"a"_s, fixture.file(u"out"_s)));
        QVERIFY(vault.createDirectory(u"d"_s));
        QVERIFY(vault.moveFile(u"a"_s, u"d"_s));
        QVERIFY(vault.renameFile(u"d/a"_s, u"b"_s));
        QVERIFY(vault.renameDirectory(u"d"_s, u"e"_s));
        QVERIFY(vault.deleteDirectory(u"e"_s));
        QVERIFY(!fixture.openAndEdit(u"b"_s, "edited").isEmpty());
        QVERIFY(vault.syncModifiedTempFiles());
        QVERIFY(vault.compactVault({}, nullptr));
        QVERIFY(vault.saveIndex(vault.fileIndex()));
        QVERIFY(vault.lockVault());
        QCOMPARE(takeDerivations(), QByteArrayList());
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"b"_s), QByteArray("edited"));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestKeyDerivations>);
#include "test_key_derivations.moc"
