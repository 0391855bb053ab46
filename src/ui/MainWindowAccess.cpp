// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/ContainerManager.h"
#include "core/SecretBytes.h"
#include "core/SetAsideContainer.h"
#include "platform/UsbDevice.h"
#include "ui/BackupFlow.h"
#include "ui/ChangePasswordDialog.h"
#include "ui/DeviceListWidget.h"
#include "ui/DisplayFormats.h"
#include "ui/FilePrompts.h"
#include "ui/LockIfPresent.h"
#include "ui/MessageBoxes.h"
#include "ui/ProductInfo.h"
#include "ui/Prompts.h"
#include "ui/WaitCursor.h"

#include <QDir>
#include <QFileInfo>

namespace Tessel::UI {

// --- Devices ---------------------------------------------------------------------------------

void MainWindow::refreshDevices() {
    QList<Platform::UsbDevice> devices;
    if (m_deviceManager == nullptr) {
        m_deviceList->showMessage(tr("Detecção de USB ainda não disponível neste sistema."));
    } else {
        devices = m_deviceManager->detectUsbDevices();
        if (devices.isEmpty()) {
            m_deviceList->showMessage(tr("Nenhum dispositivo USB detectado."));
        } else {
            m_deviceList->showVolumes(devices);
        }
    }
    if (m_containerPath.isEmpty() && !devices.isEmpty()) {
        selectDefaultUsbAfterRefresh();
    } else {
        selectDeviceForContainer(m_containerPath);
    }
    updateActions();
}

void MainWindow::showChangedMounts() {
    if (!m_mountsChanged || m_commandRunning || vaultIsUnlocked()) {
        return;
    }
    m_mountsChanged = false;
    const QString device = m_deviceList->currentDevicePath();
    const QString rootPath = selectedUsbRootPath();
    refreshDevices();
    // With a container chosen, its drive is the current row.
    if (m_containerPath.isEmpty() && !device.isEmpty()) {
        m_deviceList->selectDevice(device, rootPath);
    }
}

void MainWindow::selectDefaultUsbAfterRefresh() {
    m_deviceList->selectOnlyMounted();
}

void MainWindow::selectDeviceForContainer(const QString& containerPath) {
    m_deviceList->selectForContainer(containerPath);
}

void MainWindow::deviceRowChanged() {
    if (!m_containerPath.isEmpty()) {
        selectDeviceForContainer(m_containerPath);
    }
    updateActions();
}

int MainWindow::mountedUsbDeviceCount() const {
    return m_deviceList->mountedCount();
}

QString MainWindow::selectedUsbRootPath() const {
    return m_deviceList->currentRootPath();
}

QString MainWindow::selectedUsbDisplayName() const {
    return m_deviceList->currentName();
}

// --- Containers ------------------------------------------------------------------------------

void MainWindow::openContainerOfDevice(const QString& rootPath) {
    // The container must not change under an open vault.
    if (rootPath.isEmpty() || vaultIsUnlocked()) {
        return;
    }
    const QString path = Core::ContainerManager().containerPath(rootPath);
    if (!QFileInfo(path).isFile() && !Core::hasSetAsideContainer(path)) {
        showInformation(this, ProductInfo::name(),
                        tr("Nenhum tessel.tvlt foi encontrado em %1. Use Criar cofre para criar "
                           "um novo container.")
                            .arg(nameInSentence(rootPath)));
        return;
    }
    useContainer(path);
    updateActions();
}

void MainWindow::useContainer(const QString& containerPath) {
    m_containerPath = containerPath;
    selectDeviceForContainer(m_containerPath);
}

FilePlaces MainWindow::placesFrom(const QString& start, const QString& otherwise) const {
    // Asked for again: while a vault is open, the list does not follow what is mounted.
    QStringList drives;
    if (m_deviceManager != nullptr) {
        const QList<Platform::UsbDevice> devices = m_deviceManager->detectUsbDevices();
        for (const Platform::UsbDevice& device : devices) {
            if (device.mounted) {
                drives.append(device.rootPath);
            }
        }
    }
    if (!start.isEmpty()) {
        return {start, drives};
    }
    // Not where Qt's last dialog was, which may be the drive of the container.
    return {otherwise.isEmpty() ? QDir::currentPath() : otherwise, drives};
}

void MainWindow::chooseContainer() {
    QString start = selectedUsbRootPath();
    if (start.isEmpty() && !m_containerPath.isEmpty()) {
        start = QFileInfo(m_containerPath).absolutePath();
    }
    const QString path = askContainerToOpen(this, placesFrom(start));
    if (path.isEmpty()) {
        return;
    }
    m_currentDirectory.clear();
    useContainer(path);
    updateActions();
    showResult(tr("Container selecionado."));
}

void MainWindow::createVault() {
    const QString path = askContainerToCreate(this, placesFrom(selectedUsbRootPath()));
    if (path.isEmpty()) {
        return;
    }
    QByteArray password = requestNewVaultPassword();
    if (password.isEmpty()) {
        return;
    }
    Core::ContainerLock lock;
    const bool created = runWaiting(
        [&] { return lockIfPresent(&lock, path) && m_vault.createVault(path, password); });
    Core::wipe(&password);
    if (!created) {
        showWarning(this, ProductInfo::name(), tr("Não foi possível criar o cofre."));
        return;
    }
    m_currentDirectory.clear();
    useContainer(path);
    refreshVaultFiles();
    updateActions();
    showResult(tr("Cofre criado com sucesso."));
}

// --- Opening and closing the vault -----------------------------------------------------------

bool MainWindow::vaultIsUnlocked() const {
    return m_vault.state() == Core::VaultState::Unlocked;
}

void MainWindow::unlockVault() {
    QByteArray password = requestPassword(tr("Senha do cofre"));
    if (password.isEmpty()) {
        return;
    }
    const bool opened = runWaiting([&] {
        // Before the lock: recovery may replace the file that the lock is taken on.
        Core::recoverContainer(m_containerPath);
        return m_containerLock.acquire(m_containerPath) &&
               m_vault.unlockVault(m_containerPath, password);
    });
    Core::wipe(&password);
    if (!opened) {
        showWarning(this, ProductInfo::name(),
                    tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container "
                       "foi alterado."));
    }
    // Unlocking may have put back the container that a compaction had set aside.
    static_cast<void>(m_containerLock.follow());
    // When only the temporary folder could not be made, the vault is open in spite of the failure.
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
    const bool closed = runWaiting([this] { return m_vault.lockVault(); });
    if (!vaultIsUnlocked()) {
        m_containerLock.release();
    }
    return closed;
}

void MainWindow::lockVault() {
    if (!closeVault()) {
        showWarning(this, ProductInfo::name(), tr("Não foi possível limpar a área temporária."));
    }
    m_currentDirectory.clear();
    refreshVaultFiles();
    updateActions();
    showResult(tr("Cofre bloqueado."));
}

bool MainWindow::requireLockedContainer(const QString& messageWhenUnlocked) {
    if (m_containerPath.isEmpty()) {
        showInformation(this, ProductInfo::name(), tr("Selecione um container primeiro."));
        return false;
    }
    if (vaultIsUnlocked()) {
        showInformation(this, ProductInfo::name(), messageWhenUnlocked);
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
    Core::ContainerLock lock;
    const bool changed = runWaiting([&] {
        Core::recoverContainer(m_containerPath);
        return lock.acquire(m_containerPath) &&
               m_vault.changePassword(m_containerPath, oldPassword, newPassword);
    });
    Core::wipe(&oldPassword);
    Core::wipe(&newPassword);
    if (changed) {
        showResult(tr("Senha alterada com sucesso."));
        showInformation(this, ProductInfo::name(), tr("Senha alterada com sucesso."));
        return;
    }
    showWarning(this, ProductInfo::name(),
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
    const QString destinationPath = askBackupDestination(this, placesFrom(QDir::homePath()));
    if (destinationPath.isEmpty()) {
        return;
    }
    const QString containerPath = QFileInfo(m_containerPath).absoluteFilePath();
    if (QFileInfo(destinationPath).absoluteFilePath() == containerPath) {
        showWarning(this, backupTitle(), tr("Escolha um destino diferente do container original."));
        return;
    }
    writeBackup(destinationPath);
}

void MainWindow::writeBackup(const QString& destinationPath) {
    switch (copyBackup(this, m_containerPath, destinationPath)) {
    case BackupResult::SourceNotOpened:
        showWarning(this, backupTitle(), tr("Não foi possível abrir o container para backup."));
        break;
    case BackupResult::DestinationNotCreated:
        showWarning(this, backupTitle(), tr("Não foi possível criar o arquivo de backup."));
        break;
    case BackupResult::CopyFailed:
        showWarning(this, backupTitle(), tr("Não foi possível concluir o backup."));
        showResult(tr("Falha ao fazer backup do container."));
        break;
    case BackupResult::Done:
        showResult(tr("Backup do container concluído."));
        showInformation(this, backupTitle(),
                        tr("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia "
                           "criptografada do container e permanece protegido pela senha do "
                           "cofre."));
        break;
    }
}

} // namespace Tessel::UI
