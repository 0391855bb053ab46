// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/RedoRecord.h"

#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/FileDigest.h"
#include "core/LengthLine.h"

#include <QFile>

#include <cerrno>

#include <unistd.h>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

// The trailer: digest of the image, its size in twenty digits, and a mark. It comes last, so that a
// record can be found from its end and has a trailer only if it was written to the end.
constexpr QByteArrayView RecordMark("TESSEL-REDO\n");
constexpr qint64 DigestBytes = 32;
constexpr qint64 TrailerBytes = DigestBytes + LengthDigits + RecordMark.size();
constexpr qint64 LargestImage = LengthLineBytes + HeaderRegionBytes;

QByteArray digestOf(const QByteArray& bytes) {
    FileDigest digest;
    return digest.addData(bytes) ? digest.result() : QByteArray();
}

QByteArray readAt(QFile& file, qint64 offset, qint64 size) {
    return file.seek(offset) ? file.read(size) : QByteArray();
}

// The size of the header in an image. Anyone can compute a digest: the length line must be exactly
// ours, and the header within the image.
std::optional<qint64> headerBytesOf(const QByteArray& image) {
    bool isNumber = false;
    const qint64 headerBytes = image.first(LengthDigits).toLongLong(&isNumber);
    const bool isOurs = isNumber && headerBytes >= 1 &&
                        headerBytes <= image.size() - LengthLineBytes &&
                        image.startsWith(lengthLineFor(headerBytes));
    return isOurs ? std::optional<qint64>(headerBytes) : std::nullopt;
}

// The record that ends there and begins no earlier than @p from.
std::optional<RedoRecord> findRecordEndingAt(QFile& file, qint64 end, qint64 from) {
    if (end < from + TrailerBytes) {
        return std::nullopt;
    }
    const QByteArray trailer = readAt(file, end - TrailerBytes, TrailerBytes);
    if (trailer.size() != TrailerBytes || !trailer.endsWith(RecordMark)) {
        return std::nullopt;
    }
    bool isNumber = false;
    const qint64 imageBytes = trailer.mid(DigestBytes, LengthDigits).toLongLong(&isNumber);
    if (!isNumber || imageBytes <= LengthLineBytes || imageBytes > LargestImage ||
        imageBytes > end - TrailerBytes - from) {
        return std::nullopt;
    }
    const qint64 begin = end - TrailerBytes - imageBytes;
    const QByteArray image = readAt(file, begin, imageBytes);
    const bool isWhole = image.size() == imageBytes && digestOf(image) == trailer.left(DigestBytes);
    const std::optional<qint64> headerBytes = isWhole ? headerBytesOf(image) : std::nullopt;
    if (!headerBytes) {
        return std::nullopt;
    }
    const qint64 headerEnd = LengthLineBytes + *headerBytes;
    return RedoRecord{begin, image.sliced(LengthLineBytes, *headerBytes), image.sliced(headerEnd)};
}

// By descriptor, because only errno tells a full drive from a failing one.
bool writeAt(int descriptor, QByteArrayView bytes, qint64 offset) {
    while (!bytes.isEmpty()) {
        const ssize_t written =
            ::pwrite(descriptor, bytes.data(), static_cast<std::size_t>(bytes.size()), offset);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes = bytes.sliced(written);
        offset += written;
    }
    return true;
}

bool isOutOfSpace(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

QByteArray trailerOf(const QByteArray& image) {
    const QByteArray digest = digestOf(image);
    return digest.size() == DigestBytes
               ? digest + paddedNumber(image.size()) + RecordMark.toByteArray()
               : QByteArray();
}

// Writes a record at @p begin and waits for the drive. When anything fails, @p undo removes the
// record.
template <typename Undo>
RedoRecordResult writeRecordAt(QFile& file, qint64 begin, const QByteArray& image, Undo undo) {
    const QByteArray trailer = trailerOf(image);
    if (trailer.isEmpty()) {
        return RedoRecordResult::Failed;
    }
    const bool written = writeAt(file.handle(), image, begin) &&
                         writeAt(file.handle(), trailer, begin + image.size());
    const bool outOfSpace = !written && isOutOfSpace(errno);
    // A sync that fails, even for lack of space, may have lost blocks written before the record,
    // and a later sync would not report it. Only after a failed write may a rewrite do without a
    // record.
    if (written && syncToDrive(file)) {
        return RedoRecordResult::Written;
    }
    const bool undone = undo();
    return outOfSpace && undone ? RedoRecordResult::NoRoom : RedoRecordResult::Failed;
}

std::optional<RedoRecord> findRecordBehindPayload(QFile& file, qint64 end) {
    return findRecordEndingAt(file, end, PayloadOffset);
}

} // namespace

bool RedoRecord::isInHeaderRegion() const {
    return begin < PayloadOffset;
}

std::optional<RedoRecord> findRedoRecord(QFile& file) {
    const std::optional<RedoRecord> record = findRecordBehindPayload(file, file.size());
    return record ? record : findRecordEndingAt(file, PayloadOffset, HeaderOffset);
}

qint64 endOfPayload(QFile& file) {
    qint64 end = file.size();
    while (const std::optional<RedoRecord> record = findRecordBehindPayload(file, end)) {
        end = record->begin;
    }
    return end;
}

RedoRecordResult appendRedoRecord(QFile& file, const QByteArray& image) {
    const qint64 begin = file.size();
    return writeRecordAt(file, begin, image, [&] { return file.resize(begin); });
}

qint64 regionRecordBegin(const QByteArray& image) {
    return PayloadOffset - TrailerBytes - image.size();
}

RedoRecordResult writeRegionRecord(QFile& file, const QByteArray& image) {
    const qint64 begin = regionRecordBegin(image);
    return writeRecordAt(file, begin, image, [&] { return eraseRegionFrom(file, begin); });
}

bool eraseRegionFrom(QFile& file, qint64 begin) {
    return writeAt(file.handle(), QByteArray(PayloadOffset - begin, '\0'), begin) &&
           syncToDrive(file);
}

bool eraseLostRegionRecord(QFile& file, qint64 headerEnd) {
    const qint64 begin = PayloadOffset - TrailerBytes;
    const QByteArray zeros(TrailerBytes, '\0');
    // Any other bytes there are found and zeroed by the rewrite of the header.
    return headerEnd > begin || readAt(file, begin, TrailerBytes) != zeros ||
           writeAt(file.handle(), zeros, begin) || isOutOfSpace(errno);
}

} // namespace Tessel::Core
