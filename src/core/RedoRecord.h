// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

#include <optional>

class QFile;

namespace Tessel::Core {

/// A header that says what the one says that is about to be written in place, kept behind the
/// payload until that is. A drive pulled out in the middle of the rewrite leaves a header that is
/// half old and half new; the record then puts it right.
struct RedoRecord {
    /// Where the record begins in the file; the payload ends there.
    qint64 begin = 0;
    /// A length line and the header.
    QByteArray headerImage;
};

/// The record that ends the file, if there is one and it is whole.
[[nodiscard]] std::optional<RedoRecord> findRedoRecord(QFile& file);

/// Where the payload ends: the file's size, less the records that stand behind it.
[[nodiscard]] qint64 endOfPayload(QFile& file);

enum class RedoRecordResult {
    /// The record, and all that was written before it, is on the drive.
    Written,
    /// The drive or the file system has no room for it; the file is as before.
    NoRoom,
    /// The drive fails; the file is as before where that was possible.
    Failed
};

/// Appends a record for @p headerImage and waits until the drive has it.
[[nodiscard]] RedoRecordResult appendRedoRecord(QFile& file, const QByteArray& headerImage);

} // namespace Tessel::Core
