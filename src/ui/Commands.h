// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <cstddef>
#include <span>

namespace Tessel::UI {

// The commands as tables, without a window: where each is shown and when it can be used.

/// What the user can ask of the window; one action each.
enum class Command {
    Quit,
    RefreshDevices,
    ChooseContainer,
    CreateVault,
    BackupContainer,
    ChangePassword,
    Unlock,
    Lock,
    CreateDirectory,
    ImportFiles,
    ExportFile,
    OpenFile,
    RenameDirectory,
    DeleteDirectory,
    DeleteFile,
    CompactVault,
    ShowHelp,
    OpenHomepage,
    ShowAbout,
    MoveFile,
    RenameFile,
};
inline constexpr std::size_t CommandCount = static_cast<std::size_t>(Command::RenameFile) + 1;

/// The menus of the bar; None for actions that only the table's menu shows.
enum class Menu { File, Usb, Devices, Container, Access, Protected, About, None };

struct MenuSpec {
    Menu menu;
    /// The menu itself when it is in the bar.
    Menu parent;
    /// To be translated in the window's context, as are the texts of the commands.
    const char* title;
};

/// When a command can be used.
enum class Condition {
    Always,
    VaultLocked,
    VaultLockedAndContainerChosen,
    VaultUnlocked,
    FolderSelected,
    FileSelected,
    FileSelectedAndFoldersExist,
};

struct CommandSpec {
    Command command;
    Menu menu;
    bool afterSeparator;
    const char* text;
    /// Portable text; null for none.
    const char* shortcut;
    Condition condition;
};

/// One line of the menu that the table pops up.
struct VaultMenuLine {
    Command command;
    bool afterSeparator;
    /// Shown for files only; the other commands are shown disabled.
    bool filesOnly;
};

/// What the conditions look at. The ".." row is neither a file nor a folder.
struct CommandState {
    bool vaultUnlocked = false;
    bool containerChosen = false;
    bool fileSelected = false;
    bool folderSelected = false;
    /// Whether the vault holds at least one folder.
    bool foldersExist = false;
};

/// In the order of Menu.
[[nodiscard]] std::span<const MenuSpec> menuSpecs();
/// Each command once, in the order of the menus.
[[nodiscard]] std::span<const CommandSpec> commandSpecs();
[[nodiscard]] std::span<const VaultMenuLine> vaultMenuLines();

[[nodiscard]] bool isEnabled(const CommandSpec& spec, const CommandState& now);

} // namespace Tessel::UI
