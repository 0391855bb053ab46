// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

namespace Tessel::UI {

/// Protects the memory of the process, which will hold keys: no core dump is written, and no other
/// process of the user can read it. Also makes a write beyond a file size limit fail instead of
/// ending the program. Programs that it starts inherit none of this. Call it first in main().
void makeProcessPrivate();

} // namespace Tessel::UI
