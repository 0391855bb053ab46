// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "DriverRun.h"
#include "VaultFixture.h"

#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <functional>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 LengthLineAt = 7;
const QByteArray RecordMark = "TESSEL-REDO\n"_ba;
const QByteArray NewPassword = "outra senha longa"_ba;

/// Writes of this process that reach into the header of the watched file stop at a byte of the
/// file and fail, as they do on a drive that is pulled out.
struct HeaderFault {
    dev_t device = 0;
    ino_t inode = 0;
    qint64 stopAt = -1;
    int failures = 0;
};
HeaderFault g_fault;

// The bytes that may still be written, or nothing when the write is none of ours.
qint64 bytesBeforeTheFault(int descriptor, size_t size) {
    struct stat info {};
    if (g_fault.failures < 1 || ::fstat(descriptor, &info) != 0 || info.st_dev != g_fault.device ||
        info.st_ino != g_fault.inode) {
        return -1;
    }
    const qint64 at = ::lseek(descriptor, 0, SEEK_CUR);
    return at >= 0 && at < PayloadOffset && at + static_cast<qint64>(size) > g_fault.stopAt
               ? std::max<qint64>(0, g_fault.stopAt - at)
               : -1;
}

class FailingHeader {
public:
    static constexpr int Always = 1000000;

    /// @param times how many rewrites fail, putting the old header back included
    FailingHeader(const QString& container, qint64 stopAt, int times) {
        struct stat info {};
        if (::stat(QFile::encodeName(container).constData(), &info) != 0) {
            qFatal("no container to watch");
        }
        g_fault = {info.st_dev, info.st_ino, stopAt, times};
    }
    ~FailingHeader() { g_fault = {}; }
    Q_DISABLE_COPY_MOVE(FailingHeader)

    /// Whether a rewrite has run into the fault.
    [[nodiscard]] static bool struck(int times) { return g_fault.failures < times; }
};

} // namespace

// Stands before the C library's, for the toolkit as well.
extern "C" ssize_t write(int descriptor, const void* bytes, size_t size) {
    const qint64 allowed = bytesBeforeTheFault(descriptor, size);
    if (allowed < 0) {
        return ::syscall(SYS_write, descriptor, bytes, size);
    }
    if (allowed > 0) {
        return ::syscall(SYS_write, descriptor, bytes, static_cast<size_t>(allowed));
    }
    --g_fault.failures;
    // What is put back afterwards does not get as far.
    g_fault.stopAt = 0;
    errno = EIO;
    return -1;
}

namespace {

/// A vault before and after one change. Both have the same payload; only the headers differ.
struct Change {
    CraftedContainer before = base();
    CraftedContainer after = base();

    /// The record that protects it.
    QByteArray record;

    /// A new folder.
    Change() {
        after.addFolder(u"nova"_s);
        after.keys.payloadNonce = noise(24, 77);
        record = after.withIndexInRows().redoRecord();
    }

    static CraftedContainer base() {
        CraftedContainer vault(5);
        vault.addFile(u"docs/a.bin"_s, noise(3000, 1), 1000);
        vault.addFile(u"b.txt"_s, "conteudo de b"_ba);
        for (int i = 0; i < 12; ++i) {
            vault.addFolder(u"pasta %1"_s.arg(i));
        }
        return vault;
    }

    static Change ofPassword() {
        Change change;
        change.after = base();
        change.after.keys.password = NewPassword;
        change.after.keys.salt = noise(16, 78);
        change.after.keys.nonce = noise(24, 79);
        change.record = change.after.redoRecord();
        return change;
    }

    qint64 headersEnd() const {
        return std::max(before.headerOffset() + before.headerJson().size(),
                        after.headerOffset() + after.headerJson().size());
    }
    /// The container with the new header's bytes in [from, to) of the file, the old ones elsewhere.
    QByteArray torn(qint64 from, qint64 to) const {
        QByteArray bytes = before.bytes();
        const QByteArray newer = after.bytes();
        return bytes.replace(from, to - from, newer.mid(from, to - from));
    }
    QByteArray tornInTheMiddle() const { return torn(LengthLineAt, headersEnd() / 2); }
    /// Within what the password wraps; this and the whole rest of the index stay as they were.
    QByteArray tornInTheFirstSector() const { return torn(LengthLineAt, 200); }
    bool hasWholeHeader(const QByteArray& bytes, const CraftedContainer& of) const {
        const qint64 size = of.headerOffset() + of.headerJson().size();
        return bytes.left(size) == of.bytes().left(size);
    }
};

/// The container with its record at the end of the header region, as on a full drive.
QByteArray withRecordInRegion(QByteArray container, const QByteArray& record) {
    return container.replace(PayloadOffset - record.size(), record.size(), record);
}

/// The container with its record in either place.
QList<QByteArray> withRecord(const QByteArray& container, const QByteArray& record) {
    return {container + record, withRecordInRegion(container, record)};
}

/// A vault whose header leaves no room for a record in its region.
CraftedContainer withALargeHeader() {
    return Change::base().addFolder(QString(3300000, u'x'));
}

constexpr qint64 PageBytes = 4096;

/// Bytes of no block that leave nothing of the file's last page when @p behind follow them.
CraftedContainer withoutRoomInItsLastPage(CraftedContainer vault, qint64 behind = 0) {
    return vault.leaveGap(PageBytes - (vault.fileSize() + behind) % PageBytes);
}

QStringList foldersOf(const VaultManager& vault) {
    QStringList paths;
    const QList<VaultDirectoryEntry> folders = vault.fileIndex().directories();
    for (const VaultDirectoryEntry& folder : folders) {
        paths.append(folder.path);
    }
    return paths;
}

bool isAfterState(const VaultManager& vault) {
    return foldersOf(vault).contains(u"nova"_s);
}

// The length line, the header and all that is behind it in its region.
bool isZeroBehindTheHeader(const QByteArray& container) {
    const qint64 header = container.mid(LengthLineAt, 20).toLongLong();
    const QByteArray rest = container.mid(LengthLineAt + 21 + header);
    const qint64 restBytes = PayloadOffset - LengthLineAt - 21 - header;
    return header > 0 && restBytes >= 0 && rest.left(restBytes) == QByteArray(restBytes, '\0');
}

/// Whether the container is what the change would have left, but for the nonce of the index: a
/// second sealing never uses it again.
bool isFinished(const QString& container, const Change& change) {
    const QByteArray bytes = readFile(container);
    return isZeroBehindTheHeader(bytes) && bytes.mid(PayloadOffset) == change.after.payload() &&
           indexAsOpenedAnew(container, change.after.keys.password) == change.after.indexJson();
}

struct FileTimes {
    QDateTime modified;
    QDateTime statusChanged;
    bool operator==(const FileTimes& other) const {
        return modified == other.modified && statusChanged == other.statusChanged;
    }
};

FileTimes timesOf(const QString& path) {
    const QFileInfo info(path);
    return {info.lastModified(), info.metadataChangeTime()};
}

qint64 endOfLastBlock(const SecureFileIndex& index) {
    qint64 end = PayloadOffset;
    const QList<VaultFileEntry> entries = index.entries();
    for (const VaultFileEntry& entry : entries) {
        for (const VaultFileBlock& block : entry.blocks) {
            end = std::max(end, block.offset + block.encryptedSize);
        }
    }
    return end;
}

/// A drive that these bytes of a container fill, to the last one where they end with a page.
class FullDrive {
public:
    explicit FullDrive(const QByteArray& container)
        : m_full(m_disk.isMounted() && writeFile(path(), container) && m_disk.fillUpTo(0)) {}

    [[nodiscard]] bool isFull() const { return m_full; }
    [[nodiscard]] QString path() const { return m_disk.filePath(u"tessel.tvlt"_s); }

private:
    SmallDisk m_disk{12 * MiB};
    bool m_full;
};

} // namespace

class TestRedoRecord : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void repairsAHeaderTornAtAnyByte_data();
    void repairsAHeaderTornAtAnyByte();
    void repairsFromARecordOfTheHeaderAsItIs();
    void recordIsSealedUnderANonceOfItsOwn();
    void repairSealsTheIndexUnderAFreshNonce();
    void headerWithItsIndexInRowsIsRefused();
    void everyChangeLeavesZerosBehindTheHeader();
    void bytesBehindAHeaderGoWithTheFirstChangeOfEachSession();
    void laterChangesOfASessionReadTheHeaderAlone();
    void ignoresARecordCutShort();
    void ignoresARecordWithAByteAltered();
    void ignoresARecordOfAnotherVault();
    void ignoresARecordWhoseLengthLineIsWrong();
    void readingLeavesARecordBehindAWholeHeaderAlone_data();
    void readingLeavesARecordBehindAWholeHeaderAlone();
    void nextChangeRemovesTheRecord_data();
    void nextChangeRemovesTheRecord();
    void nextChangeRemovesStackedRecords();
    void changeRepairsAHeaderTornMeanwhile_data();
    void changeRepairsAHeaderTornMeanwhile();
    void backupOfATornContainerIsRepaired();
    void readOnlyTornContainerIsReadable();
    void repairsFromARecordInTheHeaderRegion();
    void recordInTheHeaderRegionMustBeWhole();
    void recordThatTheHeaderWouldOverwriteIsLeft();
    void newerRecordIsTheOneBehindThePayload();
    void fullDriveTakesEveryChangeThatFits_data();
    void fullDriveTakesEveryChangeThatFits();
    void fullDriveProtectsItsRewrite_data();
    void fullDriveProtectsItsRewrite();
    void fullDriveUsesARegionWithTheRestOfARecord();
    void fullDriveUndoesARewriteThatFails();
    void fullDriveKeepsTheBlocksOfARecordThatIsNeeded();
    void fullDriveReportsAChangeWhoseRecordStays();
    void recordWhoseRemovalTheDriveLostGoesBeforeTheNextOne();
    void whatFitsNowhereIsRefusedUnlessItDeletes();
    void plainRewriteGoesOnWithoutARecord();
    void fullDriveStillDeletes();
    void fullDriveUsesTheRoomOfAnOldRecord();
    void fullDriveRefusesAChangeInFrontOfARecordThatStays();
    void fullDriveClearsWhatAFailedChangeLeft();
    void failedRewritePutsTheOldHeaderBack_data();
    void failedRewritePutsTheOldHeaderBack();
    void rewriteThatCannotBeUndoneLeavesItsRecord_data();
    void rewriteThatCannotBeUndoneLeavesItsRecord();
    void rollBackKeepsARecordThatIsNeeded();
    void sessionGoesOnAfterARewriteThatCouldNotBeUndone();
    void failedSyncOfTheRecordIsNotBelieved_data();
    void failedSyncOfTheRecordIsNotBelieved();
    void oldPasswordOpensUntilTheHeaderIsTorn();
    void newPasswordRepairsATornPasswordChange();
    void tornPasswordChangeThatCannotBeRepairedAtOnceIsNotForgotten();
    void passwordChangeOfATornContainerKeepsTheNewIndex();
    void undisturbedContainersEndAtTheirLastBlock();
    void newContainerEndsAtItsHeaderRegion();
};

void TestRedoRecord::repairsAHeaderTornAtAnyByte_data() {
    QTest::addColumn<qint64>("from");
    QTest::addColumn<qint64>("to");
    const Change change;
    const qint64 end = change.headersEnd();
    QList<qint64> cuts;
    for (const qint64 around :
         {LengthLineAt, LengthLineAt + 20, change.before.headerOffset(),
          change.before.headerOffset() + change.before.headerJson().size(), end}) {
        cuts << around - 1 << around << around + 1;
    }
    for (qint64 sector = 512; sector < end; sector += 512) {
        cuts << sector;
    }
    for (const qint64 cut : qAsConst(cuts)) {
        QTest::addRow("new before %lld", static_cast<long long>(cut)) << LengthLineAt << cut;
        QTest::addRow("new from %lld", static_cast<long long>(cut)) << cut << end;
    }
    QTest::newRow("one sector of the middle") << qint64(1024) << qint64(1536);
}

void TestRedoRecord::repairsAHeaderTornAtAnyByte() {
    QFETCH(const qint64, from);
    QFETCH(const qint64, to);
    const Change change;
    const QByteArray torn = change.torn(from, std::max(from, to));
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), torn + change.record));

    QVERIFY(fixture.unlock());
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    QCOMPARE(fixture.stored(u"b.txt"_s), "conteudo de b"_ba);
    const QByteArray found = readFile(fixture.container());
    const bool isOld = change.hasWholeHeader(torn, change.before);
    const bool isNew = change.hasWholeHeader(torn, change.after);
    if (isOld || isNew) {
        QCOMPARE(isAfterState(fixture.vault), isNew);
        QVERIFY2(found == torn + change.record, "a container that opens was written to");
    } else {
        QVERIFY(isAfterState(fixture.vault));
        QCOMPARE(found.size(), change.after.fileSize());
        QVERIFY2(isFinished(fixture.container(), change),
                 "the repaired container is not the finished one");
    }
}

void TestRedoRecord::repairsFromARecordOfTheHeaderAsItIs() {
    // As a password change leaves it, which does not know the index.
    const Change change;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), change.tornInTheMiddle() + change.after.redoRecord()));
    QVERIFY(fixture.unlock());
    QVERIFY(isAfterState(fixture.vault));
    QVERIFY(readFile(fixture.container()) == change.after.bytes());
}

void TestRedoRecord::recordIsSealedUnderANonceOfItsOwn() {
    NEEDS_TRACING();
    // Two texts under one nonce would show what they have in common, to anybody.
    const Change change;
    const VaultFixture fixture(change.before);
    const DriverRun run =
        runDriver({fixture.container(), QString::fromUtf8(TestPassword), u"delete"_s, u"b.txt"_s},
                  fixture.container(), {u"ftruncate:error=EIO"_s});
    QVERIFY(run.ended());
    ContainerDocument header;
    ContainerDocument record;
    const ContainerManager manager;
    QVERIFY(manager.readDocument(fixture.container(), &header));
    QVERIFY2(manager.readRedoRecord(fixture.container(), &record), "the record was to stay");
    const QSet<QByteArray> nonces{change.before.keys.payloadNonce, header.crypto.payloadNonce,
                                  record.crypto.payloadNonce};
    QCOMPARE(nonces.size(), 3);
    QVERIFY(record.encryptedIndex.size() < header.encryptedIndex.size());
    record.crypto.payloadNonce = header.crypto.payloadNonce;
    QCOMPARE(manager.cryptoMetadataToJson(record.crypto),
             manager.cryptoMetadataToJson(header.crypto));
}

void TestRedoRecord::repairSealsTheIndexUnderAFreshNonce() {
    const Change change;
    const QByteArray torn = change.tornInTheMiddle() + change.record;
    QSet<QByteArray> nonces{change.before.keys.payloadNonce, change.after.keys.payloadNonce,
                            change.after.withIndexInRows().keys.payloadNonce};
    const qsizetype known = nonces.size();
    for (int times = 1; times <= 2; ++times) {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), torn));
        QVERIFY(fixture.unlock());
        ContainerDocument document;
        QVERIFY(ContainerManager().readDocument(fixture.container(), &document));
        nonces.insert(document.crypto.payloadNonce);
        QCOMPARE(nonces.size(), known + times);
    }
}

void TestRedoRecord::headerWithItsIndexInRowsIsRefused() {
    const Change change;
    VaultFixture fixture(change.after.withIndexInRows());
    QVERIFY(!fixture.unlock());
}

void TestRedoRecord::everyChangeLeavesZerosBehindTheHeader() {
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    const auto isZero = [&fixture] {
        return isZeroBehindTheHeader(readFile(fixture.container()));
    };
    // Growing and shrinking headers; the first change looks at all of the region, later ones
    // at what the header before them covered.
    QVERIFY(fixture.vault.createDirectory(QString(5000, u'x')) && isZero());
    QVERIFY(fixture.vault.deleteDirectory(QString(5000, u'x')) && isZero());
    QVERIFY(fixture.store(QString(3000, u'y'), "y") && isZero());
    QVERIFY(fixture.vault.renameFile(QString(3000, u'y'), u"y"_s) && isZero());
    QVERIFY(fixture.vault.compactVault({}, nullptr) && isZero());
    QVERIFY(fixture.vault.deleteFile(u"docs/a.bin"_s) && isZero());
}

void TestRedoRecord::bytesBehindAHeaderGoWithTheFirstChangeOfEachSession() {
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(fixture.vault.lockVault());
    QVERIFY(writeFile(fixture.container(), Change::base().setPadding('x').bytes()));
    QVERIFY(fixture.unlock());
    QVERIFY(!isZeroBehindTheHeader(readFile(fixture.container())));
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(isZeroBehindTheHeader(readFile(fixture.container())));
}

void TestRedoRecord::laterChangesOfASessionReadTheHeaderAlone() {
    NEEDS_TRACING();
    const auto bytesReadBy = [](const QStringList& operation) {
        const VaultFixture fixture(Change().before);
        const QStringList calls =
            callsOfDriver(QStringList{fixture.container(), QString::fromUtf8(TestPassword)} +
                              operation + QStringList{u"x"_s},
                          u"read,pread64,rmdir"_s);
        qint64 sum = 0;
        bool begun = false;
        for (const QString& call : calls) {
            begun = begun || call.contains(u"/tessel-begin"_s);
            if (begun && call.contains(fixture.container())) {
                sum += call.mid(call.lastIndexOf(u' ') + 1).toLongLong();
            }
        }
        return sum;
    };
    QVERIFY(bytesReadBy({u"mkdir"_s}) > HeaderBytes - 100000);
    const qint64 later = bytesReadBy({u"save"_s, u"then"_s, u"mkdir"_s});
    QVERIFY2(later > 1000 && later < 100000, qPrintable(QString::number(later)));
}

void TestRedoRecord::ignoresARecordCutShort() {
    const Change change;
    const QByteArray torn = change.tornInTheMiddle();
    const QByteArray record = change.record;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), torn + record));
    QFile file(fixture.container());
    QVERIFY(file.open(QIODevice::ReadWrite));
    for (qsizetype left = record.size() - 1; left >= 0;
         left -= left > record.size() - 80 ? 1 : 97) {
        QVERIFY(file.resize(torn.size() + left));
        QVERIFY2(!fixture.unlock(), qPrintable(u"%1 bytes left"_s.arg(left)));
        QCOMPARE(file.size(), torn.size() + left);
    }
    QVERIFY(readFile(fixture.container()).startsWith(torn.left(change.headersEnd())));
}

void TestRedoRecord::ignoresARecordWithAByteAltered() {
    const Change change;
    const QByteArray torn = change.tornInTheMiddle();
    const QByteArray record = change.record;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), torn + record));
    for (qsizetype at = 0; at < record.size(); at += at < record.size() - 80 ? 13 : 1) {
        const QByteArray altered(1, static_cast<char>(record.at(at) ^ 1));
        QVERIFY(overwriteAt(fixture.container(), torn.size() + at, altered));
        QVERIFY2(!fixture.unlock(), qPrintable(u"byte %1"_s.arg(at)));
        QVERIFY(overwriteAt(fixture.container(), torn.size() + at, record.mid(at, 1)));
    }
    QVERIFY(readFile(fixture.container()) == torn + record);
    QVERIFY(fixture.unlock());
}

void TestRedoRecord::ignoresARecordOfAnotherVault() {
    const Change change;
    CraftedContainer other(6);
    other.keys.password = "senha de outro cofre"_ba;
    const QByteArray bytes = change.tornInTheMiddle() + other.redoRecord();
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), bytes));
    QVERIFY(!fixture.unlock());
    QVERIFY(readFile(fixture.container()) == bytes);
}

void TestRedoRecord::ignoresARecordWhoseLengthLineIsWrong() {
    const Change change;
    CraftedContainer liar = change.after;
    liar.setLengthLine(QByteArray::number(liar.headerJson().size() - 1).rightJustified(20, '0') +
                       '\n');
    const QByteArray bytes = change.tornInTheMiddle() + liar.redoRecord();
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), bytes));
    QVERIFY(!fixture.unlock());
    QVERIFY(readFile(fixture.container()) == bytes);
}

void TestRedoRecord::readingLeavesARecordBehindAWholeHeaderAlone_data() {
    QTest::addColumn<bool>("inRegion");
    QTest::newRow("behind the payload") << false;
    QTest::newRow("in the header region") << true;
}

void TestRedoRecord::readingLeavesARecordBehindAWholeHeaderAlone() {
    QFETCH(const bool, inRegion);
    const Change change;
    const QByteArray bytes = withRecord(change.before.bytes(), change.record).at(inRegion ? 1 : 0);
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), bytes));
    const FileTimes times = timesOf(fixture.container());

    QVERIFY(!fixture.vault.unlockVault(fixture.container(), "errada"_ba));
    QVERIFY(fixture.unlock());
    QVERIFY(!isAfterState(fixture.vault));
    QVERIFY(fixture.vault.exportFile(u"docs/a.bin"_s, fixture.file(u"a.bin"_s)));
    QCOMPARE(readFile(fixture.file(u"a.bin"_s)), noise(3000, 1));
    QString copy;
    QVERIFY(fixture.vault.prepareFileForEditing(u"b.txt"_s, &copy));
    QVERIFY(fixture.vault.lockVault());

    QVERIFY(readFile(fixture.container()) == bytes);
    QVERIFY(timesOf(fixture.container()) == times);
}

// One row for each kind of change; each works on the vault of struct Change.
using Operation = std::function<bool(VaultFixture&)>;
Q_DECLARE_METATYPE(Operation)

static void addOperations() {
    QTest::addColumn<Operation>("operation");
    const QList<QPair<const char*, Operation>> rows{
        {"import",
         [](VaultFixture& f) {
             return f.store(u"c.txt"_s, "de c");
         }},
        {"new folder",
         [](VaultFixture& f) {
             return f.vault.createDirectory(u"outra"_s);
         }},
        {"rename",
         [](VaultFixture& f) {
             return f.vault.renameFile(u"b.txt"_s, u"d.txt"_s);
         }},
        {"move",
         [](VaultFixture& f) {
             return f.vault.moveFile(u"b.txt"_s, u"pasta 1"_s);
         }},
        {"delete",
         [](VaultFixture& f) {
             return f.vault.deleteFile(u"b.txt"_s);
         }},
        {"rename folder",
         [](VaultFixture& f) {
             return f.vault.renameDirectory(u"pasta 1"_s, u"x/y"_s);
         }},
        {"delete folder",
         [](VaultFixture& f) {
             return f.vault.deleteDirectory(u"pasta 2"_s);
         }},
        {"compaction",
         [](VaultFixture& f) {
             return f.vault.compactVault({}, nullptr);
         }},
        {"password",
         [](VaultFixture& f) {
             return f.vault.lockVault() &&
                    f.vault.changePassword(f.container(), TestPassword, NewPassword) &&
                    f.vault.unlockVault(f.container(), NewPassword);
         }},
    };
    for (const auto& [name, operation] : rows) {
        QTest::newRow(name) << operation;
    }
}

void TestRedoRecord::nextChangeRemovesTheRecord_data() {
    addOperations();
}

void TestRedoRecord::nextChangeRemovesTheRecord() {
    QFETCH(const Operation, operation);
    const Change change;
    for (const QByteArray& bytes : withRecord(change.before.bytes(), change.record)) {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), bytes));
        QVERIFY(fixture.unlock());
        QVERIFY(operation(fixture));
        QVERIFY(!readFile(fixture.container()).contains(RecordMark));
        QVERIFY(isZeroBehindTheHeader(readFile(fixture.container())));
        QVERIFY(!isAfterState(fixture.vault));
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        const qint64 end = change.before.fileSize();
        const qint64 lastBlock = endOfLastBlock(fixture.vault.fileIndex());
        QVERIFY(QFileInfo(fixture.container()).size() == std::max(end, lastBlock) ||
                QFileInfo(fixture.container()).size() == lastBlock);
    }
}

void TestRedoRecord::nextChangeRemovesStackedRecords() {
    const Change change;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(),
                      change.before.bytes() + change.before.redoRecord() + change.record));
    QVERIFY(fixture.unlock());
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
    QCOMPARE(QFileInfo(fixture.container()).size(), change.before.fileSize());
}

void TestRedoRecord::changeRepairsAHeaderTornMeanwhile_data() {
    addOperations();
}

// The drive is pulled out and put back while the vault is unlocked: the session goes on with what
// it knows.
void TestRedoRecord::changeRepairsAHeaderTornMeanwhile() {
    QFETCH(const Operation, operation);
    const Change change;
    for (const QByteArray& bytes : withRecord(change.tornInTheMiddle(), change.record)) {
        VaultFixture fixture(change.before);
        QVERIFY(fixture.unlock());
        QVERIFY(writeFile(fixture.container(), bytes));
        QVERIFY(operation(fixture));
        QVERIFY(!readFile(fixture.container()).contains(RecordMark));
        const bool passwordChanged = QTest::currentDataTag() == "password"_ba;
        QCOMPARE(
            indexAsOpenedAnew(fixture.container(), passwordChanged ? NewPassword : TestPassword),
            fixture.vault.fileIndex().toJson());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    }
}

void TestRedoRecord::backupOfATornContainerIsRepaired() {
    const Change change;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), change.tornInTheMiddle() + change.record));
    const QString backup = fixture.file(u"tessel_backup.tvlt"_s);
    QVERIFY(QFile::copy(fixture.container(), backup));
    QVERIFY(fixture.vault.unlockVault(backup, TestPassword));
    QVERIFY(isAfterState(fixture.vault));
    QVERIFY(isFinished(backup, change));
}

void TestRedoRecord::readOnlyTornContainerIsReadable() {
    NEEDS_PRIVATE_MOUNTS();
    const Change change;
    const QByteArray bytes = change.tornInTheMiddle() + change.record;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), bytes));
    const ReadOnlyMount readOnly(fixture.driveFolder());
    QVERIFY(readOnly.isMounted());

    QVERIFY(fixture.unlock());
    QVERIFY(isAfterState(fixture.vault));
    QVERIFY(fixture.vault.exportFile(u"docs/a.bin"_s, fixture.file(u"a.bin"_s)));
    QCOMPARE(readFile(fixture.file(u"a.bin"_s)), noise(3000, 1));
    QVERIFY(!fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(!fixture.vault.deleteFile(u"b.txt"_s));
    QVERIFY(fixture.vault.lockVault());
    QVERIFY(!fixture.vault.changePassword(fixture.container(), TestPassword, NewPassword));
    QVERIFY(readFile(fixture.container()) == bytes);
}

void TestRedoRecord::repairsFromARecordInTheHeaderRegion() {
    const Change change;
    for (const bool payload : {true, false}) {
        VaultFixture fixture;
        QByteArray torn = withRecordInRegion(change.tornInTheMiddle(), change.record);
        torn.resize(payload ? torn.size() : PayloadOffset);
        QVERIFY(writeFile(fixture.container(), torn));
        QVERIFY(fixture.unlock());
        QVERIFY(isAfterState(fixture.vault));
        QVERIFY(isZeroBehindTheHeader(readFile(fixture.container())));
        QVERIFY(!payload || isFinished(fixture.container(), change));
    }
}

void TestRedoRecord::recordInTheHeaderRegionMustBeWhole() {
    const Change change;
    const QByteArray torn = withRecordInRegion(change.tornInTheMiddle(), change.record);
    const qint64 begin = PayloadOffset - change.record.size();
    for (const qint64 at : {begin, begin + 300, PayloadOffset - 64, PayloadOffset - 1}) {
        QByteArray altered = torn;
        altered[at] = static_cast<char>(altered.at(at) ^ 1);
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), altered));
        QVERIFY(!fixture.unlock());
        QVERIFY(readFile(fixture.container()) == altered);
    }
}

void TestRedoRecord::recordThatTheHeaderWouldOverwriteIsLeft() {
    // No writer makes one: the record needs more of the region than its header leaves.
    const CraftedContainer large = withALargeHeader();
    const QByteArray torn = withRecordInRegion(Change().tornInTheMiddle(), large.redoRecord());
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), torn));
    QVERIFY(fixture.unlock());
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    QVERIFY(!fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(readFile(fixture.container()) == torn);
}

void TestRedoRecord::newerRecordIsTheOneBehindThePayload() {
    const Change change;
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(),
                      withRecordInRegion(change.tornInTheMiddle(), change.before.redoRecord()) +
                          change.record));
    QVERIFY(fixture.unlock());
    QVERIFY(isFinished(fixture.container(), change));
}

void TestRedoRecord::fullDriveTakesEveryChangeThatFits_data() {
    addOperations();
}

void TestRedoRecord::fullDriveTakesEveryChangeThatFits() {
    QFETCH(const Operation, operation);
    const QByteArray name = QTest::currentDataTag();
    const Change change;
    VaultFixture fixture(change.before);
    QVERIFY(fixture.unlock());
    const qint64 blocks = name == "import" ? 4 + 16 : 0;
    const qint64 size = change.before.fileSize() + blocks;
    {
        const FileSizeLimit full(size);
        QVERIFY(operation(fixture));
    }
    const QByteArray found = readFile(fixture.container());
    QVERIFY(isZeroBehindTheHeader(found));
    QVERIFY(name == "compaction" || found.size() == size);
    QVERIFY(name == "compaction" || found.mid(PayloadOffset).startsWith(change.before.payload()));
    QCOMPARE(
        indexAsOpenedAnew(fixture.container(), name == "password" ? NewPassword : TestPassword),
        fixture.vault.fileIndex().toJson());
}

void TestRedoRecord::fullDriveProtectsItsRewrite_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("new folder") << QStringList{u"mkdir"_s, u"nova"_s};
    QTest::newRow("delete") << QStringList{u"delete"_s, u"b.txt"_s};
    QTest::newRow("later in a session")
        << QStringList{u"save"_s, u"then"_s, u"delete"_s, u"b.txt"_s};
}

void TestRedoRecord::fullDriveProtectsItsRewrite() {
    NEEDS_PRIVATE_MOUNTS();
    NEEDS_TRACING();
    QFETCH(const QStringList, arguments);
    const FullDrive drive(withoutRoomInItsLastPage(Change::base()).bytes());
    QVERIFY(drive.isFull());
    const QString path = drive.path();
    // Killed before the header, which a pull would now have torn.
    const bool isLater = arguments.contains(u"then"_s);
    const DriverRun run = runDriver(QStringList{path, QString::fromUtf8(TestPassword)} + arguments,
                                    path, {u"write:signal=KILL:when=%1"_s.arg(isLater ? 2 : 1)});
    QVERIFY(!run.ended());
    QVERIFY(overwriteAt(path, 512, QByteArray(512, 'x')));
    VaultFixture fixture;
    QVERIFY(fixture.vault.unlockVault(path, TestPassword));
    const bool deleted = !fixture.filePaths().contains(u"b.txt"_s);
    QVERIFY(deleted || isAfterState(fixture.vault));
    QVERIFY(isZeroBehindTheHeader(readFile(path)));
}

void TestRedoRecord::fullDriveUsesARegionWithTheRestOfARecord() {
    const Change change;
    QByteArray rest = change.before.redoRecord();
    rest[rest.size() / 2] = static_cast<char>(rest.at(rest.size() / 2) ^ 1);
    VaultFixture fixture;
    QVERIFY(writeFile(fixture.container(), withRecordInRegion(change.before.bytes(), rest)));
    QVERIFY(fixture.unlock());
    const FileSizeLimit full(change.before.fileSize());
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(isZeroBehindTheHeader(readFile(fixture.container())));
}

void TestRedoRecord::fullDriveUndoesARewriteThatFails() {
    const Change change;
    VaultFixture fixture(change.before);
    QVERIFY(fixture.unlock());
    const VaultPicture picture(fixture);
    const FileSizeLimit full(change.before.fileSize());
    {
        const FailingHeader failing(fixture.container(), 1024, 1);
        QVERIFY(!fixture.vault.createDirectory(u"outra"_s));
        QVERIFY(FailingHeader::struck(1));
    }
    COMPARE_UNCHANGED(picture);
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
}

void TestRedoRecord::fullDriveKeepsTheBlocksOfARecordThatIsNeeded() {
    const Change change;
    const QByteArray contents = noise(5000, 3);
    VaultFixture fixture(change.before);
    QVERIFY(fixture.unlock());
    const FileSizeLimit full(change.before.fileSize() + contents.size() + 16);
    {
        const FailingHeader failing(fixture.container(), 1024, FailingHeader::Always);
        QVERIFY(!fixture.store(u"c.bin"_s, contents));
        QVERIFY(FailingHeader::struck(FailingHeader::Always));
    }
    VaultFixture other;
    QVERIFY(other.vault.unlockVault(fixture.container(), TestPassword));
    QCOMPARE(other.stored(u"docs/a.bin"_s), noise(3000, 1));
    QCOMPARE(other.stored(u"c.bin"_s), contents);
    QVERIFY(isZeroBehindTheHeader(readFile(fixture.container())));
}

void TestRedoRecord::fullDriveReportsAChangeWhoseRecordStays() {
    NEEDS_PRIVATE_MOUNTS();
    NEEDS_TRACING();
    const FullDrive drive(withoutRoomInItsLastPage(Change::base()).bytes());
    QVERIFY(drive.isFull());
    const QStringList arguments{drive.path(), QString::fromUtf8(TestPassword), u"rename"_s,
                                u"b.txt"_s, u"d.txt"_s};
    const QByteArray before = readFile(drive.path());
    const auto count = [&](const QString& name) {
        const qsizetype calls =
            callsOfDriver(arguments, name).filter(drive.path()).filter(name).size();
        return overwriteAt(drive.path(), 0, before) ? calls : -1;
    };
    const qsizetype syncs = count(u"fdatasync"_s);
    const qsizetype writes = count(u"pwrite64"_s);
    for (const QString& fault : {u"fdatasync:error=EIO:when=%1"_s.arg(syncs),
                                 u"pwrite64:error=EIO:when=%1"_s.arg(writes)}) {
        QVERIFY(overwriteAt(drive.path(), 0, before));
        // The header is on the drive; what is left goes with the next change.
        const DriverRun run = runDriver(arguments, drive.path(), {fault});
        QVERIFY2(run.succeeded(), qPrintable(fault));
        QCOMPARE(readFile(drive.path()).contains(RecordMark), fault.startsWith(u"pwrite64"));
        VaultFixture fixture;
        QVERIFY(fixture.vault.unlockVault(drive.path(), TestPassword));
        QVERIFY(fixture.filePaths().contains(u"d.txt"_s));
        QVERIFY(fixture.vault.createDirectory(u"outra"_s));
        QVERIFY(isZeroBehindTheHeader(readFile(drive.path())));
    }
}

void TestRedoRecord::recordWhoseRemovalTheDriveLostGoesBeforeTheNextOne() {
    // The cache has zeros where the drive still has a record: the zeros are written once more, and
    // reach the drive no later than the record of this change.
    NEEDS_TRACING();
    const VaultFixture fixture(Change().before);
    const QStringList calls =
        callsOfDriver({fixture.container(), QString::fromUtf8(TestPassword), u"mkdir"_s, u"x"_s},
                      u"pwrite64,fdatasync"_s);
    const QString zeros = u", 64, %1) = 64"_s.arg(PayloadOffset - 64);
    const auto erased = std::find_if(calls.cbegin(), calls.cend(),
                                     [&](const QString& call) { return call.endsWith(zeros); });
    const auto appended = std::find_if(calls.cbegin(), calls.cend(), [](const QString& call) {
        return call.contains(u"pwrite64("_s) && call.contains(u"\"0000000000"_s);
    });
    QVERIFY2(erased < appended && appended != calls.cend(), qPrintable(calls.join(u'\n')));
    QVERIFY(std::none_of(erased, appended,
                         [](const QString& call) { return call.contains(u"fdatasync"_s); }));
}

void TestRedoRecord::whatFitsNowhereIsRefusedUnlessItDeletes() {
    const CraftedContainer before = withALargeHeader();
    VaultFixture fixture(before);
    const QString source = fixture.write(u"vazio"_s, {});
    QVERIFY(fixture.unlock());
    const VaultPicture picture(fixture);
    const FileSizeLimit full(before.fileSize());
    QVERIFY(!fixture.vault.createDirectory(u"outra"_s));
    QVERIFY(!fixture.vault.renameFile(u"b.txt"_s, u"d.txt"_s));
    QVERIFY(!fixture.vault.moveFile(u"b.txt"_s, u"pasta 1"_s));
    QVERIFY(!fixture.vault.renameDirectory(u"pasta 1"_s, u"x"_s));
    QVERIFY(!fixture.vault.importFile(source, u"vazio"_s));
    QVERIFY(!fixture.vault.saveIndex(fixture.vault.fileIndex()));
    COMPARE_UNCHANGED(picture);
    VaultManager locked;
    QVERIFY(!locked.changePassword(fixture.container(), TestPassword, NewPassword));
    COMPARE_UNCHANGED(picture);

    QVERIFY(fixture.vault.deleteFile(u"b.txt"_s));
    QVERIFY(fixture.vault.deleteDirectory(u"pasta 1"_s));
    QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
             fixture.vault.fileIndex().toJson());
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
}

void TestRedoRecord::plainRewriteGoesOnWithoutARecord() {
    // Anyone who rewrites a header without saying what for is taken at their word.
    const CraftedContainer before = withALargeHeader();
    const VaultFixture fixture(before);
    const FileSizeLimit full(before.fileSize());
    ContainerDocument document;
    QVERIFY(ContainerManager().readDocument(fixture.container(), &document));
    QVERIFY(ContainerManager().updateDocumentHeader(fixture.container(), document));
    // But not in front of a record of an earlier time.
    QVERIFY(
        overwriteAt(fixture.container(), PayloadOffset - Change().record.size(), Change().record));
    QVERIFY(!ContainerManager().updateDocumentHeader(fixture.container(), document));
}

void TestRedoRecord::fullDriveStillDeletes() {
    NEEDS_PRIVATE_MOUNTS();
    // No record, however small, may find room in what is left of a page.
    const CraftedContainer before = withoutRoomInItsLastPage(Change::base());
    const FullDrive drive(before.bytes());
    QVERIFY(drive.isFull());
    VaultFixture fixture;
    QVERIFY(fixture.vault.unlockVault(drive.path(), TestPassword));

    QVERIFY(!fixture.store(u"c.txt"_s, noise(100000)));
    QVERIFY(fixture.vault.deleteFile(u"b.txt"_s));
    QCOMPARE(QFileInfo(drive.path()).size(), before.fileSize());
    QCOMPARE(indexAsOpenedAnew(drive.path(), TestPassword), fixture.vault.fileIndex().toJson());
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
}

void TestRedoRecord::fullDriveUsesTheRoomOfAnOldRecord() {
    NEEDS_PRIVATE_MOUNTS();
    // Otherwise a rewrite that finds no room would run in front of a record that is older than
    // the header, and a pull in the middle would go back to that.
    const Change change;
    const CraftedContainer before = withoutRoomInItsLastPage(change.before, change.record.size());
    const FullDrive drive(before.bytes() + change.record);
    QVERIFY(drive.isFull());
    const QString path = drive.path();
    // The first write settles the header that stands there.
    const DriverRun run =
        runDriver({path, QString::fromUtf8(TestPassword), u"delete"_s, u"b.txt"_s}, path,
                  {u"write:signal=KILL:when=2"_s});
    NEEDS_TRACING();
    QVERIFY(!run.ended());
    // Killed before the header: what stands at the end is the record of this very change.
    QVERIFY(overwriteAt(path, 512, QByteArray(512, 'x')));
    VaultFixture fixture;
    QVERIFY(fixture.vault.unlockVault(path, TestPassword));
    QCOMPARE(fixture.filePaths(), QStringList{u"docs/a.bin"_s});
    QVERIFY(!isAfterState(fixture.vault));
}

void TestRedoRecord::fullDriveRefusesAChangeInFrontOfARecordThatStays() {
    NEEDS_PRIVATE_MOUNTS();
    NEEDS_TRACING();
    const Change change;
    const CraftedContainer before = withoutRoomInItsLastPage(change.before, change.record.size());
    const FullDrive drive(before.bytes() + change.record);
    QVERIFY(drive.isFull());
    const QString path = drive.path();
    const DriverRun run =
        runDriver({path, QString::fromUtf8(TestPassword), u"delete"_s, u"b.txt"_s}, path,
                  {u"ftruncate:error=ENOSPC:when=1"_s, u"write:signal=KILL:when=2"_s});
    if (run.ended()) {
        QVERIFY(run.refused());
        return;
    }
    // Killed before the header, which a pull would now have torn.
    QVERIFY(overwriteAt(path, 512, QByteArray(512, 'x')));
    VaultFixture fixture;
    QVERIFY(fixture.vault.unlockVault(path, TestPassword));
    QVERIFY2(!isAfterState(fixture.vault), "a change that was given up long ago has come back");
}

void TestRedoRecord::fullDriveClearsWhatAFailedChangeLeft() {
    NEEDS_PRIVATE_MOUNTS();
    // Without room for a record, a drive pulled out between a shorter header and the zeros behind
    // it leaves one that opens, with the end of the longer one behind it.
    const CraftedContainer before = withoutRoomInItsLastPage(withALargeHeader());
    const QString folder(5000, u'x');
    const SmallDisk disk(16 * MiB);
    QVERIFY(disk.isMounted());
    const QString path = disk.filePath(u"tessel.tvlt"_s);
    QVERIFY(writeFile(path, before.bytes()));
    VaultFixture fixture;
    QVERIFY(fixture.vault.unlockVault(path, TestPassword));
    QVERIFY(fixture.vault.createDirectory(folder));
    QVERIFY(disk.fillUpTo(0));
    {
        const qint64 headerEnd = before.headerOffset() + before.headerJson().size();
        const FailingHeader failing(path, headerEnd + 1, FailingHeader::Always);
        QVERIFY(!fixture.vault.deleteDirectory(folder));
        QVERIFY(FailingHeader::struck(FailingHeader::Always));
    }
    QVERIFY(!readFile(path).contains(RecordMark));
    QVERIFY(!isZeroBehindTheHeader(readFile(path)));
    QVERIFY(fixture.vault.deleteDirectory(folder));
    QVERIFY(isZeroBehindTheHeader(readFile(path)));
}

void TestRedoRecord::failedRewritePutsTheOldHeaderBack_data() {
    QTest::addColumn<qint64>("stopAt");
    QTest::newRow("nothing written") << qint64(0);
    QTest::newRow("half the length line") << LengthLineAt + 10;
    QTest::newRow("one sector") << qint64(512);
    QTest::newRow("three sectors") << qint64(1536);
}

void TestRedoRecord::failedRewritePutsTheOldHeaderBack() {
    QFETCH(const qint64, stopAt);
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    const VaultPicture picture(fixture);
    for (const bool import : {false, true}) {
        const FailingHeader failing(fixture.container(), stopAt, 1);
        QVERIFY(import ? !fixture.store(u"c.txt"_s, "de c")
                       : !fixture.vault.createDirectory(u"outra"_s));
        QVERIFY(FailingHeader::struck(1));
        COMPARE_UNCHANGED(picture);
    }
    QVERIFY(fixture.vault.createDirectory(u"outra"_s));
}

void TestRedoRecord::rewriteThatCannotBeUndoneLeavesItsRecord_data() {
    failedRewritePutsTheOldHeaderBack_data();
}

void TestRedoRecord::rewriteThatCannotBeUndoneLeavesItsRecord() {
    QFETCH(const qint64, stopAt);
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    const QByteArray before = fixture.vault.fileIndex().toJson();
    {
        const FailingHeader failing(fixture.container(), stopAt, FailingHeader::Always);
        QVERIFY(!fixture.vault.createDirectory(u"outra"_s));
        QVERIFY(FailingHeader::struck(FailingHeader::Always));
        QCOMPARE(fixture.vault.fileIndex().toJson(), before);
        QVERIFY(readFile(fixture.container()).endsWith(RecordMark));
    }
    VaultManager other;
    QVERIFY(other.unlockVault(fixture.container(), TestPassword));
    QVERIFY(other.lockVault());
    QVERIFY(other.fileIndex().toJson() == before || foldersOf(other).contains(u"outra"_s));
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
}

void TestRedoRecord::rollBackKeepsARecordThatIsNeeded() {
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    const QByteArray contents = noise(5000, 3);
    {
        const FailingHeader failing(fixture.container(), 1024, FailingHeader::Always);
        QVERIFY(!fixture.store(u"c.bin"_s, contents));
        QVERIFY(FailingHeader::struck(FailingHeader::Always));
    }
    QVERIFY(!fixture.filePaths().contains(u"c.bin"_s));
    VaultFixture other;
    QVERIFY(other.vault.unlockVault(fixture.container(), TestPassword));
    QCOMPARE(other.stored(u"docs/a.bin"_s), noise(3000, 1));
    QCOMPARE(other.stored(u"c.bin"_s), contents);
}

void TestRedoRecord::sessionGoesOnAfterARewriteThatCouldNotBeUndone() {
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    {
        const FailingHeader failing(fixture.container(), 1024, FailingHeader::Always);
        QVERIFY(!fixture.store(u"c.bin"_s, noise(5000, 3)));
    }
    QVERIFY(fixture.store(u"d.bin"_s, noise(6000, 4)));
    QCOMPARE(indexAsOpenedAnew(fixture.container(), TestPassword),
             fixture.vault.fileIndex().toJson());
    QCOMPARE(fixture.stored(u"d.bin"_s), noise(6000, 4));
    QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    QCOMPARE(QFileInfo(fixture.container()).size(), endOfLastBlock(fixture.vault.fileIndex()));
}

void TestRedoRecord::failedSyncOfTheRecordIsNotBelieved_data() {
    QTest::addColumn<QString>("error");
    QTest::newRow("failing drive") << u"EIO"_s;
    // Some file systems find out only now that there is no room; blocks may be what they lost.
    QTest::newRow("full drive") << u"ENOSPC"_s;
}

void TestRedoRecord::failedSyncOfTheRecordIsNotBelieved() {
    QFETCH(const QString, error);
    NEEDS_TRACING();
    VaultFixture fixture(Change().before);
    const VaultPicture picture(fixture);
    const QString source = fixture.write(u"c"_s, "de c");
    const DriverRun run = runDriver(
        {fixture.container(), QString::fromUtf8(TestPassword), u"import"_s, source, u"c.txt"_s},
        fixture.container(), {u"fdatasync:error=%1:when=2"_s.arg(error)});
    QVERIFY(run.refused());
    COMPARE_UNCHANGED(picture);
}

void TestRedoRecord::oldPasswordOpensUntilTheHeaderIsTorn() {
    const Change change = Change::ofPassword();
    VaultFixture fixture;
    const QByteArray untouched = change.before.bytes() + change.record;
    QVERIFY(writeFile(fixture.container(), untouched));
    QVERIFY(fixture.unlock());
    QVERIFY(fixture.vault.lockVault());
    QVERIFY(readFile(fixture.container()) == untouched);

    const QByteArray torn = change.tornInTheFirstSector() + change.record;
    QVERIFY(writeFile(fixture.container(), torn));
    QVERIFY(!fixture.unlock());
    QVERIFY(readFile(fixture.container()) == torn);
}

void TestRedoRecord::newPasswordRepairsATornPasswordChange() {
    const Change change = Change::ofPassword();
    for (const QByteArray& bytes : withRecord(change.before.bytes(), change.record) +
                                       withRecord(change.tornInTheFirstSector(), change.record)) {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), bytes));
        QVERIFY(fixture.vault.unlockVault(fixture.container(), NewPassword));
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        QVERIFY(readFile(fixture.container()) == change.after.bytes());
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(!fixture.unlock());
    }
}

void TestRedoRecord::tornPasswordChangeThatCannotBeRepairedAtOnceIsNotForgotten() {
    // The index opens under either wrapping: only the record holds the one that a password opens.
    const Change change = Change::ofPassword();
    for (const QByteArray& header : {change.before.bytes(), change.tornInTheFirstSector()}) {
        VaultFixture fixture;
        QVERIFY(writeFile(fixture.container(), header + change.record));
        {
            const FailingHeader failing(fixture.container(), 0, 1);
            QVERIFY(fixture.vault.unlockVault(fixture.container(), NewPassword));
            QVERIFY(FailingHeader::struck(1));
        }
        QVERIFY(fixture.vault.createDirectory(u"depois"_s));
        QVERIFY(fixture.vault.lockVault());
        QVERIFY(fixture.vault.unlockVault(fixture.container(), NewPassword));
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        QVERIFY(fixture.vault.fileIndex().containsDirectory(u"depois"_s));
    }
}

void TestRedoRecord::passwordChangeOfATornContainerKeepsTheNewIndex() {
    const Change change;
    VaultFixture fixture;
    // The first sector is new, the index behind it is half old.
    QVERIFY(writeFile(fixture.container(), change.torn(LengthLineAt, 512) + change.record));
    QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, NewPassword));
    QVERIFY(fixture.vault.unlockVault(fixture.container(), NewPassword));
    QVERIFY(isAfterState(fixture.vault));
    QCOMPARE(QFileInfo(fixture.container()).size(), change.after.fileSize());
}

void TestRedoRecord::undisturbedContainersEndAtTheirLastBlock() {
    VaultFixture fixture(Change().before);
    QVERIFY(fixture.unlock());
    const auto size = [&fixture] {
        return QFileInfo(fixture.container()).size();
    };
    qint64 end = size();
    QCOMPARE(end, endOfLastBlock(fixture.vault.fileIndex()));

    const auto grownBy = [&](const QByteArray& contents) {
        return end += contents.size() + 16;
    };
    const QByteArray contents = noise(7000, 9);
    QVERIFY(fixture.store(u"c.bin"_s, contents));
    QCOMPARE(size(), grownBy(contents));
    QVERIFY(fixture.store(u"c.bin"_s, contents));
    QCOMPARE(size(), grownBy(contents));
    QVERIFY(fixture.store(u"vazio"_s, {}));
    QCOMPARE(size(), end);
    QVERIFY(fixture.vault.createDirectory(u"x/y"_s));
    QVERIFY(fixture.vault.renameFile(u"c.bin"_s, u"x/d.bin"_s));
    QVERIFY(fixture.vault.moveFile(u"x/d.bin"_s, QString()));
    QVERIFY(fixture.vault.renameDirectory(u"x"_s, u"z"_s));
    QVERIFY(fixture.vault.deleteDirectory(u"z/y"_s));
    QVERIFY(fixture.vault.deleteFile(u"vazio"_s));
    QVERIFY(fixture.vault.saveIndex(fixture.vault.fileIndex()));
    QCOMPARE(size(), end);
    QVERIFY(fixture.vault.compactVault({}, nullptr));
    QCOMPARE(size(), endOfLastBlock(fixture.vault.fileIndex()));
    end = size();
    QVERIFY(fixture.vault.lockVault());
    QVERIFY(fixture.vault.changePassword(fixture.container(), TestPassword, NewPassword));
    QCOMPARE(size(), end);
    QVERIFY(!readFile(fixture.container()).contains(RecordMark));
}

void TestRedoRecord::newContainerEndsAtItsHeaderRegion() {
    VaultFixture fixture;
    QVERIFY(fixture.vault.createVault(fixture.container(), NewPassword));
    QCOMPARE(QFileInfo(fixture.container()).size(), PayloadOffset);
}

namespace {

int run(int argc, char** argv) {
    const bool privateMounts = enterPrivateMounts();
    Q_UNUSED(privateMounts)
    return runTest<QCoreApplication, TestRedoRecord>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_redo_record.moc"
