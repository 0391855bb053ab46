// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

namespace Tessel::UI {

/// The columns of the vault table.
namespace VaultColumn {
enum { Icon, Name, Size, Type, Modified, Count };
} // namespace VaultColumn

} // namespace Tessel::UI
