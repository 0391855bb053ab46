// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QSaveFile>
#include <QString>

#include <functional>

class QFile;
class QFileDevice;

namespace Tessel::Core {

/// Called with the bytes copied so far and the container's size: with 0 before the first byte, then
/// after each piece of 8 MiB and after the last one.
using CopyProgress = std::function<void(qint64 copied, qint64 total)>;

/// Copies the container @p source byte for byte into the empty file @p target, and waits until the
/// drive has it. The magic is written last, when the drive has everything else: an incomplete copy
/// does not open.
/// @param source at its beginning, and not changed meanwhile
/// @return false when a byte could not be read or written, or when the container became shorter or
///         longer while it was copied. What was written stays in @p target, without the magic.
[[nodiscard]] bool copyContainer(QFile& source, QFileDevice& target, const CopyProgress& progress);

/// A copy of a container under another name. It is written to a temporary file beside its
/// destination and renamed when all of it is on the drive. After a failure the temporary file is
/// removed and the destination is as it was.
class ContainerBackup {
public:
    explicit ContainerBackup(const QString& destination);
    Q_DISABLE_COPY_MOVE(ContainerBackup)

    /// Creates the temporary file. If the destination is a link to the container at
    /// @p containerPath, the link is removed, so that the backup becomes a file of its own.
    /// @return false when that fails, and for a destination that a file must not replace: a pipe, a
    ///         device, a folder, another name of the container itself.
    [[nodiscard]] bool create(const QString& containerPath);
    /// Copies @p source as copyContainer() does and gives the copy its name.
    [[nodiscard]] bool copyFrom(QFile& source, const CopyProgress& progress);

private:
    QString m_destination;
    QSaveFile m_file;
};

} // namespace Tessel::Core
