// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>

#include <optional>

class QFile;

namespace Tessel::Core {

/// What is behind the header in its region.
enum class HeaderPadding {
    /// Anything; it has to be read before it can be left alone.
    Unknown,
    /// Zero bytes: this program wrote the header, and nothing went wrong.
    Zero
};

/// What becomes of a rewrite whose redo record fits nowhere: neither behind the payload, on a full
/// drive, nor into what the headers leave of their region.
enum class WithoutRecord {
    Refuse,
    /// The header is written nevertheless, and a power cut may tear it. For deletions, which are
    /// the way out of a full drive.
    Rewrite
};

/// A header about to be written in the place of another.
struct HeaderRewrite {
    /// The length line and the new header.
    QByteArray image;
    /// What the redo record holds.
    QByteArray recordedImage;
    /// Where the present header ends in the file; nothing when it has no length line.
    std::optional<qint64> presentEnd;
    /// What is behind the present header. Zero only where its length line is as long as ours.
    HeaderPadding padding = HeaderPadding::Unknown;
    WithoutRecord withoutRecord = WithoutRecord::Refuse;
};

/// Rewrites the header under the protection of a redo record, which is removed afterwards. All that
/// was written to the file before is on the drive when this succeeds.
/// @return what is then behind the header; nothing when the rewrite failed. The old header is put
///         back then; where even that fails, the record stays.
[[nodiscard]] std::optional<HeaderPadding> rewriteHeader(QFile& file, const HeaderRewrite& rewrite);

/// Rewrites the header from @p image, which holds what the file's redo record holds or what the
/// header already does, and removes every record.
/// @return false also when a record is left.
[[nodiscard]] bool rewriteHeaderAndDropRecords(QFile& file, const QByteArray& image);

} // namespace Tessel::Core
