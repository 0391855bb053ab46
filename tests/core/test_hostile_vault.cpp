// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QFile>
#include <QTest>

#include <limits>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 Largest = std::numeric_limits<qint64>::max();
constexpr qint64 Smallest = std::numeric_limits<qint64>::min();

} // namespace

/// Containers made by someone who means harm. What is here was found by the fuzz targets
/// (tests/fuzz).
class TestHostileVault : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void compactionSurvivesSizesThatNoNumberHolds_data() {
        QTest::addColumn<qint64>("plainSize");
        QTest::newRow("largest") << Largest;
        QTest::newRow("smallest") << Smallest;
    }
    void compactionSurvivesSizesThatNoNumberHolds() {
        QFETCH(const qint64, plainSize);
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "abcd", 2).addFile(u"b"_s, "efg");
        crafted.setBlockMember(0, 0, u"plainSize"_s, plainSize)
            .setBlockMember(0, 1, u"plainSize"_s, plainSize)
            .setFileMember(0, u"sizeBytes"_s, plainSize)
            .setFileMember(1, u"sizeBytes"_s, plainSize);
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
        QCOMPARE(fixture.stored(u"a"_s), "(refused)");
        QCOMPARE(fixture.stored(u"b"_s), "efg");
    }

    void twoPathsThatDifferInCaseStayTwoFiles_data() {
        QTest::addColumn<bool>("move");
        QTest::newRow("move") << true;
        QTest::newRow("rename") << false;
    }
    void twoPathsThatDifferInCaseStayTwoFiles() {
        QFETCH(const bool, move);
        CraftedContainer crafted;
        crafted.addFolder(u"d"_s);
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QString target = u"d/a"_s;
        QVERIFY(move ? fixture.vault.moveFile(u"a"_s, u"d"_s)
                     : fixture.vault.renameFile(u"a"_s, target));
        QCOMPARE(fixture.filePaths(), QStringList({target, u"A"_s}));
        QCOMPARE(fixture.stored(target), "first");
        QCOMPARE(fixture.stored(u"A"_s), "second");
    }

    void pathsThatTheDiskCannotTellApartAreNotOpened_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("zero behind the name") << u"a"_s + QChar::Null;
        QTest::newRow("zero in the name") << u"a"_s + QChar::Null + u'b';
        QTest::newRow("zero in a folder") << u'a' + QString(QChar::Null) + u"/b"_s;
        QTest::newRow("first half of a pair") << u"a"_s + QChar(0xd800);
        QTest::newRow("second half of a pair") << QChar(0xdc00) + u"/a"_s;
    }
    void pathsThatTheDiskCannotTellApartAreNotOpened() {
        QFETCH(const QString, path);
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(path, "second");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString copy;
        QString none;
        QVERIFY(fixture.vault.prepareFileForEditing(u"a"_s, &copy));
        QVERIFY(!fixture.vault.prepareFileForEditing(path, &none));
        QVERIFY(none.isEmpty());
        QCOMPARE(readFile(copy), "first");

        // It can still be given back by a name of the user's own.
        QCOMPARE(fixture.stored(path), "second");
        QVERIFY(fixture.vault.lockVault());
    }

    void unusualNamesAreOpened_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("letters with accents") << u"relat\u00f3rio/a\u00e7\u00e3o.txt"_s;
        QTest::newRow("decomposed") << u"e\u0301"_s;
        QTest::newRow("beyond 16 bits") << u"\U0001f600.txt"_s;
        QTest::newRow("replacement character") << u"\ufffd"_s;
        QTest::newRow("control character") << u"a\u0001b"_s;
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
