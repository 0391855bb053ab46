// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"
#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/ProgressProbe.h"
#include "support/TestProgram.h"
#include "support/WindowTest.h"
#include "ui/ModalProgress.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QApplication>
#include <QDate>
#include <QDir>
#include <QFileInfo>
#include <QFrame>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QProgressDialog>
#include <QScreen>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <sys/stat.h>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

const QString Password = u"senha de teste"_s;
const QString Title = u"Tessel"_s;
const QString PasswordTitle = u"Senha do cofre"_s;
const QString UnlockFailure =
    QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi "
                   "alterado.");

/// "text [shortcut]" of each action, "text >" of each submenu followed by its own lines, "--" of
/// each separator.
QStringList menuLines(const QMenu* menu, const QString& indent) {
    QStringList lines;
    const QList<QAction*> actions = menu->actions();
    for (const QAction* action : actions) {
        if (action->isSeparator()) {
            lines.append(indent + u"--"_s);
        } else if (action->menu() != nullptr) {
            lines.append(indent + action->text() + u" >"_s);
            lines.append(menuLines(action->menu(), indent + u"  "_s));
        } else {
            lines.append(indent + action->text() + u" [%1]"_s.arg(action->shortcut().toString()));
        }
    }
    return lines;
}

/// What is drawn of a picture.
QRect drawnPart(const QImage& image) {
    QRegion drawn;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            drawn += image.pixelColor(x, y).alpha() > 0 ? QRect(x, y, 1, 1) : QRect();
        }
    }
    return drawn.boundingRect();
}

QImage shownPadlock(const QToolButton* button) {
    const QIcon::Mode mode = button->isEnabled() ? QIcon::Normal : QIcon::Disabled;
    const QIcon::State state = button->isChecked() ? QIcon::On : QIcon::Off;
    return button->icon().pixmap(QSize(48, 48), 1.0, mode, state).toImage();
}

} // namespace

class TestMainWindowFrame : public WindowTest {
    Q_OBJECT

private:
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"tessel.tvlt"_s); }

    /// Writes a container with a folder and two files, and opens it.
    /// Whether unlocking is refused with a warning.
    [[nodiscard]] bool unlockFails(const QString& password) {
        dialogs().answerText(PasswordTitle, password);
        dialogs().acceptWarning(Title);
        return run(u"Desbloquear"_s) && lastText() == UnlockFailure;
    }
    [[nodiscard]] bool chooseEmpty() {
        return CraftedContainer().writeTo(containerPath()) &&
               m_driver->chooseContainer(containerPath());
    }
    [[nodiscard]] bool openSample() {
        CraftedContainer crafted;
        crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "abc").addFile(u"docs/b.txt"_s, "bcd");
        return crafted.writeTo(containerPath()) && m_driver->openVault(containerPath(), Password);
    }

    [[nodiscard]] QStringList enabledActions() const {
        QStringList texts;
        const QList<QAction*> actions =
            m_driver->window.findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly);
        for (const QAction* action : actions) {
            if (action->isEnabled() && !action->text().isEmpty()) {
                texts.append(action->text());
            }
        }
        texts.sort();
        return texts;
    }

    /// Adds a row as the program adds one for each volume.
    void addDevice(const QString& name, const QString& rootPath) {
        auto* item = new QListWidgetItem(name, m_driver->deviceList());
        item->setData(Qt::UserRole, rootPath);
        item->setData(Qt::UserRole + 1, name);
    }

private Q_SLOTS:
    // --- Frame -----------------------------------------------------------------------------------

    void startsReady() {
        QCOMPARE(m_driver->window.windowTitle(), Title);
        QCOMPARE(status(), u"Pronto (0 ms)"_s);
        QCOMPARE(m_driver->label(u"protectedFilesLabel"_s)->text(),
                 u"Nenhum cofre em uso (aberto)"_s);
        QCOMPARE(m_driver->table()->rowCount(), 0);
    }

    void centralSizeFollowsTheScreen_data() {
        QTest::addColumn<QSize>("available");
        QTest::addColumn<QSize>("central");
        QTest::newRow("full HD") << QSize(1920, 1040) << QSize(1152, 648);
        QTest::newRow("four times that") << QSize(3840, 2080) << QSize(1152, 648);
        QTest::newRow("first beyond the largest") << QSize(1922, 1040) << QSize(1152, 648);
        QTest::newRow("last below the largest") << QSize(1919, 1040) << QSize(1151, 647);
        QTest::newRow("small") << QSize(1280, 720) << QSize(900, 506);
        QTest::newRow("last at the smallest") << QSize(1501, 800) << QSize(900, 506);
        QTest::newRow("first above the smallest") << QSize(1502, 800) << QSize(901, 506);
        QTest::newRow("as low as its height") << QSize(1366, 506) << QSize(900, 506);
        QTest::newRow("one lower") << QSize(1366, 505) << QSize(897, 505);
        QTest::newRow("low") << QSize(1366, 400) << QSize(711, 400);
    }
    void centralSizeFollowsTheScreen() {
        QFETCH(QSize, available);
        QTEST(Tessel::UI::centralSizeFor(available), "central");
    }

    void windowCannotBeResized() {
        const QMainWindow& window = m_driver->window;
        const QSize central =
            Tessel::UI::centralSizeFor(QApplication::primaryScreen()->availableSize());
        QCOMPARE(window.centralWidget()->size(), central);
        QCOMPARE(window.centralWidget()->minimumSize(), central);
        QCOMPARE(window.centralWidget()->maximumSize(), central);
        QCOMPARE(window.size(), window.sizeHint());
        QCOMPARE(window.minimumSize(), window.sizeHint());
        QCOMPARE(window.maximumSize(), window.sizeHint());
        QCOMPARE(Tessel::UI::DefaultCentralSize, QSize(960, 540));
    }

    void widgetsAreInOrder() {
        const auto* layout = qobject_cast<QVBoxLayout*>(m_driver->window.centralWidget()->layout());
        QVERIFY(layout);
        QCOMPARE(layout->count(), 4);
        const auto* heading = qobject_cast<QLabel*>(layout->itemAt(0)->widget());
        QVERIFY(heading);
        QCOMPARE(heading->text(), u"Dispositivos USB"_s);
        const auto* row = qobject_cast<QHBoxLayout*>(layout->itemAt(1)->layout());
        QVERIFY(row);
        QCOMPARE(layout->itemAt(2)->widget(), m_driver->label(u"protectedFilesLabel"_s));
        QCOMPARE(layout->itemAt(3)->widget(), m_driver->table());

        QCOMPARE(row->contentsMargins(), QMargins(0, 0, 0, 0));
        QCOMPARE(row->spacing(), 10);
        QCOMPARE(row->count(), 3);
        QVERIFY(qobject_cast<QLabel*>(row->itemAt(0)->widget()));
        QCOMPARE(row->itemAt(1)->widget(), m_driver->deviceList());
        QCOMPARE(row->stretch(1), 1);
        QCOMPARE(row->itemAt(2)->widget(), m_driver->padlock());
    }

    void deviceRowIsAsHighAsThreeLines() {
        const QListWidget* devices = m_driver->deviceList();
        const int side = 3 * devices->fontMetrics().lineSpacing() + 24 + 2 * devices->frameWidth();
        QCOMPARE(devices->height(), side);
        QCOMPARE(devices->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
        QCOMPARE(devices->horizontalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
        QCOMPARE(m_driver->padlock()->size(), QSize(side, side));

        const QLayout* row = m_driver->window.centralWidget()->layout()->itemAt(1)->layout();
        const auto* icon = qobject_cast<QLabel*>(row->itemAt(0)->widget());
        QCOMPARE(icon->size(), QSize(side, side));
        const QImage picture = QIcon(u":/icons/Tessel.ico"_s).pixmap(side, side).toImage();
        QVERIFY(!picture.isNull());
        QCOMPARE(icon->pixmap().toImage(),
                 picture.scaled(side, side, Qt::KeepAspectRatio, Qt::SmoothTransformation));
    }

    void padlockButtonIsSetUp() {
        const QToolButton* button = m_driver->padlock();
        QVERIFY(button->isCheckable());
        QVERIFY(!button->autoRaise());
        QCOMPARE(button->focusPolicy(), Qt::NoFocus);
        QCOMPARE(button->iconSize(), QSize(48, 48));
        QCOMPARE(
            button->styleSheet(),
            u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }QToolButton:pressed:enabled { background: #e2e2e2; }QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);
    }

    void tableIsSetUp() {
        const QTableWidget* table = m_driver->table();
        QCOMPARE(table->minimumHeight(), 220);
        QCOMPARE(table->contextMenuPolicy(), Qt::CustomContextMenu);
        QCOMPARE(table->editTriggers(), QAbstractItemView::NoEditTriggers);
        QCOMPARE(table->focusPolicy(), Qt::NoFocus);
        QCOMPARE(table->selectionBehavior(), QAbstractItemView::SelectRows);
        QCOMPARE(table->selectionMode(), QAbstractItemView::SingleSelection);
        QVERIFY(table->alternatingRowColors());
        QVERIFY(!table->showGrid());
        QCOMPARE(table->iconSize(), QSize(18, 18));
        QCOMPARE(table->verticalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
        QCOMPARE(table->horizontalScrollBarPolicy(), Qt::ScrollBarAsNeeded);
        QVERIFY(!table->isSortingEnabled());
        QVERIFY(table->verticalHeader()->isHidden());
        QCOMPARE(
            table->styleSheet(),
            u"QTableWidget::item { border-bottom: 1px solid #d8d8d8; }QTableWidget::item:focus { outline: none; }QTableWidget::item:selected { background-color: palette(highlight); color: palette(highlighted-text); }"_s);
    }

    void tableColumnsAreSetUp() {
        const QTableWidget* table = m_driver->table();
        const QHeaderView* header = table->horizontalHeader();
        QStringList texts;
        QList<QHeaderView::ResizeMode> modes;
        for (int column = 0; column < table->columnCount(); ++column) {
            texts.append(table->horizontalHeaderItem(column)->text());
            modes.append(header->sectionResizeMode(column));
        }
        QCOMPARE(texts, QStringList({QString(), u"Nome do arquivo"_s, u"Tamanho"_s, u"Tipo"_s,
                                     u"Modificado em"_s}));
        QCOMPARE(modes, QList<QHeaderView::ResizeMode>({QHeaderView::Fixed, QHeaderView::Stretch,
                                                        QHeaderView::Fixed, QHeaderView::Fixed,
                                                        QHeaderView::Fixed}));
        QCOMPARE(table->columnWidth(0), 28);
        QCOMPARE(table->columnWidth(2), 110);
        QCOMPARE(table->columnWidth(3), 70);
        QCOMPARE(table->columnWidth(4), 140);
        QCOMPARE(table->columnWidth(1), table->viewport()->width() - 28 - 110 - 70 - 140);
        QVERIFY(!header->stretchLastSection());
        QVERIFY(header->sectionsClickable());
        QVERIFY(header->isSortIndicatorShown());
        QCOMPARE(header->sortIndicatorSection(), 1);
        QCOMPARE(header->sortIndicatorOrder(), Qt::AscendingOrder);
    }

    void statusBarHoldsFourWidgets() {
        const QString padded =
            u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;
        const QLabel* container = m_driver->label(u"containerLabel"_s);
        QCOMPARE(container->text(), u"Container: nenhum"_s);
        QCOMPARE(container->alignment(), Qt::AlignCenter);
        QCOMPARE(container->styleSheet(), padded);
        const QWidget* box = container->parentWidget();
        QCOMPARE(box->width(), 140);
        const auto frames = box->findChildren<QFrame*>(QString(), Qt::FindDirectChildrenOnly);
        QCOMPARE(frames.size(), 2);
        QCOMPARE(frames.first()->width(), 1);
        QCOMPARE(frames.first()->styleSheet(), u"QFrame { background-color: #c8c8c8; }"_s);
        QVERIFY(frames.first()->x() < container->x());

        const QLabel* version = m_driver->label(u"versionLabel"_s);
        QCOMPARE(version->text(), u"Versão 1.0.0"_s);
        QCOMPARE(version->width(), 180);
        QCOMPARE(version->alignment(), Qt::AlignCenter);
        QCOMPARE(version->styleSheet(), padded);

        const QLabel* date = m_driver->label(u"dateLabel"_s);
        QCOMPARE(date->text(), QDate::currentDate().toString(u"dd/MM/yyyy"));
        QCOMPARE(date->width(), 78);
        QCOMPARE(date->alignment(), Qt::AlignCenter);
        QCOMPARE(date->styleSheet(), u"QLabel { font-size: 11px; }"_s);

        const QLabel* state = m_driver->label(u"vaultStateLabel"_s);
        QCOMPARE(state->width(), 50);
        QCOMPARE(state->alignment(), Qt::AlignCenter);

        QVERIFY(box->x() < version->x());
        QVERIFY(version->x() < date->x());
        QVERIFY(date->x() < state->x());
        QCOMPARE(state->parentWidget(), m_driver->window.statusBar());
    }

    void menusLeaveTheMessage_data() {
        QTest::addColumn<QString>("message");
        QTest::newRow("ready") << u"Pronto"_s;
        QTest::newRow("result") << u"Container selecionado."_s;
    }
    void menusLeaveTheMessage() {
        QFETCH(const QString, message);
        m_driver->window.setStatusMessage(message, 0);
        QMenuBar* bar = m_driver->window.menuBar();
        const QList<QAction*> titles = bar->actions();
        for (QAction* title : titles) {
            QTest::mouseMove(bar, bar->actionGeometry(title).center());
            QTest::mouseClick(bar, Qt::LeftButton, {}, bar->actionGeometry(title).center());
            QVERIFY(title->menu()->isVisible());
            const QPoint entry =
                title->menu()->actionGeometry(title->menu()->actions().first()).center();
            QTest::mouseMove(title->menu(), entry);
            QCOMPARE(m_driver->statusMessage(), message);
            title->menu()->close();
            QCOMPARE(m_driver->statusMessage(), message);
        }
    }

    void messagesLeaveTheStatusBarsWidgetsInSight() {
        QCOMPARE(m_driver->statusMessage(), u"Pronto"_s);
        // The first message came before the window did; one that comes later takes more away.
        for (const QString& message : {u"Pronto"_s, u"Container selecionado."_s}) {
            m_driver->window.setStatusMessage(message, 0);
            for (const QString& name :
                 {u"containerLabel"_s, u"versionLabel"_s, u"dateLabel"_s, u"vaultStateLabel"_s}) {
                const QLabel* label = m_driver->label(name);
                QVERIFY2(label->isVisible(), qPrintable(name));
                QVERIFY2(!label->visibleRegion().isEmpty(), qPrintable(name));
            }
        }
    }

    // --- Menus and enabling ----------------------------------------------------------------------

    void menuBarHoldsTheMenusInOrder() {
        QStringList titles;
        const QList<QAction*> actions = m_driver->window.menuBar()->actions();
        for (const QAction* action : actions) {
            titles.append(action->text());
        }
        QCOMPARE(titles, QStringList({u"Arquivo"_s, u"USB"_s, u"Sobre"_s}));
    }

    void menusHoldActionsInOrder_data() {
        QTest::addColumn<int>("menu");
        QTest::addColumn<QStringList>("lines");
        QTest::newRow("Arquivo") << 0 << QStringList({u"Sair [Ctrl+Q]"_s});
        QTest::newRow("USB") << 1
                             << QStringList({u"Dispositivos >"_s,
                                             u"  Atualizar lista [Ctrl+F5]"_s,
                                             u"Container >"_s,
                                             u"  Escolher container... [Ctrl+O]"_s,
                                             u"  Criar novo cofre... [Ctrl+N]"_s,
                                             u"  --"_s,
                                             u"  Fazer backup... [Ctrl+B]"_s,
                                             u"  --"_s,
                                             u"  Alterar senha... [Ctrl+P]"_s,
                                             u"Acesso ao cofre >"_s,
                                             u"  Desbloquear [Ctrl+L]"_s,
                                             u"  Bloquear [Ctrl+Shift+L]"_s,
                                             u"  Arquivos protegidos >"_s,
                                             u"    Nova pasta... [Ctrl+Shift+N]"_s,
                                             u"    --"_s,
                                             u"    Importar... [Ctrl+I]"_s,
                                             u"    Exportar... [Ctrl+E]"_s,
                                             u"    Abrir [Return]"_s,
                                             u"    --"_s,
                                             u"    Renomear pasta... []"_s,
                                             u"    Excluir pasta vazia []"_s,
                                             u"    --"_s,
                                             u"    Excluir... [Del]"_s,
                                             u"  --"_s,
                                             u"  Compactar cofre... [F6]"_s});
        QTest::newRow("Sobre") << 2
                               << QStringList({u"Ajuda []"_s,
                                               u"Visitar a página oficial do Tessel []"_s, u"--"_s,
                                               u"Sobre o Tessel []"_s});
    }
    void menusHoldActionsInOrder() {
        QFETCH(int, menu);
        QTEST(menuLines(m_driver->window.menuBar()->actions().at(menu)->menu(), QString()),
              "lines");
    }

    void tableActionsAreInNoMenu() {
        for (const QString& text : {u"Mover para pasta..."_s, u"Renomear arquivo..."_s}) {
            const QAction* action = m_driver->action(text);
            QVERIFY(action->shortcut().isEmpty());
            QVERIFY(action->associatedObjects().isEmpty());
        }
    }

    void actionsAreEnabledByTheSituation_data() {
        QTest::addColumn<bool>("container");
        QTest::addColumn<bool>("unlocked");
        QTest::addColumn<QString>("row");
        QTest::addColumn<QStringList>("enabled");

        const QStringList always = {u"Sair"_s, u"Ajuda"_s, u"Visitar a página oficial do Tessel"_s,
                                    u"Sobre o Tessel"_s};
        const QStringList locked =
            always +
            QStringList{u"Atualizar lista"_s, u"Escolher container..."_s, u"Criar novo cofre..."_s};
        const QStringList withContainer =
            locked + QStringList{u"Fazer backup..."_s, u"Alterar senha..."_s, u"Desbloquear"_s};
        const QStringList open = always + QStringList{u"Bloquear"_s, u"Nova pasta..."_s,
                                                      u"Importar..."_s, u"Compactar cofre..."_s};
        const QStringList folder =
            open + QStringList{u"Renomear pasta..."_s, u"Excluir pasta vazia"_s};
        const QStringList file =
            open + QStringList{u"Exportar..."_s, u"Abrir"_s, u"Renomear arquivo..."_s,
                               u"Excluir..."_s, u"Mover para pasta..."_s};

        QTest::newRow("no container") << false << false << QString() << locked;
        QTest::newRow("container chosen") << true << false << QString() << withContainer;
        QTest::newRow("open, nothing selected") << true << true << QString() << open;
        QTest::newRow("open, folder selected") << true << true << u"docs"_s << folder;
        QTest::newRow("open, file selected") << true << true << u"a.txt"_s << file;
        QTest::newRow("open, parent row selected") << true << true << u".."_s << open;
    }
    void actionsAreEnabledByTheSituation() {
        QFETCH(bool, container);
        QFETCH(bool, unlocked);
        QFETCH(QString, row);
        QFETCH(QStringList, enabled);
        if (unlocked) {
            QVERIFY(openSample());
        } else if (container) {
            QVERIFY(CraftedContainer().writeTo(containerPath()));
            QVERIFY(m_driver->chooseContainer(containerPath()));
        }
        if (row == u"..") {
            QVERIFY(m_driver->activateRow(u"docs"_s));
        }
        if (!row.isEmpty()) {
            QVERIFY(m_driver->selectRow(row));
        }
        enabled.sort();
        QCOMPARE(enabledActions(), enabled);
    }

    void movingNeedsAFolder() {
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "abc");
        QVERIFY(crafted.writeTo(containerPath()));
        QVERIFY(m_driver->openVault(containerPath(), Password));
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        QVERIFY(m_driver->action(u"Renomear arquivo..."_s)->isEnabled());
        QVERIFY(!m_driver->action(u"Mover para pasta..."_s)->isEnabled());
    }

    // --- Padlock ---------------------------------------------------------------------------------

    void padlockIsDrawnForItsState() {
        const QToolButton* button = m_driver->padlock();
        QVERIFY(!button->isEnabled() && !button->isChecked());
        const QImage disabled = shownPadlock(button);
        QVERIFY(chooseEmpty());
        QVERIFY(button->isEnabled() && !button->isChecked());
        const QImage closed = shownPadlock(button);
        QVERIFY(m_driver->unlock(Password));
        QVERIFY(button->isEnabled() && button->isChecked());
        const QImage open = shownPadlock(button);

        // Body and outline; the keyhole has the outline's colour.
        QCOMPARE(disabled.pixelColor(14, 36), QColor(u"#e2e2e2"));
        QCOMPARE(disabled.pixelColor(10, 32), QColor(u"#a5a5a5"));
        QCOMPARE(disabled.pixelColor(24, 32), QColor(u"#a5a5a5"));
        for (const QImage& image : {closed, open}) {
            QCOMPARE(image.pixelColor(14, 36), QColor(u"#eeeeee"));
            QCOMPARE(image.pixelColor(10, 32), QColor(70, 70, 70));
            QCOMPARE(image.pixelColor(24, 32), QColor(70, 70, 70));
            QCOMPARE(image.pixelColor(24, 36), QColor(70, 70, 70));
        }
        // Centred and whole, with nothing between shackle and body.
        const QRect whole(8, 5, 32, 39);
        QCOMPARE(drawnPart(closed), whole);
        QCOMPARE(drawnPart(disabled), whole);
        QCOMPARE(closed.pixelColor(24, 15).alpha(), 0);
        // Opening moves the shackle alone, and its loose end reaches beyond the body.
        const QRect body(0, 22, 48, 26);
        QCOMPARE(open.copy(body), closed.copy(body));
        QCOMPARE(closed.pixelColor(38, 17).alpha(), 0);
        QVERIFY(open.pixelColor(38, 17).alpha() > 200);
        QVERIFY(drawnPart(open).right() > whole.right());
    }

    void toolTipSaysWhatThePadlockDoes() {
        QCOMPARE(m_driver->padlock()->toolTip(),
                 u"Selecione um container para desbloquear o cofre."_s);
        QVERIFY(chooseEmpty());
        QCOMPARE(m_driver->padlock()->toolTip(), u"Desbloquear cofre"_s);
        QVERIFY(m_driver->unlock(Password));
        QCOMPARE(m_driver->padlock()->toolTip(), u"Bloquear cofre"_s);
    }

    void padlockAsksForThePasswordAndLocks() {
        QVERIFY(chooseEmpty());
        dialogs().answerText(PasswordTitle, Password);
        QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(m_driver->vaultIsOpen());
        QVERIFY(m_driver->padlock()->isChecked());

        QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
        QVERIFY(!m_driver->vaultIsOpen());
        QVERIFY(!m_driver->padlock()->isChecked());
        QCOMPARE(status(), u"Cofre bloqueado."_s);
    }

    void cancelledPadlockStaysClosed() {
        QVERIFY(chooseEmpty());
        bool checkedWhileAsking = true;
        dialogs().handle(PasswordTitle, [&](QDialog* dialog) {
            checkedWhileAsking = m_driver->padlock()->isChecked();
            dialog->reject();
        });
        QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(!checkedWhileAsking);
        QVERIFY(!m_driver->padlock()->isChecked());
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void disabledPadlockDoesNothing() {
        QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
        Q_EMIT m_driver->padlock()->clicked(true);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QVERIFY(dialogs().seen().isEmpty());
        QVERIFY(!m_driver->padlock()->isChecked());
    }

    void padlockTurnsOverWithoutASignal() {
        const QSignalSpy toggled(m_driver->padlock(), &QToolButton::toggled);
        QVERIFY(openSample());
        QVERIFY(m_driver->padlock()->isChecked());
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(!m_driver->padlock()->isChecked());
        QCOMPARE(toggled.count(), 0);
    }

    // --- Device list -----------------------------------------------------------------------------

    void devicesAreCountedAndNamed() {
        QListWidget* devices = m_driver->deviceList();
        devices->clear();
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 0);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), QString());
        QCOMPARE(m_driver->window.selectedUsbDisplayName(), QString());
        addDevice(u"PEN"_s, u"/media/user/PEN"_s);
        addDevice(u"sdz1"_s, QString());
        QCOMPARE(m_driver->window.mountedUsbDeviceCount(), 1);
        devices->setCurrentRow(0);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), u"/media/user/PEN"_s);
        QCOMPARE(m_driver->window.selectedUsbDisplayName(), u"PEN"_s);
        devices->setCurrentRow(1);
        QCOMPARE(m_driver->window.selectedUsbRootPath(), QString());
        QCOMPARE(m_driver->window.selectedUsbDisplayName(), u"sdz1"_s);
    }

    void deviceOfTheContainerStaysSelected() {
        QListWidget* devices = m_driver->deviceList();
        devices->clear();
        addDevice(u"other"_s, u"/media/user/other"_s);
        addDevice(u"PEN"_s, m_folder->path());
        QVERIFY(chooseEmpty());
        QCOMPARE(devices->currentRow(), 1);

        const QPoint other = devices->visualItemRect(devices->item(0)).center();
        QTest::mouseClick(devices->viewport(), Qt::LeftButton, {}, other);
        QCOMPARE(devices->currentRow(), 1);
        QCOMPARE(devices->selectedItems(), QList<QListWidgetItem*>{devices->item(1)});

        devices->setCurrentRow(0);
        QCOMPARE(devices->currentRow(), 1);
        QCOMPARE(devices->selectedItems(), QList<QListWidgetItem*>{devices->item(1)});
    }

    // --- Status bar ------------------------------------------------------------------------------

    void containerLabelNamesTheContainer_data() {
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("text");
        QTest::newRow("usual name") << u"tessel.tvlt"_s << u"Container: Tessel"_s;
        QTest::newRow("usual name in capitals") << u"TESSEL.TVLT"_s << u"Container: Tessel"_s;
        QTest::newRow("other name") << u"casa.tvlt"_s << u"Container: casa.tvlt"_s;
        QTest::newRow("usual name, other suffix") << u"tessel.bak"_s << u"Container: tessel.bak"_s;
    }
    void containerLabelNamesTheContainer() {
        QFETCH(QString, fileName);
        QFETCH(QString, text);
        const QString path = m_folder->filePath(fileName);
        QVERIFY(CraftedContainer().writeTo(path));
        QVERIFY(m_driver->chooseContainer(path));
        QCOMPARE(m_driver->label(u"containerLabel"_s)->text(), text);
        QCOMPARE(m_driver->label(u"containerLabel"_s)->toolTip(), text);
    }

    void longContainerNameIsCutInTheMiddle() {
        const QString fileName = u"um cofre com um nome bem comprido.tvlt"_s;
        QVERIFY(CraftedContainer().writeTo(m_folder->filePath(fileName)));
        QVERIFY(m_driver->chooseContainer(m_folder->filePath(fileName)));
        const QLabel* label = m_driver->label(u"containerLabel"_s);
        const QString whole = u"Container: "_s + fileName;
        QCOMPARE(label->toolTip(), whole);
        QCOMPARE(label->text(),
                 label->fontMetrics().elidedText(whole, Qt::ElideMiddle, label->width() - 8));
        QVERIFY(label->text().startsWith(u"Container"));
        QVERIFY(label->text().contains(QChar(0x2026)));
        QVERIFY(label->text().endsWith(u"tvlt"));
    }

    void stateLabelIsGreenWhileOpen() {
        const QLabel* state = m_driver->label(u"vaultStateLabel"_s);
        QCOMPARE(state->text(), u"COFRE"_s);
        QCOMPARE(
            state->styleSheet(),
            u"QLabel { background-color: #f06a6a; color: #000000; font-size: 11px; font-weight: 600; padding-left: 4px; padding-right: 4px; }"_s);
        QVERIFY(openSample());
        QCOMPARE(state->text(), u"COFRE"_s);
        QCOMPARE(
            state->styleSheet(),
            u"QLabel { background-color: #7bd88f; color: #000000; font-size: 11px; font-weight: 600; padding-left: 4px; padding-right: 4px; }"_s);
    }

    // --- Shortcuts and pages ---------------------------------------------------------------------

    void shortcutsActInTheWindow() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        QVERIFY(m_driver->activate());
        dialogs().reject(u"Excluir arquivo"_s);
        QTest::keyClick(&m_driver->window, Qt::Key_Delete);
        QVERIFY2(dialogs().finished(), qPrintable(problems()));

        QVERIFY(m_driver->activate());
        FakeDesktop desktop(u"file"_s);
        QTest::keyClick(&m_driver->window, Qt::Key_Return);
        QCOMPARE(desktop.opened.size(), 1);
        QCOMPARE(desktop.opened.first().fileName(), u"a.txt"_s);
    }

    void shortcutsDoNotReachThroughDialogs() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        FakeDesktop desktop(u"file"_s);
        dialogs().handle(u"Nova pasta"_s, [](QDialog* dialog) {
            dialog->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(dialog));
            auto* edit = dialog->findChild<QLineEdit*>();
            edit->setText(u"xy"_s);
            edit->setCursorPosition(0);
            QTest::keyClick(edit, Qt::Key_Delete);
            QCOMPARE(edit->text(), u"y"_s);
            QTest::keyClick(edit, Qt::Key_F6);
            QTest::keyClick(edit, Qt::Key_I, Qt::ControlModifier);
            edit->clear();
            QTest::keyClick(edit, Qt::Key_Return);
        });
        VERIFY_RUN(u"Nova pasta..."_s);
        QVERIFY(desktop.opened.isEmpty());
    }

    void homepageOpensInTheBrowser() {
        const QUrl homepage(QStringLiteral(TESSEL_HOMEPAGE_URL));
        FakeDesktop desktop(homepage.scheme());
        m_driver->action(u"Visitar a página oficial do Tessel"_s)->trigger();
        QCOMPARE(desktop.opened, QList<QUrl>{homepage});
    }

    // --- Hold on the container -------------------------------------------------------------------

    void vaultThatAnotherWindowHoldsStaysClosed() {
        QVERIFY(chooseEmpty());
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(containerPath()));
        QVERIFY2(unlockFails(Password), qPrintable(problems()));
        QVERIFY(!m_driver->vaultIsOpen());

        otherWindow.release();
        QVERIFY(m_driver->unlock(Password));
    }

    void openVaultIsHeldUntilItIsLocked() {
        QVERIFY(openSample());
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(!otherWindow.acquire(containerPath()));
        m_driver->action(u"Bloquear"_s)->trigger();
        QVERIFY(otherWindow.acquire(containerPath()));
        otherWindow.release();

        // A wrong password leaves no hold behind.
        QVERIFY2(unlockFails(u"outra senha"_s), qPrintable(problems()));
        QVERIFY(otherWindow.acquire(containerPath()));
        otherWindow.release();

        QVERIFY(m_driver->unlock(Password));
        QVERIFY(m_driver->window.close());
        QVERIFY(otherWindow.acquire(containerPath()));
    }

    void compactionKeepsTheHoldOnTheContainer() {
        QVERIFY(openSample());
        QVERIFY2(compact(), qPrintable(problems()));

        Tessel::Core::ContainerLock lock;
        QVERIFY(!lock.acquire(containerPath()));
        // The space of the old container is free: nothing holds a file that has no name any more.
        const QFileInfoList descriptors = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::System);
        for (const QFileInfo& descriptor : descriptors) {
            QVERIFY2(!descriptor.symLinkTarget().contains(u"tessel.tvlt (deleted)"),
                     qPrintable(descriptor.symLinkTarget()));
        }
    }

    void compactionNeverLetsGoOfTheContainer() {
        QVERIFY(openSample());
        int looks = 0;
        bool wasFree = false;
        const ProgressProbe probe([&](QProgressDialog*, int) {
            Tessel::Core::ContainerLock otherWindow;
            wasFree = otherWindow.acquire(containerPath()) || wasFree;
            ++looks;
        });
        QVERIFY2(compact(), qPrintable(problems()));
        QVERIFY(looks > 0);
        QVERIFY(!wasFree);
    }

    void containerThatAnotherWindowTookLocksTheVault() {
        QVERIFY(openSample());
        const QByteArray bytes = readFile(containerPath());
        QVERIFY(QFile::remove(containerPath()));
        QVERIFY(writeFile(containerPath(), bytes));
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(containerPath()));
        VERIFY_RUN(u"Nova pasta..."_s);
        QVERIFY(!m_driver->vaultIsOpen());
        QCOMPARE(status(), u"Cofre bloqueado."_s);
        QVERIFY(readFile(containerPath()) == bytes);
    }

    void containerPutBackIsHeldWithTheNextCommand() {
        QVERIFY(openSample());
        const QByteArray bytes = readFile(containerPath());
        QVERIFY(QFile::remove(containerPath()));
        QVERIFY(writeFile(containerPath(), bytes));
        dialogs().reject(u"Nova pasta"_s);
        VERIFY_RUN(u"Nova pasta..."_s);
        QVERIFY(m_driver->vaultIsOpen());
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(!otherWindow.acquire(containerPath()));
    }

    void vaultThatAnotherWindowHoldsIsNotReplaced() {
        QVERIFY(CraftedContainer().writeTo(containerPath()));
        const QByteArray bytes = readFile(containerPath());
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(containerPath()));
        dialogs().answerFiles(u"Criar container Tessel"_s, {containerPath()});
        dialogs().press(u"Criar container Tessel"_s, u"Yes"_s);
        dialogs().answerText(u"Definir senha do cofre"_s, Password);
        dialogs().answerText(u"Confirmar senha do cofre"_s, Password);
        dialogs().acceptWarning(Title);
        VERIFY_RUN(u"Criar novo cofre..."_s);
        QCOMPARE(lastText(), u"Não foi possível criar o cofre."_s);
        QVERIFY(readFile(containerPath()) == bytes);
    }

    void passwordOfAVaultThatAnotherWindowHoldsIsNotChanged() {
        QVERIFY(CraftedContainer().writeTo(containerPath()));
        const QByteArray bytes = readFile(containerPath());
        QVERIFY(m_driver->chooseContainer(containerPath()));
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(containerPath()));
        dialogs().handle(u"Alterar senha do cofre"_s, [](QDialog* dialog) {
            const QList<QLineEdit*> fields = dialog->findChildren<QLineEdit*>();
            for (QLineEdit* field : fields) {
                field->setText(Password);
            }
            QVERIFY(pressButton(dialog, u"Alterar"_s));
        });
        dialogs().acceptWarning(Title);
        VERIFY_RUN(u"Alterar senha..."_s);
        QCOMPARE(lastText(),
                 u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_s);
        QCOMPARE(status(), u"Falha ao alterar a senha."_s);
        QVERIFY(readFile(containerPath()) == bytes);
    }

    void backupOfAVaultThatAnotherWindowHoldsIsRefused() {
        QVERIFY(chooseEmpty());
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(containerPath()));
        const QString copy = m_folder->filePath(u"copia.tvlt"_s);
        dialogs().answerFiles(u"Fazer backup do container"_s, {copy});
        dialogs().acceptWarning(u"Fazer backup"_s);
        VERIFY_RUN(u"Fazer backup..."_s);
        QCOMPARE(lastText(), u"Não foi possível abrir o container para backup."_s);
        QVERIFY(!QFileInfo::exists(copy));
    }

    void backupOverAVaultThatAnotherWindowHoldsIsRefused() {
        QVERIFY(chooseEmpty());
        const QString other = m_folder->filePath(u"outro.tvlt"_s);
        QVERIFY(CraftedContainer(2).writeTo(other));
        const QByteArray bytes = readFile(other);
        Tessel::Core::ContainerLock otherWindow;
        QVERIFY(otherWindow.acquire(other));
        dialogs().answerFiles(u"Fazer backup do container"_s, {other});
        dialogs().press(u"Fazer backup do container"_s, u"Yes"_s);
        dialogs().acceptWarning(u"Fazer backup"_s);
        VERIFY_RUN(u"Fazer backup..."_s);
        QCOMPARE(lastText(), u"Não foi possível criar o arquivo de backup."_s);
        QVERIFY(readFile(other) == bytes);
    }

    void pipeInTheContainersPlaceIsRefused() {
        QCOMPARE(::mkfifo(QFile::encodeName(containerPath()).constData(), 0600), 0);
        QVERIFY(m_driver->chooseContainer(containerPath()));
        QVERIFY2(unlockFails(Password), qPrintable(problems()));
    }

    void missingWorkspaceLeavesTheVaultOpen() {
        // A file where the temporary folder should be: nothing can be created below it.
        const QString obstacle = m_folder->filePath(u"obstacle"_s);
        QVERIFY(writeFile(obstacle, "x"));
        const TemporaryFolderAt temporary(obstacle);
        m_driver = std::make_unique<WindowDriver>();
        CraftedContainer crafted;
        crafted.addFile(u"a.txt"_s, "abc");
        QVERIFY(crafted.writeTo(containerPath()));
        QVERIFY(m_driver->chooseContainer(containerPath()));
        QVERIFY2(unlockFails(Password), qPrintable(problems()));
        // What the window shows is what the vault is.
        QVERIFY(m_driver->vaultIsOpen());
        QVERIFY(m_driver->padlock()->isChecked());
        QCOMPARE(m_driver->rowNames(), QStringList{u"a.txt"_s});
    }

    // --- Closing and long operations -------------------------------------------------------------

    void closesWhileLocked() {
        QVERIFY(m_driver->window.close());
        QVERIFY(!m_driver->window.isVisible());
    }

    void closingLocksAnOpenVault() {
        QVERIFY(openSample());
        QVERIFY(m_driver->window.close());
        QVERIFY(!m_driver->window.isVisible());
        m_driver->window.updateActions();
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void quitLocksAnOpenVault() {
        QVERIFY(openSample());
        m_driver->action(u"Sair"_s)->trigger();
        QVERIFY(!m_driver->window.isVisible());
        m_driver->window.updateActions();
        QVERIFY(!m_driver->vaultIsOpen());
    }

    void failedLockKeepsTheWindowOpen() {
        QVERIFY(openSample());
        FakeDesktop desktop(u"file"_s);
        QVERIFY(m_driver->activateRow(u"a.txt"_s));
        QCOMPARE(desktop.opened.size(), 1);
        const QString copy = desktop.opened.first().toLocalFile();
        QVERIFY(writeFile(copy, "changed") && makeLater(copy));
        // The changed copy cannot be taken back while the container is away.
        QVERIFY(QFile::rename(containerPath(), m_folder->filePath(u"away"_s)));

        dialogs().acceptWarning(Title);
        QVERIFY(!m_driver->window.close());
        QVERIFY2(dialogs().finished(), qPrintable(problems()));
        QCOMPARE(lastText(), u"Não foi possível bloquear o cofre."_s);
        QVERIFY(m_driver->window.isVisible());
        QVERIFY(m_driver->vaultIsOpen());
        QVERIFY(QFileInfo::exists(copy));

        QVERIFY(QFile::rename(m_folder->filePath(u"away"_s), containerPath()));
        QVERIFY(m_driver->window.close());
        QVERIFY(!QFileInfo::exists(copy));
    }

    void openDialogKeepsTheWindowOpen() {
        QVERIFY(chooseEmpty());
        dialogs().handle(PasswordTitle, [this](QDialog* dialog) {
            QVERIFY(!m_driver->window.close());
            m_driver->action(u"Sair"_s)->trigger();
            dialog->reject();
        });
        VERIFY_RUN(u"Desbloquear"_s);
        QVERIFY(m_driver->window.isVisible());
    }

    void nothingElseStartsDuringALongOperation() {
        QVERIFY(openSample());
        QVERIFY(m_driver->selectRow(u"a.txt"_s));
        FakeDesktop desktop(u"file"_s);
        int movements = 0;
        const ProgressProbe whileCompacting([&](const QProgressDialog* progress, int) {
            ++movements;
            QVERIFY(progress->isModal());
            QVERIFY(!m_driver->window.close());
            const QList<QAction*> actions = m_driver->window.findChildren<QAction*>();
            for (QAction* action : actions) {
                action->trigger();
            }
            const QTableWidget* table = m_driver->table();
            QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
            Q_EMIT m_driver->padlock()->clicked(false);
            QTest::mouseDClick(table->viewport(), Qt::LeftButton, {},
                               table->visualItemRect(table->item(1, 1)).center());
            QTest::keyClick(&m_driver->window, Qt::Key_Return);
            QTest::keyClick(&m_driver->window, Qt::Key_Delete);
        });
        QVERIFY2(compact(), qPrintable(problems()));
        QVERIFY(movements > 0);
        QCOMPARE(lastText(), u"Cofre compactado com sucesso."_s);
        QVERIFY(m_driver->vaultIsOpen());
        QVERIFY(m_driver->window.isVisible());
        QVERIFY(desktop.opened.isEmpty());
    }

    void progressDialogCannotBeClosed_data() {
        using Attempt = std::function<void(QProgressDialog*)>;
        QTest::addColumn<Attempt>("attempt");
        QTest::newRow("close button") << Attempt([](QProgressDialog* dialog) { dialog->close(); });
        QTest::newRow("Escape") << Attempt(
            [](QProgressDialog* dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
        QTest::newRow("Return") << Attempt(
            [](QProgressDialog* dialog) { QTest::keyClick(dialog, Qt::Key_Return); });
        QTest::newRow("reject") << Attempt([](QProgressDialog* dialog) { dialog->reject(); });
    }
    void progressDialogCannotBeClosed() {
        QFETCH(std::function<void(QProgressDialog*)>, attempt);
        Tessel::UI::ModalProgress progress(&m_driver->window, Title, u"..."_s);
        QVERIFY(progress.isVisible());
        attempt(&progress);
        QVERIFY(progress.isVisible());
        progress.report(500, u"<b>500</b>"_s);
        QCOMPARE(progress.value(), 500);
        QCOMPARE(progress.labelText(), u"<b>500</b>"_s);
        QVERIFY(!progress.wasCanceled());
        progress.finish();
        QCOMPARE(progress.value(), 1000);
        QVERIFY(!progress.isVisible());
    }
};

TESSEL_TEST_MAIN(runTest<QApplication, TestMainWindowFrame>);
#include "test_main_window_frame.moc"
