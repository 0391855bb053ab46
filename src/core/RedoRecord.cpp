// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/RedoRecord.h"

#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/FileDigest.h"

#include <QFile>

#include <cerrno>

#include <unistd.h>

namespace Tessel::Core {

namespace {

using namespace ContainerLayout;

// The trailer: digest of the image, its size in twenty digits, and a mark. It stands at the end so
// that a record is found from there, and is whole only when all of the record is.
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

std::optional<RedoRecord> findRecordEndingAt(QFile& file, qint64 end) {
    if (end < PayloadOffset + TrailerBytes) {
        return std::nullopt;
    }
    const QByteArray trailer = readAt(file, end - TrailerBytes, TrailerBytes);
    if (trailer.size() != TrailerBytes || !trailer.endsWith(RecordMark)) {
        return std::nullopt;
    }
    bool isNumber = false;
    const qint64 imageBytes = trailer.mid(DigestBytes, LengthDigits).toLongLong(&isNumber);
    if (!isNumber || imageBytes <= LengthLineBytes || imageBytes > LargestImage ||
        imageBytes > end - TrailerBytes - PayloadOffset) {
        return std::nullopt;
    }
    const qint64 begin = end - TrailerBytes - imageBytes;
    const RedoRecord record{begin, readAt(file, begin, imageBytes)};
    // Anyone can make a digest. A header under another length line would not open once it stood in
    // its place, and the record would be gone.
    const bool whole = record.headerImage.size() == imageBytes &&
                       record.headerImage.startsWith(lengthLineFor(imageBytes - LengthLineBytes)) &&
                       digestOf(record.headerImage) == trailer.left(DigestBytes);
    return whole ? std::optional<RedoRecord>(record) : std::nullopt;
}

// The descriptor itself, because only errno tells a full drive from a failing one.
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

bool isOutOfRoom(int error) {
    return error == ENOSPC || error == EDQUOT || error == EFBIG;
}

} // namespace

std::optional<RedoRecord> findRedoRecord(QFile& file) {
    return findRecordEndingAt(file, file.size());
}

qint64 endOfPayload(QFile& file) {
    qint64 end = file.size();
    while (const std::optional<RedoRecord> record = findRecordEndingAt(file, end)) {
        end = record->begin;
    }
    return end;
}

RedoRecordResult appendRedoRecord(QFile& file, const QByteArray& headerImage) {
    const QByteArray digest = digestOf(headerImage);
    if (digest.size() != DigestBytes) {
        return RedoRecordResult::Failed;
    }
    const qint64 begin = file.size();
    const QByteArray trailer = digest + paddedNumber(headerImage.size()) + RecordMark.toByteArray();
    const bool written = writeAt(file.handle(), headerImage, begin) &&
                         writeAt(file.handle(), trailer, begin + headerImage.size());
    const bool outOfRoom = !written && isOutOfRoom(errno);
    // A sync that fails, even for want of room, may have lost blocks that were written before the
    // record, and a later one would not tell: only a write may be answered with doing without.
    if (written && syncToDrive(file)) {
        return RedoRecordResult::Written;
    }
    const bool restored = file.resize(begin);
    return outOfRoom && restored ? RedoRecordResult::NoRoom : RedoRecordResult::Failed;
}

} // namespace Tessel::Core
