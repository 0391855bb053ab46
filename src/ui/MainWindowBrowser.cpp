// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "core/SecureFileIndex.h"
#include "core/VaultPath.h"
#include "ui/CommandActions.h"
#include "ui/DisplayFormats.h"
#include "ui/VaultColumns.h"
#include "ui/VaultTableWidget.h"

#include <QAction>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QSignalBlocker>

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::UI {

using Core::parentVaultPath;
using Core::sameVaultPath;
using Core::SecureFileIndex;
using Core::vaultBaseName;
using Core::VaultDirectoryEntry;
using Core::VaultFileEntry;

namespace {

/// Of a row's item: the vault path of what the row stands for.
constexpr int VaultPathRole = Qt::UserRole;
/// Of a row's item: its VaultTableItemKind.
constexpr int KindRole = Qt::UserRole + 1;

/// One row of the table, with what it is sorted by. Names and types are worked out once, not in
/// each of the comparisons.
struct VaultRow {
    VaultTableItemKind kind = VaultTableItemKind::File;
    QString path;
    QString name;
    QString type;
    /// Of files only.
    qint64 sizeBytes = 0;
    QDateTime modifiedUtc;
};

using RowComparison = int (*)(const VaultRow& a, const VaultRow& b, int column);

QString folderTypeLabel() {
    return MainWindow::tr("Pasta");
}

int compareNames(const VaultRow& a, const VaultRow& b) {
    return a.name.compare(b.name, Qt::CaseInsensitive);
}

/// Negative, zero or positive, as @p a comes before, with or after @p b.
template <typename Value>
int compareValues(const Value& a, const Value& b) {
    if (a < b) {
        return -1;
    }
    return b < a ? 1 : 0;
}

int compareDirectoryRows(const VaultRow& a, const VaultRow& b, int column) {
    int result = 0;
    if (column == VaultColumn::Modified) {
        result = compareValues(a.modifiedUtc, b.modifiedUtc);
    }
    return result != 0 ? result : compareNames(a, b);
}

int compareFileRows(const VaultRow& a, const VaultRow& b, int column) {
    int result = 0;
    if (column == VaultColumn::Size) {
        result = compareValues(a.sizeBytes, b.sizeBytes);
    } else if (column == VaultColumn::Type) {
        result = a.type.compare(b.type, Qt::CaseInsensitive);
    } else if (column == VaultColumn::Modified) {
        result = compareValues(a.modifiedUtc, b.modifiedUtc);
    }
    return result != 0 ? result : compareNames(a, b);
}

/// Rows that compare equal keep their order, whichever way the others are sorted.
void sortVaultRows(QList<VaultRow>* rows, int column, Qt::SortOrder order, RowComparison compare) {
    std::stable_sort(rows->begin(), rows->end(), [=](const VaultRow& a, const VaultRow& b) {
        const int result = compare(a, b, column);
        return order == Qt::AscendingOrder ? result < 0 : result > 0;
    });
}

QList<VaultRow> directoryRows(const SecureFileIndex& index, const QString& directory) {
    QList<VaultRow> rows;
    const QList<VaultDirectoryEntry> entries = index.directories();
    for (const VaultDirectoryEntry& entry : entries) {
        if (sameVaultPath(parentVaultPath(entry.path), directory)) {
            rows.append({VaultTableItemKind::Directory, entry.path, vaultBaseName(entry.path),
                         folderTypeLabel(), 0, entry.modifiedUtc});
        }
    }
    return rows;
}

QList<VaultRow> fileRows(const SecureFileIndex& index, const QString& directory) {
    QList<VaultRow> rows;
    const QList<VaultFileEntry> entries = index.entries();
    for (const VaultFileEntry& entry : entries) {
        if (sameVaultPath(parentVaultPath(entry.vaultPath), directory)) {
            rows.append({VaultTableItemKind::File, entry.vaultPath, vaultBaseName(entry.vaultPath),
                         fileTypeLabel(entry.vaultPath), entry.sizeBytes, entry.lastModifiedUtc});
        }
    }
    return rows;
}

/// The row that leads up; its path is the folder it leads to.
VaultRow parentRow(const QString& directory) {
    return {VaultTableItemKind::ParentDirectory,
            parentVaultPath(directory),
            u".."_s,
            folderTypeLabel(),
            0,
            QDateTime()};
}

QTableWidgetItem* addItem(QTableWidget* table, int position, int column, const QString& text) {
    auto* item = new QTableWidgetItem(text);
    table->setItem(position, column, item);
    return item;
}

/// The two columns that say what the row stands for.
void fillIconAndName(QTableWidget* table, int position, const VaultRow& row, const QIcon& icon) {
    QTableWidgetItem* iconItem = addItem(table, position, VaultColumn::Icon, QString());
    iconItem->setIcon(icon);
    iconItem->setData(Qt::AccessibleTextRole, row.type);
    iconItem->setTextAlignment(Qt::AlignCenter);
    QTableWidgetItem* nameItem = addItem(table, position, VaultColumn::Name, row.name);
    for (QTableWidgetItem* item : {iconItem, nameItem}) {
        item->setData(VaultPathRole, row.path);
        item->setData(KindRole, static_cast<int>(row.kind));
    }
}

/// The three columns that describe it.
void fillDetails(QTableWidget* table, int position, const VaultRow& row) {
    const bool isFile = row.kind == VaultTableItemKind::File;
    QTableWidgetItem* size = addItem(table, position, VaultColumn::Size,
                                     isFile ? formatFileSize(row.sizeBytes) : QString());
    QTableWidgetItem* type = addItem(table, position, VaultColumn::Type, row.type);
    QTableWidgetItem* modified =
        addItem(table, position, VaultColumn::Modified, formatFileDate(row.modifiedUtc));
    type->setTextAlignment(Qt::AlignCenter);
    modified->setTextAlignment(Qt::AlignCenter);
    if (!isFile) {
        return;
    }
    size->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    for (QTableWidgetItem* item : {size, type, modified}) {
        item->setData(VaultPathRole, row.path);
    }
}

} // namespace

void MainWindow::refreshVaultFiles() {
    // Whoever refreshes calls updateActions() next; each step here need not.
    const QSignalBlocker blocker(m_vaultTable);
    m_vaultTable->setRowCount(0);
    m_vaultTable->clearSelection();
    m_vaultTable->setCurrentCell(-1, -1);
    updateProtectedFilesLabel();
    if (!vaultIsUnlocked()) {
        return;
    }
    appendVaultRows();
    m_vaultTable->clearSelection();
    m_vaultTable->setCurrentCell(-1, -1);
}

void MainWindow::appendVaultRows() {
    const SecureFileIndex index = m_vault.fileIndex();
    QList<VaultRow> rows;
    if (!m_currentDirectory.isEmpty()) {
        rows.append(parentRow(m_currentDirectory));
    }
    QList<VaultRow> directories = directoryRows(index, m_currentDirectory);
    sortVaultRows(&directories, m_sortColumn, m_sortOrder, compareDirectoryRows);
    rows.append(directories);
    QList<VaultRow> files = fileRows(index, m_currentDirectory);
    sortVaultRows(&files, m_sortColumn, m_sortOrder, compareFileRows);
    rows.append(files);

    m_vaultTable->setRowCount(static_cast<int>(rows.size()));
    // The model would announce each of some ten thousand items by itself; the view, which has not
    // painted these rows yet, has no use for that.
    const QSignalBlocker blocker(m_vaultTable->model());
    for (int position = 0; position < rows.size(); ++position) {
        const VaultRow& row = rows.at(position);
        fillIconAndName(m_vaultTable, position, row, m_icons.itemIcon(row.kind, row.path));
        fillDetails(m_vaultTable, position, row);
    }
}

void MainWindow::updateProtectedFilesLabel() {
    if (m_vaultTable == nullptr) {
        return;
    }
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

// --- Navigation and sorting ------------------------------------------------------------------

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
    m_currentDirectory = parentVaultPath(m_currentDirectory);
    refreshVaultFiles();
    updateActions();
}

void MainWindow::sortBySection(int section) {
    if (section == VaultColumn::Icon) {
        // The header has moved its indicator by itself.
        m_vaultTable->horizontalHeader()->setSortIndicator(m_sortColumn, m_sortOrder);
        return;
    }
    const bool turnsOver = section == m_sortColumn && m_sortOrder == Qt::AscendingOrder;
    sortVaultFiles(section, turnsOver ? Qt::DescendingOrder : Qt::AscendingOrder);
}

void MainWindow::sortVaultFiles(int column, Qt::SortOrder order) {
    m_sortColumn = column;
    m_sortOrder = order;
    m_vaultTable->horizontalHeader()->setSortIndicator(m_sortColumn, m_sortOrder);
    refreshVaultFiles();
    updateActions();
}

void MainWindow::activateItem(const QTableWidgetItem* item) {
    if (item == nullptr) {
        return;
    }
    if (selectedItemIsParentDirectory()) {
        navigateToParentDirectory();
    } else if (selectedItemIsDirectory()) {
        enterSelectedDirectory();
    } else {
        action(Command::OpenFile)->trigger();
    }
}

void MainWindow::showVaultMenu(const QPoint& position) {
    const int row = m_vaultTable->rowAt(position.y());
    if (row >= 0) {
        m_vaultTable->setCurrentCell(row, VaultColumn::Name);
    }
    popUpVaultMenu(position);
}

void MainWindow::popUpVaultMenu(const QPoint& position) {
    if (m_commandRunning) {
        return;
    }
    updateActions();

    QMenu menu(this);
    m_actions->fillVaultMenu(&menu, commandState());
    menu.exec(m_vaultTable->viewport()->mapToGlobal(position));
}

// --- Selection -------------------------------------------------------------------------------

const QTableWidgetItem* MainWindow::selectedNameItem() const {
    return m_vaultTable->item(m_vaultTable->currentRow(), VaultColumn::Name);
}

void MainWindow::selectFile(const QString& vaultPath) {
    for (int row = 0; row < m_vaultTable->rowCount(); ++row) {
        const QTableWidgetItem* item = m_vaultTable->item(row, VaultColumn::Name);
        if (item->data(KindRole).toInt() == static_cast<int>(VaultTableItemKind::File) &&
            sameVaultPath(item->data(VaultPathRole).toString(), vaultPath)) {
            m_vaultTable->setCurrentCell(row, VaultColumn::Name);
            return;
        }
    }
}

bool MainWindow::selectedItemIs(VaultTableItemKind kind) const {
    const QTableWidgetItem* item = selectedNameItem();
    return item != nullptr && item->data(KindRole).toInt() == static_cast<int>(kind);
}

QString MainWindow::selectedVaultPath() const {
    if (!selectedItemIs(VaultTableItemKind::File)) {
        return {};
    }
    return selectedNameItem()->data(VaultPathRole).toString();
}

QString MainWindow::selectedDirectoryPath() const {
    if (!selectedItemIsDirectory() && !selectedItemIsParentDirectory()) {
        return {};
    }
    return selectedNameItem()->data(VaultPathRole).toString();
}

bool MainWindow::selectedItemIsDirectory() const {
    return selectedItemIs(VaultTableItemKind::Directory);
}

bool MainWindow::selectedItemIsParentDirectory() const {
    return selectedItemIs(VaultTableItemKind::ParentDirectory);
}

} // namespace Tessel::UI
