// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>
#include <QByteArrayView>

namespace Tessel::Core {

/// The encodings that an index keeps with its entries. The first save of an index encodes every
/// entry, later ones those that have changed.
class EntryEncodings {
public:
    using Encodings = SecureFileIndex::Encodings;
    using Encoding = QByteArray Encodings::*;
    static constexpr Encoding Json = &Encodings::json;
    static constexpr Encoding Packed = &Encodings::packed;

    /// Appends the encoding of each file, with @p separator between them. Where one is missing,
    /// @p encode(QByteArray*, const VaultFileEntry&) makes it.
    template <typename Encode>
    static void appendFiles(QByteArray* bytes, const SecureFileIndex& index, Encoding encoding,
                            QByteArrayView separator, Encode encode) {
        append(bytes, index.m_files, encoding, separator, encode);
    }
    /// The same for the folders.
    template <typename Encode>
    static void appendDirectories(QByteArray* bytes, const SecureFileIndex& index,
                                  Encoding encoding, QByteArrayView separator, Encode encode) {
        append(bytes, index.m_directories, encoding, separator, encode);
    }

    /// Frees all encodings.
    static void drop(SecureFileIndex* index) {
        index->m_files.encodings = {};
        index->m_directories.encodings = {};
    }

private:
    template <typename Table, typename Encode>
    static void append(QByteArray* bytes, const Table& table, Encoding encoding,
                       QByteArrayView separator, Encode encode) {
        const qsizetype count = table.entries.size();
        if (table.encodings.size() < count) {
            table.encodings.resize(count);
        }
        QByteArray made;
        for (qsizetype i = 0; i < count; ++i) {
            if ((table.encodings.at(i).*encoding).isEmpty()) {
                made.resize(0);
                encode(&made, table.entries.at(i));
                // A copy, which takes no more memory than it needs.
                table.encodings[i].*encoding = QByteArray(made.constData(), made.size());
            }
            if (i > 0) {
                bytes->append(separator);
            }
            bytes->append(table.encodings.at(i).*encoding);
        }
    }
};

} // namespace Tessel::Core
