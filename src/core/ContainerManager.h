// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"
#include "core/HeaderWriter.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <functional>

class QIODevice;

namespace Tessel::Core {

/// Reads and writes container files; the only place that knows their layout
/// (docs/container-format.md). It holds no state and no keys.
class ContainerManager {
public:
    /// Writes the payload region to a device that stands at its first byte.
    using PayloadWriter = std::function<bool(QIODevice* device)>;

    /// "tessel.tvlt" inside @p directory.
    [[nodiscard]] QString containerPath(const QString& directory) const;
    [[nodiscard]] bool containerExists(const QString& directory) const;

    /// Parses the header of the container at @p path.
    /// @return false, with @p out untouched, for anything that is not a whole header of this
    ///         format. Memory stays bounded by the header region whatever the file holds.
    [[nodiscard]] bool readDocument(const QString& path, ContainerDocument* out) const;

    /// Writes a complete container and puts it in the place of @p path only when all of it has
    /// been written. The header is built after @p payloadWriter has run, so the writer may still
    /// change the document. An empty writer leaves an empty payload region.
    [[nodiscard]] bool writeDocument(const QString& path, const ContainerDocument& document,
                                     const PayloadWriter& payloadWriter) const;
    [[nodiscard]] bool writeDocument(const QString& path, const ContainerDocument& document) const;

    /// Rewrites the length line and the header region of an existing container in place, under the
    /// protection of a redo record, which is removed afterwards. When it returns true, the header
    /// and everything written to the container before it is on the drive. On failure the old header
    /// is put back; where even that fails, the record stays, and holds the document. Where a record
    /// fits nowhere, the header is written without one.
    [[nodiscard]] bool updateDocumentHeader(const QString& path,
                                            const ContainerDocument& document) const;
    /// The same with another document in the redo record: one that wraps the same master key and
    /// holds the same index in fewer bytes.
    /// @param padding may be null. What is behind the container's present header; receives what is
    ///        behind the new one.
    [[nodiscard]] bool updateDocumentHeader(const QString& path, const ContainerDocument& document,
                                            const ContainerDocument& record,
                                            WithoutRecord withoutRecord,
                                            HeaderPadding* padding) const;

    /// Reads the document that the container's redo record holds.
    /// @return false, with @p out untouched, when there is no whole record.
    [[nodiscard]] bool readRedoRecord(const QString& path, ContainerDocument* out) const;
    /// Writes @p document, which holds what the one of the redo record does, into the header's
    /// place, and removes the record. To be called only when the container's own header does not
    /// open and the record's does.
    /// @return false also when there is no record, or when it could not be removed.
    [[nodiscard]] bool repairHeader(const QString& path, const ContainerDocument& document) const;
    /// Removes the redo record. The header is written once more before: one that was put back after
    /// a failure may be in the system's cache and not on the drive. To be called only when the
    /// container's own header opens.
    /// @return false also when the record could not be removed.
    [[nodiscard]] bool dropRedoRecord(const QString& path) const;

    /// The header as compact JSON.
    [[nodiscard]] QByteArray buildHeader(const ContainerDocument& document) const;
    [[nodiscard]] QJsonObject cryptoMetadataToJson(const ContainerCryptoMetadata& metadata) const;
    /// Reads each key leniently; a missing one keeps its default. Nothing is validated here.
    [[nodiscard]] ContainerCryptoMetadata cryptoMetadataFromJson(const QJsonObject& object) const;

    /// The whole file; empty when it cannot be opened.
    [[nodiscard]] QByteArray readContainer(const QString& path) const;
    /// Puts @p bytes in the place of @p path, all of them or none.
    [[nodiscard]] bool writeContainer(const QString& path, const QByteArray& bytes) const;
};

} // namespace Tessel::Core
