// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerLock.h"
#include "support/CraftedContainer.h"
#include "support/FakeDesktop.h"
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
#include <QScopeGuard>
#include <QScreen>
#include <QSignalSpy>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>

#include <sys/stat.h>

using Tessel::Tests::CraftedContainer;
using Tessel::Tests::FakeDesktop;
using Tessel::Tests::ProgressProbe;
using Tessel::Tests::WindowDriver;
using Tessel::Tests::WindowTest;
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

/// The padlock as it is described, drawn by other means than the program's.
QImage drawnPadlock(bool unlocked, bool enabled) {
    const QColor line = enabled ? QColor(70, 70, 70) : QColor(u"#a5a5a5");
    const QColor fill = enabled ? QColor(u"#eeeeee") : QColor(u"#e2e2e2");
    QPixmap pixmap(48, 48);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QBrush(line), 3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    if (unlocked) {
        painter.drawArc(QRectF(14, 7, 20, 26), 400, 3920);
        painter.drawLine(QPointF(35, 19), QPointF(40, 15));
    } else {
        painter.drawArc(QRectF(13, 7, 22, 26), 0, 2880);
    }
    painter.setBrush(fill);
    painter.drawRoundedRect(QRectF(10, 22, 28, 20), 4, 4);
    painter.setBrush(line);
    painter.drawEllipse(QRectF(22, 30, 4, 4));
    painter.drawLine(QPointF(24, 34), QPointF(24, 37));
    painter.end();
    return pixmap.toImage();
}

QImage shownPadlock(const QToolButton* button) {
    const QIcon::Mode mode = button->isEnabled() ? QIcon::Normal : QIcon::Disabled;
    const QIcon::State state = button->isChecked() ? QIcon::On : QIcon::Off;
    return button->icon().pixmap(QSize(48, 48), 1.0, mode, state).toImage();
}

} // namespace

class TestMainWindowFrame : public WindowTest {
    Q_OBJECT

private Q_SLOTS:
    void startsReady();
    void centralSizeFollowsTheScreen_data();
    void centralSizeFollowsTheScreen();
    void windowCannotBeResized();
    void widgetsStandInOrder();
    void deviceRowIsAsHighAsThreeLines();
    void padlockButtonIsSetUp();
    void tableIsSetUp();
    void tableColumnsAreSetUp();
    void statusBarHoldsFourWidgets();
    void messagesLeaveTheStatusBarsWidgetsInSight();
    void menusLeaveTheMessage_data();
    void menusLeaveTheMessage();

    void menuBarHoldsTheMenusInOrder();
    void menusHoldActionsInOrder_data();
    void menusHoldActionsInOrder();
    void tableActionsAreInNoMenu();
    void actionsAreEnabledByTheSituation_data();
    void actionsAreEnabledByTheSituation();
    void movingNeedsAFolder();

    void padlockIsDrawnForItsState();
    void toolTipSaysWhatThePadlockDoes();
    void padlockAsksForThePasswordAndLocks();
    void cancelledPadlockStaysClosed();
    void disabledPadlockDoesNothing();
    void padlockTurnsOverWithoutASignal();

    void devicesAreCountedAndNamed();
    void deviceOfTheContainerStaysSelected();

    void containerLabelNamesTheContainer_data();
    void containerLabelNamesTheContainer();
    void longContainerNameIsCutInTheMiddle();
    void stateLabelIsGreenWhileOpen();

    void shortcutsActInTheWindow();
    void shortcutsDoNotReachThroughDialogs();
    void homepageOpensInTheBrowser();

    void vaultThatAnotherWindowHoldsStaysClosed();
    void openVaultIsHeldUntilItIsLocked();
    void compactionKeepsTheHoldOnTheContainer();
    void compactionNeverLetsGoOfTheContainer();
    void containerThatAnotherWindowTookLocksTheVault();
    void containerPutBackIsHeldWithTheNextCommand();
    void vaultThatAnotherWindowHoldsIsNotReplaced();
    void passwordOfAVaultThatAnotherWindowHoldsIsNotChanged();
    void backupOfAVaultThatAnotherWindowHoldsIsRefused();
    void backupOverAVaultThatAnotherWindowHoldsIsRefused();
    void pipeInTheContainersPlaceIsRefused();
    void missingWorkspaceLeavesTheVaultOpen();

    void closesWhileLocked();
    void closingLocksAnOpenVault();
    void quitLocksAnOpenVault();
    void failedLockKeepsTheWindowOpen();
    void openDialogKeepsTheWindowOpen();
    void nothingElseStartsDuringALongOperation();
    void progressDialogCannotBeClosed_data();
    void progressDialogCannotBeClosed();

private:
    [[nodiscard]] QString containerPath() const { return m_folder->filePath(u"tessel.tvlt"_s); }
    /// Writes a container with a folder and two files, and opens it.
    [[nodiscard]] bool openSample();
    [[nodiscard]] QStringList enabledActions() const;
    /// Adds a row as the program adds one for each volume.
    void addDevice(const QString& name, const QString& rootPath);
};

bool TestMainWindowFrame::openSample() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s).addFile(u"a.txt"_s, "abc").addFile(u"docs/b.txt"_s, "bcd");
    return crafted.writeTo(containerPath()) && m_driver->openVault(containerPath(), Password);
}

QStringList TestMainWindowFrame::enabledActions() const {
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

void TestMainWindowFrame::addDevice(const QString& name, const QString& rootPath) {
    auto* item = new QListWidgetItem(name, m_driver->deviceList());
    item->setData(Qt::UserRole, rootPath);
    item->setData(Qt::UserRole + 1, name);
}

// --- Frame -----------------------------------------------------------------------------------

void TestMainWindowFrame::startsReady() {
    QCOMPARE(m_driver->window.windowTitle(), Title);
    QCOMPARE(m_driver->result(), u"Pronto (0 ms)"_s);
    QCOMPARE(m_driver->label(u"protectedFilesLabel"_s)->text(), u"Nenhum cofre em uso (aberto)"_s);
    QCOMPARE(m_driver->table()->rowCount(), 0);
}

void TestMainWindowFrame::centralSizeFollowsTheScreen_data() {
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

void TestMainWindowFrame::centralSizeFollowsTheScreen() {
    QFETCH(QSize, available);
    QTEST(Tessel::UI::centralSizeFor(available), "central");
}

void TestMainWindowFrame::windowCannotBeResized() {
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

void TestMainWindowFrame::widgetsStandInOrder() {
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

void TestMainWindowFrame::deviceRowIsAsHighAsThreeLines() {
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

void TestMainWindowFrame::padlockButtonIsSetUp() {
    const QToolButton* button = m_driver->padlock();
    QVERIFY(button->isCheckable());
    QVERIFY(!button->autoRaise());
    QCOMPARE(button->focusPolicy(), Qt::NoFocus);
    QCOMPARE(button->iconSize(), QSize(48, 48));
    QCOMPARE(
        button->styleSheet(),
        u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }QToolButton:pressed:enabled { background: #e2e2e2; }QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);
}

void TestMainWindowFrame::tableIsSetUp() {
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

void TestMainWindowFrame::tableColumnsAreSetUp() {
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

void TestMainWindowFrame::statusBarHoldsFourWidgets() {
    const QString padded = u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;
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

void TestMainWindowFrame::menusLeaveTheMessage_data() {
    QTest::addColumn<QString>("message");
    QTest::newRow("ready") << u"Pronto"_s;
    QTest::newRow("result") << u"Container selecionado."_s;
}

void TestMainWindowFrame::menusLeaveTheMessage() {
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

void TestMainWindowFrame::messagesLeaveTheStatusBarsWidgetsInSight() {
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

void TestMainWindowFrame::menuBarHoldsTheMenusInOrder() {
    QStringList titles;
    const QList<QAction*> actions = m_driver->window.menuBar()->actions();
    for (const QAction* action : actions) {
        titles.append(action->text());
    }
    QCOMPARE(titles, QStringList({u"Arquivo"_s, u"USB"_s, u"Sobre"_s}));
}

void TestMainWindowFrame::menusHoldActionsInOrder_data() {
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

void TestMainWindowFrame::menusHoldActionsInOrder() {
    QFETCH(int, menu);
    QTEST(menuLines(m_driver->window.menuBar()->actions().at(menu)->menu(), QString()), "lines");
}

void TestMainWindowFrame::tableActionsAreInNoMenu() {
    for (const QString& text : {u"Mover para pasta..."_s, u"Renomear arquivo..."_s}) {
        const QAction* action = m_driver->action(text);
        QVERIFY(action->shortcut().isEmpty());
        QVERIFY(action->associatedObjects().isEmpty());
    }
}

void TestMainWindowFrame::actionsAreEnabledByTheSituation_data() {
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
    const QStringList folder = open + QStringList{u"Renomear pasta..."_s, u"Excluir pasta vazia"_s};
    const QStringList file =
        open + QStringList{u"Exportar..."_s, u"Abrir"_s, u"Renomear arquivo..."_s, u"Excluir..."_s,
                           u"Mover para pasta..."_s};

    QTest::newRow("no container") << false << false << QString() << locked;
    QTest::newRow("container chosen") << true << false << QString() << withContainer;
    QTest::newRow("open, nothing selected") << true << true << QString() << open;
    QTest::newRow("open, folder selected") << true << true << u"docs"_s << folder;
    QTest::newRow("open, file selected") << true << true << u"a.txt"_s << file;
    QTest::newRow("open, parent row selected") << true << true << u".."_s << open;
}

void TestMainWindowFrame::actionsAreEnabledByTheSituation() {
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

void TestMainWindowFrame::movingNeedsAFolder() {
    CraftedContainer crafted;
    crafted.addFile(u"a.txt"_s, "abc");
    QVERIFY(crafted.writeTo(containerPath()));
    QVERIFY(m_driver->openVault(containerPath(), Password));
    QVERIFY(m_driver->selectRow(u"a.txt"_s));
    QVERIFY(m_driver->action(u"Renomear arquivo..."_s)->isEnabled());
    QVERIFY(!m_driver->action(u"Mover para pasta..."_s)->isEnabled());
}

// --- Padlock ---------------------------------------------------------------------------------

void TestMainWindowFrame::padlockIsDrawnForItsState() {
    const QToolButton* button = m_driver->padlock();
    QVERIFY(!button->isEnabled());
    QVERIFY(!button->isChecked());
    QCOMPARE(shownPadlock(button), drawnPadlock(false, false));
    QCOMPARE(shownPadlock(button).pixelColor(14, 36), QColor(u"#e2e2e2"));
    QCOMPARE(shownPadlock(button).pixelColor(10, 32), QColor(u"#a5a5a5"));

    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    QVERIFY(button->isEnabled());
    QVERIFY(!button->isChecked());
    QCOMPARE(shownPadlock(button), drawnPadlock(false, true));
    QCOMPARE(shownPadlock(button).pixelColor(14, 36), QColor(u"#eeeeee"));
    QCOMPARE(shownPadlock(button).pixelColor(10, 32), QColor(70, 70, 70));
    QCOMPARE(shownPadlock(button).pixelColor(24, 15).alpha(), 0);
    QCOMPARE(shownPadlock(button).pixelColor(38, 17).alpha(), 0);

    QVERIFY(m_driver->unlock(Password));
    QVERIFY(button->isEnabled());
    QVERIFY(button->isChecked());
    QCOMPARE(shownPadlock(button), drawnPadlock(true, true));
    QVERIFY(shownPadlock(button).pixelColor(38, 17).alpha() > 200);
}

void TestMainWindowFrame::toolTipSaysWhatThePadlockDoes() {
    QCOMPARE(m_driver->padlock()->toolTip(), u"Selecione um container para desbloquear o cofre."_s);
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    QCOMPARE(m_driver->padlock()->toolTip(), u"Desbloquear cofre"_s);
    QVERIFY(m_driver->unlock(Password));
    QCOMPARE(m_driver->padlock()->toolTip(), u"Bloquear cofre"_s);
}

void TestMainWindowFrame::padlockAsksForThePasswordAndLocks() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    m_driver->dialogs.answerText(PasswordTitle, Password);
    QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(m_driver->vaultIsOpen());
    QVERIFY(m_driver->padlock()->isChecked());

    QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
    QVERIFY(!m_driver->vaultIsOpen());
    QVERIFY(!m_driver->padlock()->isChecked());
    QCOMPARE(m_driver->result(), u"Cofre bloqueado."_s);
}

void TestMainWindowFrame::cancelledPadlockStaysClosed() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    bool checkedWhileAsking = true;
    m_driver->dialogs.handle(PasswordTitle, [&](QDialog* dialog) {
        checkedWhileAsking = m_driver->padlock()->isChecked();
        dialog->reject();
    });
    QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(!checkedWhileAsking);
    QVERIFY(!m_driver->padlock()->isChecked());
    QVERIFY(!m_driver->vaultIsOpen());
}

void TestMainWindowFrame::disabledPadlockDoesNothing() {
    QTest::mouseClick(m_driver->padlock(), Qt::LeftButton);
    Q_EMIT m_driver->padlock()->clicked(true);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(m_driver->dialogs.seen().isEmpty());
    QVERIFY(!m_driver->padlock()->isChecked());
}

void TestMainWindowFrame::padlockTurnsOverWithoutASignal() {
    const QSignalSpy toggled(m_driver->padlock(), &QToolButton::toggled);
    QVERIFY(openSample());
    QVERIFY(m_driver->padlock()->isChecked());
    m_driver->action(u"Bloquear"_s)->trigger();
    QVERIFY(!m_driver->padlock()->isChecked());
    QCOMPARE(toggled.count(), 0);
}

// --- Device list -----------------------------------------------------------------------------

void TestMainWindowFrame::devicesAreCountedAndNamed() {
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

void TestMainWindowFrame::deviceOfTheContainerStaysSelected() {
    QListWidget* devices = m_driver->deviceList();
    devices->clear();
    addDevice(u"other"_s, u"/media/user/other"_s);
    addDevice(u"PEN"_s, m_folder->path());
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
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

void TestMainWindowFrame::containerLabelNamesTheContainer_data() {
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("text");
    QTest::newRow("usual name") << u"tessel.tvlt"_s << u"Container: Tessel"_s;
    QTest::newRow("usual name in capitals") << u"TESSEL.TVLT"_s << u"Container: Tessel"_s;
    QTest::newRow("other name") << u"casa.tvlt"_s << u"Container: casa.tvlt"_s;
    QTest::newRow("usual name, other suffix") << u"tessel.bak"_s << u"Container: tessel.bak"_s;
}

void TestMainWindowFrame::containerLabelNamesTheContainer() {
    QFETCH(QString, fileName);
    QFETCH(QString, text);
    const QString path = m_folder->filePath(fileName);
    QVERIFY(CraftedContainer().writeTo(path));
    QVERIFY(m_driver->chooseContainer(path));
    QCOMPARE(m_driver->label(u"containerLabel"_s)->text(), text);
    QCOMPARE(m_driver->label(u"containerLabel"_s)->toolTip(), text);
}

void TestMainWindowFrame::longContainerNameIsCutInTheMiddle() {
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

void TestMainWindowFrame::stateLabelIsGreenWhileOpen() {
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

void TestMainWindowFrame::shortcutsActInTheWindow() {
    QVERIFY(openSample());
    QVERIFY(m_driver->selectRow(u"a.txt"_s));
    QVERIFY(m_driver->activate());
    m_driver->dialogs.reject(u"Excluir arquivo"_s);
    QTest::keyClick(&m_driver->window, Qt::Key_Delete);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));

    QVERIFY(m_driver->activate());
    FakeDesktop desktop(u"file"_s);
    QTest::keyClick(&m_driver->window, Qt::Key_Return);
    QCOMPARE(desktop.opened.size(), 1);
    QCOMPARE(desktop.opened.first().fileName(), u"a.txt"_s);
}

void TestMainWindowFrame::shortcutsDoNotReachThroughDialogs() {
    QVERIFY(openSample());
    QVERIFY(m_driver->selectRow(u"a.txt"_s));
    FakeDesktop desktop(u"file"_s);
    m_driver->dialogs.handle(u"Nova pasta"_s, [](QDialog* dialog) {
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
    m_driver->action(u"Nova pasta..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(desktop.opened.isEmpty());
}

void TestMainWindowFrame::homepageOpensInTheBrowser() {
    const QUrl homepage(QStringLiteral(TESSEL_HOMEPAGE_URL));
    FakeDesktop desktop(homepage.scheme());
    m_driver->action(u"Visitar a página oficial do Tessel"_s)->trigger();
    QCOMPARE(desktop.opened, QList<QUrl>{homepage});
}

// --- Hold on the container -------------------------------------------------------------------

void TestMainWindowFrame::vaultThatAnotherWindowHoldsStaysClosed() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(containerPath()));
    m_driver->dialogs.answerText(PasswordTitle, Password);
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Desbloquear"_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), UnlockFailure);
    QVERIFY(!m_driver->vaultIsOpen());

    otherWindow.release();
    QVERIFY(m_driver->unlock(Password));
}

void TestMainWindowFrame::openVaultIsHeldUntilItIsLocked() {
    QVERIFY(openSample());
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(!otherWindow.acquire(containerPath()));
    m_driver->action(u"Bloquear"_s)->trigger();
    QVERIFY(otherWindow.acquire(containerPath()));
    otherWindow.release();

    // A wrong password leaves no hold behind.
    m_driver->dialogs.answerText(PasswordTitle, u"outra senha"_s);
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Desbloquear"_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(otherWindow.acquire(containerPath()));
    otherWindow.release();

    QVERIFY(m_driver->unlock(Password));
    QVERIFY(m_driver->window.close());
    QVERIFY(otherWindow.acquire(containerPath()));
}

void TestMainWindowFrame::compactionKeepsTheHoldOnTheContainer() {
    QVERIFY(openSample());
    m_driver->dialogs.press(u"Compactar cofre"_s, u"Sim"_s);
    m_driver->dialogs.acceptInformation(u"Compactar cofre"_s);
    m_driver->action(u"Compactar cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));

    Tessel::Core::ContainerLock lock;
    QVERIFY(!lock.acquire(containerPath()));
    // The space of the old container is free: nothing holds a file that has no name any more.
    const QFileInfoList descriptors = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::System);
    for (const QFileInfo& descriptor : descriptors) {
        QVERIFY2(!descriptor.symLinkTarget().contains(u"tessel.tvlt (deleted)"),
                 qPrintable(descriptor.symLinkTarget()));
    }
}

void TestMainWindowFrame::compactionNeverLetsGoOfTheContainer() {
    QVERIFY(openSample());
    int looks = 0;
    bool wasFree = false;
    const ProgressProbe probe([&](QProgressDialog*, int) {
        Tessel::Core::ContainerLock otherWindow;
        wasFree = otherWindow.acquire(containerPath()) || wasFree;
        ++looks;
    });
    m_driver->dialogs.press(u"Compactar cofre"_s, u"Sim"_s);
    m_driver->dialogs.acceptInformation(u"Compactar cofre"_s);
    m_driver->action(u"Compactar cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(looks > 0);
    QVERIFY(!wasFree);
}

void TestMainWindowFrame::containerThatAnotherWindowTookLocksTheVault() {
    QVERIFY(openSample());
    const QByteArray bytes = Tessel::Tests::readFile(containerPath());
    QVERIFY(QFile::remove(containerPath()));
    QVERIFY(Tessel::Tests::writeFile(containerPath(), bytes));
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(containerPath()));
    m_driver->action(u"Nova pasta..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(!m_driver->vaultIsOpen());
    QCOMPARE(m_driver->result(), u"Cofre bloqueado."_s);
    QVERIFY(Tessel::Tests::readFile(containerPath()) == bytes);
}

void TestMainWindowFrame::containerPutBackIsHeldWithTheNextCommand() {
    QVERIFY(openSample());
    const QByteArray bytes = Tessel::Tests::readFile(containerPath());
    QVERIFY(QFile::remove(containerPath()));
    QVERIFY(Tessel::Tests::writeFile(containerPath(), bytes));
    m_driver->dialogs.reject(u"Nova pasta"_s);
    m_driver->action(u"Nova pasta..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(m_driver->vaultIsOpen());
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(!otherWindow.acquire(containerPath()));
}

void TestMainWindowFrame::vaultThatAnotherWindowHoldsIsNotReplaced() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    const QByteArray bytes = Tessel::Tests::readFile(containerPath());
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(containerPath()));
    m_driver->dialogs.answerFiles(u"Criar container Tessel"_s, {containerPath()});
    m_driver->dialogs.press(u"Criar container Tessel"_s, u"Yes"_s);
    m_driver->dialogs.answerText(u"Definir senha do cofre"_s, Password);
    m_driver->dialogs.answerText(u"Confirmar senha do cofre"_s, Password);
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Criar novo cofre..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Não foi possível criar o cofre."_s);
    QVERIFY(Tessel::Tests::readFile(containerPath()) == bytes);
}

void TestMainWindowFrame::passwordOfAVaultThatAnotherWindowHoldsIsNotChanged() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    const QByteArray bytes = Tessel::Tests::readFile(containerPath());
    QVERIFY(m_driver->chooseContainer(containerPath()));
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(containerPath()));
    m_driver->dialogs.handle(u"Alterar senha do cofre"_s, [](QDialog* dialog) {
        const QList<QLineEdit*> fields = dialog->findChildren<QLineEdit*>();
        for (QLineEdit* field : fields) {
            field->setText(Password);
        }
        QVERIFY(Tessel::Tests::pressButton(dialog, u"Alterar"_s));
    });
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Alterar senha..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(),
             u"Não foi possível alterar a senha. Verifique a senha atual e tente novamente."_s);
    QCOMPARE(m_driver->result(), u"Falha ao alterar a senha."_s);
    QVERIFY(Tessel::Tests::readFile(containerPath()) == bytes);
}

void TestMainWindowFrame::backupOfAVaultThatAnotherWindowHoldsIsRefused() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(containerPath()));
    const QString copy = m_folder->filePath(u"copia.tvlt"_s);
    m_driver->dialogs.answerFiles(u"Fazer backup do container"_s, {copy});
    m_driver->dialogs.acceptWarning(u"Fazer backup"_s);
    m_driver->action(u"Fazer backup..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Não foi possível abrir o container para backup."_s);
    QVERIFY(!QFileInfo::exists(copy));
}

void TestMainWindowFrame::backupOverAVaultThatAnotherWindowHoldsIsRefused() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    const QString other = m_folder->filePath(u"outro.tvlt"_s);
    QVERIFY(CraftedContainer(2).writeTo(other));
    const QByteArray bytes = Tessel::Tests::readFile(other);
    Tessel::Core::ContainerLock otherWindow;
    QVERIFY(otherWindow.acquire(other));
    m_driver->dialogs.answerFiles(u"Fazer backup do container"_s, {other});
    m_driver->dialogs.press(u"Fazer backup do container"_s, u"Yes"_s);
    m_driver->dialogs.acceptWarning(u"Fazer backup"_s);
    m_driver->action(u"Fazer backup..."_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Não foi possível criar o arquivo de backup."_s);
    QVERIFY(Tessel::Tests::readFile(other) == bytes);
}

void TestMainWindowFrame::pipeInTheContainersPlaceIsRefused() {
    QCOMPARE(::mkfifo(QFile::encodeName(containerPath()).constData(), 0600), 0);
    QVERIFY(m_driver->chooseContainer(containerPath()));
    m_driver->dialogs.answerText(PasswordTitle, Password);
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Desbloquear"_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), UnlockFailure);
}

void TestMainWindowFrame::missingWorkspaceLeavesTheVaultOpen() {
    // A file where the temporary folder should be: nothing can be created below it.
    const QString obstacle = m_folder->filePath(u"obstacle"_s);
    QVERIFY(Tessel::Tests::writeFile(obstacle, "x"));
    const QByteArray before = qgetenv("TMPDIR");
    qputenv("TMPDIR", QFile::encodeName(obstacle));
    const auto restore =
        qScopeGuard([&] { before.isNull() ? qunsetenv("TMPDIR") : qputenv("TMPDIR", before); });
    m_driver = std::make_unique<WindowDriver>();
    CraftedContainer crafted;
    crafted.addFile(u"a.txt"_s, "abc");
    QVERIFY(crafted.writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    m_driver->dialogs.answerText(PasswordTitle, Password);
    m_driver->dialogs.acceptWarning(Title);
    m_driver->action(u"Desbloquear"_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), UnlockFailure);
    // What the window shows is what the vault is.
    QVERIFY(m_driver->vaultIsOpen());
    QVERIFY(m_driver->padlock()->isChecked());
    QCOMPARE(m_driver->rowNames(), QStringList{u"a.txt"_s});
}

// --- Closing and long operations -------------------------------------------------------------

void TestMainWindowFrame::closesWhileLocked() {
    QVERIFY(m_driver->window.close());
    QVERIFY(!m_driver->window.isVisible());
}

void TestMainWindowFrame::closingLocksAnOpenVault() {
    QVERIFY(openSample());
    QVERIFY(m_driver->window.close());
    QVERIFY(!m_driver->window.isVisible());
    m_driver->window.updateActions();
    QVERIFY(!m_driver->vaultIsOpen());
}

void TestMainWindowFrame::quitLocksAnOpenVault() {
    QVERIFY(openSample());
    m_driver->action(u"Sair"_s)->trigger();
    QVERIFY(!m_driver->window.isVisible());
    m_driver->window.updateActions();
    QVERIFY(!m_driver->vaultIsOpen());
}

void TestMainWindowFrame::failedLockKeepsTheWindowOpen() {
    QVERIFY(openSample());
    FakeDesktop desktop(u"file"_s);
    QVERIFY(m_driver->activateRow(u"a.txt"_s));
    QCOMPARE(desktop.opened.size(), 1);
    const QString copy = desktop.opened.first().toLocalFile();
    QVERIFY(Tessel::Tests::writeFile(copy, "changed"));
    QFile file(copy);
    QVERIFY(file.open(QIODevice::ReadWrite));
    QVERIFY(file.setFileTime(QDateTime::currentDateTime().addSecs(60),
                             QFileDevice::FileModificationTime));
    file.close();
    // The changed copy cannot be taken back while the container is away.
    QVERIFY(QFile::rename(containerPath(), m_folder->filePath(u"away"_s)));

    m_driver->dialogs.acceptWarning(Title);
    QVERIFY(!m_driver->window.close());
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Não foi possível bloquear o cofre."_s);
    QVERIFY(m_driver->window.isVisible());
    QVERIFY(m_driver->vaultIsOpen());
    QVERIFY(QFileInfo::exists(copy));

    QVERIFY(QFile::rename(m_folder->filePath(u"away"_s), containerPath()));
    QVERIFY(m_driver->window.close());
    QVERIFY(!QFileInfo::exists(copy));
}

void TestMainWindowFrame::openDialogKeepsTheWindowOpen() {
    QVERIFY(CraftedContainer().writeTo(containerPath()));
    QVERIFY(m_driver->chooseContainer(containerPath()));
    m_driver->dialogs.handle(PasswordTitle, [this](QDialog* dialog) {
        QVERIFY(!m_driver->window.close());
        m_driver->action(u"Sair"_s)->trigger();
        dialog->reject();
    });
    m_driver->action(u"Desbloquear"_s)->trigger();
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QVERIFY(m_driver->window.isVisible());
}

void TestMainWindowFrame::nothingElseStartsDuringALongOperation() {
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
    m_driver->dialogs.press(u"Compactar cofre"_s, u"Sim"_s);
    m_driver->dialogs.acceptInformation(u"Compactar cofre"_s);
    m_driver->action(u"Compactar cofre..."_s)->trigger();
    QVERIFY(movements > 0);
    QVERIFY2(m_driver->dialogs.finished(), qPrintable(m_driver->dialogs.problems()));
    QCOMPARE(m_driver->dialogs.lastText(), u"Cofre compactado com sucesso."_s);
    QVERIFY(m_driver->vaultIsOpen());
    QVERIFY(m_driver->window.isVisible());
    QVERIFY(desktop.opened.isEmpty());
}

void TestMainWindowFrame::progressDialogCannotBeClosed_data() {
    using Attempt = std::function<void(QProgressDialog*)>;
    QTest::addColumn<Attempt>("attempt");
    QTest::newRow("close button") << Attempt([](QProgressDialog* dialog) { dialog->close(); });
    QTest::newRow("Escape") << Attempt(
        [](QProgressDialog* dialog) { QTest::keyClick(dialog, Qt::Key_Escape); });
    QTest::newRow("Return") << Attempt(
        [](QProgressDialog* dialog) { QTest::keyClick(dialog, Qt::Key_Return); });
    QTest::newRow("reject") << Attempt([](QProgressDialog* dialog) { dialog->reject(); });
}

void TestMainWindowFrame::progressDialogCannotBeClosed() {
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

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QApplication, TestMainWindowFrame>);
#include "test_main_window_frame.moc"
