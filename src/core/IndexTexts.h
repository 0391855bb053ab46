// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/SecureFileIndex.h"

#include <QByteArray>

namespace Tessel::Core {

/// The encodings that an index keeps with its entries. The first save of an index encodes every
/// entry, later ones those that have changed.
class IndexTexts {
public:
    using Texts = SecureFileIndex::Texts;
    using Encoding = QByteArray Texts::*;
    static constexpr Encoding Json = &Texts::json;
    static constexpr Encoding Packed = &Texts::packed;

    /// Appends the encoding of each file, made by @p encode(QByteArray*, const VaultFileEntry&)
    /// where it is missing, with @p separator between them.
    template <typename Encode>
    static void appendFiles(QByteArray* bytes, const SecureFileIndex& index, Encoding encoding,
                            Encode encode, QByteArrayView separator = {}) {
        append(bytes, index.m_files, encoding, encode, separator);
    }
    /// The same for the folders.
    template <typename Encode>
    static void appendDirectories(QByteArray* bytes, const SecureFileIndex& index,
                                  Encoding encoding, Encode encode, QByteArrayView separator = {}) {
        append(bytes, index.m_directories, encoding, encode, separator);
    }

    /// Frees all encodings.
    static void drop(SecureFileIndex* index) {
        index->m_files.texts = {};
        index->m_directories.texts = {};
    }

private:
    template <typename Table, typename Encode>
    static void append(QByteArray* bytes, const Table& table, Encoding encoding, Encode encode,
                       QByteArrayView separator) {
        const qsizetype count = table.entries.size();
        if (table.texts.size() < count) {
            table.texts.resize(count);
        }
        QByteArray made;
        for (qsizetype i = 0; i < count; ++i) {
            if ((table.texts.at(i).*encoding).isEmpty()) {
                made.resize(0);
                encode(&made, table.entries.at(i));
                // A copy, which takes no more memory than it needs.
                table.texts[i].*encoding = QByteArray(made.constData(), made.size());
            }
            if (i > 0) {
                bytes->append(separator);
            }
            bytes->append(table.texts.at(i).*encoding);
        }
    }
};

} // namespace Tessel::Core
