// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerLock.h"
#include "core/VaultManager.h"
#include "platform/DeviceManager.h"

#include <QByteArray>
#include <QMainWindow>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class QAction;
class QLabel;
class QLayout;
class QToolButton;

namespace Tessel::UI {

class CommandActions;
class DeviceListWidget;
class ModalProgress;
class VaultTableWidget;
struct ImportPlan;
struct ImportSource;
enum class Command;
struct CommandState;

/// The program's one window: the USB drives, the padlock, the vault's contents and every command.
///
/// It owns the vault session. Commands run on the interface thread, one at a time: while one is
/// under way, none other can be started and the window cannot be closed, even though long ones
/// process events. Closing the window locks an open vault first.
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
    /// Brings actions, padlock, status bar and summary in line with the vault, the container and
    /// the selection. To be called after every change of these.
    void updateActions();

public Q_SLOTS:
    /// Closes the window as "Sair" does, from outside the program: dialogs that ask something are
    /// answered in the negative, and an operation that is under way is waited for. Asking again
    /// meanwhile changes nothing.
    void requestClose();

public:
    /// Rejects dialogs that open although the window has been asked to close, and takes the keys
    /// that choose among the vault's rows from the device list, which has no use for them then.
    bool eventFilter(QObject* watched, QEvent* event) override;

protected:
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

    // --- Vault table (MainWindowBrowser.cpp)
    void refreshVaultFiles();
    void updateProtectedFilesLabel();
    void enterSelectedDirectory();
    void navigateToParentDirectory();

    // --- File commands (MainWindowCommands.cpp)
    void importFiles();
    void importDropped(const QStringList& paths);
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
    /// What is asked about a new name, and what is said of one that cannot be used.
    struct NameQuestion {
        QString title;
        QString label;
        QString badName;
    };

    // --- Frame (MainWindow.cpp)
    void buildUi();
    void buildMenus();
    [[nodiscard]] QLayout* buildDeviceRow();
    [[nodiscard]] QToolButton* buildVaultToggleButton(int side);
    void buildStatusBar();
    [[nodiscard]] QWidget* buildContainerBox();
    void connectSignals();
    void updateVaultToggleButton();
    void updateStatusBar();
    [[nodiscard]] QAction* action(Command command) const;
    [[nodiscard]] CommandState commandState() const;
    /// Carries out what an action stands for.
    void perform(Command command);
    void setCommandRunning(bool running);
    /// Runs a command, unless one is running already.
    void runCommand(const std::function<void()>& command);
    /// Removes what runs that were killed have left of opened copies, and tells where changed ones
    /// are.
    void clearLeftoverCopies();
    void toggleVault();
    [[nodiscard]] bool vaultIsUnlocked() const;
    /// Keeps the hold on the container of the open vault when its file has been replaced. When
    /// another window has taken that file, the vault is locked.
    /// @return whether the command that is about to run may go on
    [[nodiscard]] bool keepHold();
    /// Locks the vault and, when it is locked in the end, gives up the hold on its container.
    [[nodiscard]] bool closeVault();
    /// What a new message box or dialog belongs to: the dialog in front, else the window.
    [[nodiscard]] QWidget* dialogParent();
    void showResult(const QString& text);

    // --- Devices, containers, opening and closing the vault (MainWindowAccess.cpp)
    void selectDefaultUsbAfterRefresh();
    void selectDeviceForContainer(const QString& containerPath);
    void deviceRowChanged();
    /// @param rootPath where the drive is mounted; empty does nothing.
    void openContainerOfDevice(const QString& rootPath);
    void useContainer(const QString& containerPath);
    [[nodiscard]] bool requireLockedContainer(const QString& messageWhenUnlocked);
    [[nodiscard]] QByteArray requestPassword(const QString& title) const;
    [[nodiscard]] QByteArray requestNewVaultPassword() const;
    [[nodiscard]] QString requestBackupDestination();
    void writeBackup(const QString& destinationPath);

    // --- Vault table (MainWindowBrowser.cpp)
    /// Above the table; the table's description as well.
    void showSummary(const QString& text);
    void activateRow();
    void showVaultMenu(const QPoint& position);

    // --- Keyboard (MainWindowKeyboard.cpp)
    [[nodiscard]] bool handleKey(const QKeyEvent& event);

    // --- File commands (MainWindowCommands.cpp)
    void importPlanned(const ImportPlan& plan);
    [[nodiscard]] bool confirmImportFitsStorage(const QList<ImportSource>& files);
    [[nodiscard]] bool confirmExportOutsideVault(const QString& vaultPath);
    [[nodiscard]] bool confirmReplaceVaultFile(const QString& vaultPath);
    [[nodiscard]] bool confirmDeleteVaultFile(const QString& vaultPath);
    [[nodiscard]] bool confirmCompactVault();
    [[nodiscard]] bool importOneFile(const ImportSource& source, ModalProgress& progress);
    /// @return how many it made.
    [[nodiscard]] qsizetype makeEmptyDirectories(const ImportPlan& plan);
    void warnImportFailed(const QString& path);
    /// Takes what was saved in the file's opened copy into the vault, for a command that works on
    /// the file's contents. True also when there is nothing to take.
    [[nodiscard]] bool takeBackEdit(const QString& vaultPath);
    [[nodiscard]] bool vaultHolds(const QString& vaultPath) const;
    /// Asks for the name of an item of @p directory; @p presentName is proposed, and none for a new
    /// item. @return its path; empty when the name stays or cannot be taken, of which the user has
    /// been told.
    [[nodiscard]] QString askFreePath(const NameQuestion& question, const QString& directory,
                                      const QString& presentName);
    /// The current row's folder; empty for the row that leads to the parent.
    [[nodiscard]] QString selectedRealDirectory() const;
    /// The common end of every command that changed the index.
    void vaultChanged(const QString& message);

    Core::VaultManager m_vault;
    /// Held while the vault is unlocked.
    Core::ContainerLock m_containerLock;
    std::unique_ptr<Platform::DeviceManager> m_deviceManager;
    QString m_containerPath;
    QString m_currentDirectory;
    bool m_commandRunning = false;
    bool m_closeRequested = false;
    bool m_closing = false;
    bool m_shownBefore = false;

    // Owned by the window through Qt's parents.
    DeviceListWidget* m_deviceList = nullptr;
    QToolButton* m_vaultToggleButton = nullptr;
    QLabel* m_protectedFilesLabel = nullptr;
    VaultTableWidget* m_vaultTable = nullptr;
    QLabel* m_containerLabel = nullptr;
    QLabel* m_versionLabel = nullptr;
    QLabel* m_dateLabel = nullptr;
    QLabel* m_vaultStateLabel = nullptr;
    CommandActions* m_actions = nullptr;
};

} // namespace Tessel::UI
