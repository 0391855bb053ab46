// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/MainWindow.h"

#include <QAction>
#include <QCoreApplication>
#include <QKeySequence>
#include <QMenu>
#include <QMenuBar>

#include <iterator>
#include <map>

namespace Tessel::UI {

namespace {

/// The menus of the bar; Nowhere stands for actions that only the table's menu shows.
enum class Menu { File, Usb, Devices, Container, Access, Protected, About, Nowhere };

struct MenuSpec {
    Menu menu;
    /// The menu itself for one of the bar.
    Menu parent;
    const char* title;
};

/// In the order of Menu.
constexpr MenuSpec MenuSpecs[] = {
    {Menu::File, Menu::File, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Arquivo")},
    {Menu::Usb, Menu::Usb, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "USB")},
    {Menu::Devices, Menu::Usb, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Dispositivos")},
    {Menu::Container, Menu::Usb, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Container")},
    {Menu::Access, Menu::Usb, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Acesso ao cofre")},
    {Menu::Protected, Menu::Access,
     QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Arquivos protegidos")},
    {Menu::About, Menu::About, QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", "Sobre")},
};
static_assert(std::size(MenuSpecs) == static_cast<std::size_t>(Menu::Nowhere));

/// When an action is enabled.
enum class Condition {
    Always,
    VaultLocked,
    VaultLockedAndContainerChosen,
    VaultUnlocked,
    FolderSelected,
    FileSelected,
    FileSelectedAndFoldersExist,
};

struct EnablingRule {
    Command command;
    Condition condition;
};

constexpr EnablingRule EnablingRules[] = {
    {Command::Quit, Condition::Always},
    {Command::RefreshDevices, Condition::VaultLocked},
    {Command::ChooseContainer, Condition::VaultLocked},
    {Command::CreateVault, Condition::VaultLocked},
    {Command::BackupContainer, Condition::VaultLockedAndContainerChosen},
    {Command::ChangePassword, Condition::VaultLockedAndContainerChosen},
    {Command::Unlock, Condition::VaultLockedAndContainerChosen},
    {Command::Lock, Condition::VaultUnlocked},
    {Command::CreateDirectory, Condition::VaultUnlocked},
    {Command::ImportFiles, Condition::VaultUnlocked},
    {Command::CompactVault, Condition::VaultUnlocked},
    {Command::RenameDirectory, Condition::FolderSelected},
    {Command::DeleteDirectory, Condition::FolderSelected},
    {Command::ExportFile, Condition::FileSelected},
    {Command::OpenFile, Condition::FileSelected},
    {Command::RenameFile, Condition::FileSelected},
    {Command::DeleteFile, Condition::FileSelected},
    {Command::MoveFile, Condition::FileSelectedAndFoldersExist},
    {Command::ShowHelp, Condition::Always},
    {Command::OpenHomepage, Condition::Always},
    {Command::ShowAbout, Condition::Always},
};
static_assert(std::size(EnablingRules) == CommandCount);

/// What the enabling rules look at.
struct Situation {
    bool vaultUnlocked;
    bool containerChosen;
    bool fileSelected;
    bool folderSelected;
    bool foldersExist;
};

bool holds(Condition condition, const Situation& now) {
    switch (condition) {
    case Condition::Always:
        return true;
    case Condition::VaultLocked:
        return !now.vaultUnlocked;
    case Condition::VaultLockedAndContainerChosen:
        return !now.vaultUnlocked && now.containerChosen;
    case Condition::VaultUnlocked:
        return now.vaultUnlocked;
    case Condition::FolderSelected:
        return now.vaultUnlocked && now.folderSelected;
    case Condition::FileSelected:
        return now.vaultUnlocked && now.fileSelected;
    case Condition::FileSelectedAndFoldersExist:
        return now.vaultUnlocked && now.fileSelected && now.foldersExist;
    }
    return false;
}

/// The menus of the bar, each made when its first action comes.
class MenuTree {
public:
    explicit MenuTree(QMenuBar* bar) : m_bar(bar) {}

    QMenu* menu(Menu which) {
        QMenu*& menu = m_menus[which];
        if (menu == nullptr) {
            const MenuSpec& spec = MenuSpecs[static_cast<std::size_t>(which)];
            const QString title = QCoreApplication::translate("Tessel::UI::MainWindow", spec.title);
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

struct MainWindow::ActionSpec {
    Menu menu;
    bool afterSeparator;
    Command command;
    const char* text;
    /// Portable text; null for none.
    const char* shortcut;
    /// Null closes the window, which is no command: it refuses to close while one is running.
    Handler handler;
};

std::span<const MainWindow::ActionSpec> MainWindow::actionSpecs() {
    using W = MainWindow;
    using C = Command;
    using M = Menu;
    static constexpr ActionSpec specs[] = {
        {M::File, false, C::Quit, QT_TR_NOOP("Sair"), "Ctrl+Q", nullptr},
        {M::Devices, false, C::RefreshDevices, QT_TR_NOOP("Atualizar lista"), "Ctrl+F5",
         &W::refreshDevices},
        {M::Container, false, C::ChooseContainer, QT_TR_NOOP("Escolher container..."), "Ctrl+O",
         &W::chooseContainer},
        {M::Container, false, C::CreateVault, QT_TR_NOOP("Criar novo cofre..."), "Ctrl+N",
         &W::createVault},
        {M::Container, true, C::BackupContainer, QT_TR_NOOP("Fazer backup..."), "Ctrl+B",
         &W::backupContainer},
        {M::Container, true, C::ChangePassword, QT_TR_NOOP("Alterar senha..."), "Ctrl+P",
         &W::changeVaultPassword},
        {M::Access, false, C::Unlock, QT_TR_NOOP("Desbloquear"), "Ctrl+L", &W::unlockVault},
        {M::Access, false, C::Lock, QT_TR_NOOP("Bloquear"), "Ctrl+Shift+L", &W::lockVault},
        {M::Protected, false, C::CreateDirectory, QT_TR_NOOP("Nova pasta..."), "Ctrl+Shift+N",
         &W::createDirectory},
        {M::Protected, true, C::ImportFiles, QT_TR_NOOP("Importar..."), "Ctrl+I", &W::importFiles},
        {M::Protected, false, C::ExportFile, QT_TR_NOOP("Exportar..."), "Ctrl+E",
         &W::exportSelectedFile},
        {M::Protected, false, C::OpenFile, QT_TR_NOOP("Abrir"), "Return", &W::openSelectedFile},
        {M::Protected, true, C::RenameDirectory, QT_TR_NOOP("Renomear pasta..."), nullptr,
         &W::renameSelectedDirectory},
        {M::Protected, false, C::DeleteDirectory, QT_TR_NOOP("Excluir pasta vazia"), nullptr,
         &W::deleteSelectedDirectory},
        {M::Protected, true, C::DeleteFile, QT_TR_NOOP("Excluir..."), "Delete",
         &W::deleteSelectedFile},
        {M::Access, true, C::CompactVault, QT_TR_NOOP("Compactar cofre..."), "F6",
         &W::compactVault},
        {M::About, false, C::ShowHelp, QT_TR_NOOP("Ajuda"), nullptr, &W::showHelp},
        {M::About, false, C::OpenHomepage, QT_TR_NOOP("Visitar a página oficial do Tessel"),
         nullptr, &W::openHomepage},
        {M::About, true, C::ShowAbout, QT_TR_NOOP("Sobre o Tessel"), nullptr, &W::showAbout},
        {M::Nowhere, false, C::MoveFile, QT_TR_NOOP("Mover para pasta..."), nullptr,
         &W::moveSelectedFile},
        {M::Nowhere, false, C::RenameFile, QT_TR_NOOP("Renomear arquivo..."), nullptr,
         &W::renameSelectedFile},
    };
    static_assert(std::size(specs) == CommandCount);
    return specs;
}

void MainWindow::buildMenus() {
    MenuTree menus(menuBar());
    for (const ActionSpec& spec : actionSpecs()) {
        auto* action = new QAction(tr(spec.text), this);
        m_actions[static_cast<std::size_t>(spec.command)] = action;
        if (spec.shortcut != nullptr) {
            action->setShortcut(QKeySequence(QLatin1StringView(spec.shortcut)));
        }
        if (spec.handler == nullptr) {
            connect(action, &QAction::triggered, this, &QWidget::close);
        } else {
            connect(action, &QAction::triggered, this,
                    [this, handler = spec.handler] { runCommand(std::bind_front(handler, this)); });
        }
        if (spec.menu == Menu::Nowhere) {
            continue;
        }
        QMenu* menu = menus.menu(spec.menu);
        if (spec.afterSeparator) {
            menu->addSeparator();
        }
        menu->addAction(action);
    }
}

void MainWindow::updateActions() {
    const Situation now{vaultIsUnlocked(), !m_containerPath.isEmpty(),
                        !selectedVaultPath().isEmpty(), selectedItemIsDirectory(),
                        !m_vault.fileIndex().directories().isEmpty()};
    for (const EnablingRule& rule : EnablingRules) {
        action(rule.command)->setEnabled(holds(rule.condition, now));
    }
    updateVaultToggleButton();
    updateStatusBar();
    updateProtectedFilesLabel();
}

QAction* MainWindow::action(Command command) const {
    return m_actions[static_cast<std::size_t>(command)];
}

} // namespace Tessel::UI
