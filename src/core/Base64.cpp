// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/Base64.h"

#include <array>
#include <cstdint>

namespace Tessel::Core {

namespace {

constexpr std::uint8_t NotALetter = 0x80;

constexpr std::array<std::uint8_t, 256> letterValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(NotALetter);
    constexpr QByteArrayView alphabet(
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
    for (qsizetype i = 0; i < alphabet.size(); ++i) {
        values[static_cast<std::uint8_t>(alphabet.at(i))] = static_cast<std::uint8_t>(i);
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> Letters = letterValues();

// Decodes whole groups of four letters; false at the first that is none.
bool decodeGroups(QByteArrayView text, char* out) {
    std::uint8_t seen = 0;
    for (qsizetype i = 0; i + 4 <= text.size(); i += 4, out += 3) {
        const std::uint32_t a = Letters[static_cast<std::uint8_t>(text[i])];
        const std::uint32_t b = Letters[static_cast<std::uint8_t>(text[i + 1])];
        const std::uint32_t c = Letters[static_cast<std::uint8_t>(text[i + 2])];
        const std::uint32_t d = Letters[static_cast<std::uint8_t>(text[i + 3])];
        seen = static_cast<std::uint8_t>(seen | a | b | c | d);
        const std::uint32_t bytes = a << 18 | b << 12 | c << 6 | d;
        out[0] = static_cast<char>(bytes >> 16);
        out[1] = static_cast<char>(bytes >> 8);
        out[2] = static_cast<char>(bytes);
    }
    return (seen & NotALetter) == 0;
}

} // namespace

std::optional<QByteArray> decodeWellFormedBase64(QByteArrayView text) {
    // The last group may be padded, and is left to the toolkit.
    const qsizetype wholeLetters = text.size() < 4 ? 0 : (text.size() - 1) / 4 * 4;
    const auto lastGroup = QByteArray::fromBase64Encoding(text.sliced(wholeLetters).toByteArray(),
                                                          QByteArray::AbortOnBase64DecodingErrors);
    QByteArray bytes(wholeLetters / 4 * 3, Qt::Uninitialized);
    if (text.size() % 4 != 0 || !lastGroup ||
        !decodeGroups(text.first(wholeLetters), bytes.data())) {
        return std::nullopt;
    }
    return bytes.append(*lastGroup);
}

QByteArray decodeBase64(QByteArrayView text) {
    const std::optional<QByteArray> bytes = decodeWellFormedBase64(text);
    return bytes ? *bytes : QByteArray::fromBase64(text.toByteArray());
}

} // namespace Tessel::Core
