// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "support/CheapDerivation.h"
#include "support/Faults.h"
#include "support/Files.h"
#include "support/TestProgram.h"
#include "support/ToolRun.h"
#include "support/VaultFixture.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSet>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <limits>
#include <utility>

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
    struct stat info = {};
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
        struct stat info = {};
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

// Comes before the C library's, for Qt as well.
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
        record = after.withPackedIndex().redoRecord();
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
    return Change::base().addFolder(QString(4000000, u'x'));
}

/// The record of a change in each of its forms, the latter two of earlier versions.
QList<QPair<const char*, QByteArray>> formsOfTheRecord(const CraftedContainer& after) {
    return {{"packed index", after.withPackedIndex().redoRecord()},
            {"index as it is", after.redoRecord()},
            {"header as it is", after.earlierRedoRecord()},
            {"index in rows", after.withIndexInRows().earlierRedoRecord()}};
}

void addForms(const CraftedContainer& after) {
    QTest::addColumn<QByteArray>("record");
    for (const auto& [name, record] : formsOfTheRecord(after)) {
        QTest::newRow(name) << record;
    }
}

QByteArray twentyDigits(qint64 number) {
    return QByteArray::number(number).rightJustified(20, '0');
}

QByteArray recordOf(const QByteArray& image) {
    return CraftedContainer::recordOf(image);
}

/// The same under another size.
QByteArray recordOf(const QByteArray& image, const QByteArray& size) {
    return recordOf(image).replace(image.size() + 32, 20, size);
}

constexpr qint64 PageBytes = 4096;

/// Bytes of no block that leave nothing of the file's last page when @p behind follow them.
CraftedContainer withoutRoomInItsLastPage(CraftedContainer vault, qint64 behind = 0) {
    return vault.leaveGap(PageBytes - (vault.fileSize() + behind) % PageBytes);
}

bool isAfterState(const VaultFixture& fixture) {
    return fixture.folderPaths().contains(u"nova"_s);
}

// The length line, the header and all that is behind it in its region.
bool isZeroBehindTheHeader(const QByteArray& container) {
    const qint64 header = container.mid(LengthLineAt, 20).toLongLong();
    const QByteArray rest = container.mid(LengthLineAt + 21 + header);
    const qint64 restBytes = PayloadOffset - LengthLineAt - 21 - header;
    return header > 0 && restBytes >= 0 && rest.left(restBytes) == QByteArray(restBytes, '\0');
}

bool isZeroBehindTheHeader(const VaultFixture& fixture) {
    return isZeroBehindTheHeader(fixture.bytes());
}

/// A locked vault whose container has these bytes.
struct ContainerOf : VaultFixture {
    explicit ContainerOf(const QByteArray& bytes) {
        if (!writeFile(container(), bytes)) {
            qFatal("cannot write the container for the test");
        }
    }
};

/// Whether the container is what the change would have left, but for the nonce of the index: a
/// second sealing never uses it again.
bool isFinished(const QString& container, const Change& change) {
    const QByteArray bytes = readFile(container);
    return isZeroBehindTheHeader(bytes) && bytes.mid(PayloadOffset) == change.after.payload() &&
           indexOnDrive(container, change.after.keys.password) == change.after.indexJson();
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

/// A full drive whose container has its old header and, after the payload, the record of a change
/// that was given up.
class OldRecordOnFullDrive : public FullDrive {
public:
    OldRecordOnFullDrive() : FullDrive(containerOf(Change())) {}

    /// Deletes "b.txt" in another process, with these calls failing.
    [[nodiscard]] ToolRun deleteWith(const QStringList& faults) const {
        return runTool({path(), QString::fromUtf8(TestPassword), u"delete"_s, u"b.txt"_s}, path(),
                       faults);
    }

private:
    static QByteArray containerOf(const Change& change) {
        return withoutRoomInItsLastPage(change.before, change.record.size()).bytes() +
               change.record;
    }
};

} // namespace

/// A record of the change whose header is filled up with blanks.
static QByteArray paddedRecord(qint64 size) {
    return recordOf(twentyDigits(size) + '\n' +
                    Change().after.headerJson().leftJustified(size, ' '));
}

// One row for each kind of change; each works on the vault of struct Change.
using Operation = std::function<bool(VaultFixture&)>;
Q_DECLARE_METATYPE(Operation)

static void addOperations() {
    QTest::addColumn<Operation>("operation");
    const auto row = [](const char* name, const Operation& operation) {
        QTest::newRow(name) << operation;
    };
    row("import", [](VaultFixture& f) { return f.store(u"c.txt"_s, "de c"); });
    row("new folder", [](VaultFixture& f) { return f->createDirectory(u"outra"_s); });
    row("rename", [](VaultFixture& f) { return f->renameFile(u"b.txt"_s, u"d.txt"_s); });
    row("move", [](VaultFixture& f) { return f->moveFile(u"b.txt"_s, u"pasta 1"_s); });
    row("delete", [](VaultFixture& f) { return f->deleteFile(u"b.txt"_s); });
    row("rename folder",
        [](VaultFixture& f) { return f->renameDirectory(u"pasta 1"_s, u"x/y"_s); });
    row("delete folder", [](VaultFixture& f) { return f->deleteDirectory(u"pasta 2"_s); });
    row("compaction", [](VaultFixture& f) { return f.compact(); });
    row("password", [](VaultFixture& f) {
        return f->lockVault() && f->changePassword(f.container(), TestPassword, NewPassword) &&
               f->unlockVault(f.container(), NewPassword);
    });
}

/// The password after the operation of this row.
static QByteArray passwordNow() {
    return QTest::currentDataTag() == "password"_ba ? NewPassword : TestPassword;
}

class TestRedoRecord : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void repairsAHeaderTornAtAnyByte_data() {
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
        for (const qint64 cut : std::as_const(cuts)) {
            QTest::addRow("new before %lld", static_cast<long long>(cut)) << LengthLineAt << cut;
            QTest::addRow("new from %lld", static_cast<long long>(cut)) << cut << end;
        }
        QTest::newRow("one sector of the middle") << qint64(1024) << qint64(1536);
    }
    void repairsAHeaderTornAtAnyByte() {
        QFETCH(const qint64, from);
        QFETCH(const qint64, to);
        const Change change;
        const QByteArray torn = change.torn(from, std::max(from, to));
        ContainerOf fixture(torn + change.record);

        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        QCOMPARE(fixture.stored(u"b.txt"_s), "conteudo de b"_ba);
        const QByteArray found = fixture.bytes();
        const bool isOld = change.hasWholeHeader(torn, change.before);
        const bool isNew = change.hasWholeHeader(torn, change.after);
        if (isOld || isNew) {
            QCOMPARE(isAfterState(fixture), isNew);
            QVERIFY2(found == torn + change.record, "a container that opens was written to");
        } else {
            QVERIFY(isAfterState(fixture));
            QCOMPARE(found.size(), change.after.fileSize());
            QVERIFY2(isFinished(fixture.container(), change),
                     "the repaired container is not the finished one");
        }
    }

    void repairsFromEveryFormOfARecord_data() { addForms(Change().after); }
    void repairsFromEveryFormOfARecord() {
        QFETCH(const QByteArray, record);
        const Change change;
        for (const QByteArray& bytes : withRecord(change.tornInTheMiddle(), record)) {
            ContainerOf fixture(bytes);
            QVERIFY(fixture.unlock());
            QVERIFY(isAfterState(fixture));
            QVERIFY(isFinished(fixture.container(), change));
            QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
            // An index that is sealed as in a header is taken as it is.
            QCOMPARE(fixture.bytes() == change.after.bytes(),
                     QByteArray(QTest::currentDataTag()).endsWith("as it is"));
        }
    }

    void recordIsSealedUnderANonceOfItsOwn() {
        NEEDS_TRACING();
        // Two texts under one nonce would show what they have in common, to anybody.
        const Change change;
        const VaultFixture fixture(change.before);
        const ToolRun run =
            runTool({fixture.container(), QString::fromUtf8(TestPassword), u"delete"_s, u"b.txt"_s},
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

    void repairSealsTheIndexUnderAFreshNonce() {
        const Change change;
        const QByteArray torn = change.tornInTheMiddle() + change.record;
        QSet<QByteArray> nonces{change.before.keys.payloadNonce, change.after.keys.payloadNonce,
                                change.after.withPackedIndex().keys.payloadNonce};
        const qsizetype known = nonces.size();
        for (int times = 1; times <= 2; ++times) {
            ContainerOf fixture(torn);
            QVERIFY(fixture.unlock());
            ContainerDocument document;
            QVERIFY(ContainerManager().readDocument(fixture.container(), &document));
            nonces.insert(document.crypto.payloadNonce);
            QCOMPARE(nonces.size(), known + times);
        }
    }

    void formsOfARecordAreNoIndexOfAHeader() {
        const CraftedContainer after = Change().after;
        for (const CraftedContainer& crafted : {after.withPackedIndex(), after.withIndexInRows()}) {
            VaultFixture fixture(crafted);
            QVERIFY(!fixture.unlock());
        }
    }

    void everyChangeLeavesZerosBehindTheHeader() {
        OpenVault fixture(Change().before);
        const auto isZero = [&fixture] {
            return isZeroBehindTheHeader(fixture);
        };
        // Growing and shrinking headers; the first change looks at all of the region, later ones
        // at what the header before them covered.
        QVERIFY(fixture->createDirectory(QString(5000, u'x')) && isZero());
        QVERIFY(fixture->deleteDirectory(QString(5000, u'x')) && isZero());
        QVERIFY(fixture.store(QString(3000, u'y'), "y") && isZero());
        QVERIFY(fixture->renameFile(QString(3000, u'y'), u"y"_s) && isZero());
        QVERIFY(fixture.compact() && isZero());
        QVERIFY(fixture->deleteFile(u"docs/a.bin"_s) && isZero());
    }

    void bytesBehindAHeaderGoWithTheFirstChangeOfEachSession() {
        OpenVault fixture(Change().before);
        QVERIFY(fixture->createDirectory(u"outra"_s));
        QVERIFY(fixture->lockVault());
        QVERIFY(writeFile(fixture.container(), Change::base().setPadding('x').bytes()));
        QVERIFY(fixture.unlock());
        QVERIFY(!isZeroBehindTheHeader(fixture));
        QVERIFY(fixture->createDirectory(u"outra"_s));
        QVERIFY(isZeroBehindTheHeader(fixture));
    }

    void laterChangesOfASessionReadLittle() {
        NEEDS_TRACING();
        const auto bytesReadBy = [](const QStringList& operation) {
            const VaultFixture fixture(withALargeHeader());
            const QStringList calls =
                callsOfTool(QStringList{fixture.container(), QString::fromUtf8(TestPassword)} +
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
        QVERIFY2(later > 1000 && later < 50000, qPrintable(QString::number(later)));
    }

    void everyByteOfARecordIsProtected_data() { addForms(Change().after); }
    void everyByteOfARecordIsProtected() {
        QFETCH(const QByteArray, record);
        const Change change;
        const QByteArray torn = change.tornInTheMiddle();
        ContainerOf fixture(torn + record);
        for (qsizetype at = 0; at < record.size(); ++at) {
            const QByteArray altered = withByteChanged(record, at);
            QVERIFY(overwriteAt(fixture.container(), torn.size() + at, altered.mid(at, 1)));
            QVERIFY2(!fixture.unlock(), qPrintable(u"byte %1"_s.arg(at)));
            QVERIFY(overwriteAt(fixture.container(), torn.size() + at, record.mid(at, 1)));
        }
        QVERIFY(fixture.bytes() == torn + record);
        for (qsizetype left = record.size() - 1; left >= 0;
             left -= left > record.size() - 80 ? 1 : 97) {
            QVERIFY(QFile::resize(fixture.container(), torn.size() + left));
            QVERIFY2(!fixture.unlock(), qPrintable(u"%1 bytes left"_s.arg(left)));
            QCOMPARE(fixture.containerSize(), torn.size() + left);
        }
        QVERIFY(fixture.bytes().startsWith(torn));
    }

    void ignoresWhatIsNoRecord_data() {
        QTest::addColumn<QByteArray>("record");
        QTest::addColumn<bool>("isWhole");
        const CraftedContainer after = Change().after;
        const QByteArray header = after.headerJson();
        const QByteArray image = after.lengthLine() + header;
        CraftedContainer other(6);
        other.keys.password = "senha de outro cofre"_ba;
        CraftedContainer altered = after;
        altered.setEncryptedIndex(QByteArray(200, 'i'));
        const auto row = [](const char* name, const QByteArray& record, bool isWhole = false) {
            QTest::newRow(name) << record << isWhole;
        };
        row("of another vault", other.redoRecord(), true);
        row("with an altered index", altered.redoRecord(), true);
        row("with a malformed packed index", after.withPacked("\2\2d\0\0\0"_ba).redoRecord(), true);
        row("with bytes after the packed index", after.withPacked("\0\0\0"_ba).redoRecord(), true);
        row("with other iterations",
            recordOf(QByteArray(image).replace("Iterations\":1", "Iterations\":2")), true);
        row("without a header", recordOf(twentyDigits(2) + "\n{}"));
        row("header of no size", recordOf(twentyDigits(0) + '\n' + after.encryptedIndex()));
        row("length line in blanks", recordOf(image.mid(0, 21).replace('0', ' ') + header));
        row("length line without an end", recordOf(image.left(20) + ' ' + header));
        // Put in place these would make a container that nothing opens, without a record.
        row("length line too small", recordOf(twentyDigits(header.size() - 1) + '\n' + header));
        row("length line too large", recordOf(twentyDigits(header.size() + 1) + '\n' + header));
        row("larger than a header can be", paddedRecord(HeaderBytes + 1));
        row("size: smallest number",
            recordOf(image, QByteArray::number(std::numeric_limits<qint64>::min())));
        row("size: negative", recordOf(image, "-0000000000000000100"));
        row("size: largest number",
            recordOf(image, twentyDigits(std::numeric_limits<qint64>::max())));
        row("size: reaching into the header", recordOf(image, twentyDigits(HeaderBytes)));
        row("size: the length line alone", recordOf(image, twentyDigits(21)));
        row("size: no number", recordOf(image, QByteArray(20, 'x')));
    }
    void ignoresWhatIsNoRecord() {
        QFETCH(const QByteArray, record);
        QFETCH(const bool, isWhole);
        const QByteArray bytes = Change().tornInTheMiddle() + record;
        ContainerOf fixture(bytes);
        ContainerDocument document;
        QCOMPARE(ContainerManager().readRedoRecord(fixture.container(), &document), isWhole);
        QVERIFY(!fixture.unlock());
        QVERIFY(fixture.bytes() == bytes);
    }

    void takesARecordAsLargeAsAHeader() {
        ContainerOf fixture(Change().tornInTheMiddle() + paddedRecord(HeaderBytes));
        QVERIFY(fixture.unlock());
        QVERIFY(isAfterState(fixture));
    }

    void recordOfAnotherVaultGivesNoneOfTheseBlocks_data() {
        CraftedContainer other(6);
        other.addFile(u"docs/a.bin"_s, noise(3000, 1), 1000);
        addForms(other);
    }
    void recordOfAnotherVaultGivesNoneOfTheseBlocks() {
        // It opens with this password, because it is that vault's as well.
        QFETCH(const QByteArray, record);
        ContainerOf fixture(Change().tornInTheMiddle() + record);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), "(refused)"_ba);
    }

    void readingLeavesARecordBehindAWholeHeaderAlone_data() {
        QTest::addColumn<bool>("inRegion");
        QTest::newRow("behind the payload") << false;
        QTest::newRow("in the header region") << true;
    }
    void readingLeavesARecordBehindAWholeHeaderAlone() {
        QFETCH(const bool, inRegion);
        const Change change;
        const QByteArray bytes =
            withRecord(change.before.bytes(), change.record).at(inRegion ? 1 : 0);
        ContainerOf fixture(bytes);
        const FileTimes times = timesOf(fixture.container());

        QVERIFY(!fixture->unlockVault(fixture.container(), "errada"_ba));
        QVERIFY(fixture.unlock());
        QVERIFY(!isAfterState(fixture));
        QVERIFY(fixture->exportFile(u"docs/a.bin"_s, fixture.file(u"a.bin"_s)));
        QCOMPARE(readFile(fixture.file(u"a.bin"_s)), noise(3000, 1));
        QString copy;
        QVERIFY(fixture->prepareFileForEditing(u"b.txt"_s, &copy));
        QVERIFY(fixture->lockVault());

        QVERIFY(fixture.bytes() == bytes);
        QVERIFY(timesOf(fixture.container()) == times);
    }

    void nextChangeRemovesTheRecord_data() { addOperations(); }
    void nextChangeRemovesTheRecord() {
        QFETCH(const Operation, operation);
        const Change change;
        for (const QByteArray& bytes : withRecord(change.before.bytes(), change.record)) {
            ContainerOf fixture(bytes);
            QVERIFY(fixture.unlock());
            QVERIFY(operation(fixture));
            QVERIFY(!fixture.bytes().contains(RecordMark));
            QVERIFY(isZeroBehindTheHeader(fixture));
            QVERIFY(!isAfterState(fixture));
            QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
            const qint64 end = change.before.fileSize();
            const qint64 lastBlock = endOfLastBlock(fixture->fileIndex());
            QVERIFY(fixture.containerSize() == std::max(end, lastBlock) ||
                    fixture.containerSize() == lastBlock);
        }
    }

    void nextChangeRemovesStackedRecords() {
        const Change change;
        ContainerOf fixture(change.before.bytes() + change.before.redoRecord() + change.record);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture->createDirectory(u"outra"_s));
        QCOMPARE(fixture.containerSize(), change.before.fileSize());
    }

    void changeRepairsAHeaderTornMeanwhile_data() { addOperations(); }
    // The drive is pulled out and put back while the vault is unlocked: the session goes on with
    // what it knows.
    void changeRepairsAHeaderTornMeanwhile() {
        QFETCH(const Operation, operation);
        const Change change;
        for (const QByteArray& bytes : withRecord(change.tornInTheMiddle(), change.record)) {
            OpenVault fixture(change.before);
            QVERIFY(writeFile(fixture.container(), bytes));
            QVERIFY(operation(fixture));
            QVERIFY(!fixture.bytes().contains(RecordMark));
            QVERIFY(fixture.isSaved(passwordNow()));
            QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        }
    }

    void readOnlyTornContainerIsReadable() {
        NEEDS_PRIVATE_MOUNTS();
        const Change change;
        const QByteArray bytes = change.tornInTheMiddle() + change.record;
        ContainerOf fixture(bytes);
        const ReadOnlyMount readOnly(fixture.driveFolder());
        QVERIFY(readOnly.isMounted());

        QVERIFY(fixture.unlock());
        QVERIFY(isAfterState(fixture));
        QVERIFY(fixture->exportFile(u"docs/a.bin"_s, fixture.file(u"a.bin"_s)));
        QCOMPARE(readFile(fixture.file(u"a.bin"_s)), noise(3000, 1));
        QVERIFY(!fixture->createDirectory(u"outra"_s));
        QVERIFY(!fixture->deleteFile(u"b.txt"_s));
        QVERIFY(fixture->lockVault());
        QVERIFY(!fixture->changePassword(fixture.container(), TestPassword, NewPassword));
        QVERIFY(fixture.bytes() == bytes);
    }

    void repairsFromARecordInTheHeaderRegion() {
        const Change change;
        for (const bool payload : {true, false}) {
            QByteArray torn = withRecordInRegion(change.tornInTheMiddle(), change.record);
            torn.resize(payload ? torn.size() : PayloadOffset);
            ContainerOf fixture(torn);
            QVERIFY(fixture.unlock());
            QVERIFY(isAfterState(fixture));
            QVERIFY(isZeroBehindTheHeader(fixture));
            QVERIFY(!payload || isFinished(fixture.container(), change));
        }
    }

    void recordInTheHeaderRegionMustBeWhole() {
        const Change change;
        const QByteArray torn = withRecordInRegion(change.tornInTheMiddle(), change.record);
        const qint64 begin = PayloadOffset - change.record.size();
        for (const qint64 at : {begin, begin + 300, PayloadOffset - 64, PayloadOffset - 1}) {
            QByteArray altered = torn;
            altered[at] = static_cast<char>(altered.at(at) ^ 1);
            ContainerOf fixture(altered);
            QVERIFY(!fixture.unlock());
            QVERIFY(fixture.bytes() == altered);
        }
    }

    void recordThatTheHeaderWouldOverwriteIsLeft() {
        // No writer makes one: the record needs more of the region than its header leaves.
        const CraftedContainer large = withALargeHeader();
        const QByteArray torn = withRecordInRegion(Change().tornInTheMiddle(), large.redoRecord());
        ContainerOf fixture(torn);
        QVERIFY(fixture.unlock());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        QVERIFY(!fixture->createDirectory(u"outra"_s));
        QVERIFY(fixture.bytes().startsWith(torn));
    }

    void newerRecordIsTheOneBehindThePayload() {
        const Change change;
        ContainerOf fixture(
            withRecordInRegion(change.tornInTheMiddle(), change.before.redoRecord()) +
            change.record);
        QVERIFY(fixture.unlock());
        QVERIFY(isFinished(fixture.container(), change));
    }

    void fullDriveTakesEveryChangeThatFits_data() { addOperations(); }
    void fullDriveTakesEveryChangeThatFits() {
        QFETCH(const Operation, operation);
        const QByteArray name = QTest::currentDataTag();
        const Change change;
        OpenVault fixture(change.before);
        const qint64 blocks = name == "import" ? 4 + 16 : 0;
        const qint64 size = change.before.fileSize() + blocks;
        {
            const FileSizeLimit full(size);
            QVERIFY(operation(fixture));
        }
        const QByteArray found = fixture.bytes();
        QVERIFY(isZeroBehindTheHeader(found));
        QVERIFY(name == "compaction" || found.size() == size);
        QVERIFY(name == "compaction" ||
                found.mid(PayloadOffset).startsWith(change.before.payload()));
        QVERIFY(fixture.isSaved(passwordNow()));
    }
    void fullDriveUsesARegionWithTheRestOfARecord() {
        const Change change;
        QByteArray rest = change.before.redoRecord();
        rest[rest.size() / 2] = static_cast<char>(rest.at(rest.size() / 2) ^ 1);
        ContainerOf fixture(withRecordInRegion(change.before.bytes(), rest));
        QVERIFY(fixture.unlock());
        const FileSizeLimit full(change.before.fileSize());
        QVERIFY(fixture->createDirectory(u"outra"_s));
        QVERIFY(isZeroBehindTheHeader(fixture));
    }

    void fullDriveUndoesARewriteThatFails() {
        const Change change;
        OpenVault fixture(change.before);
        const VaultPicture picture(fixture);
        const FileSizeLimit full(change.before.fileSize());
        {
            const FailingHeader failing(fixture.container(), 1024, 1);
            QVERIFY(!fixture->createDirectory(u"outra"_s));
            QVERIFY(FailingHeader::struck(1));
        }
        COMPARE_UNCHANGED(picture);
        QVERIFY(fixture->createDirectory(u"outra"_s));
    }

    void recordWhoseRemovalTheDriveLostGoesBeforeTheNextOne() {
        // The cache has zeros where the drive still has a record: the zeros are written once more,
        // and reach the drive no later than the record of this change.
        NEEDS_TRACING();
        const VaultFixture fixture(Change().before);
        const QStringList calls =
            callsOfTool({fixture.container(), QString::fromUtf8(TestPassword), u"mkdir"_s, u"x"_s},
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

    void whatFitsNowhereIsRefusedUnlessItDeletes() {
        const CraftedContainer before = withALargeHeader();
        VaultFixture fixture(before);
        const QString source = fixture.write(u"vazio"_s, {});
        QVERIFY(fixture.unlock());
        const VaultPicture picture(fixture);
        const FileSizeLimit full(before.fileSize());
        QVERIFY(!fixture->createDirectory(u"outra"_s));
        QVERIFY(!fixture->renameFile(u"b.txt"_s, u"d.txt"_s));
        QVERIFY(!fixture->moveFile(u"b.txt"_s, u"pasta 1"_s));
        QVERIFY(!fixture->renameDirectory(u"pasta 1"_s, u"x"_s));
        QVERIFY(!fixture->importFile(source, u"vazio"_s));
        QVERIFY(!fixture->saveIndex(fixture->fileIndex()));
        COMPARE_UNCHANGED(picture);
        VaultManager locked;
        QVERIFY(!locked.changePassword(fixture.container(), TestPassword, NewPassword));
        COMPARE_UNCHANGED(picture);

        QVERIFY(fixture->deleteFile(u"b.txt"_s));
        QVERIFY(fixture->deleteDirectory(u"pasta 1"_s));
        QVERIFY(fixture.isSaved());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    }

    void plainRewriteGoesOnWithoutARecord() {
        // Anyone who rewrites a header without saying what for is taken at their word.
        const CraftedContainer before = withALargeHeader();
        const VaultFixture fixture(before);
        const FileSizeLimit full(before.fileSize());
        ContainerDocument document;
        QVERIFY(ContainerManager().readDocument(fixture.container(), &document));
        QVERIFY(ContainerManager().updateDocumentHeader(fixture.container(), document));
        // But not in front of a record of an earlier time.
        QVERIFY(overwriteAt(fixture.container(), PayloadOffset - Change().record.size(),
                            Change().record));
        QVERIFY(!ContainerManager().updateDocumentHeader(fixture.container(), document));
    }

    void fullDriveStillDeletes() {
        NEEDS_PRIVATE_MOUNTS();
        // No record, however small, may find room in what is left of a page.
        const CraftedContainer before = withoutRoomInItsLastPage(Change::base());
        const FullDrive drive(before.bytes());
        QVERIFY(drive.isFull());
        VaultFixture fixture;
        QVERIFY(fixture->unlockVault(drive.path(), TestPassword));

        QVERIFY(!fixture.store(u"c.txt"_s, noise(100000)));
        QVERIFY(fixture->deleteFile(u"b.txt"_s));
        QCOMPARE(QFileInfo(drive.path()).size(), before.fileSize());
        QCOMPARE(indexOnDrive(drive.path(), TestPassword), fixture->fileIndex().toJson());
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    }

    void fullDriveUsesTheRoomOfAnOldRecord() {
        NEEDS_PRIVATE_MOUNTS();
        NEEDS_TRACING();
        // Otherwise a rewrite that finds no room would run in front of a record that is older than
        // the header, and a pull in the middle would go back to that.
        const OldRecordOnFullDrive drive;
        QVERIFY(drive.isFull());
        // The first write finishes the header that is there.
        const ToolRun run = drive.deleteWith({u"write:signal=KILL:when=2"_s});
        QVERIFY(!run.ended());
        // Killed before the header: the record at the end is that of this change.
        QVERIFY(overwriteAt(drive.path(), 512, QByteArray(512, 'x')));
        VaultFixture fixture;
        QVERIFY(fixture->unlockVault(drive.path(), TestPassword));
        QCOMPARE(fixture.filePaths(), QStringList{u"docs/a.bin"_s});
        QVERIFY(!isAfterState(fixture));
    }

    void fullDriveRefusesAChangeInFrontOfARecordThatStays() {
        NEEDS_PRIVATE_MOUNTS();
        NEEDS_TRACING();
        const OldRecordOnFullDrive drive;
        QVERIFY(drive.isFull());
        const ToolRun run =
            drive.deleteWith({u"ftruncate:error=ENOSPC:when=1"_s, u"write:signal=KILL:when=2"_s});
        if (run.ended()) {
            QVERIFY(run.refused());
            return;
        }
        // Killed before the header, which a pull would now have torn.
        QVERIFY(overwriteAt(drive.path(), 512, QByteArray(512, 'x')));
        VaultFixture fixture;
        QVERIFY(fixture->unlockVault(drive.path(), TestPassword));
        QVERIFY2(!isAfterState(fixture), "a change that was given up long ago has come back");
    }

    void fullDriveClearsWhatAFailedChangeLeft() {
        NEEDS_PRIVATE_MOUNTS();
        // Without room for a record, a drive pulled out between a shorter header and the zeros
        // behind it leaves one that opens, with the end of the longer one behind it.
        const CraftedContainer before = withoutRoomInItsLastPage(withALargeHeader());
        const QString folder(5000, u'x');
        const SmallDisk disk(16 * MiB);
        QVERIFY(disk.isMounted());
        const QString path = disk.filePath(u"tessel.tvlt"_s);
        QVERIFY(writeFile(path, before.bytes()));
        VaultFixture fixture;
        QVERIFY(fixture->unlockVault(path, TestPassword));
        QVERIFY(fixture->createDirectory(folder));
        QVERIFY(disk.fillUpTo(0));
        {
            const qint64 headerEnd = before.headerOffset() + before.headerJson().size();
            const FailingHeader failing(path, headerEnd + 1, FailingHeader::Always);
            QVERIFY(!fixture->deleteDirectory(folder));
            QVERIFY(FailingHeader::struck(FailingHeader::Always));
        }
        QVERIFY(!readFile(path).contains(RecordMark));
        QVERIFY(!isZeroBehindTheHeader(readFile(path)));
        QVERIFY(fixture->deleteDirectory(folder));
        QVERIFY(isZeroBehindTheHeader(readFile(path)));
    }

    void failedRewritePutsTheOldHeaderBack_data() {
        QTest::addColumn<qint64>("stopAt");
        QTest::newRow("nothing written") << qint64(0);
        QTest::newRow("half the length line") << LengthLineAt + 10;
        QTest::newRow("one sector") << qint64(512);
        QTest::newRow("three sectors") << qint64(1536);
    }
    void failedRewritePutsTheOldHeaderBack() {
        QFETCH(const qint64, stopAt);
        OpenVault fixture(Change().before);
        const VaultPicture picture(fixture);
        for (const bool import : {false, true}) {
            const FailingHeader failing(fixture.container(), stopAt, 1);
            QVERIFY(import ? !fixture.store(u"c.txt"_s, "de c")
                           : !fixture->createDirectory(u"outra"_s));
            QVERIFY(FailingHeader::struck(1));
            COMPARE_UNCHANGED(picture);
        }
        QVERIFY(fixture->createDirectory(u"outra"_s));
    }

    void failedRewriteLaterInASessionPutsTheOldHeaderBack_data() {
        failedRewritePutsTheOldHeaderBack_data();
        // The longer header covers zeros.
        QTest::newRow("more than the old header") << qint64(14000);
    }
    void failedRewriteLaterInASessionPutsTheOldHeaderBack() {
        QFETCH(const qint64, stopAt);
        OpenVault fixture(Change().before);
        QVERIFY(fixture->createDirectory(QString(5000, u'x')));
        // Longer and shorter than the header that the session has written.
        QList<std::function<bool()>> changes{[&] {
            return fixture->createDirectory(QString(9000, u'y'));
        }};
        if (stopAt < PageBytes) {
            changes.append([&] { return fixture->deleteDirectory(QString(5000, u'x')); });
        }
        for (const auto& change : changes) {
            QVERIFY(fixture->createDirectory(u"outra"_s));
            const VaultPicture picture(fixture);
            {
                const FailingHeader failing(fixture.container(), stopAt, 1);
                QVERIFY(!change());
                QVERIFY(FailingHeader::struck(1));
                COMPARE_UNCHANGED(picture);
            }
            QVERIFY(fixture->deleteDirectory(u"outra"_s));
        }
    }

    void rewriteThatCannotBeUndoneLeavesItsRecord_data() {
        failedRewritePutsTheOldHeaderBack_data();
    }
    void rewriteThatCannotBeUndoneLeavesItsRecord() {
        QFETCH(const qint64, stopAt);
        OpenVault fixture(Change().before);
        const QByteArray before = fixture->fileIndex().toJson();
        {
            const FailingHeader failing(fixture.container(), stopAt, FailingHeader::Always);
            QVERIFY(!fixture->createDirectory(u"outra"_s));
            QVERIFY(FailingHeader::struck(FailingHeader::Always));
            QCOMPARE(fixture->fileIndex().toJson(), before);
            QVERIFY(fixture.bytes().endsWith(RecordMark));
        }
        VaultManager other;
        QVERIFY(other.unlockVault(fixture.container(), TestPassword));
        QVERIFY(other.lockVault());
        QVERIFY(other.fileIndex().toJson() == before ||
                other.fileIndex().containsDirectory(u"outra"_s));
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
    }

    void rollBackKeepsARecordThatIsNeeded_data() {
        QTest::addColumn<bool>("isFull");
        QTest::newRow("behind the payload") << false;
        QTest::newRow("in the header region of a full drive") << true;
    }
    void rollBackKeepsARecordThatIsNeeded() {
        QFETCH(const bool, isFull);
        const QByteArray contents = noise(5000, 3);
        OpenVault fixture(Change().before);
        {
            const FileSizeLimit limit(fixture.containerSize() + contents.size() + 16 +
                                      (isFull ? 0 : MiB));
            const FailingHeader failing(fixture.container(), 1024, FailingHeader::Always);
            QVERIFY(!fixture.store(u"c.bin"_s, contents));
            QVERIFY(FailingHeader::struck(FailingHeader::Always));
        }
        QVERIFY(!fixture.filePaths().contains(u"c.bin"_s));
        QCOMPARE(fixture.bytes().endsWith(RecordMark), !isFull);
        VaultFixture other;
        QVERIFY(other->unlockVault(fixture.container(), TestPassword));
        QCOMPARE(other.stored(u"docs/a.bin"_s), noise(3000, 1));
        QCOMPARE(other.stored(u"c.bin"_s), contents);
        QVERIFY(isZeroBehindTheHeader(fixture));
    }

    void sessionGoesOnAfterARewriteThatCouldNotBeUndone() {
        OpenVault fixture(Change().before);
        {
            const FailingHeader failing(fixture.container(), 1024, FailingHeader::Always);
            QVERIFY(!fixture.store(u"c.bin"_s, noise(5000, 3)));
        }
        QVERIFY(fixture.store(u"d.bin"_s, noise(6000, 4)));
        QVERIFY(fixture.isSaved());
        QCOMPARE(fixture.stored(u"d.bin"_s), noise(6000, 4));
        QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
        QCOMPARE(fixture.containerSize(), endOfLastBlock(fixture->fileIndex()));
    }
    void oldPasswordOpensUntilTheHeaderIsTorn() {
        const Change change = Change::ofPassword();
        const QByteArray untouched = change.before.bytes() + change.record;
        ContainerOf fixture(untouched);
        QVERIFY(fixture.unlock());
        QVERIFY(fixture->lockVault());
        QVERIFY(fixture.bytes() == untouched);

        const QByteArray torn = change.tornInTheFirstSector() + change.record;
        QVERIFY(writeFile(fixture.container(), torn));
        QVERIFY(!fixture.unlock());
        QVERIFY(fixture.bytes().startsWith(torn));
    }

    void newPasswordRepairsATornPasswordChange() {
        const Change change = Change::ofPassword();
        for (const QByteArray& bytes :
             withRecord(change.before.bytes(), change.record) +
                 withRecord(change.tornInTheFirstSector(), change.record)) {
            ContainerOf fixture(bytes);
            QVERIFY(fixture->unlockVault(fixture.container(), NewPassword));
            QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
            QVERIFY(fixture.bytes() == change.after.bytes());
            QVERIFY(fixture->lockVault());
            QVERIFY(!fixture.unlock());
        }
    }

    void tornPasswordChangeThatCannotBeRepairedAtOnceIsNotForgotten() {
        // The index opens under either wrapping: only the record holds the one that a password
        // opens.
        const Change change = Change::ofPassword();
        for (const QByteArray& header : {change.before.bytes(), change.tornInTheFirstSector()}) {
            ContainerOf fixture(header + change.record);
            {
                const FailingHeader failing(fixture.container(), 0, 1);
                QVERIFY(fixture->unlockVault(fixture.container(), NewPassword));
                QVERIFY(FailingHeader::struck(1));
            }
            QVERIFY(fixture->createDirectory(u"depois"_s));
            QVERIFY(fixture->lockVault());
            QVERIFY(fixture->unlockVault(fixture.container(), NewPassword));
            QCOMPARE(fixture.stored(u"docs/a.bin"_s), noise(3000, 1));
            QVERIFY(fixture->fileIndex().containsDirectory(u"depois"_s));
        }
    }

    void passwordChangeOfATornContainerKeepsTheNewIndex() {
        const Change change;
        // The first sector is new, the index behind it is half old.
        ContainerOf fixture(change.torn(LengthLineAt, 512) + change.record);
        QVERIFY(fixture->changePassword(fixture.container(), TestPassword, NewPassword));
        QVERIFY(fixture->unlockVault(fixture.container(), NewPassword));
        QVERIFY(isAfterState(fixture));
        QCOMPARE(fixture.containerSize(), change.after.fileSize());
    }

    void undisturbedContainersEndAtTheirLastBlock() {
        OpenVault fixture(Change().before);
        const auto size = [&fixture] {
            return fixture.containerSize();
        };
        qint64 end = size();
        QCOMPARE(end, endOfLastBlock(fixture->fileIndex()));

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
        QVERIFY(fixture->createDirectory(u"x/y"_s));
        QVERIFY(fixture->renameFile(u"c.bin"_s, u"x/d.bin"_s));
        QVERIFY(fixture->moveFile(u"x/d.bin"_s, QString()));
        QVERIFY(fixture->renameDirectory(u"x"_s, u"z"_s));
        QVERIFY(fixture->deleteDirectory(u"z/y"_s));
        QVERIFY(fixture->deleteFile(u"vazio"_s));
        QVERIFY(fixture->saveIndex(fixture->fileIndex()));
        QCOMPARE(size(), end);
        QVERIFY(fixture.compact());
        QCOMPARE(size(), endOfLastBlock(fixture->fileIndex()));
        end = size();
        QVERIFY(fixture->lockVault());
        QVERIFY(fixture->changePassword(fixture.container(), TestPassword, NewPassword));
        QCOMPARE(size(), end);
        QVERIFY(!fixture.bytes().contains(RecordMark));
    }

    void newContainerEndsAtItsHeaderRegion() {
        VaultFixture fixture;
        QVERIFY(fixture->createVault(fixture.container(), NewPassword));
        QCOMPARE(fixture.containerSize(), PayloadOffset);
    }
};

namespace {

int run(int argc, char** argv) {
    deriveCheaply();
    return runWithFaults<TestRedoRecord>(argc, argv);
}

} // namespace

TESSEL_TEST_MAIN(run);

#include "test_redo_record.moc"
