// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "BenchVault.h"

#include "core/FileDigest.h"

#include <QCryptographicHash>

#include <benchmark/benchmark.h>

using namespace Tessel;
using namespace Tessel::Bench;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 Chunk = Core::VaultManager::ChunkBytes;
constexpr qint64 LargeFile = qint64(1) << 30;

QByteArray chunkOfNoise() {
    return Core::CryptoManager().generateSalt(Chunk);
}

void countBytes(benchmark::State& state, qint64 perIteration) {
    state.SetBytesProcessed(static_cast<qint64>(state.iterations()) * perIteration);
}

void sealChunk(benchmark::State& state) {
    const Core::CryptoManager crypto;
    const QByteArray plain = chunkOfNoise();
    const QByteArray key = crypto.generateSalt(Core::CryptoManager::KeyBytes);
    const QByteArray nonce = crypto.generateNonce(Core::CryptoManager::NonceBytes);
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.encrypt(plain, key, nonce, {}));
    }
    countBytes(state, Chunk);
}

void openChunk(benchmark::State& state) {
    const Core::CryptoManager crypto;
    const QByteArray key = crypto.generateSalt(Core::CryptoManager::KeyBytes);
    const QByteArray nonce = crypto.generateNonce(Core::CryptoManager::NonceBytes);
    const QByteArray sealed = crypto.encrypt(chunkOfNoise(), key, nonce, {});
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.decrypt(sealed, key, nonce, {}));
    }
    countBytes(state, Chunk);
}

// The two digests behind one shape, so that one import loop can be measured with either.
class LibcryptoDigest {
public:
    void add(const QByteArray& bytes) { require(m_digest.addData(bytes), "the digest"); }
    QByteArray result() { return m_digest.result(); }

private:
    Core::FileDigest m_digest;
};

class QtDigest {
public:
    void add(const QByteArray& bytes) { m_hash.addData(bytes); }
    QByteArray result() { return m_hash.result(); }

private:
    QCryptographicHash m_hash{QCryptographicHash::Sha256};
};

template <typename Digest>
void digestChunk(benchmark::State& state) {
    const QByteArray plain = chunkOfNoise();
    for (auto _ : state) {
        Digest digest;
        digest.add(plain);
        benchmark::DoNotOptimize(digest.result());
    }
    countBytes(state, Chunk);
}

// What an import does with the bytes of a file, and nothing besides.
template <typename Digest>
void importLoop(benchmark::State& state) {
    const QTemporaryDir folder(benchFolderTemplate());
    const QString source = folder.filePath(u"source"_s);
    writeNoise(source, LargeFile);
    const Core::CryptoManager crypto;
    const QByteArray key = crypto.generateSalt(Core::CryptoManager::KeyBytes);
    for (auto _ : state) {
        QFile in(source);
        QFile out(folder.filePath(u"out"_s));
        require(in.open(QIODevice::ReadOnly | QIODevice::Unbuffered) &&
                    out.open(QIODevice::WriteOnly | QIODevice::Unbuffered),
                "opening the files of a loop");
        Digest digest;
        while (!in.atEnd()) {
            const QByteArray chunk = in.read(Chunk);
            digest.add(chunk);
            const QByteArray nonce = crypto.generateNonce(Core::CryptoManager::NonceBytes);
            const QByteArray sealed = crypto.encrypt(chunk, key, nonce, {});
            require(out.write(sealed) == sealed.size(), "writing in a loop");
        }
        benchmark::DoNotOptimize(digest.result());
    }
    countBytes(state, LargeFile);
}

void importLargeFile(benchmark::State& state) {
    BenchVault bench;
    const QString source = bench.path(u"source"_s);
    writeNoise(source, LargeFile);
    for (auto _ : state) {
        require(bench.vault().importFile(source, u"f"_s), "an import");
        state.PauseTiming();
        require(bench.vault().deleteFile(u"f"_s) && bench.vault().compactVault({}, nullptr),
                "making room again");
        state.ResumeTiming();
    }
    countBytes(state, LargeFile);
}

void exportLargeFile(benchmark::State& state) {
    BenchVault bench;
    const QString source = bench.path(u"source"_s);
    writeNoise(source, LargeFile);
    require(bench.vault().importFile(source, u"f"_s), "an import");
    for (auto _ : state) {
        require(bench.vault().exportFile(u"f"_s, source), "an export");
    }
    countBytes(state, LargeFile);
}

void indexToJson(benchmark::State& state) {
    const Core::SecureFileIndex index = BenchVault::indexOf(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(index.toJson());
    }
}

void indexFromJson(benchmark::State& state) {
    const QByteArray json = BenchVault::indexOf(state.range(0)).toJson();
    for (auto _ : state) {
        benchmark::DoNotOptimize(Core::SecureFileIndex::fromJson(json));
    }
}

void importSmallFileInto(benchmark::State& state) {
    BenchVault bench;
    bench.fill(state.range(0));
    const QString source = bench.path(u"source"_s);
    writeNoise(source, 4096);
    int number = 0;
    for (auto _ : state) {
        require(bench.vault().importFile(source, u"novo %1"_s.arg(++number % 8)), "a small import");
    }
}

void createDirectoryIn(benchmark::State& state) {
    BenchVault bench;
    bench.fill(state.range(0));
    for (auto _ : state) {
        require(bench.vault().createDirectory(u"nova"_s), "a new folder");
        state.PauseTiming();
        require(bench.vault().deleteDirectory(u"nova"_s), "deleting the folder");
        state.ResumeTiming();
    }
}

void renameFileIn(benchmark::State& state) {
    BenchVault bench;
    bench.fill(state.range(0));
    const QString names[] = {u"pasta 0/documento 0.pdf"_s, u"b"_s};
    int at = 0;
    for (auto _ : state) {
        require(bench.vault().renameFile(names[at], names[1 - at]), "a rename");
        at = 1 - at;
    }
}

void deleteFileIn(benchmark::State& state) {
    BenchVault bench;
    const Core::SecureFileIndex index = BenchVault::indexOf(state.range(0));
    for (auto _ : state) {
        state.PauseTiming();
        require(bench.vault().saveIndex(index), "putting the index back");
        state.ResumeTiming();
        require(bench.vault().deleteFile(u"pasta 0/documento 0.pdf"_s), "a delete");
    }
}

void unlockWith(benchmark::State& state) {
    BenchVault bench;
    bench.fill(state.range(0));
    for (auto _ : state) {
        Core::VaultManager other;
        require(other.unlockVault(bench.containerPath(), BenchVault::Password), "an unlock");
        state.PauseTiming();
        require(other.lockVault(), "a lock");
        state.ResumeTiming();
    }
}

void passwordKey(benchmark::State& state) {
    const Core::CryptoManager crypto;
    const Core::KeyDerivationParams params{u"Argon2id"_s, crypto.generateSalt(16), 0, 64};
    for (auto _ : state) {
        benchmark::DoNotOptimize(crypto.deriveKey(BenchVault::Password, params));
    }
}

} // namespace

BENCHMARK(sealChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(openChunk)->Unit(benchmark::kMillisecond);
BENCHMARK(digestChunk<LibcryptoDigest>)->Unit(benchmark::kMillisecond);
BENCHMARK(digestChunk<QtDigest>)->Unit(benchmark::kMillisecond);
BENCHMARK(importLoop<LibcryptoDigest>)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(importLoop<QtDigest>)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(importLargeFile)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(exportLargeFile)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(indexToJson)->Arg(1500)->Arg(15000)->Unit(benchmark::kMillisecond);
BENCHMARK(indexFromJson)->Arg(1500)->Arg(15000)->Unit(benchmark::kMillisecond);
BENCHMARK(importSmallFileInto)
    ->Arg(0)
    ->Arg(1500)
    ->Arg(10000)
    ->Arg(14000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(createDirectoryIn)->Arg(14000)->Unit(benchmark::kMillisecond);
BENCHMARK(renameFileIn)->Arg(14000)->Unit(benchmark::kMillisecond);
BENCHMARK(deleteFileIn)->Arg(14000)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK(passwordKey)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(unlockWith)->Arg(0)->Arg(1000)->Arg(14000)->Unit(benchmark::kMillisecond)->Iterations(3);

BENCHMARK_MAIN();
