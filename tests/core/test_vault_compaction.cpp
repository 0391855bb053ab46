// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverRun.h"
#include "VaultFixture.h"
#include "core/ContainerManager.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QTest>

#include <limits>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 CopyChunk = 8388608;
const QString CopyLabel = u"Substituindo container no USB"_s;

/// Two files of several blocks each with dead bytes before, between and behind them, an empty file
/// and two folders.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"docs"_s)
        .addFolder(u"empty folder"_s)
        .leaveGap(5000)
        .addFile(u"docs/a.bin"_s, noise(2500, 1), 1000)
        .leaveGap(123)
        .addFile(u"nothing"_s, {})
        .addFile(u"b.bin"_s, noise(700, 2), 300)
        .leaveGap(1);
    return crafted;
}

/// 2500 and 700 bytes of plaintext, and six tags.
constexpr qint64 UsedPlainBytes = 3200;
constexpr qint64 UsedSealedBytes = 3296;

struct ProgressCall {
    qint64 done = 0;
    qint64 total = 0;
    QString name;

    bool operator==(const ProgressCall&) const = default;
};

/// The folder in which a container is rebuilt, when there is exactly one.
std::optional<QString> rebuildFolder(const VaultFixture& fixture) {
    const QStringList names = QDir(fixture.temporaryFolder())
                                  .entryList({u"Tessel-compact-*"_s}, QDir::Dirs | QDir::Hidden);
    return names.size() == 1 ? std::optional<QString>(fixture.temporaryFolder() + QLatin1Char('/') +
                                                      names.first())
                             : std::nullopt;
}

bool hasUsedContents(const VaultFixture& fixture) {
    return fixture.stored(u"docs/a.bin"_s) == noise(2500, 1) &&
           fixture.stored(u"b.bin"_s) == noise(700, 2) && fixture.stored(u"nothing"_s).isEmpty() &&
           fixture.folderPaths() == QStringList({u"docs"_s, u"empty folder"_s});
}

QStringList compaction(const VaultFixture& fixture) {
    return {fixture.container(), QString::fromUtf8(TestPassword), u"compact"_s};
}

/// How often a compaction calls @p name until it makes a call that looks like @p last; 0 when it
/// does not. The path of the rebuilt container is drawn anew each time, so an injection can only
/// count its way there, and this run is the rehearsal.
int callsUntil(const QString& name, const QString& last) {
    const QRegularExpression end(last);
    const VaultFixture rehearsal(usedContainer());
    const QStringList calls =
        callsOfDriver(compaction(rehearsal), name + u",unlink,linkat,rename,renameat2"_s);
    int count = 0;
    for (const QString& call : calls) {
        if (end.match(call).hasMatch()) {
            return count;
        }
        count += call.contains(name + QLatin1Char('(')) ? 1 : 0;
    }
    return 0;
}

/// Puts a container where a compaction that was killed leaves it; its path.
QString leaveRebuiltContainer(const VaultFixture& fixture, const CraftedContainer& container) {
    const QString folder = fixture.temporaryFolder() + u"/Tessel-compact-killed"_s;
    const QString path = folder + u"/tessel.tvlt"_s;
    if (::mkdir(QFile::encodeName(folder).constData(), 0700) != 0 || !container.writeTo(path)) {
        qFatal("cannot write the container");
    }
    return path;
}

/// What is on the drive beside the container.
QStringList besideContainer(const VaultFixture& fixture) {
    const QFileInfo container(fixture.container());
    QStringList names = container.dir().entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                                  QDir::NoDotAndDotDot);
    names.removeAll(container.fileName());
    return names;
}

/// A drive on which a used container fits @p times.
qint64 roomFor(int times) {
    return times * (PayloadOffset + 2 * MiB);
}

/// Runs @p action once, when copying back to the drive begins.
VaultManager::Progress whenCopyingBackBegins(const std::function<void()>& action) {
    return [action](qint64 done, qint64, const QString& name) {
        if (name == CopyLabel && done == 0) {
            action();
        }
    };
}

} // namespace

class TestVaultCompaction : public QObject {
    Q_OBJECT

private:
    /// The old container is untouched, nothing is left behind, and no path is given.
    static void compareNothingHappened(const VaultFixture& fixture, const VaultPicture& before,
                                       const QString& error) {
        QCOMPARE(error, QString());
        COMPARE_UNCHANGED(before);
        QVERIFY(!rebuildFolder(fixture));
        QVERIFY(hasUsedContents(fixture));
    }

    /// The drive has no container; the rebuilt one was kept, and is the whole vault.
    static void compareRebuiltContainerIsKept(VaultFixture& fixture, const QByteArray& indexBefore,
                                              const QString& error) {
        QVERIFY(!QFileInfo::exists(fixture.container()));
        QCOMPARE(besideContainer(fixture), QStringList());
        const std::optional<QString> folder = rebuildFolder(fixture);
        QVERIFY(folder);
        QCOMPARE(error, *folder + u"/tessel.tvlt"_s);
        QVERIFY(QFileInfo(error).isAbsolute());
        QCOMPARE(fixture.vault.fileIndex().toJson(), indexBefore);
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(QFile::copy(error, fixture.container()));
        QVERIFY(fixture.unlock());
        QVERIFY(hasUsedContents(fixture));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset + UsedSealedBytes);
    }

private Q_SLOTS:
    // --- What compaction does --------------------------------------------------------------

    void deadBytesAreGoneAndEverythingElseIsThere() {
        const CraftedContainer crafted = usedContainer();
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const QByteArray before = readFile(fixture.container());
        const QList<VaultFileEntry> oldEntries = fixture.vault.fileIndex().entries();
        ContainerDocument old;
        QVERIFY(ContainerManager().readDocument(fixture.container(), &old));
        QString error = u"to be emptied"_s;
        QVERIFY(fixture.vault.compactVault({}, &error));
        QCOMPARE(error, QString());
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
        QVERIFY(hasUsedContents(fixture));
        QVERIFY(!rebuildFolder(fixture));

        // The sealed bytes moved together, in the order of the index, and did not change.
        const QByteArray after = readFile(fixture.container());
        QCOMPARE(after.size(), PayloadOffset + UsedSealedBytes);
        const QList<VaultFileEntry> entries = fixture.vault.fileIndex().entries();
        QCOMPARE(entries.size(), oldEntries.size());
        qint64 offset = PayloadOffset;
        for (qsizetype file = 0; file < entries.size(); ++file) {
            const VaultFileEntry& now = entries.at(file);
            const VaultFileEntry& then = oldEntries.at(file);
            QCOMPARE(now.vaultPath, then.vaultPath);
            QCOMPARE(now.id, then.id);
            QCOMPARE(now.sha256, then.sha256);
            QCOMPARE(now.sizeBytes, then.sizeBytes);
            QCOMPARE(now.lastModifiedUtc, then.lastModifiedUtc);
            QCOMPARE(now.blocks.size(), then.blocks.size());
            for (qsizetype i = 0; i < now.blocks.size(); ++i) {
                const VaultFileBlock& block = now.blocks.at(i);
                QCOMPARE(block.offset, offset);
                QCOMPARE(block.nonce, then.blocks.at(i).nonce);
                QCOMPARE(block.plainSize, then.blocks.at(i).plainSize);
                QCOMPARE(block.encryptedSize, then.blocks.at(i).encryptedSize);
                QVERIFY(after.mid(block.offset, block.encryptedSize) ==
                        before.mid(then.blocks.at(i).offset, block.encryptedSize));
                offset += block.encryptedSize;
            }
        }

        // Nothing is re-keyed; only the index is sealed anew.
        ContainerDocument now;
        QVERIFY(ContainerManager().readDocument(fixture.container(), &now));
        QCOMPARE(now.crypto.salt, old.crypto.salt);
        QCOMPARE(now.crypto.nonce, old.crypto.nonce);
        QCOMPARE(now.crypto.kdf, old.crypto.kdf);
        QCOMPARE(now.crypto.kdfIterations, old.crypto.kdfIterations);
        QCOMPARE(now.crypto.cipher, old.crypto.cipher);
        QCOMPARE(now.crypto.encryptedMasterKey, old.crypto.encryptedMasterKey);
        QVERIFY(now.crypto.payloadNonce != old.crypto.payloadNonce);
        QCOMPARE(now.crypto.payloadNonce.size(), 24);
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
    }

    // --- The old container ------------------------------------------------------------------

    void theOldContainerStaysUntilTheNewOneIsWhole() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray before = readFile(fixture.container());
        int looks = 0;
        const auto look = [&](qint64, qint64, const QString& name) {
            if (name != CopyLabel) {
                QCOMPARE(besideContainer(fixture), QStringList());
                return;
            }
            ++looks;
            const QStringList beside = besideContainer(fixture);
            QCOMPARE(beside.size(), 1);
            QVERIFY(!beside.first().endsWith(".tvlt"_L1));
            QVERIFY(readFile(fixture.driveFolder() + QLatin1Char('/') + beside.first()) == before);
            QVERIFY(QFileInfo::exists(fixture.container()));
        };
        QVERIFY(fixture.vault.compactVault(look, nullptr));
        QCOMPARE(looks, 3);
        QCOMPARE(besideContainer(fixture), QStringList());
        QVERIFY(hasUsedContents(fixture));
    }

    void withoutRoomForBothTheOldContainerGoesFirst() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(roomFor(1));
        QVERIFY(disk.isMounted());
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.moveContainerTo(disk.filePath(u"tessel.tvlt"_s)));
        QVERIFY(fixture.unlock());
        qint64 size = -1;
        QVERIFY(fixture.vault.compactVault(whenCopyingBackBegins([&] {
                                               size = QFileInfo(fixture.container()).size();
                                               QCOMPARE(besideContainer(fixture), QStringList());
                                           }),
                                           nullptr));
        QCOMPARE(size, 0);
        QVERIFY(hasUsedContents(fixture));
    }

    void anOldContainerThatCannotBeRenamedGoesFirst_data() {
        QTest::addColumn<QString>("error");
        for (const char* error : {"EPERM", "EINVAL", "EBUSY", "ENAMETOOLONG", "ENOSPC"}) {
            QTest::newRow(error) << QString::fromLatin1(error);
        }
    }
    void anOldContainerThatCannotBeRenamedGoesFirst() {
        QFETCH(const QString, error);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const DriverRun run =
            runDriver(compaction(fixture), fixture.container(),
                      {u"renameat2:error="_s + error, u"rename:error="_s + error});
        QVERIFY(run.succeeded());
        QCOMPARE(besideContainer(fixture), QStringList());
        QVERIFY(fixture.unlock());
        QVERIFY(hasUsedContents(fixture));
    }

    void permissionsAreKept_data() {
        QTest::addColumn<int>("mode");
        QTest::newRow("group") << 0640;
        QTest::newRow("all") << 0666;
        QTest::newRow("owner") << 0600;
    }
    void permissionsAreKept() {
        QFETCH(const int, mode);
        VaultFixture fixture(usedContainer());
        const QByteArray path = QFile::encodeName(fixture.container());
        QCOMPARE(::chmod(path.constData(), static_cast<mode_t>(mode)), 0);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        struct stat info {};
        QCOMPARE(::stat(path.constData(), &info), 0);
        QCOMPARE(static_cast<int>(info.st_mode & 07777), mode);
    }

    // --- What a compaction that was killed leaves -------------------------------------------

    void aRebuiltContainerThatNobodyNeedsIsRemoved() {
        VaultFixture fixture(usedContainer());
        const QString left = leaveRebuiltContainer(fixture, usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(!QFileInfo::exists(left));
        QVERIFY(!rebuildFolder(fixture));
    }

    void otherRebuiltContainersStay_data() {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"another vault", "in use", "no container", "link", "writable"}) {
            QTest::newRow(kind) << QString::fromLatin1(kind);
        }
    }
    void otherRebuiltContainersStay() {
        QFETCH(const QString, kind);
        VaultFixture fixture(usedContainer());
        CraftedContainer another(9);
        const QString left =
            leaveRebuiltContainer(fixture, kind == "another vault"_L1 ? another : usedContainer());
        const QString folder = QFileInfo(left).path();
        const QByteArray name = QFile::encodeName(folder);
        const int descriptor = ::open(name.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const auto closing = qScopeGuard([descriptor] { ::close(descriptor); });
        if (kind == "in use"_L1) {
            QCOMPARE(::flock(descriptor, LOCK_EX | LOCK_NB), 0);
        } else if (kind == "no container"_L1) {
            QVERIFY(writeFile(left, "notes"));
        } else if (kind == "writable"_L1) {
            QCOMPARE(::fchmod(descriptor, 0777), 0);
        } else if (kind == "link"_L1) {
            const QString elsewhere = fixture.file(u"elsewhere"_s);
            QVERIFY(QDir().rename(folder, elsewhere));
            QVERIFY(QFile::link(elsewhere, folder));
        }
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(QFileInfo::exists(left));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset + UsedSealedBytes);
    }

    void aRebuiltContainerStaysWhileTheVaultIsNotWhole() {
        VaultFixture fixture(usedContainer());
        const QString left = leaveRebuiltContainer(fixture, usedContainer());
        QVERIFY(fixture.unlock());
        // The sealed index, not its nonce.
        QVERIFY(overwriteAt(fixture.container(), 700, "AAAAAAAA"));
        static_cast<void>(fixture.vault.compactVault({}, nullptr));
        QVERIFY(QFileInfo::exists(left));
    }

    void aSecondCompactionChangesNothingButTheIndexNonce() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        const QByteArray payload = readFile(fixture.container()).mid(PayloadOffset);
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(readFile(fixture.container()).mid(PayloadOffset) == payload);
        QCOMPARE(fixture.vault.fileIndex().toJson(), index);
    }

    void theVaultGoesOnAfterCompaction() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(fixture.store(u"new"_s, "stored afterwards"));
        QVERIFY(fixture.vault.renameFile(u"b.bin"_s, u"c.bin"_s));
        QCOMPARE(fixture.stored(u"new"_s), QByteArray("stored afterwards"));
        QCOMPARE(fixture.stored(u"c.bin"_s), noise(700, 2));
        QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
                 fixture.vault.fileIndex().toJson());
    }

    void aLargeFileIsMovedThroughLittleMemory() {
        constexpr qint64 Size = 96 * MiB;
        constexpr qint64 SealedSize = Size + 6 * CraftedContainer::TagBytes;
        VaultFixture fixture;
        QVERIFY(fixture.unlock());
        const QString source = fixture.write(u"source"_s, {});
        QVERIFY(QFile::resize(source, Size));
        QVERIFY(fixture.store(u"dead"_s, noise(1000)));
        QVERIFY(fixture.vault.importFile(source, u"big"_s));
        QVERIFY(fixture.vault.deleteFile(u"dead"_s));
        const PeakMemory memory;
        QVERIFY(memory.canMeasure());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        // A block and a piece of the copy, and more than as much again.
        QVERIFY2(memory.growth() < 64 * MiB, qPrintable(QString::number(memory.growth())));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset + SealedSize);
    }

    void aVaultWithoutFilesShrinksToItsHeader() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        for (const QString& path : fixture.filePaths()) {
            QVERIFY(fixture.vault.deleteFile(path));
        }
        QList<ProgressCall> calls;
        QVERIFY(fixture.vault.compactVault(
            [&](qint64 done, qint64 total, const QString& name) {
                calls.append({done, total, name});
            },
            nullptr));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset);
        QVERIFY(fixture.filePaths().isEmpty());
        QCOMPARE(fixture.folderPaths(), QStringList({u"docs"_s, u"empty folder"_s}));
        // No block, no call while rebuilding.
        QCOMPARE(calls, (QList<ProgressCall>{{0, PayloadOffset, CopyLabel},
                                             {CopyChunk, PayloadOffset, CopyLabel},
                                             {PayloadOffset, PayloadOffset, CopyLabel}}));
        QVERIFY(!indexAsOpenedAnew(fixture.container(), TestPassword).isEmpty());
    }

    void progressCountsPlaintextThenTheContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QList<ProgressCall> calls;
        QVERIFY(fixture.vault.compactVault(
            [&](qint64 done, qint64 total, const QString& name) {
                calls.append({done, total, name});
            },
            nullptr));
        const qint64 size = PayloadOffset + UsedSealedBytes;
        const QString a = u"docs/a.bin"_s;
        const QString b = u"b.bin"_s;
        QCOMPARE(calls, (QList<ProgressCall>{{1000, UsedPlainBytes, a},
                                             {2000, UsedPlainBytes, a},
                                             {2500, UsedPlainBytes, a},
                                             {2800, UsedPlainBytes, b},
                                             {3100, UsedPlainBytes, b},
                                             {3200, UsedPlainBytes, b},
                                             {0, size, CopyLabel},
                                             {CopyChunk, size, CopyLabel},
                                             {size, size, CopyLabel}}));
    }

    void progressCountsWhatTheIndexSaysOfABlock_data() {
        QTest::addColumn<QJsonValue>("plainSize");
        QTest::addColumn<QList<qint64>>("expected");
        constexpr qint64 Most = std::numeric_limits<qint64>::max();
        constexpr qint64 Least = std::numeric_limits<qint64>::min();
        QTest::newRow("none") << QJsonValue(QJsonValue::Undefined)
                              << QList<qint64>{0, 0, 0, 300, 600, 700};
        QTest::newRow("zero") << QJsonValue(0) << QList<qint64>{0, 0, 0, 300, 600, 700};
        QTest::newRow("one less") << QJsonValue(999)
                                  << QList<qint64>{999, 1998, 2997, 3297, 3597, 3697};
        QTest::newRow("negative") << QJsonValue(-1000)
                                  << QList<qint64>{-1000, -2000, -3000, -2700, -2400, -2300};
        // What would pass the largest number is left out.
        QTest::newRow("largest") << QJsonValue(Most)
                                 << QList<qint64>{Most, Most, Most, Most, Most, Most};
        QTest::newRow("smallest") << QJsonValue(Least)
                                  << QList<qint64>{Least,       Least,       Least,
                                                   Least + 300, Least + 600, Least + 700};
    }
    void progressCountsWhatTheIndexSaysOfABlock() {
        QFETCH(const QJsonValue, plainSize);
        QFETCH(const QList<qint64>, expected);
        CraftedContainer crafted = usedContainer();
        for (qsizetype block = 0; block < 3; ++block) {
            crafted.setBlockMember(0, block, u"plainSize"_s, plainSize);
        }
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const qint64 claimed = fixture.entry(u"docs/a.bin"_s).blocks.at(1).plainSize;
        QList<qint64> rebuilt;
        QVERIFY(fixture.vault.compactVault(
            [&](qint64 done, qint64 total, const QString& name) {
                if (name != CopyLabel) {
                    rebuilt.append(done);
                    QCOMPARE(total, UsedPlainBytes);
                }
            },
            nullptr));
        QCOMPARE(rebuilt, expected);
        // What is claimed is carried over as it stood.
        QCOMPARE(fixture.entry(u"docs/a.bin"_s).blocks.at(1).plainSize, claimed);
    }

    void progressAddsUpTheSizesThatTheIndexClaims_data() {
        QTest::addColumn<QJsonValue>("sizeBytes");
        QTest::addColumn<qint64>("total");
        constexpr qint64 Most = std::numeric_limits<qint64>::max();
        constexpr qint64 OtherFile = 700;
        QTest::newRow("as they are") << QJsonValue(2500) << UsedPlainBytes;
        QTest::newRow("zero") << QJsonValue(0) << OtherFile;
        QTest::newRow("negative") << QJsonValue(-1000) << OtherFile - 1000;
        QTest::newRow("up to the most") << QJsonValue(Most - OtherFile) << Most;
        // The largest number there is counts for every larger sum.
        QTest::newRow("one beyond the most") << QJsonValue(Most - OtherFile + 1) << Most;
        QTest::newRow("smallest") << QJsonValue(std::numeric_limits<qint64>::min())
                                  << std::numeric_limits<qint64>::min() + OtherFile;
    }
    void progressAddsUpTheSizesThatTheIndexClaims() {
        QFETCH(const QJsonValue, sizeBytes);
        QFETCH(const qint64, total);
        CraftedContainer crafted = usedContainer();
        crafted.setFileMember(0, u"sizeBytes"_s, sizeBytes);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QSet<qint64> totals;
        QVERIFY(fixture.vault.compactVault(
            [&](qint64, qint64 outOf, const QString& name) {
                if (name != CopyLabel) {
                    totals.insert(outOf);
                }
            },
            nullptr));
        QCOMPARE(totals, QSet<qint64>{total});
        QVERIFY(hasUsedContents(fixture));
    }

    void theContainerIsRebuiltInAPrivateFolderThatHoldsNoPlaintext() {
        CraftedContainer crafted;
        const QByteArray secret = "a secret that must stay sealed"_ba;
        crafted.addFile(u"a-secret-name"_s, secret.repeated(100));
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QString folder;
        QByteArray rebuilt;
        QFile::Permissions permissions;
        QVERIFY(fixture.vault.compactVault(whenCopyingBackBegins([&] {
                                               folder = rebuildFolder(fixture).value_or(QString());
                                               permissions = QFile::permissions(folder);
                                               rebuilt = readFile(folder + u"/tessel.tvlt"_s);
                                           }),
                                           nullptr));
        const QRegularExpression name(u"/Tessel-compact-[A-Za-z0-9]{6}$"_s);
        QVERIFY2(name.match(folder).hasMatch(), qPrintable(folder));
        QVERIFY(!(permissions & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                 QFile::ReadOther | QFile::WriteOther | QFile::ExeOther)));
        QVERIFY(!rebuilt.isEmpty());
        QVERIFY(!rebuilt.contains(secret) && !rebuilt.contains("a-secret-name"));
        // What is on the drive is that file, byte for byte.
        QVERIFY(readFile(fixture.container()) == rebuilt);
        QVERIFY(!QFileInfo::exists(folder));
    }

    void openCopiesAreNeitherTakenBackNorTouched() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QString copy = fixture.openAndEdit(u"b.bin"_s, "edited");
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(readFile(copy), QByteArray("edited"));
        QCOMPARE(fixture.stored(u"b.bin"_s), noise(700, 2));
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"b.bin"_s), QByteArray("edited"));
    }

    void keysOfOlderLayoutsAreDropped() {
        CraftedContainer crafted = usedContainer();
        crafted.setCryptoMember(u"authTag"_s, u"AAAA"_s)
            .setHeaderMember(u"encryptedPayload"_s, u"AAAA"_s);
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        ContainerDocument now;
        QVERIFY(ContainerManager().readDocument(fixture.container(), &now));
        QVERIFY(now.crypto.authTag.isEmpty());
        QVERIFY(now.encryptedPayload.isEmpty());
    }

    void aFullFlowWithARealKeyKeepsItsPassword() {
        VaultFixture fixture;
        QVERIFY(fixture.vault.createVault(fixture.container(), TestPassword));
        QVERIFY(fixture.unlock());
        const QByteArray bytes = noise(VaultManager::ChunkBytes + 1000);
        QVERIFY(fixture.store(u"old"_s, noise(100000)));
        QVERIFY(fixture.store(u"kept"_s, bytes));
        QVERIFY(fixture.vault.deleteFile(u"old"_s));
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset + bytes.size() + 32);
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.stored(u"kept"_s) == bytes);
    }

    // --- Failures that leave the old container ---------------------------------------------

    void aContainerThatIsGoneOrBrokenIsNotCompacted() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        QString error = u"to be emptied"_s;
        QVERIFY(overwriteAt(fixture.container(), 0, "BROKEN!"));
        const QByteArray broken = readFile(fixture.container());
        QVERIFY(!fixture.vault.compactVault({}, &error));
        QCOMPARE(error, QString());
        QVERIFY(readFile(fixture.container()) == broken);
        QVERIFY(QFile::remove(fixture.container()));
        QVERIFY(!fixture.vault.compactVault({}, &error));
        QVERIFY(!QFileInfo::exists(fixture.container()));
        QVERIFY(!rebuildFolder(fixture));
    }

    void aTemporaryFolderThatCannotBeMadeIsAFailure() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString error = u"to be emptied"_s;
        const QString inTheWay = fixture.write(u"file"_s, "no folder");
        qputenv("TMPDIR", QFile::encodeName(inTheWay));
        const bool compacted = fixture.vault.compactVault({}, &error);
        qputenv("TMPDIR", QFile::encodeName(fixture.temporaryFolder()));
        QVERIFY(!compacted);
        compareNothingHappened(fixture, before, error);
    }

    void aLocalDiskWithoutRoomIsAFailure_data() {
        QTest::addColumn<qint64>("room");
        QTest::newRow("none") << qint64(0);
        QTest::newRow("the folder alone") << qint64(4096);
        QTest::newRow("half a header region") << CopyChunk / 2;
        QTest::newRow("the header, not the blocks") << CopyChunk + 4096;
    }
    void aLocalDiskWithoutRoomIsAFailure() {
        QFETCH(const qint64, room);
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(12 * MiB);
        QVERIFY(disk.isMounted());
        QVERIFY(disk.fillUpTo(room));
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"big"_s, noise(100000));
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString error = u"to be emptied"_s;
        qputenv("TMPDIR", QFile::encodeName(disk.path()));
        const bool compacted = fixture.vault.compactVault({}, &error);
        qputenv("TMPDIR", QFile::encodeName(fixture.temporaryFolder()));
        QVERIFY(!compacted);
        QCOMPARE(QDir(disk.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList(u"filler"_s));
        QCOMPARE(disk.bytesFree(), room);
        compareNothingHappened(fixture, before, error);
    }

    void aBlockThatCannotBeReadIsAFailure_data() {
        QTest::addColumn<QString>("member");
        QTest::addColumn<QJsonValue>("value");
        QTest::newRow("beyond the end") << u"offset"_s << QJsonValue(1LL << 40);
        QTest::newRow("partly beyond the end")
            << u"offset"_s << QJsonValue(usedContainer().fileSize() - 10);
        QTest::newRow("negative") << u"offset"_s << QJsonValue(-1);
        // No block of ours is as short as its tag alone, or longer than a chunk and its tag. The
        // old container stays: whoever wants the rest of it smaller has to delete such a file
        // first.
        const QString size = u"encryptedSize"_s;
        constexpr qint64 LongestSealed = 16777216 + 16;
        QTest::newRow("of no bytes") << size << QJsonValue(0);
        QTest::newRow("of a negative size") << size << QJsonValue(-1);
        QTest::newRow("of one byte") << size << QJsonValue(1);
        QTest::newRow("a byte short of its tag") << size << QJsonValue(15);
        QTest::newRow("its tag alone") << size << QJsonValue(16);
        QTest::newRow("a byte longer than any") << size << QJsonValue(LongestSealed + 1);
    }
    void aBlockThatCannotBeReadIsAFailure() {
        QFETCH(const QString, member);
        QFETCH(const QJsonValue, value);
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"lost"_s, "lost").setBlockMember(3, 0, member, value);
        VaultFixture fixture(crafted);
        if (member == "offset"_L1) {
            QVERIFY(QFile::resize(fixture.container(), usedContainer().fileSize()));
        } else {
            // The bytes that the index claims are there.
            QVERIFY(QFile::resize(fixture.container(), crafted.fileSize() + 32 * MiB));
        }
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString error = u"to be emptied"_s;
        QVERIFY(!fixture.vault.compactVault({}, &error));
        compareNothingHappened(fixture, before, error);
    }

    void aBlockOfOneByteIsCarriedOver() {
        CraftedContainer crafted;
        crafted.leaveGap(100).addFile(u"short"_s, "x");
        VaultFixture fixture(crafted);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset + 17);
        QCOMPARE(fixture.stored(u"short"_s), QByteArray("x"));
    }

    void aRebuiltContainerThatVanishesIsAFailure() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QString error = u"to be emptied"_s;
        // Somebody tidies up the temporary folder while the blocks are copied.
        QVERIFY(!fixture.vault.compactVault(
            [&](qint64, qint64, const QString&) {
                const std::optional<QString> folder = rebuildFolder(fixture);
                QVERIFY(!folder || QDir(*folder).removeRecursively());
            },
            &error));
        compareNothingHappened(fixture, before, error);
    }

    void aContainerThatCannotBeDeletedStays() {
        NEEDS_PRIVATE_MOUNTS();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        const PinnedFile pinned(fixture.container());
        QVERIFY(pinned.isMounted());
        QString error = u"to be emptied"_s;
        QVERIFY(!fixture.vault.compactVault({}, &error));
        compareNothingHappened(fixture, before, error);
    }

    void aContainerInAFolderWithoutTheRightStays() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const VaultPicture before(fixture);
        QVERIFY(QFile::setPermissions(fixture.driveFolder(), QFile::ReadOwner | QFile::ExeOwner));
        QString error = u"to be emptied"_s;
        bool compacted = true;
        {
            const ObeyPermissions obey;
            compacted = fixture.vault.compactVault({}, &error);
        }
        QVERIFY(QFile::setPermissions(fixture.driveFolder(),
                                      QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
        QVERIFY(!compacted);
        compareNothingHappened(fixture, before, error);
    }

    void callsThatFailBeforeTheContainerIsDeletedLeaveIt_data() {
        QTest::addColumn<QString>("injection");
        // Unlocking reads the container three times, and so does reading the document anew.
        QTest::newRow("document") << u"read:error=EIO:when=7"_s;
        QTest::newRow("source cannot be opened") << u"openat:error=EACCES:when=5"_s;
        QTest::newRow("first block") << u"read:error=EIO:when=10"_s;
        QTest::newRow("last block") << u"read:error=EIO:when=15"_s;
        // Each opening asks for the position once.
        QTest::newRow("seek") << u"lseek:error=EIO:when=9"_s;
        QTest::newRow("renaming") << u"renameat2:error=EROFS rename:error=EROFS"_s;
        QTest::newRow("renaming and deletion")
            << u"renameat2:error=EPERM rename:error=EPERM unlink:error=EROFS"_s;
        QTest::newRow("sync") << u"fdatasync:error=EIO:when=2"_s;
    }
    void callsThatFailBeforeTheContainerIsDeletedLeaveIt() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run =
            runDriver({fixture.container(), QString::fromUtf8(TestPassword), u"compact"_s},
                      fixture.container(), injection.split(QLatin1Char(' ')));
        QVERIFY(run.refused());
        QVERIFY(!rebuildFolder(fixture));
        QCOMPARE(run.text(), QString());
        QCOMPARE(besideContainer(fixture), QStringList());
        COMPARE_UNCHANGED(before);
    }

    void aDriveThatStillHasAnErrorToTellKeepsTheOldContainer_data() {
        QTest::addColumn<QString>("place");
        QTest::addColumn<int>("when");
        QTest::newRow("folder") << QString() << 1;
        QTest::newRow("container set aside") << u"/tessel.tvlt.anterior"_s << 1;
        QTest::newRow("folder, container set aside") << QString() << 2;
    }
    void aDriveThatStillHasAnErrorToTellKeepsTheOldContainer() {
        QFETCH(const QString, place);
        QFETCH(const int, when);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run = runDriver(compaction(fixture), fixture.driveFolder() + place,
                                        {u"fsync:error=EIO:when=%1"_s.arg(when)});
        QVERIFY(run.refused());
        QVERIFY(!rebuildFolder(fixture));
        QCOMPARE(run.text(), QString());
        QCOMPARE(besideContainer(fixture), QStringList());
        COMPARE_UNCHANGED(before);
        // The drive is well again.
        QVERIFY(fixture.unlock());
        QVERIFY(fixture.vault.compactVault({}, nullptr));
        QVERIFY(hasUsedContents(fixture));
    }

    void aRebuiltContainerThatCannotBeReadBackIsAFailure() {
        NEEDS_TRACING();
        // It gets its name when it is complete; the reads that follow verify it.
        const int before =
            callsUntil(u"read"_s, u"(linkat|rename).*/Tessel-compact-.*/tessel.tvlt"_s);
        QVERIFY(before > 0);
        VaultFixture fixture(usedContainer());
        const VaultPicture picture(fixture);
        for (int further = 1; further <= 3; ++further) {
            const DriverRun run = runDriver(compaction(fixture), QString(),
                                            {u"read:error=EIO:when=%1"_s.arg(before + further)});
            QVERIFY(run.refused());
            QVERIFY(!rebuildFolder(fixture));
            QCOMPARE(run.text(), QString());
            COMPARE_UNCHANGED(picture);
        }
    }

    void aRebuiltContainerThatTheDiskDoesNotTakeIsAFailure() {
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        const VaultPicture before(fixture);
        const DriverRun run =
            runDriver({fixture.container(), QString::fromUtf8(TestPassword), u"compact"_s},
                      QString(), {u"fdatasync:error=EIO:when=2"_s});
        QVERIFY(run.refused());
        QVERIFY(!rebuildFolder(fixture));
        QCOMPARE(run.text(), QString());
        COMPARE_UNCHANGED(before);
    }

    // --- Failures that leave the rebuilt container -----------------------------------------

    void aDriveThatFillsUpKeepsTheRebuiltContainer_data() {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<int>("containers");
        for (const int containers : {1, 2}) {
            QTest::addRow("nothing, %d", containers) << qint64(0) << containers;
            QTest::addRow("part of the first piece, %d", containers) << 1 * MiB << containers;
            QTest::addRow("the first piece alone, %d", containers) << CopyChunk << containers;
        }
    }
    void aDriveThatFillsUpKeepsTheRebuiltContainer() {
        QFETCH(const qint64, room);
        QFETCH(const int, containers);
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(roomFor(containers));
        QVERIFY(disk.isMounted());
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.moveContainerTo(disk.filePath(u"tessel.tvlt"_s)));
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QString error;
        QVERIFY(!fixture.vault.compactVault(
            whenCopyingBackBegins([&] { QVERIFY(disk.fillUpTo(room)); }), &error));
        QVERIFY(QFile::remove(disk.filePath(u"filler"_s)));
        compareRebuiltContainerIsKept(fixture, index, error);
    }

    void aFileSizeLimitKeepsTheRebuiltContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QString error;
        std::unique_ptr<FileSizeLimit> limit;
        QVERIFY(!fixture.vault.compactVault(
            whenCopyingBackBegins([&] { limit = std::make_unique<FileSizeLimit>(CopyChunk + 5); }),
            &error));
        limit.reset();
        compareRebuiltContainerIsKept(fixture, index, error);
    }

    void aRebuiltContainerThatIsCutIsNotTakenForWhole() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QString error;
        QByteArray rebuilt;
        QVERIFY(!fixture.vault.compactVault(whenCopyingBackBegins([&] {
                                                const QString path =
                                                    rebuildFolder(fixture).value_or(QString()) +
                                                    u"/tessel.tvlt"_s;
                                                rebuilt = readFile(path);
                                                QVERIFY(QFile::resize(path, rebuilt.size() - 1));
                                            }),
                                            &error));
        QVERIFY(writeFile(error, rebuilt));
        compareRebuiltContainerIsKept(fixture, index, error);
    }

    void aCopyThatIsNotCompleteIsNoContainer() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        int looks = 0;
        const auto look = [&](qint64, qint64, const QString& name) {
            ContainerDocument document;
            if (name == CopyLabel) {
                ++looks;
                QVERIFY(!ContainerManager().readDocument(fixture.container(), &document));
            }
        };
        QVERIFY(fixture.vault.compactVault(look, nullptr));
        QCOMPARE(looks, 3);
        QVERIFY(hasUsedContents(fixture));
    }

    void aRebuiltContainerThatGrowsIsNotTakenForWhole() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        QString error;
        qint64 size = 0;
        QVERIFY(!fixture.vault.compactVault(
            [&](qint64 done, qint64 total, const QString& name) {
                if (name == CopyLabel && done == CopyChunk) {
                    size = total;
                    QVERIFY(QFile::resize(
                        rebuildFolder(fixture).value_or(QString()) + u"/tessel.tvlt"_s, total + 1));
                }
            },
            &error));
        QVERIFY(QFile::resize(error, size));
        compareRebuiltContainerIsKept(fixture, index, error);
    }

    void theErrorMayBeUnwanted() {
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        std::unique_ptr<FileSizeLimit> limit;
        QVERIFY(!fixture.vault.compactVault(
            whenCopyingBackBegins([&] { limit = std::make_unique<FileSizeLimit>(5); }), nullptr));
        limit.reset();
        QVERIFY(rebuildFolder(fixture));
        QCOMPARE(fixture.vault.state(), VaultState::Unlocked);
    }

    void callsThatFailWhileCopyingBackKeepTheRebuiltContainer_data() {
        QTest::addColumn<QString>("injection");
        // The container is opened to unlock it, to sync it, to look for a redo record, to read the
        // document, to read the blocks, and then as a new file, to be synced and to be written.
        QTest::newRow("new container cannot be made") << u"openat:error=EROFS:when=7"_s;
        QTest::newRow("first write") << u"write:error=EIO:when=1"_s;
        QTest::newRow("second write") << u"write:error=EIO:when=2"_s;
        QTest::newRow("write-back") << u"sync_file_range:error=EIO:when=1"_s;
        QTest::newRow("magic") << u"write:error=EIO:when=3"_s;
        // The first ones are for the old container.
        QTest::newRow("flush") << u"fdatasync:error=EIO:when=3"_s;
        QTest::newRow("flush of the magic") << u"fdatasync:error=EIO:when=4"_s;
    }
    void callsThatFailWhileCopyingBackKeepTheRebuiltContainer() {
        QFETCH(const QString, injection);
        NEEDS_TRACING();
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        const DriverRun run =
            runDriver({fixture.container(), QString::fromUtf8(TestPassword), u"compact"_s},
                      fixture.container(), {injection});
        QVERIFY(run.refused());
        compareRebuiltContainerIsKept(fixture, index, run.text());
    }

    void aRebuiltContainerThatCannotBeOpenedIsKept() {
        NEEDS_TRACING();
        // Setting the old container aside opens it, the new one and their folder for syncs.
        const int before = 4 + callsUntil(u"openat"_s, u"renameat2.*/drive/tessel.tvlt.anterior"_s);
        QVERIFY(before > 4);
        VaultFixture fixture(usedContainer());
        QVERIFY(fixture.unlock());
        const QByteArray index = fixture.vault.fileIndex().toJson();
        const DriverRun run = runDriver(compaction(fixture), QString(),
                                        {u"openat:error=EMFILE:when=%1"_s.arg(before + 1)});
        QVERIFY(run.refused());
        compareRebuiltContainerIsKept(fixture, index, run.text());
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultCompaction>);
#include "test_vault_compaction.moc"
