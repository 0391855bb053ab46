// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/ContainerCopy.h"
#include "core/ContainerLayout.h"
#include "core/ContainerManager.h"
#include "core/RegularFile.h"
#include "core/SecretBytes.h"
#include "core/SetAsideContainer.h"
#include "platform/UsbDevice.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/DisplayFormats.h"
#include "ui/MessageBoxes.h"
#include "ui/ModalProgress.h"
#include "ui/PasswordField.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QScopeGuard>
#include <QSignalBlocker>
#include <QStorageInfo>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

/// Of a row's item: the mount directory, empty when there is none.
constexpr int RootPathRole = Qt::UserRole;
/// Of a row's item: the drive's name.
constexpr int NameRole = Qt::UserRole + 1;

constexpr qsizetype MinimumPasswordBytes = 10;

QString productTitle() {
    return u"Tessel"_s;
}

QString containerFilter() {
    return MainWindow::tr("Tessel Container (*.tvlt);;Todos os arquivos (*.*)");
}

QString backupTitle() {
    return MainWindow::tr("Fazer backup");
}

/// A directory in the one form in which two of them can be compared: slashes, one at the end.
QString normalizeDirectoryPath(const QString& path) {
    // A path this short may be a root or a drive, whose slash belongs to it.
    constexpr qsizetype ShortestTrimmed = 4;
    QString normalized = QDir::fromNativeSeparators(path.trimmed());
    while (normalized.endsWith(u'/') && normalized.size() >= ShortestTrimmed) {
        normalized.chop(1);
    }
    if (!normalized.endsWith(u'/')) {
        normalized.append(u'/');
    }
    return normalized;
}

QString deviceLocation(const Platform::UsbDevice& device) {
    if (device.mounted) {
        return device.rootPath;
    }
    return device.devicePath.isEmpty() ? MainWindow::tr("não montado") : device.devicePath;
}

/// What follows a drive's name and place: its free space, or that it is not mounted.
QString deviceRemark(const Platform::UsbDevice& device) {
    if (!device.mounted) {
        return MainWindow::tr(" | não montado");
    }
    const QStorageInfo storage(device.rootPath);
    if (!storage.isValid() || !storage.isReady()) {
        return {};
    }
    const QString free = MainWindow::tr("%1 livres").arg(formatFileSize(storage.bytesFree()));
    return u" | %1"_s.arg(free);
}

void clearAssociation(QListWidgetItem* item) {
    item->setData(Qt::BackgroundRole, QVariant());
    item->setToolTip(QString());
    QFont font = item->font();
    font.setWeight(QFont::Normal);
    item->setFont(font);
}

void markAssociation(QListWidgetItem* item) {
    QFont font = item->font();
    font.setWeight(QFont::Bold);
    item->setFont(font);
    item->setBackground(QColor(222, 237, 255));
    item->setToolTip(MainWindow::tr("Dispositivo associado ao container selecionado."));
}

/// Takes the lock on what is about to be replaced. @return false when another window has that
/// vault open; true also when there is nothing to replace.
bool acquireIfThere(Core::ContainerLock* lock, const QString& path) {
    return !QFileInfo::exists(path) || lock->acquire(path);
}

} // namespace

// --- Devices ---------------------------------------------------------------------------------

void MainWindow::refreshDevices() {
    {
        // The rows are made current below, once all of them are there.
        const QSignalBlocker blocker(m_deviceList);
        m_deviceList->clear();
    }
    if (m_deviceManager == nullptr) {
        m_deviceList->addItem(tr("Detecção de USB ainda não disponível neste sistema."));
        selectDeviceForContainer(m_containerPath);
        updateActions();
        return;
    }
    const QList<Platform::UsbDevice> devices = m_deviceManager->detectUsbDevices();
    if (devices.isEmpty()) {
        m_deviceList->addItem(tr("Nenhum dispositivo USB detectado."));
        selectDeviceForContainer(m_containerPath);
        updateActions();
        return;
    }
    for (const Platform::UsbDevice& device : devices) {
        addDeviceRow(device);
    }
    if (m_containerPath.isEmpty()) {
        selectDefaultUsbAfterRefresh();
    } else {
        selectDeviceForContainer(m_containerPath);
    }
    updateActions();
}

void MainWindow::addDeviceRow(const Platform::UsbDevice& device) {
    const QString location = deviceLocation(device);
    const QString name = device.displayName.isEmpty() ? location : device.displayName;
    auto* item =
        new QListWidgetItem(u"%1 (%2)"_s.arg(name, location) + deviceRemark(device), m_deviceList);
    item->setData(RootPathRole, device.mounted ? device.rootPath : QString());
    item->setData(NameRole, name);
    if (!device.mounted) {
        item->setFlags(item->flags() & ~Qt::ItemIsSelectable);
        item->setForeground(QColor(110, 110, 110));
        item->setToolTip(tr("Monte a unidade USB no gerenciador de arquivos e atualize a lista."));
    }
}

void MainWindow::selectDefaultUsbAfterRefresh() {
    QListWidgetItem* onlyMounted = nullptr;
    if (mountedUsbDeviceCount() == 1) {
        for (int row = 0; row < m_deviceList->count(); ++row) {
            QListWidgetItem* item = m_deviceList->item(row);
            if (!item->data(RootPathRole).toString().isEmpty()) {
                onlyMounted = item;
            }
        }
    } else {
        m_deviceList->clearSelection();
    }
    m_deviceList->setCurrentItem(onlyMounted);
}

void MainWindow::selectDeviceForContainer(const QString& containerPath) {
    // Making a row current must not lead back here.
    const QSignalBlocker blocker(m_deviceList);
    QString containerFolder;
    if (!containerPath.isEmpty()) {
        containerFolder = normalizeDirectoryPath(QFileInfo(containerPath).absolutePath());
    }
    QListWidgetItem* match = nullptr;
    for (int row = 0; row < m_deviceList->count(); ++row) {
        QListWidgetItem* item = m_deviceList->item(row);
        clearAssociation(item);
        const QString root = item->data(RootPathRole).toString();
        if (!root.isEmpty() && containerFolder.startsWith(normalizeDirectoryPath(root))) {
            match = item;
        }
    }
    if (match == nullptr) {
        m_deviceList->clearSelection();
        m_deviceList->setCurrentItem(nullptr);
        return;
    }
    markAssociation(match);
    m_deviceList->setCurrentItem(match);
    m_deviceList->scrollToItem(match);
}

void MainWindow::deviceRowChanged() {
    if (!m_containerPath.isEmpty()) {
        selectDeviceForContainer(m_containerPath);
    }
    updateActions();
}

int MainWindow::mountedUsbDeviceCount() const {
    int count = 0;
    for (int row = 0; row < m_deviceList->count(); ++row) {
        if (!m_deviceList->item(row)->data(RootPathRole).toString().isEmpty()) {
            ++count;
        }
    }
    return count;
}

QString MainWindow::selectedUsbRootPath() const {
    const QListWidgetItem* item = m_deviceList->currentItem();
    return item == nullptr ? QString() : item->data(RootPathRole).toString();
}

QString MainWindow::selectedUsbDisplayName() const {
    const QListWidgetItem* item = m_deviceList->currentItem();
    return item == nullptr ? QString() : item->data(NameRole).toString();
}

// --- Containers ------------------------------------------------------------------------------

void MainWindow::openContainerOfDevice(const QListWidgetItem* item) {
    const QString root = item->data(RootPathRole).toString();
    // The container must not change under an open vault.
    if (root.isEmpty() || vaultIsUnlocked()) {
        return;
    }
    const QString path = Core::ContainerManager().containerPath(root);
    if (!QFileInfo(path).isFile() && !Core::hasSetAsideContainer(path)) {
        showInformation(this, productTitle(),
                        tr("Nenhum tessel.tvlt foi encontrado em %1. Use Criar cofre para criar "
                           "um novo container.")
                            .arg(root));
        return;
    }
    useContainer(path);
    updateActions();
}

void MainWindow::useContainer(const QString& containerPath) {
    m_containerPath = containerPath;
    selectDeviceForContainer(m_containerPath);
}

void MainWindow::chooseContainer() {
    const QString path = QFileDialog::getOpenFileName(this, tr("Escolher container Tessel"),
                                                      QString(), containerFilter());
    if (path.isEmpty()) {
        return;
    }
    m_currentDirectory.clear();
    useContainer(path);
    updateActions();
    showResult(tr("Container selecionado."));
}

void MainWindow::createVault() {
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Criar container Tessel"),
                                     Core::ContainerLayout::ContainerFileName, containerFilter());
    if (path.isEmpty()) {
        return;
    }
    QByteArray password = requestNewVaultPassword();
    if (password.isEmpty()) {
        return;
    }
    Core::ContainerLock lock;
    const bool created = acquireIfThere(&lock, path) && m_vault.createVault(path, password);
    Core::wipe(&password);
    if (!created) {
        showWarning(this, productTitle(), tr("Não foi possível criar o cofre."));
        return;
    }
    m_currentDirectory.clear();
    useContainer(path);
    refreshVaultFiles();
    updateActions();
    showResult(tr("Cofre criado com sucesso."));
}

// --- Opening and closing the vault -----------------------------------------------------------

QByteArray MainWindow::requestPassword(const QString& title) const {
    QInputDialog dialog;
    dialog.setWindowTitle(title);
    dialog.setLabelText(tr("Senha:"));
    dialog.setTextEchoMode(QLineEdit::Password);
    auto* field = dialog.findChild<QLineEdit*>();
    makePasswordField(field);
    QByteArray password;
    if (dialog.exec() == QDialog::Accepted) {
        password = passwordIn(*field);
    }
    wipePassword(field);
    return password;
}

QByteArray MainWindow::requestNewVaultPassword() const {
    QByteArray first = requestPassword(tr("Definir senha do cofre"));
    if (first.isEmpty()) {
        return {};
    }
    QByteArray second = requestPassword(tr("Confirmar senha do cofre"));
    auto wipeFirst = qScopeGuard([&first] { Core::wipe(&first); });
    const auto wipeSecond = qScopeGuard([&second] { Core::wipe(&second); });
    if (first != second) {
        showWarning(nullptr, productTitle(), tr("As senhas informadas não coincidem."));
        return {};
    }
    if (first.size() < MinimumPasswordBytes) {
        showWarning(nullptr, productTitle(),
                    tr("Use uma senha com pelo menos 10 caracteres para criar o cofre."));
        return {};
    }
    wipeFirst.dismiss();
    return first;
}

void MainWindow::unlockVault() {
    QByteArray password = requestPassword(tr("Senha do cofre"));
    if (password.isEmpty()) {
        return;
    }
    // The lock is taken on the file that stays.
    Core::recoverContainer(m_containerPath);
    const bool opened =
        m_containerLock.acquire(m_containerPath) && m_vault.unlockVault(m_containerPath, password);
    Core::wipe(&password);
    if (!opened) {
        showWarning(this, productTitle(),
                    tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container "
                       "foi alterado."));
    }
    // Unlocking may have put the container back that a compaction had set aside.
    static_cast<void>(m_containerLock.follow());
    // The vault is open even after a failure when only its temporary folder could not be made.
    if (vaultIsUnlocked()) {
        m_currentDirectory.clear();
        refreshVaultFiles();
        updateActions();
    } else {
        m_containerLock.release();
    }
    if (opened) {
        showResult(tr("Cofre desbloqueado."));
    }
}

bool MainWindow::keepHold() {
    if (!vaultIsUnlocked() || m_containerLock.follow()) {
        return true;
    }
    lockVault();
    return false;
}

bool MainWindow::closeVault() {
    const bool closed = m_vault.lockVault();
    if (!vaultIsUnlocked()) {
        m_containerLock.release();
    }
    return closed;
}

void MainWindow::lockVault() {
    if (!closeVault()) {
        showWarning(this, productTitle(), tr("Não foi possível limpar a área temporária."));
    }
    m_currentDirectory.clear();
    refreshVaultFiles();
    updateActions();
    showResult(tr("Cofre bloqueado."));
}

bool MainWindow::requireLockedContainer(const QString& messageWhenUnlocked) {
    if (m_containerPath.isEmpty()) {
        showInformation(this, productTitle(), tr("Selecione um container primeiro."));
        return false;
    }
    if (vaultIsUnlocked()) {
        showInformation(this, productTitle(), messageWhenUnlocked);
        return false;
    }
    return true;
}

void MainWindow::changeVaultPassword() {
    if (!requireLockedContainer(tr("Bloqueie o cofre antes de alterar a senha."))) {
        return;
    }
    ChangePasswordDialog dialog(this);
    if (dialog.exec() != QDialog::Accepted) {
        return;
    }
    QByteArray oldPassword = dialog.currentPassword();
    QByteArray newPassword = dialog.newPassword();
    Core::recoverContainer(m_containerPath);
    Core::ContainerLock lock;
    const bool changed = lock.acquire(m_containerPath) &&
                         m_vault.changePassword(m_containerPath, oldPassword, newPassword);
    Core::wipe(&oldPassword);
    Core::wipe(&newPassword);
    if (changed) {
        showResult(tr("Senha alterada com sucesso."));
        showInformation(this, productTitle(), tr("Senha alterada com sucesso."));
        return;
    }
    showWarning(this, productTitle(),
                tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
    showResult(tr("Falha ao alterar a senha."));
}

// --- Backup ----------------------------------------------------------------------------------

void MainWindow::backupContainer() {
    if (!requireLockedContainer(tr("Bloqueie o cofre antes de fazer o backup."))) {
        return;
    }
    Core::recoverContainer(m_containerPath);
    if (!QFileInfo(m_containerPath).isFile()) {
        showWarning(this, backupTitle(), tr("O arquivo do container não foi encontrado."));
        return;
    }
    const QString destinationPath = requestBackupDestination();
    if (!destinationPath.isEmpty()) {
        writeBackup(destinationPath);
    }
}

QString MainWindow::requestBackupDestination() {
    const QString now = QDateTime::currentDateTime().toString(u"yyyy-MM-dd_HHmm"_s);
    const QString proposal = QDir::home().filePath(u"tessel_backup_%1.tvlt"_s.arg(now));
    QString path = QFileDialog::getSaveFileName(this, tr("Fazer backup do container"), proposal,
                                                containerFilter());
    if (path.isEmpty()) {
        return {};
    }
    if (QFileInfo(path).absoluteFilePath() == QFileInfo(m_containerPath).absoluteFilePath()) {
        showWarning(this, backupTitle(), tr("Escolha um destino diferente do container original."));
        return {};
    }
    return path;
}

void MainWindow::writeBackup(const QString& destinationPath) {
    Core::ContainerLock lock;
    QFile source(m_containerPath);
    if (!lock.acquire(m_containerPath) || !Core::openRegularFile(source, QIODevice::ReadOnly)) {
        showWarning(this, backupTitle(), tr("Não foi possível abrir o container para backup."));
        return;
    }
    Core::ContainerLock destinationLock;
    Core::ContainerBackup backup(destinationPath);
    if (!backup.create(m_containerPath) || !acquireIfThere(&destinationLock, destinationPath)) {
        showWarning(this, backupTitle(), tr("Não foi possível criar o arquivo de backup."));
        return;
    }
    ModalProgress progress(this, backupTitle(),
                           tr("Copiando backup criptografado...\n\nO backup permanece protegido "
                              "pela senha do cofre."));
    const auto report = [&progress](qint64 done, qint64 total) {
        // Until the first piece is copied, the dialog says what a backup is.
        if (done > 0) {
            progress.report(progressValue(done, total, 1000),
                            tr("Copiando backup criptografado...\n%1 de %2")
                                .arg(formatFileSize(done), formatFileSize(total)));
        }
    };
    const bool copied = backup.copyFrom(source, report);
    source.close();
    progress.finish();

    if (copied) {
        showResult(tr("Backup do container concluído."));
        showInformation(this, backupTitle(),
                        tr("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia "
                           "criptografada do container e permanece protegido pela senha do "
                           "cofre."));
        return;
    }
    showWarning(this, backupTitle(), tr("Não foi possível concluir o backup."));
    showResult(tr("Falha ao fazer backup do container."));
}

} // namespace Tessel::UI
