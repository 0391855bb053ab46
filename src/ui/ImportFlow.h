// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "ui/ImportPlan.h"

#include <QList>
#include <QString>

#include <functional>

class QWidget;

namespace Tessel::Core {
class VaultManager;
}

namespace Tessel::UI {

class ModalProgress;

/// Whether the files can be imported to the drive that holds the container: all of them can be
/// read as files and fit, or the user agrees to the little space that would be left. Says what is
/// wrong otherwise.
[[nodiscard]] bool confirmImportFits(QWidget* parent, const QList<ImportSource>& files,
                                     const QString& containerPath);

/// One import into an unlocked vault, with its progress and its questions. A file that cannot be
/// imported is named to the user and does not stop the others.
class ImportFlow {
public:
    /// Asks whether the file at this vault path is to be replaced.
    using ConfirmReplace = std::function<bool(const QString& vaultPath)>;

    ImportFlow(QWidget* window, Core::VaultManager* vault, ConfirmReplace confirmReplace);

    /// Imports the files, then makes the empty folders. @return the result in the user's words.
    [[nodiscard]] QString run(const ImportPlan& plan);

private:
    [[nodiscard]] bool importFile(const ImportSource& source, ModalProgress& progress);
    /// @return how many it made.
    [[nodiscard]] qsizetype makeEmptyDirectories(const ImportPlan& plan);
    void warnImportFailed(const QString& path);

    QWidget* m_window;
    Core::VaultManager* m_vault;
    ConfirmReplace m_confirmReplace;
};

} // namespace Tessel::UI
