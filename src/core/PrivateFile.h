// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QSaveFile;

namespace Tessel::Core {

/// Opens the file for writing, unbuffered. A new one is for this account alone, whatever the mask
/// of the process, which belongs to the programs that it starts as well; one that is replaced keeps
/// its mode.
[[nodiscard]] bool openPrivately(QSaveFile& file);

} // namespace Tessel::Core
