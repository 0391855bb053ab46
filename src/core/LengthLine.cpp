// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/LengthLine.h"

#include "core/RegularFile.h"

#include <QFile>

#include <algorithm>
#include <array>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

bool isSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads the number of a length line, character by character.
class LengthParser {
public:
    /// @return false when the text so far can no longer become a number.
    bool add(char c) {
        if (isSpace(c)) {
            m_ended = m_started;
            return true;
        }
        if (m_ended) {
            return false;
        }
        const bool signAllowed = !m_started;
        m_started = true;
        if (c >= '0' && c <= '9') {
            m_hasDigits = true;
            m_value = std::min(m_value * 10 + (c - '0'), TooLarge);
            return true;
        }
        m_negative = c == '-';
        return signAllowed && (c == '-' || c == '+');
    }

    /// The number, if there is one and a header of that many bytes can exist.
    std::optional<qint64> value() const {
        const bool good =
            m_hasDigits && !m_negative && m_value >= 1 && m_value <= HeaderRegionBytes;
        return good ? std::optional<qint64>(m_value) : std::nullopt;
    }

private:
    static constexpr qint64 TooLarge = HeaderRegionBytes + 1;

    qint64 m_value = 0;
    bool m_started = false;
    bool m_ended = false;
    bool m_hasDigits = false;
    bool m_negative = false;
};

} // namespace

bool openContainer(QFile& file, QIODevice::OpenMode mode) {
    return openRegularFile(file, mode) && file.read(FileMagic.size()) == FileMagic;
}

std::optional<LengthLine> readLengthLine(QFile& file) {
    LengthParser parser;
    LengthLine line;
    std::array<char, 4096> piece{};
    qint64 size = 0;
    while ((size = file.read(piece.data(), piece.size())) > 0) {
        for (qint64 i = 0; i < size; ++i) {
            const char c = piece[static_cast<std::size_t>(i)];
            ++line.lineBytes;
            if (c == '\n') {
                const std::optional<qint64> value = parser.value();
                line.headerBytes = value.value_or(0);
                return value ? std::optional<LengthLine>(line) : std::nullopt;
            }
            if (!parser.add(c)) {
                return std::nullopt;
            }
        }
    }
    return std::nullopt;
}

QByteArray paddedNumber(qint64 number) {
    return QByteArray::number(number).rightJustified(LengthDigits, '0');
}

QByteArray lengthLineFor(qint64 headerBytes) {
    return paddedNumber(headerBytes).append('\n');
}

} // namespace Tessel::Core
