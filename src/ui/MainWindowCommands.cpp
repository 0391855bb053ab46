// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/DisplayFormats.h"
#include "ui/ImportForecast.h"
#include "ui/ImportPlan.h"
#include "ui/MessageBoxes.h"
#include "ui/ModalProgress.h"
#include "ui/VaultTableWidget.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDesktopServices>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLabel>
#include <QPushButton>
#include <QStorageInfo>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

using Core::joinVaultPath;
using Core::parentVaultPath;
using Core::sameVaultPath;
using Core::SecureFileIndex;
using Core::vaultBaseName;

namespace {

/// A folder that a file can be moved to.
struct MoveDestination {
    QString label;
    /// Empty for the root.
    QString path;
};

QString productTitle() {
    return u"Tessel"_s;
}

QString badFolderName() {
    return MainWindow::tr(
        "Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.");
}

QString speedNote() {
    return MainWindow::tr("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                          "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");
}

/// Whether a file of the vault bears the path of @p directory or of a folder between it and
/// @p above. A folder from outside must not come to lie beside a file of the same name.
bool pathRunsThroughFile(const SecureFileIndex& index, const QString& directory,
                         const QString& above) {
    for (QString path = directory; !path.isEmpty() && !sameVaultPath(path, above);
         path = parentVaultPath(path)) {
        if (Core::indexContainsFilePath(index, path)) {
            return true;
        }
    }
    return false;
}

/// Whether the file can stand in the vault where the plan wants it. A name of blanks alone would
/// leave the folder's own path as the target.
bool hasAPlace(const ImportSource& file, const ImportPlan& plan, const SecureFileIndex& index) {
    return !QFileInfo(file.sourcePath).fileName().trimmed().isEmpty() &&
           !pathRunsThroughFile(index, file.directory, plan.directory);
}

/// Asks for a name. @return it without blanks around it; empty when the user gave none.
QString askName(QWidget* parent, const QString& title, const QString& label,
                const QString& proposal) {
    bool accepted = false;
    const QString name =
        QInputDialog::getText(parent, title, label, QLineEdit::Normal, proposal, &accepted);
    return accepted ? name.trimmed() : QString();
}

QList<MoveDestination> moveDestinations(const SecureFileIndex& index,
                                        const QString& currentDirectory) {
    QList<MoveDestination> destinations;
    const QList<Core::VaultDirectoryEntry> directories = index.directories();
    for (const Core::VaultDirectoryEntry& directory : directories) {
        if (!sameVaultPath(directory.path, currentDirectory)) {
            destinations.append({directory.path, directory.path});
        }
    }
    std::stable_sort(destinations.begin(), destinations.end(),
                     [](const MoveDestination& a, const MoveDestination& b) {
                         return a.path.compare(b.path, Qt::CaseInsensitive) < 0;
                     });
    if (!currentDirectory.isEmpty()) {
        destinations.prepend({MainWindow::tr("Raiz"), QString()});
    }
    return destinations;
}

/// Lets the user choose one of the destinations. @return its path; nothing when cancelled.
std::optional<QString> askMoveDestination(QWidget* parent, const QString& fileName,
                                          const QList<MoveDestination>& destinations) {
    QDialog dialog(parent);
    dialog.setWindowTitle(MainWindow::tr("Mover arquivo"));
    dialog.setModal(true);

    auto* label = new QLabel(MainWindow::tr("Mover %1 para:").arg(fileName));
    label->setTextFormat(Qt::PlainText);
    auto* combo = new QComboBox;
    // On X11 the toolkit calls it by its value, whatever name it is given.
    combo->setAccessibleDescription(label->text());
    for (const MoveDestination& destination : destinations) {
        combo->addItem(destination.label, destination.path);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Ok)->setText(MainWindow::tr("Mover"));
    buttons->button(QDialogButtonBox::Cancel)->setText(MainWindow::tr("Cancelar"));
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);

    auto* layout = new QVBoxLayout(&dialog);
    layout->addWidget(label);
    layout->addWidget(combo);
    layout->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    return combo->currentData().toString();
}

} // namespace

// --- Common steps ----------------------------------------------------------------------------

void MainWindow::vaultChanged(const QString& message) {
    refreshVaultFiles();
    updateActions();
    showResult(message);
}

bool MainWindow::vaultHolds(const QString& vaultPath) const {
    const SecureFileIndex index = m_vault.fileIndex();
    return Core::indexContainsFilePath(index, vaultPath) ||
           Core::indexContainsDirectoryPath(index, vaultPath);
}

QString MainWindow::askFreePath(const NameQuestion& question, const QString& directory,
                                const QString& presentName) {
    const QString name = askName(this, question.title, question.label, presentName);
    if (name.isEmpty() || name == presentName) {
        return {};
    }
    if (!Core::isValidVaultName(name)) {
        showWarning(this, question.title, question.badName);
        return {};
    }
    QString path = joinVaultPath(directory, name);
    if (vaultHolds(path)) {
        showWarning(this, question.title, tr("Já existe um item com esse nome nesta pasta."));
        return {};
    }
    return path;
}

QString MainWindow::selectedRealDirectory() const {
    return selectedItemIsParentDirectory() ? QString() : selectedDirectoryPath();
}

bool MainWindow::confirmExportOutsideVault(const QString& vaultPath) {
    return questionContinueCancel(
        dialogParent(), tr("Exportar arquivo"),
        tr("Exportar %1 criará uma cópia descriptografada fora do cofre. Alterações feitas nessa "
           "cópia não voltam automaticamente para o Tessel.")
            .arg(vaultPath));
}

bool MainWindow::confirmReplaceVaultFile(const QString& vaultPath) {
    return questionYesNo(
        dialogParent(), tr("Substituir arquivo"),
        tr("%1 já existe no cofre. Deseja substituir o arquivo protegido?").arg(vaultPath));
}

bool MainWindow::confirmDeleteVaultFile(const QString& vaultPath) {
    return questionYesNo(
        dialogParent(), tr("Excluir arquivo"),
        tr("Excluir %1 removerá o arquivo da lista do cofre.\n\nOs dados físicos só serão "
           "liberados do container após executar Compactar cofre.")
            .arg(vaultPath));
}

bool MainWindow::confirmCompactVault() {
    return questionYesNo(
        dialogParent(), tr("Compactar cofre"),
        tr("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
           "excluídos.\n\nDurante a operação, será criado temporariamente um container "
           "criptografado no disco local. Nenhum arquivo descriptografado será gravado fora do "
           "cofre.\n\nDeseja continuar?"));
}

// --- Importing -------------------------------------------------------------------------------

void MainWindow::importFiles() {
    const QStringList files =
        QFileDialog::getOpenFileNames(this, tr("Importar arquivos para o cofre"));
    if (files.isEmpty()) {
        return;
    }
    ImportPlan plan;
    plan.directory = m_currentDirectory;
    for (const QString& file : files) {
        plan.files.append({file, m_currentDirectory});
    }
    importPlanned(plan);
}

void MainWindow::importDropped(const QStringList& paths) {
    // The vault may have been locked since the drop.
    if (vaultIsUnlocked()) {
        importPlanned(planImport(paths, m_currentDirectory));
    }
}

void MainWindow::importPlanned(const ImportPlan& plan) {
    if (!plan.files.isEmpty() && !confirmImportFitsStorage(plan.files)) {
        return;
    }
    qsizetype imported = 0;
    qsizetype foldersMade = 0;
    {
        ModalProgress progress(this, tr("Importar arquivos"),
                               tr("Importando arquivos para o cofre...\n\n%1").arg(speedNote()));
        for (const ImportSource& file : plan.files) {
            if (!hasAPlace(file, plan, m_vault.fileIndex())) {
                warnImportFailed(file.sourcePath);
            } else if (importOneFile(file, progress)) {
                ++imported;
            }
        }
        foldersMade = makeEmptyDirectories(plan);
        for (const QString& path : plan.unusable) {
            warnImportFailed(path);
        }
        progress.finish();
    }
    refreshVaultFiles();
    refreshDevices();
    QString message = tr("%1 arquivos importados com sucesso.").arg(imported);
    if (imported == 1) {
        message = tr("Arquivo importado com sucesso.");
    } else if (plan.files.isEmpty() && foldersMade > 0) {
        message = tr("Pasta criada.");
    }
    showResult(message);
}

qsizetype MainWindow::makeEmptyDirectories(const ImportPlan& plan) {
    qsizetype made = 0;
    for (const QString& directory : plan.emptyDirectories) {
        if (Core::indexContainsDirectoryPath(m_vault.fileIndex(), directory)) {
            continue;
        }
        if (!pathRunsThroughFile(m_vault.fileIndex(), directory, plan.directory) &&
            m_vault.createDirectory(directory)) {
            ++made;
        } else {
            warnImportFailed(directory);
        }
    }
    return made;
}

void MainWindow::warnImportFailed(const QString& path) {
    showWarning(dialogParent(), productTitle(),
                tr("Não foi possível importar %1.").arg(QFileInfo(path).fileName()));
}

bool MainWindow::importOneFile(const ImportSource& source, ModalProgress& progress) {
    const QString sourceName = QFileInfo(source.sourcePath).fileName();
    const QString target = joinVaultPath(source.directory, sourceName);
    progress.report(0, tr("Importando %1...\n\n%2").arg(vaultBaseName(target), speedNote()));
    if (Core::indexContainsFilePath(m_vault.fileIndex(), target) &&
        !confirmReplaceVaultFile(target)) {
        return false;
    }
    const auto report = [&progress](qint64 done, qint64 total, const QString& name) {
        progress.report(progressValue(done, total, 0),
                        tr("Importando %1...\n%2 de %3\n\n%4")
                            .arg(name, formatFileSize(done), formatFileSize(total), speedNote()));
    };
    if (!m_vault.importFile(source.sourcePath, target, report)) {
        warnImportFailed(source.sourcePath);
        return false;
    }
    // A copy that cannot be written again counts as unchanged all the same.
    static_cast<void>(m_vault.refreshTempFile(target));
    return true;
}

bool MainWindow::confirmImportFitsStorage(const QList<ImportSource>& files) {
    const QString title = tr("Importar arquivos");
    qint64 selectedBytes = 0;
    for (const ImportSource& file : files) {
        const QFileInfo info(file.sourcePath);
        if (!info.isFile()) {
            showWarning(
                this, title,
                tr("O arquivo %1 não está disponível para importação.").arg(info.fileName()));
            return false;
        }
        selectedBytes = addByteCounts(selectedBytes, info.size());
    }
    const QStorageInfo storage(QFileInfo(m_containerPath).absolutePath());
    if (!storage.isValid() || !storage.isReady()) {
        showWarning(this, title,
                    tr("Não foi possível verificar o espaço livre da unidade do container."));
        return false;
    }
    const qint64 availableBytes = storage.bytesAvailable();
    const ImportForecast forecast = forecastImport(selectedBytes, availableBytes);
    switch (forecast.fit) {
    case ImportFit::Fits:
        return true;
    case ImportFit::LittleSpaceLeft:
        return questionYesNo(
            this, tr("Espaço livre reduzido"),
            tr("A importação deixará pouco espaço livre na unidade do container.\n\nArquivos "
               "selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja continuar?")
                .arg(formatFileSize(selectedBytes), formatFileSize(forecast.remainingBytes)));
    case ImportFit::TooLarge:
        break;
    }
    showWarning(this, tr("Espaço insuficiente"),
                tr("Não há espaço livre suficiente na unidade do container.\n\nArquivos "
                   "selecionados: %1\nEspaço livre disponível: %2\n\nLibere espaço na unidade USB "
                   "ou selecione arquivos menores.")
                    .arg(formatFileSize(selectedBytes), formatFileSize(availableBytes)));
    return false;
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
        QFileDialog::getSaveFileName(this, tr("Exportar arquivo"), vaultBaseName(path));
    if (destination.isEmpty()) {
        return;
    }
    if (takeBackEdit(path) && m_vault.exportFile(path, destination)) {
        showResult(tr("Arquivo exportado com sucesso."));
        return;
    }
    showWarning(this, productTitle(), tr("Não foi possível exportar o arquivo."));
    showResult(tr("Falha ao exportar o arquivo."));
}

void MainWindow::openSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    QString copyPath;
    // The copy is written again: what was saved in it must be in the vault first.
    if (!takeBackEdit(path) || !m_vault.prepareFileForEditing(path, &copyPath)) {
        showWarning(this, productTitle(), tr("Não foi possível preparar o arquivo para edição."));
        return;
    }
    if (QDesktopServices::openUrl(QUrl::fromLocalFile(copyPath))) {
        showResult(tr("Arquivo aberto para edição."));
        return;
    }
    showWarning(this, productTitle(), tr("Não foi possível abrir o arquivo no aplicativo padrão."));
    showResult(tr("Falha ao abrir o arquivo."));
}

void MainWindow::renameSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Renomear arquivo");
    const QString target =
        askFreePath({title, tr("Novo nome:"),
                     tr("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho "
                        "relativo.")},
                    parentVaultPath(path), vaultBaseName(path));
    if (target.isEmpty()) {
        return;
    }
    if (!m_vault.renameFile(path, target)) {
        showWarning(this, title,
                    tr("Não foi possível renomear o arquivo. Feche o arquivo se ele estiver "
                       "aberto e tente novamente."));
        return;
    }
    vaultChanged(tr("Arquivo renomeado."));
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
    showWarning(this, productTitle(), tr("Não foi possível excluir o arquivo do cofre."));
    showResult(tr("Falha ao excluir o arquivo."));
}

void MainWindow::moveSelectedFile() {
    const QString path = selectedVaultPath();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Mover arquivo");
    const QList<MoveDestination> destinations =
        moveDestinations(m_vault.fileIndex(), parentVaultPath(path));
    if (destinations.isEmpty()) {
        showInformation(this, title,
                        tr("Não há outra pasta disponível para receber este arquivo."));
        return;
    }
    const std::optional<QString> folder =
        askMoveDestination(this, vaultBaseName(path), destinations);
    if (!folder) {
        return;
    }
    if (vaultHolds(joinVaultPath(*folder, vaultBaseName(path)))) {
        showWarning(this, title, tr("Já existe um item com esse nome na pasta de destino."));
        return;
    }
    if (!m_vault.moveFile(path, *folder)) {
        showWarning(this, title,
                    tr("Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e "
                       "tente novamente."));
        return;
    }
    vaultChanged(tr("Arquivo movido."));
}

// --- Folders ---------------------------------------------------------------------------------

void MainWindow::createDirectory() {
    const QString title = tr("Nova pasta");
    const QString target =
        askFreePath({title, tr("Nome da pasta:"), badFolderName()}, m_currentDirectory, QString());
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
    const QString title = tr("Renomear pasta");
    const QString target = askFreePath({title, tr("Novo nome:"), badFolderName()},
                                       parentVaultPath(path), vaultBaseName(path));
    if (target.isEmpty()) {
        return;
    }
    if (!m_vault.renameDirectory(path, target)) {
        showWarning(this, title,
                    tr("Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e "
                       "tente novamente."));
        return;
    }
    if (sameVaultPath(m_currentDirectory, path)) {
        m_currentDirectory = target;
    }
    vaultChanged(tr("Pasta renomeada."));
}

void MainWindow::deleteSelectedDirectory() {
    const QString path = selectedRealDirectory();
    if (path.isEmpty()) {
        return;
    }
    const QString title = tr("Excluir pasta");
    if (!questionYesNo(this, title, tr("Excluir a pasta vazia %1?").arg(path))) {
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
    bool compacted = false;
    {
        ModalProgress progress(this, title,
                               tr("Compactando o cofre...\n\nSerá criado temporariamente um "
                                  "container criptografado no disco local."));
        const auto report = [&](qint64 done, qint64 total, const QString& name) {
            // The new container is locked as soon as it is there, while it is still empty: no
            // other window can open it. Holding on to the old one would keep its space occupied,
            // which the new one may need. What fails here is tried again below.
            static_cast<void>(m_containerLock.follow());
            progress.report(
                progressValue(done, total, 0),
                tr("%1...\n%2 de %3").arg(name, formatFileSize(done), formatFileSize(total)));
        };
        compacted = m_vault.compactVault(report, &preservedPath);
        progress.finish();
    }
    if (compacted) {
        refreshVaultFiles();
        refreshDevices();
        updateActions();
        showResult(tr("Cofre compactado com sucesso."));
        showInformation(this, title, tr("Cofre compactado com sucesso."));
        static_cast<void>(keepHold());
        return;
    }
    showWarning(this, title,
                preservedPath.isEmpty()
                    ? tr("Não foi possível compactar o cofre.")
                    : tr("Não foi possível substituir o container no USB.\n\nUm container "
                         "compactado criptografado foi preservado em:\n%1")
                          .arg(preservedPath));
    showResult(tr("Falha ao compactar o cofre."));
    static_cast<void>(keepHold());
}

} // namespace Tessel::UI
