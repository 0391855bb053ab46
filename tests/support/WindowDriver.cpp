// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/WindowDriver.h"

#include "support/FakeDesktop.h"

#include <QAction>
#include <QDateTime>
#include <QFile>
#include <QLabel>
#include <QListWidget>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolButton>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

constexpr int NameColumn = 1;

QPoint middleOfRow(const QTableWidget* table, int row) {
    return table->visualItemRect(table->item(row, NameColumn)).center();
}

QString awayFrom(const QString& path) {
    return path + ".away"_L1;
}

} // namespace

WindowDriver::WindowDriver() : window(nullptr) {
    window.show();
    if (!activate()) {
        qWarning("the window did not become active: keys will not reach it");
    }
}

bool WindowDriver::activate() {
    window.activateWindow();
    return QTest::qWaitForWindowActive(&window);
}

QAction* WindowDriver::action(const QString& text) const {
    const QList<QAction*> actions = window.findChildren<QAction*>();
    for (QAction* action : actions) {
        if (action->text() == text) {
            return action;
        }
    }
    qFatal("the window has no action \"%s\"", qPrintable(text));
}

QToolButton* WindowDriver::padlock() const {
    return window.findChild<QToolButton*>(u"vaultToggleButton"_s);
}

QListWidget* WindowDriver::deviceList() const {
    return window.findChild<QListWidget*>(u"deviceList"_s);
}

QTableWidget* WindowDriver::table() const {
    return window.findChild<QTableWidget*>(u"vaultTable"_s);
}

QLabel* WindowDriver::label(const QString& objectName) const {
    return window.findChild<QLabel*>(objectName);
}

QString WindowDriver::statusMessage() const {
    return window.statusBar()->currentMessage();
}

QString WindowDriver::result() const {
    constexpr int ResultTimeMs = 5000;
    const QString message = statusMessage();
    // The status bar has a timer while its message disappears by itself.
    const auto* timer = window.statusBar()->findChild<QTimer*>();
    const int timeMs = timer != nullptr && timer->isActive() ? timer->interval() : 0;
    return message.isEmpty() || timeMs == ResultTimeMs ? message
                                                       : u"%1 (%2 ms)"_s.arg(message).arg(timeMs);
}

bool WindowDriver::vaultIsOpen() const {
    return action(u"Bloquear"_s)->isEnabled();
}

bool WindowDriver::chooseContainer(const QString& path) {
    dialogs.answerFiles(u"Escolher container Tessel"_s, {path});
    action(u"Escolher container..."_s)->trigger();
    return dialogs.finished();
}

bool WindowDriver::unlock(const QString& password) {
    dialogs.answerText(u"Senha do cofre"_s, password);
    action(u"Desbloquear"_s)->trigger();
    return dialogs.finished() && vaultIsOpen();
}

bool WindowDriver::openVault(const QString& path, const QString& password) {
    return chooseContainer(path) && unlock(password);
}

bool WindowDriver::openWithoutWayBack(const QString& path, const QString& password,
                                      const QString& fileName) {
    const FakeDesktop desktop(u"file"_s);
    if (!openVault(path, password) || !activateRow(fileName) || desktop.opened.isEmpty()) {
        return false;
    }
    QFile copy(desktop.opened.first().toLocalFile());
    const QDateTime later = QDateTime::currentDateTime().addSecs(60);
    return copy.open(QIODevice::Append) && copy.write("mais") == 4 && copy.flush() &&
           copy.setFileTime(later, QFileDevice::FileModificationTime) &&
           QFile::rename(path, awayFrom(path));
}

bool WindowDriver::bringBack(const QString& path) {
    return QFile::rename(awayFrom(path), path);
}

QStringList WindowDriver::rowNames() const {
    QStringList names;
    for (int row = 0; row < table()->rowCount(); ++row) {
        names.append(table()->item(row, NameColumn)->text());
    }
    return names;
}

int WindowDriver::rowNamed(const QString& name) const {
    return static_cast<int>(rowNames().indexOf(name));
}

bool WindowDriver::selectRow(const QString& name) {
    const int row = rowNamed(name);
    if (row < 0) {
        return false;
    }
    table()->scrollToItem(table()->item(row, NameColumn));
    QTest::mouseClick(table()->viewport(), Qt::LeftButton, {}, middleOfRow(table(), row));
    return table()->currentRow() == row;
}

bool WindowDriver::activateRow(const QString& name) {
    if (!selectRow(name)) {
        return false;
    }
    const QPoint position = middleOfRow(table(), rowNamed(name));
    QTest::mouseDClick(table()->viewport(), Qt::LeftButton, {}, position);
    return true;
}

} // namespace Tessel::Tests
