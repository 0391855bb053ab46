// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "ui/Commands.h"

#include <QObject>

#include <array>

class QAction;
class QMainWindow;
class QMenu;

namespace Tessel::UI {

/// The window's actions, one for each command, and the menus that show them.
class CommandActions : public QObject {
    Q_OBJECT

public:
    /// Makes the actions and fills the window's menu bar. All of it belongs to @p window.
    explicit CommandActions(QMainWindow* window);

    [[nodiscard]] QAction* action(Command command) const;
    /// Enables each action as its condition says.
    void enable(const CommandState& now);
    /// Fills a menu with the commands for the table's current row.
    void fillVaultMenu(QMenu* menu, const CommandState& now) const;

Q_SIGNALS:
    void triggered(Tessel::UI::Command command);

private:
    void addAction(const CommandSpec& spec, QMainWindow* window);

    std::array<QAction*, CommandCount> m_actions{};
};

} // namespace Tessel::UI
