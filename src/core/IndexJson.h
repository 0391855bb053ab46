// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

/// The encodings of the index as text; docs/container-format.md describes them. Readers never fail:
/// text of another kind gives an empty index, a malformed member its default value, an entry
/// without a path is dropped.
namespace Tessel::Core::IndexJson {

/// The encoding in a container's header: compact UTF-8 JSON with its keys sorted.
[[nodiscard]] QByteArray toJson(const SecureFileIndex& index);
/// The same, in the memory that @p json has already.
void writeJson(const SecureFileIndex& index, QByteArray* json);
[[nodiscard]] SecureFileIndex fromJson(const QByteArray& json);

/// The encoding in the redo records of an earlier version: arrays of values without their names.
[[nodiscard]] SecureFileIndex fromRows(const QByteArray& rows);

} // namespace Tessel::Core::IndexJson
