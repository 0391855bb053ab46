// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/SecureFileIndex.h"
#include "support/TestProgram.h"
#include "ui/VaultRows.h"

#include <QCoreApplication>
#include <QObject>
#include <QTest>
#include <QTimeZone>

using Tessel::Core::SecureFileIndex;
using Tessel::UI::orderAfterClick;
using Tessel::UI::orderAfterStep;
using Tessel::UI::VaultOrder;
using Tessel::UI::VaultRow;
using Tessel::UI::vaultRows;
using Tessel::UI::VaultTableItemKind;
using namespace Qt::Literals::StringLiterals;
namespace VaultColumn = Tessel::UI::VaultColumn;

namespace {

QDateTime day(int number) {
    return QDateTime(QDate(2026, 1, number), QTime(12, 0), QTimeZone::utc());
}

/// The names in order; folders and ".." end with a slash.
QStringList names(const QList<VaultRow>& rows) {
    QStringList names;
    for (const VaultRow& row : rows) {
        names.append(row.kind == VaultTableItemKind::File ? row.name : row.name + u'/');
    }
    return names;
}

} // namespace

class TestVaultRows : public QObject {
    Q_OBJECT

private:
    SecureFileIndex m_index;

    void addFile(const QString& path, qint64 size, const QDateTime& modified) {
        QVERIFY(m_index.addOrReplace({u"id"_s, path, size, modified, QByteArray(), {}}));
    }

    void addFolder(const QString& path, const QDateTime& modified) {
        QVERIFY(m_index.addDirectory({path, modified, modified}));
    }

private Q_SLOTS:
    void init() {
        m_index = SecureFileIndex();
        addFile(u"b.txt"_s, 30, day(1));
        addFile(u"A.zip"_s, 10, day(3));
        addFile(u"c"_s, 20, day(2));
        addFolder(u"Docs"_s, day(1));
        addFolder(u"arquivo"_s, day(2));
        addFolder(u"docs/2026"_s, day(1));
        addFile(u"DOCS/nota.txt"_s, 5, day(1));
        addFile(u"docs/2026/fundo.txt"_s, 5, day(1));
    }

    void folderHoldsItsOwnItems_data() {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QStringList>("expected");
        QTest::newRow("root") << QString()
                              << QStringList{u"arquivo/"_s, u"Docs/"_s, u"A.zip"_s, u"b.txt"_s,
                                             u"c"_s};
        QTest::newRow("whatever its case")
            << u"dOCS"_s << QStringList{u"../"_s, u"2026/"_s, u"nota.txt"_s};
        QTest::newRow("deep") << u"docs/2026"_s << QStringList{u"../"_s, u"fundo.txt"_s};
        QTest::newRow("gone") << u"antes"_s << QStringList{u"../"_s};
    }
    void folderHoldsItsOwnItems() {
        QFETCH(QString, folder);
        QTEST(names(vaultRows(m_index, folder, VaultOrder())), "expected");
    }

    void rowsSayWhatTheyShow() {
        const QList<VaultRow> rows = vaultRows(m_index, u"docs/2026"_s, VaultOrder());
        QCOMPARE(rows.size(), 2);
        QCOMPARE(rows.at(0).kind, VaultTableItemKind::ParentDirectory);
        QCOMPARE(rows.at(0).path, u"docs"_s);
        QCOMPARE(rows.at(0).type, u"Pasta"_s);
        QVERIFY(!rows.at(0).modifiedUtc.isValid());
        QCOMPARE(rows.at(1).kind, VaultTableItemKind::File);
        QCOMPARE(rows.at(1).path, u"docs/2026/fundo.txt"_s);
        QCOMPARE(rows.at(1).type, u"TXT"_s);
        QCOMPARE(rows.at(1).sizeBytes, 5);
        QCOMPARE(rows.at(1).modifiedUtc, day(1));
    }

    void columnsSortBothWays_data() {
        QTest::addColumn<int>("column");
        QTest::addColumn<QStringList>("upwards");
        QTest::addColumn<QStringList>("downwards");
        const QStringList folders = {u"arquivo/"_s, u"Docs/"_s};
        const QStringList turned = {u"Docs/"_s, u"arquivo/"_s};
        QTest::newRow("name") << int{VaultColumn::Name}
                              << folders + QStringList{u"A.zip"_s, u"b.txt"_s, u"c"_s}
                              << turned + QStringList{u"c"_s, u"b.txt"_s, u"A.zip"_s};
        QTest::newRow("size: folders by name")
            << int{VaultColumn::Size} << folders + QStringList{u"A.zip"_s, u"c"_s, u"b.txt"_s}
            << turned + QStringList{u"b.txt"_s, u"c"_s, u"A.zip"_s};
        QTest::newRow("type: Arquivo, TXT, ZIP")
            << int{VaultColumn::Type} << folders + QStringList{u"c"_s, u"b.txt"_s, u"A.zip"_s}
            << turned + QStringList{u"A.zip"_s, u"b.txt"_s, u"c"_s};
        QTest::newRow("date") << int{VaultColumn::Modified}
                              << turned + QStringList{u"b.txt"_s, u"c"_s, u"A.zip"_s}
                              << folders + QStringList{u"A.zip"_s, u"c"_s, u"b.txt"_s};
    }
    void columnsSortBothWays() {
        QFETCH(int, column);
        QTEST(names(vaultRows(m_index, QString(), {column, Qt::AscendingOrder})), "upwards");
        QTEST(names(vaultRows(m_index, QString(), {column, Qt::DescendingOrder})), "downwards");
    }

    void equalRowsKeepTheirOrder() {
        m_index = SecureFileIndex();
        addFile(u"a.txt"_s, 1, day(1));
        addFile(u"A.txt"_s, 1, day(1));
        const QStringList inTheIndex = {u"a.txt"_s, u"A.txt"_s};
        for (int column = 0; column < VaultColumn::Count; ++column) {
            for (const Qt::SortOrder order : {Qt::AscendingOrder, Qt::DescendingOrder}) {
                QCOMPARE(names(vaultRows(m_index, QString(), {column, order})), inTheIndex);
            }
        }
    }

    void clicksChangeTheOrder_data() {
        QTest::addColumn<VaultOrder>("now");
        QTest::addColumn<int>("column");
        QTest::addColumn<VaultOrder>("next");
        const VaultOrder namesUp = {VaultColumn::Name, Qt::AscendingOrder};
        const VaultOrder namesDown = {VaultColumn::Name, Qt::DescendingOrder};
        const VaultOrder sizesUp = {VaultColumn::Size, Qt::AscendingOrder};
        QTest::newRow("same column") << namesUp << int{VaultColumn::Name} << namesDown;
        QTest::newRow("same column again") << namesDown << int{VaultColumn::Name} << namesUp;
        QTest::newRow("other column") << namesDown << int{VaultColumn::Size} << sizesUp;
        QTest::newRow("icons") << namesDown << int{VaultColumn::Icon} << namesDown;
    }
    void clicksChangeTheOrder() {
        QFETCH(VaultOrder, now);
        QFETCH(int, column);
        QFETCH(VaultOrder, next);
        QVERIFY(orderAfterClick(now, column) == next);
    }

    void stepsGoThroughEveryOrder() {
        VaultOrder order;
        QVERIFY(orderAfterStep(order, -1) == order);
        for (const int column :
             {VaultColumn::Name, VaultColumn::Size, VaultColumn::Type, VaultColumn::Modified}) {
            QVERIFY(order == (VaultOrder{column, Qt::AscendingOrder}));
            const VaultOrder turned = orderAfterStep(order, 1);
            QVERIFY(turned == (VaultOrder{column, Qt::DescendingOrder}));
            QVERIFY(orderAfterStep(turned, -1) == order);
            order = orderAfterStep(turned, 1);
        }
        QVERIFY(orderAfterStep(order, 1) == order);
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QCoreApplication, TestVaultRows>);
#include "test_vault_rows.moc"
