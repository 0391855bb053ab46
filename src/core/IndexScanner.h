// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArrayView>

#include <optional>

namespace Tessel::Core {

/// Reads the JSON of an index that is written exactly as IndexJson::toJson() writes it, several
/// times as fast as Qt's parser. @return nothing for any other text, which is left to Qt: where
/// this gives an index, it is the one that Qt gives.
[[nodiscard]] std::optional<SecureFileIndex> scanIndex(QByteArrayView json);

} // namespace Tessel::Core
