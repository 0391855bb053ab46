// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/CommandActions.h"
#include "ui/VaultRows.h"
#include "ui/VaultTableWidget.h"

#include <QAction>
#include <QLabel>
#include <QMenu>

namespace Tessel::UI {

void MainWindow::refreshVaultFiles() {
    QList<VaultRow> rows;
    if (vaultIsUnlocked()) {
        rows = vaultRows(m_vault.fileIndex(), m_currentDirectory, m_vaultTable->order());
    }
    m_vaultTable->showRows(rows);
    updateProtectedFilesLabel();
}

void MainWindow::updateProtectedFilesLabel() {
    if (!vaultIsUnlocked()) {
        showSummary(tr("Nenhum cofre em uso (aberto)"));
        return;
    }
    const qsizetype files = m_vault.fileIndex().entries().size();
    QString count = tr("%1 arquivos no cofre.").arg(files);
    if (files == 0) {
        count = tr("O cofre está vazio.");
    } else if (files == 1) {
        count = tr("1 arquivo no cofre.");
    }
    const QString folder = m_currentDirectory.isEmpty() ? tr("Raiz") : m_currentDirectory;
    showSummary(tr("Arquivos protegidos | Pasta: %1 | %2").arg(folder, count));
}

void MainWindow::showSummary(const QString& text) {
    m_protectedFilesLabel->setText(text);
    m_vaultTable->setAccessibleDescription(text);
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

} // namespace Tessel::UI
