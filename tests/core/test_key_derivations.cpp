// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// How often a password is run through Argon2id, and with what. Each run costs a person most of a
// second and the machine 256 MiB, so none may be made twice.

#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QSet>
#include <QTest>

#include <algorithm>

#include <sodium.h>
#include <sys/mman.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

/// The passwords that were derived from, in their order. One that was asked for with anything but
/// the fixed limits is "(other limits)".
QByteArrayList g_derivedFrom;

QByteArrayList takeDerivations() {
    QByteArrayList taken;
    taken.swap(g_derivedFrom);
    return taken;
}

const QByteArray NewPassword = "outra senha longa"_ba;

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

} // namespace

// Replaces libsodium's in this program. It need not be slow to be counted, but other passwords and
// salts give other keys, and without the memory there is none.
extern "C" int crypto_pwhash(unsigned char* out, unsigned long long outBytes, const char* password,
                             unsigned long long passwordBytes, const unsigned char* salt,
                             unsigned long long passes, size_t memory, int algorithm) {
    void* const needed = ::mmap(nullptr, memory, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (needed == MAP_FAILED) {
        return -1;
    }
    ::munmap(needed, memory);
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
    static bool create(VaultFixture& vault) {
        const bool created = vault->createVault(vault.container(), TestPassword);
        g_derivedFrom.clear();
        return created;
    }

private Q_SLOTS:
    void init() { g_derivedFrom.clear(); }

    void creatingDerivesOnce() {
        VaultFixture vault;
        QVERIFY(vault->createVault(vault.container(), TestPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void creatingWhereNothingCanBeWrittenDerivesOnce() {
        VaultFixture vault;
        QVERIFY(!vault->createVault(vault.file(u"missing/x"_s), TestPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void unlockingDerivesOnce() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(vault.unlock());
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void unlockingWithAWrongPasswordDerivesOnce() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(!vault->unlockVault(vault.container(), "errada"));
        QCOMPARE(takeDerivations(), QByteArrayList{"errada"});
    }

    void unlockingWhileAVaultIsOpenDerivesOnce() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(vault.unlock());
        QVERIFY(vault.unlock());
        QCOMPARE(takeDerivations(), (QByteArrayList{TestPassword, TestPassword}));
    }

    void anAlteredIndexDerivesOnce() {
        VaultFixture vault;
        QVERIFY(create(vault));
        // Its sealed index is the only text of this length behind the keys.
        const QByteArray before = readFile(vault.container()).left(1000);
        const qsizetype at = before.indexOf("\"encryptedIndex\":\"") + 18;
        QVERIFY(overwriteAt(vault.container(), at, before.at(at) == 'A' ? "B" : "A"));
        QVERIFY(!vault.unlock());
        QCOMPARE(takeDerivations(), QByteArrayList{TestPassword});
    }

    void changingThePasswordDerivesFromTheOldAndTheNewOnce() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(vault->changePassword(vault.container(), TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), (QByteArrayList{TestPassword, NewPassword}));
        QVERIFY(vault->unlockVault(vault.container(), NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{NewPassword});
    }

    void changingAWrongPasswordDerivesFromItAlone() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(!vault->changePassword(vault.container(), "errada", NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList{"errada"});
    }

    void whatIsRefusedAtOnceDerivesNothing() {
        VaultFixture vault;
        QVERIFY(create(vault));
        const QString path = vault.container();
        QVERIFY(!vault->createVault(path, {}));
        QVERIFY(!vault->unlockVault(path, {}));
        QVERIFY(!vault->changePassword(path, {}, NewPassword));
        QVERIFY(!vault->changePassword(path, TestPassword, {}));
        QVERIFY(!vault->unlockVault(vault.file(u"missing"_s), TestPassword));
        QVERIFY(!vault->changePassword(vault.file(u"missing"_s), TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList());
        QVERIFY(vault.unlock());
        g_derivedFrom.clear();
        QVERIFY(!vault->changePassword(path, TestPassword, NewPassword));
        QCOMPARE(takeDerivations(), QByteArrayList());
    }

    void anOpenVaultDerivesNothing() {
        VaultFixture vault;
        QVERIFY(create(vault));
        QVERIFY(vault.unlock());
        g_derivedFrom.clear();
        QVERIFY(vault.store(u"a"_s, "a"));
        QVERIFY(vault.store(u"a"_s, "another a"));
        QCOMPARE(vault.stored(u"a"_s), QByteArray("another a"));
        QVERIFY(vault->exportFile(u"a"_s, vault.file(u"out"_s)));
        QVERIFY(vault->createDirectory(u"d"_s));
        QVERIFY(vault->moveFile(u"a"_s, u"d"_s));
        QVERIFY(vault->renameFile(u"d/a"_s, u"b"_s));
        QVERIFY(vault->renameDirectory(u"d"_s, u"e"_s));
        QVERIFY(vault->deleteDirectory(u"e"_s));
        QVERIFY(!vault.openAndEdit(u"b"_s, "edited").isEmpty());
        QVERIFY(vault->syncModifiedTempFiles());
        QVERIFY(vault.compact());
        QVERIFY(vault->saveIndex(vault->fileIndex()));
        QVERIFY(vault->lockVault());
        QCOMPARE(takeDerivations(), QByteArrayList());
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(u"b"_s), QByteArray("edited"));
    }

    // --- Vaults as the engine makes them ----------------------------------------------------

    void aCreatedVaultIsWrittenAsTheFormatSays() {
        VaultFixture vault;
        QList<QByteArray> drawn;
        // Two vaults of one password share nothing.
        for (int i = 0; i < 2; ++i) {
            QVERIFY(vault->createVault(vault.container(), TestPassword));
            QCOMPARE(vault->state(), VaultState::Locked);
            QCOMPARE(vault.containerSize(), PayloadOffset);
            const ContainerDocument document = vault.document();
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
            QCOMPARE(CraftedContainer::open(
                         document.encryptedIndex, masterKey.left(32), crypto.payloadNonce,
                         "TESSEL|index|3|XChaCha20-Poly1305|" + crypto.payloadNonce),
                     "{\"directories\":[],\"files\":[],\"formatVersion\":1}"_ba);
            // The first half of the master key seals the files; the other one is drawn as well.
            drawn += {crypto.salt, crypto.nonce, crypto.payloadNonce, masterKey.left(32),
                      masterKey.right(32)};
        }
        QCOMPARE(QSet<QByteArray>(drawn.cbegin(), drawn.cend()).size(), 10);
    }

    void aCreatedVaultOpensEmpty() {
        VaultFixture vault(usedContainer());
        // Whatever was at the path is replaced.
        QVERIFY(vault->createVault(vault.container(), "another password"));
        QVERIFY(vault->unlockVault(vault.container(), "another password"));
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QVERIFY(vault.filePaths().isEmpty());
        QVERIFY(vault.folderPaths().isEmpty());
        QVERIFY(vault.store(u"a"_s, "abc"));
        QCOMPARE(vault.stored(u"a"_s), "abc"_ba);
        QVERIFY(vault->lockVault());
    }

    void aChangedPasswordOpensAndTheOldOneDoesNot() {
        CraftedContainer crafted = usedContainer();
        VaultFixture vault(crafted);
        const QByteArray before = vault.bytes();
        const ContainerDocument old = vault.document();
        QVERIFY(vault->changePassword(vault.container(), TestPassword, NewPassword));
        QCOMPARE(vault->state(), VaultState::Locked);

        const ContainerDocument now = vault.document();
        QCOMPARE(now.crypto.kdf, u"Argon2id"_s);
        QCOMPARE(now.crypto.kdfIterations, 0);
        QCOMPARE(now.crypto.cipher, u"XChaCha20-Poly1305"_s);
        QCOMPARE(now.crypto.salt.size(), 16);
        QVERIFY(now.crypto.salt != old.crypto.salt);
        QCOMPARE(now.crypto.nonce.size(), 24);
        QVERIFY(now.crypto.nonce != old.crypto.nonce);
        QCOMPARE(now.crypto.payloadNonce, old.crypto.payloadNonce);
        QCOMPARE(now.encryptedIndex, old.encryptedIndex);
        const QByteArray after = vault.bytes();
        QCOMPARE(after.size(), before.size());
        QVERIFY(after.mid(PayloadOffset) == before.mid(PayloadOffset));

        QVERIFY(!vault.unlock());
        QVERIFY(vault->unlockVault(vault.container(), NewPassword));
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);

        // The master key is the one of before, sealed under another key.
        QCOMPARE(masterKeyIn(now.crypto, NewPassword), crafted.keys.masterKey);

        // And back.
        QVERIFY(vault->lockVault());
        QVERIFY(vault->changePassword(vault.container(), NewPassword, TestPassword));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of a"_ba);
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestKeyDerivations>);
#include "test_key_derivations.moc"
