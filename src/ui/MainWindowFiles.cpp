// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/CommandActions.h"
#include "ui/DisplayFormats.h"
#include "ui/FilePrompts.h"
#include "ui/ImportFlow.h"
#include "ui/ImportPlan.h"
#include "ui/MessageBoxes.h"
#include "ui/ModalProgress.h"
#include "ui/ProductInfo.h"
#include "ui/Prompts.h"
#include "ui/VaultRows.h"
#include "ui/VaultTableWidget.h"
#include "ui/WaitCursor.h"

#include <QAction>
#include <QDesktopServices>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QUrl>

#include <algorithm>
#include <optional>

namespace Tessel::UI {

using Core::parentVaultPath;
using Core::sameVaultPath;
using Core::vaultBaseName;

namespace {

QString badFileName() {
    return MainWindow::tr(
        "Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo.");
}

QString badFolderName() {
    return MainWindow::tr(
        "Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.");
}

} // namespace

// --- Table -----------------------------------------------------------------------------------

void MainWindow::refreshVaultFiles() {
    QList<VaultRow> rows;
    if (vaultIsUnlocked()) {
        rows = vaultRows(m_vault.fileIndex(), m_currentDirectory, m_vaultTable->order());
    }
    m_vaultTable->showRows(m_currentDirectory, rows);
    updateProtectedFilesLabel();
}

void MainWindow::updateProtectedFilesLabel() {
    const QString text = summaryText();
    m_protectedFilesLabel->setText(text);
    const QString description =
        vaultIsUnlocked() ? tr("%1 | Ordem: %2").arg(text, m_vaultTable->orderText()) : text;
    // Screen readers are told each time it is set, and so of a new order too.
    if (description != m_vaultTable->accessibleDescription()) {
        m_vaultTable->setAccessibleDescription(description);
    }
}

QString MainWindow::summaryText() const {
    if (!vaultIsUnlocked()) {
        return tr("Nenhum cofre em uso (aberto)");
    }
    const qsizetype files = m_vault.fileIndex().entries().size();
    QString count = tr("%1 arquivos no cofre.").arg(files);
    if (files == 0) {
        count = tr("O cofre está vazio.");
    } else if (files == 1) {
        count = tr("1 arquivo no cofre.");
    }
    const QString folder =
        m_currentDirectory.isEmpty() ? tr("Raiz") : nameInSentence(m_currentDirectory);
    return tr("Arquivos protegidos | Pasta: %1 | %2").arg(folder, count);
}

// --- Navigation ------------------------------------------------------------------------------

void MainWindow::enterSelectedDirectory() {
    const QString directory = selectedDirectoryPath();
    if (directory.isEmpty()) {
        return;
    }
    m_currentDirectory = directory;
    refreshVaultFiles();
    updateActions();
}

void MainWindow::navigateToParentDirectory() {
    m_currentDirectory = Core::parentVaultPath(m_currentDirectory);
    refreshVaultFiles();
    updateActions();
}

void MainWindow::activateRow() {
    if (selectedItemIsParentDirectory()) {
        navigateToParentDirectory();
    } else if (selectedItemIsDirectory()) {
        enterSelectedDirectory();
    } else {
        action(Command::OpenFile)->trigger();
    }
}

void MainWindow::showVaultMenu(const QPoint& position) {
    if (m_commandRunning) {
        return;
    }
    updateActions();
    QMenu menu(this);
    m_actions->fillVaultMenu(&menu, commandState());
    menu.exec(m_vaultTable->viewport()->mapToGlobal(position));
}

// --- Selection -------------------------------------------------------------------------------

QString MainWindow::selectedVaultPath() const {
    return m_vaultTable->currentKind() == VaultTableItemKind::File ? m_vaultTable->currentPath()
                                                                   : QString();
}

QString MainWindow::selectedDirectoryPath() const {
    const bool isFolder = selectedItemIsDirectory() || selectedItemIsParentDirectory();
    return isFolder ? m_vaultTable->currentPath() : QString();
}

bool MainWindow::selectedItemIsDirectory() const {
    return m_vaultTable->currentKind() == VaultTableItemKind::Directory;
}

bool MainWindow::selectedItemIsParentDirectory() const {
    return m_vaultTable->currentKind() == VaultTableItemKind::ParentDirectory;
}

// --- Common steps ----------------------------------------------------------------------------

void MainWindow::vaultChanged(const QString& message) {
    refreshVaultFiles();
    updateActions();
    showResult(message);
}

void MainWindow::renamed(const QString& vaultPath, const QString& message) {
    vaultChanged(message);
    m_vaultTable->continueFrom(vaultPath);
}

QString MainWindow::selectedRealDirectory() const {
    return selectedItemIsParentDirectory() ? QString() : selectedDirectoryPath();
}

bool MainWindow::confirmExportOutsideVault(const QString& vaultPath) {
    return questionContinueCancel(
        frontWindow(this), tr("Exportar arquivo"),
        tr("Exportar %1 criará uma cópia descriptografada fora do cofre. Alterações feitas nessa "
           "cópia não voltam automaticamente para o Tessel.")
            .arg(nameInSentence(vaultPath)));
}

bool MainWindow::confirmReplaceVaultFile(const QString& vaultPath) {
    return questionYesNo(frontWindow(this), tr("Substituir arquivo"),
                         tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?")
                             .arg(nameInSentence(vaultPath)));
}

bool MainWindow::confirmDeleteVaultFile(const QString& vaultPath) {
    return questionYesNo(
        frontWindow(this), tr("Excluir arquivo"),
        tr("Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
           "liberados do container após executar Compactar cofre.")
            .arg(nameInSentence(vaultPath)));
}

bool MainWindow::confirmCompactVault() {
    return questionYesNo(
        frontWindow(this), tr("Compactar cofre"),
        tr("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
           "excluídos.\n\nDurante a operação, será criado temporariamente um container "
           "criptografado no disco local. Nenhum arquivo descriptografado será gravado fora do "
           "cofre.\n\nDeseja continuar?"));
}

// --- Importing -------------------------------------------------------------------------------

bool MainWindow::confirmImportFitsStorage(const QList<ImportSource>& files) {
    return confirmImportFits(this, files, m_containerPath);
}

void MainWindow::importFiles() {
    const QStringList files = askFilesToImport(this, placesFrom(m_importFolder, m_exportFolder));
    if (files.isEmpty()) {
        return;
    }
    m_importFolder = QFileInfo(files.constFirst()).absolutePath();
    ImportPlan plan;
    plan.directory = m_currentDirectory;
    for (const QString& file : files) {
        plan.files.append({file, m_currentDirectory});
    }
    importPlanned(plan);
}

void MainWindow::importDropped(const QStringList& paths, const QString& directory) {
    // The vault may have been locked since the drop.
    if (vaultIsUnlocked()) {
        importPlanned(planImport(paths, directory));
    }
}

void MainWindow::importPlanned(const ImportPlan& plan) {
    if (!plan.files.isEmpty() && !confirmImportFitsStorage(plan.files)) {
        return;
    }
    ImportFlow flow(this, &m_vault, [this](const QString& vaultPath) {
        return confirmReplaceVaultFile(vaultPath);
    });
    const QString result = flow.run(plan);
    refreshVaultFiles();
    refreshDevices();
    showResult(result);
}

// --- Files -----------------------------------------------------------------------------------

bool MainWindow::takeBackEdit(const QString& vaultPath) {
    const QList<Core::TrackedTempFile> modified = m_vault.modifiedOpenFiles();
    const bool isModified =
        std::any_of(modified.cbegin(), modified.cend(), [&](const Core::TrackedTempFile& copy) {
            return sameVaultPath(copy.vaultPath, vaultPath);
        });
    const bool takenBack = m_vault.syncModifiedTempFile(vaultPath);
    if (isModified) {
        refreshVaultFiles();
        m_vaultTable->selectFile(vaultPath);
        updateActions();
    }
    return takenBack;
}

void MainWindow::exportSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty() || !confirmExportOutsideVault(path)) {
        return;
    }
    const QString destination =
        askExportDestination(this, placesFrom(m_exportFolder, m_importFolder), vaultBaseName(path));
    if (destination.isEmpty()) {
        return;
    }
    m_exportFolder = QFileInfo(destination).absolutePath();
    if (runWaiting([&] { return takeBackEdit(path) && m_vault.exportFile(path, destination); })) {
        showResult(tr("Arquivo exportado com sucesso."));
        return;
    }
    showWarning(this, ProductInfo::name(), tr("Não foi possível exportar o arquivo."));
    showResult(tr("Falha ao exportar o arquivo."));
}

void MainWindow::openSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    QString copyPath;
    const bool prepared = runWaiting([&] {
        // The copy is about to be overwritten: first take what was saved in it into the vault.
        return takeBackEdit(path) && m_vault.prepareFileForEditing(path, &copyPath);
    });
    if (!prepared) {
        showWarning(this, ProductInfo::name(),
                    tr("Não foi possível preparar o arquivo para edição."));
        return;
    }
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(copyPath))) {
        showResult(tr("Arquivo aberto para edição."));
        return;
    }
    showWarning(this, ProductInfo::name(),
                tr("Não foi possível abrir o arquivo no aplicativo padrão."));
    showResult(tr("Falha ao abrir o arquivo."));
}

void MainWindow::renameSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Renomear arquivo");
    const NameQuestion question = {title, tr("Novo nome:"), badFileName(), true};
    const QString target = askFreePath(this, question, m_vault.fileIndex(), parentVaultPath(path),
                                       vaultBaseName(path));
    if (target.isEmpty()) {
        return;
    }
    if (!m_vault.renameFile(path, target)) {
        showWarning(this, title,
                    tr("Não foi possível renomear o arquivo. Feche o arquivo se ele estiver "
                       "aberto e tente novamente."));
        return;
    }
    renamed(target, tr("Arquivo renomeado."));
}

void MainWindow::deleteSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty() || !confirmDeleteVaultFile(path)) {
        return;
    }
    if (m_vault.deleteFile(path)) {
        vaultChanged(tr("Arquivo excluído do cofre."));
        return;
    }
    showWarning(this, ProductInfo::name(), tr("Não foi possível excluir o arquivo do cofre."));
    showResult(tr("Falha ao excluir o arquivo."));
}

void MainWindow::moveSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    if (const auto folder = askMoveDestination(this, m_vault.fileIndex(), path)) {
        moveFileTo(path, *folder);
    }
}

void MainWindow::moveFileTo(const QString& path, const QString& directory) {
    const QString title = tr("Mover arquivo");
    if (indexHolds(m_vault.fileIndex(), Core::joinVaultPath(directory, vaultBaseName(path)))) {
        showWarning(this, title, tr("Já existe um item com esse nome na pasta de destino."));
        return;
    }
    if (!m_vault.moveFile(path, directory)) {
        showWarning(this, title,
                    tr("Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e "
                       "tente novamente."));
        return;
    }
    vaultChanged(tr("Arquivo movido."));
}

void MainWindow::moveDropped(VaultTableItemKind kind, const QString& path,
                             const QString& directory) {
    // The vault may have been locked since the drop.
    if (!vaultIsUnlocked()) {
        return;
    }
    if (kind == VaultTableItemKind::File) {
        moveFileTo(path, directory);
    } else {
        moveDirectoryTo(path, directory);
    }
}

// --- Folders ---------------------------------------------------------------------------------

void MainWindow::createDirectory() {
    const QString title = tr("Nova pasta");
    const NameQuestion question = {title, tr("Nome da pasta:"), badFolderName()};
    const QString target =
        askFreePath(this, question, m_vault.fileIndex(), m_currentDirectory, QString());
    if (target.isEmpty()) {
        return;
    }
    if (!m_vault.createDirectory(target)) {
        showWarning(this, title, tr("Não foi possível criar a pasta."));
        return;
    }
    vaultChanged(tr("Pasta criada."));
}

void MainWindow::renameSelectedDirectory() {
    const QString path = selectedRealDirectory();
    if (path.isEmpty()) {
        return;
    }
    const NameQuestion question = {tr("Renomear pasta"), tr("Novo nome:"), badFolderName()};
    const QString target = askFreePath(this, question, m_vault.fileIndex(), parentVaultPath(path),
                                       vaultBaseName(path));
    if (target.isEmpty()) {
        return;
    }
    if (!renameDirectory(path, target)) {
        return;
    }
    if (sameVaultPath(m_currentDirectory, path)) {
        m_currentDirectory = target;
    }
    renamed(target, tr("Pasta renomeada."));
}

bool MainWindow::renameDirectory(const QString& path, const QString& target) {
    if (m_vault.renameDirectory(path, target)) {
        return true;
    }
    showWarning(this, tr("Renomear pasta"),
                tr("Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e "
                   "tente novamente."));
    return false;
}

void MainWindow::moveDirectoryTo(const QString& path, const QString& directory) {
    const QString target = Core::joinVaultPath(directory, vaultBaseName(path));
    if (indexHolds(m_vault.fileIndex(), target)) {
        showWarning(this, tr("Renomear pasta"), tr("Já existe um item com esse nome nesta pasta."));
    } else if (renameDirectory(path, target)) {
        vaultChanged(tr("Pasta renomeada."));
    }
}

void MainWindow::deleteSelectedDirectory() {
    const QString path = selectedRealDirectory();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Excluir pasta");
    if (!questionYesNo(this, title, tr("Excluir a pasta vazia %1?").arg(nameInSentence(path)))) {
        return;
    }
    if (!m_vault.deleteDirectory(path)) {
        showWarning(this, title, tr("A pasta não está vazia ou não pode ser excluída."));
        return;
    }
    vaultChanged(tr("Pasta excluída."));
}

// --- Compaction ------------------------------------------------------------------------------

void MainWindow::compactVault() {
    if (!confirmCompactVault()) {
        return;
    }
    const QString title = tr("Compactar cofre");
    QString preservedPath;
    if (compactWithProgress(&preservedPath)) {
        refreshVaultFiles();
        refreshDevices();
        updateActions();
        showResult(tr("Cofre compactado com sucesso."));
        showInformation(this, title, tr("Cofre compactado com sucesso."));
    } else {
        showWarning(this, title,
                    preservedPath.isEmpty()
                        ? tr("Não foi possível compactar o cofre.")
                        : tr("Não foi possível substituir o container no USB.\n\nUm container "
                             "compactado criptografado foi preservado em:\n%1")
                              .arg(nameInSentence(preservedPath)));
        showResult(tr("Falha ao compactar o cofre."));
    }
    static_cast<void>(keepHold());
}

bool MainWindow::compactWithProgress(QString* preservedPath) {
    ModalProgress progress(this, tr("Compactar cofre"),
                           tr("Compactando o cofre...\n\nSerá criado temporariamente um container "
                              "criptografado no disco local."));
    const auto report = [&](qint64 done, qint64 total, const QString& name) {
        // Lock the new container as soon as it exists, while it is still empty: no other window
        // can open it. A lock on the old one would keep its space in use, which the new one may
        // need. A failure here is tried again after the compaction.
        static_cast<void>(m_containerLock.follow());
        progress.report(
            progressValue(done, total, 0),
            tr("%1...\n%2 de %3").arg(name, formatFileSize(done), formatFileSize(total)));
    };
    const bool compacted = m_vault.compactVault(report, preservedPath);
    progress.finish();
    return compacted;
}

} // namespace Tessel::UI
