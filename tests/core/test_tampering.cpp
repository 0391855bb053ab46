// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QMap>
#include <QTest>

#include <algorithm>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

using Contents = QMap<QString, QByteArray>;

const QString First = u"first"_s;
const QString Second = u"second"_s;
const QString Third = u"docs/third"_s;

const Contents Original = {{First, noise(70, 1)}, {Second, noise(70, 2)}, {Third, noise(25, 3)}};

/// What came of a container that somebody changed.
enum class Outcome {
    /// It does not open.
    Refused,
    /// It opens, and some file is refused; what the others give, and what came out of the refused
    /// one before the refusal, is right.
    Damaged,
    /// Nothing can be noticed, and every file is right.
    Whole,
    /// An export ended well and gave other bytes than were stored, or the index is another one.
    Wrong
};

/// Three files of the same container; the first two have three blocks each, of the same sizes.
CraftedContainer smallVault(quint64 seed = 1) {
    CraftedContainer crafted(seed);
    crafted.addFolder(u"docs"_s);
    for (const QString& path : {First, Second, Third}) {
        crafted.addFile(path, Original.value(path), 30);
    }
    return crafted;
}

QStringList pathsOf(const VaultManager& vault) {
    QStringList paths;
    const QList<VaultFileEntry> entries = vault.fileIndex().entries();
    for (const VaultFileEntry& entry : entries) {
        paths.append(entry.vaultPath);
    }
    paths.sort();
    return paths;
}

Outcome outcomeOf(const QString& container, const Contents& expected = Original,
                  const QByteArray& password = TestPassword) {
    VaultManager vault;
    if (!vault.unlockVault(container, password)) {
        return Outcome::Refused;
    }
    Outcome outcome = pathsOf(vault) == expected.keys() ? Outcome::Whole : Outcome::Wrong;
    for (auto file = expected.cbegin(); file != expected.cend() && outcome != Outcome::Wrong;
         ++file) {
        QBuffer plain;
        static_cast<void>(plain.open(QIODevice::WriteOnly));
        const bool finished = vault.writeVaultFileToDevice(file.key(), &plain);
        const bool right = finished ? plain.data() == *file : file->startsWith(plain.data());
        if (!right) {
            outcome = Outcome::Wrong;
        } else if (!finished) {
            outcome = Outcome::Damaged;
        }
    }
    return vault.lockVault() ? outcome : Outcome::Wrong;
}

bool copyWithin(const QString& container, const CraftedBlock& from, const CraftedBlock& to) {
    const QByteArray bytes = readFile(container).mid(from.offset, from.encryptedSize);
    return overwriteAt(container, to.offset, bytes);
}

/// The length line and the header region.
QByteArray headerOf(const QString& container) {
    return readFile(container).mid(7, PayloadOffset - 7);
}

} // namespace

/// Anyone who holds the drive can change any byte of a container. docs/security-model.md says what
/// that may do; these tests hold it to its words.
class TestTampering : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { keepTemporaryFilesInMemory(); }

    void everyByteOfTheHeaderIsProtected_data() {
        QTest::addColumn<char>("mask");
        QTest::addRow("lowest bit") << '\x01';
        QTest::addRow("letter case, or digit and control character") << '\x20';
    }
    void everyByteOfTheHeaderIsProtected() {
        QFETCH(const char, mask);
        const CraftedContainer crafted = smallVault();
        const VaultFixture fixture(crafted);
        const QByteArray header = "TESSEL3" + crafted.lengthLine() + crafted.headerJson();
        // The only bytes that bear no meaning: zeros before the length, the member that is always
        // empty, and the letters of Base64 that no longer reach a byte.
        const qsizetype tagBegin = header.indexOf("\"authTag\":\"\"");
        const qsizetype tagEnd = tagBegin + 12;
        // Without the member under this name, a quarter of a million iterations count: one letter
        // of it stands for all.
        const qsizetype iterations = header.indexOf("kdfIterations");
        for (qsizetype at = 0; at < header.size(); ++at) {
            if (at > iterations && at < iterations + 13) {
                continue;
            }
            const char changed = static_cast<char>(header.at(at) ^ mask);
            QVERIFY(overwriteAt(fixture.container(), at, QByteArray(1, changed)));
            const Outcome outcome = outcomeOf(fixture.container());
            const bool meansNothing = (at >= 7 && at < 24) || (at >= tagBegin && at < tagEnd) ||
                                      header.mid(at, 3).contains('=');
            QVERIFY2(outcome == Outcome::Refused || (meansNothing && outcome == Outcome::Whole),
                     qPrintable(u"byte %1 of the header"_s.arg(at)));
            QVERIFY(overwriteAt(fixture.container(), at, header.mid(at, 1)));
        }
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Whole);
    }

    void everyByteOfThePayloadIsProtected_data() {
        QTest::addColumn<char>("mask");
        QTest::addRow("lowest bit") << '\x01';
        QTest::addRow("highest bit") << '\x80';
    }
    void everyByteOfThePayloadIsProtected() {
        QFETCH(const char, mask);
        const CraftedContainer crafted = smallVault();
        const VaultFixture fixture(crafted);
        const QByteArray payload = crafted.payload();
        for (qsizetype at = 0; at < payload.size(); ++at) {
            const char changed = static_cast<char>(payload.at(at) ^ mask);
            QVERIFY(overwriteAt(fixture.container(), PayloadOffset + at, QByteArray(1, changed)));
            QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
            QVERIFY(overwriteAt(fixture.container(), PayloadOffset + at, payload.mid(at, 1)));
        }
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Whole);
    }

    void bytesThatMeanNothingMayChange() {
        CraftedContainer crafted = smallVault();
        crafted.leaveGap(50);
        const VaultFixture fixture(crafted);
        const qint64 headerEnd = 28 + crafted.headerJson().size();
        for (const qint64 at : {headerEnd, qint64(5000000), PayloadOffset - 1,
                                crafted.fileSize() - 50, crafted.fileSize()}) {
            QVERIFY(overwriteAt(fixture.container(), at, "x"));
            QCOMPARE(outcomeOf(fixture.container()), Outcome::Whole);
        }
    }

    void aContainerCutAnywhereGivesNothingWrong() {
        const CraftedContainer crafted = smallVault();
        const VaultFixture fixture(crafted);
        const auto cut = [&fixture](qint64 size) {
            return QFile::resize(fixture.container(), size);
        };
        for (qint64 size = crafted.fileSize() - 1; size >= PayloadOffset; --size) {
            QVERIFY(cut(size));
            QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
        }
        QVERIFY(cut(PayloadOffset - 1));
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Refused);
        for (qint64 size = 28 + crafted.headerJson().size(); size >= 0; --size) {
            QVERIFY(cut(size));
            QCOMPARE(outcomeOf(fixture.container()), Outcome::Refused);
        }
    }

    void blocksOfOneSizeCannotBeExchanged_data() {
        QTest::addColumn<int>("fileOfOne");
        QTest::addColumn<int>("fileOfOther");
        QTest::addColumn<int>("other");
        QTest::addRow("of two files") << 0 << 1 << 0;
        QTest::addRow("of one file") << 0 << 0 << 1;
    }
    void blocksOfOneSizeCannotBeExchanged() {
        QFETCH(const int, fileOfOne);
        QFETCH(const int, fileOfOther);
        QFETCH(const int, other);
        const CraftedContainer crafted = smallVault();
        const VaultFixture fixture(crafted);
        const CraftedBlock a = crafted.blocks(fileOfOne).at(0);
        const CraftedBlock b = crafted.blocks(fileOfOther).at(other);
        const QByteArray bytes = readFile(fixture.container());
        QVERIFY(overwriteAt(fixture.container(), a.offset, bytes.mid(b.offset, b.encryptedSize)));
        QVERIFY(overwriteAt(fixture.container(), b.offset, bytes.mid(a.offset, a.encryptedSize)));
        // Each block's nonce stands in the sealed index, where it cannot be exchanged with it.
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
    }

    void aBlockCannotStandTwice() {
        const CraftedContainer crafted = smallVault();
        const VaultFixture fixture(crafted);
        QVERIFY(copyWithin(fixture.container(), crafted.blocks(0).at(0), crafted.blocks(0).at(1)));
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
    }

    void blocksOfAnotherVaultAreRefused() {
        const CraftedContainer crafted = smallVault(1);
        const CraftedContainer other = smallVault(2);
        const VaultFixture fixture(crafted);
        const CraftedBlock block = crafted.blocks(1).at(1);
        const QByteArray foreign =
            other.payload().mid(block.offset - PayloadOffset, block.encryptedSize);
        QVERIFY(overwriteAt(fixture.container(), block.offset, foreign));
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
    }

    void theHeaderOfAnotherVaultOpensNoneOfTheseBlocks() {
        const VaultFixture fixture(smallVault(1));
        const VaultFixture other(smallVault(2));
        QVERIFY(overwriteAt(fixture.container(), 7, headerOf(other.container())));
        VaultManager vault;
        QVERIFY(vault.unlockVault(fixture.container(), TestPassword));
        for (const QString& path : {First, Second, Third}) {
            QBuffer plain;
            QVERIFY(plain.open(QIODevice::WriteOnly));
            QVERIFY(!vault.writeVaultFileToDevice(path, &plain));
            QCOMPARE(plain.data(), QByteArray());
        }
        QVERIFY(vault.lockVault());
    }

    void anEarlierBlockAtTheSamePlaceIsRefused() {
        // A vault that is emptied, compacted and filled again has other blocks at the same offsets.
        VaultFixture fixture;
        QVERIFY(fixture.unlock() && fixture.store(First, Original.value(Second)));
        const QByteArray earlier = readFile(fixture.container()).mid(PayloadOffset);
        QVERIFY(fixture.vault.deleteFile(First) && fixture.vault.compactVault({}, nullptr));
        QVERIFY(fixture.store(First, Original.value(First)) && fixture.vault.lockVault());
        QVERIFY(overwriteAt(fixture.container(), PayloadOffset, earlier));
        QCOMPARE(outcomeOf(fixture.container(), {{First, Original.value(First)}}),
                 Outcome::Damaged);
    }

    void anOldHeaderBringsBackTheOldVault() {
        // Not detected: nothing outside the container remembers how new it was.
        VaultFixture fixture;
        QVERIFY(fixture.unlock() && fixture.store(First, "old contents"));
        const QByteArray header = headerOf(fixture.container());
        QVERIFY(fixture.store(First, "new contents") && fixture.store(Second, "later"));
        QVERIFY(fixture.vault.lockVault());
        const Contents now = {{First, "new contents"}, {Second, "later"}};
        QCOMPARE(outcomeOf(fixture.container(), now), Outcome::Whole);

        QVERIFY(overwriteAt(fixture.container(), 7, header));
        QCOMPARE(outcomeOf(fixture.container(), {{First, "old contents"}}), Outcome::Whole);
    }

    void anOldHeaderBringsBackTheOldPassword() {
        // Not detected: a new password wraps the same master key.
        VaultFixture fixture;
        QVERIFY(fixture.unlock() && fixture.store(First, "contents") && fixture.vault.lockVault());
        const QByteArray header = headerOf(fixture.container());
        const Contents contents = {{First, "contents"}};
        QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, "outra senha"));
        QCOMPARE(outcomeOf(fixture.container(), contents), Outcome::Refused);
        QCOMPARE(outcomeOf(fixture.container(), contents, "outra senha"), Outcome::Whole);

        QVERIFY(overwriteAt(fixture.container(), 7, header));
        QCOMPARE(outcomeOf(fixture.container(), contents), Outcome::Whole);
    }

    void anOldHeaderOverACompactedPayloadGivesNothingWrong() {
        VaultFixture fixture(smallVault());
        const QByteArray header = headerOf(fixture.container());
        QVERIFY(fixture.unlock() && fixture.vault.deleteFile(First));
        QVERIFY(fixture.vault.compactVault({}, nullptr) && fixture.vault.lockVault());
        QVERIFY(overwriteAt(fixture.container(), 7, header));
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Damaged);
    }

    void aRedoRecordDoesNotReplaceAHeaderThatOpens() {
        CraftedContainer old = smallVault();
        old.setFileMember(0, u"vaultPath"_s, u"another name"_s);
        CraftedContainer crafted = smallVault();
        crafted.addPayload(old.redoRecord());
        VaultFixture fixture(crafted);
        QCOMPARE(outcomeOf(fixture.container()), Outcome::Whole);
        // Nor does it live through the next change, or swallow what is stored then.
        QVERIFY(fixture.unlock() && fixture.store(u"new"_s, "new"));
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!readFile(fixture.container()).contains("TESSEL-REDO"));
        Contents expected = Original;
        expected.insert(u"new"_s, "new");
        QCOMPARE(outcomeOf(fixture.container(), expected), Outcome::Whole);
    }

    void anIndexThatNamesOtherBlocksIsBelieved() {
        // Only somebody with the password can seal such an index: a block is bound to its nonce,
        // not to its file. The digest tells.
        CraftedContainer crafted = smallVault();
        const CraftedBlock block = crafted.blocks(1).at(0);
        crafted.setBlockMember(0, 0, u"offset"_s, block.offset);
        crafted.setBlockMember(0, 0, u"nonce"_s, QString::fromLatin1(block.nonce.toBase64()));
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QByteArray exchanged =
            Original.value(Second).left(30) + Original.value(First).mid(30);
        QCOMPARE(fixture.stored(First), exchanged);
        QVERIFY(fixture.entry(First).sha256 !=
                QCryptographicHash::hash(exchanged, QCryptographicHash::Sha256));
    }

    void aFailedExportLeavesOnlyRightBytes() {
        const CraftedContainer crafted = smallVault();
        VaultFixture fixture(crafted);
        QVERIFY(overwriteAt(fixture.container(), crafted.blocks(0).at(1).offset, "x"));
        QVERIFY(fixture.unlock());
        const QString target = fixture.file(u"out"_s);
        QVERIFY(!fixture.vault.exportFile(First, target));
        QCOMPARE(readFile(target), Original.value(First).left(30));
        // Not even compaction, which opens no block, makes the altered bytes good.
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(!fixture.vault.exportFile(First, target));
        QVERIFY(fixture.vault.exportFile(Second, target));
        QCOMPARE(readFile(target), Original.value(Second));
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestTampering>);
#include "test_tampering.moc"
