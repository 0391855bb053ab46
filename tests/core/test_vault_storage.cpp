// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/QtVersions.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/PeakMemory.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSet>
#include <QTest>

#include <numeric>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 Chunk = 16777216;

const QDateTime LongAgo(QDate(2019, 2, 28), QTime(23, 59, 58, 250), Utc);

/// A vault with a folder and two files.
CraftedContainer usedContainer() {
    CraftedContainer crafted;
    crafted.addFolder(u"Docs"_s)
        .addFile(u"Docs/A.TXT"_s, "contents of A"_ba)
        .addFile(u"other"_s, "contents of other"_ba);
    return crafted;
}

/// A vault with one block that was sealed by hand under the given associated data.
CraftedContainer containerWithBlockSealedUnder(const QByteArray& associatedData) {
    CraftedContainer crafted;
    const QByteArray nonce = noise(24, 7);
    const QByteArray plain = "sealed by hand"_ba;
    crafted.addPayload(
        CraftedContainer::seal(plain, crafted.keys.masterKey.left(32), nonce, associatedData));
    const QJsonObject block{{u"offset"_s, PayloadOffset},
                            {u"plainSize"_s, plain.size()},
                            {u"encryptedSize"_s, plain.size() + 16},
                            {u"nonce"_s, QString::fromLatin1(nonce.toBase64())}};
    const QJsonObject entry{{u"vaultPath"_s, u"f"_s}, {u"blocks"_s, QJsonArray{block}}};
    return crafted.setIndexMember(u"files"_s, QJsonArray{entry});
}

QByteArray sha256(const QByteArray& bytes) {
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

/// Takes a given number of bytes, then no more, without an error.
class ShortDevice : public QIODevice {
public:
    explicit ShortDevice(qint64 room) : m_room(room) { open(QIODevice::WriteOnly | Unbuffered); }

protected:
    qint64 readData(char*, qint64) override { return -1; }
    qint64 writeData(const char*, qint64 size) override {
        const qint64 taken = std::min(size, m_room);
        m_room -= taken;
        return taken;
    }

private:
    qint64 m_room;
};

} // namespace

class TestVaultStorage : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // --- Importing -------------------------------------------------------------------------

    void anImportedFileIsDescribedInFull() {
        OpenVault vault(usedContainer());
        const QByteArray bytes = noise(100000);
        const QString source = vault.write(u"source.bin"_s, bytes);
        QVERIFY(setModified(source, LongAgo));
        QVERIFY(vault->importFile(source, u"photos/z.bin"_s));

        const VaultFileEntry entry = vault.entry(u"photos/z.bin"_s);
        const QRegularExpression uuid(
            u"^[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}$"_s);
        QVERIFY2(uuid.match(entry.id).hasMatch(), qPrintable(entry.id));
        QCOMPARE(entry.sizeBytes, 100000);
        QCOMPARE(entry.lastModifiedUtc, LongAgo);
        QCOMPARE(entry.lastModifiedUtc.timeSpec(), Qt::UTC);
        QCOMPARE(entry.sha256, sha256(bytes));
        QCOMPARE(entry.blocks.size(), 1);
        QCOMPARE(vault.stored(u"photos/z.bin"_s), bytes);
        QVERIFY(vault.isSaved());
    }

    void blocksHoldSixteenMebibytesEach_data() {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QList<qint64>>("plainSizes");
        QTest::newRow("empty") << qint64(0) << QList<qint64>{};
        QTest::newRow("one byte") << qint64(1) << QList<qint64>{1};
        QTest::newRow("one byte short of a chunk") << Chunk - 1 << QList<qint64>{Chunk - 1};
        QTest::newRow("a chunk") << Chunk << QList<qint64>{Chunk};
        QTest::newRow("a chunk and a byte") << Chunk + 1 << QList<qint64>{Chunk, 1};
        QTest::newRow("two chunks") << 2 * Chunk << QList<qint64>{Chunk, Chunk};
        QTest::newRow("two chunks and a byte") << 2 * Chunk + 1 << QList<qint64>{Chunk, Chunk, 1};
    }
    void blocksHoldSixteenMebibytesEach() {
        QFETCH(const qint64, size);
        QFETCH(const QList<qint64>, plainSizes);
        OpenVault vault(usedContainer());
        const QByteArray bytes = noise(size);
        const QString source = vault.write(u"source"_s, bytes);
        const QByteArray before = vault.bytes();
        QList<ProgressCall> calls;
        QVERIFY(vault->importFile(source, u"big"_s, recordInto(&calls)));

        const VaultFileEntry entry = vault.entry(u"big"_s);
        QCOMPARE(entry.sizeBytes, size);
        QCOMPARE(entry.sha256, sha256(bytes));
        QCOMPARE(entry.blocks.size(), plainSizes.size());
        QList<ProgressCall> expectedCalls;
        QSet<QByteArray> nonces;
        qint64 offset = before.size();
        qint64 done = 0;
        for (qsizetype i = 0; i < plainSizes.size(); ++i) {
            const VaultFileBlock block = entry.blocks.at(i);
            QCOMPARE(block.offset, offset);
            QCOMPARE(block.plainSize, plainSizes.at(i));
            QCOMPARE(block.encryptedSize, plainSizes.at(i) + 16);
            QCOMPARE(block.nonce.size(), 24);
            nonces.insert(block.nonce);
            offset += block.encryptedSize;
            done += plainSizes.at(i);
            expectedCalls.append({done, size, u"big"_s});
        }
        QCOMPARE(nonces.size(), plainSizes.size());
        QCOMPARE(calls, expectedCalls);
        const QByteArray after = vault.bytes();
        QCOMPARE(after.size(), offset);
        // The blocks that were there have not moved.
        QVERIFY(after.mid(PayloadOffset, before.size() - PayloadOffset) ==
                before.mid(PayloadOffset));
        QVERIFY(vault.stored(u"big"_s) == bytes);
    }

    void anEmptyFileHasTheDigestOfNoBytes() {
        OpenVault vault;
        QVERIFY(vault.store(u"empty"_s, {}));
        QCOMPARE(vault.entry(u"empty"_s).sha256.toHex(),
                 QByteArray("e3b0c44298fc1c149afbf4c8996fb924"
                            "27ae41e4649b934ca495991b7852b855"));
        QCOMPARE(vault.containerSize(), PayloadOffset);
        const QString target = vault.write(u"target"_s, "what was there before");
        QVERIFY(vault->exportFile(u"empty"_s, target));
        QCOMPARE(QFileInfo(target).size(), 0);
    }

    void aBlockIsSealedUnderItsNonceAndTheLiteralAssociatedData() {
        const CraftedContainer crafted;
        OpenVault vault(crafted);
        const QByteArray bytes = noise(5000);
        QVERIFY(vault.store(u"f"_s, bytes));
        const VaultFileBlock block = vault.entry(u"f"_s).blocks.constFirst();
        const QByteArray sealed = vault.bytes().mid(block.offset, block.encryptedSize);
        QCOMPARE(CraftedContainer::open(sealed, crafted.keys.masterKey.left(32), block.nonce,
                                        "TESSEL|file-block|3"),
                 bytes);
    }

    void progressIsReportedOnceTheBlockIsInTheContainer() {
        OpenVault vault;
        const QString source = vault.write(u"source"_s, noise(Chunk + 1));
        QList<qint64> sizes;
        QList<bool> listed;
        QVERIFY(vault->importFile(source, u"big"_s, [&](qint64, qint64, const QString&) {
            sizes.append(vault.containerSize());
            listed.append(vault->fileIndex().contains(u"big"_s));
        }));
        QCOMPARE(sizes, (QList<qint64>{PayloadOffset + Chunk + 16, PayloadOffset + Chunk + 33}));
        // The file is part of the vault only when all of it is stored.
        QCOMPARE(listed, (QList<bool>{false, false}));
    }

    void aLargeFilePassesThroughLittleMemory() {
        OpenVault vault;
        const QString source = vault.write(u"source"_s, {});
        QVERIFY(QFile::resize(source, 6 * Chunk));
        const QString target = vault.file(u"target"_s);
        const PeakMemory memory;
        QVERIFY(memory.canMeasure());
        QVERIFY(vault->importFile(source, u"big"_s));
        QVERIFY(vault->exportFile(u"big"_s, target));
        // A chunk and its sealed form, and as much again.
        QVERIFY2(memory.growth() < 4 * Chunk, qPrintable(QString::number(memory.growth())));
        QCOMPARE(QFileInfo(target).size(), 6 * Chunk);
        QCOMPARE(sha256OfFile(target), sha256OfFile(source));
    }

    void pathsAreBroughtToTheirCanonicalForm() {
        OpenVault vault;
        const QString source = vault.write(u"source"_s, "abc");
        QList<ProgressCall> calls;
        QVERIFY(vault->importFile(source, u" /docs\\\\2025// a.txt "_s, recordInto(&calls)));
        QCOMPARE(vault.filePaths(), QStringList(u"docs/2025/a.txt"_s));
        QCOMPARE(calls, (QList<ProgressCall>{{3, 3, u"docs/2025/a.txt"_s}}));
    }

    void missingFoldersAreCreatedOnce() {
        OpenVault vault(usedContainer());
        const QDateTime before = QDateTime::currentDateTimeUtc();
        QVERIFY(vault.store(u"x/y/z.bin"_s, "z"));
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QCOMPARE(vault.folderPaths(), QStringList({u"Docs"_s, u"x"_s, u"x/y"_s}));
        const VaultDirectoryEntry folder = vault.folder(u"x"_s);
        QVERIFY(folder.createdUtc >= before && folder.createdUtc <= after);
        QCOMPARE(folder.modifiedUtc, folder.createdUtc);
        QCOMPARE(vault.folder(u"x/y"_s).createdUtc, folder.createdUtc);

        // Those that are there are found in any letter case and left alone.
        QVERIFY(vault.store(u"X/Y/w.bin"_s, "w"));
        QVERIFY(vault.store(u"docs/b.txt"_s, "b"));
        QCOMPARE(vault.folderPaths(), QStringList({u"Docs"_s, u"x"_s, u"x/y"_s}));
        QCOMPARE(vault.folder(u"x"_s).modifiedUtc, folder.modifiedUtc);
    }

    void importingOverAFileReplacesItInAnyLetterCase() {
        OpenVault vault(usedContainer());
        const VaultFileEntry old = vault.entry(u"Docs/A.TXT"_s);
        const VaultFileEntry other = vault.entry(u"other"_s);
        const QByteArray before = vault.bytes();
        QVERIFY(vault.store(u"Docs/a.txt"_s, "new contents"));
        QCOMPARE(vault.filePaths(), QStringList({u"other"_s, u"Docs/a.txt"_s}));
        QVERIFY(vault.entry(u"Docs/a.txt"_s).id != old.id);
        QCOMPARE(vault.stored(u"Docs/a.txt"_s), "new contents"_ba);
        QCOMPARE(vault.entry(u"other"_s).id, other.id);
        QCOMPARE(vault.stored(u"other"_s), "contents of other"_ba);
        // The old bytes stay until the vault is compacted.
        const QByteArray after = vault.bytes();
        QCOMPARE(after.size(), before.size() + 12 + 16);
        QVERIFY(after.mid(PayloadOffset, before.size() - PayloadOffset) ==
                before.mid(PayloadOffset));
    }

    void importingTheSameFileTwiceMakesANewCopy() {
        OpenVault vault;
        QVERIFY(vault.store(u"f"_s, "same"));
        const VaultFileEntry first = vault.entry(u"f"_s);
        QVERIFY(vault.store(u"f"_s, "same"));
        const VaultFileEntry second = vault.entry(u"f"_s);
        QCOMPARE(vault.filePaths().size(), 1);
        QVERIFY(second.id != first.id);
        QVERIFY(second.blocks.constFirst().nonce != first.blocks.constFirst().nonce);
        QVERIFY(second.blocks.constFirst().offset > first.blocks.constFirst().offset);
    }

    void allSpellingsOfAPathAreReplaced() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "1").addFile(u"A"_s, "2").addFile(u"b"_s, "3");
        OpenVault vault(crafted);
        QVERIFY(vault.store(u"a"_s, "new"));
        QCOMPARE(vault.filePaths(), QStringList({u"b"_s, u"a"_s}));
    }

    void aFileMayStandBesideAFolderOfItsPath() {
        OpenVault vault(usedContainer());
        QVERIFY(vault.store(u"docs"_s, "a file"));
        QCOMPARE(vault.folderPaths(), QStringList(u"Docs"_s));
        QCOMPARE(vault.stored(u"docs"_s), "a file"_ba);
        QCOMPARE(vault.stored(u"Docs/A.TXT"_s), "contents of A"_ba);
    }

    void aLinkToAFileIsFollowed() {
        OpenVault vault;
        const QString target = vault.write(u"target"_s, "behind the link");
        QVERIFY(QFile::link(target, vault.file(u"link"_s)));
        QVERIFY(vault->importFile(vault.file(u"link"_s), u"f"_s));
        QCOMPARE(vault.stored(u"f"_s), "behind the link"_ba);
    }

    // --- Imports that are refused ----------------------------------------------------------

    void unusablePathsAreRefused_data() {
        QTest::addColumn<QString>("path");
        for (const char* path : {"", "/", "  ", "..", "a/../b", "a/./b", "a/ /b"}) {
            QTest::addRow("'%s'", path) << QString::fromLatin1(path);
        }
    }
    void unusablePathsAreRefused() {
        QFETCH(const QString, path);
        OpenVault vault(usedContainer());
        const QString source = vault.write(u"source"_s, "abc");
        const VaultPicture before(vault);
        QVERIFY(!vault->importFile(source, path));
        QVERIFY(!vault->exportFile(path, vault.file(u"target"_s)));
        COMPARE_UNCHANGED(before);
    }

    void sourcesThatAreNoFilesAreRefused_data() {
        QTest::addColumn<QString>("source");
        for (const char* source : {"", "missing", "folder", "dangling", "pipe", "/dev/null"}) {
            QTest::addRow("'%s'", source) << QString::fromLatin1(source);
        }
    }
    void sourcesThatAreNoFilesAreRefused() {
        QFETCH(const QString, source);
        OpenVault vault(usedContainer());
        QVERIFY(QDir().mkdir(vault.file(u"folder"_s)));
        QVERIFY(QFile::link(vault.file(u"nowhere"_s), vault.file(u"dangling"_s)));
        const QByteArray pipe = QFile::encodeName(vault.file(u"pipe"_s));
        QCOMPARE(::mkfifo(pipe.constData(), 0600), 0);
        const VaultPicture before(vault);
        const bool inFolder = !source.isEmpty() && !source.startsWith(QLatin1Char('/'));
        QVERIFY(!vault->importFile(inFolder ? vault.file(source) : source, u"f"_s));
        COMPARE_UNCHANGED(before);
    }

    void aSourceThatMayNotBeReadIsRefused() {
        OpenVault vault(usedContainer());
        const QString source = vault.write(u"source"_s, "abc");
        QVERIFY(QFile::setPermissions(source, {}));
        const VaultPicture before(vault);
        {
            const ObeyPermissions obey;
            QVERIFY(!vault->importFile(source, u"f"_s));
        }
        COMPARE_UNCHANGED(before);
    }

    void theContainerIsNotImportedIntoItself() {
        OpenVault vault(usedContainer());
        const QString link = vault.file(u"link"_s);
        QVERIFY(QFile::link(vault.container(), link));
        const VaultPicture before(vault);
        QVERIFY(!vault->importFile(vault.container(), u"f"_s));
        QVERIFY(!vault->importFile(link, u"f"_s));
        QVERIFY(!vault->exportFile(u"other"_s, vault.container()));
        QVERIFY(!vault->exportFile(u"other"_s, link));
        COMPARE_UNCHANGED(before);
    }

    void anImportWhoseIndexDoesNotFitIsRolledBack() {
        OpenVault vault(usedContainer());
        // Sealed and in Base64 this is a little less than the header region.
        SecureFileIndex index = vault->fileIndex();
        QVERIFY(index.addDirectory({QString(6200000, QLatin1Char('x')), {}, {}}));
        QVERIFY(vault->saveIndex(index));
        const QString source = vault.write(u"source"_s, "abc");
        VERIFY_REFUSED(vault, vault->importFile(source, QString(200000, QLatin1Char('y'))));
        QVERIFY(vault->importFile(source, u"short"_s));
    }

    // --- Sources that change while they are read -------------------------------------------

    void aSourceThatShrinksIsRolledBack_data() {
        QTest::addColumn<qint64>("remaining");
        QTest::newRow("to nothing") << qint64(0);
        QTest::newRow("below what was read") << qint64(1000);
        QTest::newRow("to what was read") << Chunk;
        QTest::newRow("into the next block") << Chunk + 5;
    }
    void aSourceThatShrinksIsRolledBack() {
        QFETCH(const qint64, remaining);
        OpenVault vault(usedContainer());
        const QString source = vault.write(u"source"_s, noise(Chunk + 1000));
        const VaultPicture before(vault);
        int calls = 0;
        QVERIFY(!vault->importFile(source, u"Docs/a.txt"_s, [&](qint64, qint64, const QString&) {
            ++calls;
            QVERIFY(QFile::resize(source, remaining));
        }));
        QVERIFY(calls >= 1);
        COMPARE_UNCHANGED(before);
        QCOMPARE(vault.stored(u"Docs/A.TXT"_s), "contents of A"_ba);
    }

    void aSourceThatGrowsIsStoredAsItWasRead() {
        OpenVault vault(usedContainer());
        const QByteArray bytes = noise(Chunk);
        const QByteArray added = "written meanwhile"_ba;
        const QString source = vault.write(u"source"_s, bytes);
        QList<ProgressCall> calls;
        QVERIFY(vault->importFile(source, u"log"_s,
                                  [&](qint64 done, qint64 total, const QString& name) {
                                      if (calls.isEmpty()) {
                                          QVERIFY(overwriteAt(source, Chunk, added));
                                      }
                                      calls.append({done, total, name});
                                  }));
        const VaultFileEntry entry = vault.entry(u"log"_s);
        QCOMPARE(entry.sizeBytes, Chunk);
        QCOMPARE(entry.sha256, sha256(bytes + added));
        QVERIFY(vault.stored(u"log"_s) == bytes + added);
        QCOMPARE(calls, (QList<ProgressCall>{{Chunk, Chunk, u"log"_s},
                                             {Chunk + added.size(), Chunk, u"log"_s}}));
    }

    void aSourceThatSaysItIsEmptyIsReadToItsEnd() {
        // The kernel's own files say 0, and so do those of some network mounts.
        const QString source = u"/proc/version"_s;
        const QByteArray bytes = readFile(source);
        QCOMPARE(QFileInfo(source).size(), 0);
        QVERIFY(!bytes.isEmpty());
        OpenVault vault(usedContainer());
        QList<ProgressCall> calls;
        QVERIFY(vault->importFile(source, u"f"_s, recordInto(&calls)));
        QCOMPARE(vault.stored(u"f"_s), bytes);
        const VaultFileEntry entry = vault.entry(u"f"_s);
        QCOMPARE(entry.sizeBytes, bytes.size());
        QCOMPARE(entry.sha256, sha256(bytes));
        QCOMPARE(calls, (QList<ProgressCall>{{bytes.size(), 0, u"f"_s}}));
        QVERIFY(vault.isSaved());
    }

    // --- Drives that fail ------------------------------------------------------------------

    void aDriveWithoutRoomIsLeftAsItWas_data() {
        QTest::addColumn<qint64>("room");
        QTest::newRow("none") << qint64(0);
        QTest::newRow("one page") << qint64(4096);
        QTest::newRow("half a block") << Chunk / 2;
        QTest::newRow("the first block, not the second") << Chunk + 8192;
    }
    void aDriveWithoutRoomIsLeftAsItWas() {
        QFETCH(const qint64, room);
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(32 * MiB);
        OpenVault vault(usedContainer(), disk.filePath(u"tessel.tvlt"_s));
        const QString source = vault.write(u"source"_s, noise(Chunk + 100000));
        QVERIFY(disk.fillUpTo(room));
        const VaultPicture before(vault);
        QVERIFY(!vault->importFile(source, u"Docs/a.txt"_s));
        QCOMPARE(disk.bytesFree(), room);
        COMPARE_UNCHANGED(before);
        QCOMPARE(vault.stored(u"Docs/A.TXT"_s), "contents of A"_ba);
    }

    void aDriveFilledToTheLastPageStillTakesTheFile() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(16 * MiB);
        OpenVault vault(usedContainer(), disk.filePath(u"tessel.tvlt"_s));
        // The header is rewritten where it stands: only the block needs room.
        const qint64 end = vault.containerSize();
        const qint64 inLastPage = 4096 - end % 4096;
        const QByteArray bytes = noise(inLastPage + 4096 - 16);
        const QString source = vault.write(u"source"_s, bytes);
        QVERIFY(disk.fillUpTo(4096));
        QVERIFY(vault->importFile(source, u"last"_s));
        QCOMPARE(disk.bytesFree(), 0);
        QCOMPARE(vault.stored(u"last"_s), bytes);
        QVERIFY(vault.isSaved());
        // A full vault must still be able to forget a file.
        QVERIFY(vault->deleteFile(u"last"_s));
        QVERIFY(vault.isSaved());
    }

    void aFileSizeLimitRollsTheImportBack_data() {
        QTest::addColumn<qint64>("roomForBlocks");
        QTest::newRow("none") << qint64(0);
        QTest::newRow("half a block") << Chunk / 2;
        QTest::newRow("a byte short of the first block") << Chunk + 15;
        QTest::newRow("the first block") << Chunk + 16;
        QTest::newRow("a byte short of the second block") << Chunk + 16 + 1000 + 15;
    }
    void aFileSizeLimitRollsTheImportBack() {
        QFETCH(const qint64, roomForBlocks);
        OpenVault vault(usedContainer());
        const QString source = vault.write(u"source"_s, noise(Chunk + 1000));
        const qint64 end = vault.containerSize();
        const VaultPicture before(vault);
        {
            const FileSizeLimit limit(end + roomForBlocks);
            QVERIFY(!vault->importFile(source, u"big"_s));
        }
        COMPARE_UNCHANGED(before);
        QVERIFY(vault->importFile(source, u"big"_s));
    }

    void aDriveThatFailsForGoodNeverLosesTheOldFile_data() {
        QTest::addColumn<QStringList>("injections");
        QTest::newRow("header and its way back") << QStringList{u"write:error=EIO:when=3+"_s};
        QTest::newRow("every flush from the header on")
            << QStringList{u"fdatasync:error=EIO:when=2+"_s};
        QTest::newRow("flush of the header, then the way back")
            << QStringList{u"fdatasync:error=EIO:when=2+"_s, u"write:error=EIO:when=4+"_s};
        QTest::newRow("flush of the header, which cannot be read")
            << QStringList{u"read:error=EIO:when=9+"_s, u"fdatasync:error=EIO:when=2"_s};
    }
    void aDriveThatFailsForGoodNeverLosesTheOldFile() {
        QFETCH(const QStringList, injections);
        NEEDS_TRACING();
        VaultFixture vault(usedContainer());
        const QByteArray contents = noise(Chunk + 1000);
        const QString source = vault.write(u"source"_s, contents);
        const ToolRun run = runTool({vault.container(), QString::fromUtf8(TestPassword),
                                     u"import"_s, source, u"Docs/A.TXT"_s},
                                    vault.container(), injections);
        QVERIFY(run.refused());
        // Whichever of the two headers the drive holds, the file behind it must be whole.
        QVERIFY(vault.unlock());
        const QByteArray found = vault.stored(u"Docs/A.TXT"_s);
        QVERIFY(found == "contents of A" || found == contents);
        QCOMPARE(vault.stored(u"other"_s), "contents of other"_ba);
    }

    // --- Exporting -------------------------------------------------------------------------

    void anExportIsWhatWasImported() {
        OpenVault vault(usedContainer());
        const QString target = vault.file(u"target"_s);
        QVERIFY(vault->exportFile(u"Docs/A.TXT"_s, target));
        QCOMPARE(readFile(target), "contents of A"_ba);
        // A longer file is truncated first.
        QVERIFY(writeFile(target, noise(5000)));
        QVERIFY(vault->exportFile(u"other"_s, target));
        QCOMPARE(readFile(target), "contents of other"_ba);
    }

    void anExportIsForItsUserAloneAndAReplacedFileKeepsItsMode() {
        VaultFixture vault(usedContainer());
        const FileModeMask usual(0022);
        QVERIFY(vault.unlock());
        const QString target = vault.file(u"target"_s);
        QVERIFY(vault->exportFile(u"other"_s, target));
        QCOMPARE(modeOf(target), mode_t{0600});
        QCOMPARE(::chmod(QFile::encodeName(target).constData(), 0644), 0);
        QVERIFY(vault->exportFile(u"other"_s, target));
        QCOMPARE(modeOf(target), mode_t{0644});
    }

    void exportedPathsAreNormalizedAndWrittenPathsAreNot() {
        OpenVault vault(usedContainer());
        const QString target = vault.file(u"target"_s);
        QVERIFY(vault->exportFile(u" \\docs//a.txt/ "_s, target));
        QCOMPARE(readFile(target), "contents of A"_ba);
        QCOMPARE(vault.stored(u"docs/a.txt"_s), "contents of A"_ba);
        QCOMPARE(vault.stored(u"/Docs/A.TXT"_s), "(refused)"_ba);
        QCOMPARE(vault.stored(u"Docs\\A.TXT"_s), "(refused)"_ba);
        QCOMPARE(vault.stored(u"Docs/A.TXT "_s), "(refused)"_ba);
        QCOMPARE(vault.stored(QString()), "(refused)"_ba);
    }

    void theFirstOfTwoSpellingsIsGiven() {
        CraftedContainer crafted;
        crafted.addFile(u"a"_s, "first").addFile(u"A"_s, "second");
        OpenVault vault(crafted);
        QCOMPARE(vault.stored(u"A"_s), "first"_ba);
    }

    void whatIsNotInTheVaultIsNotExported() {
        OpenVault vault(usedContainer());
        // The destination is made, or emptied, before the vault is asked.
        const QString fresh = vault.file(u"fresh"_s);
        QVERIFY(!vault->exportFile(u"missing"_s, fresh));
        QVERIFY(QFileInfo(fresh).isFile());
        QCOMPARE(QFileInfo(fresh).size(), 0);
        const QString target = vault.write(u"target"_s, "what was there before");
        QVERIFY(!vault->exportFile(u"missing"_s, target));
        QVERIFY(QFileInfo(target).isFile());
        QCOMPARE(QFileInfo(target).size(), 0);
        // A folder is no file.
        QCOMPARE(vault.stored(u"Docs"_s), "(refused)"_ba);
        QVERIFY(!vault->writeVaultFileToDevice(u"other"_s, nullptr));
    }

    void destinationsThatCannotBeOpenedAreRefused() {
        OpenVault vault(usedContainer());
        QVERIFY(!vault->exportFile(u"other"_s, vault.file(u"missing/target"_s)));
        QVERIFY(!vault->exportFile(u"other"_s, vault.file(QString())));
        QVERIFY(!vault->exportFile(u"other"_s, QString()));
        const QString target = vault.write(u"target"_s, "kept");
        QVERIFY(QFile::setPermissions(target, QFile::ReadOwner));
        const ObeyPermissions obey;
        QVERIFY(!vault->exportFile(u"other"_s, target));
        QCOMPARE(readFile(target), "kept"_ba);
    }

    void aDestinationThatIsNoFileIsRefused_data() {
        QTest::addColumn<bool>("isRead");
        QTest::newRow("a pipe that nobody reads") << false;
        QTest::newRow("a pipe that is read") << true;
    }
    void aDestinationThatIsNoFileIsRefused() {
        QFETCH(const bool, isRead);
        OpenVault vault(usedContainer());
        const QString pipe = vault.file(u"pipe"_s);
        const QByteArray name = QFile::encodeName(pipe);
        QCOMPARE(::mkfifo(name.constData(), 0600), 0);
        const int reader = isRead ? ::open(name.constData(), O_RDONLY | O_NONBLOCK) : -1;
        const auto closing = qScopeGuard([reader] { ::close(reader); });
        QCOMPARE(reader >= 0, isRead);
        QVERIFY(!vault->exportFile(u"other"_s, pipe));
        // Nothing was written either.
        char byte = 0;
        QVERIFY(!isRead || ::read(reader, &byte, 1) == 0);
        QVERIFY(!vault->exportFile(u"other"_s, u"/dev/null"_s));
        QVERIFY(!vault->exportFile(u"other"_s, vault.driveFolder()));
    }

    void aDestinationWithoutRoomIsAFailure() {
        NEEDS_PRIVATE_MOUNTS();
        const SmallDisk disk(4 * MiB);
        OpenVault vault;
        QVERIFY(vault.store(u"big"_s, noise(5 * MiB)));
        QVERIFY(vault.store(u"small"_s, "fits"));
        const VaultPicture before(vault);
        const QString target = disk.filePath(u"target"_s);
        QVERIFY(!vault->exportFile(u"big"_s, target));
        COMPARE_UNCHANGED(before);
        QVERIFY(vault->exportFile(u"small"_s, target));
        QCOMPARE(readFile(target), "fits"_ba);
    }

    void aDeviceThatTakesLessIsAFailure_data() {
        QTest::addColumn<qint64>("room");
        QTest::addColumn<bool>("enough");
        QTest::newRow("nothing") << qint64(0) << false;
        QTest::newRow("inside the first block") << qint64(5) << false;
        QTest::newRow("the first block") << qint64(10) << false;
        QTest::newRow("a byte short") << qint64(24) << false;
        QTest::newRow("all") << qint64(25) << true;
    }
    void aDeviceThatTakesLessIsAFailure() {
        QFETCH(const qint64, room);
        QFETCH(const bool, enough);
        CraftedContainer crafted;
        crafted.addFile(u"f"_s, noise(25), 10);
        OpenVault vault(crafted);
        ShortDevice device(room);
        QCOMPARE(vault->writeVaultFileToDevice(u"f"_s, &device), enough);
    }

    void aDeviceThatIsNotOpenIsAFailure() {
        OpenVault vault(usedContainer());
        QFile closed(vault.file(u"closed"_s));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"device not open"_s));
        QVERIFY(!vault->writeVaultFileToDevice(u"other"_s, &closed));
    }

    void blocksOfAnySizeAndPlaceAreRead() {
        CraftedContainer crafted;
        crafted.leaveGap(1000)
            .addFile(u"a"_s, noise(100), 7)
            .leaveGap(3)
            .addFile(u"b"_s, noise(50, 2), 1);
        OpenVault vault(crafted);
        QCOMPARE(vault.entry(u"a"_s).blocks.size(), 15);
        QCOMPARE(vault.stored(u"a"_s), noise(100));
        QCOMPARE(vault.stored(u"b"_s), noise(50, 2));
    }

    void sizeAndDigestAreNotCheckedOnTheWayOut() {
        CraftedContainer crafted;
        crafted.addFile(u"f"_s, "contents")
            .setFileMember(0, u"sizeBytes"_s, 12345)
            .setFileMember(0, u"sha256"_s, u"00"_s);
        OpenVault vault(crafted);
        QCOMPARE(vault.stored(u"f"_s), "contents"_ba);
    }

    void everyByteOfABlocksAssociatedDataCounts() {
        VaultFixture vault;
        const auto opensWith = [&vault](const QByteArray& associatedData) {
            return containerWithBlockSealedUnder(associatedData).writeTo(vault.container()) &&
                   vault.unlock() && vault.stored(u"f"_s) == "sealed by hand" && vault->lockVault();
        };
        const QByteArray literal = "TESSEL|file-block|3"_ba;
        QCOMPARE(literal.size(), 19);
        QVERIFY(opensWith(literal));
        for (qsizetype at = 0; at < literal.size(); ++at) {
            const QByteArray other = withByteChanged(literal, at);
            QVERIFY2(!opensWith(other), other.constData());
        }
        QVERIFY(!opensWith(literal + '|'));
        QVERIFY(!opensWith(literal.chopped(1)));
        QVERIFY(!opensWith({}));
    }

    void anAlteredBlockStopsTheExportThere_data() {
        QTest::addColumn<qsizetype>("block");
        QTest::addColumn<int>("byte");
        QTest::newRow("first byte") << qsizetype(0) << 0;
        QTest::newRow("last byte of a tag") << qsizetype(0) << 25;
        QTest::newRow("second block") << qsizetype(1) << 3;
        QTest::newRow("last block") << qsizetype(2) << 4;
    }
    void anAlteredBlockStopsTheExportThere() {
        QFETCH(const qsizetype, block);
        QFETCH(const int, byte);
        CraftedContainer crafted;
        const QByteArray contents = noise(25);
        crafted.addFile(u"f"_s, contents, 10).addFile(u"g"_s, "intact");
        VaultFixture vault(crafted);
        const qint64 at = crafted.blocks(0).at(block).offset + byte;
        const char altered = static_cast<char>(vault.bytes().at(at) ^ 0x10);
        QVERIFY(overwriteAt(vault.container(), at, QByteArray(1, altered)));
        QVERIFY(vault.unlock());
        const QString target = vault.file(u"target"_s);
        QVERIFY(!vault->exportFile(u"f"_s, target));
        // What came before it was authentic and stays.
        QCOMPARE(readFile(target), contents.left(block * 10));
        QCOMPARE(vault.stored(u"g"_s), "intact"_ba);
    }

    void aBlockThatIsNotWhereTheIndexSaysIsRefused_data() {
        QTest::addColumn<QString>("member");
        QTest::addColumn<QJsonValue>("value");
        QTest::newRow("a byte further") << u"offset"_s << QJsonValue(PayloadOffset + 1);
        QTest::newRow("beyond the end") << u"offset"_s << QJsonValue(PayloadOffset * 2);
        QTest::newRow("negative") << u"offset"_s << QJsonValue(-1);
        QTest::newRow("a byte more") << u"encryptedSize"_s << QJsonValue(25);
        QTest::newRow("a byte less") << u"encryptedSize"_s << QJsonValue(23);
        QTest::newRow("plaintext longer") << u"plainSize"_s << QJsonValue(9);
        QTest::newRow("plaintext shorter") << u"plainSize"_s << QJsonValue(7);
        QTest::newRow("another nonce")
            << u"nonce"_s << QJsonValue(QString::fromLatin1(QByteArray(24, 'n').toBase64()));
        QTest::newRow("no nonce") << u"nonce"_s << QJsonValue(QString());
    }
    void aBlockThatIsNotWhereTheIndexSaysIsRefused() {
        QFETCH(const QString, member);
        QFETCH(const QJsonValue, value);
        CraftedContainer crafted;
        crafted.addFile(u"f"_s, "contents").addFile(u"g"_s, "intact");
        OpenVault vault(crafted);
        QCOMPARE(vault.stored(u"f"_s), "contents"_ba);
        QVERIFY(vault->lockVault());
        crafted.setBlockMember(0, 0, member, value);
        QVERIFY(crafted.writeTo(vault.container()));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(u"f"_s), "(refused)"_ba);
        QCOMPARE(vault.stored(u"g"_s), "intact"_ba);
    }

    void aContainerThatIsCutShortGivesWhatIsLeft() {
        CraftedContainer crafted;
        crafted.addFile(u"f"_s, "first").addFile(u"g"_s, "second");
        VaultFixture vault(crafted);
        QVERIFY(QFile::resize(vault.container(), crafted.fileSize() - 1));
        QVERIFY(vault.unlock());
        QCOMPARE(vault.stored(u"f"_s), "first"_ba);
        QCOMPARE(vault.stored(u"g"_s), "(refused)"_ba);
        QVERIFY(QFile::remove(vault.container()));
        QCOMPARE(vault.stored(u"f"_s), "(refused)"_ba);
    }

    void aFullFlowWithARealKeySurvivesAnotherSession() {
        VaultFixture vault;
        QVERIFY(vault->createVault(vault.container(), TestPassword));
        QVERIFY(vault.unlock());
        const QByteArray bytes = noise(Chunk + 12345);
        QVERIFY(vault.store(u"old"_s, noise(100000)));
        QVERIFY(vault.store(u"docs/big.bin"_s, bytes));
        QVERIFY(vault.store(u"a.txt"_s, "a"));
        QVERIFY(vault->deleteFile(u"old"_s));
        QVERIFY(vault.compact());
        QCOMPARE(vault.containerSize(), PayloadOffset + bytes.size() + 2 * 16 + 1 + 16);
        QVERIFY(!vault.openAndEdit(u"a.txt"_s, "edited").isEmpty());
        QVERIFY(vault.reopen());
        QVERIFY(vault.stored(u"docs/big.bin"_s) == bytes);
        QCOMPARE(vault.stored(u"a.txt"_s), "edited"_ba);
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestVaultStorage>);
#include "test_vault_storage.moc"
