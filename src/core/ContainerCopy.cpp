// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerCopy.h"

#include "core/ContainerLayout.h"
#include "core/DiskSync.h"
#include "core/PrivateFile.h"
#include "core/SameFile.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

namespace Tessel::Core {

namespace {

constexpr qint64 PieceBytes = qint64{8} * 1024 * 1024;

bool isSomethingElseThanAFile(const QString& path) {
    const QFileInfo info(path);
    return info.exists() && !info.isFile();
}

// Copies everything after the magic. Both files are at its end.
bool copyAfterMagic(QFile& source, QFileDevice& target, qint64 total,
                    const CopyProgress& progress) {
    QByteArray piece(PieceBytes, Qt::Uninitialized);
    for (qint64 copied = source.pos(); copied < total;) {
        // The pieces end at whole multiples, the first one is shorter by the magic.
        const qint64 wanted = std::min(PieceBytes - copied % PieceBytes, total - copied);
        const qint64 size = source.read(piece.data(), wanted);
        if (size < 1 || target.write(piece.constData(), size) != size ||
            !startWriteBack(target, copied, size)) {
            return false;
        }
        copied += size;
        progress(copied, total);
    }
    return true;
}

} // namespace

bool copyContainer(QFile& source, QFileDevice& target, const CopyProgress& progress) {
    const qint64 total = source.size();
    progress(0, total);
    const QByteArray magic = source.read(ContainerLayout::FileMagic.size());
    return target.seek(magic.size()) && copyAfterMagic(source, target, total, progress) &&
           source.size() == total && syncToDrive(target) && target.seek(0) &&
           target.write(magic) == magic.size() && syncToDrive(target) && target.size() == total;
}

ContainerBackup::ContainerBackup(const QString& destination) : m_destination(destination) {}

bool ContainerBackup::create(const QString& containerPath) {
    // A pipe or a device keeps no backup, and may block.
    if (isSomethingElseThanAFile(m_destination)) {
        return false;
    }
    if (isSameFile(m_destination, containerPath)) {
        const bool isLink = QFileInfo(m_destination).isSymLink();
        if (!isLink || !QFile::remove(m_destination)) {
            return false;
        }
    }
    m_file.setFileName(m_destination);
    return openPrivately(m_file);
}

bool ContainerBackup::copyFrom(QFile& source, const CopyProgress& progress) {
    const bool replaces = QFileInfo::exists(m_destination);
    if (!copyContainer(source, m_file, progress) || !m_file.commit()) {
        m_file.cancelWriting();
        return false;
    }
    if (syncAfterRename(QFileInfo(m_destination).canonicalFilePath())) {
        return true;
    }
    // The copy is whole. If it has replaced another file, it is the only backup there.
    static_cast<void>(replaces || QFile::remove(m_destination));
    return false;
}

} // namespace Tessel::Core
