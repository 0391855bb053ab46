// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/fake_usb.h"

#include "support/MustRun.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QtGlobal>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

QString mountTable() {
    return u"/proc/self/mountinfo"_s;
}

[[noreturn]] void giveUp(const char* what, const QString& where) {
    const int error = errno;
    qFatal("fake machine: %s %s: %s", what, qPrintable(where), std::strerror(error));
}

int refuse(const char* what) {
    const QByteArray reason =
        "this machine refuses a namespace of its own: "_ba + what + ": " + std::strerror(errno);
    return refused(reason.constData());
}

bool writeExisting(const char* path, const QByteArray& text) {
    const int file = ::open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return false;
    }
    const bool written = ::write(file, text.constData(), static_cast<size_t>(text.size())) ==
                         static_cast<ssize_t>(text.size());
    ::close(file);
    return written;
}

void writeNew(const QString& path, const QByteArray& text) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size() || !file.flush()) {
        giveUp("write", path);
    }
}

void makePath(const QString& path) {
    if (!QDir().mkpath(path)) {
        giveUp("make", path);
    }
}

void link(const QString& target, const QString& path) {
    if (!QFile::link(target, path)) {
        giveUp("link", path);
    }
}

// The paths of both kinds of disk end in /block/NAME; only what is before it tells the bus.
QString controllerPath(FakeUsb::Bus bus, const QString& disk) {
    const QString pattern = bus == FakeUsb::Bus::Usb
                                ? u"/sys/devices/pci0000:00/0000:00:14.0/usb2/%1"_s
                                : u"/sys/devices/pci0000:00/0000:00:17.0/ata1/%1"_s;
    return pattern.arg(disk);
}

// A special file that every user may create. It passes for a device node where only its path
// counts, as for Qt 6.4, and not even root can open it.
void makeSocket(const QString& path) {
    if (::mknod(QFile::encodeName(path).constData(), S_IFSOCK | 0600, 0) != 0) {
        giveUp("make", path);
    }
}

QString descriptorPath(int descriptor) {
    return u"/proc/self/fd/%1"_s.arg(descriptor);
}

void bindMount(const QString& source, const QString& target) {
    if (::mount(QFile::encodeName(source).constData(), QFile::encodeName(target).constData(),
                nullptr, MS_BIND, nullptr) != 0) {
        giveUp("bind", target);
    }
}

/// Descriptors of the machine's own block devices, which reach no contents.
QList<int> openBlockNodes() {
    QList<int> nodes;
    const QStringList names =
        QDir(u"/dev"_s).entryList(QDir::Files | QDir::System | QDir::NoSymLinks);
    for (const QString& name : names) {
        const QByteArray path = QFile::encodeName(u"/dev/"_s + name);
        struct stat status = {};
        if (::stat(path.constData(), &status) == 0 && S_ISBLK(status.st_mode)) {
            nodes.append(::open(path.constData(), O_PATH | O_CLOEXEC));
        }
    }
    nodes.removeAll(-1);
    return nodes;
}

/// Shows a device node at another path, where nobody can open it.
void showNode(int node, const QString& path) {
    writeNew(path, {});
    bindMount(descriptorPath(node), path);
    constexpr unsigned long Closed =
        MS_REMOUNT | MS_BIND | MS_NODEV | MS_NOSUID | MS_NOEXEC | MS_RDONLY;
    if (::mount(nullptr, QFile::encodeName(path).constData(), nullptr, Closed, nullptr) != 0) {
        giveUp("close", path);
    }
}

} // namespace

int enterFakeMachine() {
    const QByteArray uidMap = "0 " + QByteArray::number(::geteuid()) + " 1";
    const QByteArray gidMap = "0 " + QByteArray::number(::getegid()) + " 1";
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return refuse("unshare");
    }
    // Otherwise the kernel lets only the administrator map a group.
    if (!writeExisting("/proc/self/setgroups", "deny") ||
        !writeExisting("/proc/self/uid_map", uidMap) ||
        !writeExisting("/proc/self/gid_map", gidMap)) {
        return refuse("map of users");
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return refuse("private mounts");
    }
    return 0;
}

FakeUsb::FakeUsb() {
    for (const QString& directory : {u"/sys"_s, u"/media"_s, u"/mnt"_s}) {
        coverWithEmptyDirectory(directory);
    }
    makePath(u"/sys/class/block"_s);
}

FakeUsb::~FakeUsb() {
    while (!m_mounted.isEmpty()) {
        unmount(m_mounted.last());
    }
    for (const int node : std::as_const(m_blockNodes)) {
        ::close(node);
    }
}

void FakeUsb::addDisk(const QString& disk, Bus bus) {
    const QString controller = controllerPath(bus, disk);
    const QString directory = controller + u"/block/"_s + disk;
    addBlockDeviceAt(directory);
    makePath(controller + u"/scsi"_s);
    link(controller + u"/scsi"_s, directory + u"/device"_s);
}

void FakeUsb::addPartition(const QString& disk, const QString& partition) {
    const QString directory = QFileInfo(u"/sys/class/block/%1"_s.arg(disk)).canonicalFilePath();
    addBlockDeviceAt(directory + u'/' + partition);
}

void FakeUsb::addBlockDeviceAt(const QString& directory) {
    makePath(directory);
    link(directory, u"/sys/class/block/%1"_s.arg(QFileInfo(directory).fileName()));
}

void FakeUsb::setAttribute(const QString& device, const QString& attribute,
                           const QByteArray& value) {
    writeNew(u"/sys/class/block/%1/%2"_s.arg(device, attribute), value + '\n');
}

void FakeUsb::addLabel(const QString& label, const QString& device) {
    const QString path = u"/dev/%1"_s.arg(device);
    addLabelLink(label, path);
    if (QFile::exists(path)) {
        return;
    }
    if (m_blockNodes.isEmpty()) {
        makeSocket(path);
        return;
    }
    const int node = m_blockNodes.takeFirst();
    showNode(node, path);
    ::close(node);
}

void FakeUsb::addLabelLink(const QString& label, const QString& target) {
    if (!m_mounted.contains(u"/dev"_s)) {
        replaceDev();
    }
    link(target, u"/dev/disk/by-label/%1"_s.arg(label));
}

void FakeUsb::makeDirectory(const QString& directory) {
    if (directory.startsWith(u"/run/") && !m_mounted.contains(u"/run"_s)) {
        coverWithEmptyDirectory(u"/run"_s);
    }
    makePath(directory);
}

void FakeUsb::mountVolume(const QString& device, const QString& directory, qint64 bytes) {
    makeDirectory(directory);
    // Of another type than what holds it: Qt 6.8 asks for the label of no tmpfs.
    const QString memory = u"/sys/memory"_s;
    makePath(memory);
    mountAt(u"tmpfs"_s, memory, "tmpfs", "mode=0755,size=" + QByteArray::number(bytes));
    for (const QString& part : {u"/lower"_s, u"/upper"_s, u"/work"_s}) {
        makePath(memory + part);
    }
    mountAt(u"/dev/%1"_s.arg(device), directory, "overlay",
            "lowerdir=/sys/memory/lower,upperdir=/sys/memory/upper,workdir=/sys/memory/work,"
            "userxattr");
    unmount(memory);
}

void FakeUsb::mountSizeless(const QString& device, const QString& directory) {
    makeDirectory(directory);
    mountAt(u"/dev/%1"_s.arg(device), directory, "ramfs", {});
}

void FakeUsb::mountOther(const QString& source, const QString& directory) {
    makeDirectory(directory);
    mountAt(source, directory, "tmpfs", "mode=0755,size=1m");
}

void FakeUsb::unmount(const QString& directory) {
    // Detached, so that an open file does not block it.
    if (::umount2(QFile::encodeName(directory).constData(), MNT_DETACH) != 0) {
        giveUp("unmount", directory);
    }
    m_mounted.removeAt(m_mounted.lastIndexOf(directory));
}

void FakeUsb::replaceMountTable(const QByteArray& table) {
    const QString text = u"/sys/mountinfo"_s;
    writeNew(text, table);
    bindMount(text, mountTable());
    m_mounted.append(mountTable());
}

void FakeUsb::breakMountTable() {
    const QString socket = u"/sys/mountinfo"_s;
    makeSocket(socket);
    bindMount(socket, mountTable());
    m_mounted.append(mountTable());
}

void FakeUsb::mountAt(const QString& source, const QString& directory, const char* fileSystem,
                      const QByteArray& options) {
    if (::mount(QFile::encodeName(source).constData(), QFile::encodeName(directory).constData(),
                fileSystem, 0, options.constData()) != 0) {
        giveUp("mount", directory);
    }
    m_mounted.append(directory);
}

void FakeUsb::coverWithEmptyDirectory(const QString& directory) {
    mountAt(u"tmpfs"_s, directory, "tmpfs", "mode=0755");
}

void FakeUsb::replaceDev() {
    // Only the administrator may create a device node, so the real ones are held open while they
    // are covered and then bind-mounted where they were.
    const std::array<const char*, 6> names{"null", "zero", "full", "random", "urandom", "tty"};
    std::array<int, names.size()> nodes{};
    for (size_t i = 0; i < names.size(); ++i) {
        const QByteArray path = QByteArray("/dev/") + names.at(i);
        nodes.at(i) = ::open(path.constData(), O_PATH | O_CLOEXEC);
    }
    m_blockNodes = openBlockNodes();
    coverWithEmptyDirectory(u"/dev"_s);
    makePath(u"/dev/disk/by-label"_s);
    makePath(u"/dev/shm"_s);
    for (size_t i = 0; i < names.size(); ++i) {
        if (nodes.at(i) >= 0) {
            const QString path = u"/dev/%1"_s.arg(QLatin1String(names.at(i)));
            writeNew(path, {});
            bindMount(descriptorPath(nodes.at(i)), path);
            ::close(nodes.at(i));
        }
    }
}

} // namespace Tessel::Tests
