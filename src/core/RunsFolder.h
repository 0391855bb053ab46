// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/FolderAccess.h"

#include <QString>

/// "Tessel" in the system's temporary folder, which holds the workspaces of all runs of all
/// accounts.
namespace Tessel::Core {

/// Its absolute path.
[[nodiscard]] QString runsFolderPath();

/// Opens the folder at @p path; closed when there is none or it is not safe to use. A folder of
/// another account is used only if it is sticky or the superuser's: no account but its owner can
/// then move our folders away.
[[nodiscard]] Descriptor openRunsFolder(const QString& path);
/// The same. A missing folder is created for all accounts; one of ours is opened to them.
[[nodiscard]] Descriptor makeRunsFolder(const QString& path);

} // namespace Tessel::Core
