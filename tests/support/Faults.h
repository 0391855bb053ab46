// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "support/MustRun.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QTest>

#include <sys/resource.h>

/// Real faults for tests: full disks, size limits, read-only folders. Each fault lasts as long as
/// its object.
namespace Tessel::Tests {

constexpr qint64 MiB = 1048576;

/// Gives this process private mounts, which end with it. Call it first in main(), while there is
/// only one thread.
/// @return false if the system refuses; tests that need a mount begin with NEEDS_PRIVATE_MOUNTS.
[[nodiscard]] bool enterPrivateMounts();
/// Whether enterPrivateMounts() succeeded in this process.
[[nodiscard]] bool hasPrivateMounts();

/// A file system in memory that holds no more than the given number of bytes (whole pages).
/// Needs private mounts; where they are possible, this one and the ones below are mounted, or the
/// test program ends.
class SmallDisk {
public:
    explicit SmallDisk(qint64 bytes);
    ~SmallDisk();
    Q_DISABLE_COPY_MOVE(SmallDisk)

    [[nodiscard]] bool isMounted() const { return m_mounted; }
    [[nodiscard]] QString path() const { return m_path; }
    [[nodiscard]] QString filePath(const QString& name) const;
    [[nodiscard]] qint64 bytesFree() const;
    /// Fills all but @p bytes of the free space.
    [[nodiscard]] bool fillUpTo(qint64 bytes) const;

private:
    QString m_path;
    bool m_mounted = false;
};

/// Puts the system's temporary folder at a path as long as it exists; an empty path changes
/// nothing.
class TemporaryFolderAt {
public:
    explicit TemporaryFolderAt(const QString& path);
    ~TemporaryFolderAt();
    Q_DISABLE_COPY_MOVE(TemporaryFolderAt)

private:
    QByteArray m_before;
};

/// Puts the system's temporary folder into memory, so that tests that sync on purpose do not wait
/// for a busy disk. Without private mounts it changes nothing.
class TemporaryFolderInMemory {
    SmallDisk m_disk{512 * 1024 * 1024};
    TemporaryFolderAt m_folder{m_disk.path()};
};

/// Makes a file or folder a read-only mount point: whatever rights this process has, it can be
/// neither written nor deleted. Needs private mounts.
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

/// Limits the size of every file that this process writes: a write across the limit is short, and
/// the next one fails with EFBIG.
class FileSizeLimit {
public:
    explicit FileSizeLimit(qint64 bytes);
    ~FileSizeLimit();
    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    struct rlimit m_before = {};
};

/// Limits the memory that this process can allocate in addition to what it has.
class MemoryLimit {
public:
    explicit MemoryLimit(qint64 bytes);
    ~MemoryLimit();
    Q_DISABLE_COPY_MOVE(MemoryLimit)

private:
    struct rlimit m_before = {};
};

/// Takes away the superuser's right to ignore permission bits.
class ObeyPermissions {
public:
    ObeyPermissions();
    ~ObeyPermissions();
    Q_DISABLE_COPY_MOVE(ObeyPermissions)

private:
    quint32 m_before = 0;
};

/// Takes away the right to change what a folder holds, and obeys that.
class UnwritableFolder {
public:
    explicit UnwritableFolder(const QString& path);
    ~UnwritableFolder();
    Q_DISABLE_COPY_MOVE(UnwritableFolder)

private:
    QString m_path;
    ObeyPermissions m_obey;
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
