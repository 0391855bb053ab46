// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// USB block devices that nothing shows as mounted: their labels, and the directories where a
// desktop would have mounted them.

#include "platform/detection.h"
#include "support/TestProgram.h"

#include <QDir>
#include <QFile>

#include <filesystem>

using namespace Tessel::Tests;
using Tessel::Platform::UsbDevice;

namespace {

// The names as the directory itself gives them.
QStringList unsortedNames(const char* directory) {
    QStringList names;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        names.append(QString::fromStdString(entry.path().filename().string()));
    }
    return names;
}

} // namespace

class TestBlockScan : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everyFieldOfAnUnmountedPartitionIsFilled();
    void diskWithPartitionsIsLeftToThem();
    void onlyDirectoriesNamedAfterTheDiskArePartitions_data();
    void onlyDirectoriesNamedAfterTheDiskArePartitions();
    void partitionWithDirectoriesNamedAfterItIsListed();
    void mountedVolumesAreNotRepeated();
    void devicesComeInTheOrderOfSysfs();
    void onlyDirectoriesOfSysfsAreDevices();
    void otherBusesAreIgnored();
    void labelNamesTheVolume();
    void labelIsShownAsUdevWritesIt();
    void labelLinkToAPlainFileCounts();
    void labelLinkThatLeadsToNoDeviceIsIgnored_data();
    void labelLinkThatLeadsToNoDeviceIsIgnored();
    void laterLabelOfTheSameDeviceWins();
    void mountDirectoryOfALabel_data();
    void mountDirectoryOfALabel();
    void fileIsNoMountDirectory();
    void deviceNameStandsInForAMissingLabel();
    void labelHidesTheDirectoryNamedAfterTheDevice();
    void directoryMayBelongToTwoDevices();
    void percentSignsInNamesAreKept();
};

void TestBlockScan::init() {
    qputenv("USER", "ana");
    qunsetenv("LOGNAME");
}

void TestBlockScan::everyFieldOfAnUnmountedPartitionIsFilled() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.setAttribute(u"sdz"_qs, u"removable"_qs, "1");
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz1 device=/dev/sdz1 name=sdz1 root= type= removable"_qs});
}

void TestBlockScan::diskWithPartitionsIsLeftToThem() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs);
    usb.addDisk(u"sdz"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz2"_qs);
    QStringList ids = detectedIds();
    ids.sort();
    QCOMPARE(ids, (QStringList{u"/dev/sdy"_qs, u"/dev/sdz1"_qs, u"/dev/sdz2"_qs}));
}

void TestBlockScan::onlyDirectoriesNamedAfterTheDiskArePartitions_data() {
    QTest::addColumn<QString>("child");
    QTest::addColumn<bool>("isDirectory");
    QTest::addColumn<bool>("diskListed");
    QTest::newRow("partition") << u"sdz1"_qs << true << false;
    QTest::newRow("any name that begins with the disk's") << u"sdzother"_qs << true << false;
    QTest::newRow("the disk's own name") << u"sdz"_qs << true << true;
    QTest::newRow("name of another disk") << u"sdy1"_qs << true << true;
    QTest::newRow("upper case") << u"SDZ1"_qs << true << true;
    QTest::newRow("attributes") << u"queue"_qs << true << true;
    QTest::newRow("file") << u"sdz1"_qs << false << true;
}

void TestBlockScan::onlyDirectoriesNamedAfterTheDiskArePartitions() {
    QFETCH(const QString, child);
    QFETCH(const bool, isDirectory);
    QFETCH(const bool, diskListed);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    if (isDirectory) {
        usb.makeDirectory(u"/sys/class/block/sdz/%1"_qs.arg(child));
    } else {
        usb.setAttribute(u"sdz"_qs, child, "x");
    }
    QCOMPARE(detectedIds(), diskListed ? QStringList{u"/dev/sdz"_qs} : QStringList());
}

void TestBlockScan::partitionWithDirectoriesNamedAfterItIsListed() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.makeDirectory(u"/sys/class/block/sdz1/sdz1p1"_qs);
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz1"_qs});
}

void TestBlockScan::mountedVolumesAreNotRepeated() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    for (const QString& partition : {u"sdz1"_qs, u"sdz2"_qs, u"sdz3"_qs}) {
        usb.addPartition(u"sdz"_qs, partition);
    }
    usb.mountVolume(u"sdz2"_qs, u"/media/ana/TWO"_qs);
    usb.mountSizeless(u"sdz1"_qs, u"/media/ana/ONE"_qs);
    QCOMPARE(detectedIds(), (QStringList{u"/dev/sdz2:/media/ana/TWO"_qs,
                                         u"/dev/sdz1:/media/ana/ONE"_qs, u"/dev/sdz3"_qs}));
}

void TestBlockScan::devicesComeInTheOrderOfSysfs() {
    FakeUsb usb;
    // In neither direction of reading is this order the alphabet's.
    for (const QString& disk : {u"sdy"_qs, u"sdw"_qs, u"sdz"_qs, u"sdx"_qs}) {
        usb.addDisk(disk);
    }
    QStringList expected = unsortedNames("/sys/class/block");
    expected.replaceInStrings(u"sd"_qs, u"/dev/sd"_qs);
    QCOMPARE(expected.size(), 4);
    QCOMPARE(detectedIds(), expected);
}

void TestBlockScan::onlyDirectoriesOfSysfsAreDevices() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.makeDirectory(u"/sys/usb/block"_qs);
    QVERIFY(QFile::link(u"/sys/usb/block/gone"_qs, u"/sys/class/block/gone"_qs));
    QFile file(u"/sys/class/block/file"_qs);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QVERIFY(QFile::link(u"/sys/class/block/file"_qs, u"/sys/usb/block/linked"_qs));
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz"_qs});
}

void TestBlockScan::otherBusesAreIgnored() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs, FakeUsb::Bus::Sata);
    usb.addPartition(u"sdy"_qs, u"sdy1"_qs);
    usb.addDisk(u"srz"_qs);
    usb.setAttribute(u"srz"_qs, u"device/type"_qs, "5");
    usb.addLabel(u"PEN"_qs, u"sdy1"_qs);
    usb.makeDirectory(u"/media/ana/PEN"_qs);
    QCOMPARE(detectedIds(), QStringList());
}

void TestBlockScan::labelNamesTheVolume() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz2"_qs);
    usb.addLabel(u"PEN"_qs, u"sdz1"_qs);
    usb.makeDirectory(u"/media/ana/PEN"_qs);
    QStringList volumes = detectedVolumes();
    volumes.sort();
    QCOMPARE(
        volumes,
        (QStringList{u"id=/dev/sdz1 device=/dev/sdz1 name=PEN root=/media/ana/PEN type= mounted"_qs,
                     u"id=/dev/sdz2 device=/dev/sdz2 name=sdz2 root= type="_qs}));
}

void TestBlockScan::labelIsShownAsUdevWritesIt() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"MY\\x20DISK"_qs, u"sdz"_qs);
    usb.makeDirectory(u"/media/ana/MY DISK"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz device=/dev/sdz name=MY\\x20DISK root= type="_qs});
}

void TestBlockScan::labelLinkToAPlainFileCounts() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabelLink(u"PEN"_qs, u"/dev/dir/sdz"_qs);
    usb.makeDirectory(u"/dev/dir"_qs);
    QFile file(u"/dev/dir/sdz"_qs);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(detect().value(0).displayName, u"PEN"_qs);
}

void TestBlockScan::labelLinkThatLeadsToNoDeviceIsIgnored_data() {
    QTest::addColumn<QString>("target");
    QTest::newRow("outside of /dev") << u"/media/sdz"_qs;
    QTest::newRow("broken") << u"/dev/gone/sdz"_qs;
    QTest::newRow("directory") << u"/dev/dir/sdz"_qs;
    QTest::newRow("another device") << u"/dev/sdy"_qs;
}

void TestBlockScan::labelLinkThatLeadsToNoDeviceIsIgnored() {
    QFETCH(const QString, target);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"OTHER"_qs, u"sdy"_qs);
    QFile outside(u"/media/sdz"_qs);
    QVERIFY(outside.open(QIODevice::WriteOnly));
    usb.makeDirectory(u"/dev/dir/sdz"_qs);
    usb.addLabelLink(u"PEN"_qs, target);
    QCOMPARE(detect().value(0).displayName, u"sdz"_qs);
}

void TestBlockScan::laterLabelOfTheSameDeviceWins() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    for (const QString& label : {u"C"_qs, u"A"_qs, u"D"_qs, u"B"_qs}) {
        usb.addLabel(label, u"sdz"_qs);
    }
    const QStringList labels = unsortedNames("/dev/disk/by-label");
    QCOMPARE(labels.size(), 4);
    QCOMPARE(detect().value(0).displayName, labels.last());
}

void TestBlockScan::mountDirectoryOfALabel_data() {
    QTest::addColumn<QByteArray>("user");
    QTest::addColumn<QByteArray>("logname");
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QString>("found");
    const QString mediaAna = u"/media/ana/PEN"_qs;
    const QString mediaRui = u"/media/rui/PEN"_qs;
    const QString runAna = u"/run/media/ana/PEN"_qs;
    const QString runRui = u"/run/media/rui/PEN"_qs;
    const QString mnt = u"/mnt/PEN"_qs;
    const QByteArray none;
    QTest::newRow("no directory") << QByteArray("ana") << QByteArray("rui") << QStringList()
                                  << QString();
    QTest::newRow("1st: /media of USER")
        << QByteArray("ana") << QByteArray("rui")
        << QStringList{mnt, runRui, runAna, mediaRui, mediaAna} << mediaAna;
    QTest::newRow("2nd: /media of LOGNAME")
        << QByteArray("ana") << QByteArray("rui") << QStringList{mnt, runRui, runAna, mediaRui}
        << mediaRui;
    QTest::newRow("3rd: /run/media of USER")
        << QByteArray("ana") << QByteArray("rui") << QStringList{mnt, runRui, runAna} << runAna;
    QTest::newRow("4th: /run/media of LOGNAME")
        << QByteArray("ana") << QByteArray("rui") << QStringList{mnt, runRui} << runRui;
    QTest::newRow("last: /mnt") << QByteArray("ana") << QByteArray("rui") << QStringList{mnt}
                                << mnt;
    QTest::newRow("equal names") << QByteArray("ana") << QByteArray("ana")
                                 << QStringList{mnt, runAna} << runAna;
    QTest::newRow("names that differ in letter case")
        << QByteArray("ANA") << QByteArray("ana") << QStringList{mnt, mediaAna} << mediaAna;
    QTest::newRow("USER only") << QByteArray("ana") << none << QStringList{mediaRui, mediaAna}
                               << mediaAna;
    QTest::newRow("LOGNAME only") << none << QByteArray("rui") << QStringList{mediaRui, mediaAna}
                                  << mediaRui;
    QTest::newRow("empty USER") << QByteArray("") << QByteArray("rui")
                                << QStringList{u"/media/PEN"_qs, mediaRui} << mediaRui;
    QTest::newRow("neither: /mnt only")
        << none << none
        << QStringList{u"/media/PEN"_qs, u"/run/media/PEN"_qs, runAna, mediaAna, mnt} << mnt;
    QTest::newRow("neither, and not in /mnt")
        << none << none << QStringList{u"/media/PEN"_qs, u"/run/media/PEN"_qs, runAna, mediaAna}
        << QString();
    QTest::newRow("name beyond ASCII")
        << QByteArray("jos\xc3\xa9") << none << QStringList{u"/media/josé/PEN"_qs}
        << u"/media/josé/PEN"_qs;
}

void TestBlockScan::mountDirectoryOfALabel() {
    QFETCH(const QByteArray, user);
    QFETCH(const QByteArray, logname);
    QFETCH(const QStringList, existing);
    QFETCH(const QString, found);
    user.isNull() ? qunsetenv("USER") : qputenv("USER", user);
    logname.isNull() ? qunsetenv("LOGNAME") : qputenv("LOGNAME", logname);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"PEN"_qs, u"sdz"_qs);
    for (const QString& directory : existing) {
        usb.makeDirectory(directory);
    }
    const UsbDevice device = detect().value(0);
    QCOMPARE(device.rootPath, found);
    QCOMPARE(device.mounted, !found.isEmpty());
    QCOMPARE(device.id, u"/dev/sdz"_qs);
}

void TestBlockScan::fileIsNoMountDirectory() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.makeDirectory(u"/media/ana"_qs);
    QFile file(u"/media/ana/sdz"_qs);
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(detect().value(0).rootPath, QString());
    usb.makeDirectory(u"/mnt/sdz"_qs);
    QCOMPARE(detect().value(0).rootPath, u"/mnt/sdz"_qs);
}

void TestBlockScan::deviceNameStandsInForAMissingLabel() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.makeDirectory(u"/media/ana/sdz1"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{
                 u"id=/dev/sdz1 device=/dev/sdz1 name=sdz1 root=/media/ana/sdz1 type= mounted"_qs});
}

void TestBlockScan::labelHidesTheDirectoryNamedAfterTheDevice() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"PEN"_qs, u"sdz"_qs);
    usb.makeDirectory(u"/media/ana/sdz"_qs);
    QCOMPARE(detect().value(0).rootPath, QString());
}

void TestBlockScan::directoryMayBelongToTwoDevices() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs);
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"sdz"_qs, u"sdy"_qs);
    usb.makeDirectory(u"/mnt/sdz"_qs);
    const QList<UsbDevice> devices = detect();
    QCOMPARE(devices.size(), 2);
    QCOMPARE(devices.at(0).rootPath, u"/mnt/sdz"_qs);
    QCOMPARE(devices.at(1).rootPath, u"/mnt/sdz"_qs);
}

void TestBlockScan::percentSignsInNamesAreKept() {
    qputenv("USER", "%2");
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addLabel(u"%1"_qs, u"sdz"_qs);
    usb.makeDirectory(u"/media/%2/%1"_qs);
    QCOMPARE(detect().value(0).rootPath, u"/media/%2/%1"_qs);
}

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestBlockScan>);

#include "test_block_scan.moc"
