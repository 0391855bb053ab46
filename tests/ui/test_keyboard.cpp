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

const QString Password = u"senha de teste"_s;

} // namespace

/// The window without a mouse. Keys go to the widget that has the focus, as they do on a desktop.
class TestKeyboard : public WindowTest {
    Q_OBJECT

private:
    /// Types at once, with no pause between the letters.
    void type(const QString& letters) { typeText(m_driver->deviceList(), letters); }

    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFolder(u"docs/sub"_s);
        crafted.addFile(u"a.txt"_s, "aaaa").addFile(u"b.bin"_s, "b").addFile(u"docs/c.txt"_s, "c");
        const QString path = m_folder->filePath(u"t.tvlt"_s);
        return crafted.writeTo(path) && m_driver->openVault(path, Password) && m_driver->activate();
    }

    void press(Qt::Key key, Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
        // A dialog that was answered leaves no window active on this platform.
        static_cast<void>(m_driver->activate());
        QWidget* receiver = QApplication::focusWidget();
        QTest::keyClick(receiver == nullptr ? &m_driver->window : receiver, key, modifiers);
    }

    [[nodiscard]] QString currentName() const {
        const QTableWidget* table = m_driver->table();
        const QList<QTableWidgetItem*> selected = table->selectedItems();
        // The row that is current is the one that is highlighted.
        if (selected.isEmpty() || selected.first()->row() != table->currentRow()) {
            return {};
        }
        return table->item(table->currentRow(), 1)->text();
    }

    /// Runs @p open, which shows a menu, and gives back the texts of the menu's enabled entries.
    [[nodiscard]] QStringList entriesOfMenuShownBy(const std::function<void()>& open) {
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

    [[nodiscard]] bool openNames() {
        CraftedContainer crafted;
        crafted.addFolder(u"Beta"_s);
        for (const QString& name : {u"alfa.txt"_s, u"azul.txt"_s, u"beta dois.txt"_s, u"beta.txt"_s,
                                    u"maçã.txt"_s, u"Álbum.jpg"_s}) {
            crafted.addFile(name, "x");
        }
        const QString path = m_folder->filePath(u"names.tvlt"_s);
        return crafted.writeTo(path) && m_driver->openVault(path, Password) && m_driver->activate();
    }

private Q_SLOTS:
    void arrowsChooseARow() {
        QVERIFY(openSample());
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"a.txt"_s, u"b.bin"_s}));
        for (const QString& name : {u"docs"_s, u"a.txt"_s, u"b.bin"_s, u"b.bin"_s}) {
            press(Qt::Key_Down);
            QCOMPARE(currentName(), name);
        }
        for (const QString& name : {u"a.txt"_s, u"docs"_s, u"docs"_s}) {
            press(Qt::Key_Up);
            QCOMPARE(currentName(), name);
        }
        QVERIFY(m_driver->action(u"Renomear pasta..."_s)->isEnabled());
        QVERIFY(!m_driver->action(u"Abrir"_s)->isEnabled());
    }

    void firstArrowBeginsAtAnEnd_data() {
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("name");
        QTest::newRow("down") << int{Qt::Key_Down} << u"docs"_s;
        QTest::newRow("up") << int{Qt::Key_Up} << u"b.bin"_s;
        QTest::newRow("home") << int{Qt::Key_Home} << u"docs"_s;
        QTest::newRow("end") << int{Qt::Key_End} << u"b.bin"_s;
    }
    void firstArrowBeginsAtAnEnd() {
        QFETCH(const int, key);
        QFETCH(const QString, name);
        QVERIFY(openSample());
        QCOMPARE(currentName(), QString());
        press(static_cast<Qt::Key>(key));
        QCOMPARE(currentName(), name);
    }

    void longListMovesByPagesAndEnds() {
        CraftedContainer crafted;
        for (int i = 100; i < 300; ++i) {
            crafted.addFile(u"%1.txt"_s.arg(i), "x");
        }
        const QString path = m_folder->filePath(u"long.tvlt"_s);
        QVERIFY(crafted.writeTo(path) && m_driver->openVault(path, Password) &&
                m_driver->activate());
        const QTableWidget* table = m_driver->table();
        const auto currentIsVisible = [table] {
            const QRect row = table->visualItemRect(table->currentItem());
            return table->viewport()->rect().contains(QRect(0, row.y(), 1, row.height()));
        };

        press(Qt::Key_End);
        QCOMPARE(currentName(), u"299.txt"_s);
        QTRY_VERIFY(currentIsVisible());
        press(Qt::Key_PageUp);
        const int pageUp = 199 - table->currentRow();
        QVERIFY(pageUp > 1 && pageUp < 199);
        QTRY_VERIFY(currentIsVisible());
        press(Qt::Key_Home);
        QCOMPARE(currentName(), u"100.txt"_s);
        press(Qt::Key_PageDown);
        QCOMPARE(table->currentRow(), pageUp);
        QTRY_VERIFY(currentIsVisible());
    }

    void enterOpensFoldersAndFiles_data() {
        QTest::addColumn<int>("key");
        QTest::newRow("return") << int{Qt::Key_Return};
        QTest::newRow("number pad") << int{Qt::Key_Enter};
    }
    void enterOpensFoldersAndFiles() {
        QFETCH(const int, key);
        const auto enter = [this, key] {
            press(static_cast<Qt::Key>(key),
                  key == Qt::Key_Enter ? Qt::KeypadModifier : Qt::NoModifier);
        };
        FakeDesktop desktop(u"file"_s);
        QVERIFY(openSample());
        enter(); // no row: nothing
        QCOMPARE(m_driver->rowNames().size(), 3);
        press(Qt::Key_Down);
        enter();
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"sub"_s, u"c.txt"_s}));
        press(Qt::Key_End);
        enter();
        QCOMPARE(desktop.opened.size(), 1);
        QVERIFY(desktop.opened.first().path().endsWith(u"/docs/c.txt"));
        press(Qt::Key_Home);
        enter();
        QCOMPARE(m_driver->rowNames().first(), u"docs"_s);
    }

    void backspaceLeavesAFolder() {
        QVERIFY(openSample());
        QVERIFY(m_driver->activateRow(u"docs"_s));
        QVERIFY(m_driver->activateRow(u"sub"_s));
        QCOMPARE(m_driver->rowNames(), QStringList(u".."_s));
        press(Qt::Key_Backspace);
        QCOMPARE(m_driver->rowNames(), QStringList({u".."_s, u"sub"_s, u"c.txt"_s}));
        press(Qt::Key_Backspace);
        QCOMPARE(m_driver->rowNames().first(), u"docs"_s);
        press(Qt::Key_Down);
        press(Qt::Key_Backspace); // the root has no parent, and the row stays chosen
        QCOMPARE(currentName(), u"docs"_s);
    }

    void leftAndRightStepThroughSorting() {
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
        QCOMPARE(m_driver->rowNames(), QStringList({u"docs"_s, u"b.bin"_s, u"a.txt"_s}));
    }

    void lettersChooseTheRowThatBeginsWithThem_data() {
        QTest::addColumn<QString>("letters");
        QTest::addColumn<QString>("name");
        const auto row = [](const QString& letters, const QString& name) {
            QTest::newRow(qPrintable(letters)) << letters << name;
        };
        row(u"a"_s, u"alfa.txt"_s);
        row(u"az"_s, u"azul.txt"_s);
        row(u"AZ"_s, u"azul.txt"_s);
        row(u"al"_s, u"alfa.txt"_s);
        row(u"alb"_s, u"Álbum.jpg"_s);
        row(u"álb"_s, u"Álbum.jpg"_s);
        row(u"a\u0301lb"_s, u"Álbum.jpg"_s);
        row(u"maca"_s, u"maçã.txt"_s);
        row(u"b"_s, u"Beta"_s);
        row(u"beta "_s, u"beta dois.txt"_s);
        row(u"beta."_s, u"beta.txt"_s);
        // The same letter again goes on, and from the end to the top.
        row(u"bb"_s, u"beta dois.txt"_s);
        row(u"bbb"_s, u"beta.txt"_s);
        row(u"bbbb"_s, u"Beta"_s);
        row(u"aáA"_s, u"Álbum.jpg"_s);
        // Letters that no name begins with leave the row.
        row(u"azq"_s, u"azul.txt"_s);
        row(u"q"_s, QString());
    }
    void lettersChooseTheRowThatBeginsWithThem() {
        QFETCH(const QString, letters);
        QFETCH(const QString, name);
        QVERIFY(openNames());
        type(letters);
        QCOMPARE(currentName(), name);
        QCOMPARE(m_driver->statusMessage(), u"Procurar: "_s + letters);
        QCOMPARE(m_driver->action(u"Excluir..."_s)->isEnabled(), name.contains(u'.'));
    }

    void lettersGoOnFromTheCurrentRow() {
        QVERIFY(openNames());
        QVERIFY(m_driver->selectRow(u"beta dois.txt"_s));
        type(u"a"_s);
        QCOMPARE(currentName(), u"Álbum.jpg"_s);
        press(Qt::Key_Home);
        press(Qt::Key_B, Qt::ShiftModifier);
        QCOMPARE(currentName(), u"beta dois.txt"_s);
    }

    void pauseEndsWhatWasTyped() {
        QVERIFY(openNames());
        type(u"az"_s);
        QTRY_COMPARE(m_driver->statusMessage(), QString());
        type(u"m"_s);
        QCOMPARE(currentName(), u"maçã.txt"_s);
        QCOMPARE(m_driver->statusMessage(), u"Procurar: m"_s);
    }

    void escapeForgetsWhatWasTyped() {
        QVERIFY(openNames());
        type(u"az"_s);
        press(Qt::Key_Escape);
        QCOMPARE(m_driver->statusMessage(), QString());
        QCOMPARE(currentName(), u"azul.txt"_s);
        type(u"m"_s);
        QCOMPARE(currentName(), u"maçã.txt"_s);
    }

    void otherKeysEndWhatWasTyped() {
        QVERIFY(openNames());
        type(u"az"_s);
        press(Qt::Key_Home);
        QCOMPARE(m_driver->statusMessage(), QString());
        type(u"m"_s);
        QCOMPARE(currentName(), u"maçã.txt"_s);
    }

    void spaceIsALetterOnlyWhileTyping() {
        QVERIFY(openNames());
        type(u" "_s);
        QVERIFY(!m_driver->statusMessage().startsWith(u"Procurar"));
        QCOMPARE(m_driver->table()->currentRow(), -1);
        type(u"beta d"_s);
        QCOMPARE(currentName(), u"beta dois.txt"_s);
    }

    void resultIsNotTakenForLetters() {
        QVERIFY(openNames());
        type(u"a"_s);
        m_driver->window.setStatusMessage(u"outra"_s, 0);
        press(Qt::Key_Escape);
        QCOMPARE(m_driver->statusMessage(), u"outra"_s);
    }

    void deletionKeepsThePlaceForTheKeys_data() {
        QTest::addColumn<QString>("deleted");
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("name");
        const int down = Qt::Key_Down;
        const int up = Qt::Key_Up;
        QTest::newRow("down") << u"azul.txt"_s << down << u"beta dois.txt"_s;
        QTest::newRow("up") << u"azul.txt"_s << up << u"alfa.txt"_s;
        QTest::newRow("down from the last row") << u"Álbum.jpg"_s << down << u"maçã.txt"_s;
        QTest::newRow("up from the last row") << u"Álbum.jpg"_s << up << u"maçã.txt"_s;
        QTest::newRow("down from a folder") << u"Beta"_s << down << u"alfa.txt"_s;
        QTest::newRow("up from a folder") << u"Beta"_s << up << u"alfa.txt"_s;
    }
    void deletionKeepsThePlaceForTheKeys() {
        QFETCH(const QString, deleted);
        QFETCH(const int, key);
        QFETCH(const QString, name);
        QVERIFY(openNames() && m_driver->selectRow(deleted));
        const bool isFolder = deleted == u"Beta";
        dialogs().press(isFolder ? u"Excluir pasta"_s : u"Excluir arquivo"_s, u"Sim"_s);
        VERIFY_RUN(isFolder ? u"Excluir pasta vazia"_s : u"Excluir..."_s);
        QCOMPARE(m_driver->table()->currentRow(), -1);
        press(static_cast<Qt::Key>(key));
        QCOMPARE(currentName(), name);
    }

    void changesKeepThePlaceForTheKeys_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("command");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("name");
        const int down = Qt::Key_Down;
        const int up = Qt::Key_Up;
        const QString file = u"Renomear arquivo"_s;
        const QString folder = u"Renomear pasta"_s;
        QTest::newRow("renamed file, down")
            << u"azul.txt"_s << file << u"cedro.txt"_s << down << u"cedro.txt"_s;
        QTest::newRow("renamed file, up")
            << u"azul.txt"_s << file << u"cedro.txt"_s << up << u"beta.txt"_s;
        QTest::newRow("renamed folder") << u"Beta"_s << folder << u"Gama"_s << down << u"Gama"_s;
        QTest::newRow("new folder, down")
            << u"azul.txt"_s << u"Nova pasta"_s << u"Gama"_s << down << u"azul.txt"_s;
        QTest::newRow("new folder, up")
            << u"azul.txt"_s << u"Nova pasta"_s << u"Gama"_s << up << u"alfa.txt"_s;
        QTest::newRow("new folder, nothing chosen")
            << QString() << u"Nova pasta"_s << u"Gama"_s << down << u"Beta"_s;
    }
    void changesKeepThePlaceForTheKeys() {
        QFETCH(const QString, row);
        QFETCH(const QString, command);
        QFETCH(const QString, answer);
        QFETCH(const int, key);
        QFETCH(const QString, name);
        QVERIFY(openNames());
        dialogs().answerText(command, answer);
        VERIFY_RUN(command + u"..."_s, row);
        QCOMPARE(m_driver->table()->currentRow(), -1);
        press(static_cast<Qt::Key>(key));
        QCOMPARE(currentName(), name);
    }

    void newOrderKeepsThePlaceForTheKeys() {
        QVERIFY(openNames() && m_driver->selectRow(u"azul.txt"_s));
        press(Qt::Key_Right);
        QCOMPARE(m_driver->rowNames().last(), u"alfa.txt"_s);
        press(Qt::Key_Down);
        QCOMPARE(currentName(), u"azul.txt"_s);
    }

    void f2RenamesWhatIsSelected_data() {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("title");
        QTest::newRow("file") << u"alfa.txt"_s << u"Renomear arquivo"_s;
        QTest::newRow("folder") << u"Beta"_s << u"Renomear pasta"_s;
        QTest::newRow("nothing") << QString() << QString();
    }
    void f2RenamesWhatIsSelected() {
        QFETCH(const QString, row);
        QFETCH(const QString, title);
        QVERIFY(openNames() && (row.isEmpty() || m_driver->selectRow(row)));
        if (!title.isEmpty()) {
            dialogs().answerText(title, u"novo"_s);
        }
        press(Qt::Key_F2);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(m_driver->rowNamed(u"novo"_s) >= 0, !row.isEmpty());
        QCOMPARE(m_driver->rowNamed(row), -1);
    }

    void deleteOnAFolderAsksAsItsCommandDoes() {
        QVERIFY(openNames() && m_driver->selectRow(u"Beta"_s));
        dialogs().press(u"Excluir pasta"_s, u"Sim"_s);
        press(Qt::Key_Delete);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(), u"Excluir a pasta vazia Beta?"_s);
        QCOMPARE(m_driver->rowNamed(u"Beta"_s), -1);
        QCOMPARE(m_driver->statusMessage(), u"Pasta excluída."_s);
    }

    void menuKeyShowsTheRowsMenu_data() {
        QTest::addColumn<bool>("shiftF10");
        QTest::newRow("menu key") << false;
        QTest::newRow("shift and F10") << true;
    }
    void menuKeyShowsTheRowsMenu() {
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
        QCOMPARE(entries, QStringList({u"Nova pasta..."_s, u"Importar..."_s, u"Exportar..."_s,
                                       u"Abrir"_s, u"Mover para pasta..."_s,
                                       u"Renomear arquivo..."_s, u"Excluir..."_s}));
        QCOMPARE(currentName(), u"b.bin"_s);
    }

    void menuKeyWithoutARowChoosesNone() {
        QVERIFY(openSample());
        const QStringList entries =
            entriesOfMenuShownBy([&] { press(Qt::Key_F10, Qt::ShiftModifier); });
        QCOMPARE(entries, QStringList({u"Nova pasta..."_s, u"Importar..."_s}));
        QCOMPARE(m_driver->table()->currentRow(), -1);
    }

    void f10OpensTheFirstMenu() {
        QVERIFY(m_driver->activate());
        for (const bool unlocked : {false, true}) {
            if (unlocked) {
                QVERIFY(openSample());
            }
            const QStringList entries = entriesOfMenuShownBy([&] { press(Qt::Key_F10); });
            QCOMPARE(entries, QStringList(u"Sair"_s));
        }
    }

    void shortcutsStayWhatTheyAre() {
        QVERIFY(openSample());
        press(Qt::Key_End);
        dialogs().press(u"Excluir arquivo"_s, u"Não"_s);
        press(Qt::Key_Delete);
        dialogs().reject(u"Nova pasta"_s);
        press(Qt::Key_N, Qt::ControlModifier | Qt::ShiftModifier);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        press(Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void keysWithModifiersAreLeftAlone() {
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

    void lockedVaultLeavesTheKeysToTheDeviceList() {
        QVERIFY(m_driver->activate());
        QListWidget* devices = m_driver->deviceList();
        devices->clear();
        devices->addItems({u"um"_s, u"dois"_s});
        devices->setFocus();
        press(Qt::Key_Down);
        press(Qt::Key_Down);
        QCOMPARE(devices->currentRow(), 1);
        press(Qt::Key_Home);
        QCOMPARE(devices->currentRow(), 0);

        // Enter does what a double click on the drive does.
        devices->item(0)->setData(Qt::UserRole, m_folder->path());
        dialogs().press(u"Tessel"_s, u"OK"_s);
        press(Qt::Key_Return);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(lastText().startsWith(u"Nenhum tessel.tvlt foi encontrado em"));
        QVERIFY(CraftedContainer().writeTo(m_folder->filePath(u"tessel.tvlt"_s)));
        press(Qt::Key_Return);
        QCOMPARE(m_driver->label(u"containerLabel"_s)->text(), u"Container: Tessel"_s);
    }

    void focusNeverLeavesTheDeviceList() {
        QVERIFY(openSample());
        for (const Qt::Key key : {Qt::Key_Down, Qt::Key_Return, Qt::Key_Backspace, Qt::Key_Right}) {
            press(key);
            QVERIFY(!m_driver->table()->hasFocus());
            QVERIFY(!m_driver->padlock()->hasFocus());
        }
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestKeyboard>);

#include "test_keyboard.moc"
