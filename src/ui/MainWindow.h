// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerLock.h"
#include "core/VaultManager.h"
#include "platform/DeviceManager.h"
#include "ui/Commands.h"

#include <QList>
#include <QMainWindow>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QAction;
class QLabel;
class QLayout;

namespace Tessel::UI {

class CommandActions;
class DeviceListWidget;
class PadlockButton;
class StatusLabels;
class VaultTableWidget;
struct FilePlaces;
struct ImportPlan;
struct ImportSource;
enum class VaultTableItemKind;

/// The program's one window: the USB drives, the padlock, the vault's contents and every command.
///
/// It owns the vault session. Commands run on the interface thread, one at a time: while one is
/// running, no other can be started and the window cannot be closed, although long ones process
/// events. Closing the window locks an open vault first.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;
    Q_DISABLE_COPY_MOVE(MainWindow)

    /// Rows of the device list that have a mount directory.
    [[nodiscard]] int mountedUsbDeviceCount() const;
    /// Of the current row of the device list; empty without one and for an unmounted drive.
    [[nodiscard]] QString selectedUsbRootPath() const;
    /// Of the current row of the device list; empty without one.
    [[nodiscard]] QString selectedUsbDisplayName() const;

    /// Vault path of the current row when it is a file; else empty.
    [[nodiscard]] QString selectedVaultPath() const;
    /// Vault path of the current row when it is a folder or leads to the parent; else empty. The
    /// root is empty too.
    [[nodiscard]] QString selectedDirectoryPath() const;
    [[nodiscard]] bool selectedItemIsDirectory() const;
    [[nodiscard]] bool selectedItemIsParentDirectory() const;

    /// Shows a message for that long; 0 keeps it until the next one.
    void setStatusMessage(const QString& text, int timeoutMs);
    /// Updates actions, padlock, status bar and summary. Call it after every change of the vault,
    /// the container or the selection.
    void updateActions();

public Q_SLOTS:
    /// Closes the window as "Sair" does, when the program is told to end: open dialogs are
    /// rejected, and a running operation is finished first. Another call meanwhile changes
    /// nothing.
    void requestClose();

public:
    /// Rejects dialogs that open after requestClose(), and takes the window's keys from the device
    /// list, which has the focus.
    bool eventFilter(QObject* watched, QEvent* event) override;

protected:
    bool event(QEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;

private Q_SLOTS:
    // --- Devices, containers, opening and closing the vault (MainWindowAccess.cpp)
    void refreshDevices();
    void chooseContainer();
    void createVault();
    void unlockVault();
    void lockVault();
    void changeVaultPassword();
    void backupContainer();

    // --- Vault table and file commands (MainWindowFiles.cpp)
    void refreshVaultFiles();
    void updateProtectedFilesLabel();
    void enterSelectedDirectory();
    void navigateToParentDirectory();
    void importFiles();
    void importDropped(const QStringList& paths, const QString& directory);
    void exportSelectedFile();
    void openSelectedFile();
    void renameSelectedFile();
    void deleteSelectedFile();
    void moveSelectedFile();
    void createDirectory();
    void renameSelectedDirectory();
    void deleteSelectedDirectory();
    void compactVault();

    // --- About the program (MainWindow.cpp)
    void showHelp();
    void showAbout();
    void openHomepage();

private:
    // --- Frame (MainWindow.cpp)
    void buildUi();
    void buildMenus();
    [[nodiscard]] QLayout* buildDeviceRow();
    void connectSignals();
    void updateVaultToggleButton();
    void updateStatusBar();
    [[nodiscard]] QAction* action(Command command) const;
    [[nodiscard]] CommandState commandState() const;
    /// Carries out what an action is for.
    void perform(Command command);
    /// Runs a command, unless one is running already.
    void runCommand(const std::function<void()>& command);
    void setCommandRunning(bool running);
    void toggleVault();
    [[nodiscard]] bool handleKey(const QKeyEvent& event);
    /// Removes the opened copies that killed runs have left, and says where changed ones are.
    void clearLeftoverCopies();
    /// Shows what is being typed to find a row; nothing any more when it is empty.
    void showLetters(const QString& letters);
    /// Shows the result of a command for a few seconds.
    void showResult(const QString& text);

    // --- Devices, containers, opening and closing the vault (MainWindowAccess.cpp)
    /// Refreshes the list after a volume was mounted or unmounted, as soon as the vault is locked
    /// and no command is running. The current row stays.
    void showChangedMounts();
    void selectDefaultUsbAfterRefresh();
    void selectDeviceForContainer(const QString& containerPath);
    void deviceRowChanged();
    /// @param rootPath where the drive is mounted; with an empty one nothing happens
    void openContainerOfDevice(const QString& rootPath);
    void useContainer(const QString& containerPath);
    /// Whether a container is chosen and its vault locked; says so otherwise.
    [[nodiscard]] bool requireLockedContainer(const QString& messageWhenUnlocked);
    void writeBackup(const QString& destinationPath);
    /// For a file dialog that starts in the first of these folders that is not empty, or in the
    /// one that the program was started in.
    [[nodiscard]] FilePlaces placesFrom(const QString& start,
                                        const QString& otherwise = QString()) const;
    [[nodiscard]] bool vaultIsUnlocked() const;
    /// Moves the lock to the container of the open vault when its file has been replaced. When
    /// another window has taken that file, locks the vault.
    /// @return whether the command that is about to run may go on
    [[nodiscard]] bool keepHold();
    /// Locks the vault. When it is locked in the end, releases the lock on its container.
    [[nodiscard]] bool closeVault();

    // --- Vault table and file commands (MainWindowFiles.cpp)
    [[nodiscard]] QString summaryText() const;
    void activateRow();
    void showVaultMenu(const QPoint& position);
    /// The current row's folder; empty for the row that leads to the parent.
    [[nodiscard]] QString selectedRealDirectory() const;
    [[nodiscard]] bool confirmImportFitsStorage(const QList<ImportSource>& files);
    [[nodiscard]] bool confirmExportOutsideVault(const QString& vaultPath);
    [[nodiscard]] bool confirmReplaceVaultFile(const QString& vaultPath);
    [[nodiscard]] bool confirmDeleteVaultFile(const QString& vaultPath);
    [[nodiscard]] bool confirmCompactVault();
    void importPlanned(const ImportPlan& plan);
    /// Moves a row's file or folder into a folder, empty for the root.
    void moveDropped(VaultTableItemKind kind, const QString& path, const QString& directory);
    void moveFileTo(const QString& path, const QString& directory);
    void moveDirectoryTo(const QString& path, const QString& directory);
    [[nodiscard]] bool renameDirectory(const QString& path, const QString& target);
    /// Takes what was saved in the file's opened copy into the vault, for a command that works on
    /// the file's contents. True also when there is nothing to take.
    [[nodiscard]] bool takeBackEdit(const QString& vaultPath);
    /// @return the engine's result; @p preservedPath as VaultManager::compactVault() sets it
    [[nodiscard]] bool compactWithProgress(QString* preservedPath);
    /// The common end of every command that changed the index.
    void vaultChanged(const QString& message);
    /// The same when the current row's item has this path now.
    void renamed(const QString& vaultPath, const QString& message);

    Core::VaultManager m_vault;
    /// Held while the vault is unlocked.
    Core::ContainerLock m_containerLock;
    std::unique_ptr<Platform::DeviceManager> m_deviceManager;
    QString m_containerPath;
    QString m_currentDirectory;
    /// Where the last import and export of this run were.
    QString m_importFolder;
    QString m_exportFolder;
    QString m_lettersMessage;
    bool m_commandRunning = false;
    bool m_mountsChanged = false;
    bool m_closeRequested = false;
    bool m_closing = false;
    bool m_shownBefore = false;

    // Owned by the window through Qt's parents.
    CommandActions* m_actions = nullptr;
    DeviceListWidget* m_deviceList = nullptr;
    PadlockButton* m_vaultToggleButton = nullptr;
    QLabel* m_protectedFilesLabel = nullptr;
    VaultTableWidget* m_vaultTable = nullptr;
    StatusLabels* m_statusLabels = nullptr;
};

} // namespace Tessel::UI
