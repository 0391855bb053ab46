// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/Base64.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace Tessel::Core {

namespace {

constexpr std::uint8_t NotASymbol = 0x80;

constexpr QByteArrayView
    Alphabet("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");

constexpr std::array<std::uint8_t, 256> symbolValues() {
    std::array<std::uint8_t, 256> values{};
    values.fill(NotASymbol);
    for (qsizetype i = 0; i < Alphabet.size(); ++i) {
        values[static_cast<std::uint8_t>(Alphabet.at(i))] = static_cast<std::uint8_t>(i);
    }
    return values;
}

// The two symbols of each value of twelve bits.
using SymbolPair = std::array<char, 2>;

constexpr std::array<SymbolPair, 4096> symbolPairs() {
    std::array<SymbolPair, 4096> pairs{};
    for (qsizetype i = 0; i < 4096; ++i) {
        pairs[static_cast<std::size_t>(i)] = {Alphabet.at(i / 64), Alphabet.at(i % 64)};
    }
    return pairs;
}

constexpr std::array<std::uint8_t, 256> Symbols = symbolValues();
constexpr std::array<SymbolPair, 4096> Pairs = symbolPairs();

// Encodes whole groups of three bytes.
void encodeGroups(QByteArrayView bytes, char* out) {
    const auto* in = reinterpret_cast<const std::uint8_t*>(bytes.data());
    for (const std::uint8_t* end = in + bytes.size(); in != end; in += 3, out += 4) {
        const std::uint32_t group = std::uint32_t{in[0]} << 16 | std::uint32_t{in[1]} << 8 | in[2];
        std::memcpy(out, &Pairs[group >> 12], 2);
        std::memcpy(out + 2, &Pairs[group & 0xfff], 2);
    }
}

// Decodes whole groups of four symbols. False when one is not of the alphabet.
bool decodeGroups(QByteArrayView text, char* out) {
    std::uint8_t seen = 0;
    for (qsizetype i = 0; i + 4 <= text.size(); i += 4, out += 3) {
        const std::uint32_t a = Symbols[static_cast<std::uint8_t>(text[i])];
        const std::uint32_t b = Symbols[static_cast<std::uint8_t>(text[i + 1])];
        const std::uint32_t c = Symbols[static_cast<std::uint8_t>(text[i + 2])];
        const std::uint32_t d = Symbols[static_cast<std::uint8_t>(text[i + 3])];
        seen = static_cast<std::uint8_t>(seen | a | b | c | d);
        const std::uint32_t bytes = a << 18 | b << 12 | c << 6 | d;
        out[0] = static_cast<char>(bytes >> 16);
        out[1] = static_cast<char>(bytes >> 8);
        out[2] = static_cast<char>(bytes);
    }
    return (seen & NotASymbol) == 0;
}

} // namespace

void appendBase64(QByteArray* text, QByteArrayView bytes) {
    const qsizetype groupedBytes = bytes.size() / 3 * 3;
    const qsizetype begin = text->size();
    text->resize(begin + groupedBytes / 3 * 4);
    encodeGroups(bytes.first(groupedBytes), text->data() + begin);
    text->append(bytes.sliced(groupedBytes).toByteArray().toBase64());
}

std::optional<QByteArray> decodeWellFormedBase64(QByteArrayView text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    // The last group may be padded; Qt decodes it then.
    const bool isPadded = text.endsWith('=');
    const QByteArrayView groups = isPadded ? text.chopped(4) : text;
    QByteArray bytes(groups.size() / 4 * 3, Qt::Uninitialized);
    if (!decodeGroups(groups, bytes.data())) {
        return std::nullopt;
    }
    if (isPadded) {
        const auto last = QByteArray::fromBase64Encoding(text.last(4).toByteArray(),
                                                         QByteArray::AbortOnBase64DecodingErrors);
        return last ? std::optional<QByteArray>(bytes.append(*last)) : std::nullopt;
    }
    return bytes;
}

QByteArray decodeBase64(QByteArrayView text) {
    const std::optional<QByteArray> bytes = decodeWellFormedBase64(text);
    return bytes ? *bytes : QByteArray::fromBase64(text.toByteArray());
}

} // namespace Tessel::Core
