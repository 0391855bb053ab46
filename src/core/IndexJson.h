// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

/// The two encodings of the index; docs/container-format.md describes both. Readers never fail:
/// text of another kind gives an empty index, a malformed member its default value, an entry
/// without a path is dropped.
namespace Tessel::Core::IndexJson {

/// The encoding in a container's header: compact UTF-8 JSON with its keys sorted.
[[nodiscard]] QByteArray toJson(const SecureFileIndex& index);
/// The same, in the memory that @p json has already.
void writeJson(const SecureFileIndex& index, QByteArray* json);
[[nodiscard]] SecureFileIndex fromJson(const QByteArray& json);

/// The encoding in a redo record: arrays of values without their names, in about three fifths of
/// the bytes.
[[nodiscard]] QByteArray toCompact(const SecureFileIndex& index);
[[nodiscard]] SecureFileIndex fromCompact(const QByteArray& compact);

} // namespace Tessel::Core::IndexJson
