// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include "ui/DeviceListWidget.h"
#include "ui/VaultTableWidget.h"

#include <QApplication>
#include <QContextMenuEvent>
#include <QDialog>
#include <QKeyEvent>
#include <QMenuBar>
#include <QTimer>

// The table and the padlock never take the keyboard's focus. What the mouse does there, these keys
// of the window do: up and down choose a row, Enter opens it, Backspace leaves a folder, left and
// right step through the orders of sorting, the menu key shows the row's menu.

namespace Tessel::UI {

namespace {

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
        m_vaultTable->requestMenuAtCurrentRow();
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
        m_vaultTable->requestMenuAtCurrentRow();
        return true;
    }
    if (modifiers != Qt::NoModifier) {
        return false;
    }
    if (vaultIsUnlocked()) {
        return m_vaultTable->handleKey(event.key());
    }
    return isEnter(event.key()) && m_deviceList->activateCurrent();
}

} // namespace Tessel::UI
