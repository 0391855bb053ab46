// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/WorkspaceLeftovers.h"
#include "platform/linux/LinuxDeviceManager.h"
#include "platform/linux/MountWatcher.h"
#include "ui/AboutDialog.h"
#include "ui/CommandActions.h"
#include "ui/DeviceListWidget.h"
#include "ui/HelpDialog.h"
#include "ui/LongText.h"
#include "ui/MessageBoxes.h"
#include "ui/PadlockButton.h"
#include "ui/ProductInfo.h"
#include "ui/StatusLabels.h"
#include "ui/VaultTableWidget.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QContextMenuEvent>
#include <QDesktopServices>
#include <QDialog>
#include <QHBoxLayout>
#include <QIcon>
#include <QKeyEvent>
#include <QLabel>
#include <QMenuBar>
#include <QScopeGuard>
#include <QScopedValueRollback>
#include <QScreen>
#include <QStatusBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <map>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr int ResultTimeoutMs = 5000;

/// What a key does to the chosen row beside the shortcuts of the menus.
std::optional<Command> commandOfKey(int key, bool folderIsChosen) {
    if (key == Qt::Key_F2) {
        return folderIsChosen ? Command::RenameDirectory : Command::RenameFile;
    }
    if (key == Qt::Key_Delete && folderIsChosen) {
        return Command::DeleteDirectory;
    }
    return std::nullopt;
}

QSize centralSize() {
    const QScreen* screen = QApplication::primaryScreen();
    return screen == nullptr ? DefaultCentralSize : centralSizeFor(screen->availableSize());
}

QLabel* buildApplicationIcon(int side) {
    auto* label = new QLabel;
    const qreal ratio = label->devicePixelRatioF();
    const QSize size(side, side);
    // Scaled, because QIcon never enlarges a picture and the label is to be filled.
    QPixmap pixmap = QIcon(ProductInfo::iconResource()).pixmap(size, ratio);
    pixmap = pixmap.scaled(size * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    pixmap.setDevicePixelRatio(ratio);
    label->setPixmap(pixmap);
    label->setFixedSize(size);
    label->setAccessibleName(ProductInfo::name());
    return label;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent),
      m_deviceManager(std::make_unique<Platform::Linux::LinuxDeviceManager>()) {
    buildUi();
    buildMenus();
    // After the menus: the size hint includes the menu bar.
    setFixedSize(sizeHint());
    connectSignals();
    refreshDevices();
    updateActions();
    setStatusMessage(tr("Pronto"), 0);
}

MainWindow::~MainWindow() = default;

void MainWindow::buildUi() {
    auto* central = new QWidget;
    central->setFixedSize(centralSize());
    setCentralWidget(central);
    setWindowTitle(ProductInfo::name());

    m_protectedFilesLabel = new ElidedLabel;
    m_protectedFilesLabel->setObjectName(u"protectedFilesLabel"_s);
    m_protectedFilesLabel->setTextFormat(Qt::PlainText);

    auto* layout = new QVBoxLayout(central);
    layout->addWidget(new QLabel(tr("Dispositivos USB")));
    layout->addLayout(buildDeviceRow());
    layout->addWidget(m_protectedFilesLabel);
    m_vaultTable = new VaultTableWidget;
    layout->addWidget(m_vaultTable);
    m_statusLabels = new StatusLabels(statusBar());
}

QLayout* MainWindow::buildDeviceRow() {
    m_deviceList = new DeviceListWidget;
    m_deviceList->installEventFilter(this);
    const int side = m_deviceList->minimumHeight();
    m_vaultToggleButton = new PadlockButton(side);
    auto* row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);
    row->addWidget(buildApplicationIcon(side));
    row->addWidget(m_deviceList, 1);
    row->addWidget(m_vaultToggleButton);
    return row;
}

void MainWindow::buildMenus() {
    m_actions = new CommandActions(this);
    connect(m_actions, &CommandActions::triggered, this, &MainWindow::perform);
}

void MainWindow::connectSignals() {
    connect(m_vaultToggleButton, &QToolButton::clicked, this, &MainWindow::toggleVault);
    connect(m_deviceList, &DeviceListWidget::currentVolumeChanged, this,
            &MainWindow::deviceRowChanged);
    connect(
        m_deviceList, &DeviceListWidget::volumeActivated, this,
        [this](const QString& rootPath) { runCommand([&] { openContainerOfDevice(rootPath); }); });
    auto* mounts = new Platform::Linux::MountWatcher(this);
    connect(mounts, &Platform::Linux::MountWatcher::changed, this, [this] {
        m_mountsChanged = true;
        showChangedMounts();
    });
    // The accessors read the current row. When the keyboard or code sets it, Qt moves it after the
    // selection: follow both.
    connect(m_vaultTable, &QTableWidget::itemSelectionChanged, this, &MainWindow::updateActions);
    connect(m_vaultTable, &QTableWidget::currentCellChanged, this, &MainWindow::updateActions);
    connect(m_vaultTable, &VaultTableWidget::rowActivated, this, &MainWindow::activateRow);
    connect(m_vaultTable, &VaultTableWidget::menuRequested, this, &MainWindow::showVaultMenu);
    connect(m_vaultTable, &VaultTableWidget::lettersTyped, this, &MainWindow::showLetters);
    connect(m_vaultTable, &VaultTableWidget::orderChanged, this, [this] {
        refreshVaultFiles();
        updateActions();
    });
    connect(m_vaultTable, &VaultTableWidget::parentRequested, this, [this] {
        if (!m_currentDirectory.isEmpty()) {
            navigateToParentDirectory();
        }
    });
    // Queued, because the program that the files come from waits until the drop is answered.
    connect(
        m_vaultTable, &VaultTableWidget::pathsDropped, this,
        [this](const QStringList& paths, const QString& directory) {
            runCommand([&] { importDropped(paths, directory); });
        },
        Qt::QueuedConnection);
    // Queued as well: the drag's own event loop is to end first.
    connect(
        m_vaultTable, &VaultTableWidget::rowDropped, this,
        [this](VaultTableItemKind kind, const QString& path, const QString& directory) {
            runCommand([&] { moveDropped(kind, path, directory); });
        },
        Qt::QueuedConnection);
}

QAction* MainWindow::action(Command command) const {
    return m_actions->action(command);
}

void MainWindow::perform(Command command) {
    // Not run as a command: the window refuses to close while one is running.
    if (command == Command::Quit) {
        close();
        return;
    }
    using W = MainWindow;
    using Handler = void (MainWindow::*)();
    static const std::map<Command, Handler> handlers = {
        {Command::RefreshDevices, &W::refreshDevices},
        {Command::ChooseContainer, &W::chooseContainer},
        {Command::CreateVault, &W::createVault},
        {Command::BackupContainer, &W::backupContainer},
        {Command::ChangePassword, &W::changeVaultPassword},
        {Command::Unlock, &W::unlockVault},
        {Command::Lock, &W::lockVault},
        {Command::CreateDirectory, &W::createDirectory},
        {Command::ImportFiles, &W::importFiles},
        {Command::ExportFile, &W::exportSelectedFile},
        {Command::OpenFile, &W::openSelectedFile},
        {Command::RenameDirectory, &W::renameSelectedDirectory},
        {Command::DeleteDirectory, &W::deleteSelectedDirectory},
        {Command::DeleteFile, &W::deleteSelectedFile},
        {Command::CompactVault, &W::compactVault},
        {Command::ShowHelp, &W::showHelp},
        {Command::OpenHomepage, &W::openHomepage},
        {Command::ShowAbout, &W::showAbout},
        {Command::MoveFile, &W::moveSelectedFile},
        {Command::RenameFile, &W::renameSelectedFile},
    };
    runCommand(std::bind_front(handlers.at(command), this));
}

CommandState MainWindow::commandState() const {
    return {vaultIsUnlocked(), !m_containerPath.isEmpty(), !selectedVaultPath().isEmpty(),
            selectedItemIsDirectory(), !m_vault.fileIndex().directories().isEmpty()};
}

void MainWindow::updateActions() {
    m_actions->enable(commandState());
    updateVaultToggleButton();
    updateStatusBar();
    updateProtectedFilesLabel();
}

void MainWindow::updateVaultToggleButton() {
    const bool unlocked = vaultIsUnlocked();
    const QAction* toggle = action(unlocked ? Command::Lock : Command::Unlock);
    m_vaultToggleButton->showState(unlocked, toggle->isEnabled());
}

void MainWindow::updateStatusBar() {
    m_statusLabels->showContainer(m_containerPath);
    m_statusLabels->showVaultState(vaultIsUnlocked());
}

void MainWindow::setStatusMessage(const QString& text, int timeoutMs) {
    statusBar()->showMessage(text, timeoutMs);
}

void MainWindow::showResult(const QString& text) {
    setStatusMessage(text, ResultTimeoutMs);
}

void MainWindow::showLetters(const QString& letters) {
    if (!letters.isEmpty()) {
        m_lettersMessage = tr("Procurar: %1").arg(letters);
        setStatusMessage(m_lettersMessage, 0);
    } else if (statusBar()->currentMessage() == m_lettersMessage) {
        statusBar()->clearMessage();
    }
}

void MainWindow::runCommand(const std::function<void()>& command) {
    if (m_commandRunning) {
        return;
    }
    setCommandRunning(true);
    if (keepHold()) {
        command();
    }
    setCommandRunning(false);
    showChangedMounts();
    if (m_closeRequested) {
        m_closeRequested = false;
        qApp->removeEventFilter(this);
        close();
    }
}

void MainWindow::setCommandRunning(bool running) {
    m_commandRunning = running;
    m_vaultTable->setDropsAllowed(!running && vaultIsUnlocked());
}

void MainWindow::requestClose() {
    if (m_closing || m_closeRequested) {
        return;
    }
    if (!m_commandRunning) {
        close();
        return;
    }
    // The command ends first: its questions are rejected, its writing is finished.
    m_closeRequested = true;
    qApp->installEventFilter(this);
    // There may be several: a file dialog and the question that it asks.
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        auto* dialog = qobject_cast<QDialog*>(window);
        if (dialog != nullptr && dialog->isVisible() && dialog->isModal()) {
            dialog->reject();
        }
    }
}

void MainWindow::toggleVault() {
    // The click has already toggled the button, which shows the state of the vault alone.
    updateVaultToggleButton();
    action(vaultIsUnlocked() ? Command::Lock : Command::Unlock)->trigger();
}

bool MainWindow::event(QEvent* event) {
    // A menu entry under the pointer shows its description in the status bar. These have none, and
    // the empty text would take the message away.
    return event->type() == QEvent::StatusTip || QMainWindow::event(event);
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!m_shownBefore) {
        m_shownBefore = true;
        // Queued: a message needs a visible window as its parent.
        QMetaObject::invokeMethod(this, &MainWindow::clearLeftoverCopies, Qt::QueuedConnection);
    }
}

void MainWindow::clearLeftoverCopies() {
    Core::WorkspaceLeftovers leftovers;
    leftovers.clear();
    const QStringList folders = leftovers.untoldFolders();
    if (folders.isEmpty()) {
        return;
    }
    leaveInformation(this, ProductInfo::name(),
                     tr("O Tessel foi encerrado sem bloquear o cofre. As cópias de arquivos "
                        "abertos que foram alteradas continuam em:\n\n%1\n\nImporte para o cofre "
                        "o que quiser guardar e depois apague o que restar ali.")
                         .arg(folders.join(u'\n')));
    leftovers.markTold();
}

void MainWindow::closeEvent(QCloseEvent* event) {
    if (m_commandRunning) {
        event->ignore();
        return;
    }
    setCommandRunning(true);
    const auto ended = qScopeGuard([this] { setCommandRunning(false); });
    const QScopedValueRollback closing(m_closing, true);
    if (!vaultIsUnlocked() || closeVault()) {
        event->accept();
        return;
    }
    event->ignore();
    showWarning(this, ProductInfo::name(), tr("Não foi possível bloquear o cofre."));
    // The vault is locked all the same when only its temporary folder could not be removed.
    if (!vaultIsUnlocked()) {
        refreshVaultFiles();
    }
    updateActions();
}

// --- Keyboard --------------------------------------------------------------------------------

// The table and the padlock never have the focus. The window handles the keys that mean something
// outside of dialogs, and takes them from the device list, which has it.

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    auto* dialog = event->type() == QEvent::Show ? qobject_cast<QDialog*>(watched) : nullptr;
    if (dialog != nullptr && m_closeRequested) {
        QTimer::singleShot(0, dialog, &QDialog::reject);
    }
    if (watched == m_deviceList && event->type() == QEvent::KeyPress &&
        handleKey(*static_cast<QKeyEvent*>(event))) {
        return true;
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
    if (!handleKey(*event)) {
        QMainWindow::keyPressEvent(event);
    }
}

void MainWindow::contextMenuEvent(QContextMenuEvent* event) {
    if (event->reason() == QContextMenuEvent::Keyboard && vaultIsUnlocked()) {
        m_vaultTable->requestMenuAtCurrentRow();
    } else {
        QMainWindow::contextMenuEvent(event);
    }
}

bool MainWindow::handleKey(const QKeyEvent& event) {
    // Enter and the arrows of the number pad count as well.
    const Qt::KeyboardModifiers modifiers = event.modifiers() & ~Qt::KeypadModifier;
    if (m_commandRunning) {
        return false;
    }
    if (event.key() == Qt::Key_F10 && modifiers == Qt::NoModifier) {
        menuBar()->setActiveAction(menuBar()->actions().constFirst());
        return true;
    }
    if (event.key() == Qt::Key_F10 && modifiers == Qt::ShiftModifier && vaultIsUnlocked()) {
        m_vaultTable->requestMenuAtCurrentRow();
        return true;
    }
    // What a key types already says whether Shift or AltGr is held.
    const bool types = !modifiers.testAnyFlags(~(Qt::ShiftModifier | Qt::GroupSwitchModifier));
    if (types && vaultIsUnlocked() && m_vaultTable->typeLetters(event.text())) {
        return true;
    }
    if (modifiers != Qt::NoModifier) {
        return false;
    }
    if (vaultIsUnlocked()) {
        const std::optional<Command> command = commandOfKey(event.key(), selectedItemIsDirectory());
        if (!command) {
            return m_vaultTable->handleKey(event.key());
        }
        action(*command)->trigger();
        return true;
    }
    const bool isEnter = event.key() == Qt::Key_Return || event.key() == Qt::Key_Enter;
    return isEnter && m_deviceList->activateCurrent();
}

// --- About the program -----------------------------------------------------------------------

void MainWindow::showHelp() {
    HelpDialog(this).exec();
}

void MainWindow::showAbout() {
    AboutDialog(this).exec();
}

void MainWindow::openHomepage() {
    // Without a browser nothing happens; the About dialog shows the address.
    static_cast<void>(QDesktopServices::openUrl(ProductInfo::homepage()));
}

} // namespace Tessel::UI
