// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Tessel::Tests {

/// Makes this process root of a user and a mount namespace of its own: it may then mount what it
/// likes, nothing of it is seen outside, and all is gone when the process ends. Call it first in
/// main(), because the kernel refuses it to a process that has threads.
///
/// Returns 0 when it is done. Otherwise it prints the reason and returns what main() has to
/// return: 77 ("cannot run here"), or 1 where the environment variable CI is set, because there
/// the tests have to run.
[[nodiscard]] int enterFakeMachine();

/// USB drives without hardware: an empty sysfs, /media and /mnt, to be filled with made-up disks,
/// and mounts whose source is such a disk. The kernel's mount table and QStorageInfo show them as
/// they show real ones. Needs enterFakeMachine(). What cannot be set up ends the process with the
/// reason. The destructor takes everything away again, so that each test starts afresh.
class FakeUsb {
public:
    enum class Bus { Usb, Sata };

    FakeUsb();
    ~FakeUsb();
    Q_DISABLE_COPY_MOVE(FakeUsb)

    /// A whole disk such as sdz, with no attribute set.
    void addDisk(const QString& disk, Bus bus = Bus::Usb);
    /// A partition such as sdz1 of a disk that exists.
    void addPartition(const QString& disk, const QString& partition);
    /// A block device at any place below /sys/devices; the directory's name is the device's.
    void addBlockDeviceAt(const QString& directory);
    /// Writes a file below the device's sysfs directory, such as "removable" or "device/type".
    void setAttribute(const QString& device, const QString& attribute, const QByteArray& value);
    /// A link in /dev/disk/by-label. The label stands as udev would write it. The first call
    /// replaces /dev by one that holds the usual character devices only.
    void addLabel(const QString& label, const QString& device);
    /// A link in /dev/disk/by-label to any path.
    void addLabelLink(const QString& label, const QString& target);

    /// Makes a directory and those above it. /run is replaced by an empty one when it is asked for.
    void makeDirectory(const QString& directory);
    /// Mounts /dev/DEVICE, with as many bytes as given, at a directory, which is made.
    void mountVolume(const QString& device, const QString& directory, qint64 bytes = 8 << 20);
    /// The same as a file system that tells no size: the storage API does not list it, so that
    /// only the mount table shows it.
    void mountSizeless(const QString& device, const QString& directory);
    /// Mounts anything else, for example something that hides what lies beneath it.
    void mountOther(const QString& source, const QString& directory);
    void unmount(const QString& directory);

    /// Puts a made-up text in the place of this process's mount table.
    void replaceMountTable(const QByteArray& table);
    /// Makes the mount table impossible to open.
    void breakMountTable();

private:
    void mountAt(const QString& source, const QString& directory, const char* fileSystem,
                 const QByteArray& options);
    void coverWithEmptyDirectory(const QString& directory);
    void replaceDev();

    QStringList m_mounted;
};

} // namespace Tessel::Tests
