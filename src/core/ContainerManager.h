// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include <functional>

class QIODevice;

namespace Tessel::Core {

/// Reads and writes container files (docs/container-format.md). It holds no state and no keys.
class ContainerManager {
public:
    /// Writes the payload region, from the device's present position on.
    using PayloadWriter = std::function<bool(QIODevice* device)>;

    /// "tessel.tvlt" inside @p directory.
    [[nodiscard]] QString containerPath(const QString& directory) const;
    [[nodiscard]] bool containerExists(const QString& directory) const;

    /// Parses the header of the container at @p path.
    /// @return false, with @p out untouched, for anything that is not a whole header of this
    ///         format. Memory stays bounded by the header region whatever the file holds.
    [[nodiscard]] bool readDocument(const QString& path, ContainerDocument* out) const;

    /// Writes a complete container; it replaces what is at @p path only when all of it is on the
    /// drive. The header is built after @p payloadWriter has run, so the writer may still
    /// change the document. An empty writer leaves an empty payload region.
    [[nodiscard]] bool writeDocument(const QString& path, const ContainerDocument& document,
                                     const PayloadWriter& payloadWriter) const;
    [[nodiscard]] bool writeDocument(const QString& path, const ContainerDocument& document) const;

    /// Rewrites the length line and the header region of an existing container in place, protected
    /// by a redo record. When it returns true, the header and everything written to the container
    /// before it is on the drive. On failure the old header is put back; where even that fails, the
    /// record stays. Where no record fits, the header is written without one.
    [[nodiscard]] bool updateDocumentHeader(const QString& path,
                                            const ContainerDocument& document) const;

    /// Reads the document in the container's redo record.
    /// @return false, with @p out untouched, when there is no whole record.
    [[nodiscard]] bool readRedoRecord(const QString& path, ContainerDocument* out) const;

    /// The header as compact JSON.
    [[nodiscard]] QByteArray buildHeader(const ContainerDocument& document) const;
    [[nodiscard]] QJsonObject cryptoMetadataToJson(const ContainerCryptoMetadata& metadata) const;
    /// Reads each key leniently; a missing one keeps its default. Nothing is validated here.
    [[nodiscard]] ContainerCryptoMetadata cryptoMetadataFromJson(const QJsonObject& object) const;

    /// The whole file; empty when it cannot be opened.
    [[nodiscard]] QByteArray readContainer(const QString& path) const;
    /// Replaces the file at @p path by @p bytes, by all of them or not at all.
    [[nodiscard]] bool writeContainer(const QString& path, const QByteArray& bytes) const;
};

} // namespace Tessel::Core
