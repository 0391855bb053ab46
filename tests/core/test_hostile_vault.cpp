// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "VaultFixture.h"
#include "core/ContainerManager.h"
#include "support/Files.h"

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
        QTest::newRow("larger than a header") << twentyDigits(HeaderBytes + 22);
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
};

QTEST_GUILESS_MAIN(TestHostileVault)
#include "test_hostile_vault.moc"
