// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "VaultFixture.h"
#include "core/ContainerManager.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QTest>

#include <limits>

using namespace Tessel::Core;
using namespace Tessel::Tests;

namespace {

constexpr qint64 Largest = std::numeric_limits<qint64>::max();
constexpr qint64 Smallest = std::numeric_limits<qint64>::min();

QByteArray twentyDigits(qint64 number) {
    return QByteArray::number(number).rightJustified(20, '0');
}

/// A redo record as the format describes it, around any image and under any size.
QByteArray redoRecord(const QByteArray& image, const QByteArray& size) {
    return image + QCryptographicHash::hash(image, QCryptographicHash::Sha256) + size +
           "TESSEL-REDO\n";
}

} // namespace

/// Containers made by someone who means harm. What is here was found by the fuzz targets
/// (tests/fuzz).
class TestHostileVault : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- The redo record --------------------------------------------------------------------

    void aRecordOfAnImpossibleSizeIsIgnored_data() {
        QTest::addColumn<QByteArray>("size");
        QTest::newRow("smallest number") << QByteArray::number(Smallest);
        QTest::newRow("negative") << QByteArray("-0000000000000000100");
        QTest::newRow("largest number") << twentyDigits(Largest);
        QTest::newRow("reaching into the header") << twentyDigits(HeaderBytes);
        QTest::newRow("the length line alone") << twentyDigits(21);
        QTest::newRow("no number") << QByteArray(20, 'x');
    }
    void aRecordOfAnImpossibleSizeIsIgnored() {
        QFETCH(const QByteArray, size);
        QCOMPARE(size.size(), 20);
        const CraftedContainer crafted;
        const VaultFixture fixture(crafted);
        const QByteArray image = crafted.lengthLine() + crafted.headerJson();
        QVERIFY(overwriteAt(fixture.container(), PayloadOffset, redoRecord(image, size)));
        ContainerDocument document;
        QVERIFY(!ContainerManager().readRedoRecord(fixture.container(), &document));

        // The same record under its own size is one.
        QVERIFY(overwriteAt(fixture.container(), PayloadOffset,
                            redoRecord(image, twentyDigits(image.size()))));
        QVERIFY(ContainerManager().readRedoRecord(fixture.container(), &document));
    }

    void aRecordLargerThanAHeaderCanBeIsIgnored() {
        const CraftedContainer crafted;
        const VaultFixture fixture(crafted);
        for (const qint64 size : {HeaderBytes, HeaderBytes + 1}) {
            const QByteArray image =
                twentyDigits(size) + '\n' + crafted.headerJson().leftJustified(size, ' ');
            QVERIFY(overwriteAt(fixture.container(), PayloadOffset,
                                redoRecord(image, twentyDigits(image.size()))));
            ContainerDocument document;
            QCOMPARE(ContainerManager().readRedoRecord(fixture.container(), &document),
                     size == HeaderBytes);
        }
    }

    void aRecordUnderAnotherLengthLineIsIgnored_data() {
        QTest::addColumn<qint64>("difference");
        QTest::newRow("one byte less") << qint64(-1);
        QTest::newRow("one byte more") << qint64(1);
    }
    void aRecordUnderAnotherLengthLineIsIgnored() {
        QFETCH(const qint64, difference);
        const CraftedContainer crafted;
        VaultFixture fixture(crafted);
        const QByteArray header = crafted.headerJson();
        const QByteArray image = twentyDigits(header.size() + difference) + '\n' + header;
        const QByteArray record = redoRecord(image, twentyDigits(image.size()));
        QVERIFY(overwriteAt(fixture.container(), PayloadOffset, record));
        QVERIFY(overwriteAt(fixture.container(), crafted.headerOffset(), "torn"));
        const QByteArray before = readFile(fixture.container());

        // Put in place it would make a container that nothing opens, without a record.
        QVERIFY(!fixture.unlock());
        QVERIFY(readFile(fixture.container()) == before);
    }

    // --- The index --------------------------------------------------------------------------

    void compactionSurvivesSizesThatNoNumberHolds_data() {
        QTest::addColumn<qint64>("plainSize");
        QTest::newRow("largest") << Largest;
        QTest::newRow("smallest") << Smallest;
    }
    void compactionSurvivesSizesThatNoNumberHolds() {
        QFETCH(const qint64, plainSize);
        CraftedContainer crafted;
        crafted.addFile(QStringLiteral("a"), "abcd", 2).addFile(QStringLiteral("b"), "efg");
        crafted.setBlockMember(0, 0, QStringLiteral("plainSize"), plainSize)
            .setBlockMember(0, 1, QStringLiteral("plainSize"), plainSize)
            .setFileMember(0, QStringLiteral("sizeBytes"), plainSize)
            .setFileMember(1, QStringLiteral("sizeBytes"), plainSize);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QList<qint64> rebuilt;
        const auto progress = [&rebuilt](qint64 done, qint64 /*total*/, const QString& name) {
            if (name.size() == 1) {
                rebuilt.append(done);
            }
        };
        QVERIFY(fixture.vault.compactVault(progress, nullptr));
        const qint64 last = plainSize == Largest ? Largest : Smallest + 3;
        QCOMPARE(rebuilt, QList<qint64>({plainSize, plainSize, last}));
        QCOMPARE(fixture.stored(QStringLiteral("a")), "(refused)");
        QCOMPARE(fixture.stored(QStringLiteral("b")), "efg");
    }

    void twoPathsThatDifferInCaseStayTwoFiles_data() {
        QTest::addColumn<bool>("move");
        QTest::newRow("move") << true;
        QTest::newRow("rename") << false;
    }
    void twoPathsThatDifferInCaseStayTwoFiles() {
        QFETCH(const bool, move);
        CraftedContainer crafted;
        crafted.addFolder(QStringLiteral("d"));
        crafted.addFile(QStringLiteral("a"), "first").addFile(QStringLiteral("A"), "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QString target = QStringLiteral("d/a");
        QVERIFY(move ? fixture.vault.moveFile(QStringLiteral("a"), QStringLiteral("d"))
                     : fixture.vault.renameFile(QStringLiteral("a"), target));
        QCOMPARE(fixture.filePaths(), QStringList({target, QStringLiteral("A")}));
        QCOMPARE(fixture.stored(target), "first");
        QCOMPARE(fixture.stored(QStringLiteral("A")), "second");
    }

    void pathsThatTheDiskCannotTellApartAreNotOpened_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("zero behind the name") << QStringLiteral("a") + QChar::Null;
        QTest::newRow("zero in the name") << QStringLiteral("a") + QChar::Null + u'b';
        QTest::newRow("zero in a folder") << u'a' + QString(QChar::Null) + QStringLiteral("/b");
        QTest::newRow("first half of a pair") << QStringLiteral("a") + QChar(0xd800);
        QTest::newRow("second half of a pair") << QChar(0xdc00) + QStringLiteral("/a");
    }
    void pathsThatTheDiskCannotTellApartAreNotOpened() {
        QFETCH(const QString, path);
        CraftedContainer crafted;
        crafted.addFile(QStringLiteral("a"), "first").addFile(path, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QString none;
        QVERIFY(fixture.vault.prepareFileForEditing(QStringLiteral("a"), &copy));
        QVERIFY(!fixture.vault.prepareFileForEditing(path, &none));
        QVERIFY(none.isEmpty());
        QCOMPARE(readFile(copy), "first");

        // It can still be given back by a name of the user's own.
        QCOMPARE(fixture.stored(path), "second");
        QVERIFY(fixture.vault.lockVault());
    }

    void unusualNamesAreOpened_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("letters with accents")
            << QStringLiteral("relat\u00f3rio/a\u00e7\u00e3o.txt");
        QTest::newRow("decomposed") << QStringLiteral("e\u0301");
        QTest::newRow("beyond 16 bits") << QStringLiteral("\U0001f600.txt");
        QTest::newRow("replacement character") << QStringLiteral("\ufffd");
        QTest::newRow("control character") << QStringLiteral("a\u0001b");
    }
    void unusualNamesAreOpened() {
        QFETCH(const QString, path);
        CraftedContainer crafted;
        crafted.addFile(path, "content");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QVERIFY(fixture.vault.prepareFileForEditing(path, &copy));
        QVERIFY(copy.endsWith(u'/' + path));
        QCOMPARE(readFile(copy), "content");
        QVERIFY(fixture.vault.lockVault());
    }
};

TESSEL_TEST_MAIN(runTest<QCoreApplication, TestHostileVault>);
#include "test_hostile_vault.moc"
