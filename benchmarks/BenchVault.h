// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#pragma once

#include "core/VaultManager.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace Tessel::Bench {

/// A benchmark that measures a failed operation would be worse than none.
inline void require(bool done, const char* what) {
    if (!done) {
        std::fprintf(stderr, "benchmark: %s failed\n", what);
        std::exit(1);
    }
}

/// A folder for the files of a benchmark: in memory where there is such a file system, so that no
/// drive is measured, or where TESSEL_BENCH_DIR says.
inline QString benchFolderTemplate() {
    const QString wanted = qEnvironmentVariable("TESSEL_BENCH_DIR");
    if (!wanted.isEmpty()) {
        return wanted + QStringLiteral("/tessel-bench-XXXXXX");
    }
    const QString memory = QStringLiteral("/dev/shm");
    return (QFileInfo(memory).isWritable() ? memory : QDir::tempPath()) +
           QStringLiteral("/tessel-bench-XXXXXX");
}

/// A file of @p bytes bytes that no file system can compress or leave out.
inline void writeNoise(const QString& path, qint64 bytes) {
    constexpr qint64 Piece = 1024 * 1024;
    const QByteArray noise = Core::CryptoManager().generateSalt(Piece);
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered), "making a source file");
    for (qint64 done = 0; done < bytes; done += Piece) {
        const qint64 size = std::min(Piece, bytes - done);
        require(file.write(noise.constData(), size) == size, "writing a source file");
    }
}

/// Takes and gives back as much memory as a job is about to fill with @p bytes of files. A virtual
/// machine hands what it has not used for a while back to its host, and the first job to take it
/// again would pay for that, up to twice its own time.
inline void warmMemory(const QString& folder, qint64 bytes) {
    constexpr qint64 Piece = 1024 * 1024;
    QFile file(folder + QStringLiteral("/warm"));
    require(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered), "warming memory");
    const QByteArray zeros(Piece, 0);
    for (qint64 done = 0; done < bytes; done += Piece) {
        require(file.write(zeros) == Piece, "warming memory");
    }
    require(file.remove(), "warming memory");
}

/// An unlocked vault of its own.
class BenchVault {
public:
    BenchVault() : m_folder(benchFolderTemplate()) {
        require(m_vault.createVault(containerPath(), Password), "creating a vault");
        require(m_vault.unlockVault(containerPath(), Password), "unlocking a vault");
    }
    ~BenchVault() { static_cast<void>(m_vault.lockVault()); }
    Q_DISABLE_COPY_MOVE(BenchVault)

    static inline const QByteArray Password = QByteArrayLiteral("senha de medir");

    [[nodiscard]] Core::VaultManager& vault() { return m_vault; }
    [[nodiscard]] QString containerPath() const { return path(QStringLiteral("tessel.tvlt")); }
    [[nodiscard]] QString path(const QString& name) const { return m_folder.filePath(name); }

    /// Puts @p count small entries into the index, as that many imports would.
    void fill(qsizetype count) {
        require(m_vault.saveIndex(indexOf(count)), "saving a large index");
    }

    /// An index of @p count files of one small block each, in one folder for each hundred.
    [[nodiscard]] static Core::SecureFileIndex indexOf(qsizetype count) {
        const Core::CryptoManager crypto;
        Core::SecureFileIndex index;
        const QDateTime now = QDateTime::currentDateTimeUtc();
        for (qsizetype i = 0; i < count; ++i) {
            const QString folder = QStringLiteral("pasta %1").arg(i / 100);
            require(index.addDirectory({folder, now, now}), "adding a folder");
            Core::VaultFileEntry entry;
            entry.id =
                QStringLiteral("00000000-0000-4000-8000-%1").arg(i, 12, 10, QLatin1Char('0'));
            entry.vaultPath = folder + QStringLiteral("/documento %1.pdf").arg(i);
            entry.sizeBytes = 4096;
            entry.lastModifiedUtc = now;
            entry.sha256 = crypto.generateSalt(32);
            entry.blocks = {{8388636 + i * 4112, 4096, 4112, crypto.generateNonce(24)}};
            require(index.addOrReplace(entry), "adding a file");
        }
        return index;
    }

private:
    QTemporaryDir m_folder;
    Core::VaultManager m_vault;
};

} // namespace Tessel::Bench
