// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

class QFileDevice;
class QString;
struct stat;

namespace Tessel::Core {

/// Whether both describe one file or folder.
[[nodiscard]] bool isSameFile(const struct stat& a, const struct stat& b);

/// Whether both paths lead to one existing file or folder, through whatever names and links.
[[nodiscard]] bool isSameFile(const QString& a, const QString& b);

/// Whether @p path leads to the file that is open.
[[nodiscard]] bool isSameFile(const QString& path, const QFileDevice& open);

} // namespace Tessel::Core
