// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/HeaderWriter.h"

#include "core/ContainerDocument.h"
#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/HeaderCodec.h"
#include "core/LengthLine.h"
#include "core/RedoRecord.h"

#include <QFile>

#include <algorithm>
#include <optional>
#include <utility>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

constexpr qint64 ScanBytes = qint64{256} * 1024;
constexpr qint64 ComparedBytes = 4096;

// A header about to be written over another one.
struct HeaderRewrite {
    // The length line and the new header.
    QByteArray* image;
    // Of the redo record.
    const QByteArray& recordedImage;
    // The length line and the present header; null when it is not known.
    const QByteArray* presentImage = nullptr;
    // Where the present header ends in the file; nothing when it has no length line.
    std::optional<qint64> presentEnd;
    // Zero only where the present length line is as long as ours.
    HeaderPadding padding = HeaderPadding::Unknown;
    WithoutRecord withoutRecord = WithoutRecord::Refuse;
};

// What a rewrite of the header leaves of the file.
struct Extents {
    // Nothing after this is needed once the new header is on the drive.
    qint64 payload = PayloadOffset;
    // The file's size before the rewrite. A record in there may be all that is left of a header
    // torn earlier, so a rewrite that is undone must leave it.
    qint64 formerSize = 0;
    // The region up to here belongs to the header; after it is a redo record, if anything.
    qint64 headerLimit = PayloadOffset;
};

bool isAllZero(QByteArrayView bytes) {
    // Each byte equal to its neighbour and the first one zero: one pass at memory speed.
    return bytes.isEmpty() ||
           (bytes.front() == 0 && bytes.first(bytes.size() - 1) == bytes.sliced(1));
}

// The end of the last byte in [from, to) that is not zero; `from` when all are, nothing when that
// part of the file cannot be read.
std::optional<qint64> endOfNonZeroBytes(QFile& file, qint64 from, qint64 to) {
    QByteArray piece(ScanBytes, Qt::Uninitialized);
    for (qint64 end = to; end > from;) {
        const qint64 begin = std::max(from, end - ScanBytes);
        if (!file.seek(begin) || file.read(piece.data(), end - begin) != end - begin) {
            return std::nullopt;
        }
        const QByteArrayView read(piece.constData(), end - begin);
        if (!isAllZero(read)) {
            const auto last =
                std::find_if(read.crbegin(), read.crend(), [](char c) { return c != 0; });
            return end - (last - read.crbegin());
        }
        end = begin;
    }
    return from;
}

bool writeAtLengthLine(QFile& file, const QByteArray& bytes) {
    return file.seek(LengthLineOffset) && file.write(bytes) == bytes.size() && syncToDrive(file);
}

// Removes the record and cuts the file to @p size. What is left after a good header is ignored, and
// removed by the next change.
bool removeRecords(QFile& file, const Extents& extents, qint64 size) {
    const bool cut = file.size() <= size || file.resize(size);
    return (extents.headerLimit == PayloadOffset || eraseRegionFrom(file, extents.headerLimit)) &&
           cut;
}

// Overwrites the header. A rewrite that fails half way is undone; where even that fails, the new
// record stays, because it is needed. The present header is read unless the caller knows it.
std::optional<HeaderPadding> overwriteHeader(QFile& file, const QByteArray& bytes,
                                             const QByteArray* presentImage,
                                             const Extents& extents) {
    const qint64 oldBytes = std::min<qint64>(bytes.size(), file.size() - LengthLineOffset);
    QByteArray before;
    if (!presentImage && file.seek(LengthLineOffset)) {
        before = file.read(oldBytes);
    }
    // Old bytes that cannot be read could not be put back either.
    const bool canUndo = presentImage || before.size() == oldBytes;
    if (canUndo && writeAtLengthLine(file, bytes)) {
        return removeRecords(file, extents, extents.payload) ? HeaderPadding::Zero
                                                             : HeaderPadding::Unknown;
    }
    if (presentImage) {
        before = presentImage->leftJustified(oldBytes, '\0');
    }
    if (!canUndo || writeAtLengthLine(file, before)) {
        static_cast<void>(removeRecords(file, extents, extents.formerSize));
    }
    return std::nullopt;
}

Extents extentsOf(QFile& file) {
    return {std::max(endOfPayload(file), PayloadOffset), file.size(), PayloadOffset};
}

// Everything behind the header must be zero. Most of it is, and need not be sent to the drive
// again. A region that is not whole is written to its end.
std::optional<HeaderPadding> writeHeader(QFile& file, QByteArray* image,
                                         const QByteArray* presentImage, const Extents& extents,
                                         std::optional<qint64> zeroFrom) {
    const qsizetype imageBytes = image->size();
    const qint64 imageEnd = LengthLineOffset + imageBytes;
    if (!zeroFrom) {
        zeroFrom =
            endOfNonZeroBytes(file, imageEnd, extents.headerLimit).value_or(extents.headerLimit);
    }
    image->append(std::max(*zeroFrom - imageEnd, qint64(0)), '\0');
    const auto padding = overwriteHeader(file, *image, presentImage, extents);
    image->truncate(imageBytes);
    return padding;
}

// Puts the record after both headers in their region, where only zeros may be: anything else there
// was left by a change that was interrupted.
RedoRecordResult putRecordIntoRegion(QFile& file, const HeaderRewrite& rewrite) {
    const qint64 begin = regionRecordBegin(rewrite.recordedImage);
    const qint64 newEnd = LengthLineOffset + rewrite.image->size();
    if (!rewrite.presentEnd || begin < std::max(*rewrite.presentEnd, newEnd)) {
        return RedoRecordResult::NoRoom;
    }
    const std::optional<qint64> used = endOfNonZeroBytes(file, begin, PayloadOffset);
    if (!used || (*used > begin && !eraseRegionFrom(file, begin))) {
        return RedoRecordResult::Failed;
    }
    return writeRegionRecord(file, rewrite.recordedImage);
}

// Puts the record where it fits, and notes in @p extents where it is. An earlier record would be
// taken for this rewrite's if this one had none, or had it in another place.
RedoRecordResult putRecord(QFile& file, const HeaderRewrite& rewrite, Extents* extents) {
    const bool hasEarlier = findRedoRecord(file).has_value();
    if (!hasEarlier && rewrite.padding == HeaderPadding::Unknown && rewrite.presentEnd &&
        !eraseLostRegionRecord(file, *rewrite.presentEnd)) {
        return RedoRecordResult::Failed;
    }
    const RedoRecordResult appended = appendRedoRecord(file, rewrite.recordedImage);
    if (appended != RedoRecordResult::NoRoom || hasEarlier) {
        return appended == RedoRecordResult::NoRoom ? RedoRecordResult::Failed : appended;
    }
    const RedoRecordResult put = putRecordIntoRegion(file, rewrite);
    if (put == RedoRecordResult::Written) {
        extents->headerLimit = regionRecordBegin(rewrite.recordedImage);
    }
    return put;
}

bool protectRewrite(QFile& file, const HeaderRewrite& rewrite, Extents* extents) {
    if (file.size() < PayloadOffset) {
        return true;
    }
    switch (putRecord(file, rewrite, extents)) {
    case RedoRecordResult::Written:
        return true;
    case RedoRecordResult::NoRoom:
        // The blocks that the new header names must be on the drive before it.
        return rewrite.withoutRecord == WithoutRecord::Rewrite && syncToDrive(file);
    case RedoRecordResult::Failed:
        break;
    }
    return false;
}

std::optional<HeaderPadding> rewriteHeader(QFile& file, const HeaderRewrite& rewrite) {
    Extents extents = extentsOf(file);
    if (!protectRewrite(file, rewrite, &extents)) {
        return std::nullopt;
    }
    const bool isPaddedWithZeros = rewrite.padding == HeaderPadding::Zero && rewrite.presentEnd;
    return writeHeader(file, rewrite.image, rewrite.presentImage, extents,
                       isPaddedWithZeros ? rewrite.presentEnd : std::nullopt);
}

bool rewriteHeaderAndDropRecords(QFile& file, QByteArray* image) {
    Extents extents = extentsOf(file);
    const std::optional<RedoRecord> record = findRedoRecord(file);
    if (record && record->isInHeaderRegion()) {
        extents.headerLimit = record->begin;
    }
    // Both would be lost if the header were torn over its own record.
    return LengthLineOffset + image->size() <= extents.headerLimit &&
           writeHeader(file, image, nullptr, extents, std::nullopt) == HeaderPadding::Zero;
}

// After a shorter length line than ours the payload begins so early that our header region would
// reach into it.
bool headerRegionWouldReachPayload(const QFile& file, const std::optional<LengthLine>& line) {
    return line && line->lineBytes < LengthLineBytes &&
           file.size() > line->headerOffset() + HeaderRegionBytes;
}

// Whether the bytes of the image from @p offset on are in the file.
bool hasBytes(QFile& file, QByteArrayView image, qint64 offset, qint64 size) {
    return file.seek(LengthLineOffset + offset) && file.read(size) == image.sliced(offset, size);
}

// Whether the file has this length line and header, as far as their beginning and end show.
bool hasHeader(QFile& file, QByteArrayView image) {
    const qint64 size = std::min<qint64>(ComparedBytes, image.size());
    return !image.isEmpty() && file.size() >= PayloadOffset && hasBytes(file, image, 0, size) &&
           hasBytes(file, image, image.size() - size, size);
}

// Whether everything but the sealed index is within the beginning that is compared. A name of an
// algorithm in a header that another program wrote may be of any length.
bool isRecognisable(QByteArrayView image) {
    return image.first(std::min<qint64>(ComparedBytes, image.size()))
        .contains("},\"encryptedIndex\":\"");
}

} // namespace

bool HeaderWriter::rewrite(const ContainerDocument& document, const ContainerDocument& record,
                           WithoutRecord withoutRecord) {
    const HeaderPadding presentPadding = std::exchange(m_padding, HeaderPadding::Unknown);
    const QByteArray present = std::exchange(m_written, {});
    QFile file(m_path);
    if (!openContainer(file, QIODevice::ReadWrite)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    if (headerRegionWouldReachPayload(file, line) || !encodeHeader(document, &m_image) ||
        !encodeRecordImage(record, &m_recordedImage)) {
        return false;
    }
    HeaderRewrite rewrite{&m_image, m_recordedImage,        nullptr,
                          {},       HeaderPadding::Unknown, withoutRecord};
    if (line) {
        rewrite.presentEnd = line->headerEnd();
        rewrite.padding =
            line->lineBytes == LengthLineBytes ? presentPadding : HeaderPadding::Unknown;
    }
    if (rewrite.padding == HeaderPadding::Zero && hasHeader(file, present)) {
        rewrite.presentImage = &present;
    }
    const std::optional<HeaderPadding> newPadding = rewriteHeader(file, rewrite);
    m_padding = newPadding.value_or(HeaderPadding::Unknown);
    if (newPadding && isRecognisable(m_image)) {
        m_written = std::exchange(m_image, present);
    }
    return newPadding.has_value();
}

bool HeaderWriter::hasHeaderAsWritten() const {
    QFile file(m_path);
    return !m_written.isEmpty() && openContainer(file, QIODevice::ReadOnly) &&
           hasHeader(file, m_written) && !findRedoRecord(file);
}

bool HeaderWriter::restore(const ContainerDocument& document) const {
    QFile file(m_path);
    if (!openContainer(file, QIODevice::ReadWrite) || !findRedoRecord(file)) {
        return false;
    }
    QByteArray image;
    return encodeHeader(document, &image) && rewriteHeaderAndDropRecords(file, &image);
}

bool HeaderWriter::dropRecord() const {
    QFile file(m_path);
    if (!openContainer(file, QIODevice::ReadWrite)) {
        return false;
    }
    const std::optional<LengthLine> line = readLengthLine(file);
    if (!line || headerRegionWouldReachPayload(file, line) || !file.seek(LengthLineOffset)) {
        return false;
    }
    QByteArray image = file.read(line->lineBytes + line->headerBytes);
    return image.size() == line->lineBytes + line->headerBytes &&
           rewriteHeaderAndDropRecords(file, &image);
}

} // namespace Tessel::Core
