// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/Faults.h"

#include "support/fake_usb.h"

#include <QByteArray>
#include <QDir>
#include <QFile>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace Tessel::Tests {

namespace {

bool privateMounts = false;

constexpr quint32 PermissionOverrides = (1U << CAP_DAC_OVERRIDE) | (1U << CAP_DAC_READ_SEARCH);

using CapabilityWords = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

CapabilityWords capabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    CapabilityWords words{};
    if (::syscall(SYS_capget, &header, words.data()) != 0) {
        qFatal("capget failed");
    }
    return words;
}

void setEffective(quint32 low) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    CapabilityWords words = capabilities();
    words[0].effective = low;
    if (::syscall(SYS_capset, &header, words.data()) != 0) {
        qFatal("capset failed");
    }
}

bool bindOnItself(const QByteArray& path) {
    return ::mount(path.constData(), path.constData(), nullptr, MS_BIND, nullptr) == 0;
}

// In a user namespace, a remount must keep the restrictions of the mount.
unsigned long inheritedFlags(const QByteArray& path) {
    struct statvfs about = {};
    if (::statvfs(path.constData(), &about) != 0) {
        return 0;
    }
    unsigned long flags = (about.f_flag & ST_NOSUID) != 0 ? MS_NOSUID : 0;
    flags |= (about.f_flag & ST_NODEV) != 0 ? MS_NODEV : 0;
    flags |= (about.f_flag & ST_NOEXEC) != 0 ? MS_NOEXEC : 0;
    return flags;
}

// Returns the former limit.
struct rlimit lowerLimit(__rlimit_resource resource, qint64 value) {
    struct rlimit before = {};
    if (::getrlimit(resource, &before) != 0) {
        qFatal("getrlimit failed");
    }
    struct rlimit limit = before;
    limit.rlim_cur = static_cast<rlim_t>(value);
    if (::setrlimit(resource, &limit) != 0) {
        qFatal("setrlimit failed");
    }
    return before;
}

qint64 addressSpaceInUse() {
    QFile statm(u"/proc/self/statm"_s);
    const QByteArray pages =
        statm.open(QIODevice::ReadOnly) ? statm.readAll().split(' ').first() : QByteArray();
    if (pages.isEmpty()) {
        qFatal("/proc/self/statm cannot be read");
    }
    return pages.toLongLong() * ::sysconf(_SC_PAGESIZE);
}

// Where mounts are possible, a test must not go on without its own.
void requireMount(bool mounted) {
    if (privateMounts && !mounted) {
        qFatal("cannot mount what the test needs");
    }
}

void unmount(const QString& path) {
    ::umount2(QFile::encodeName(path).constData(), MNT_DETACH);
}

} // namespace

bool enterPrivateMounts() {
    privateMounts = enterFakeMachine() == 0;
    return privateMounts;
}

bool hasPrivateMounts() {
    return privateMounts;
}

SmallDisk::SmallDisk(qint64 bytes) {
    QByteArray path = QFile::encodeName(QDir::tempPath() + u"/small-disk-XXXXXX"_s);
    if (!privateMounts || !::mkdtemp(path.data())) {
        return;
    }
    m_path = QFile::decodeName(path);
    const QByteArray options = "size=" + QByteArray::number(bytes);
    m_mounted =
        ::mount("tmpfs", path.constData(), "tmpfs", MS_NOSUID | MS_NODEV, options.constData()) == 0;
    requireMount(m_mounted);
}

SmallDisk::~SmallDisk() {
    if (m_mounted) {
        unmount(m_path);
    }
    if (!m_path.isEmpty()) {
        ::rmdir(QFile::encodeName(m_path).constData());
    }
}

QString SmallDisk::filePath(const QString& name) const {
    return m_path + QLatin1Char('/') + name;
}

qint64 SmallDisk::bytesFree() const {
    struct statvfs space = {};
    if (::statvfs(QFile::encodeName(m_path).constData(), &space) != 0) {
        return -1;
    }
    return static_cast<qint64>(space.f_bavail) * static_cast<qint64>(space.f_frsize);
}

bool SmallDisk::fillUpTo(qint64 bytes) const {
    const int descriptor = ::open(QFile::encodeName(filePath(u"filler"_s)).constData(),
                                  O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0) {
        return false;
    }
    const bool filled = ::posix_fallocate(descriptor, 0, bytesFree() - bytes) == 0;
    ::close(descriptor);
    return filled;
}

TemporaryFolderAt::TemporaryFolderAt(const QString& path) : m_before(qgetenv("TMPDIR")) {
    if (!path.isEmpty()) {
        qputenv("TMPDIR", QFile::encodeName(path));
    }
}

TemporaryFolderAt::~TemporaryFolderAt() {
    if (m_before.isNull()) {
        qunsetenv("TMPDIR");
    } else {
        qputenv("TMPDIR", m_before);
    }
}

ReadOnlyMount::ReadOnlyMount(const QString& path) : m_path(path) {
    const QByteArray name = QFile::encodeName(path);
    m_mounted = privateMounts && bindOnItself(name) &&
                ::mount(nullptr, name.constData(), nullptr,
                        MS_REMOUNT | MS_BIND | MS_RDONLY | inheritedFlags(name), nullptr) == 0;
    requireMount(m_mounted);
}

ReadOnlyMount::~ReadOnlyMount() {
    if (m_mounted) {
        unmount(m_path);
    }
}

PinnedFile::PinnedFile(const QString& path)
    : m_path(path), m_mounted(privateMounts && bindOnItself(QFile::encodeName(path))) {
    requireMount(m_mounted);
}

PinnedFile::~PinnedFile() {
    if (m_mounted) {
        unmount(m_path);
    }
}

FileSizeLimit::FileSizeLimit(qint64 bytes) {
    // Otherwise the first write beyond the limit ends the process.
    std::signal(SIGXFSZ, SIG_IGN);
    m_before = lowerLimit(RLIMIT_FSIZE, bytes);
}

FileSizeLimit::~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_before);
}

MemoryLimit::MemoryLimit(qint64 bytes)
    : m_before(lowerLimit(RLIMIT_AS, addressSpaceInUse() + bytes)) {}

MemoryLimit::~MemoryLimit() {
    ::setrlimit(RLIMIT_AS, &m_before);
}

ObeyPermissions::ObeyPermissions() : m_before(capabilities()[0].effective) {
    setEffective(m_before & ~PermissionOverrides);
}

ObeyPermissions::~ObeyPermissions() {
    setEffective(m_before);
}

UnwritableFolder::UnwritableFolder(const QString& path) : m_path(path) {
    if (!QFile::setPermissions(path, QFile::ReadOwner | QFile::ExeOwner)) {
        qFatal("cannot take a right away");
    }
}

UnwritableFolder::~UnwritableFolder() {
    QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

} // namespace Tessel::Tests
