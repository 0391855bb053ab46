// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/CommandActions.h"

#include "ui/WindowText.h"

#include <QAction>
#include <QKeySequence>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>

#include <map>

namespace Tessel::UI {

namespace {

/// The menus of the bar, each made when its first action comes.
class MenuTree {
public:
    explicit MenuTree(QMenuBar* bar) : m_bar(bar) {}

    QMenu* menu(Menu which) {
        QMenu*& menu = m_menus[which];
        if (menu == nullptr) {
            const MenuSpec& spec = menuSpecs()[static_cast<std::size_t>(which)];
            const QString title = WindowText::tr(spec.title);
            menu = spec.parent == which ? m_bar->addMenu(title)
                                        : this->menu(spec.parent)->addMenu(title);
        }
        return menu;
    }

private:
    QMenuBar* m_bar;
    std::map<Menu, QMenu*> m_menus;
};

} // namespace

CommandActions::CommandActions(QMainWindow* window) : QObject(window) {
    MenuTree menus(window->menuBar());
    for (const CommandSpec& spec : commandSpecs()) {
        addAction(spec, window);
        if (spec.menu == Menu::None) {
            continue;
        }
        QMenu* menu = menus.menu(spec.menu);
        if (spec.afterSeparator) {
            menu->addSeparator();
        }
        menu->addAction(action(spec.command));
    }
}

void CommandActions::addAction(const CommandSpec& spec, QMainWindow* window) {
    auto* action = new QAction(WindowText::tr(spec.text), window);
    m_actions[static_cast<std::size_t>(spec.command)] = action;
    if (spec.shortcut != nullptr) {
        action->setShortcut(QKeySequence(QLatin1StringView(spec.shortcut)));
    }
    connect(action, &QAction::triggered, this,
            [this, command = spec.command] { Q_EMIT triggered(command); });
}

QAction* CommandActions::action(Command command) const {
    return m_actions[static_cast<std::size_t>(command)];
}

void CommandActions::enable(const CommandState& now) {
    for (const CommandSpec& spec : commandSpecs()) {
        action(spec.command)->setEnabled(isEnabled(spec, now));
    }
}

void CommandActions::fillVaultMenu(QMenu* menu, const CommandState& now) const {
    for (const VaultMenuLine& line : vaultMenuLines()) {
        if (line.filesOnly && !now.fileSelected) {
            continue;
        }
        if (line.afterSeparator) {
            menu->addSeparator();
        }
        menu->addAction(action(line.command));
    }
}

} // namespace Tessel::UI
