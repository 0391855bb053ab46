// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Volumes that only the kernel's mount table shows.

#include "platform/detection.h"
#include "support/TestProgram.h"

#include <QFile>

using namespace Tessel::Tests;

namespace {

// A table of one line, with a mount point that does not exist: the storage API cannot know it.
QByteArray tableOf(const QByteArray& line) {
    return line + '\n';
}

} // namespace

class TestMountTable : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void volumeWithoutSizeIsFoundInTheTable();
    void labelNamesTheVolume();
    void hiddenMountIsCalledByItsOwnDirectory();
    void rootIsWhatTheStorageApiCallsIt();
    void mountPointWithoutLastPartIsCalledByItsDevice();
    void volumeThatTheStorageApiListedIsNotRepeated();
    void deviceIsListedOnce();
    void directoryIsListedOnce();
    void volumesComeAfterThoseOfTheStorageApi();
    void realMountPointIsDecoded_data();
    void realMountPointIsDecoded();
    void tokensAreDecoded_data();
    void tokensAreDecoded();
    void everyFieldIsDecoded();
    void lineIsReadOrIgnored_data();
    void lineIsReadOrIgnored();
    void brokenLineDoesNotEndTheTable();
    void lastLineNeedsNoLineFeed();
    void otherDisksAreIgnored();
    void unreadableTableEndsTheDetection();
};

void TestMountTable::volumeWithoutSizeIsFoundInTheTable() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.setAttribute(u"sdz"_qs, u"removable"_qs, "1");
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.mountSizeless(u"sdz1"_qs, u"/media/ana/PEN"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz1:/media/ana/PEN device=/dev/sdz1 name=/media/ana/PEN "
                         "root=/media/ana/PEN type=ramfs removable mounted"_qs});
}

void TestMountTable::labelNamesTheVolume() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountSizeless(u"sdz"_qs, u"/media/ana/PEN"_qs);
    usb.addLabel(u"MY\\x20DISK"_qs, u"sdz"_qs);
    QCOMPARE(detect().value(0).displayName, u"MY DISK"_qs);
}

void TestMountTable::hiddenMountIsCalledByItsOwnDirectory() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/OUTER/PEN"_qs);
    usb.mountOther(u"cover"_qs, u"/media/ana/OUTER"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz:/media/ana/OUTER/PEN device=/dev/sdz name=PEN "
                         "root=/media/ana/OUTER/PEN type=tmpfs mounted"_qs});
}

void TestMountTable::rootIsWhatTheStorageApiCallsIt() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs);
    usb.addDisk(u"sdz"_qs);
    usb.mountSizeless(u"sdy"_qs, u"/media/ana/PEN"_qs);
    QVERIFY(QFile::link(u"/media/ana"_qs, u"/media/link"_qs));
    usb.replaceMountTable("36 35 8:1 / /media/link/PEN rw - vfat /dev/sdz rw\n"
                          "37 35 8:2 / /media/ana/PEN rw - ramfs /dev/sdy rw\n");
    // That root is taken from then on, whatever way leads to it.
    QCOMPARE(detectedVolumes(),
             (QStringList{u"id=/dev/sdz:/media/ana/PEN device=/dev/sdz name=/media/ana/PEN "
                          "root=/media/ana/PEN type=vfat mounted"_qs,
                          u"id=/dev/sdy device=/dev/sdy name=sdy root= type="_qs}));
}

void TestMountTable::mountPointWithoutLastPartIsCalledByItsDevice() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable(tableOf("36 35 8:1 / /gone/ rw - vfat /dev/sdz rw"));
    QCOMPARE(detectedVolumes(), QStringList{u"id=/dev/sdz:/gone/ device=/dev/sdz name=sdz "
                                            "root=/gone/ type=vfat mounted"_qs});
}

void TestMountTable::volumeThatTheStorageApiListedIsNotRepeated() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/PEN"_qs);
    usb.mountSizeless(u"sdz"_qs, u"/media/ana/SIZELESS"_qs);
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/PEN"_qs});
}

void TestMountTable::deviceIsListedOnce() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountSizeless(u"sdz"_qs, u"/media/ana/B"_qs);
    usb.mountSizeless(u"sdz"_qs, u"/media/ana/A"_qs);
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/B"_qs});
}

void TestMountTable::directoryIsListedOnce() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs);
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable("36 35 8:1 / /gone/PEN rw - vfat /dev/sdz rw\n"
                          "37 35 8:2 / /gone/PEN rw - vfat /dev/sdy rw\n");
    QCOMPARE(detectedIds(), (QStringList{u"/dev/sdz:/gone/PEN"_qs, u"/dev/sdy"_qs}));
}

void TestMountTable::volumesComeAfterThoseOfTheStorageApi() {
    FakeUsb usb;
    for (const QString& disk : {u"sdv"_qs, u"sdw"_qs, u"sdx"_qs, u"sdy"_qs, u"sdz"_qs}) {
        usb.addDisk(disk);
    }
    usb.mountSizeless(u"sdz"_qs, u"/media/ana/Z"_qs);
    usb.mountVolume(u"sdy"_qs, u"/media/ana/Y"_qs);
    usb.mountSizeless(u"sdw"_qs, u"/media/ana/W"_qs);
    usb.mountVolume(u"sdx"_qs, u"/media/ana/X"_qs);
    QCOMPARE(detectedIds(), (QStringList{u"/dev/sdy:/media/ana/Y"_qs, u"/dev/sdx:/media/ana/X"_qs,
                                         u"/dev/sdz:/media/ana/Z"_qs, u"/dev/sdw:/media/ana/W"_qs,
                                         u"/dev/sdv"_qs}));
}

void TestMountTable::realMountPointIsDecoded_data() {
    QTest::addColumn<QString>("directory");
    QTest::newRow("space") << u"/media/ana/MY DISK"_qs;
    QTest::newRow("tab") << u"/media/ana/MY\tDISK"_qs;
    QTest::newRow("line feed") << u"/media/ana/MY\nDISK"_qs;
    QTest::newRow("backslash") << u"/media/ana/MY\\DISK"_qs;
    QTest::newRow("backslash before digits") << u"/media/ana/MY\\040DISK"_qs;
    QTest::newRow("separator of the table") << u"/media/ana/MY - DISK"_qs;
    QTest::newRow("letters beyond ASCII") << u"/media/ana/cão"_qs;
}

void TestMountTable::realMountPointIsDecoded() {
    QFETCH(const QString, directory);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountSizeless(u"sdz"_qs, directory);
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:"_qs + directory});
    QCOMPARE(detect().value(0).rootPath, directory);
}

void TestMountTable::tokensAreDecoded_data() {
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QString>("decoded");
    QTest::newRow("space") << QByteArray("A\\040B") << u"A B"_qs;
    QTest::newRow("tab") << QByteArray("A\\011B") << u"A\tB"_qs;
    QTest::newRow("line feed") << QByteArray("A\\012B") << u"A\nB"_qs;
    QTest::newRow("backslash") << QByteArray("A\\134B") << u"A\\B"_qs;
    QTest::newRow("each more than once")
        << QByteArray("\\040\\040\\011\\011\\012\\012\\134\\134.") << u"  \t\t\n\n\\\\."_qs;
    QTest::newRow("backslash, then 040") << QByteArray("A\\134040B") << u"A\\040B"_qs;
    QTest::newRow("backslash, then 011") << QByteArray("A\\134011B") << u"A\\011B"_qs;
    QTest::newRow("backslash, then 134") << QByteArray("A\\134134B") << u"A\\134B"_qs;
    QTest::newRow("other escapes stay")
        << QByteArray("A\\043\\x20\\n\\041B") << u"A\\043\\x20\\n\\041B"_qs;
    QTest::newRow("unfinished escape stays") << QByteArray("A\\04") << u"A\\04"_qs;
}

void TestMountTable::tokensAreDecoded() {
    QFETCH(const QByteArray, written);
    QFETCH(const QString, decoded);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable(tableOf("36 35 8:1 / /gone/" + written + " rw - vfat /dev/sdz rw"));
    QCOMPARE(detect().value(0).rootPath, u"/gone/"_qs + decoded);
    QCOMPARE(detect().value(0).displayName, decoded);
}

void TestMountTable::everyFieldIsDecoded() {
    FakeUsb usb;
    usb.addDisk(u"sd z"_qs);
    usb.replaceMountTable(tableOf("36 35 8:1 / /gone rw - v\\040fat /dev/sd\\040z rw"));
    QCOMPARE(detectedVolumes(), QStringList{u"id=/dev/sd z:/gone device=/dev/sd z name=gone "
                                            "root=/gone type=v fat mounted"_qs});
}

void TestMountTable::lineIsReadOrIgnored_data() {
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("listed");
    QTest::newRow("no optional field")
        << QByteArray("36 35 8:1 / /gone rw - vfat /dev/sdz rw") << true;
    QTest::newRow("optional fields")
        << QByteArray("36 35 8:1 / /gone rw shared:1 master:2 - vfat /dev/sdz rw") << true;
    QTest::newRow("five fields before")
        << QByteArray("36 35 8:1 / /gone - vfat /dev/sdz rw") << true;
    QTest::newRow("four fields before")
        << QByteArray("36 35 8:1 /gone - vfat /dev/sdz rw") << false;
    QTest::newRow("more than three after")
        << QByteArray("36 35 8:1 / /gone rw - vfat /dev/sdz rw more") << true;
    QTest::newRow("two fields after")
        << QByteArray("36 35 8:1 / /gone rw - vfat /dev/sdz") << false;
    QTest::newRow("two fields and a blank after")
        << QByteArray("36 35 8:1 / /gone rw - vfat /dev/sdz ") << false;
    QTest::newRow("blanks in a row")
        << QByteArray("36  35 8:1   / /gone rw -  vfat   /dev/sdz rw") << true;
    QTest::newRow("blanks do not count as fields")
        << QByteArray("36 35    8:1 /gone - vfat /dev/sdz rw") << false;
    QTest::newRow("no separator") << QByteArray("36 35 8:1 / /gone rw vfat /dev/sdz rw") << false;
    QTest::newRow("separator without blanks")
        << QByteArray("36 35 8:1 / /gone rw-vfat /dev/sdz rw") << false;
    QTest::newRow("second separator belongs to the rest")
        << QByteArray("36 35 8:1 / /gone rw - vfat /dev/sdz - rw") << true;
    QTest::newRow("empty line") << QByteArray() << false;
    QTest::newRow("source is no device node")
        << QByteArray("36 35 8:1 / /gone rw - vfat sdz rw") << false;
    QTest::newRow("source in upper case")
        << QByteArray("36 35 8:1 / /gone rw - vfat /DEV/sdz rw") << false;
}

void TestMountTable::lineIsReadOrIgnored() {
    QFETCH(const QByteArray, line);
    QFETCH(const bool, listed);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable(tableOf(line));
    const QString read =
        u"id=/dev/sdz:/gone device=/dev/sdz name=gone root=/gone type=vfat mounted"_qs;
    const QString scanned = u"id=/dev/sdz device=/dev/sdz name=sdz root= type="_qs;
    QCOMPARE(detectedVolumes(), QStringList{listed ? read : scanned});
}

void TestMountTable::brokenLineDoesNotEndTheTable() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable("nonsense\n\n36 35 8:1 / /gone rw - vfat\n"
                          "37 35 8:1 / /gone rw - vfat /dev/sdz rw\n");
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/gone"_qs});
}

void TestMountTable::lastLineNeedsNoLineFeed() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.replaceMountTable("37 35 8:1 / /gone rw - vfat /dev/sdz rw");
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/gone"_qs});
}

void TestMountTable::otherDisksAreIgnored() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs, FakeUsb::Bus::Sata);
    usb.addDisk(u"srz"_qs);
    usb.setAttribute(u"srz"_qs, u"device/type"_qs, "5");
    usb.mountSizeless(u"sdy"_qs, u"/media/ana/Y"_qs);
    usb.mountSizeless(u"srz"_qs, u"/media/ana/Z"_qs);
    QCOMPARE(detectedIds(), QStringList());
}

void TestMountTable::unreadableTableEndsTheDetection() {
    // The storage API turns to this file when it cannot open the table either.
    if (!QFile::exists(u"/etc/mtab"_qs)) {
        QSKIP("without /etc/mtab the storage API shows nothing when the mount table is unreadable");
    }
    FakeUsb usb;
    for (const QString& disk : {u"sdx"_qs, u"sdy"_qs, u"sdz"_qs}) {
        usb.addDisk(disk);
    }
    usb.mountVolume(u"sdx"_qs, u"/media/ana/X"_qs);
    usb.mountSizeless(u"sdy"_qs, u"/media/ana/Y"_qs);
    QCOMPARE(detectedIds(), (QStringList{u"/dev/sdx:/media/ana/X"_qs, u"/dev/sdy:/media/ana/Y"_qs,
                                         u"/dev/sdz"_qs}));
    usb.breakMountTable();
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdx:/media/ana/X"_qs});
}

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestMountTable>);

#include "test_mount_table.moc"
