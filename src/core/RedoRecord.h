// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

#include <optional>

class QFile;

namespace Tessel::Core {

/// A copy of the header about to be written, kept elsewhere in the container while the header is
/// rewritten in place. If the drive is unplugged during the rewrite, this copy restores it.
///
/// It is appended after the payload. On a full drive it goes to the end of the header region,
/// which is allocated already and mostly zeros.
struct RedoRecord {
    /// Where the record begins in the file.
    qint64 begin = 0;
    /// The header's JSON.
    QByteArray header;
    /// What follows it: the sealed index. Empty in the records of earlier versions, which have it
    /// in the header.
    QByteArray sealedIndex;

    [[nodiscard]] bool isInHeaderRegion() const;
};

/// The container's record, if it is whole: the one at the end of the file, else the one at the end
/// of the header region. When both are whole, the one in the region is older: a writer removes a
/// record before it writes another, and the removal is on the drive before the header changes.
[[nodiscard]] std::optional<RedoRecord> findRedoRecord(QFile& file);

/// Where the payload ends: the file's size, less the records after it.
[[nodiscard]] qint64 endOfPayload(QFile& file);

enum class RedoRecordResult {
    /// The record, and all that was written before it, is on the drive.
    Written,
    /// The drive or the file system has no space for it; the file is as before.
    NoRoom,
    /// The drive fails; the file is as before where that was possible.
    Failed
};

/// Appends a record for @p image and waits until the drive has it.
[[nodiscard]] RedoRecordResult appendRedoRecord(QFile& file, const QByteArray& image);

/// Where a record for @p image begins in the header region; negative when it is too long.
[[nodiscard]] qint64 regionRecordBegin(const QByteArray& image);
/// Puts a record for @p image at the end of the header region, whose bytes from
/// regionRecordBegin() on are zero, and waits until the drive has it.
[[nodiscard]] RedoRecordResult writeRegionRecord(QFile& file, const QByteArray& image);
/// Writes zeros from @p begin to the end of the header region and waits until the drive has them.
[[nodiscard]] bool eraseRegionFrom(QFile& file, qint64 begin);
/// Writes zeros over the zeros where the last bytes of a record in the region would be, without
/// waiting. The drive may have lost the removal of one; the next sync then removes it.
[[nodiscard]] bool eraseLostRegionRecord(QFile& file, qint64 headerEnd);

} // namespace Tessel::Core
