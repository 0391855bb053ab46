// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerManager.h"

#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/HeaderCodec.h"
#include "core/HeaderWriter.h"
#include "core/LengthLine.h"
#include "core/PrivateFile.h"
#include "core/RedoRecord.h"
#include "core/RegularFile.h"

#include <QDir>
#include <QFile>
#include <QSaveFile>

#include <optional>
#include <utility>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

bool writeWhole(QIODevice& device, const QByteArray& bytes) {
    return device.write(bytes) == bytes.size();
}

bool takeDocument(std::optional<ContainerDocument> document, qint64 payloadOffset,
                  ContainerDocument* out) {
    if (!document) {
        return false;
    }
    document->payloadOffset = payloadOffset;
    *out = *std::move(document);
    return true;
}

} // namespace

QString ContainerManager::containerPath(const QString& directory) const {
    return QDir(directory).filePath(ContainerFileName);
}

bool ContainerManager::containerExists(const QString& directory) const {
    return QFile::exists(containerPath(directory));
}

bool ContainerManager::readDocument(const QString& path, ContainerDocument* out) const {
    QFile file(path);
    if (!out || !openContainer(file, QIODevice::ReadOnly)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    if (!line) {
        return false;
    }
    const qint64 payloadOffset = line->headerOffset() + HeaderRegionBytes;
    // The region must be whole, but only the header's own bytes are worth reading.
    if (file.size() < payloadOffset || !file.seek(line->headerOffset())) {
        return false;
    }
    const QByteArray header = file.read(line->headerBytes);
    return header.size() == line->headerBytes &&
           takeDocument(parseHeader(header), payloadOffset, out);
}

bool ContainerManager::readRedoRecord(const QString& path, ContainerDocument* out) const {
    QFile file(path);
    if (!out || !openContainer(file, QIODevice::ReadOnly)) {
        return false;
    }
    const std::optional<RedoRecord> record = findRedoRecord(file);
    std::optional<ContainerDocument> document = record ? parseHeader(record->header) : std::nullopt;
    if (document && !record->sealedIndex.isEmpty()) {
        document->encryptedIndex = record->sealedIndex;
    }
    return takeDocument(std::move(document), PayloadOffset, out);
}

bool ContainerManager::writeDocument(const QString& path, const ContainerDocument& document,
                                     const PayloadWriter& payloadWriter) const {
    QSaveFile file(path);
    if (!openPrivately(file)) {
        return false;
    }
    if (!writeWhole(file, FileMagic.toByteArray() + lengthLineFor(0)) ||
        !writeWhole(file, QByteArray(HeaderRegionBytes, '\0'))) {
        return false;
    }
    if (payloadWriter && !payloadWriter(&file)) {
        return false;
    }
    QByteArray header;
    // The rest of the region is zero already.
    return encodeHeader(document, &header) && file.seek(LengthLineOffset) &&
           writeWhole(file, header) && syncToDrive(file) && file.commit() && syncAfterRename(path);
}

bool ContainerManager::writeDocument(const QString& path, const ContainerDocument& document) const {
    return writeDocument(path, document, {});
}

bool ContainerManager::updateDocumentHeader(const QString& path,
                                            const ContainerDocument& document) const {
    return HeaderWriter(path).rewrite(document, document, WithoutRecord::Rewrite);
}

QByteArray ContainerManager::buildHeader(const ContainerDocument& document) const {
    return Core::buildHeader(document);
}

QJsonObject ContainerManager::cryptoMetadataToJson(const ContainerCryptoMetadata& metadata) const {
    return Core::cryptoMetadataToJson(metadata);
}

ContainerCryptoMetadata ContainerManager::cryptoMetadataFromJson(const QJsonObject& object) const {
    return Core::cryptoMetadataFromJson(object);
}

QByteArray ContainerManager::readContainer(const QString& path) const {
    QFile file(path);
    return openRegularFile(file, QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool ContainerManager::writeContainer(const QString& path, const QByteArray& bytes) const {
    QSaveFile file(path);
    return openPrivately(file) && writeWhole(file, bytes) && syncToDrive(file) && file.commit() &&
           syncAfterRename(path);
}

} // namespace Tessel::Core
