// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/Faults.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QTest>

#include <limits>
#include <memory>
#include <optional>
#include <utility>

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

/// The folder in which a container is rebuilt, when there is exactly one.
std::optional<QString> rebuildFolder(const VaultFixture& vault) {
    const QStringList names =
        QDir(vault.temporaryFolder()).entryList({u"Tessel-compact-*"_s}, QDir::Dirs | QDir::Hidden);
    return names.size() == 1
               ? std::optional<QString>(vault.temporaryFolder() + QLatin1Char('/') + names.first())
               : std::nullopt;
}

bool hasUsedContents(const VaultFixture& vault) {
    return vault.stored(u"docs/a.bin"_s) == noise(2500, 1) &&
           vault.stored(u"b.bin"_s) == noise(700, 2) && vault.stored(u"nothing"_s).isEmpty() &&
           vault.folderPaths() == QStringList({u"docs"_s, u"empty folder"_s});
}

QStringList compaction(const VaultFixture& vault) {
    return {vault.container(), QString::fromUtf8(TestPassword), u"compact"_s};
}

/// How often a compaction calls @p name until it makes a call that looks like @p last; 0 when it
/// does not. The path of the rebuilt container is new each time, so an injection can only
/// count its way there, and this run is the rehearsal.
int callsUntil(const QString& name, const QString& last) {
    const QRegularExpression end(last);
    const VaultFixture rehearsal(usedContainer());
    const QStringList calls =
        callsOfTool(compaction(rehearsal), name + u",unlink,linkat,rename,renameat2"_s);
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
QString leaveRebuiltContainer(const VaultFixture& vault, const CraftedContainer& container) {
    const QString folder = vault.temporaryFolder() + u"/Tessel-compact-killed"_s;
    const QString path = folder + u"/tessel.tvlt"_s;
    if (::mkdir(QFile::encodeName(folder).constData(), 0700) != 0 || !container.writeTo(path)) {
        qFatal("cannot write the container");
    }
    return path;
}

/// What is on the drive beside the container.
QStringList besideContainer(const VaultFixture& vault) {
    const QFileInfo container(vault.container());
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

/// An open vault that is compacted.
class CompactedVault : public OpenVault {
public:
    explicit CompactedVault(const CraftedContainer& crafted = usedContainer())
        : OpenVault(crafted) {}
    explicit CompactedVault(const QString& path) : OpenVault(usedContainer(), path) {}

    /// The old container is untouched, nothing is left behind, and no path is given.
    void compareNothingHappened() const {
        QCOMPARE(kept, QString());
        COMPARE_UNCHANGED(m_before);
        QVERIFY(!rebuildFolder(*this));
        QVERIFY(hasUsedContents(*this));
    }
    /// The drive has no container; the rebuilt one was kept, and is the whole vault.
    void compareRebuiltContainerIsKept() {
        QVERIFY(!QFileInfo::exists(container()));
        QCOMPARE(besideContainer(*this), QStringList());
        const std::optional<QString> folder = rebuildFolder(*this);
        QVERIFY(folder);
        QCOMPARE(kept, *folder + u"/tessel.tvlt"_s);
        QVERIFY(QFileInfo(kept).isAbsolute());
        QCOMPARE(vault.fileIndex().toJson(), m_index);
        QVERIFY(vault.lockVault());
        QVERIFY(QFile::copy(kept, container()));
        QVERIFY(unlock());
        QVERIFY(hasUsedContents(*this));
        QCOMPARE(containerSize(), PayloadOffset + UsedSealedBytes);
    }

private:
    VaultPicture m_before{*this};
    QByteArray m_index = vault.fileIndex().toJson();
};

} // namespace

class TestVaultCompaction : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- What compaction does --------------------------------------------------------------

    void deadBytesAreGoneAndEverythingElseIsThere() {
        const CraftedContainer crafted = usedContainer();
        CompactedVault vault(crafted);
        const QByteArray before = vault.bytes();
        const QList<VaultFileEntry> oldEntries = vault->fileIndex().entries();
        const ContainerDocument old = vault.document();
        QVERIFY(vault.compact());
        QCOMPARE(vault.kept, QString());
        QCOMPARE(vault->state(), VaultState::Unlocked);
        QVERIFY(hasUsedContents(vault));
        QVERIFY(!rebuildFolder(vault));

        // The sealed bytes moved together, in the order of the index, and did not change.
        const QByteArray after = vault.bytes();
        QCOMPARE(after.size(), PayloadOffset + UsedSealedBytes);
        const QList<VaultFileEntry> entries = vault->fileIndex().entries();
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

        // Nothing is re-keyed; only the index is sealed again.
        const ContainerDocument now = vault.document();
        QCOMPARE(now.crypto.salt, old.crypto.salt);
        QCOMPARE(now.crypto.nonce, old.crypto.nonce);
        QCOMPARE(now.crypto.kdf, old.crypto.kdf);
        QCOMPARE(now.crypto.kdfIterations, old.crypto.kdfIterations);
        QCOMPARE(now.crypto.cipher, old.crypto.cipher);
        QCOMPARE(now.crypto.encryptedMasterKey, old.crypto.encryptedMasterKey);
        QVERIFY(now.crypto.payloadNonce != old.crypto.payloadNonce);
        QCOMPARE(now.crypto.payloadNonce.size(), 24);
        QVERIFY(vault.isSaved());
    }

    // --- The old container ------------------------------------------------------------------

    void theOldContainerStaysUntilTheNewOneIsWhole() {
        CompactedVault vault;
        const QByteArray before = vault.bytes();
        int looks = 0;
        const auto look = [&](qint64, qint64, const QString& name) {
            if (name != CopyLabel) {
                QCOMPARE(besideContainer(vault), QStringList());
                return;
            }
            ++looks;
            const QStringList beside = besideContainer(vault);
            QCOMPARE(beside.size(), 1);
            QVERIFY(!beside.first().endsWith(".tvlt"_L1));
            QVERIFY(readFile(vault.driveFolder() + QLatin1Char('/') + beside.first()) == before);
            QVERIFY(QFileInfo::exists(vault.container()));
        };
        QVERIFY(vault.compact(look));
        QCOMPARE(looks, 3);
        QCOMPARE(besideContainer(vault), QStringList());
        QVERIFY(hasUsedContents(vault));
    }

    void withoutRoomForBothTheOldContainerGoesFirst() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(roomFor(1));
        CompactedVault vault(disk.filePath(u"tessel.tvlt"_s));
        qint64 size = -1;
        QVERIFY(vault.compact(whenCopyingBackBegins([&] {
            size = vault.containerSize();
            QCOMPARE(besideContainer(vault), QStringList());
        })));
        QCOMPARE(size, 0);
        QVERIFY(hasUsedContents(vault));
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
        VaultFixture vault(usedContainer());
        const ToolRun run = runTool(compaction(vault), vault.container(),
                                    {u"renameat2:error="_s + error, u"rename:error="_s + error});
        QVERIFY(run.succeeded());
        QCOMPARE(besideContainer(vault), QStringList());
        QVERIFY(vault.unlock());
        QVERIFY(hasUsedContents(vault));
    }

    void permissionsAreKept_data() {
        QTest::addColumn<int>("mode");
        QTest::newRow("group") << 0640;
        QTest::newRow("all") << 0666;
        QTest::newRow("owner") << 0600;
    }
    void permissionsAreKept() {
        QFETCH(const int, mode);
        VaultFixture vault(usedContainer());
        const QByteArray path = QFile::encodeName(vault.container());
        QCOMPARE(::chmod(path.constData(), static_cast<mode_t>(mode)), 0);
        QVERIFY(vault.unlock());
        QVERIFY(vault.compact());
        struct stat info = {};
        QCOMPARE(::stat(path.constData(), &info), 0);
        QCOMPARE(static_cast<int>(info.st_mode & 07777), mode);
    }

    // --- What a compaction that was killed leaves -------------------------------------------

    void aRebuiltContainerThatNobodyNeedsIsRemoved() {
        VaultFixture vault(usedContainer());
        const QString left = leaveRebuiltContainer(vault, usedContainer());
        QVERIFY(vault.unlock());
        // A session does not read the header that it has just written.
        QVERIFY(vault->createDirectory(u"earlier"_s));
        QVERIFY(vault.compact());
        QVERIFY(!QFileInfo::exists(left));
        QVERIFY(!rebuildFolder(vault));
    }

    void namesThatAreNoTextHideNoRebuiltContainer() {
        VaultFixture vault(usedContainer());
        // Another program's, from a drive that was written under another encoding. Qt does not see
        // them when it removes the test's folder.
        QByteArrayList others;
        const auto removing = qScopeGuard([&others] {
            for (const QByteArray& other : std::as_const(others)) {
                ::unlink(other.constData());
            }
        });
        for (int i = 0; i < 50; ++i) {
            others.append(QFile::encodeName(vault.temporaryFolder()) + "/caf\xe9" +
                          QByteArray::number(i));
            const int file = ::open(others.last().constData(), O_CREAT | O_WRONLY, 0600);
            QVERIFY(file >= 0 && ::close(file) == 0);
        }
        const QString left = leaveRebuiltContainer(vault, usedContainer());
        QVERIFY(vault.unlock());
        QVERIFY(vault.compact());
        QVERIFY(!QFileInfo::exists(left));
    }

    void otherRebuiltContainersStay_data() {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"another vault", "in use", "no container", "link", "writable"}) {
            QTest::newRow(kind) << QString::fromLatin1(kind);
        }
    }
    void otherRebuiltContainersStay() {
        QFETCH(const QString, kind);
        VaultFixture vault(usedContainer());
        CraftedContainer another(9);
        const QString left =
            leaveRebuiltContainer(vault, kind == "another vault"_L1 ? another : usedContainer());
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
            const QString elsewhere = vault.file(u"elsewhere"_s);
            QVERIFY(QDir().rename(folder, elsewhere));
            QVERIFY(QFile::link(elsewhere, folder));
        }
        QVERIFY(vault.unlock());
        QVERIFY(vault.compact());
        QVERIFY(QFileInfo::exists(left));
        QCOMPARE(vault.containerSize(), PayloadOffset + UsedSealedBytes);
    }

    void aRebuiltContainerStaysWhileTheVaultIsNotWhole() {
        VaultFixture vault(usedContainer());
        const QString left = leaveRebuiltContainer(vault, usedContainer());
        QVERIFY(vault.unlock());
        // The sealed index, not its nonce.
        QVERIFY(overwriteAt(vault.container(), 700, "AAAAAAAA"));
        static_cast<void>(vault.compact());
        QVERIFY(QFileInfo::exists(left));
    }

    void theVaultGoesOnAfterCompaction() {
        CompactedVault vault;
        QVERIFY(vault.compact());
        const QByteArray payload = vault.payload();
        QVERIFY(vault.compact());
        QVERIFY(vault.payload() == payload);
        QVERIFY(vault.store(u"new"_s, "stored afterwards"));
        QVERIFY(vault->renameFile(u"b.bin"_s, u"c.bin"_s));
        QCOMPARE(vault.stored(u"new"_s), "stored afterwards"_ba);
        QCOMPARE(vault.stored(u"c.bin"_s), noise(700, 2));
        QVERIFY(vault.isSaved());
    }

    void aLargeFileIsMovedThroughLittleMemory() {
        constexpr qint64 Size = 96 * MiB;
        constexpr qint64 SealedSize = Size + 6 * CraftedContainer::TagBytes;
        OpenVault vault;
        const QString source = vault.write(u"source"_s, {});
        QVERIFY(QFile::resize(source, Size));
        QVERIFY(vault.store(u"dead"_s, noise(1000)));
        QVERIFY(vault->importFile(source, u"big"_s));
        QVERIFY(vault->deleteFile(u"dead"_s));
        const PeakMemory memory;
        QVERIFY(memory.canMeasure());
        QVERIFY(vault.compact());
        // A block and a piece of the copy, and more than as much again.
        QVERIFY2(memory.growth() < 64 * MiB, qPrintable(QString::number(memory.growth())));
        QCOMPARE(vault.containerSize(), PayloadOffset + SealedSize);
    }

    void aVaultWithoutFilesShrinksToItsHeader() {
        CompactedVault vault;
        for (const QString& path : vault.filePaths()) {
            QVERIFY(vault->deleteFile(path));
        }
        QList<ProgressCall> calls;
        QVERIFY(vault.compact(recordInto(&calls)));
        QCOMPARE(vault.containerSize(), PayloadOffset);
        QVERIFY(vault.filePaths().isEmpty());
        QCOMPARE(vault.folderPaths(), QStringList({u"docs"_s, u"empty folder"_s}));
        // No block, no call while rebuilding.
        QCOMPARE(calls, (QList<ProgressCall>{{0, PayloadOffset, CopyLabel},
                                             {CopyChunk, PayloadOffset, CopyLabel},
                                             {PayloadOffset, PayloadOffset, CopyLabel}}));
        QVERIFY(!indexOnDrive(vault.container(), TestPassword).isEmpty());
    }

    void progressCountsPlaintextThenTheContainer() {
        CompactedVault vault;
        QList<ProgressCall> calls;
        QVERIFY(vault.compact(recordInto(&calls)));
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
        CompactedVault vault(crafted);
        const qint64 claimed = vault.entry(u"docs/a.bin"_s).blocks.at(1).plainSize;
        QList<qint64> rebuilt;
        QVERIFY(vault.compact([&](qint64 done, qint64 total, const QString& name) {
            if (name != CopyLabel) {
                rebuilt.append(done);
                QCOMPARE(total, UsedPlainBytes);
            }
        }));
        QCOMPARE(rebuilt, expected);
        // What is claimed is carried over as it stood.
        QCOMPARE(vault.entry(u"docs/a.bin"_s).blocks.at(1).plainSize, claimed);
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
        CompactedVault vault(crafted);
        QSet<qint64> totals;
        QVERIFY(vault.compact([&](qint64, qint64 outOf, const QString& name) {
            if (name != CopyLabel) {
                totals.insert(outOf);
            }
        }));
        QCOMPARE(totals, QSet<qint64>{total});
        QVERIFY(hasUsedContents(vault));
    }

    void theContainerIsRebuiltInAPrivateFolderThatHoldsNoPlaintext() {
        CraftedContainer crafted;
        const QByteArray secret = "a secret that must stay sealed"_ba;
        crafted.addFile(u"a-secret-name"_s, secret.repeated(100));
        CompactedVault vault(crafted);
        QString folder;
        QByteArray rebuilt;
        QFile::Permissions permissions;
        QVERIFY(vault.compact(whenCopyingBackBegins([&] {
            folder = rebuildFolder(vault).value_or(QString());
            permissions = QFile::permissions(folder);
            rebuilt = readFile(folder + u"/tessel.tvlt"_s);
        })));
        const QRegularExpression name(u"/Tessel-compact-[A-Za-z0-9]{6}$"_s);
        QVERIFY2(name.match(folder).hasMatch(), qPrintable(folder));
        QVERIFY(!(permissions & (QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup |
                                 QFile::ReadOther | QFile::WriteOther | QFile::ExeOther)));
        QVERIFY(!rebuilt.isEmpty());
        QVERIFY(!rebuilt.contains(secret) && !rebuilt.contains("a-secret-name"));
        // What is on the drive is that file, byte for byte.
        QVERIFY(vault.bytes() == rebuilt);
        QVERIFY(!QFileInfo::exists(folder));
    }

    void openCopiesAreNeitherTakenBackNorTouched() {
        CompactedVault vault;
        const QString copy = vault.openAndEdit(u"b.bin"_s, "edited");
        QVERIFY(vault.compact());
        QCOMPARE(readFile(copy), "edited"_ba);
        QCOMPARE(vault.stored(u"b.bin"_s), noise(700, 2));
        QVERIFY(vault.reopen());
        QCOMPARE(vault.stored(u"b.bin"_s), "edited"_ba);
    }

    void keysOfOlderLayoutsAreDropped() {
        CraftedContainer crafted = usedContainer();
        crafted.setCryptoMember(u"authTag"_s, u"AAAA"_s)
            .setHeaderMember(u"encryptedPayload"_s, u"AAAA"_s);
        CompactedVault vault(crafted);
        QVERIFY(vault.compact());
        const ContainerDocument now = vault.document();
        QVERIFY(now.crypto.authTag.isEmpty());
        QVERIFY(now.encryptedPayload.isEmpty());
    }

    // --- Failures that leave the old container ---------------------------------------------

    void aTemporaryFolderThatCannotBeMadeIsAFailure() {
        CompactedVault vault;
        const QString inTheWay = vault.write(u"file"_s, "no folder");
        {
            const TemporaryFolderAt temporary(inTheWay);
            QVERIFY(!vault.compact());
        }
        vault.compareNothingHappened();
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
        QVERIFY(disk.fillUpTo(room));
        CraftedContainer crafted = usedContainer();
        crafted.addFile(u"big"_s, noise(100000));
        CompactedVault vault(crafted);
        {
            const TemporaryFolderAt temporary(disk.path());
            QVERIFY(!vault.compact());
        }
        QCOMPARE(QDir(disk.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList(u"filler"_s));
        QCOMPARE(disk.bytesFree(), room);
        vault.compareNothingHappened();
    }

    void aBlockThatCannotBeReadIsAFailure_data() {
        QTest::addColumn<QString>("member");
        QTest::addColumn<QJsonValue>("value");
        QTest::newRow("beyond the end") << u"offset"_s << QJsonValue(1LL << 40);
        QTest::newRow("partly beyond the end")
            << u"offset"_s << QJsonValue(usedContainer().fileSize() - 10);
        QTest::newRow("negative") << u"offset"_s << QJsonValue(-1);
        // No block of ours is as short as its tag alone, or longer than a chunk and its tag. The
        // old container stays: such a file must be deleted before the vault can be compacted.
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
        if (member == "offset"_L1) {
            crafted.cutAt(usedContainer().fileSize());
        } else {
            // The bytes that the index claims are there.
            crafted.leaveGap(32 * MiB);
        }
        CompactedVault vault(crafted);
        QVERIFY(!vault.compact());
        vault.compareNothingHappened();
    }

    void aBlockOfOneByteIsCarriedOver() {
        CraftedContainer crafted;
        crafted.leaveGap(100).addFile(u"short"_s, "x");
        CompactedVault vault(crafted);
        QVERIFY(vault.compact());
        QCOMPARE(vault.containerSize(), PayloadOffset + 17);
        QCOMPARE(vault.stored(u"short"_s), "x"_ba);
    }

    void aRebuiltContainerThatVanishesIsAFailure() {
        CompactedVault vault;
        // Somebody tidies up the temporary folder while the blocks are copied.
        QVERIFY(!vault.compact([&](qint64, qint64, const QString&) {
            const std::optional<QString> folder = rebuildFolder(vault);
            QVERIFY(!folder || QDir(*folder).removeRecursively());
        }));
        vault.compareNothingHappened();
    }

    void aContainerThatCannotBeDeletedStays() {
        NEEDS_PRIVATE_MOUNTS();
        CompactedVault vault;
        const PinnedFile pinned(vault.container());
        QVERIFY(!vault.compact());
        vault.compareNothingHappened();
    }

    void aContainerInAFolderWithoutTheRightStays() {
        CompactedVault vault;
        {
            const UnwritableFolder folder(vault.driveFolder());
            QVERIFY(!vault.compact());
        }
        vault.compareNothingHappened();
    }

    void aRebuiltContainerThatCannotBeReadBackIsAFailure() {
        NEEDS_TRACING();
        // It gets its name when it is complete; the reads that follow verify it.
        const int before =
            callsUntil(u"read"_s, u"(linkat|rename).*/Tessel-compact-.*/tessel.tvlt"_s);
        QVERIFY(before > 0);
        VaultFixture vault(usedContainer());
        const VaultPicture picture(vault);
        for (int further = 1; further <= 3; ++further) {
            const ToolRun run = runTool(compaction(vault), QString(),
                                        {u"read:error=EIO:when=%1"_s.arg(before + further)});
            QVERIFY(run.refused());
            QVERIFY(!rebuildFolder(vault));
            QCOMPARE(run.text(), QString());
            COMPARE_UNCHANGED(picture);
        }
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
        CompactedVault vault(disk.filePath(u"tessel.tvlt"_s));
        QVERIFY(!vault.compact(whenCopyingBackBegins([&] { QVERIFY(disk.fillUpTo(room)); })));
        QVERIFY(QFile::remove(disk.filePath(u"filler"_s)));
        vault.compareRebuiltContainerIsKept();
    }

    void aFileSizeLimitKeepsTheRebuiltContainer() {
        CompactedVault vault;
        std::unique_ptr<FileSizeLimit> limit;
        QVERIFY(!vault.compact(whenCopyingBackBegins(
            [&] { limit = std::make_unique<FileSizeLimit>(CopyChunk + 5); })));
        limit.reset();
        vault.compareRebuiltContainerIsKept();
    }

    void aRebuiltContainerThatIsCutIsNotTakenForWhole() {
        CompactedVault vault;
        QByteArray rebuilt;
        QVERIFY(!vault.compact(whenCopyingBackBegins([&] {
            const QString path = rebuildFolder(vault).value_or(QString()) + u"/tessel.tvlt"_s;
            rebuilt = readFile(path);
            QVERIFY(QFile::resize(path, rebuilt.size() - 1));
        })));
        QVERIFY(writeFile(vault.kept, rebuilt));
        vault.compareRebuiltContainerIsKept();
    }

    void aRebuiltContainerThatGrowsIsNotTakenForWhole() {
        CompactedVault vault;
        qint64 size = 0;
        QVERIFY(!vault.compact([&](qint64 done, qint64 total, const QString& name) {
            if (name == CopyLabel && done == CopyChunk) {
                size = total;
                QVERIFY(QFile::resize(rebuildFolder(vault).value_or(QString()) + u"/tessel.tvlt"_s,
                                      total + 1));
            }
        }));
        QVERIFY(QFile::resize(vault.kept, size));
        vault.compareRebuiltContainerIsKept();
    }

    void theErrorMayBeUnwanted() {
        CompactedVault vault;
        std::unique_ptr<FileSizeLimit> limit;
        QVERIFY(!vault.compact(
            whenCopyingBackBegins([&] { limit = std::make_unique<FileSizeLimit>(5); })));
        limit.reset();
        QVERIFY(rebuildFolder(vault));
        QCOMPARE(vault->state(), VaultState::Unlocked);
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
        CompactedVault vault;
        const ToolRun run = runTool(compaction(vault), vault.container(), {injection});
        QVERIFY(run.refused());
        vault.kept = run.text();
        vault.compareRebuiltContainerIsKept();
    }

    void aRebuiltContainerThatCannotBeOpenedIsKept() {
        NEEDS_TRACING();
        // Setting the old container aside opens it, the new one and their folder for syncs.
        const int before = 4 + callsUntil(u"openat"_s, u"renameat2.*/drive/tessel.tvlt.anterior"_s);
        QVERIFY(before > 4);
        CompactedVault vault;
        const ToolRun run = runTool(compaction(vault), QString(),
                                    {u"openat:error=EMFILE:when=%1"_s.arg(before + 1)});
        QVERIFY(run.refused());
        vault.kept = run.text();
        vault.compareRebuiltContainerIsKept();
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultCompaction>);
#include "test_vault_compaction.moc"
