// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Volumes that only the kernel's mount table shows.

#include "platform/detection.h"
#include "support/TestProgram.h"

#include <QFile>

using namespace Tessel::Tests;
using namespace Qt::Literals::StringLiterals;

namespace {

// A table of one line, with a mount point that does not exist: the storage API cannot know it.
QByteArray tableOf(const QByteArray& line) {
    return line + '\n';
}

} // namespace

class TestMountTable : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void volumeWithoutSizeIsFoundInTheTable() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.setAttribute(u"sdz"_s, u"removable"_s, "1");
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.mountSizeless(u"sdz1"_s, u"/media/ana/PEN"_s);
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz1:/media/ana/PEN device=/dev/sdz1 name=/media/ana/PEN "
                             "root=/media/ana/PEN type=ramfs removable mounted"_s});
    }

    void labelNamesTheVolume() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountSizeless(u"sdz"_s, u"/media/ana/PEN"_s);
        usb.addLabel(u"MY\\x20DISK"_s, u"sdz"_s);
        QCOMPARE(detect().value(0).displayName, u"MY DISK"_s);
    }

    void hiddenMountIsCalledByItsOwnDirectory() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/OUTER/PEN"_s);
        usb.mountOther(u"cover"_s, u"/media/ana/OUTER"_s);
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz:/media/ana/OUTER/PEN device=/dev/sdz name=PEN "
                             "root=/media/ana/OUTER/PEN type=overlay mounted"_s});
    }

    void rootIsWhatTheStorageApiCallsIt() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s);
        usb.addDisk(u"sdz"_s);
        usb.mountSizeless(u"sdy"_s, u"/media/ana/PEN"_s);
        QVERIFY(QFile::link(u"/media/ana"_s, u"/media/link"_s));
        usb.replaceMountTable("36 35 8:1 / /media/link/PEN rw - vfat /dev/sdz rw\n"
                              "37 35 8:2 / /media/ana/PEN rw - ramfs /dev/sdy rw\n");
        // That root is taken from then on, whatever way leads to it.
        QCOMPARE(detectedVolumes(),
                 (QStringList{u"id=/dev/sdz:/media/ana/PEN device=/dev/sdz name=/media/ana/PEN "
                              "root=/media/ana/PEN type=vfat mounted"_s,
                              u"id=/dev/sdy device=/dev/sdy name=sdy root= type="_s}));
    }

    void mountPointWithoutLastPartIsCalledByItsDevice() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable(tableOf("36 35 8:1 / /gone/ rw - vfat /dev/sdz rw"));
        QCOMPARE(detectedVolumes(), QStringList{u"id=/dev/sdz:/gone/ device=/dev/sdz name=sdz "
                                                "root=/gone/ type=vfat mounted"_s});
    }

    void volumeThatTheStorageApiListedIsNotRepeated() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        usb.mountSizeless(u"sdz"_s, u"/media/ana/SIZELESS"_s);
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/PEN"_s});
    }

    void deviceIsListedOnce() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountSizeless(u"sdz"_s, u"/media/ana/B"_s);
        usb.mountSizeless(u"sdz"_s, u"/media/ana/A"_s);
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/B"_s});
    }

    void directoryIsListedOnce() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s);
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable("36 35 8:1 / /gone/PEN rw - vfat /dev/sdz rw\n"
                              "37 35 8:2 / /gone/PEN rw - vfat /dev/sdy rw\n");
        QCOMPARE(detectedIds(), (QStringList{u"/dev/sdz:/gone/PEN"_s, u"/dev/sdy"_s}));
    }

    void volumesComeAfterThoseOfTheStorageApi() {
        FakeUsb usb;
        for (const QString& disk : {u"sdv"_s, u"sdw"_s, u"sdx"_s, u"sdy"_s, u"sdz"_s}) {
            usb.addDisk(disk);
        }
        usb.mountSizeless(u"sdz"_s, u"/media/ana/Z"_s);
        usb.mountVolume(u"sdy"_s, u"/media/ana/Y"_s);
        usb.mountSizeless(u"sdw"_s, u"/media/ana/W"_s);
        usb.mountVolume(u"sdx"_s, u"/media/ana/X"_s);
        QCOMPARE(detectedIds(), (QStringList{u"/dev/sdy:/media/ana/Y"_s, u"/dev/sdx:/media/ana/X"_s,
                                             u"/dev/sdz:/media/ana/Z"_s, u"/dev/sdw:/media/ana/W"_s,
                                             u"/dev/sdv"_s}));
    }

    void realMountPointIsDecoded_data() {
        QTest::addColumn<QString>("directory");
        QTest::newRow("space") << u"/media/ana/MY DISK"_s;
        QTest::newRow("tab") << u"/media/ana/MY\tDISK"_s;
        QTest::newRow("line feed") << u"/media/ana/MY\nDISK"_s;
        QTest::newRow("backslash") << u"/media/ana/MY\\DISK"_s;
        QTest::newRow("backslash before digits") << u"/media/ana/MY\\040DISK"_s;
        QTest::newRow("separator of the table") << u"/media/ana/MY - DISK"_s;
        QTest::newRow("letters beyond ASCII") << u"/media/ana/cão"_s;
    }
    void realMountPointIsDecoded() {
        QFETCH(const QString, directory);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountSizeless(u"sdz"_s, directory);
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:"_s + directory});
        QCOMPARE(detect().value(0).rootPath, directory);
    }

    void tokensAreDecoded_data() {
        QTest::addColumn<QByteArray>("written");
        QTest::addColumn<QString>("decoded");
        QTest::newRow("space") << "A\\040B"_ba << u"A B"_s;
        QTest::newRow("tab") << "A\\011B"_ba << u"A\tB"_s;
        QTest::newRow("line feed") << "A\\012B"_ba << u"A\nB"_s;
        QTest::newRow("backslash") << "A\\134B"_ba << u"A\\B"_s;
        QTest::newRow("each more than once")
            << "\\040\\040\\011\\011\\012\\012\\134\\134."_ba << u"  \t\t\n\n\\\\."_s;
        QTest::newRow("backslash, then 040") << "A\\134040B"_ba << u"A\\040B"_s;
        QTest::newRow("backslash, then 011") << "A\\134011B"_ba << u"A\\011B"_s;
        QTest::newRow("backslash, then 134") << "A\\134134B"_ba << u"A\\134B"_s;
        QTest::newRow("other escapes stay")
            << "A\\043\\x20\\n\\041B"_ba << u"A\\043\\x20\\n\\041B"_s;
        QTest::newRow("unfinished escape stays") << "A\\04"_ba << u"A\\04"_s;
    }
    void tokensAreDecoded() {
        QFETCH(const QByteArray, written);
        QFETCH(const QString, decoded);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable(tableOf("36 35 8:1 / /gone/" + written + " rw - vfat /dev/sdz rw"));
        QCOMPARE(detect().value(0).rootPath, u"/gone/"_s + decoded);
        QCOMPARE(detect().value(0).displayName, decoded);
    }

    void everyFieldIsDecoded() {
        FakeUsb usb;
        usb.addDisk(u"sd z"_s);
        usb.replaceMountTable(tableOf("36 35 8:1 / /gone rw - v\\040fat /dev/sd\\040z rw"));
        QCOMPARE(detectedVolumes(), QStringList{u"id=/dev/sd z:/gone device=/dev/sd z name=gone "
                                                "root=/gone type=v fat mounted"_s});
    }

    void lineIsReadOrIgnored_data() {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("listed");
        QTest::newRow("no optional field") << "36 35 8:1 / /gone rw - vfat /dev/sdz rw"_ba << true;
        QTest::newRow("optional fields")
            << "36 35 8:1 / /gone rw shared:1 master:2 - vfat /dev/sdz rw"_ba << true;
        QTest::newRow("five fields before") << "36 35 8:1 / /gone - vfat /dev/sdz rw"_ba << true;
        QTest::newRow("four fields before") << "36 35 8:1 /gone - vfat /dev/sdz rw"_ba << false;
        QTest::newRow("more than three after")
            << "36 35 8:1 / /gone rw - vfat /dev/sdz rw more"_ba << true;
        QTest::newRow("two fields after") << "36 35 8:1 / /gone rw - vfat /dev/sdz"_ba << false;
        QTest::newRow("two fields and a blank after")
            << "36 35 8:1 / /gone rw - vfat /dev/sdz "_ba << false;
        QTest::newRow("blanks in a row")
            << "36  35 8:1   / /gone rw -  vfat   /dev/sdz rw"_ba << true;
        QTest::newRow("blanks do not count as fields")
            << "36 35    8:1 /gone - vfat /dev/sdz rw"_ba << false;
        QTest::newRow("no separator") << "36 35 8:1 / /gone rw vfat /dev/sdz rw"_ba << false;
        QTest::newRow("separator without blanks")
            << "36 35 8:1 / /gone rw-vfat /dev/sdz rw"_ba << false;
        QTest::newRow("second separator belongs to the rest")
            << "36 35 8:1 / /gone rw - vfat /dev/sdz - rw"_ba << true;
        QTest::newRow("empty line") << QByteArray() << false;
        QTest::newRow("source is no device node")
            << "36 35 8:1 / /gone rw - vfat sdz rw"_ba << false;
        QTest::newRow("source in upper case")
            << "36 35 8:1 / /gone rw - vfat /DEV/sdz rw"_ba << false;
    }
    void lineIsReadOrIgnored() {
        QFETCH(const QByteArray, line);
        QFETCH(const bool, listed);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable(tableOf(line));
        const QString read =
            u"id=/dev/sdz:/gone device=/dev/sdz name=gone root=/gone type=vfat mounted"_s;
        const QString scanned = u"id=/dev/sdz device=/dev/sdz name=sdz root= type="_s;
        QCOMPARE(detectedVolumes(), QStringList{listed ? read : scanned});
    }

    void brokenLineDoesNotEndTheTable() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable("nonsense\n\n36 35 8:1 / /gone rw - vfat\n"
                              "37 35 8:1 / /gone rw - vfat /dev/sdz rw\n");
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/gone"_s});
    }

    void lastLineNeedsNoLineFeed() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.replaceMountTable("37 35 8:1 / /gone rw - vfat /dev/sdz rw");
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/gone"_s});
    }

    void otherDisksAreIgnored() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s, FakeUsb::Bus::Sata);
        usb.addDisk(u"srz"_s);
        usb.setAttribute(u"srz"_s, u"device/type"_s, "5");
        usb.mountSizeless(u"sdy"_s, u"/media/ana/Y"_s);
        usb.mountSizeless(u"srz"_s, u"/media/ana/Z"_s);
        QCOMPARE(detectedIds(), QStringList());
    }

    void unreadableTableEndsTheDetection() {
        FakeUsb usb;
        for (const QString& disk : {u"sdx"_s, u"sdy"_s, u"sdz"_s}) {
            usb.addDisk(disk);
        }
        usb.mountVolume(u"sdx"_s, u"/media/ana/X"_s);
        usb.mountSizeless(u"sdy"_s, u"/media/ana/Y"_s);
        QCOMPARE(detectedIds(), (QStringList{u"/dev/sdx:/media/ana/X"_s, u"/dev/sdy:/media/ana/Y"_s,
                                             u"/dev/sdz"_s}));
        usb.breakMountTable();
        // The storage API cannot open it either; it may know another one.
        const QStringList rest = detectedIds();
        QVERIFY2(rest.isEmpty() || rest == QStringList{u"/dev/sdx:/media/ana/X"_s},
                 qPrintable(rest.join(u' ')));
    }
};

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestMountTable>);

#include "test_mount_table.moc"
