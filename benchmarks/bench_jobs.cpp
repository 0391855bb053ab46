// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Does one job of the engine and prints a line of JSON for each thing it measured. The script
// `compare` runs it between the jobs of other programs. Vaults lie where TESSEL_BENCH_DIR says.

#include "BenchVault.h"
#include "Measure.h"

#include "core/FileDigest.h"
#include "support/CraftedContainer.h"

#include <QCoreApplication>

using namespace Tessel;
using namespace Tessel::Bench;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 SmallFileBytes = 4096;
constexpr qint64 BackupBytes = 8 * 1024 * 1024;
/// What fits into a core's own cache.
constexpr qint64 CachedBytes = 256 * 1024;
constexpr int Repetitions = 5;

bool copyFile(const QString& from, const QString& to, qint64 pieceBytes) {
    QFile source(from);
    QFile target(to);
    if (!source.open(QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !target.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return false;
    }
    QByteArray buffer(pieceBytes, Qt::Uninitialized);
    while (!source.atEnd()) {
        const qint64 size = source.read(buffer.data(), buffer.size());
        if (size < 1 || target.write(buffer.constData(), size) != size) {
            return false;
        }
    }
    return target.flush();
}

// --- What one core can do at best -----------------------------------------------------------

// Opening gives back what sealing took, so that both can work in place on one warm buffer.
void sealAndOpen(qint64 total) {
    const Core::CryptoManager crypto;
    const QByteArray key = crypto.generateSalt(Core::CryptoManager::KeyBytes);
    const QByteArray nonce = crypto.generateNonce(Core::CryptoManager::NonceBytes);
    QByteArray buffer = crypto.generateSalt(Core::VaultManager::ChunkBytes);
    buffer.reserve(buffer.size() + Core::CryptoManager::TagBytes);
    for (qint64 done = 0; done < total; done += buffer.size()) {
        measure("seal", [&] { return crypto.encryptInPlace(&buffer, key, nonce, {}); });
        measure("open", [&] { return crypto.decryptInPlace(&buffer, key, nonce, {}); });
    }
}

void digestOnly(qint64 total) {
    const QByteArray piece = Core::CryptoManager().generateSalt(CachedBytes);
    measure("digest", [&] {
        Core::FileDigest digest;
        bool good = true;
        for (qint64 done = 0; good && done < total; done += piece.size()) {
            good = digest.addData(piece);
        }
        return good && !digest.result().isEmpty();
    });
}

void limits(const QStringList& arguments) {
    const QString& source = arguments.at(0);
    const qint64 total = QFileInfo(source).size();
    sealAndOpen(total);
    digestOnly(total);
    const QString target = arguments.at(1);
    warmMemory(QFileInfo(target).absolutePath(), total);
    measure("copy", [&] { return copyFile(source, target, CachedBytes); });
    require(QFile::remove(target), "removing a copy");
}

// --- One large file -------------------------------------------------------------------------

const QString StoredName = u"f"_s;

void importLarge(const QStringList& arguments) {
    BenchVault bench;
    warmMemory(QFileInfo(bench.containerPath()).absolutePath(), QFileInfo(arguments.at(0)).size());
    measure("import", [&] { return bench.vault().importFile(arguments.at(0), StoredName); });
}

void exportLarge(const QStringList& arguments) {
    BenchVault bench;
    require(bench.vault().importFile(arguments.at(0), StoredName), "an import");
    warmMemory(QFileInfo(arguments.at(1)).absolutePath(), QFileInfo(arguments.at(0)).size());
    measure("export", [&] { return bench.vault().exportFile(StoredName, arguments.at(1)); });
    require(QFile::remove(arguments.at(1)), "removing an export");
}

void compactLarge(const QStringList& arguments) {
    BenchVault bench;
    require(bench.vault().importFile(arguments.at(0), StoredName), "an import");
    warmMemory(QFileInfo(bench.containerPath()).absolutePath(),
               2 * QFileInfo(arguments.at(0)).size());
    measure("compaction", [&] { return bench.vault().compactVault({}, nullptr); });
}

// The copy that the window makes of a locked container.
void backupLarge(const QStringList& arguments) {
    BenchVault bench;
    require(bench.vault().importFile(arguments.at(0), StoredName), "an import");
    warmMemory(QFileInfo(arguments.at(1)).absolutePath(), QFileInfo(arguments.at(0)).size());
    measure("backup",
            [&] { return copyFile(bench.containerPath(), arguments.at(1), BackupBytes); });
    require(QFile::remove(arguments.at(1)), "removing a backup");
}

// --- Many files -----------------------------------------------------------------------------

// FOLDER COUNT PRESENT: imports FOLDER/0 and so on beside so many files.
void importSmall(const QStringList& arguments) {
    const int count = arguments.at(1).toInt();
    BenchVault bench;
    bench.fill(arguments.at(2).toLongLong());
    measure("small", [&] {
        bool good = true;
        for (int i = 0; good && i < count; ++i) {
            const QString name = QString::number(i);
            good = bench.vault().importFile(arguments.at(0) + QLatin1Char('/') + name, name);
        }
        return good;
    });
}

// How many files an index of this benchmark's kind can have: names of about thirty letters, one
// block each, a folder for each hundred.
void printCapacity(const QStringList&) {
    const auto fits = [](qsizetype files) {
        Core::ContainerDocument document;
        document.encryptedIndex = BenchVault::indexOf(files).toJson() + QByteArray(16, '\0');
        // What the wrapped key and its salt and nonces take in a real header.
        constexpr qsizetype CryptoBytes = 300;
        return Core::ContainerManager().buildHeader(document).size() + CryptoBytes <= 8388608;
    };
    qsizetype low = 0;
    qsizetype high = 100000;
    while (high - low > 1) {
        const qsizetype middle = (low + high) / 2;
        (fits(middle) ? low : high) = middle;
    }
    std::printf("{\"job\": \"capacity\", \"files\": %lld}\n", static_cast<long long>(low));
}

// COUNT: the container's key costs nothing to derive, so that the time is that of everything else.
void unlock(const QStringList& arguments) {
    const QTemporaryDir folder(benchFolderTemplate());
    const QString path = folder.filePath(u"tessel.tvlt"_s);
    Tests::CraftedContainer crafted;
    crafted.setIndexJson(BenchVault::indexOf(arguments.at(0).toLongLong()).toJson());
    require(crafted.writeTo(path), "crafting a container");
    Core::VaultManager vault;
    measure("unlock", [&] { return vault.unlockVault(path, crafted.keys.password); });
    require(vault.lockVault(), "a lock");
}

void passwordKey(const QStringList&) {
    const Core::CryptoManager crypto;
    const Core::KeyDerivationParams params{u"Argon2id"_s, crypto.generateSalt(16), 0, 64};
    measure("argon2id", [&] { return !crypto.deriveKey(BenchVault::Password, params).isEmpty(); });
}

// COUNT: every operation that changes only the index or adds little, beside so many files.
void smallOperations(const QStringList& arguments) {
    BenchVault bench;
    bench.fill(arguments.at(0).toLongLong());
    auto& vault = bench.vault();
    const QString source = bench.path(u"source"_s);
    writeNoise(source, SmallFileBytes);
    const QString folder = u"nova"_s;
    const QString otherFolder = u"outra"_s;
    const QString file = u"um documento.pdf"_s;
    const QString otherFile = u"outro documento.pdf"_s;
    for (int i = 0; i < Repetitions; ++i) {
        measure("new folder", [&] { return vault.createDirectory(folder); });
        measure("import 4 KiB", [&] { return vault.importFile(source, file); });
        measure("rename", [&] { return vault.renameFile(file, otherFile); });
        measure("move", [&] { return vault.moveFile(otherFile, folder); });
        measure("rename folder", [&] { return vault.renameDirectory(folder, otherFolder); });
        measure("delete",
                [&] { return vault.deleteFile(otherFolder + QLatin1Char('/') + otherFile); });
        measure("delete folder", [&] { return vault.deleteDirectory(otherFolder); });
    }
}

struct Job {
    const char* name;
    qsizetype arguments;
    void (*run)(const QStringList& arguments);
};

constexpr Job Jobs[] = {
    {"limits", 2, limits},          {"import", 1, importLarge},
    {"export", 2, exportLarge},     {"compact", 1, compactLarge},
    {"backup", 2, backupLarge},     {"small", 3, importSmall},
    {"capacity", 0, printCapacity}, {"unlock", 1, unlock},
    {"argon2id", 0, passwordKey},   {"operations", 1, smallOperations},
};

} // namespace

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    QStringList arguments = QCoreApplication::arguments().sliced(1);
    const QString name = arguments.isEmpty() ? QString() : arguments.takeFirst();
    for (const Job& job : Jobs) {
        if (name == QLatin1String(job.name) && arguments.size() == job.arguments) {
            job.run(arguments);
            return 0;
        }
    }
    std::fprintf(stderr, "bench_jobs: no such job\n");
    return 2;
}
