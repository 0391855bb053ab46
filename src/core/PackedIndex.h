// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

/// The index in bytes instead of text, in about a third of the space, for redo records;
/// docs/container-format.md describes it.
namespace Tessel::Core::PackedIndex {

/// Writes the index, in the memory that @p packed has already.
void write(const SecureFileIndex& index, QByteArray* packed);

/// @return nothing for bytes that are no packed index. Memory stays in proportion to the bytes.
[[nodiscard]] std::optional<SecureFileIndex> read(QByteArrayView packed);

} // namespace Tessel::Core::PackedIndex
