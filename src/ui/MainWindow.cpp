// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/ContainerLayout.h"
#include "core/WorkspaceLeftovers.h"
#include "platform/linux/LinuxDeviceManager.h"
#include "ui/AboutDialog.h"
#include "ui/CommandActions.h"
#include "ui/DeviceListWidget.h"
#include "ui/HelpDialog.h"
#include "ui/MessageBoxes.h"
#include "ui/ProductInfo.h"
#include "ui/VaultTableWidget.h"
#include "ui/WindowGeometry.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDate>
#include <QDesktopServices>
#include <QDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QScopeGuard>
#include <QScopedValueRollback>
#include <QScreen>
#include <QSignalBlocker>
#include <QStatusBar>
#include <QTextDocument>
#include <QToolButton>
#include <QVBoxLayout>

#include <map>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

constexpr int ResultTimeoutMs = 5000;

QSize centralSize() {
    const QScreen* screen = QApplication::primaryScreen();
    return screen == nullptr ? DefaultCentralSize : centralSizeFor(screen->availableSize());
}

QLabel* buildApplicationIcon(int side) {
    auto* label = new QLabel;
    const qreal ratio = label->devicePixelRatioF();
    const QSize size(side, side);
    // An icon never enlarges its pictures; the label is to be filled whatever sizes it holds.
    QPixmap pixmap = QIcon(ProductInfo::iconResource()).pixmap(size, ratio);
    pixmap = pixmap.scaled(size * ratio, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    pixmap.setDevicePixelRatio(ratio);
    label->setPixmap(pixmap);
    label->setFixedSize(size);
    label->setAccessibleName(u"Tessel"_s);
    return label;
}

QLabel* buildStatusLabel(const QString& text, int width, const QString& objectName) {
    auto* label = new QLabel(text);
    label->setObjectName(objectName);
    label->setTextFormat(Qt::PlainText);
    label->setFixedWidth(width);
    label->setAlignment(Qt::AlignCenter);
    return label;
}

QString paddedStatusStyle() {
    return u"QLabel { font-size: 11px; padding-left: 4px; padding-right: 4px; }"_s;
}

QString vaultStateStyle(bool unlocked) {
    return unlocked ? u"QLabel { background-color: #7bd88f; color: #000000; "
                      "font-size: 11px; font-weight: 600; padding-left: 4px; "
                      "padding-right: 4px; }"_s
                    : u"QLabel { background-color: #f06a6a; color: #000000; "
                      "font-size: 11px; font-weight: 600; padding-left: 4px; "
                      "padding-right: 4px; }"_s;
}

/// A container of the usual name bears the product's name, any other one its own.
QString containerDisplayName(const QString& containerPath) {
    const QString fileName = QFileInfo(containerPath).fileName();
    const bool usual =
        fileName.compare(Core::ContainerLayout::ContainerFileName, Qt::CaseInsensitive) == 0;
    return usual ? u"Tessel"_s : fileName;
}

} // namespace

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent),
      m_deviceManager(std::make_unique<Platform::Linux::LinuxDeviceManager>()) {
    buildUi();
    buildMenus();
    // Only now does the hint include the menu bar.
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
    setWindowTitle(u"Tessel"_s);

    m_protectedFilesLabel = new QLabel;
    m_protectedFilesLabel->setObjectName(u"protectedFilesLabel"_s);
    m_protectedFilesLabel->setTextFormat(Qt::PlainText);

    auto* layout = new QVBoxLayout(central);
    layout->addWidget(new QLabel(tr("Dispositivos USB")));
    layout->addLayout(buildDeviceRow());
    layout->addWidget(m_protectedFilesLabel);
    m_vaultTable = new VaultTableWidget;
    layout->addWidget(m_vaultTable);
    buildStatusBar();
}

QLayout* MainWindow::buildDeviceRow() {
    m_deviceList = new DeviceListWidget;
    m_deviceList->installEventFilter(this);
    const int side = m_deviceList->minimumHeight();
    auto* row = new QHBoxLayout;
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(10);
    row->addWidget(buildApplicationIcon(side));
    row->addWidget(m_deviceList, 1);
    row->addWidget(buildVaultToggleButton(side));
    return row;
}

QToolButton* MainWindow::buildVaultToggleButton(int side) {
    m_vaultToggleButton = new QToolButton;
    m_vaultToggleButton->setObjectName(u"vaultToggleButton"_s);
    m_vaultToggleButton->setCheckable(true);
    m_vaultToggleButton->setAutoRaise(false);
    m_vaultToggleButton->setFocusPolicy(Qt::NoFocus);
    m_vaultToggleButton->setIconSize({48, 48});
    m_vaultToggleButton->setFixedSize(side, side);
    m_vaultToggleButton->setStyleSheet(
        u"QToolButton { border: 1px solid #d0d0d0; border-radius: 4px; background: #f7f7f7; }"
        "QToolButton:hover:enabled { background: #eeeeee; border-color: #b8b8b8; }"
        "QToolButton:pressed:enabled { background: #e2e2e2; }"
        "QToolButton:disabled { background: #f1f1f1; border-color: #dedede; }"_s);
    return m_vaultToggleButton;
}

void MainWindow::buildStatusBar() {
    m_versionLabel =
        buildStatusLabel(tr("Versão %1").arg(QLatin1StringView(ProductInfo::DefaultVersion)), 180,
                         u"versionLabel"_s);
    m_versionLabel->setStyleSheet(paddedStatusStyle());
    m_dateLabel =
        buildStatusLabel(QDate::currentDate().toString(u"dd/MM/yyyy"_s), 78, u"dateLabel"_s);
    m_dateLabel->setStyleSheet(u"QLabel { font-size: 11px; }"_s);
    m_vaultStateLabel = buildStatusLabel(tr("COFRE"), 50, u"vaultStateLabel"_s);

    statusBar()->setSizeGripEnabled(false);
    statusBar()->addPermanentWidget(buildContainerBox());
    statusBar()->addPermanentWidget(m_versionLabel);
    statusBar()->addPermanentWidget(m_dateLabel);
    statusBar()->addPermanentWidget(m_vaultStateLabel);
}

QWidget* MainWindow::buildContainerBox() {
    constexpr int BoxWidth = 140;
    constexpr int LineWidth = 1;
    auto* line = new QFrame;
    line->setFixedWidth(LineWidth);
    line->setStyleSheet(u"QFrame { background-color: #c8c8c8; }"_s);
    // A fixed width, so that the text is cut to it even before the window is first laid out.
    m_containerLabel =
        buildStatusLabel(tr("Container: nenhum"), BoxWidth - LineWidth, u"containerLabel"_s);
    m_containerLabel->setStyleSheet(paddedStatusStyle());

    auto* box = new QWidget;
    box->setFixedWidth(BoxWidth);
    auto* layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(line);
    layout->addWidget(m_containerLabel);
    return box;
}

void MainWindow::connectSignals() {
    connect(m_vaultToggleButton, &QToolButton::clicked, this, &MainWindow::toggleVault);
    connect(m_deviceList, &DeviceListWidget::currentVolumeChanged, this,
            &MainWindow::deviceRowChanged);
    connect(
        m_deviceList, &DeviceListWidget::volumeActivated, this,
        [this](const QString& rootPath) { runCommand([&] { openContainerOfDevice(rootPath); }); });
    // The accessors read the current row, which Qt moves after the selection when it is set by
    // the keyboard or from code: both have to be followed.
    connect(m_vaultTable, &QTableWidget::itemSelectionChanged, this, &MainWindow::updateActions);
    connect(m_vaultTable, &QTableWidget::currentCellChanged, this, &MainWindow::updateActions);
    connect(m_vaultTable, &VaultTableWidget::rowActivated, this, &MainWindow::activateRow);
    connect(m_vaultTable, &VaultTableWidget::menuRequested, this, &MainWindow::showVaultMenu);
    connect(m_vaultTable, &VaultTableWidget::orderChanged, this, [this] {
        refreshVaultFiles();
        updateActions();
    });
    connect(m_vaultTable, &VaultTableWidget::parentRequested, this, [this] {
        if (!m_currentDirectory.isEmpty()) {
            navigateToParentDirectory();
        }
    });
    // The program that the files come from waits until the drop has been taken.
    connect(
        m_vaultTable, &VaultTableWidget::pathsDropped, this,
        [this](const QStringList& paths) { runCommand([&] { importDropped(paths); }); },
        Qt::QueuedConnection);
}

void MainWindow::buildMenus() {
    m_actions = new CommandActions(this);
    connect(m_actions, &CommandActions::triggered, this, &MainWindow::perform);
}

QAction* MainWindow::action(Command command) const {
    return m_actions->action(command);
}

void MainWindow::perform(Command command) {
    // Closing is no command: the window refuses to close while one is running.
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
    const QSignalBlocker blocker(m_vaultToggleButton);
    const bool unlocked = vaultIsUnlocked();
    const bool enabled = action(unlocked ? Command::Lock : Command::Unlock)->isEnabled();
    m_vaultToggleButton->setEnabled(enabled);
    m_vaultToggleButton->setChecked(unlocked);
    m_vaultToggleButton->setIcon(padlockIcon(unlocked, enabled));
    if (unlocked) {
        m_vaultToggleButton->setToolTip(tr("Bloquear cofre"));
    } else if (enabled) {
        m_vaultToggleButton->setToolTip(tr("Desbloquear cofre"));
    } else {
        m_vaultToggleButton->setToolTip(tr("Selecione um container para desbloquear o cofre."));
    }
    m_vaultToggleButton->setAccessibleName(m_vaultToggleButton->toolTip());
}

void MainWindow::updateStatusBar() {
    constexpr int Padding = 8;
    const QString name =
        m_containerPath.isEmpty() ? tr("nenhum") : containerDisplayName(m_containerPath);
    const QString text = tr("Container: %1").arg(name);
    // The style sheet's font is the one to measure with.
    m_containerLabel->ensurePolished();
    m_containerLabel->setText(m_containerLabel->fontMetrics().elidedText(
        text, Qt::ElideMiddle, m_containerLabel->width() - Padding));
    m_containerLabel->setAccessibleName(text);
    // The name of a file must not be taken for markup.
    m_containerLabel->setToolTip(Qt::mightBeRichText(text) ? Qt::convertFromPlainText(text) : text);
    m_vaultStateLabel->setStyleSheet(vaultStateStyle(vaultIsUnlocked()));
}

void MainWindow::setStatusMessage(const QString& text, int timeoutMs) {
    statusBar()->showMessage(text, timeoutMs);
}

void MainWindow::showResult(const QString& text) {
    setStatusMessage(text, ResultTimeoutMs);
}

void MainWindow::setCommandRunning(bool running) {
    m_commandRunning = running;
    m_vaultTable->setDropsAllowed(!running && vaultIsUnlocked());
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
    if (m_closeRequested) {
        m_closeRequested = false;
        qApp->removeEventFilter(this);
        close();
    }
}

void MainWindow::requestClose() {
    if (m_closing || m_closeRequested) {
        return;
    }
    if (!m_commandRunning) {
        close();
        return;
    }
    // The command ends first: what it still asks is answered with no, what it writes is written.
    m_closeRequested = true;
    qApp->installEventFilter(this);
    // One may stand on another: a question on the file dialog that asks it.
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (QWidget* window : windows) {
        auto* dialog = qobject_cast<QDialog*>(window);
        if (dialog != nullptr && dialog->isVisible() && dialog->isModal()) {
            dialog->reject();
        }
    }
}

void MainWindow::toggleVault() {
    // The click has already turned the button over; only the vault may do that.
    updateVaultToggleButton();
    action(vaultIsUnlocked() ? Command::Lock : Command::Unlock)->trigger();
}

bool MainWindow::vaultIsUnlocked() const {
    return m_vault.state() == Core::VaultState::Unlocked;
}

QWidget* MainWindow::dialogParent() {
    QWidget* front = QApplication::activeModalWidget();
    return front == nullptr ? this : front;
}

void MainWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!m_shownBefore) {
        m_shownBefore = true;
        // Once the window is there: a message needs something to belong to.
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
    leaveInformation(this, u"Tessel"_s,
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
    showWarning(this, u"Tessel"_s, tr("Não foi possível bloquear o cofre."));
    // The vault is locked all the same when only its temporary folder could not be removed.
    if (!vaultIsUnlocked()) {
        refreshVaultFiles();
    }
    updateActions();
}

void MainWindow::showHelp() {
    HelpDialog(this).exec();
}

void MainWindow::showAbout() {
    AboutDialog(this).exec();
}

void MainWindow::openHomepage() {
    // Without a browser nothing happens: the address also stands in the About dialog.
    static_cast<void>(QDesktopServices::openUrl(ProductInfo::homepage()));
}

} // namespace Tessel::UI
