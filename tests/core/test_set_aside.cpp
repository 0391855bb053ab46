// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A compaction that is cut while it writes the new container leaves the old one beside it. The
// next unlock finds the vault whole.

#include "core/ContainerManager.h"
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

const QByteArray OtherPassword = "outra senha longa"_ba;

CraftedContainer someContainer(quint64 seed = 1, const QByteArray& contents = "contents of a") {
    CraftedContainer crafted(seed);
    crafted.addFile(u"a"_s, contents);
    return crafted;
}

/// The same vault after a change of its index.
CraftedContainer laterContainer() {
    CraftedContainer crafted = someContainer(1, "later contents");
    crafted.keys.payloadNonce = noise(24, 77);
    return crafted;
}

/// A vault on whose drive a compaction was cut.
struct CutCompaction {
    explicit CutCompaction(const CraftedContainer& setAside = someContainer())
        : fixture(someContainer()), container(fixture.container()),
          aside(container + u".anterior"_s) {
        if (!QFile::remove(container) || !setAside.writeTo(aside)) {
            qFatal("cannot set up the drive");
        }
        bytes = readFile(aside);
    }
    /// A part of the new container, as a copy leaves it.
    void addCutCopy(qint64 size) const {
        QByteArray copy = bytes.first(size);
        copy.replace(0, qMin<qint64>(7, size), QByteArray(qMin<qint64>(7, size), '\0'));
        put(copy);
    }
    void put(const QByteArray& copy) const {
        if (!writeFile(container, copy)) {
            qFatal("cannot write the container");
        }
    }
    [[nodiscard]] bool unlock(const QByteArray& password = TestPassword) {
        return fixture.vault.unlockVault(container, password);
    }
    [[nodiscard]] QStringList drive() const {
        return QDir(fixture.driveFolder()).entryList(QDir::Files | QDir::Hidden);
    }
    /// What is set aside is as it was, and so is what is at the container's path.
    [[nodiscard]] bool isUntouched(const QByteArray& atContainer) const {
        return readFile(aside) == bytes && readFile(container) == atContainer &&
               QFileInfo::exists(container) == !atContainer.isNull();
    }

    VaultFixture fixture;
    QString container;
    QString aside;
    QByteArray bytes;
};

/// The bytes of a container whose sealed index a power cut has torn.
QByteArray torn(QByteArray container) {
    const qsizetype index = container.indexOf("encryptedIndex\":\"") + 40;
    return container.replace(index, 8, "AAAAAAAA");
}

QByteArray withoutHeader(QByteArray container) {
    return container.replace(7, 4000, QByteArray(4000, '\0'));
}

} // namespace

class TestSetAside : public QObject {
    Q_OBJECT

private:
    static void compareOnlyContainerIs(CutCompaction& cut, const QByteArray& expected) {
        QCOMPARE(cut.drive(), {u"tessel.tvlt"_s});
        QVERIFY(readFile(cut.container) == expected);
    }

private Q_SLOTS:
    // --- Put back ---------------------------------------------------------------------------

    void aVaultThatWasCutIsUnlocked_data() {
        QTest::addColumn<qint64>("copied");
        QTest::newRow("no copy") << qint64{-1};
        for (const qint64 copied : {qint64{0}, qint64{1}, qint64{7}, qint64{5000},
                                    PayloadOffset - 1, PayloadOffset + 5}) {
            QTest::addRow("%lld bytes", copied) << copied;
        }
    }
    void aVaultThatWasCutIsUnlocked() {
        QFETCH(const qint64, copied);
        CutCompaction cut;
        if (copied >= 0) {
            cut.addCutCopy(copied);
        }
        QVERIFY(cut.unlock());
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("contents of a"));
        compareOnlyContainerIs(cut, cut.bytes);
        QVERIFY(cut.fixture.store(u"b"_s, "stored afterwards"));
    }

    void aContainerThatDoesNotOpenGivesWay_data() {
        QTest::addColumn<QByteArray>("container");
        const QByteArray later = laterContainer().bytes();
        QTest::newRow("torn index") << torn(later);
        QTest::newRow("no header") << withoutHeader(later);
        QTest::newRow("header region cut") << later.first(PayloadOffset - 1);
    }
    void aContainerThatDoesNotOpenGivesWay() {
        QFETCH(const QByteArray, container);
        CutCompaction cut;
        cut.put(container);
        QVERIFY(cut.unlock());
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("contents of a"));
        compareOnlyContainerIs(cut, cut.bytes);
    }

    void thePasswordOfAVaultThatWasCutIsChanged() {
        CutCompaction cut;
        cut.addCutCopy(5000);
        QVERIFY(cut.fixture.vault.changePassword(cut.container, TestPassword, OtherPassword));
        QCOMPARE(cut.drive(), {u"tessel.tvlt"_s});
        QVERIFY(cut.unlock(OtherPassword));
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("contents of a"));
    }

    void aVaultBehindALinkIsPutBackWhereItWas() {
        CutCompaction cut;
        const QString link = cut.fixture.file(u"link.tvlt"_s);
        QVERIFY(QFile::link(cut.container, link));
        QVERIFY(cut.fixture.vault.unlockVault(link, TestPassword));
        QVERIFY(QFileInfo(link).isSymLink());
        compareOnlyContainerIs(cut, cut.bytes);
    }

    void aDriveThatTakesNoWritesCanBeRead() {
        NEEDS_PRIVATE_MOUNTS();
        CutCompaction cut;
        cut.addCutCopy(5000);
        const QByteArray copy = readFile(cut.container);
        {
            const ReadOnlyMount readOnly(cut.fixture.driveFolder());
            QVERIFY(readOnly.isMounted());
            QVERIFY(cut.unlock());
            QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("contents of a"));
            QVERIFY(!cut.fixture.store(u"b"_s, "cannot be stored"));
            QVERIFY(cut.fixture.vault.lockVault());
        }
        QVERIFY(cut.isUntouched(copy));
        QVERIFY(cut.unlock());
        compareOnlyContainerIs(cut, cut.bytes);
    }

    // --- Removed ----------------------------------------------------------------------------

    void whatAFinishedCompactionLeftIsRemoved() {
        CutCompaction cut;
        const QByteArray later = laterContainer().bytes();
        cut.put(later);
        QVERIFY(cut.unlock());
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("later contents"));
        compareOnlyContainerIs(cut, later);
    }

    void whatAFinishedCompactionLeftIsRemovedBeforeThePasswordChanges() {
        CutCompaction cut;
        cut.put(laterContainer().bytes());
        QVERIFY(cut.fixture.vault.changePassword(cut.container, TestPassword, OtherPassword));
        QCOMPARE(cut.drive(), {u"tessel.tvlt"_s});
        QVERIFY(cut.unlock(OtherPassword));
    }

    void theOldContainerIsRemovedOnlyWhenTheNewOneIsOnTheDrive() {
        NEEDS_TRACING();
        CutCompaction cut;
        cut.put(laterContainer().bytes());
        const QByteArray container = readFile(cut.container);
        // A compaction that was killed may have left the new one in the system's cache only.
        const ToolRun run = runTool({cut.container, QString::fromUtf8(TestPassword), u"unlock"_s},
                                    cut.container, {u"fsync:error=EIO"_s});
        QVERIFY(run.succeeded());
        QVERIFY(cut.isUntouched(container));
    }

    void aRecordIsUsedBeforeWhatIsSetAside() {
        CutCompaction cut;
        const CraftedContainer later = laterContainer();
        cut.put(torn(later.bytes()) + later.withPackedIndex().redoRecord());
        QVERIFY(cut.unlock());
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("later contents"));
        QVERIFY(cut.fixture.vault.lockVault());
        QVERIFY(cut.unlock());
        QCOMPARE(cut.drive(), {u"tessel.tvlt"_s});
    }

    // --- Left alone -------------------------------------------------------------------------

    void aWrongPasswordChangesNothing_data() {
        QTest::addColumn<QByteArray>("container");
        const QByteArray bytes = someContainer().bytes();
        QTest::newRow("none") << QByteArray();
        QTest::newRow("cut copy") << QByteArray(7, '\0') + bytes.mid(7, 5000);
        QTest::newRow("whole") << laterContainer().bytes();
        QTest::newRow("torn index") << torn(laterContainer().bytes());
        QTest::newRow("no header") << withoutHeader(bytes);
    }
    void aWrongPasswordChangesNothing() {
        QFETCH(const QByteArray, container);
        CutCompaction cut;
        if (!container.isNull()) {
            cut.put(container);
        }
        QVERIFY(!cut.unlock("a wrong password"));
        QVERIFY(cut.isUntouched(container));
        QVERIFY(
            !cut.fixture.vault.changePassword(cut.container, "a wrong password", OtherPassword));
        QVERIFY(cut.isUntouched(container));
    }

    void anotherVaultIsLeftAlone_data() {
        QTest::addColumn<QByteArray>("container");
        QTest::addColumn<bool>("opens");
        QTest::newRow("beside a whole one") << someContainer(5).bytes() << true;
        QTest::newRow("beside a torn one") << torn(someContainer(5).bytes()) << false;
    }
    void anotherVaultIsLeftAlone() {
        QFETCH(const QByteArray, container);
        QFETCH(const bool, opens);
        // The same password, but another master key.
        CutCompaction cut;
        cut.put(container);
        QCOMPARE(cut.unlock(), opens);
        QVERIFY(cut.isUntouched(container));
    }

    void theVaultAsItWasBeforeAChangeOfItsPasswordIsLeftAlone() {
        CraftedContainer before = someContainer();
        before.keys.password = OtherPassword;
        CutCompaction cut(before);
        const QByteArray container = someContainer().bytes();
        cut.put(container);
        QVERIFY(!cut.unlock(OtherPassword));
        QVERIFY(cut.unlock());
        QVERIFY(cut.isUntouched(container));
    }

    void whatIsNoContainerIsLeftAlone() {
        CutCompaction cut;
        QVERIFY(writeFile(cut.aside, "notes"));
        cut.bytes = "notes";
        QVERIFY(!cut.unlock());
        QVERIFY(cut.isUntouched({}));
        const QByteArray container = someContainer().bytes();
        cut.put(container);
        QVERIFY(cut.unlock());
        QVERIFY(cut.isUntouched(container));
        QVERIFY(cut.fixture.vault.compactVault({}, nullptr));
        QCOMPARE(readFile(cut.aside), QByteArray("notes"));
        QCOMPARE(cut.fixture.stored(u"a"_s), QByteArray("contents of a"));
    }

    void aContainerThatTheDriveFailsToReadIsNoDamagedOne_data() {
        QTest::addColumn<QString>("injection");
        QTest::newRow("open") << u"openat:error=EIO"_s;
        QTest::newRow("every read") << u"read:error=EIO"_s;
        QTest::newRow("all but the first read") << u"read:error=EIO:when=2+"_s;
        QTest::newRow("no more memory for files") << u"openat:error=EMFILE"_s;
    }
    void aContainerThatTheDriveFailsToReadIsNoDamagedOne() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        CutCompaction cut;
        const QByteArray container = laterContainer().bytes();
        cut.put(container);
        const ToolRun run = runTool({cut.container, QString::fromUtf8(TestPassword), u"unlock"_s},
                                    cut.container, {injection});
        QVERIFY(!run.succeeded());
        QVERIFY(cut.isUntouched(container));
    }

    void theSameContainerUnderBothNamesStaysUnderBoth() {
        // On FAT both names may lead to the same bytes on the drive: to remove one of them would
        // free what the other one needs.
        CutCompaction cut;
        const QByteArray container = cut.bytes;
        cut.put(container);
        QVERIFY(cut.unlock());
        QVERIFY(cut.isUntouched(container));
        QVERIFY(!cut.fixture.vault.compactVault({}, nullptr));
        QVERIFY(cut.isUntouched(container));
        QVERIFY(cut.fixture.store(u"b"_s, "stored afterwards"));
        QVERIFY(readFile(cut.aside) == container);
    }

    void aContainerThatIsTooShortForItsFilesDoesNotCountAsTheNewOne() {
        CutCompaction cut;
        const QByteArray container = laterContainer().bytes();
        cut.put(container.first(container.size() - 1));
        QVERIFY(cut.unlock());
        QVERIFY(cut.isUntouched(container.first(container.size() - 1)));
    }

    void aCompactionAtWorkIsLeftAlone() {
        VaultFixture fixture(someContainer());
        QVERIFY(fixture.unlock());
        const QString aside = fixture.container() + u".anterior"_s;
        int looks = 0;
        const auto other = [&](qint64 done, qint64, const QString& name) {
            if (name != "a"_L1) {
                VaultManager second;
                QVERIFY2(!second.unlockVault(fixture.container(), TestPassword),
                         qPrintable(QString::number(done)));
                QVERIFY(QFileInfo::exists(aside));
                ++looks;
            }
        };
        QVERIFY(fixture.vault.compactVault(other, nullptr));
        QCOMPARE(looks, 3);
        QVERIFY(!QFileInfo::exists(aside));
        QCOMPARE(fixture.stored(u"a"_s), QByteArray("contents of a"));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestSetAside>);
#include "test_set_aside.moc"
