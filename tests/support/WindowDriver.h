// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/DialogDriver.h"
#include "ui/MainWindow.h"

#include <QString>
#include <QStringList>

class QAction;
class QLabel;
class QListWidget;
class QTableWidget;
class QToolButton;

namespace Tessel::Tests {

/// Drives the real window as a person does.
///
///     WindowDriver driver;
///     QVERIFY(driver.openVault(path, u"senha de teste"_s));
///     driver.selectRow(u"a.txt"_s);
///     driver.dialogs.press(u"Excluir arquivo"_s, u"Sim"_s);
///     driver.action(u"Excluir..."_s)->trigger();
///     QVERIFY2(driver.dialogs.finished(), qPrintable(driver.dialogs.problems()));
class WindowDriver {
public:
    WindowDriver();

    DialogDriver dialogs;
    UI::MainWindow window;

    /// Activates the window, as a click on it does, so that it gets the keys. After a dialog was
    /// answered no window is active. @return whether it became active.
    [[nodiscard]] bool activate();

    /// The action with this text, of the menus or of the window; ends the test program if there is
    /// none.
    [[nodiscard]] QAction* action(const QString& text) const;
    [[nodiscard]] QToolButton* padlock() const;
    [[nodiscard]] QListWidget* deviceList() const;
    [[nodiscard]] QTableWidget* table() const;
    [[nodiscard]] QLabel* label(const QString& objectName) const;
    [[nodiscard]] QString statusMessage() const;
    /// The message of the status bar, followed by its time unless that is the five seconds of a
    /// command's result: "Pronto (0 ms)". Empty without a message.
    [[nodiscard]] QString result() const;
    [[nodiscard]] bool vaultIsOpen() const;

    /// Chooses the container through the menu. @return whether that took exactly one file dialog.
    [[nodiscard]] bool chooseContainer(const QString& path);
    /// Unlocks through the menu. @return whether the vault is open after exactly one dialog.
    [[nodiscard]] bool unlock(const QString& password);
    /// Both, one after the other.
    [[nodiscard]] bool openVault(const QString& path, const QString& password);
    /// Opens the vault and a copy of one of its files at the root, changes the copy, and then moves
    /// the container away. The vault cannot be locked until bringBack(). @return whether all of
    /// that worked.
    [[nodiscard]] bool openWithoutWayBack(const QString& path, const QString& password,
                                          const QString& fileName);
    [[nodiscard]] static bool bringBack(const QString& path);

    /// The texts of the name column, from the top.
    [[nodiscard]] QStringList rowNames() const;
    /// The first row with this name; -1 without one.
    [[nodiscard]] int rowNamed(const QString& name) const;
    /// Clicks on the row; @return false when there is none.
    [[nodiscard]] bool selectRow(const QString& name);
    /// Double-clicks on the row; @return false when there is none.
    [[nodiscard]] bool activateRow(const QString& name);
};

} // namespace Tessel::Tests
