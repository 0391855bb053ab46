// SPDX-FileCopyrightText: 2026 The Tessel developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Volumes that the storage API knows as mounted, and what makes a device a USB volume at all.

#include "platform/detection.h"
#include "support/TestProgram.h"

#include <memory>
#include <type_traits>

using namespace Tessel::Tests;
using Tessel::Platform::DeviceManager;
using Tessel::Platform::UsbDevice;
using Tessel::Platform::Linux::LinuxDeviceManager;
using namespace Qt::Literals::StringLiterals;

// What a device answers comes from the kernel's files at every call; nothing is kept.
static_assert(sizeof(LinuxDeviceManager) == sizeof(DeviceManager));
static_assert(requires {
    UsbDevice{.id = {},
              .devicePath = {},
              .displayName = {},
              .rootPath = {},
              .fileSystemType = {},
              .removable = {},
              .mounted = {}};
});

namespace {

/// Three block devices on the USB that sysfs keeps outside of any disk. The storage API finds the
/// first, the mount table the second, and the scan of block devices the third.
class DevicesWithoutADisk : public FakeUsb {
public:
    DevicesWithoutADisk() {
        for (const QString& name : {u"sdx"_s, u"sdy"_s, u"sdz"_s}) {
            addBlockDeviceAt(u"/sys/devices/pci0/usb2/2-1/"_s + name);
        }
        mountVolume(u"sdx"_s, u"/media/ana/PEN"_s);
        mountSizeless(u"sdy"_s, u"/media/ana/SIZELESS"_s);
    }

    void setAttributeOfAll(const QString& attribute, const QByteArray& value) {
        for (const QString& name : {u"sdx"_s, u"sdy"_s, u"sdz"_s}) {
            setAttribute(name, attribute, value);
        }
    }
};

} // namespace

class TestStorageVolumes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void newDeviceIsEmptyRemovableAndMounted() {
        QCOMPARE(described(UsbDevice()), u"id= device= name= root= type= removable mounted"_s);
    }

    void isReachedThroughItsInterface() {
        static_assert(std::is_abstract_v<DeviceManager>);
        static_assert(std::has_virtual_destructor_v<DeviceManager>);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        const std::unique_ptr<DeviceManager> manager = std::make_unique<LinuxDeviceManager>();
        QCOMPARE(manager->detectUsbDevices().size(), 1);
    }

    void nothingIsFoundWithoutDrives() {
        const FakeUsb usb;
        QCOMPARE(detectedVolumes(), QStringList());
    }

    void everyFieldOfAMountedVolumeIsFilled() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.setAttribute(u"sdz"_s, u"removable"_s, "1");
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.mountVolume(u"sdz1"_s, u"/media/ana/PEN"_s);
        // A volume without a label is called by its directory, as the storage API has it.
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz1:/media/ana/PEN device=/dev/sdz1 name=/media/ana/PEN "
                             "root=/media/ana/PEN type=overlay removable mounted"_s});
    }

    void labelNamesTheVolume() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.mountVolume(u"sdz1"_s, u"/media/ana/PEN"_s);
        usb.addLabel(u"MY\\x20DISK"_s, u"sdz1"_s);
        QCOMPARE(detect().value(0).displayName, u"MY DISK"_s);
    }

    void spaceInTheDirectoryIsKept() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/MY DISK"_s);
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/MY DISK"_s});
        QCOMPARE(detect().value(0).rootPath, u"/media/ana/MY DISK"_s);
    }

    void diskWithoutPartitionsIsListed() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        QCOMPARE(detectedVolumes(),
                 QStringList{u"id=/dev/sdz:/media/ana/PEN device=/dev/sdz name=/media/ana/PEN "
                             "root=/media/ana/PEN type=overlay mounted"_s});
    }

    void driveMountedTwiceIsListedTwice() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/B"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/A"_s);
        QCOMPARE(detectedIds(),
                 (QStringList{u"/dev/sdz:/media/ana/B"_s, u"/dev/sdz:/media/ana/A"_s}));
    }

    void directoryMountedOverIsListedOnce() {
        FakeUsb usb;
        usb.addDisk(u"sdy"_s);
        usb.addDisk(u"sdz"_s);
        usb.mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        usb.mountVolume(u"sdy"_s, u"/media/ana/PEN"_s);
        // The other drive has no directory of its own left: only the scan of block devices lists
        // it.
        const QStringList ids = detectedIds();
        const QStringList covered{u"/dev/sdz:/media/ana/PEN"_s, u"/dev/sdy"_s};
        const QStringList covering{u"/dev/sdy:/media/ana/PEN"_s, u"/dev/sdz"_s};
        QVERIFY2(ids == covered || ids == covering, qPrintable(ids.join(u' ')));
    }

    void volumesComeInTheOrderOfTheirMounts() {
        FakeUsb usb;
        for (const QString& disk : {u"sdx"_s, u"sdz"_s, u"sdy"_s}) {
            usb.addDisk(disk);
            usb.mountVolume(disk, u"/media/ana/%1"_s.arg(disk));
        }
        QCOMPARE(detectedIds(),
                 (QStringList{u"/dev/sdx:/media/ana/sdx"_s, u"/dev/sdz:/media/ana/sdz"_s,
                              u"/dev/sdy:/media/ana/sdy"_s}));
    }

    void sourceThatIsNoDeviceNodeIsIgnored_data() {
        QTest::addColumn<QString>("source");
        QTest::newRow("name only") << u"sdz"_s;
        QTest::newRow("no leading slash") << u"dev/sdz"_s;
        QTest::newRow("upper case") << u"/DEV/sdz"_s;
        QTest::newRow("other directory") << u"/devices/sdz"_s;
        QTest::newRow("below another directory") << u"/mnt/dev/sdz"_s;
    }
    void sourceThatIsNoDeviceNodeIsIgnored() {
        QFETCH(const QString, source);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.mountOther(source, u"/media/ana/PEN"_s);
        // The drive itself stays what it is: not mounted.
        QCOMPARE(detectedIds(), QStringList{u"/dev/sdz"_s});
    }

    void busDecidesWhetherItIsListed_data() {
        QTest::addColumn<QString>("parent");
        QTest::addColumn<bool>("listed");
        QTest::newRow("USB 2") << u"/sys/devices/pci0/usb2/2-1/host0/block"_s << true;
        QTest::newRow("any name that begins with usb") << u"/sys/devices/usbfoo/block"_s << true;
        QTest::newRow("SATA") << u"/sys/devices/pci0/ata1/host0/block"_s << false;
        QTest::newRow("upper case") << u"/sys/devices/pci0/USB2/block"_s << false;
        QTest::newRow("usb inside a name") << u"/sys/devices/pci0/xusb/block"_s << false;
        QTest::newRow("memory card reader") << u"/sys/devices/pci0/mmc0/block"_s << false;
    }
    void busDecidesWhetherItIsListed() {
        QFETCH(const QString, parent);
        QFETCH(const bool, listed);
        FakeUsb usb;
        usb.addBlockDeviceAt(parent + u"/sdy"_s);
        usb.addBlockDeviceAt(parent + u"/sdz"_s);
        usb.setAttribute(u"sdy"_s, u"removable"_s, "1");
        usb.setAttribute(u"sdz"_s, u"removable"_s, "1");
        usb.mountVolume(u"sdy"_s, u"/media/ana/PEN"_s);
        usb.mountSizeless(u"sdy"_s, u"/media/ana/SIZELESS"_s);
        // Mounted, and not mounted.
        const QStringList both{u"/dev/sdy:/media/ana/PEN"_s, u"/dev/sdz"_s};
        QCOMPARE(detectedIds(), listed ? both : QStringList());
    }

    void partitionInheritsTheBusOfItsDisk() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        usb.addBlockDeviceAt(u"/sys/devices/virtual/block/sdz/part"_s);
        usb.addBlockDeviceAt(u"/sys/devices/virtual/block/sdy/other"_s);
        usb.mountVolume(u"part"_s, u"/media/ana/PEN"_s);
        usb.mountVolume(u"other"_s, u"/media/ana/OTHER"_s);
        QVERIFY(detectedIds().contains(u"/dev/part:/media/ana/PEN"_s));
        QVERIFY(!detectedIds().contains(u"/dev/other:/media/ana/OTHER"_s));
    }

    void deviceUnknownToSysfsIsIgnored() {
        FakeUsb usb;
        usb.mountVolume(u"sdz1"_s, u"/media/usb/PEN"_s);
        usb.mountSizeless(u"sdz2"_s, u"/media/usb/SIZELESS"_s);
        QCOMPARE(detectedIds(), QStringList());
    }

    void scsiTypeTellsOpticalDrives_data() {
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<bool>("listed");
        QTest::newRow("optical") << "5"_ba << false;
        QTest::newRow("optical, with blanks around") << " 5 \t"_ba << false;
        QTest::newRow("optical, with more lines") << "5\n0"_ba << false;
        QTest::newRow("disk") << "0"_ba << true;
        QTest::newRow("two digits") << "05"_ba << true;
        QTest::newRow("begins with 5") << "50"_ba << true;
        QTest::newRow("second line only") << "0\n5"_ba << true;
        QTest::newRow("empty") << QByteArray() << true;
    }
    void scsiTypeTellsOpticalDrives() {
        QFETCH(const QByteArray, type);
        QFETCH(const bool, listed);
        FakeUsb usb;
        usb.addDisk(u"sry"_s);
        usb.addDisk(u"srz"_s);
        usb.addDisk(u"srx"_s);
        for (const QString& drive : {u"srx"_s, u"sry"_s, u"srz"_s}) {
            usb.setAttribute(drive, u"device/type"_s, type);
        }
        usb.mountVolume(u"srx"_s, u"/media/ana/CD"_s);
        usb.mountSizeless(u"sry"_s, u"/media/ana/SIZELESS"_s);
        // In the storage API, in the mount table and in the scan of block devices.
        const QStringList all{u"/dev/srx:/media/ana/CD"_s, u"/dev/sry:/media/ana/SIZELESS"_s,
                              u"/dev/srz"_s};
        QCOMPARE(detectedIds(), listed ? all : QStringList());
    }

    void opticalDiskHidesItsPartition() {
        FakeUsb usb;
        usb.addDisk(u"srz"_s);
        usb.setAttribute(u"srz"_s, u"device/type"_s, "5");
        usb.addPartition(u"srz"_s, u"srz1"_s);
        usb.addPartition(u"srz"_s, u"srz2"_s);
        usb.mountVolume(u"srz1"_s, u"/media/ana/CD"_s);
        QCOMPARE(detectedIds(), QStringList());
    }

    void deviceWithoutADiskAnswersForItself() {
        DevicesWithoutADisk usb;
        // It is no disk, so what lies beneath it does not stand for it.
        usb.addPartition(u"sdz"_s, u"sdz1"_s);
        usb.setAttribute(u"sdz1"_s, u"removable"_s, "1");
        usb.addBlockDeviceAt(u"/sys/devices/pci0/ata1/sdw"_s);
        QStringList ids = detectedIds();
        ids.sort();
        QCOMPARE(ids, (QStringList{u"/dev/sdx:/media/ana/PEN"_s, u"/dev/sdy:/media/ana/SIZELESS"_s,
                                   u"/dev/sdz"_s, u"/dev/sdz1"_s}));
        for (const UsbDevice& device : detect()) {
            QCOMPARE(device.removable, device.id == u"/dev/sdz1");
        }
        usb.setAttributeOfAll(u"removable"_s, "1");
        for (const UsbDevice& device : detect()) {
            QVERIFY(device.removable);
        }
    }

    void opticalDeviceWithoutADiskIsIgnored() {
        DevicesWithoutADisk usb;
        for (const QString& name : {u"sdx"_s, u"sdy"_s, u"sdz"_s}) {
            usb.makeDirectory(u"/sys/class/block/%1/device"_s.arg(name));
        }
        usb.setAttributeOfAll(u"device/type"_s, "0");
        QCOMPARE(detect().size(), 3);
        usb.setAttributeOfAll(u"device/type"_s, "5");
        QCOMPARE(detectedIds(), QStringList());
    }

    void removableFlag_data() {
        QTest::addColumn<QByteArray>("ofDisk");
        QTest::addColumn<QByteArray>("ofPartition");
        QTest::addColumn<bool>("removable");
        QTest::newRow("of the disk") << "1"_ba
                                     << "-"_ba << true;
        QTest::newRow("of the partition") << "0"_ba
                                          << "1"_ba << true;
        QTest::newRow("the disk outweighs the partition") << "1"_ba
                                                          << "0"_ba << true;
        QTest::newRow("of both") << "1"_ba
                                 << "1"_ba << true;
        QTest::newRow("of neither") << "0"_ba
                                    << "0"_ba << false;
        QTest::newRow("no attribute") << "-"_ba
                                      << "-"_ba << false;
        QTest::newRow("with blanks around") << " 1 "_ba
                                            << "-"_ba << true;
        QTest::newRow("another digit") << "2"_ba
                                       << "-"_ba << false;
        QTest::newRow("two digits") << "11"_ba
                                    << "01"_ba << false;
        QTest::newRow("empty") << QByteArray() << QByteArray() << false;
    }
    void removableFlag() {
        QFETCH(const QByteArray, ofDisk);
        QFETCH(const QByteArray, ofPartition);
        QFETCH(const bool, removable);
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        // Found by the storage API, by the mount table, and by the scan of block devices.
        const QStringList partitions{u"sdz1"_s, u"sdz2"_s, u"sdz3"_s};
        if (ofDisk != "-") {
            usb.setAttribute(u"sdz"_s, u"removable"_s, ofDisk);
        }
        for (const QString& partition : partitions) {
            usb.addPartition(u"sdz"_s, partition);
            if (ofPartition != "-") {
                usb.setAttribute(partition, u"removable"_s, ofPartition);
            }
        }
        usb.mountVolume(u"sdz1"_s, u"/media/ana/PEN"_s);
        usb.mountSizeless(u"sdz2"_s, u"/media/ana/SIZELESS"_s);
        const QList<UsbDevice> devices = detect();
        QCOMPARE(devices.size(), partitions.size());
        for (const UsbDevice& device : devices) {
            QCOMPARE(device.removable, removable);
        }
    }

    void eachCallLooksAfresh() {
        FakeUsb usb;
        usb.addDisk(u"sdz"_s);
        const LinuxDeviceManager manager;
        QCOMPARE(manager.detectUsbDevices().value(0).mounted, false);
        usb.mountVolume(u"sdz"_s, u"/media/ana/PEN"_s);
        QCOMPARE(manager.detectUsbDevices().value(0).mounted, true);
        usb.unmount(u"/media/ana/PEN"_s);
        QCOMPARE(manager.detectUsbDevices().value(0).mounted, false);
    }
};

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestStorageVolumes>);

#include "test_storage_volumes.moc"
