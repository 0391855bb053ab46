// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "ui/DeviceListWidget.h"
#include "ui/VaultColumns.h"
#include "ui/VaultTableWidget.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMenuBar>
#include <QTimer>

#include <algorithm>

// The table and the padlock never take the keyboard's focus. What the mouse does there, these keys
// of the window do: up and down choose a row, Enter opens it, Backspace leaves a folder, left and
// right step through the orders of sorting, the menu key shows the row's menu.

namespace Tessel::UI {

namespace {

/// Every order of the table's header, as right goes through them.
constexpr struct {
    int column;
    Qt::SortOrder order;
} SortingSteps[] = {
    {VaultColumn::Name, Qt::AscendingOrder},     {VaultColumn::Name, Qt::DescendingOrder},
    {VaultColumn::Size, Qt::AscendingOrder},     {VaultColumn::Size, Qt::DescendingOrder},
    {VaultColumn::Type, Qt::AscendingOrder},     {VaultColumn::Type, Qt::DescendingOrder},
    {VaultColumn::Modified, Qt::AscendingOrder}, {VaultColumn::Modified, Qt::DescendingOrder},
};

bool isEnter(int key) {
    return key == Qt::Key_Return || key == Qt::Key_Enter;
}

} // namespace

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
        popUpVaultMenuAtRow();
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
        popUpVaultMenuAtRow();
        return true;
    }
    if (modifiers != Qt::NoModifier) {
        return false;
    }
    if (vaultIsUnlocked()) {
        return handleVaultKey(event.key());
    }
    return isEnter(event.key()) && m_deviceList->activateCurrent();
}

bool MainWindow::handleVaultKey(int key) {
    const int row = m_vaultTable->currentRow();
    const int last = m_vaultTable->rowCount() - 1;
    const int rowHeight = m_vaultTable->verticalHeader()->defaultSectionSize();
    const int page = std::max(1, m_vaultTable->viewport()->height() / rowHeight - 1);
    switch (key) {
    case Qt::Key_Up:
        moveToVaultRow(row < 0 ? last : row - 1);
        return true;
    case Qt::Key_Down:
        moveToVaultRow(row + 1);
        return true;
    case Qt::Key_PageUp:
        moveToVaultRow(row - page);
        return true;
    case Qt::Key_PageDown:
        moveToVaultRow(row + page);
        return true;
    case Qt::Key_Home:
        moveToVaultRow(0);
        return true;
    case Qt::Key_End:
        moveToVaultRow(last);
        return true;
    case Qt::Key_Left:
        stepThroughSorting(-1);
        return true;
    case Qt::Key_Right:
        stepThroughSorting(1);
        return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
        activateItem(selectedNameItem());
        return true;
    case Qt::Key_Backspace:
        if (!m_currentDirectory.isEmpty()) {
            navigateToParentDirectory();
        }
        return true;
    default:
        return false;
    }
}

void MainWindow::moveToVaultRow(int row) {
    const int rows = m_vaultTable->rowCount();
    if (rows > 0) {
        // Keys that follow at once on an unlock or a folder come before the rows are laid out, and
        // the table could not scroll to one.
        m_vaultTable->doItemsLayout();
        m_vaultTable->setCurrentCell(std::clamp(row, 0, rows - 1), VaultColumn::Name);
    }
}

void MainWindow::stepThroughSorting(int direction) {
    const auto* const now =
        std::find_if(std::begin(SortingSteps), std::end(SortingSteps), [this](const auto& step) {
            return step.column == m_sortColumn && step.order == m_sortOrder;
        });
    const auto next = now - std::begin(SortingSteps) + direction;
    if (next >= 0 && next < std::ssize(SortingSteps)) {
        sortVaultFiles(SortingSteps[next].column, SortingSteps[next].order);
    }
}

void MainWindow::popUpVaultMenuAtRow() {
    const QTableWidgetItem* item = selectedNameItem();
    QPoint position;
    if (item != nullptr) {
        m_vaultTable->scrollToItem(item);
        position = m_vaultTable->visualItemRect(item).center();
    }
    popUpVaultMenu(position);
}

} // namespace Tessel::UI
