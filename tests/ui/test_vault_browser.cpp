// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/DisplayFormats.h"
#include "ui/VaultIcons.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFileIconProvider>
#include <QFileInfo>
#include <QHeaderView>
#include <QHelpEvent>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPainter>
#include <QScreen>
#include <QScrollBar>
#include <QStyle>
#include <QTableWidget>
#include <QTest>
#include <QTextDocument>
#include <QTimeZone>
#include <QTimer>
#include <QToolTip>
#include <QUrl>

#include <algorithm>

using Tessel::Tests::CraftedContainer;
using Tessel::Tests::FakeDesktop;
using Tessel::Tests::WindowTest;
using Tessel::UI::VaultIcons;
using Tessel::UI::VaultTableItemKind;
using namespace Qt::Literals::StringLiterals;

namespace {

enum Column { IconColumn, NameColumn, SizeColumn, TypeColumn, DateColumn };

const QString Password = u"senha de teste"_s;
const Qt::Alignment Centred = Qt::AlignCenter;
const Qt::Alignment AtEnd = Qt::AlignRight | Qt::AlignVCenter;

QDateTime utc(const QString& text) {
    return QDateTime::fromString(text, Qt::ISODate);
}

QImage iconImage(VaultTableItemKind kind, const QString& path) {
    return VaultIcons().itemIcon(kind, path).pixmap(QSize(22, 22), 1.0).toImage();
}

/// The middle of a badge: white letters on its colour, without the rounded corners.
QImage label(const QImage& icon) {
    return icon.copy(QRect(4, 12, 14, 6));
}

/// The same without an icon around it.
QImage labelWith(const QString& text, const QColor& colour) {
    QImage image(22, 22, QImage::Format_ARGB32_Premultiplied);
    image.fill(colour);
    QPainter painter(&image);
    QFont font = QApplication::font();
    font.setBold(true);
    font.setPixelSize(6);
    painter.setFont(font);
    painter.setPen(Qt::white);
    // The middle of the label is at (11, 15).
    painter.drawText(QRectF(0, 4, 22, 22), Qt::AlignCenter, text);
    painter.end();
    return label(image);
}

} // namespace

class TestVaultBrowser : public WindowTest {
    Q_OBJECT

public:
    /// Three hours behind UTC all year, so that a time shown unconverted is seen.
    static void initMain() { qputenv("TZ", "BRT3"); }

private:
    /// What a context menu offered, and where.
    struct ShownMenu {
        /// "--" is a separator.
        QStringList texts;
        QStringList enabled;
        QPoint position;
    };
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"tessel.tvlt"_s); }
    [[nodiscard]] QScrollBar* scrollBar() const { return m_driver->table()->verticalScrollBar(); }
    [[nodiscard]] const QTableWidgetItem* item(int row, int column) const {
        return m_driver->table()->item(row, column);
    }
    [[nodiscard]] QString text(int row, int column) const { return item(row, column)->text(); }
    [[nodiscard]] QVariant path(int row, int column) const {
        return item(row, column)->data(Qt::UserRole);
    }
    [[nodiscard]] QVariant kind(int row, int column) const {
        return item(row, column)->data(Qt::UserRole + 1);
    }
    [[nodiscard]] Qt::Alignment alignment(int row, int column) const {
        return Qt::Alignment(item(row, column)->data(Qt::TextAlignmentRole).value<Qt::Alignment>());
    }
    [[nodiscard]] QString summary() const {
        return m_driver->label(u"protectedFilesLabel"_s)->text();
    }

    /// What appears when the mouse rests in the middle of the place.
    [[nodiscard]] static QString toolTipAt(QWidget* widget, const QRect& place) {
        QToolTip::hideText();
        // One that is shown goes away with a delay.
        const bool hidden = QTest::qWaitFor([] { return !QToolTip::isVisible(); });
        if (!hidden) {
            return u"still shown"_s;
        }
        QHelpEvent rests(QEvent::ToolTip, place.center(), widget->mapToGlobal(place.center()));
        QApplication::sendEvent(widget, &rests);
        return QToolTip::text();
    }

    [[nodiscard]] bool open(const CraftedContainer& crafted) {
        return crafted.writeTo(containerPath()) && m_driver->openVault(containerPath(), Password);
    }

    /// At the root the folders zeta and Alfa and four files; in Alfa a folder and a file.
    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        auto addFile = [&, number = 0](const QString& path, qsizetype size,
                                       const QString& time) mutable {
            crafted.addFile(path, QByteArray(size, 'x'));
            crafted.setFileMember(number++, u"lastModifiedUtc"_s, time);
        };
        auto addFolder = [&, number = 0](const QString& path, const QString& time) mutable {
            crafted.addFolder(path);
            crafted.setFolderMember(number++, u"modifiedUtc"_s, time);
        };
        addFolder(u"zeta"_s, u"2024-01-01T12:00:00.000Z"_s);
        addFolder(u"Alfa"_s, u"2025-01-01T12:00:00.000Z"_s);
        addFolder(u"Alfa/beta"_s, u"2025-02-01T12:00:00.000Z"_s);
        addFile(u"nota.txt"_s, 3000, u"2024-05-06T01:30:00.000Z"_s);
        addFile(u"Foto.JPG"_s, 100, u"2024-05-08T12:00:00.000Z"_s);
        addFile(u"Alfa/dentro.pdf"_s, 10, u"2024-05-09T12:00:00.000Z"_s);
        addFile(u"README"_s, 2000, u"2024-05-07T12:00:00.000Z"_s);
        addFile(u"chave.pem"_s, 100, u"2024-05-10T12:00:00.000Z"_s);
        return open(crafted);
    }

    void clickHeader(int column) {
        QHeaderView* header = m_driver->table()->horizontalHeader();
        const QPoint position(header->sectionViewportPosition(column) +
                                  header->sectionSize(column) / 2,
                              header->height() / 2);
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, position);
    }

    /// Opens a vault with more folders at the root than fit, one of which holds as many files.
    [[nodiscard]] bool openLong() {
        constexpr int Items = 80;
        CraftedContainer crafted;
        for (int i = 0; i < Items; ++i) {
            crafted.addFolder(u"pasta %1"_s.arg(i, 2, 10, QChar(u'0')));
            crafted.addFile(u"pasta 60/%1.txt"_s.arg(i, 2, 10, QChar(u'0')), "x");
        }
        return open(crafted);
    }

    /// Whether the whole row with this name can be seen.
    [[nodiscard]] bool isInSight(const QString& name) const {
        const QRect row =
            m_driver->table()->visualItemRect(item(m_driver->rowNamed(name), NameColumn));
        return m_driver->table()->viewport()->rect().contains(row.adjusted(0, 0, 0, -1));
    }

    /// Opens the table's menu at a position of its viewport, and closes it again.
    [[nodiscard]] ShownMenu openContextMenu(const QPoint& position) {
        ShownMenu shown;
        QTimer::singleShot(0, &m_driver->window, [&shown] {
            auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
            QVERIFY(menu);
            const QList<QAction*> actions = menu->actions();
            for (const QAction* action : actions) {
                shown.texts.append(action->isSeparator() ? u"--"_s : action->text());
                if (!action->isSeparator() && action->isEnabled()) {
                    shown.enabled.append(action->text());
                }
            }
            shown.position = menu->pos();
            menu->close();
        });
        Q_EMIT m_driver->table()->customContextMenuRequested(position);
        return shown;
    }

private Q_SLOTS:
    // --- Rows ------------------------------------------------------------------------------------

    void lockedVaultShowsNothing() {
        QVERIFY(openSample());
        QCOMPARE(m_driver->table()->rowCount(), 6);
        m_driver->action(u"Bloquear"_s)->trigger();
        QCOMPARE(m_driver->table()->rowCount(), 0);
        QCOMPARE(summary(), u"Nenhum cofre em uso (aberto)"_s);
    }

    void rootShowsFoldersThenFiles() {
        QVERIFY(openSample());
        QCOMPARE(m_driver->rowNames(), QStringList({u"Alfa"_s, u"zeta"_s, u"chave.pem"_s,
                                                    u"Foto.JPG"_s, u"nota.txt"_s, u"README"_s}));
    }

    void folderRowCarriesItsData() {
        QVERIFY(openSample());
        QCOMPARE(text(0, IconColumn), QString());
        QCOMPARE(path(0, IconColumn).toString(), u"Alfa"_s);
        QCOMPARE(kind(0, IconColumn).toInt(), 1);
        QCOMPARE(alignment(0, IconColumn), Centred);
        QCOMPARE(text(0, NameColumn), u"Alfa"_s);
        QCOMPARE(path(0, NameColumn).toString(), u"Alfa"_s);
        QCOMPARE(kind(0, NameColumn).toInt(), 1);
        QCOMPARE(text(0, SizeColumn), QString());
        QCOMPARE(text(0, TypeColumn), u"Pasta"_s);
        QCOMPARE(alignment(0, TypeColumn), Centred);
        QCOMPARE(text(0, DateColumn), u"01/01/2025 09:00"_s);
        QCOMPARE(alignment(0, DateColumn), Centred);
    }

    void fileRowCarriesItsData() {
        QVERIFY(openSample());
        const int row = m_driver->rowNamed(u"nota.txt"_s);
        for (int column = IconColumn; column <= DateColumn; ++column) {
            QCOMPARE(path(row, column).toString(), u"nota.txt"_s);
        }
        QCOMPARE(text(row, IconColumn), QString());
        QCOMPARE(kind(row, IconColumn).toInt(), 0);
        QVERIFY(kind(row, IconColumn).isValid());
        QCOMPARE(alignment(row, IconColumn), Centred);
        QCOMPARE(kind(row, NameColumn).toInt(), 0);
        QVERIFY(kind(row, NameColumn).isValid());
        QCOMPARE(text(row, SizeColumn), Tessel::UI::formatFileSize(3000));
        QCOMPARE(alignment(row, SizeColumn), AtEnd);
        QCOMPARE(text(row, TypeColumn), u"TXT"_s);
        QCOMPARE(alignment(row, TypeColumn), Centred);
        // Half past one in the morning is still the evening before, three hours to the west.
        QCOMPARE(text(row, DateColumn), u"05/05/2024 22:30"_s);
        QCOMPARE(alignment(row, DateColumn), Centred);
    }

    void parentRowCarriesItsData() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"beta"_s, u"dentro.pdf"_s}));
        for (const int column : {IconColumn, NameColumn}) {
            QVERIFY(path(0, column).isValid());
            QCOMPARE(path(0, column).toString(), QString());
            QCOMPARE(kind(0, column).toInt(), 2);
        }
        QCOMPARE(alignment(0, IconColumn), Centred);
        QCOMPARE(text(0, SizeColumn), QString());
        QCOMPARE(text(0, TypeColumn), u"Pasta"_s);
        QCOMPARE(alignment(0, TypeColumn), Centred);
        QCOMPARE(text(0, DateColumn), QString());

        QVERIFY(m_driver->activateRow(u"beta"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s}));
        QCOMPARE(path(0, NameColumn).toString(), u"Alfa"_s);
    }

    void foldersMatchWhateverTheirCase() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFolder(u"Docs/A"_s).addFile(u"DOCS/b.txt"_s, "b");
        QVERIFY(open(crafted));
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s}));
        QVERIFY(m_driver->activateRow(u"docs"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"A"_s, u"b.txt"_s}));
        QCOMPARE(path(1, NameColumn).toString(), u"Docs/A"_s);
        QCOMPARE(path(2, NameColumn).toString(), u"DOCS/b.txt"_s);
    }

    void onlyTheFolderItselfIsShown() {
        CraftedContainer crafted;
        crafted.addFolder(u"a"_s).addFolder(u"ab"_s).addFolder(u"a/b"_s);
        crafted.addFile(u"a/b/c.txt"_s, "c").addFile(u"ab/d.txt"_s, "d").addFile(u"a/e.txt"_s, "e");
        QVERIFY(open(crafted));
        QVERIFY(m_driver->activateRow(u"a"_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"b"_s, u"e.txt"_s}));
    }

    void nothingIsSelectedAfterARefresh() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"nota.txt"_s));
        clickHeader(SizeColumn);
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QVERIFY(m_driver->table()->selectedItems().isEmpty());
        QVERIFY(!m_driver->action(u"Excluir..."_s)->isEnabled());
    }

    void selectionSpeaksForTheCurrentRow_data() {
        QTest::addColumn<QStringList>("way");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("folder");
        QTest::addColumn<bool>("isFolder");
        QTest::addColumn<bool>("isParent");
        const QStringList alfa{u"Alfa"_s};
        const QStringList beta{u"Alfa"_s, u"beta"_s};
        QTest::newRow("nothing") << alfa << QString() << QString() << QString() << false << false;
        QTest::newRow("file") << alfa << u"dentro.pdf"_s << u"Alfa/dentro.pdf"_s << QString()
                              << false << false;
        QTest::newRow("folder") << alfa << u"beta"_s << QString() << u"Alfa/beta"_s << true
                                << false;
        QTest::newRow("row to the root")
            << alfa << u".."_s << QString() << QString() << false << true;
        QTest::newRow("row to a folder")
            << beta << u".."_s << QString() << u"Alfa"_s << false << true;
    }
    void selectionSpeaksForTheCurrentRow() {
        QFETCH(QStringList, way);
        QFETCH(QString, row);
        QVERIFY(openSample());
        for (const QString& folder : way) {
            QVERIFY(m_driver->activateRow(folder));
        }
        if (!row.isEmpty()) {
            QVERIFY(m_driver->selectRow(row));
        }
        QTEST(m_driver->window.selectedVaultPath(), "file");
        QTEST(m_driver->window.selectedDirectoryPath(), "folder");
        QTEST(m_driver->window.selectedItemIsDirectory(), "isFolder");
        QTEST(m_driver->window.selectedItemIsParentDirectory(), "isParent");
    }

    void clickBesideTheRowsChoosesNone() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"nota.txt"_s));
        QWidget* viewport = m_driver->table()->viewport();
        QTest::mouseClick(viewport, Qt::LeftButton, {}, {5, viewport->height() - 2});
        QVERIFY(m_driver->table()->selectedItems().isEmpty());
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QCOMPARE(m_driver->window.selectedVaultPath(), QString());
        QVERIFY(!m_driver->action(u"Excluir..."_s)->isEnabled());
    }

    void rowWhoseHighlightIsTakenAwayIsNotCurrent() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"nota.txt"_s));
        const QPoint position = m_driver->table()->visualItemRect(item(4, NameColumn)).center();
        QTest::mouseClick(m_driver->table()->viewport(), Qt::LeftButton, Qt::ControlModifier,
                          position);
        QVERIFY(m_driver->table()->selectedItems().isEmpty());
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QVERIFY(!m_driver->action(u"Excluir..."_s)->isEnabled());
    }

    // --- Sorting ---------------------------------------------------------------------------------

    void headerClicksSort_data() {
        QTest::addColumn<QList<int>>("clicks");
        QTest::addColumn<int>("column");
        QTest::addColumn<Qt::SortOrder>("order");
        QTest::addColumn<QString>("names");
        QTest::newRow("no click") << QList<int>{} << 1 << Qt::AscendingOrder
                                  << u"Alfa zeta chave.pem Foto.JPG nota.txt README"_s;
        QTest::newRow("name") << QList<int>{1} << 1 << Qt::DescendingOrder
                              << u"zeta Alfa README nota.txt Foto.JPG chave.pem"_s;
        QTest::newRow("name twice") << QList<int>{1, 1} << 1 << Qt::AscendingOrder
                                    << u"Alfa zeta chave.pem Foto.JPG nota.txt README"_s;
        QTest::newRow("size") << QList<int>{2} << 2 << Qt::AscendingOrder
                              << u"Alfa zeta chave.pem Foto.JPG README nota.txt"_s;
        QTest::newRow("size twice") << QList<int>{2, 2} << 2 << Qt::DescendingOrder
                                    << u"zeta Alfa nota.txt README Foto.JPG chave.pem"_s;
        QTest::newRow("type") << QList<int>{3} << 3 << Qt::AscendingOrder
                              << u"Alfa zeta README Foto.JPG chave.pem nota.txt"_s;
        QTest::newRow("type twice") << QList<int>{3, 3} << 3 << Qt::DescendingOrder
                                    << u"zeta Alfa nota.txt chave.pem Foto.JPG README"_s;
        QTest::newRow("date") << QList<int>{4} << 4 << Qt::AscendingOrder
                              << u"zeta Alfa nota.txt README Foto.JPG chave.pem"_s;
        QTest::newRow("date twice") << QList<int>{4, 4} << 4 << Qt::DescendingOrder
                                    << u"Alfa zeta chave.pem Foto.JPG README nota.txt"_s;
        QTest::newRow("another column starts ascending")
            << QList<int>{2, 2, 4} << 4 << Qt::AscendingOrder
            << u"zeta Alfa nota.txt README Foto.JPG chave.pem"_s;
    }
    void headerClicksSort() {
        QFETCH(QList<int>, clicks);
        QFETCH(QString, names);
        QVERIFY(openSample());
        for (const int column : clicks) {
            clickHeader(column);
        }
        QCOMPARE(m_driver->rowNames().join(u' '), names);
        const QHeaderView* header = m_driver->table()->horizontalHeader();
        QTEST(header->sortIndicatorSection(), "column");
        QTEST(header->sortIndicatorOrder(), "order");
    }

    void tiesGoByName_data() {
        QTest::addColumn<QList<int>>("clicks");
        QTest::addColumn<QString>("names");
        // A file without suffix has a type that is a word, between "ARJ" and "ASC".
        QTest::newRow("type") << QList<int>{TypeColumn}
                              << u"a B z v.arj README w.asc A.TXT b.txt"_s;
        QTest::newRow("type, descending")
            << QList<int>{TypeColumn, TypeColumn} << u"z B a b.txt A.TXT w.asc README v.arj"_s;
        QTest::newRow("date") << QList<int>{DateColumn}
                              << u"z a B w.asc A.TXT b.txt README v.arj"_s;
        QTest::newRow("date, descending")
            << QList<int>{DateColumn, DateColumn} << u"B a z v.arj README b.txt A.TXT w.asc"_s;
    }
    void tiesGoByName() {
        QFETCH(const QList<int>, clicks);
        const QString early = u"2023-01-01T12:00:00.000Z"_s;
        const QString late = u"2024-01-01T12:00:00.000Z"_s;
        CraftedContainer crafted;
        crafted.addFolder(u"B"_s).addFolder(u"a"_s).addFolder(u"z"_s);
        const QStringList folderTimes{late, late, early};
        for (int i = 0; i < folderTimes.size(); ++i) {
            crafted.setFolderMember(i, u"modifiedUtc"_s, folderTimes.at(i));
        }
        const QStringList files{u"b.txt"_s, u"A.TXT"_s, u"README"_s, u"w.asc"_s, u"v.arj"_s};
        for (int i = 0; i < files.size(); ++i) {
            crafted.addFile(files.at(i), "x");
            crafted.setFileMember(i, u"lastModifiedUtc"_s, files.at(i) == u"w.asc" ? early : late);
        }
        QVERIFY(open(crafted));
        for (const int column : clicks) {
            clickHeader(column);
        }
        QTEST(m_driver->rowNames().join(u' '), "names");
    }

    void iconHeaderIsIgnored() {
        QVERIFY(openSample());
        clickHeader(SizeColumn);
        clickHeader(SizeColumn);
        const QStringList names = m_driver->rowNames();
        QVERIFY(m_driver->selectRow(u"nota.txt"_s));
        clickHeader(IconColumn);
        QCOMPARE(m_driver->rowNames(), names);
        QCOMPARE(m_driver->table()->horizontalHeader()->sortIndicatorSection(), 2);
        QCOMPARE(m_driver->table()->horizontalHeader()->sortIndicatorOrder(), Qt::DescendingOrder);
        QCOMPARE(m_driver->window.selectedVaultPath(), u"nota.txt"_s);
        clickHeader(SizeColumn);
        QCOMPARE(m_driver->table()->horizontalHeader()->sortIndicatorOrder(), Qt::AscendingOrder);
    }

    void sortingSurvivesLocking() {
        QVERIFY(openSample());
        clickHeader(SizeColumn);
        clickHeader(SizeColumn);
        const QStringList names = m_driver->rowNames();
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(m_driver->unlock(Password));
        QCOMPARE(m_driver->rowNames(), names);
        QCOMPARE(m_driver->table()->horizontalHeader()->sortIndicatorSection(), 2);
    }

    void namesThatDifferInCaseKeepTheirOrder() {
        CraftedContainer crafted;
        crafted.addFile(u"b.txt"_s, "1").addFile(u"a.txt"_s, "2").addFile(u"A.txt"_s, "3");
        QVERIFY(open(crafted));
        QCOMPARE(m_driver->rowNames(), QStringList({u"a.txt"_s, u"A.txt"_s, u"b.txt"_s}));
        clickHeader(NameColumn);
        QCOMPARE(m_driver->rowNames(), QStringList({u"b.txt"_s, u"a.txt"_s, u"A.txt"_s}));
    }

    void invalidTimeIsBlankAndSortsAsQtDoes() {
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "1").addFile(u"b.txt"_s, "2").addFile(u"c.txt"_s, "3");
        crafted.setFileMember(0, u"lastModifiedUtc"_s, u"2024-05-06T01:30:00.000Z"_s);
        crafted.setFileMember(1, u"lastModifiedUtc"_s, u"no time at all"_s);
        crafted.setFileMember(2, u"lastModifiedUtc"_s, u"1960-01-01T00:00:00.000Z"_s);
        QVERIFY(open(crafted));
        QCOMPARE(text(1, DateColumn), QString());
        QList<std::pair<QDateTime, QString>> expected = {
            {utc(u"2024-05-06T01:30:00Z"_s), u"a.txt"_s},
            {QDateTime(), u"b.txt"_s},
            {utc(u"1960-01-01T00:00:00Z"_s), u"c.txt"_s}};
        std::stable_sort(expected.begin(), expected.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        clickHeader(DateColumn);
        QCOMPARE(m_driver->rowNames(), QStringList({expected.at(0).second, expected.at(1).second,
                                                    expected.at(2).second}));
    }

    // --- Navigation ------------------------------------------------------------------------------

    void doubleClicksNavigate() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Alfa | 5 arquivos no cofre."_s);
        QVERIFY(m_driver->activateRow(u"beta"_s));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Alfa/beta | 5 arquivos no cofre."_s);
        QVERIFY(m_driver->activateRow(u".."_s));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Alfa | 5 arquivos no cofre."_s);
        QVERIFY(m_driver->activateRow(u".."_s));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Raiz | 5 arquivos no cofre."_s);
        QCOMPARE(m_driver->rowNamed(u".."_s), -1);
        QVERIFY(!m_driver->action(u"Renomear pasta..."_s)->isEnabled());
    }

    void parentOfTheRootIsTheRoot() {
        QVERIFY(openSample());
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window, "navigateToParentDirectory"));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Raiz | 5 arquivos no cofre."_s);
        QCOMPARE(m_driver->table()->rowCount(), 6);
    }

    void withoutAFolderSelectedNoneIsEntered() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        const QString before = summary();
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window, "enterSelectedDirectory"));
        QCOMPARE(summary(), before);
        QVERIFY(m_driver->selectRow(u"dentro.pdf"_s));
        QVERIFY(QMetaObject::invokeMethod(&m_driver->window, "enterSelectedDirectory"));
        QCOMPARE(summary(), before);
        QCOMPARE(m_driver->window.selectedVaultPath(), u"Alfa/dentro.pdf"_s);
    }

    void lockingReturnsToTheRoot() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(m_driver->unlock(Password));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Raiz | 5 arquivos no cofre."_s);
        QCOMPARE(m_driver->table()->rowCount(), 6);
    }

    void doubleClickOpensAFile() {
        QVERIFY(openSample());
        const FakeDesktop desktop(u"file"_s);
        QVERIFY(m_driver->activateRow(u"README"_s));
        QCOMPARE(desktop.opened.size(), 1);
        QCOMPARE(desktop.opened.first().fileName(), u"README"_s);

        m_driver->action(u"Abrir"_s)->setEnabled(false);
        Q_EMIT m_driver->table()->itemDoubleClicked(m_driver->table()->currentItem());
        QCOMPARE(desktop.opened.size(), 1);
    }

    void folderThatIsGoneShowsOnlyTheWayUp() {
        QVERIFY(openSample());
        // The row outlives its folder.
        const int row = m_driver->rowNamed(u"zeta"_s);
        m_driver->table()->item(row, NameColumn)->setData(Qt::UserRole, u"Alfa/gone"_s);
        QVERIFY(m_driver->activateRow(u"zeta"_s));
        QCOMPARE(m_driver->rowNames(), QStringList{u".."_s});
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: Alfa/gone | 5 arquivos no cofre."_s);
        QVERIFY(m_driver->activateRow(u".."_s));
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"beta"_s, u"dentro.pdf"_s}));
    }

    void folderIsShownFromItsTop() {
        QVERIFY(openLong());
        QVERIFY(m_driver->activateRow(u"pasta 60"_s));
        QCoreApplication::processEvents();
        QCOMPARE(scrollBar()->value(), 0);
        QVERIFY(isInSight(u".."_s));

        // Back at the root, and from its end into the same folder by the keyboard.
        QWidget* focused = m_driver->deviceList();
        QTest::keyClick(focused, Qt::Key_Backspace);
        QTest::keyClick(focused, Qt::Key_End);
        Tessel::Tests::typeText(focused, u"pasta 60"_s);
        QTest::keyClick(focused, Qt::Key_Return);
        QCoreApplication::processEvents();
        QCOMPARE(m_driver->rowNames().first(), u".."_s);
        QCOMPARE(scrollBar()->value(), 0);

        QVERIFY(m_driver->selectRow(u"79.txt"_s));
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(m_driver->unlock(Password));
        QCoreApplication::processEvents();
        QCOMPARE(scrollBar()->value(), 0);
    }

    void folderJustLeftIsInSight() {
        QVERIFY(openLong());
        QVERIFY(m_driver->activateRow(u"pasta 60"_s));
        QVERIFY(m_driver->activateRow(u".."_s));
        QCoreApplication::processEvents();
        QVERIFY(isInSight(u"pasta 60"_s));
        QCOMPARE(m_driver->table()->currentRow(), -1);
        QVERIFY(m_driver->table()->selectedItems().isEmpty());
    }

    void deletionLeavesTheTableWhereItIs() {
        QVERIFY(openLong());
        QCoreApplication::processEvents(); // the rows are laid out
        QVERIFY(m_driver->selectRow(u"pasta 40"_s));
        const int before = scrollBar()->value();
        QVERIFY(before > 0);
        dialogs().press(u"Excluir pasta"_s, u"Sim"_s);
        VERIFY_RUN(u"Excluir pasta vazia"_s);
        QCoreApplication::processEvents();
        QCOMPARE(scrollBar()->value(), before);
        QCOMPARE(m_driver->table()->currentRow(), -1);
    }

    // --- Icons and words -------------------------------------------------------------------------

    void badgesAreDrawn_data() {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("badge");
        QTest::addColumn<QColor>("colour");
        const struct {
            QString suffixes;
            QString badge;
            QColor colour;
        } rows[] = {
            {u"pem key PEM"_s, u"KEY"_s, QColor(u"#1F735C")},
            {u"sig asc"_s, u"SIG"_s, QColor(u"#7050A0")},
            {u"crt cer csr"_s, u"CRT"_s, QColor(u"#B87118")},
            {u"encrypted"_s, u"ENC"_s, QColor(u"#455C7A")},
            {u"txt log"_s, u"TXT"_s, QColor(u"#5A5A5A")},
            {u"mp3 wav flac ogg m4a"_s, u"AUD"_s, QColor(u"#2563B4")},
            {u"jpg jpeg png gif bmp webp JPG tar.gIf"_s, u"IMG"_s, QColor(u"#1F848D")},
        };
        for (const auto& row : rows) {
            const QStringList suffixes = row.suffixes.split(u' ');
            for (const QString& suffix : suffixes) {
                QTest::newRow(qPrintable(suffix))
                    << u"pasta/arquivo."_s + suffix << row.badge << row.colour;
            }
        }
    }
    void badgesAreDrawn() {
        QFETCH(QString, fileName);
        QFETCH(QString, badge);
        QFETCH(QColor, colour);
        const QImage icon = iconImage(VaultTableItemKind::File, fileName);
        QCOMPARE(icon.size(), QSize(22, 22));
        QCOMPARE(label(icon), labelWith(badge, colour));
        // The label is wider than the sheet of paper, whose corner is folded.
        QCOMPARE(icon.pixelColor(3, 13), colour);
        QCOMPARE(icon.pixelColor(8, 6), QColor(Qt::white));
        QCOMPARE(icon.pixelColor(10, 1), QColor(u"#acacac"));
        QCOMPARE(icon.pixelColor(15, 4), QColor(u"#ededed"));
        QCOMPARE(icon.pixelColor(16, 5), QColor(u"#bebebe"));
        for (const QPoint& outside : {QPoint(0, 0), QPoint(1, 15), QPoint(2, 6), QPoint(20, 6)}) {
            QCOMPARE(icon.pixelColor(outside).alpha(), 0);
        }
    }

    void otherFilesHaveTheDesktopsIcons() {
        const QFileIconProvider provider;
        const auto image = [](const QIcon& icon) {
            return icon.pixmap(QSize(22, 22), 1.0).toImage();
        };
        const QImage general = image(provider.icon(QFileIconProvider::File));
        QCOMPARE(iconImage(VaultTableItemKind::File, u"README"_s), general);
        QCOMPARE(iconImage(VaultTableItemKind::File, u"a.b/README"_s), general);
        QCOMPARE(iconImage(VaultTableItemKind::Directory, u"fotos.jpg"_s),
                 image(provider.icon(QFileIconProvider::Folder)));
        QCOMPARE(iconImage(VaultTableItemKind::ParentDirectory, u"fotos.jpg"_s),
                 image(QApplication::style()->standardIcon(QStyle::SP_ArrowUp)));
    }

    void desktopIsAskedAboutAPlaceholder() {
        // Nobody has such a file. A folder of the placeholder's name gives the answer away.
        const QString before = QDir::currentPath();
        QVERIFY(QDir::setCurrent(m_folder->path()));
        QVERIFY(QDir().mkdir(u"tessel-placeholder.pdf"_s));
        const QImage pdf = iconImage(VaultTableItemKind::File, u"docs/relatorio.PDF"_s);
        const QImage doc = iconImage(VaultTableItemKind::File, u"docs/relatorio.doc"_s);
        QVERIFY(QDir::setCurrent(before));
        const QFileIconProvider provider;
        const auto image = [](const QIcon& icon) {
            return icon.pixmap(QSize(22, 22), 1.0).toImage();
        };
        const QImage general = image(provider.icon(QFileIconProvider::File));
        QCOMPARE(pdf, image(provider.icon(QFileInfo(m_folder->path()))));
        QVERIFY(pdf != general);
        QVERIFY(!doc.isNull());
        QVERIFY(doc != pdf);
    }

    void iconColumnShowsTheIcons() {
        QVERIFY(openSample());
        const auto shown = [this](int row) {
            return item(row, IconColumn)->icon().pixmap(QSize(22, 22), 1.0).toImage();
        };
        QCOMPARE(shown(0), iconImage(VaultTableItemKind::Directory, u"Alfa"_s));
        QCOMPARE(shown(2), iconImage(VaultTableItemKind::File, u"a.key"_s));
        QCOMPARE(shown(3), iconImage(VaultTableItemKind::File, u"a.jpg"_s));
        QCOMPARE(shown(5), iconImage(VaultTableItemKind::File, u"README"_s));
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        QCOMPARE(shown(0), iconImage(VaultTableItemKind::ParentDirectory, u"Alfa"_s));
    }

    void typeLabelIsTheSuffix_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("label");
        QTest::newRow("suffix") << u"photo.JPG"_s << u"JPG"_s;
        QTest::newRow("lower case") << u"docs/a.txt"_s << u"TXT"_s;
        QTest::newRow("last of two") << u"a.tar.gz"_s << u"GZ"_s;
        QTest::newRow("none") << u"README"_s << u"Arquivo"_s;
        QTest::newRow("dot at the end") << u"README."_s << u"Arquivo"_s;
        QTest::newRow("dot in the folder") << u"a.b/README"_s << u"Arquivo"_s;
    }
    void typeLabelIsTheSuffix() {
        QFETCH(QString, path);
        QTEST(Tessel::UI::fileTypeLabel(path), "label");
    }

    void sizesHaveOneDecimal_data() {
        QTest::addColumn<qint64>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("none") << qint64{0} << u"0 bytes"_s;
        QTest::newRow("below a kilobyte") << qint64{1023} << u"1,023 bytes"_s;
        QTest::newRow("a kilobyte") << qint64{1024} << u"1.0 kB"_s;
        QTest::newRow("one and a half") << qint64{1536} << u"1.5 kB"_s;
        QTest::newRow("a megabyte") << qint64{1048576} << u"1.0 MB"_s;
        QTest::newRow("a gigabyte") << qint64{1073741824} << u"1.0 GB"_s;
    }
    void sizesHaveOneDecimal() {
        QFETCH(qint64, bytes);
        QTEST(Tessel::UI::formatFileSize(bytes), "text");
    }

    void summaryCountsTheWholeVault_data() {
        QTest::addColumn<int>("files");
        QTest::addColumn<QString>("text");
        QTest::newRow("empty") << 0 << u"Arquivos protegidos | Pasta: Raiz | O cofre está vazio."_s;
        QTest::newRow("one") << 1 << u"Arquivos protegidos | Pasta: Raiz | 1 arquivo no cofre."_s;
        QTest::newRow("two") << 2 << u"Arquivos protegidos | Pasta: Raiz | 2 arquivos no cofre."_s;
    }
    void summaryCountsTheWholeVault() {
        QFETCH(int, files);
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s);
        for (int i = 0; i < files; ++i) {
            crafted.addFile(u"docs/%1.txt"_s.arg(i), "x");
        }
        QVERIFY(open(crafted));
        QTEST(summary(), "text");
    }

    void summaryShowsAFolderNameAsItIs() {
        CraftedContainer crafted;
        crafted.addFolder(u"<b>%2"_s);
        QVERIFY(open(crafted));
        QVERIFY(m_driver->activateRow(u"<b>%2"_s));
        QCOMPARE(summary(), u"Arquivos protegidos | Pasta: <b>%2 | O cofre está vazio."_s);
        QCOMPARE(m_driver->label(u"protectedFilesLabel"_s)->textFormat(), Qt::PlainText);
    }

    void aDeepPathIsReadInTheToolTipOfTheSummary() {
        const QString deep = QString(120, u'm') + u"/"_s + QString(120, u'w');
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFolder(deep.section(u'/', 0, 0)).addFolder(deep)));
        QLabel* label = m_driver->label(u"protectedFilesLabel"_s);
        QCOMPARE(toolTipAt(label, label->rect()), QString());
        QVERIFY(m_driver->activateRow(deep.section(u'/', 0, 0)));
        QVERIFY(m_driver->activateRow(deep.section(u'/', 1)));
        QVERIFY(summary().contains(deep));
        // In lines, for which it has more places to break.
        QTextDocument shown;
        shown.setHtml(toolTipAt(label, label->rect()));
        QCOMPARE(shown.toPlainText().remove(QChar(0x200B)), summary());
    }

    void toolTipsOfLongNamesFitTheScreen_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("letters") << QString(250, u'm');
        QTest::newRow("marks") << u"<b>"_s + QString(240, u'&');
    }
    void toolTipsOfLongNamesFitTheScreen() {
        QFETCH(const QString, name);
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(name, "a")));
        QTableWidget* table = m_driver->table();
        const QTableWidgetItem* cell = table->item(0, NameColumn);
        QVERIFY(!toolTipAt(table->viewport(), table->visualItemRect(cell)).isEmpty());
        const QWidgetList windows = QApplication::topLevelWidgets();
        const auto tip = std::find_if(windows.cbegin(), windows.cend(), [](const QWidget* window) {
            return window->inherits("QTipLabel") && window->isVisible();
        });
        QVERIFY(tip != windows.cend());
        const int width = (*tip)->width();
        QVERIFY2(width < table->screen()->availableGeometry().width(),
                 qPrintable(QString::number(width)));
        QTextDocument shown;
        shown.setHtml(QToolTip::text());
        QCOMPARE(shown.toPlainText().remove(QChar(0x200B)), name);
    }

    void cutCellsAreReadInTheirToolTip() {
        const QString longName = u"<b>"_s + QString(240, u'm');
        CraftedContainer crafted;
        QVERIFY(open(crafted.addFile(longName, "a").addFile(u"curto"_s, "b")));
        QTableWidget* table = m_driver->table();
        const auto toolTipOf = [&](const QString& name, int column) {
            const QTableWidgetItem* cell = table->item(m_driver->rowNamed(name), column);
            return toolTipAt(table->viewport(), table->visualItemRect(cell));
        };
        // The name's marks are shown, not obeyed.
        QVERIFY(toolTipOf(longName, NameColumn).contains(u"&lt;b&gt;mmm"));
        QCOMPARE(toolTipOf(u"curto"_s, NameColumn), QString());
        QFont large = table->font();
        large.setPointSize(40);
        table->setFont(large);
        QCOMPARE(toolTipOf(u"curto"_s, DateColumn),
                 text(m_driver->rowNamed(u"curto"_s), DateColumn));
    }

    void headingsStayTheSameWithASelection() {
        QVERIFY(openSample());
        QHeaderView* header = m_driver->table()->horizontalHeader();
        const QImage before = header->grab().toImage();
        QVERIFY(m_driver->selectRow(u"zeta"_s));
        QVERIFY(header->grab().toImage() == before);
    }

    // --- Context menu ----------------------------------------------------------------------------

    void contextMenuHoldsCommandsInOrder_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QStringList>("texts");
        QTest::addColumn<QStringList>("enabled");
        const QStringList start = {u"Nova pasta..."_s,
                                   u"Renomear pasta..."_s,
                                   u"Excluir pasta vazia"_s,
                                   u"--"_s,
                                   u"Importar..."_s,
                                   u"Exportar..."_s,
                                   u"Abrir"_s};
        const QStringList ofAFile = {u"Mover para pasta..."_s, u"Renomear arquivo..."_s};
        const QStringList end = {u"--"_s, u"Excluir..."_s};
        const QStringList always = {u"Nova pasta..."_s, u"Importar..."_s};
        QTest::newRow("no row") << QString() << start + end << always;
        QTest::newRow("folder") << u"beta"_s << start + end
                                << QStringList{u"Nova pasta..."_s, u"Renomear pasta..."_s,
                                               u"Excluir pasta vazia"_s, u"Importar..."_s};
        QTest::newRow("file") << u"dentro.pdf"_s << start + ofAFile + end
                              << always + QStringList{u"Exportar..."_s, u"Abrir"_s} + ofAFile +
                                     QStringList{u"Excluir..."_s};
        QTest::newRow("parent row") << u".."_s << start + end << always;
    }
    void contextMenuHoldsCommandsInOrder() {
        QFETCH(const QString, row);
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"Alfa"_s));
        QTableWidget* table = m_driver->table();
        const int hit = m_driver->rowNamed(row);
        // Any place of the row will do: this is the last line of its icon.
        const QPoint position = hit < 0 ? QPoint(5, table->viewport()->height() - 2)
                                        : table->visualItemRect(item(hit, IconColumn)).bottomLeft();
        const ShownMenu shown = openContextMenu(position);
        QTEST(shown.texts, "texts");
        QTEST(shown.enabled, "enabled");
        QCOMPARE(table->currentRow(), hit);
        QCOMPARE(table->selectedItems().size(), hit < 0 ? 0 : 5);
        QVERIFY(hit < 0 || item(hit, NameColumn)->isSelected());
        QCOMPARE(shown.position.x(), table->viewport()->mapToGlobal(position).x());
        // Near the lower edge of the screen the menu would not have room below.
        QVERIFY(hit < 0 || shown.position.y() == table->viewport()->mapToGlobal(position).y());
        QVERIFY(
            m_driver->window.findChildren<QMenu*>(QString(), Qt::FindDirectChildrenOnly).isEmpty());
    }

    void contextMenuBesideTheRowsKeepsTheSelection() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"nota.txt"_s));
        const ShownMenu shown = openContextMenu({5, m_driver->table()->viewport()->height() - 2});
        QVERIFY(shown.enabled.contains(u"Excluir..."_s));
        QCOMPARE(m_driver->window.selectedVaultPath(), u"nota.txt"_s);
        QVERIFY(item(m_driver->rowNamed(u"nota.txt"_s), NameColumn)->isSelected());
    }

    // --- Size ------------------------------------------------------------------------------------

    void fifteenThousandFilesAreShownInOrder() {
        constexpr int Files = 15000;
        CraftedContainer crafted;
        for (int i = 0; i < Files; ++i) {
            // Neither sorted nor of one kind.
            crafted.addFile(u"%1.x%2"_s.arg(i * 7919 % Files).arg(i % 50), QByteArray());
        }
        QVERIFY(open(crafted));
        QCOMPARE(m_driver->table()->rowCount(), Files);
        clickHeader(TypeColumn);
        QCOMPARE(m_driver->table()->rowCount(), Files);
        for (int row = 1; row < Files; ++row) {
            const QString before = m_driver->table()->item(row - 1, TypeColumn)->text();
            const QString here = m_driver->table()->item(row, TypeColumn)->text();
            QVERIFY2(before.compare(here, Qt::CaseInsensitive) <= 0,
                     qPrintable(before + u' ' + here));
        }
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestVaultBrowser>);
#include "test_vault_browser.moc"
