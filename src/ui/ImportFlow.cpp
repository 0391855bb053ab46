// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/ImportFlow.h"

#include "core/SecureFileIndex.h"
#include "core/VaultManager.h"
#include "core/VaultPath.h"
#include "ui/DisplayFormats.h"
#include "ui/ImportForecast.h"
#include "ui/MessageBoxes.h"
#include "ui/ModalProgress.h"
#include "ui/ProductInfo.h"
#include "ui/WindowText.h"

#include <QFileInfo>
#include <QStorageInfo>

#include <optional>
#include <utility>

namespace Tessel::UI {

using Core::SecureFileIndex;

namespace {

QString importTitle() {
    return WindowText::tr("Importar arquivos");
}

QString speedNote() {
    return WindowText::tr("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                          "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");
}

/// Whether @p directory, or a folder between it and @p above, has the path of a file in the vault.
/// A folder from outside is not imported beside a file of the same name.
bool pathRunsThroughFile(const SecureFileIndex& index, const QString& directory,
                         const QString& above) {
    for (QString path = directory; !path.isEmpty() && !Core::sameVaultPath(path, above);
         path = Core::parentVaultPath(path)) {
        if (Core::indexContainsFilePath(index, path)) {
            return true;
        }
    }
    return false;
}

/// Whether the plan's path for the file is possible in the vault. A name of blanks alone would
/// leave the folder's own path as the target.
bool hasPossiblePath(const ImportSource& file, const ImportPlan& plan,
                     const SecureFileIndex& index) {
    return !QFileInfo(file.sourcePath).fileName().trimmed().isEmpty() &&
           !pathRunsThroughFile(index, file.directory, plan.directory);
}

/// The sum of the sizes; nothing when a file is not available, which the user has been told.
std::optional<qint64> sizeOfFiles(QWidget* parent, const QList<ImportSource>& files) {
    qint64 bytes = 0;
    for (const ImportSource& file : files) {
        const QFileInfo info(file.sourcePath);
        if (!info.isFile()) {
            showWarning(parent, importTitle(),
                        WindowText::tr("O arquivo %1 não está disponível para importação.")
                            .arg(nameInSentence(info.fileName())));
            return std::nullopt;
        }
        bytes = addByteCounts(bytes, info.size());
    }
    return bytes;
}

bool askAboutLittleSpace(QWidget* parent, qint64 selectedBytes, qint64 remainingBytes) {
    return questionYesNo(
        parent, WindowText::tr("Espaço livre reduzido"),
        WindowText::tr("A importação deixará pouco espaço livre na unidade do container.\n\n"
                       "Arquivos selecionados: %1\nEspaço livre restante estimado: %2\n\n"
                       "Deseja continuar?")
            .arg(formatFileSize(selectedBytes), formatFileSize(remainingBytes)));
}

void warnTooLarge(QWidget* parent, qint64 selectedBytes, qint64 availableBytes) {
    showWarning(parent, WindowText::tr("Espaço insuficiente"),
                WindowText::tr("Não há espaço livre suficiente na unidade do container.\n\n"
                               "Arquivos selecionados: %1\nEspaço livre disponível: %2\n\n"
                               "Libere espaço na unidade USB ou selecione arquivos menores.")
                    .arg(formatFileSize(selectedBytes), formatFileSize(availableBytes)));
}

} // namespace

bool confirmImportFits(QWidget* parent, const QList<ImportSource>& files,
                       const QString& containerPath) {
    const std::optional<qint64> selectedBytes = sizeOfFiles(parent, files);
    if (!selectedBytes) {
        return false;
    }
    const QStorageInfo storage(QFileInfo(containerPath).absolutePath());
    if (!storage.isValid() || !storage.isReady()) {
        showWarning(
            parent, importTitle(),
            WindowText::tr("Não foi possível verificar o espaço livre da unidade do container."));
        return false;
    }
    const qint64 availableBytes = storage.bytesAvailable();
    const ImportForecast forecast = forecastImport(*selectedBytes, availableBytes);
    switch (forecast.fit) {
    case ImportFit::Fits:
        return true;
    case ImportFit::LittleSpaceLeft:
        return askAboutLittleSpace(parent, *selectedBytes, forecast.remainingBytes);
    case ImportFit::TooLarge:
        break;
    }
    warnTooLarge(parent, *selectedBytes, availableBytes);
    return false;
}

ImportFlow::ImportFlow(QWidget* window, Core::VaultManager* vault, ConfirmReplace confirmReplace)
    : m_window(window), m_vault(vault), m_confirmReplace(std::move(confirmReplace)) {}

QString ImportFlow::run(const ImportPlan& plan) {
    ModalProgress progress(
        m_window, importTitle(),
        WindowText::tr("Importando arquivos para o cofre...\n\n%1").arg(speedNote()));
    qsizetype imported = 0;
    qsizetype number = 0;
    for (const ImportSource& file : plan.files) {
        progress.showPart(++number, plan.files.size());
        if (!hasPossiblePath(file, plan, m_vault->fileIndex())) {
            warnImportFailed(file.sourcePath);
        } else if (importFile(file, progress)) {
            ++imported;
        }
    }
    const qsizetype foldersMade = makeEmptyDirectories(plan);
    for (const QString& path : plan.unusable) {
        warnImportFailed(path);
    }
    progress.finish();
    if (imported == 1) {
        return WindowText::tr("Arquivo importado com sucesso.");
    }
    if (plan.files.isEmpty() && foldersMade > 0) {
        return WindowText::tr("Pasta criada.");
    }
    return WindowText::tr("%1 arquivos importados com sucesso.").arg(imported);
}

bool ImportFlow::importFile(const ImportSource& source, ModalProgress& progress) {
    const QString sourceName = QFileInfo(source.sourcePath).fileName();
    const QString target = Core::joinVaultPath(source.directory, sourceName);
    progress.report(0, WindowText::tr("Importando %1...\n\n%2")
                           .arg(nameInSentence(Core::vaultBaseName(target)), speedNote()));
    if (Core::indexContainsFilePath(m_vault->fileIndex(), target) && !m_confirmReplace(target)) {
        return false;
    }
    const auto report = [&progress](qint64 done, qint64 total, const QString& name) {
        progress.report(progressValue(done, total, 0),
                        WindowText::tr("Importando %1...\n%2 de %3\n\n%4")
                            .arg(nameInSentence(name), formatFileSize(done), formatFileSize(total),
                                 speedNote()));
    };
    if (!m_vault->importFile(source.sourcePath, target, report)) {
        warnImportFailed(source.sourcePath);
        return false;
    }
    // When the opened copy cannot be written again, it counts as unchanged all the same.
    static_cast<void>(m_vault->refreshTempFile(target));
    return true;
}

qsizetype ImportFlow::makeEmptyDirectories(const ImportPlan& plan) {
    qsizetype made = 0;
    for (const QString& directory : plan.emptyDirectories) {
        if (Core::indexContainsDirectoryPath(m_vault->fileIndex(), directory)) {
            continue;
        }
        if (!pathRunsThroughFile(m_vault->fileIndex(), directory, plan.directory) &&
            m_vault->createDirectory(directory)) {
            ++made;
        } else {
            warnImportFailed(directory);
        }
    }
    return made;
}

void ImportFlow::warnImportFailed(const QString& path) {
    showWarning(frontWindow(m_window), ProductInfo::name(),
                WindowText::tr("Não foi possível importar %1.")
                    .arg(nameInSentence(QFileInfo(path).fileName())));
}

} // namespace Tessel::UI
