// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

namespace Tessel::UI {

/// Makes the process keep what it knows to itself, before it knows anything: neither a core dump
/// nor another process of the user can read its memory, where keys are. A file size limit makes a
/// write fail instead of ending the program. Programs that it starts inherit none of this.
void makeProcessPrivate();

} // namespace Tessel::UI
