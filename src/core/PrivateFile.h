// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QSaveFile;

namespace Tessel::Core {

/// Opens the file for writing, unbuffered. A new file is for this account alone whatever the
/// process's umask, which the programs that it starts inherit; a replaced file keeps its mode.
[[nodiscard]] bool openPrivately(QSaveFile& file);

} // namespace Tessel::Core
