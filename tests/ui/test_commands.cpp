// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/TestProgram.h"
#include "ui/Commands.h"

#include <QCoreApplication>
#include <QObject>
#include <QSet>
#include <QTest>

using Tessel::UI::Command;
using Tessel::UI::CommandCount;
using Tessel::UI::CommandSpec;
using Tessel::UI::commandSpecs;
using Tessel::UI::CommandState;
using Tessel::UI::menuSpecs;

using Commands = QSet<Command>;

namespace {

const Commands Always = {Command::Quit, Command::ShowHelp, Command::OpenHomepage,
                         Command::ShowAbout};
const Commands WhileLocked =
    Always + Commands{Command::RefreshDevices, Command::ChooseContainer, Command::CreateVault};
const Commands WithContainer =
    WhileLocked + Commands{Command::BackupContainer, Command::ChangePassword, Command::Unlock};
const Commands WhileOpen = Always + Commands{Command::Lock, Command::CreateDirectory,
                                             Command::ImportFiles, Command::CompactVault};
const Commands OnFolder = WhileOpen + Commands{Command::RenameDirectory, Command::DeleteDirectory};
const Commands OnFile = WhileOpen + Commands{Command::ExportFile, Command::OpenFile,
                                             Command::RenameFile, Command::DeleteFile};
const Commands OnMovableFile = OnFile + Commands{Command::MoveFile};

} // namespace

class TestCommands : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void stateEnablesCommands_data() {
        QTest::addColumn<CommandState>("now");
        QTest::addColumn<Commands>("enabled");
        // Vault unlocked, container chosen, file selected, folder selected, folders exist.
        const auto row = [](const char* name, CommandState now, const Commands& enabled) {
            QTest::newRow(name) << now << enabled;
        };
        row("locked, no container", {false, false, false, false, false}, WhileLocked);
        row("locked, container", {false, true, false, false, false}, WithContainer);
        row("locked, rows left over: file", {false, true, true, false, true}, WithContainer);
        row("locked, rows left over: folder", {false, true, false, true, true}, WithContainer);
        row("open, nothing or parent row", {true, true, false, false, false}, WhileOpen);
        row("open, nothing, with folders", {true, true, false, false, true}, WhileOpen);
        row("open, folder", {true, true, false, true, true}, OnFolder);
        row("open, file, no folder to move to", {true, true, true, false, false}, OnFile);
        row("open, file, with folders", {true, true, true, false, true}, OnMovableFile);
    }
    void stateEnablesCommands() {
        QFETCH(CommandState, now);
        Commands enabled;
        for (const CommandSpec& spec : commandSpecs()) {
            if (isEnabled(spec, now)) {
                enabled.insert(spec.command);
            }
        }
        QTEST(enabled, "enabled");
    }

    void eachCommandHasOneLine() {
        Commands commands;
        for (const CommandSpec& spec : commandSpecs()) {
            commands.insert(spec.command);
        }
        QCOMPARE(commands.size(), qsizetype{CommandCount});
    }

    void menusAreInTheirOrder() {
        for (std::size_t at = 0; at < menuSpecs().size(); ++at) {
            QCOMPARE(static_cast<std::size_t>(menuSpecs()[at].menu), at);
        }
    }
};

TESSEL_TEST_MAIN(Tessel::Tests::runTest<QCoreApplication, TestCommands>);
#include "test_commands.moc"
