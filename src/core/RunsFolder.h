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

/// Opens the folder at @p path; closed when there is none, or none to be trusted: one of another
/// account is used only when it is sticky, so that accounts that did not make it cannot move our
/// folders away, or the superuser's.
[[nodiscard]] Descriptor openRunsFolder(const QString& path);
/// The same, made for all accounts if it is missing, and so if it is ours.
[[nodiscard]] Descriptor makeRunsFolder(const QString& path);

} // namespace Tessel::Core
