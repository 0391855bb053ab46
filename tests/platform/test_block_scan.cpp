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
using namespace Qt::Literals::StringLiterals;

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
    void init() {
        qputenv("USER", "ana");
        qunsetenv("LOGNAME");
    }

    void everyFieldOfAnUnmountedPartitionIsFilled() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.setAttribute(u"sdz"_s, u"removable"_s, "1");
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz1 device=/dev/sdz1 name=sdz1 root= type= removable"_s});
    }

    void diskWithPartitionsIsLeftToThem() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s);
        usb.addDisk(u"sdz"_s);
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.addPartition(u"sdz"_s, u"sdz2"_s);
        QStringList ids = detectedIds();
        ids.sort();
        QCOMPARE(ids, (QStringList{u"/dev/sdy"_s, u"/dev/sdz1"_s, u"/dev/sdz2"_s}));
    }

    void onlyDirectoriesNamedAfterTheDiskArePartitions_data() {
        QTest::addColumn<QString>("child");
        QTest::addColumn<bool>("isDirectory");
        QTest::addColumn<bool>("diskListed");
        QTest::newRow("partition") << u"sdz1"_s << true << false;
        QTest::newRow("any name that begins with the disk's") << u"sdzother"_s << true << false;
        QTest::newRow("the disk's own name") << u"sdz"_s << true << true;
        QTest::newRow("name of another disk") << u"sdy1"_s << true << true;
        QTest::newRow("upper case") << u"SDZ1"_s << true << true;
        QTest::newRow("attributes") << u"queue"_s << true << true;
        QTest::newRow("file") << u"sdz1"_s << false << true;
    }
    void onlyDirectoriesNamedAfterTheDiskArePartitions() {
        QFETCH(const QString, child);
        QFETCH(const bool, isDirectory);
        QFETCH(const bool, diskListed);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        if (isDirectory) {
            usb.makeDirectory(u"/sys/class/block/sdz/%1"_s.arg(child));
        } else {
            usb.setAttribute(u"sdz"_s, child, "x");
        }
        QCOMPARE(detectedIds(), diskListed ? QStringList{u"/dev/sdz"_s} : QStringList());
    }

    void partitionWithDirectoriesNamedAfterItIsListed() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.makeDirectory(u"/sys/class/block/sdz1/sdz1p1"_s);
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz1"_s});
    }

    void mountedVolumesAreNotRepeated() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        for (const QString& partition : {u"sdz1"_s, u"sdz2"_s, u"sdz3"_s}) {
            usb.addPartition(u"sdz"_s, partition);
        }
        usb.mountVolume(u"sdz2"_s, u"/media/ana/TWO"_s);
        usb.mountSizeless(u"sdz1"_s, u"/media/ana/ONE"_s);
        QCOMPARE(detectedIds(), (QStringList{u"/dev/sdz2:/media/ana/TWO"_s,
                                             u"/dev/sdz1:/media/ana/ONE"_s, u"/dev/sdz3"_s}));
    }

    void devicesComeInTheOrderOfSysfs() {
        FakeUsb usb;
        // In neither direction of reading is this order the alphabet's.
        for (const QString& disk : {u"sdy"_s, u"sdw"_s, u"sdz"_s, u"sdx"_s}) {
            usb.addDisk(disk);
        }
        QStringList expected = unsortedNames("/sys/class/block");
        expected.replaceInStrings(u"sd"_s, u"/dev/sd"_s);
        QCOMPARE(expected.size(), 4);
        QCOMPARE(detectedIds(), expected);
    }

    void onlyDirectoriesOfSysfsAreDevices() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.makeDirectory(u"/sys/usb/block"_s);
        QVERIFY(QFile::link(u"/sys/usb/block/gone"_s, u"/sys/class/block/gone"_s));
        QFile file(u"/sys/class/block/file"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(QFile::link(u"/sys/class/block/file"_s, u"/sys/usb/block/linked"_s));
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz"_s});
    }

    void otherBusesAreIgnored() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s, FakeUsb::Bus::Sata);
        usb.addPartition(u"sdy"_s, u"sdy1"_s);
        usb.addDisk(u"srz"_s);
        usb.setAttribute(u"srz"_s, u"device/type"_s, "5");
        usb.addLabel(u"PEN"_s, u"sdy1"_s);
        usb.makeDirectory(u"/media/ana/PEN"_s);
        QCOMPARE(detectedIds(), QStringList());
    }

    void labelNamesTheVolume() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.addPartition(u"sdz"_s, u"sdz2"_s);
        usb.addLabel(u"PEN"_s, u"sdz1"_s);
        usb.makeDirectory(u"/media/ana/PEN"_s);
        QStringList volumes = detectedVolumes();
        volumes.sort();
        QCOMPARE(volumes,
                 (QStringList{
                     u"id=/dev/sdz1 device=/dev/sdz1 name=PEN root=/media/ana/PEN type= mounted"_s,
                     u"id=/dev/sdz2 device=/dev/sdz2 name=sdz2 root= type="_s}));
    }

    void labelIsShownAsUdevWritesIt() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"MY\\x20DISK"_s, u"sdz"_s);
        usb.makeDirectory(u"/media/ana/MY DISK"_s);
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz device=/dev/sdz name=MY\\x20DISK root= type="_s});
    }

    void labelLinkToAPlainFileCounts() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabelLink(u"PEN"_s, u"/dev/dir/sdz"_s);
        usb.makeDirectory(u"/dev/dir"_s);
        QFile file(u"/dev/dir/sdz"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(detect().value(0).displayName, u"PEN"_s);
    }

    void labelLinkThatLeadsToNoDeviceIsIgnored_data() {
        QTest::addColumn<QString>("target");
        QTest::newRow("outside of /dev") << u"/media/sdz"_s;
        QTest::newRow("broken") << u"/dev/gone/sdz"_s;
        QTest::newRow("directory") << u"/dev/dir/sdz"_s;
        QTest::newRow("another device") << u"/dev/sdy"_s;
    }
    void labelLinkThatLeadsToNoDeviceIsIgnored() {
        QFETCH(const QString, target);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"OTHER"_s, u"sdy"_s);
        QFile outside(u"/media/sdz"_s);
        QVERIFY(outside.open(QIODevice::WriteOnly));
        usb.makeDirectory(u"/dev/dir/sdz"_s);
        usb.addLabelLink(u"PEN"_s, target);
        QCOMPARE(detect().value(0).displayName, u"sdz"_s);
    }

    void laterLabelOfTheSameDeviceWins() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        for (const QString& label : {u"C"_s, u"A"_s, u"D"_s, u"B"_s}) {
            usb.addLabel(label, u"sdz"_s);
        }
        const QStringList labels = unsortedNames("/dev/disk/by-label");
        QCOMPARE(labels.size(), 4);
        QCOMPARE(detect().value(0).displayName, labels.last());
    }

    void mountDirectoryOfALabel_data() {
        QTest::addColumn<QByteArray>("user");
        QTest::addColumn<QByteArray>("logname");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("found");
        const QString mediaAna = u"/media/ana/PEN"_s;
        const QString mediaRui = u"/media/rui/PEN"_s;
        const QString runAna = u"/run/media/ana/PEN"_s;
        const QString runRui = u"/run/media/rui/PEN"_s;
        const QString mnt = u"/mnt/PEN"_s;
        const QByteArray none;
        QTest::newRow("no directory") << "ana"_ba
                                      << "rui"_ba << QStringList() << QString();
        QTest::newRow("1st: /media of USER")
            << "ana"_ba
            << "rui"_ba << QStringList{mnt, runRui, runAna, mediaRui, mediaAna} << mediaAna;
        QTest::newRow("2nd: /media of LOGNAME")
            << "ana"_ba
            << "rui"_ba << QStringList{mnt, runRui, runAna, mediaRui} << mediaRui;
        QTest::newRow("3rd: /run/media of USER")
            << "ana"_ba
            << "rui"_ba << QStringList{mnt, runRui, runAna} << runAna;
        QTest::newRow("4th: /run/media of LOGNAME")
            << "ana"_ba
            << "rui"_ba << QStringList{mnt, runRui} << runRui;
        QTest::newRow("last: /mnt") << "ana"_ba
                                    << "rui"_ba << QStringList{mnt} << mnt;
        QTest::newRow("equal names") << "ana"_ba
                                     << "ana"_ba << QStringList{mnt, runAna} << runAna;
        QTest::newRow("names that differ in letter case")
            << "ANA"_ba
            << "ana"_ba << QStringList{mnt, mediaAna} << mediaAna;
        QTest::newRow("USER only")
            << "ana"_ba << none << QStringList{mediaRui, mediaAna} << mediaAna;
        QTest::newRow("LOGNAME only")
            << none << "rui"_ba << QStringList{mediaRui, mediaAna} << mediaRui;
        QTest::newRow("empty USER")
            << ""_ba
            << "rui"_ba << QStringList{u"/media/PEN"_s, mediaRui} << mediaRui;
        QTest::newRow("neither: /mnt only")
            << none << none
            << QStringList{u"/media/PEN"_s, u"/run/media/PEN"_s, runAna, mediaAna, mnt} << mnt;
        QTest::newRow("neither, and not in /mnt")
            << none << none << QStringList{u"/media/PEN"_s, u"/run/media/PEN"_s, runAna, mediaAna}
            << QString();
        QTest::newRow("name beyond ASCII")
            << "jos\xc3\xa9"_ba << none << QStringList{u"/media/josé/PEN"_s}
            << u"/media/josé/PEN"_s;
    }
    void mountDirectoryOfALabel() {
        QFETCH(const QByteArray, user);
        QFETCH(const QByteArray, logname);
        QFETCH(const QStringList, existing);
        QFETCH(const QString, found);
        user.isNull() ? qunsetenv("USER") : qputenv("USER", user);
        logname.isNull() ? qunsetenv("LOGNAME") : qputenv("LOGNAME", logname);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"PEN"_s, u"sdz"_s);
        for (const QString& directory : existing) {
            usb.makeDirectory(directory);
        }
        const UsbDevice device = detect().value(0);
        QCOMPARE(device.rootPath, found);
        QCOMPARE(device.mounted, !found.isEmpty());
        QCOMPARE(device.id, u"/dev/sdz"_s);
    }

    void fileIsNoMountDirectory() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.makeDirectory(u"/media/ana"_s);
        QFile file(u"/media/ana/sdz"_s);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(detect().value(0).rootPath, QString());
        usb.makeDirectory(u"/mnt/sdz"_s);
        QCOMPARE(detect().value(0).rootPath, u"/mnt/sdz"_s);
    }

    void deviceNameStandsInForAMissingLabel() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.makeDirectory(u"/media/ana/sdz1"_s);
        QCOMPARE(
            detectedVolumes(),
            QStringList{
                u"id=/dev/sdz1 device=/dev/sdz1 name=sdz1 root=/media/ana/sdz1 type= mounted"_s});
    }

    void labelHidesTheDirectoryNamedAfterTheDevice() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"PEN"_s, u"sdz"_s);
        usb.makeDirectory(u"/media/ana/sdz"_s);
        QCOMPARE(detect().value(0).rootPath, QString());
    }

    void directoryMayBelongToTwoDevices() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s);
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"sdz"_s, u"sdy"_s);
        usb.makeDirectory(u"/mnt/sdz"_s);
        const QList<UsbDevice> devices = detect();
        QCOMPARE(devices.size(), 2);
        QCOMPARE(devices.at(0).rootPath, u"/mnt/sdz"_s);
        QCOMPARE(devices.at(1).rootPath, u"/mnt/sdz"_s);
    }

    void percentSignsInNamesAreKept() {
        qputenv("USER", "%2");
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addLabel(u"%1"_s, u"sdz"_s);
        usb.makeDirectory(u"/media/%2/%1"_s);
        QCOMPARE(detect().value(0).rootPath, u"/media/%2/%1"_s);
    }
};

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestBlockScan>);

#include "test_block_scan.moc"
