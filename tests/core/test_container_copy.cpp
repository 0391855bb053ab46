// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "core/ContainerCopy.h"
#include "core/ContainerManager.h"
#include "support/CraftedContainer.h"
#include "support/Faults.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace Tessel::Core;
using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

constexpr qint64 PieceBytes = 8 * MiB;
const CopyProgress NoProgress = [](qint64, qint64) {
};
using Calls = QList<QPair<qint64, qint64>>;

/// A file to copy and the file that it is copied to, in a folder of their own.
struct Copy {
    explicit Copy(const QByteArray& bytes)
        : source(folder.filePath(u"source"_s)), target(folder.filePath(u"target"_s)) {
        if (!writeFile(source.fileName(), bytes) || !source.open(QIODevice::ReadOnly) ||
            !target.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
            qFatal("cannot set up the files");
        }
    }
    [[nodiscard]] QByteArray copied() const { return readFile(target.fileName()); }

    QTemporaryDir folder;
    QFile source;
    QFile target;
};

QByteArray someContainer() {
    CraftedContainer crafted;
    return crafted.addFile(u"a"_s, noise(1000)).bytes();
}

} // namespace

class TestContainerCopy : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void everyByteIsCopied_data() {
        QTest::addColumn<qint64>("size");
        for (const qint64 size : {qint64{0}, qint64{1}, qint64{6}, qint64{7}, qint64{8},
                                  PieceBytes - 1, PieceBytes, PieceBytes + 1, 2 * PieceBytes + 5}) {
            QTest::addRow("%lld", size) << size;
        }
    }
    void everyByteIsCopied() {
        QFETCH(const qint64, size);
        Copy copy(noise(size));
        QVERIFY(copyContainer(copy.source, copy.target, NoProgress));
        QVERIFY(copy.copied() == noise(size));
    }

    void progressIsToldBeforeAndAfterEveryPiece() {
        Copy copy(noise(2 * PieceBytes + 5));
        Calls calls;
        const auto note = [&](qint64 done, qint64 total) {
            calls.append({done, total});
        };
        QVERIFY(copyContainer(copy.source, copy.target, note));
        const qint64 total = 2 * PieceBytes + 5;
        QCOMPARE(calls,
                 (Calls{{0, total}, {PieceBytes, total}, {2 * PieceBytes, total}, {total, total}}));
    }

    void aCopyThatIsNotCompleteIsNoContainer() {
        Copy copy(someContainer());
        int looks = 0;
        const auto look = [&](qint64, qint64) {
            ++looks;
            ContainerDocument document;
            QVERIFY(!ContainerManager().readDocument(copy.target.fileName(), &document));
            QVERIFY(!copy.copied().startsWith("TESSEL3"));
        };
        QVERIFY(copyContainer(copy.source, copy.target, look));
        QCOMPARE(looks, 3);
        QVERIFY(copy.copied() == readFile(copy.source.fileName()));
    }

    void aContainerThatChangesItsSizeIsNotCopied_data() {
        QTest::addColumn<qint64>("when");
        QTest::addColumn<int>("change");
        for (const qint64 when : {qint64{0}, PieceBytes}) {
            QTest::addRow("shorter, at %lld", when) << when << -1;
            QTest::addRow("longer, at %lld", when) << when << 1;
        }
    }
    void aContainerThatChangesItsSizeIsNotCopied() {
        QFETCH(const qint64, when);
        QFETCH(const int, change);
        Copy copy(someContainer());
        const qint64 size = copy.source.size();
        QVERIFY(!copyContainer(copy.source, copy.target, [&](qint64 done, qint64) {
            QVERIFY(done != when || QFile::resize(copy.source.fileName(), size + change));
        }));
        QCOMPARE(copy.copied().left(7), QByteArray(7, '\0'));
    }

    void aFullDriveIsAFailure() {
        Copy copy(someContainer());
        const FileSizeLimit limit(PieceBytes + 5);
        QVERIFY(!copyContainer(copy.source, copy.target, NoProgress));
        QCOMPARE(copy.copied().left(7), QByteArray(7, '\0'));
    }

    // --- Backups ----------------------------------------------------------------------------

    void aBackupTakesItsNameWhenItIsWhole() {
        Copy copy(someContainer());
        const QString destination = copy.folder.filePath(u"backup"_s);
        QVERIFY(writeFile(destination, "an earlier backup"));
        ContainerBackup backup(destination);
        QVERIFY(backup.create(copy.source.fileName()));
        QVERIFY(backup.copyFrom(copy.source, [&](qint64, qint64) {
            QCOMPARE(readFile(destination), "an earlier backup"_ba);
        }));
        QVERIFY(readFile(destination) == someContainer());
    }

    void aBackupIsForItsUserAlone() {
        Copy copy(someContainer());
        const FileModeMask usual(0022);
        const QString destination = copy.folder.filePath(u"backup"_s);
        ContainerBackup backup(destination);
        QVERIFY(backup.create(copy.source.fileName()));
        QVERIFY(backup.copyFrom(copy.source, NoProgress));
        QCOMPARE(modeOf(destination), mode_t{0600});
    }

    void aBackupThroughALinkReplacesWhatItLeadsTo() {
        Copy copy(someContainer());
        const QString earlier = copy.folder.filePath(u"earlier"_s);
        const QString link = copy.folder.filePath(u"link"_s);
        QVERIFY(writeFile(earlier, "an earlier backup"));
        QVERIFY(QFile::link(earlier, link));
        ContainerBackup backup(link);
        QVERIFY(backup.create(copy.source.fileName()));
        QVERIFY(backup.copyFrom(copy.source, NoProgress));
        QVERIFY(QFileInfo(link).isSymLink());
        QVERIFY(readFile(earlier) == someContainer());
    }

    void aBackupThatIsGivenUpLeavesNothing() {
        Copy copy(someContainer());
        const QStringList before = QDir(copy.folder.path()).entryList(QDir::Files | QDir::Hidden);
        const QString destination = copy.folder.filePath(u"backup"_s);
        {
            ContainerBackup backup(destination);
            QVERIFY(backup.create(copy.source.fileName()));
            const FileSizeLimit limit(PieceBytes + 5);
            QVERIFY(!backup.copyFrom(copy.source, NoProgress));
        }
        QCOMPARE(QDir(copy.folder.path()).entryList(QDir::Files | QDir::Hidden), before);
    }

    void aFolderIsNoDestination() {
        Copy copy(someContainer());
        ContainerBackup backup(copy.folder.path());
        QVERIFY(!backup.create(copy.source.fileName()));
    }
};

TESSEL_TEST_MAIN(runWithFaults<TestContainerCopy>);
#include "test_container_copy.moc"
