// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>

namespace Tessel::Core {

struct ContainerDocument;

/// What follows the header in its region.
enum class HeaderPadding {
    /// Anything; it has to be read before it can be left alone.
    Unknown,
    /// Zero bytes: this program wrote the header, and nothing went wrong.
    Zero
};

/// What to do when the redo record fits nowhere: neither after the payload, on a full drive, nor
/// into what the headers leave of their region.
enum class WithoutRecord {
    Refuse,
    /// Write the header anyway; a power cut may tear it. For deletions, which are the way out of a
    /// full drive.
    Rewrite
};

/// Rewrites the header of an existing container in place.
///
/// Each rewrite is protected by a redo record, which is removed afterwards. A writer that is kept
/// for a session remembers the header that it wrote last and what follows it. While the container
/// has that header, the next rewrite need not read it, and uses the same memory.
class HeaderWriter {
public:
    explicit HeaderWriter(const QString& path, HeaderPadding padding = HeaderPadding::Unknown)
        : m_path(path), m_padding(padding) {}

    /// Writes the header of @p document over the present one. When it returns true, the header and
    /// everything written to the container before it is on the drive. On failure the old header is
    /// put back; where even that fails, the record stays.
    /// @param record goes into the redo record: a document with the same key slot and the same
    ///        index, possibly in another encoding
    [[nodiscard]] bool rewrite(const ContainerDocument& document, const ContainerDocument& record,
                               WithoutRecord withoutRecord);

    /// Writes the header of @p document, which holds what the container's redo record holds, and
    /// removes every record. Call it only when the present header does not open and the record
    /// does.
    /// @return false also when there is no record, or when one is left.
    [[nodiscard]] bool restore(const ContainerDocument& document) const;

    /// Removes every redo record. The header is written once more before: one that was put back
    /// after a failure may be in the system's cache and not on the drive. Call it only when the
    /// present header opens.
    /// @return false also when a record is left.
    [[nodiscard]] bool dropRecord() const;

    /// Whether the container has the header that this writer wrote last, and no redo record. Only
    /// the beginning of the header, with all its nonces, and its end are compared: no two headers
    /// with one nonce differ in the index.
    [[nodiscard]] bool hasHeaderAsWritten() const;

    /// What is known to follow the present header.
    [[nodiscard]] HeaderPadding padding() const { return m_padding; }

private:
    QString m_path;
    HeaderPadding m_padding;
    /// The length line and the header last written; empty when there is none to be recognised.
    QByteArray m_written;
    /// Memory for the next ones.
    QByteArray m_image;
    QByteArray m_recordedImage;
};

} // namespace Tessel::Core
