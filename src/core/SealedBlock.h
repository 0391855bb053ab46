// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

class QFile;

namespace Tessel::Core {

/// Bytes of plaintext in the largest block.
inline constexpr qint64 LargestPlainBlock = qint64{16} * 1024 * 1024;

/// Reads the sealed bytes of a block from the container. @return false, without allocating, for
/// sizes and offsets that no block of ours has: they come from the index.
[[nodiscard]] bool readSealedBlock(QFile& container, const VaultFileBlock& block,
                                   QByteArray* sealed);

} // namespace Tessel::Core
