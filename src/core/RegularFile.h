// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QIODevice>

class QFile;

namespace Tessel::Core {

/// Opens the existing regular file that @p file names, unbuffered and at its beginning.
/// @param mode ReadOnly or ReadWrite
/// @return false for anything else under that name. A pipe is refused at once; opening one could
///         wait for another program for ever.
[[nodiscard]] bool openRegularFile(QFile& file, QIODevice::OpenMode mode);

} // namespace Tessel::Core
