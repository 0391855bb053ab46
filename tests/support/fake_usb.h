// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace Tessel::Tests {

/// Makes this process root of its own user and mount namespaces: it can then mount anything,
/// nothing of it is visible outside, and everything is gone when the process ends. Call it first in
/// main(), because the kernel refuses it to a process that has threads.
///
/// @return 0 on success. Otherwise it prints the reason and returns the exit code for main(): 77
///         ("cannot run here"), or 1 where the environment variable CI is set, because the tests
///         must run there.
[[nodiscard]] int enterFakeMachine();

/// USB drives without hardware: an empty sysfs, /media and /mnt, in which a test creates fake
/// disks, and mounts whose source is such a disk. The kernel's mount table and QStorageInfo show
/// them like real ones. Needs enterFakeMachine(). If something cannot be set up, the process ends
/// with the reason. The destructor removes everything, so that each test starts clean.
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
    /// A link in /dev/disk/by-label. The label is written as udev writes it. The first call
    /// replaces /dev by one with only the usual character devices.
    ///
    /// Qt 6.8 finds a volume's label by the number of a block device, which only the administrator
    /// could make up. Each labelled device shows one of the machine's own, without a way to open
    /// it. Where the machine has none left, Qt 6.8 finds no label.
    void addLabel(const QString& label, const QString& device);
    /// A link in /dev/disk/by-label to any path.
    void addLabelLink(const QString& label, const QString& target);

    /// Creates a directory and those above it. A path in /run first replaces /run by an empty one.
    void makeDirectory(const QString& directory);
    /// Mounts /dev/DEVICE, of the given size, at a directory, which is created.
    void mountVolume(const QString& device, const QString& directory, qint64 bytes = 8 << 20);
    /// The same with a file system that reports no size: QStorageInfo does not list it, only the
    /// mount table does.
    void mountSizeless(const QString& device, const QString& directory);
    /// Mounts anything else, for example something that hides the mount below it.
    void mountOther(const QString& source, const QString& directory);
    void unmount(const QString& directory);

    /// Replaces this process's mount table by @p table.
    void replaceMountTable(const QByteArray& table);
    /// Makes opening the mount table fail.
    void breakMountTable();

private:
    void mountAt(const QString& source, const QString& directory, const char* fileSystem,
                 const QByteArray& options);
    void coverWithEmptyDirectory(const QString& directory);
    void replaceDev();

    QStringList m_mounted;
    /// Not shown as a device yet.
    QList<int> m_blockNodes;
};

} // namespace Tessel::Tests
