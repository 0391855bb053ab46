// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ui/Commands.h"

#include <QtGlobal>

#include <iterator>

// All parts of the window share one translation context.
#define WINDOW_TEXT(text) QT_TRANSLATE_NOOP("Tessel::UI::MainWindow", text)

namespace Tessel::UI {

namespace {

using M = Menu;
using C = Command;
using When = Condition;

constexpr MenuSpec MenuSpecs[] = {
    {M::File, M::File, WINDOW_TEXT("Arquivo")},
    {M::Usb, M::Usb, WINDOW_TEXT("USB")},
    {M::Devices, M::Usb, WINDOW_TEXT("Dispositivos")},
    {M::Container, M::Usb, WINDOW_TEXT("Container")},
    {M::Access, M::Usb, WINDOW_TEXT("Acesso ao cofre")},
    {M::Protected, M::Access, WINDOW_TEXT("Arquivos protegidos")},
    {M::About, M::About, WINDOW_TEXT("Sobre")},
};
static_assert(std::size(MenuSpecs) == static_cast<std::size_t>(Menu::None));

constexpr CommandSpec CommandSpecs[] = {
    {C::Quit, M::File, false, WINDOW_TEXT("Sair"), "Ctrl+Q", When::Always},
    {C::RefreshDevices, M::Devices, false, WINDOW_TEXT("Atualizar lista"), "Ctrl+F5",
     When::VaultLocked},
    {C::ChooseContainer, M::Container, false, WINDOW_TEXT("Escolher container..."), "Ctrl+O",
     When::VaultLocked},
    {C::CreateVault, M::Container, false, WINDOW_TEXT("Criar novo cofre..."), "Ctrl+N",
     When::VaultLocked},
    {C::BackupContainer, M::Container, true, WINDOW_TEXT("Fazer backup..."), "Ctrl+B",
     When::VaultLockedAndContainerChosen},
    {C::ChangePassword, M::Container, true, WINDOW_TEXT("Alterar senha..."), "Ctrl+P",
     When::VaultLockedAndContainerChosen},
    {C::Unlock, M::Access, false, WINDOW_TEXT("Desbloquear"), "Ctrl+L",
     When::VaultLockedAndContainerChosen},
    {C::Lock, M::Access, false, WINDOW_TEXT("Bloquear"), "Ctrl+Shift+L", When::VaultUnlocked},
    {C::CreateDirectory, M::Protected, false, WINDOW_TEXT("Nova pasta..."), "Ctrl+Shift+N",
     When::VaultUnlocked},
    {C::ImportFiles, M::Protected, true, WINDOW_TEXT("Importar..."), "Ctrl+I", When::VaultUnlocked},
    {C::ExportFile, M::Protected, false, WINDOW_TEXT("Exportar..."), "Ctrl+E", When::FileSelected},
    {C::OpenFile, M::Protected, false, WINDOW_TEXT("Abrir"), "Return", When::FileSelected},
    {C::RenameDirectory, M::Protected, true, WINDOW_TEXT("Renomear pasta..."), nullptr,
     When::FolderSelected},
    {C::DeleteDirectory, M::Protected, false, WINDOW_TEXT("Excluir pasta vazia"), nullptr,
     When::FolderSelected},
    {C::DeleteFile, M::Protected, true, WINDOW_TEXT("Excluir..."), "Delete", When::FileSelected},
    {C::CompactVault, M::Access, true, WINDOW_TEXT("Compactar cofre..."), "F6",
     When::VaultUnlocked},
    {C::ShowHelp, M::About, false, WINDOW_TEXT("Ajuda"), nullptr, When::Always},
    {C::OpenHomepage, M::About, false, WINDOW_TEXT("Visitar a página oficial do Tessel"), nullptr,
     When::Always},
    {C::ShowAbout, M::About, true, WINDOW_TEXT("Sobre o Tessel"), nullptr, When::Always},
    {C::MoveFile, M::None, false, WINDOW_TEXT("Mover para pasta..."), nullptr,
     When::FileSelectedAndFoldersExist},
    {C::RenameFile, M::None, false, WINDOW_TEXT("Renomear arquivo..."), nullptr,
     When::FileSelected},
};
static_assert(std::size(CommandSpecs) == CommandCount);

constexpr VaultMenuLine VaultMenuLines[] = {
    {C::CreateDirectory, false, false}, {C::RenameDirectory, false, false},
    {C::DeleteDirectory, false, false}, {C::ImportFiles, true, false},
    {C::ExportFile, false, false},      {C::OpenFile, false, false},
    {C::MoveFile, false, true},         {C::RenameFile, false, true},
    {C::DeleteFile, true, false},
};

} // namespace

std::span<const MenuSpec> menuSpecs() {
    return MenuSpecs;
}

std::span<const CommandSpec> commandSpecs() {
    return CommandSpecs;
}

std::span<const VaultMenuLine> vaultMenuLines() {
    return VaultMenuLines;
}

bool isEnabled(const CommandSpec& spec, const CommandState& now) {
    switch (spec.condition) {
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

} // namespace Tessel::UI
