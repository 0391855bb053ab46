// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerLayout.h"

#include <QByteArray>
#include <QIODevice>

#include <optional>

class QFile;

namespace Tessel::Core {

/// Opens the regular file that @p file names and reads the magic; the length line comes next.
/// @param mode ReadOnly or ReadWrite
/// @return false for a file that is no container.
[[nodiscard]] bool openContainer(QFile& file, QIODevice::OpenMode mode);

/// The line between the magic and the header, as found in a file. It holds the header's length.
struct LengthLine {
    /// The number in the line.
    qint64 headerBytes = 0;
    /// Bytes of the line in the file, line feed included.
    qint64 lineBytes = 0;

    /// Where the header begins in the file.
    [[nodiscard]] qint64 headerOffset() const {
        return ContainerLayout::LengthLineOffset + lineBytes;
    }
    /// Where the header ends in the file.
    [[nodiscard]] qint64 headerEnd() const { return headerOffset() + headerBytes; }
};

/// Reads the line at the file's position, which is then anywhere after it. Blanks around the
/// number and missing zeros are accepted.
/// @return nothing when the line holds no number, or one that no header can have as its length. A
///         line without an end costs time and no memory.
[[nodiscard]] std::optional<LengthLine> readLengthLine(QFile& file);

/// A number as twenty decimal digits.
[[nodiscard]] QByteArray paddedNumber(qint64 number);

/// The line in front of a header of that many bytes.
[[nodiscard]] QByteArray lengthLineFor(qint64 headerBytes);

} // namespace Tessel::Core
