// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Hostile bytes where a redo record may be, after the payload or at the end of the header region,
// and at the start of the container.

#include "core/ContainerLayout.h"
#include "core/ContainerManager.h"
#include "core/HeaderWriter.h"
#include "core/LengthLine.h"
#include "fuzz/FuzzTarget.h"

#include <QCryptographicHash>

using namespace Tessel::Core;
using namespace Tessel::Fuzz;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr std::uint8_t SealedRecord = 1;
constexpr std::uint8_t OwnLengthLine = 2;
constexpr std::uint8_t TwoRecords = 4;
constexpr std::uint8_t RewriteHeader = 8;
constexpr std::uint8_t InHeaderRegion = 16;
constexpr std::uint8_t IndexBehindHeader = 32;

constexpr qsizetype SealedIndexBytes = 40;

const QByteArray Payload = "the payload"_ba;

struct HostileFile {
    std::uint8_t shape = 0;
    QByteArray start;
    QByteArray tail;
};

// A complete record: anyone can compute its digest.
QByteArray recordOf(const QByteArray& image) {
    return image + QCryptographicHash::hash(image, QCryptographicHash::Sha256) +
           paddedNumber(image.size()) + "TESSEL-REDO\n";
}

// The first byte selects what the rest becomes: bytes as they are, or a record's header, with or
// without its length line, and with or without a sealed index behind it. The second byte is the
// size of what is in the header's place.
HostileFile fileFrom(Input input) {
    HostileFile file;
    file.shape = input.takeByte();
    file.start = input.take(input.takeByte());
    file.tail = input.takeRest();
    if ((file.shape & OwnLengthLine) != 0) {
        const bool hasIndex = (file.shape & IndexBehindHeader) != 0;
        file.tail.prepend(lengthLineFor(file.tail.size() - (hasIndex ? SealedIndexBytes : 0)));
    }
    if ((file.shape & SealedRecord) != 0) {
        file.tail = recordOf(file.tail);
    }
    if ((file.shape & TwoRecords) != 0) {
        file.tail += file.tail;
    }
    return file;
}

void write(const MemoryFile& memory, const HostileFile& file) {
    memory.reset(ContainerLayout::PayloadOffset);
    memory.write(0, ContainerLayout::FileMagic.toByteArray() + file.start);
    if ((file.shape & InHeaderRegion) == 0) {
        memory.write(ContainerLayout::PayloadOffset, Payload + file.tail);
        return;
    }
    memory.write(ContainerLayout::PayloadOffset - file.tail.size(), file.tail + Payload);
}

void checkPayload(const MemoryFile& memory) {
    expect(memory.read(ContainerLayout::PayloadOffset, Payload.size()) == Payload,
           "the payload stays as it is");
}

void checkRepair(const MemoryFile& memory, const ContainerManager& manager,
                 const ContainerDocument& recorded) {
    expect(HeaderWriter(memory.path()).restore(recorded),
           "a record that can be read can be put in place");
    ContainerDocument repaired;
    expect(manager.readDocument(memory.path(), &repaired), "a repaired container can be read");
    expect(manager.buildHeader(repaired) == manager.buildHeader(recorded),
           "the repaired header is the record's");
    expect(repaired.payloadOffset == recorded.payloadOffset, "the payload stays where it is");
    ContainerDocument none;
    expect(!manager.readRedoRecord(memory.path(), &none), "the record is gone");
    checkPayload(memory);
}

void checkRewrite(const MemoryFile& memory, const ContainerManager& manager, bool hasRecord,
                  bool inRegion) {
    const qint64 sizeBefore = memory.size();
    const QByteArray startBefore = memory.read(0, 512);
    const QByteArray tailBefore = memory.read(ContainerLayout::PayloadOffset, sizeBefore);
    ContainerDocument document;
    document.encryptedIndex = QByteArray(100, 'i');
    if (!manager.updateDocumentHeader(memory.path(), document)) {
        expect(memory.size() == sizeBefore && memory.read(0, 512) == startBefore,
               "a refused rewrite changes nothing");
        return;
    }
    ContainerDocument read;
    expect(manager.readDocument(memory.path(), &read) &&
               manager.buildHeader(read) == manager.buildHeader(document),
           "a rewritten header reads back");
    const QByteArray tail = memory.read(ContainerLayout::PayloadOffset, sizeBefore);
    expect(tailBefore.startsWith(tail), "a rewrite adds nothing to the payload");
    expect(!hasRecord || inRegion || tail.size() < tailBefore.size(),
           "a rewrite takes the record away");
    ContainerDocument none;
    expect(!manager.readRedoRecord(memory.path(), &none), "no record is left");
    checkPayload(memory);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile memory;
    const HostileFile file = fileFrom(Input(data, size));
    write(memory, file);

    const ContainerManager manager;
    ContainerDocument recorded;
    const bool hasRecord = manager.readRedoRecord(memory.path(), &recorded);
    if ((file.shape & RewriteHeader) != 0) {
        checkRewrite(memory, manager, hasRecord, (file.shape & InHeaderRegion) != 0);
    } else if (hasRecord) {
        checkRepair(memory, manager, recorded);
    }
    return 0;
}
