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
#include "ui/DeviceListWidget.h"
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
#include <QScopeGuard>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

namespace {

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

/// Takes the lock on what is about to be replaced. @return false when another window has that
/// vault open; true also when there is nothing to replace.
bool acquireIfThere(Core::ContainerLock* lock, const QString& path) {
    return !QFileInfo::exists(path) || lock->acquire(path);
}

} // namespace

// --- Devices ---------------------------------------------------------------------------------

void MainWindow::refreshDevices() {
    if (m_deviceManager == nullptr) {
        m_deviceList->showMessage(tr("Detecção de USB ainda não disponível neste sistema."));
        selectDeviceForContainer(m_containerPath);
        updateActions();
        return;
    }
    const QList<Platform::UsbDevice> devices = m_deviceManager->detectUsbDevices();
    if (devices.isEmpty()) {
        m_deviceList->showMessage(tr("Nenhum dispositivo USB detectado."));
        selectDeviceForContainer(m_containerPath);
        updateActions();
        return;
    }
    m_deviceList->showVolumes(devices);
    if (m_containerPath.isEmpty()) {
        selectDefaultUsbAfterRefresh();
    } else {
        selectDeviceForContainer(m_containerPath);
    }
    updateActions();
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
        showInformation(this, productTitle(),
                        tr("Nenhum tessel.tvlt foi encontrado em %1. Use Criar cofre para criar "
                           "um novo container.")
                            .arg(rootPath));
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
