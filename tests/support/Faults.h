// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/MustRun.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QTest>

#include <sys/resource.h>

/// Real faults for tests: full disks, size limits, read-only folders. Each lasts as long as its
/// object.
namespace Tessel::Tests {

constexpr qint64 MiB = 1048576;

/// Gives this process mounts of its own, which end with it. Call it first in main(), while there
/// is one thread.
/// @return false where the system refuses; tests that need a mount begin with NEEDS_PRIVATE_MOUNTS.
[[nodiscard]] bool enterPrivateMounts();
/// Whether enterPrivateMounts() succeeded in this process.
[[nodiscard]] bool hasPrivateMounts();

/// A file system in memory that holds no more than the given number of bytes (whole pages).
/// Needs private mounts.
class SmallDisk {
public:
    explicit SmallDisk(qint64 bytes);
    ~SmallDisk();
    Q_DISABLE_COPY_MOVE(SmallDisk)

    [[nodiscard]] bool isMounted() const { return m_mounted; }
    [[nodiscard]] QString path() const { return m_path; }
    [[nodiscard]] QString filePath(const QString& name) const;
    [[nodiscard]] qint64 bytesFree() const;
    /// Takes up all but @p bytes of the space that is left.
    [[nodiscard]] bool fillUpTo(qint64 bytes) const;

private:
    QString m_path;
    bool m_mounted = false;
};

/// Puts the system's temporary folder into memory, so that tests which flush on purpose do not wait
/// for a disk that others keep busy. Without private mounts it changes nothing.
class TemporaryFolderInMemory {
public:
    TemporaryFolderInMemory();
    ~TemporaryFolderInMemory();
    Q_DISABLE_COPY_MOVE(TemporaryFolderInMemory)

private:
    SmallDisk m_disk;
    QByteArray m_tmpdirBefore;
};

/// Makes a file or folder read-only, and a mount point, whatever rights this process has: it can
/// be neither written nor deleted. Needs private mounts.
class ReadOnlyMount {
public:
    explicit ReadOnlyMount(const QString& path);
    ~ReadOnlyMount();
    Q_DISABLE_COPY_MOVE(ReadOnlyMount)

    [[nodiscard]] bool isMounted() const { return m_mounted; }

private:
    QString m_path;
    bool m_mounted = false;
};

/// Makes a file a mount point: it can be read and written, but not deleted. Needs private mounts.
class PinnedFile {
public:
    explicit PinnedFile(const QString& path);
    ~PinnedFile();
    Q_DISABLE_COPY_MOVE(PinnedFile)

    [[nodiscard]] bool isMounted() const { return m_mounted; }

private:
    QString m_path;
    bool m_mounted = false;
};

/// Lets this process write no file beyond the given number of bytes: what would pass it is cut
/// short, then fails with EFBIG.
class FileSizeLimit {
public:
    explicit FileSizeLimit(qint64 bytes);
    ~FileSizeLimit();
    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    struct rlimit m_before {};
};

/// Lets this process take no more than the given number of bytes of memory beside what it has.
class MemoryLimit {
public:
    explicit MemoryLimit(qint64 bytes);
    ~MemoryLimit();
    Q_DISABLE_COPY_MOVE(MemoryLimit)

private:
    struct rlimit m_before {};
};

/// Takes away the right to pass over permission bits, which a superuser otherwise has.
class ObeyPermissions {
public:
    ObeyPermissions();
    ~ObeyPermissions();
    Q_DISABLE_COPY_MOVE(ObeyPermissions)

private:
    quint32 m_before = 0;
};

/// The main() of a test that causes faults.
template <typename Test>
int runWithFaults(int argc, char** argv) {
    static_cast<void>(enterPrivateMounts());
    const TemporaryFolderInMemory temporaryFolder;
    QCoreApplication application(argc, argv);
    Test test;
    return QTest::qExec(&test, argc, argv);
}

} // namespace Tessel::Tests

/// Begins a test function that needs a mount.
#define NEEDS_PRIVATE_MOUNTS()                                                                     \
    SKIP_UNLESS(Tessel::Tests::hasPrivateMounts(),                                                 \
                "needs mounts of its own, which this system refuses")
