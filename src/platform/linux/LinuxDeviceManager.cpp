// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "platform/linux/LinuxDeviceManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QSet>
#include <QStorageInfo>
#include <QStringList>

#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Platform::Linux {

namespace {

/// The name of a device, by which devices are compared: sysfs, the label links and both lists of
/// mounts agree on it, while a device node may have several paths.
QString lastPathComponent(const QString& path) {
    return QFileInfo(path).fileName();
}

bool isDeviceNode(const QString& path) {
    return path.startsWith(u"/dev/");
}

/// Decodes the octal escapes of the mount table.
QString decodeMountInfoToken(QString token) {
    token.replace(u"\\040"_s, u" "_s);
    token.replace(u"\\011"_s, u"\t"_s);
    token.replace(u"\\012"_s, u"\n"_s);
    // The backslash comes last: an escaped one before digits must not become another escape.
    token.replace(u"\\134"_s, u"\\"_s);
    return token;
}

QString readFirstLine(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return {};
    }
    return QString::fromUtf8(file.readLine()).trimmed();
}

QString blockDeviceSysfsPath(const QString& name) {
    return QFileInfo(u"/sys/class/block/%1"_s.arg(name)).canonicalFilePath();
}

QString parentDiskName(const QString& name) {
    const QString marker = u"/block/"_s;
    const QString path = blockDeviceSysfsPath(name);
    const qsizetype at = path.indexOf(marker);
    if (at < 0) {
        return {};
    }
    return path.mid(at + marker.size()).section(u'/', 0, 0);
}

bool isUsbBlockDevice(const QString& name) {
    const QString marker = u"/usb"_s;
    if (blockDeviceSysfsPath(name).contains(marker)) {
        return true;
    }
    const QString parent = parentDiskName(name);
    return !parent.isEmpty() && blockDeviceSysfsPath(parent).contains(marker);
}

bool hasRemovableFlag(const QString& name) {
    return readFirstLine(u"/sys/class/block/%1/removable"_s.arg(name)) == u"1";
}

/// Partitions have no flag of their own; their disk has it.
bool isRemovableBlockDevice(const QString& name) {
    if (hasRemovableFlag(name)) {
        return true;
    }
    const QString parent = parentDiskName(name);
    return !parent.isEmpty() && hasRemovableFlag(parent);
}

bool isOpticalBlockDevice(const QString& name) {
    const QString scsiTypeOfOpticalDrives = u"5"_s;
    const QString parent = parentDiskName(name);
    const QString disk = parent.isEmpty() ? name : parent;
    return readFirstLine(u"/sys/class/block/%1/device/type"_s.arg(disk)) == scsiTypeOfOpticalDrives;
}

bool isUsbDisk(const QString& name) {
    return isUsbBlockDevice(name) && !isOpticalBlockDevice(name);
}

/// The mount directory's name; the device's for a volume mounted at "/".
QString fallbackDisplayName(const QString& devicePath, const QString& rootPath) {
    const QString directory = lastPathComponent(rootPath);
    return directory.isEmpty() ? lastPathComponent(devicePath) : directory;
}

QString mountedVolumeId(const QString& devicePath, const QString& rootPath) {
    return u"%1:%2"_s.arg(devicePath, rootPath);
}

QString displayNameOf(const QStorageInfo& storage, const QString& devicePath,
                      const QString& rootPath) {
    // Some versions of Qt call a directory that cannot be reached by its path.
    if (!QFileInfo::exists(rootPath)) {
        return fallbackDisplayName(devicePath, rootPath);
    }
    if (!storage.displayName().isEmpty()) {
        return storage.displayName();
    }
    if (!storage.name().isEmpty()) {
        return storage.name();
    }
    return fallbackDisplayName(devicePath, rootPath);
}

QMap<QString, QString> blockLabelMap() {
    QMap<QString, QString> labels;
    const QDir directory(u"/dev/disk/by-label"_s);
    const QStringList names =
        directory.entryList(QDir::Files | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QString& label : names) {
        const QString device = QFileInfo(directory.filePath(label)).canonicalFilePath();
        if (isDeviceNode(device)) {
            labels.insert(lastPathComponent(device), label);
        }
    }
    return labels;
}

QStringList probableUsers() {
    QStringList users;
    for (const char* variable : {"USER", "LOGNAME"}) {
        const QString user = qEnvironmentVariable(variable);
        if (!user.isEmpty() && !users.contains(user)) {
            users.append(user);
        }
    }
    return users;
}

QString mountedRootForLabel(const QString& label) {
    if (label.isEmpty()) {
        return {};
    }
    const QStringList users = probableUsers();
    QStringList candidates;
    for (const QString& pattern : {u"/media/%1/%2"_s, u"/run/media/%1/%2"_s}) {
        for (const QString& user : users) {
            candidates.append(pattern.arg(user, label));
        }
    }
    candidates.append(u"/mnt/%1"_s.arg(label));
    for (const QString& candidate : std::as_const(candidates)) {
        if (QFileInfo(candidate).isDir()) {
            return candidate;
        }
    }
    return {};
}

QStringList subdirectories(const QString& path) {
    return QDir(path).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Unsorted);
}

/// Such a disk holds no volume itself.
bool isDiskWithPartitions(const QString& name) {
    if (parentDiskName(name) != name) {
        return false;
    }
    const QStringList children = subdirectories(u"/sys/class/block/%1"_s.arg(name));
    for (const QString& child : children) {
        if (child.startsWith(name) && child != name) {
            return true;
        }
    }
    return false;
}

/// What one detection has found so far. The seen names and roots keep a later source from listing
/// a volume a second time.
struct Findings {
    QList<UsbDevice> devices;
    QSet<QString> seenRootPaths;
    QSet<QString> seenDeviceNames;

    void addMounted(const UsbDevice& device) {
        devices.append(device);
        seenDeviceNames.insert(lastPathComponent(device.devicePath));
        seenRootPaths.insert(device.rootPath);
    }
};

void addStorageVolume(const QStorageInfo& volume, Findings* findings) {
    UsbDevice device;
    device.devicePath = QString::fromLocal8Bit(volume.device());
    if (!isDeviceNode(device.devicePath) || !volume.isValid() || !volume.isReady()) {
        return;
    }
    const QString name = lastPathComponent(device.devicePath);
    if (!isUsbDisk(name)) {
        return;
    }
    device.rootPath = volume.rootPath();
    if (device.rootPath.isEmpty() || findings->seenRootPaths.contains(device.rootPath)) {
        return;
    }
    device.id = mountedVolumeId(device.devicePath, device.rootPath);
    device.displayName = displayNameOf(volume, device.devicePath, device.rootPath);
    device.fileSystemType = QString::fromLocal8Bit(volume.fileSystemType());
    device.removable = isRemovableBlockDevice(name);
    device.mounted = true;
    findings->addMounted(device);
}

struct MountTableEntry {
    QString mountPoint;
    QString fileSystemType;
    QString source;
};

/// The layout of a line is in proc(5), /proc/pid/mountinfo; a variable number of optional fields
/// precedes the separator. @return false for a line that is too short.
bool parseMountTableLine(const QString& line, MountTableEntry* entry) {
    const QString separator = u" - "_s;
    const qsizetype at = line.indexOf(separator);
    if (at < 0) {
        return false;
    }
    const QStringList mount = line.left(at).split(u' ', Qt::SkipEmptyParts);
    const QStringList fileSystem = line.mid(at + separator.size()).split(u' ', Qt::SkipEmptyParts);
    if (mount.size() < 5 || fileSystem.size() < 3) {
        return false;
    }
    entry->mountPoint = decodeMountInfoToken(mount.at(4));
    entry->fileSystemType = decodeMountInfoToken(fileSystem.at(0));
    entry->source = decodeMountInfoToken(fileSystem.at(1));
    return true;
}

void addMountTableEntry(const MountTableEntry& entry, Findings* findings) {
    if (!isDeviceNode(entry.source) || findings->seenRootPaths.contains(entry.mountPoint)) {
        return;
    }
    const QString name = lastPathComponent(entry.source);
    if (findings->seenDeviceNames.contains(name) || !isUsbDisk(name)) {
        return;
    }
    const QStorageInfo storage(entry.mountPoint);
    const bool storageKnowsRoot = storage.isValid() && !storage.rootPath().isEmpty();
    UsbDevice device;
    device.devicePath = entry.source;
    device.rootPath = storageKnowsRoot ? storage.rootPath() : entry.mountPoint;
    device.id = mountedVolumeId(device.devicePath, device.rootPath);
    device.displayName = displayNameOf(storage, device.devicePath, device.rootPath);
    device.fileSystemType = entry.fileSystemType.isEmpty()
                                ? QString::fromLocal8Bit(storage.fileSystemType())
                                : entry.fileSystemType;
    device.removable = isRemovableBlockDevice(name);
    device.mounted = true;
    findings->addMounted(device);
}

void addStorageVolumes(Findings* findings) {
    const QList<QStorageInfo> volumes = QStorageInfo::mountedVolumes();
    for (const QStorageInfo& volume : volumes) {
        addStorageVolume(volume, findings);
    }
}

/// @return false when the table cannot be opened.
bool addMountTable(Findings* findings) {
    QFile table(u"/proc/self/mountinfo"_s);
    if (!table.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return false;
    }
    // Until a read returns nothing: the kernel reports the size 0, so atEnd() is true at once.
    for (QByteArray line = table.readLine(); !line.isEmpty(); line = table.readLine()) {
        if (line.endsWith('\n')) {
            line.chop(1);
        }
        MountTableEntry entry;
        if (parseMountTableLine(QString::fromLocal8Bit(line), &entry)) {
            addMountTableEntry(entry, findings);
        }
    }
    return true;
}

void addBlockDevices(Findings* findings) {
    const QMap<QString, QString> labels = blockLabelMap();
    const QStringList names = subdirectories(u"/sys/class/block"_s);
    for (const QString& name : names) {
        if (findings->seenDeviceNames.contains(name) || !isUsbDisk(name) ||
            isDiskWithPartitions(name)) {
            continue;
        }
        const QString label = labels.value(name);
        UsbDevice device;
        device.devicePath = u"/dev/%1"_s.arg(name);
        device.id = device.devicePath;
        device.displayName = label.isEmpty() ? name : label;
        device.rootPath = mountedRootForLabel(device.displayName);
        device.removable = isRemovableBlockDevice(name);
        device.mounted = !device.rootPath.isEmpty();
        findings->devices.append(device);
    }
}

} // namespace

QList<UsbDevice> LinuxDeviceManager::detectUsbDevices() const {
    Findings findings;
    addStorageVolumes(&findings);
    // Only the mount table tells a mounted block device from an unmounted one: without it, block
    // devices are not listed.
    if (addMountTable(&findings)) {
        addBlockDevices(&findings);
    }
    return findings.devices;
}

} // namespace Tessel::Platform::Linux
