// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace Tessel::Core {

/// Appends the bytes in Base64 (RFC 4648, section 4), padded.
void appendBase64(QByteArray* text, QByteArrayView bytes);

/// Decodes Base64 (RFC 4648, section 4) as leniently as Qt: symbols outside the alphabet are
/// skipped. Well-formed text, the only kind that the vault writes, is decoded several times as
/// fast: a large sealed index is decoded at every unlock.
[[nodiscard]] QByteArray decodeBase64(QByteArrayView text);

/// The same for text of whole, padded groups of symbols and nothing else; nothing for other text.
[[nodiscard]] std::optional<QByteArray> decodeWellFormedBase64(QByteArrayView text);

} // namespace Tessel::Core
