// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/ContainerDocument.h"

#include <QByteArray>
#include <QJsonObject>

#include <optional>

namespace Tessel::Core {

/// The header as compact JSON, with its keys sorted.
[[nodiscard]] QByteArray buildHeader(const ContainerDocument& document);

/// The length line and the header as they are in the file, put into the memory that @p image has
/// already. @return false when they do not fit into the header region.
[[nodiscard]] bool encodeHeader(const ContainerDocument& document, QByteArray* image);

/// The image of a redo record: the length line, the header without its index, and the sealed index
/// as it is. @return false when they would not fit into the header region.
[[nodiscard]] bool encodeRecordImage(const ContainerDocument& document, QByteArray* image);

/// Reads a header's JSON.
/// @return nothing for any other text and for another format version. The document's payloadOffset
///         is left to the caller.
[[nodiscard]] std::optional<ContainerDocument> parseHeader(const QByteArray& header);

/// The "crypto" object of a header.
[[nodiscard]] QJsonObject cryptoMetadataToJson(const ContainerCryptoMetadata& metadata);
/// Reads each key leniently; a missing one keeps its default. Nothing is validated here.
[[nodiscard]] ContainerCryptoMetadata cryptoMetadataFromJson(const QJsonObject& object);

} // namespace Tessel::Core
