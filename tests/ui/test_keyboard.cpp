// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"

#include <QAction>
#include <QApplication>
#include <QContextMenuEvent>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = QStringLiteral("senha de teste");

} // namespace

/// The window without a mouse. Keys go to the widget that has the focus, as they do on a desktop.
class TestKeyboard : public WindowTest {
    Q_OBJECT

private Q_SLOTS:
    void arrowsChooseARow();
    void firstArrowBeginsAtAnEnd_data();
    void firstArrowBeginsAtAnEnd();
    void longListMovesByPagesAndEnds();
    void enterOpensFoldersAndFiles_data();
    void enterOpensFoldersAndFiles();
    void backspaceLeavesAFolder();
    void leftAndRightStepThroughSorting();
    void lettersChooseTheRowThatBeginsWithThem_data();
    void lettersChooseTheRowThatBeginsWithThem();
    void lettersGoOnFromTheCurrentRow();
    void pauseEndsWhatWasTyped();
    void escapeForgetsWhatWasTyped();
    void otherKeysEndWhatWasTyped();
    void spaceIsALetterOnlyWhileTyping();
    void resultIsNotTakenForLetters();
    void deletionKeepsThePlaceForTheKeys_data();
    void deletionKeepsThePlaceForTheKeys();
    void f2RenamesWhatIsSelected_data();
    void f2RenamesWhatIsSelected();
    void deleteOnAFolderAsksAsItsCommandDoes();
    void menuKeyShowsTheRowsMenu_data();
    void menuKeyShowsTheRowsMenu();
    void menuKeyWithoutARowChoosesNone();
    void f10OpensTheFirstMenu();
    void shortcutsStayWhatTheyAre();
    void keysWithModifiersAreLeftAlone();
    void lockedVaultLeavesTheKeysToTheDeviceList();
    void focusNeverLeavesTheDeviceList();

private:
    [[nodiscard]] bool openSample();
    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier);
    /// Types at once, with no pause between the letters.
    void type(const QString& letters) { typeText(m_driver->deviceList(), letters); }
    [[nodiscard]] bool openNames();
    [[nodiscard]] QString currentName() const;
    /// Runs @p open, which shows a menu, and gives back the texts of the menu's enabled entries.
    [[nodiscard]] QStringList entriesOfMenuShownBy(const std::function<void()>& open);
};

bool TestKeyboard::openSample() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_qs).addFolder(u"docs/sub"_qs);
    crafted.addFile(u"a.txt"_qs, "aaaa").addFile(u"b.bin"_qs, "b").addFile(u"docs/c.txt"_qs, "c");
    const QString path = m_folder->filePath(u"t.tvlt"_qs);
    return crafted.writeTo(path) && m_driver->openVault(path, Password) && m_driver->activate();
}

void TestKeyboard::press(Qt::Key key, Qt::KeyboardModifiers modifiers) {
    // A dialog that was answered leaves no window active on this platform.
    static_cast<void>(m_driver->activate());
    QWidget* receiver = QApplication::focusWidget();
    QTest::keyClick(receiver == nullptr ? &m_driver->window : receiver, key, modifiers);
}

QString TestKeyboard::currentName() const {
    const QTableWidget* table = m_driver->table();
    const QList<QTableWidgetItem*> selected = table->selectedItems();
    // The row that is current is the one that is highlighted.
    if (selected.isEmpty() || selected.first()->row() != table->currentRow()) {
        return {};
    }
    return table->item(table->currentRow(), 1)->text();
}

QStringList TestKeyboard::entriesOfMenuShownBy(const std::function<void()>& open) {
    QStringList entries;
    QTimer::singleShot(0, &m_driver->window, [&entries] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (menu == nullptr) {
            return;
        }
        const QList<QAction*> actions = menu->actions();
        for (const QAction* action : actions) {
            if (action->isEnabled() && !action->isSeparator()) {
                entries.append(action->text());
            }
        }
        menu->close();
    });
    open();
    QCoreApplication::processEvents();
    return entries;
}

void TestKeyboard::arrowsChooseARow() {
    QVERIFY(openSample());
    QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_qs, u"a.txt"_qs, u"b.bin"_qs}));
    for (const QString& name : {u"docs"_qs, u"a.txt"_qs, u"b.bin"_qs, u"b.bin"_qs}) {
        press(Qt::Key_Down);
        QCOMPARE(currentName(), name);
    }
    for (const QString& name : {u"a.txt"_qs, u"docs"_qs, u"docs"_qs}) {
        press(Qt::Key_Up);
        QCOMPARE(currentName(), name);
    }
    QVERIFY(m_driver->action(u"Renomear pasta..."_qs)->isEnabled());
    QVERIFY(!m_driver->action(u"Abrir"_qs)->isEnabled());
}

void TestKeyboard::firstArrowBeginsAtAnEnd_data() {
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("name");
    QTest::newRow("down") << int{Qt::Key_Down} << u"docs"_qs;
    QTest::newRow("up") << int{Qt::Key_Up} << u"b.bin"_qs;
    QTest::newRow("home") << int{Qt::Key_Home} << u"docs"_qs;
    QTest::newRow("end") << int{Qt::Key_End} << u"b.bin"_qs;
}

void TestKeyboard::firstArrowBeginsAtAnEnd() {
    QFETCH(const int, key);
    QFETCH(const QString, name);
    QVERIFY(openSample());
    QCOMPARE(currentName(), QString());
    press(static_cast<Qt::Key>(key));
    QCOMPARE(currentName(), name);
}

void TestKeyboard::longListMovesByPagesAndEnds() {
    CraftedContainer crafted;
    for (int i = 100; i < 300; ++i) {
        crafted.addFile(QStringLiteral("%1.txt").arg(i), "x");
    }
    const QString path = m_folder->filePath(u"long.tvlt"_qs);
    QVERIFY(crafted.writeTo(path) && m_driver->openVault(path, Password) && m_driver->activate());
    const QTableWidget* table = m_driver->table();
    const auto currentIsVisible = [table] {
        const QRect row = table->visualItemRect(table->currentItem());
        return table->viewport()->rect().contains(QRect(0, row.y(), 1, row.height()));
    };

    press(Qt::Key_End);
    QCOMPARE(currentName(), u"299.txt"_qs);
    QTRY_VERIFY(currentIsVisible());
    press(Qt::Key_PageUp);
    const int pageUp = 199 - table->currentRow();
    QVERIFY(pageUp > 1 && pageUp < 199);
    QTRY_VERIFY(currentIsVisible());
    press(Qt::Key_Home);
    QCOMPARE(currentName(), u"100.txt"_qs);
    press(Qt::Key_PageDown);
    QCOMPARE(table->currentRow(), pageUp);
    QTRY_VERIFY(currentIsVisible());
}

void TestKeyboard::enterOpensFoldersAndFiles_data() {
    QTest::addColumn<int>("key");
    QTest::newRow("return") << int{Qt::Key_Return};
    QTest::newRow("number pad") << int{Qt::Key_Enter};
}

void TestKeyboard::enterOpensFoldersAndFiles() {
    QFETCH(const int, key);
    const auto enter = [this, key] {
        press(static_cast<Qt::Key>(key),
              key == Qt::Key_Enter ? Qt::KeypadModifier : Qt::NoModifier);
    };
    FakeDesktop desktop(u"file"_qs);
    QVERIFY(openSample());
    enter(); // no row: nothing
    QCOMPARE(m_driver->rowNames().size(), 3);
    press(Qt::Key_Down);
    enter();
    QCOMPARE(m_driver->rowNames(), QStringList({u".."_qs, u"sub"_qs, u"c.txt"_qs}));
    press(Qt::Key_End);
    enter();
    QCOMPARE(desktop.opened.size(), 1);
    QVERIFY(desktop.opened.first().path().endsWith(u"/docs/c.txt"));
    press(Qt::Key_Home);
    enter();
    QCOMPARE(m_driver->rowNames().first(), u"docs"_qs);
}

void TestKeyboard::backspaceLeavesAFolder() {
    QVERIFY(openSample());
    QVERIFY(m_driver->activateRow(u"docs"_qs));
    QVERIFY(m_driver->activateRow(u"sub"_qs));
    QCOMPARE(m_driver->rowNames(), QStringList(u".."_qs));
    press(Qt::Key_Backspace);
    QCOMPARE(m_driver->rowNames(), QStringList({u".."_qs, u"sub"_qs, u"c.txt"_qs}));
    press(Qt::Key_Backspace);
    QCOMPARE(m_driver->rowNames().first(), u"docs"_qs);
    press(Qt::Key_Down);
    press(Qt::Key_Backspace); // the root has no parent, and the row stays chosen
    QCOMPARE(currentName(), u"docs"_qs);
}

void TestKeyboard::leftAndRightStepThroughSorting() {
    QVERIFY(openSample());
    const QHeaderView* header = m_driver->table()->horizontalHeader();
    const auto indicator = [header] {
        return std::pair(header->sortIndicatorSection(), header->sortIndicatorOrder());
    };
    const QList<std::pair<int, Qt::SortOrder>> steps{
        {1, Qt::AscendingOrder},  {1, Qt::DescendingOrder}, {2, Qt::AscendingOrder},
        {2, Qt::DescendingOrder}, {3, Qt::AscendingOrder},  {3, Qt::DescendingOrder},
        {4, Qt::AscendingOrder},  {4, Qt::DescendingOrder}};
    press(Qt::Key_Left); // nothing stands before the first
    for (const auto& step : steps) {
        QCOMPARE(indicator(), step);
        press(Qt::Key_Right);
    }
    QCOMPARE(indicator(), steps.last());
    for (int i = 0; i < 5; ++i) {
        press(Qt::Key_Left);
    }
    QCOMPARE(indicator(), steps.at(2));
    QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_qs, u"b.bin"_qs, u"a.txt"_qs}));
}

bool TestKeyboard::openNames() {
    CraftedContainer crafted;
    crafted.addFolder(u"Beta"_qs);
    for (const QString& name : {u"alfa.txt"_qs, u"azul.txt"_qs, u"beta dois.txt"_qs, u"beta.txt"_qs,
                                u"maçã.txt"_qs, u"Álbum.jpg"_qs}) {
        crafted.addFile(name, "x");
    }
    const QString path = m_folder->filePath(u"names.tvlt"_qs);
    return crafted.writeTo(path) && m_driver->openVault(path, Password) && m_driver->activate();
}

void TestKeyboard::lettersChooseTheRowThatBeginsWithThem_data() {
    QTest::addColumn<QString>("letters");
    QTest::addColumn<QString>("name");
    const auto row = [](const QString& letters, const QString& name) {
        QTest::newRow(qPrintable(letters)) << letters << name;
    };
    row(u"a"_qs, u"alfa.txt"_qs);
    row(u"az"_qs, u"azul.txt"_qs);
    row(u"AZ"_qs, u"azul.txt"_qs);
    row(u"al"_qs, u"alfa.txt"_qs);
    row(u"alb"_qs, u"Álbum.jpg"_qs);
    row(u"álb"_qs, u"Álbum.jpg"_qs);
    row(u"a\u0301lb"_qs, u"Álbum.jpg"_qs);
    row(u"maca"_qs, u"maçã.txt"_qs);
    row(u"b"_qs, u"Beta"_qs);
    row(u"beta "_qs, u"beta dois.txt"_qs);
    row(u"beta."_qs, u"beta.txt"_qs);
    // The same letter again goes on, and from the end to the top.
    row(u"bb"_qs, u"beta dois.txt"_qs);
    row(u"bbb"_qs, u"beta.txt"_qs);
    row(u"bbbb"_qs, u"Beta"_qs);
    row(u"aáA"_qs, u"Álbum.jpg"_qs);
    // Letters that no name begins with leave the row.
    row(u"azq"_qs, u"azul.txt"_qs);
    row(u"q"_qs, QString());
}

void TestKeyboard::lettersChooseTheRowThatBeginsWithThem() {
    QFETCH(const QString, letters);
    QFETCH(const QString, name);
    QVERIFY(openNames());
    type(letters);
    QCOMPARE(currentName(), name);
    QCOMPARE(m_driver->statusMessage(), u"Procurar: "_qs + letters);
    QCOMPARE(m_driver->action(u"Excluir..."_qs)->isEnabled(), name.contains(u'.'));
}

void TestKeyboard::lettersGoOnFromTheCurrentRow() {
    QVERIFY(openNames());
    QVERIFY(m_driver->selectRow(u"beta dois.txt"_qs));
    type(u"a"_qs);
    QCOMPARE(currentName(), u"Álbum.jpg"_qs);
    press(Qt::Key_Home);
    press(Qt::Key_B, Qt::ShiftModifier);
    QCOMPARE(currentName(), u"beta dois.txt"_qs);
}

void TestKeyboard::pauseEndsWhatWasTyped() {
    QVERIFY(openNames());
    type(u"az"_qs);
    QTRY_COMPARE(m_driver->statusMessage(), QString());
    type(u"m"_qs);
    QCOMPARE(currentName(), u"maçã.txt"_qs);
    QCOMPARE(m_driver->statusMessage(), u"Procurar: m"_qs);
}

void TestKeyboard::escapeForgetsWhatWasTyped() {
    QVERIFY(openNames());
    type(u"az"_qs);
    press(Qt::Key_Escape);
    QCOMPARE(m_driver->statusMessage(), QString());
    QCOMPARE(currentName(), u"azul.txt"_qs);
    type(u"m"_qs);
    QCOMPARE(currentName(), u"maçã.txt"_qs);
}

void TestKeyboard::otherKeysEndWhatWasTyped() {
    QVERIFY(openNames());
    type(u"az"_qs);
    press(Qt::Key_Home);
    QCOMPARE(m_driver->statusMessage(), QString());
    type(u"m"_qs);
    QCOMPARE(currentName(), u"maçã.txt"_qs);
}

void TestKeyboard::spaceIsALetterOnlyWhileTyping() {
    QVERIFY(openNames());
    type(u" "_qs);
    QVERIFY(!m_driver->statusMessage().startsWith(u"Procurar"));
    QCOMPARE(m_driver->table()->currentRow(), -1);
    type(u"beta d"_qs);
    QCOMPARE(currentName(), u"beta dois.txt"_qs);
}

void TestKeyboard::resultIsNotTakenForLetters() {
    QVERIFY(openNames());
    type(u"a"_qs);
    m_driver->window.setStatusMessage(u"outra"_qs, 0);
    press(Qt::Key_Escape);
    QCOMPARE(m_driver->statusMessage(), u"outra"_qs);
}

void TestKeyboard::deletionKeepsThePlaceForTheKeys_data() {
    QTest::addColumn<QString>("deleted");
    QTest::addColumn<int>("key");
    QTest::addColumn<QString>("name");
    const int down = Qt::Key_Down;
    const int up = Qt::Key_Up;
    QTest::newRow("down") << u"azul.txt"_qs << down << u"beta dois.txt"_qs;
    QTest::newRow("up") << u"azul.txt"_qs << up << u"alfa.txt"_qs;
    QTest::newRow("down from the last row") << u"Álbum.jpg"_qs << down << u"maçã.txt"_qs;
    QTest::newRow("up from the last row") << u"Álbum.jpg"_qs << up << u"maçã.txt"_qs;
    QTest::newRow("down from a folder") << u"Beta"_qs << down << u"alfa.txt"_qs;
    QTest::newRow("up from a folder") << u"Beta"_qs << up << u"alfa.txt"_qs;
}

void TestKeyboard::deletionKeepsThePlaceForTheKeys() {
    QFETCH(const QString, deleted);
    QFETCH(const int, key);
    QFETCH(const QString, name);
    QVERIFY(openNames() && m_driver->selectRow(deleted));
    const bool isFolder = deleted == u"Beta";
    m_driver->dialogs.press(isFolder ? u"Excluir pasta"_qs : u"Excluir arquivo"_qs, u"Sim"_qs);
    m_driver->action(isFolder ? u"Excluir pasta vazia"_qs : u"Excluir..."_qs)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->table()->currentRow(), -1);
    press(static_cast<Qt::Key>(key));
    QCOMPARE(currentName(), name);
}

void TestKeyboard::f2RenamesWhatIsSelected_data() {
    QTest::addColumn<QString>("row");
    QTest::addColumn<QString>("title");
    QTest::newRow("file") << u"alfa.txt"_s << u"Renomear arquivo"_s;
    QTest::newRow("folder") << u"Beta"_s << u"Renomear pasta"_s;
    QTest::newRow("nothing") << QString() << QString();
}

void TestKeyboard::f2RenamesWhatIsSelected() {
    QFETCH(const QString, row);
    QFETCH(const QString, title);
    QVERIFY(openNames() && (row.isEmpty() || m_driver->selectRow(row)));
    if (!title.isEmpty()) {
        m_driver->dialogs.answerText(title, u"novo"_s);
    }
    press(Qt::Key_F2);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->rowNamed(u"novo"_s) >= 0, !row.isEmpty());
    QCOMPARE(m_driver->rowNamed(row), -1);
}

void TestKeyboard::deleteOnAFolderAsksAsItsCommandDoes() {
    QVERIFY(openNames() && m_driver->selectRow(u"Beta"_s));
    m_driver->dialogs.press(u"Excluir pasta"_s, u"Sim"_s);
    press(Qt::Key_Delete);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Excluir a pasta vazia Beta?"_s);
    QCOMPARE(m_driver->rowNamed(u"Beta"_s), -1);
    QCOMPARE(m_driver->statusMessage(), u"Pasta excluída."_s);
}

void TestKeyboard::menuKeyShowsTheRowsMenu_data() {
    QTest::addColumn<bool>("shiftF10");
    QTest::newRow("menu key") << false;
    QTest::newRow("shift and F10") << true;
}

void TestKeyboard::menuKeyShowsTheRowsMenu() {
    QFETCH(const bool, shiftF10);
    QVERIFY(openSample());
    press(Qt::Key_End);
    const QStringList entries = entriesOfMenuShownBy([&] {
        if (shiftF10) {
            press(Qt::Key_F10, Qt::ShiftModifier);
            return;
        }
        // What the window system makes of the menu key.
        QContextMenuEvent event(QContextMenuEvent::Keyboard, QPoint(), QPoint());
        QApplication::sendEvent(m_driver->deviceList(), &event);
    });
    QCOMPARE(entries,
             QStringList({u"Nova pasta..."_qs, u"Importar..."_qs, u"Exportar..."_qs, u"Abrir"_qs,
                          u"Mover para pasta..."_qs, u"Renomear arquivo..."_qs, u"Excluir..."_qs}));
    QCOMPARE(currentName(), u"b.bin"_qs);
}

void TestKeyboard::menuKeyWithoutARowChoosesNone() {
    QVERIFY(openSample());
    const QStringList entries =
        entriesOfMenuShownBy([&] { press(Qt::Key_F10, Qt::ShiftModifier); });
    QCOMPARE(entries, QStringList({u"Nova pasta..."_qs, u"Importar..."_qs}));
    QCOMPARE(m_driver->table()->currentRow(), -1);
}

void TestKeyboard::f10OpensTheFirstMenu() {
    QVERIFY(m_driver->activate());
    for (const bool unlocked : {false, true}) {
        if (unlocked) {
            QVERIFY(openSample());
        }
        const QStringList entries = entriesOfMenuShownBy([&] { press(Qt::Key_F10); });
        QCOMPARE(entries, QStringList(u"Sair"_qs));
    }
}

void TestKeyboard::shortcutsStayWhatTheyAre() {
    QVERIFY(openSample());
    press(Qt::Key_End);
    m_driver->dialogs.press(u"Excluir arquivo"_qs, u"Não"_qs);
    press(Qt::Key_Delete);
    m_driver->dialogs.reject(u"Nova pasta"_qs);
    press(Qt::Key_N, Qt::ControlModifier | Qt::ShiftModifier);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    press(Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
    QVERIFY(!m_driver->vaultIsOpen());
}

void TestKeyboard::keysWithModifiersAreLeftAlone() {
    QVERIFY(openSample());
    for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Home, Qt::Key_Right, Qt::Key_Backspace}) {
        for (const Qt::KeyboardModifier modifier : {Qt::AltModifier, Qt::ControlModifier}) {
            press(key, modifier);
            QCOMPARE(m_driver->table()->currentRow(), -1);
            QCOMPARE(m_driver->table()->horizontalHeader()->sortIndicatorOrder(),
                     Qt::AscendingOrder);
        }
    }
}

void TestKeyboard::lockedVaultLeavesTheKeysToTheDeviceList() {
    QVERIFY(m_driver->activate());
    QListWidget* devices = m_driver->deviceList();
    devices->clear();
    devices->addItems({u"um"_qs, u"dois"_qs});
    devices->setFocus();
    press(Qt::Key_Down);
    press(Qt::Key_Down);
    QCOMPARE(devices->currentRow(), 1);
    press(Qt::Key_Home);
    QCOMPARE(devices->currentRow(), 0);

    // Enter does what a double click on the drive does.
    devices->item(0)->setData(Qt::UserRole, m_folder->path());
    m_driver->dialogs.press(u"Tessel"_qs, u"OK"_qs);
    press(Qt::Key_Return);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(m_driver->dialogs.lastText().startsWith(u"Nenhum tessel.tvlt foi encontrado em"));
    QVERIFY(CraftedContainer().writeTo(m_folder->filePath(u"tessel.tvlt"_qs)));
    press(Qt::Key_Return);
    QCOMPARE(m_driver->label(u"containerLabel"_qs)->text(), u"Container: Tessel"_qs);
}

void TestKeyboard::focusNeverLeavesTheDeviceList() {
    QVERIFY(openSample());
    for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Return, Qt::Key_Backspace, Qt::Key_Right}) {
        press(key);
        QVERIFY(!m_driver->table()->hasFocus());
        QVERIFY(!m_driver->padlock()->hasFocus());
    }
}

TESSEL_TEST_MAIN(runTest<QApplication, TestKeyboard>);

#include "test_keyboard.moc"
