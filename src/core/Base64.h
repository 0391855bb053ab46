// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <optional>

namespace Tessel::Core {

/// Decodes Base64 (RFC 4648, section 4) as leniently as the toolkit: what is no letter of the
/// alphabet is passed over. Well-formed text, the only kind that the vault writes, takes a way
/// several times as fast: a large sealed index is decoded at every unlock and every change.
[[nodiscard]] QByteArray decodeBase64(QByteArrayView text);

/// The same for text that holds nothing but whole, padded groups of letters; else nothing.
[[nodiscard]] std::optional<QByteArray> decodeWellFormedBase64(QByteArrayView text);

} // namespace Tessel::Core
