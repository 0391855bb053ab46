// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerManager.h"
#include "core/VaultManager.h"
#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTest>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

/// The helper that makes hostile containers must make good ones too: otherwise a test that expects
/// a refusal would pass for the wrong reason.
class TestCraftedContainer : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theEngineOpensACraftedContainer_data() {
        QTest::addColumn<QByteArray>("kdf");
        QTest::addColumn<qint32>("iterations");
        QTest::addRow("PBKDF2, once") << "PBKDF2-HMAC-SHA256"_ba << 1;
        QTest::addRow("PBKDF2, three times") << "PBKDF2-HMAC-SHA256"_ba << 3;
        QTest::addRow("PBKDF2 under another name") << "argon2id"_ba << 2;
        QTest::addRow("Argon2id") << "Argon2id"_ba << 0;
    }
    void theEngineOpensACraftedContainer() {
        QFETCH(const QByteArray, kdf);
        QFETCH(const qint32, iterations);
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"tessel.tvlt"_s);
        CraftedContainer crafted;
        crafted.keys.kdf = kdf;
        crafted.keys.kdfIterations = iterations;
        const QByteArray contents = noise(2500);
        crafted.addFolder(u"docs"_s).leaveGap(5);
        crafted.addFile(u"docs/relatório.bin"_s, contents, 1000);
        crafted.addFile(u"vazio"_s, {});
        QVERIFY(crafted.writeTo(path));

        VaultManager vault;
        QVERIFY(!vault.unlockVault(path, "outra senha"));
        QVERIFY(vault.unlockVault(path, crafted.keys.password));
        QCOMPARE(vault.fileIndex().entries().size(), 2);
        QCOMPARE(vault.fileIndex().directories().size(), 1);
        QBuffer plain;
        QVERIFY(plain.open(QIODevice::WriteOnly));
        QVERIFY(vault.writeVaultFileToDevice(u"docs/relatório.bin"_s, &plain));
        QCOMPARE(plain.data(), contents);
        QVERIFY(vault.lockVault());
    }

    void writtenFileAndBytesAreTheSame() {
        const QTemporaryDir folder;
        const QString path = folder.filePath(u"tessel.tvlt"_s);
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "abc").leaveGap(7);
        QVERIFY(crafted.writeTo(path));
        QVERIFY(readFile(path) == crafted.bytes());
        QCOMPARE(crafted.bytes().size(), 8388636 + 3 + 16 + 7);
        QCOMPARE(crafted.fileSize(), crafted.bytes().size());

        crafted.setPadding('x').cutAt(8388636 + 4);
        QVERIFY(crafted.writeTo(path));
        QVERIFY(readFile(path) == crafted.bytes());
        QCOMPARE(crafted.bytes().size(), 8388636 + 4);
        QCOMPARE(crafted.bytes().at(8388635), 'x');
    }

    void theSameSeedGivesTheSameBytes() {
        CraftedContainer first(7);
        CraftedContainer second(7);
        CraftedContainer other(8);
        for (CraftedContainer* crafted : {&first, &second, &other}) {
            crafted->addFile(u"a"_s, "abc");
        }
        QVERIFY(first.bytes() == second.bytes());
        QVERIFY(first.keys.masterKey != other.keys.masterKey);
        QVERIFY(first.blocks(0).first().nonce != other.blocks(0).first().nonce);
    }

    void filesShorterThanTheirBlocksAreCutRight() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, noise(7), 3).addFile(u"b"_s, noise(3), 3);
        QCOMPARE(crafted.blocks(0).size(), 3);
        QCOMPARE(crafted.blocks(0).last().plainSize, 1);
        QCOMPARE(crafted.blocks(1).size(), 1);
        QCOMPARE(crafted.blocks(1).first().offset, 8388636 + 7 + 3 * 16);
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestCraftedContainer>);
#include "test_crafted_container.moc"
