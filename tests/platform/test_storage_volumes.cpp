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
        for (const QString& name : {u"sdx"_qs, u"sdy"_qs, u"sdz"_qs}) {
            addBlockDeviceAt(u"/sys/devices/pci0/usb2/2-1/"_qs + name);
        }
        mountVolume(u"sdx"_qs, u"/media/ana/PEN"_qs);
        mountSizeless(u"sdy"_qs, u"/media/ana/SIZELESS"_qs);
    }

    void setAttributeOfAll(const QString& attribute, const QByteArray& value) {
        for (const QString& name : {u"sdx"_qs, u"sdy"_qs, u"sdz"_qs}) {
            setAttribute(name, attribute, value);
        }
    }
};

} // namespace

class TestStorageVolumes : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void newDeviceIsEmptyRemovableAndMounted();
    void isReachedThroughItsInterface();
    void nothingIsFoundWithoutDrives();
    void everyFieldOfAMountedVolumeIsFilled();
    void labelNamesTheVolume();
    void spaceInTheDirectoryIsKept();
    void diskWithoutPartitionsIsListed();
    void driveMountedTwiceIsListedTwice();
    void directoryMountedOverIsListedOnce();
    void volumesComeInTheOrderOfTheirMounts();
    void sourceThatIsNoDeviceNodeIsIgnored_data();
    void sourceThatIsNoDeviceNodeIsIgnored();
    void busDecidesWhetherItIsListed_data();
    void busDecidesWhetherItIsListed();
    void partitionInheritsTheBusOfItsDisk();
    void deviceUnknownToSysfsIsIgnored();
    void scsiTypeTellsOpticalDrives_data();
    void scsiTypeTellsOpticalDrives();
    void opticalDiskHidesItsPartition();
    void deviceWithoutADiskAnswersForItself();
    void opticalDeviceWithoutADiskIsIgnored();
    void removableFlag_data();
    void removableFlag();
    void eachCallLooksAfresh();
};

void TestStorageVolumes::newDeviceIsEmptyRemovableAndMounted() {
    QCOMPARE(described(UsbDevice()), u"id= device= name= root= type= removable mounted"_qs);
}

void TestStorageVolumes::isReachedThroughItsInterface() {
    static_assert(std::is_abstract_v<DeviceManager>);
    static_assert(std::has_virtual_destructor_v<DeviceManager>);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    const std::unique_ptr<DeviceManager> manager = std::make_unique<LinuxDeviceManager>();
    QCOMPARE(manager->detectUsbDevices().size(), 1);
}

void TestStorageVolumes::nothingIsFoundWithoutDrives() {
    const FakeUsb usb;
    QCOMPARE(detectedVolumes(), QStringList());
}

void TestStorageVolumes::everyFieldOfAMountedVolumeIsFilled() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.setAttribute(u"sdz"_qs, u"removable"_qs, "1");
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.mountVolume(u"sdz1"_qs, u"/media/ana/PEN"_qs);
    // A volume without a label is called by its directory, as the storage API has it.
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz1:/media/ana/PEN device=/dev/sdz1 name=/media/ana/PEN "
                         "root=/media/ana/PEN type=tmpfs removable mounted"_qs});
}

void TestStorageVolumes::labelNamesTheVolume() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.mountVolume(u"sdz1"_qs, u"/media/ana/PEN"_qs);
    usb.addLabel(u"MY\\x20DISK"_qs, u"sdz1"_qs);
    QCOMPARE(detect().value(0).displayName, u"MY DISK"_qs);
}

void TestStorageVolumes::spaceInTheDirectoryIsKept() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/MY DISK"_qs);
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz:/media/ana/MY DISK"_qs});
    QCOMPARE(detect().value(0).rootPath, u"/media/ana/MY DISK"_qs);
}

void TestStorageVolumes::diskWithoutPartitionsIsListed() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/PEN"_qs);
    QCOMPARE(detectedVolumes(),
             QStringList{u"id=/dev/sdz:/media/ana/PEN device=/dev/sdz name=/media/ana/PEN "
                         "root=/media/ana/PEN type=tmpfs mounted"_qs});
}

void TestStorageVolumes::driveMountedTwiceIsListedTwice() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/B"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/A"_qs);
    QCOMPARE(detectedIds(),
             (QStringList{u"/dev/sdz:/media/ana/B"_qs, u"/dev/sdz:/media/ana/A"_qs}));
}

void TestStorageVolumes::directoryMountedOverIsListedOnce() {
    FakeUsb usb;
    usb.addDisk(u"sdy"_qs);
    usb.addDisk(u"sdz"_qs);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/PEN"_qs);
    usb.mountVolume(u"sdy"_qs, u"/media/ana/PEN"_qs);
    // The second drive has no directory of its own left: only the scan of block devices lists it.
    QCOMPARE(detectedIds(), (QStringList{u"/dev/sdz:/media/ana/PEN"_qs, u"/dev/sdy"_qs}));
}

void TestStorageVolumes::volumesComeInTheOrderOfTheirMounts() {
    FakeUsb usb;
    for (const QString& disk : {u"sdx"_qs, u"sdz"_qs, u"sdy"_qs}) {
        usb.addDisk(disk);
        usb.mountVolume(disk, u"/media/ana/%1"_qs.arg(disk));
    }
    QCOMPARE(detectedIds(),
             (QStringList{u"/dev/sdx:/media/ana/sdx"_qs, u"/dev/sdz:/media/ana/sdz"_qs,
                          u"/dev/sdy:/media/ana/sdy"_qs}));
}

void TestStorageVolumes::sourceThatIsNoDeviceNodeIsIgnored_data() {
    QTest::addColumn<QString>("source");
    QTest::newRow("name only") << u"sdz"_qs;
    QTest::newRow("no leading slash") << u"dev/sdz"_qs;
    QTest::newRow("upper case") << u"/DEV/sdz"_qs;
    QTest::newRow("other directory") << u"/devices/sdz"_qs;
    QTest::newRow("below another directory") << u"/mnt/dev/sdz"_qs;
}

void TestStorageVolumes::sourceThatIsNoDeviceNodeIsIgnored() {
    QFETCH(const QString, source);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.mountOther(source, u"/media/ana/PEN"_qs);
    // The drive itself stays what it is: not mounted.
    QCOMPARE(detectedIds(), QStringList{u"/dev/sdz"_qs});
}

void TestStorageVolumes::busDecidesWhetherItIsListed_data() {
    QTest::addColumn<QString>("parent");
    QTest::addColumn<bool>("listed");
    QTest::newRow("USB 2") << u"/sys/devices/pci0/usb2/2-1/host0/block"_qs << true;
    QTest::newRow("any name that begins with usb") << u"/sys/devices/usbfoo/block"_qs << true;
    QTest::newRow("SATA") << u"/sys/devices/pci0/ata1/host0/block"_qs << false;
    QTest::newRow("upper case") << u"/sys/devices/pci0/USB2/block"_qs << false;
    QTest::newRow("usb inside a name") << u"/sys/devices/pci0/xusb/block"_qs << false;
    QTest::newRow("memory card reader") << u"/sys/devices/pci0/mmc0/block"_qs << false;
}

void TestStorageVolumes::busDecidesWhetherItIsListed() {
    QFETCH(const QString, parent);
    QFETCH(const bool, listed);
    FakeUsb usb;
    usb.addBlockDeviceAt(parent + u"/sdy"_qs);
    usb.addBlockDeviceAt(parent + u"/sdz"_qs);
    usb.setAttribute(u"sdy"_qs, u"removable"_qs, "1");
    usb.setAttribute(u"sdz"_qs, u"removable"_qs, "1");
    usb.mountVolume(u"sdy"_qs, u"/media/ana/PEN"_qs);
    usb.mountSizeless(u"sdy"_qs, u"/media/ana/SIZELESS"_qs);
    // Mounted, and not mounted.
    const QStringList both{u"/dev/sdy:/media/ana/PEN"_qs, u"/dev/sdz"_qs};
    QCOMPARE(detectedIds(), listed ? both : QStringList());
}

void TestStorageVolumes::partitionInheritsTheBusOfItsDisk() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    usb.addBlockDeviceAt(u"/sys/devices/virtual/block/sdz/part"_qs);
    usb.addBlockDeviceAt(u"/sys/devices/virtual/block/sdy/other"_qs);
    usb.mountVolume(u"part"_qs, u"/media/ana/PEN"_qs);
    usb.mountVolume(u"other"_qs, u"/media/ana/OTHER"_qs);
    QVERIFY(detectedIds().contains(u"/dev/part:/media/ana/PEN"_qs));
    QVERIFY(!detectedIds().contains(u"/dev/other:/media/ana/OTHER"_qs));
}

void TestStorageVolumes::deviceUnknownToSysfsIsIgnored() {
    FakeUsb usb;
    usb.mountVolume(u"sdz1"_qs, u"/media/usb/PEN"_qs);
    usb.mountSizeless(u"sdz2"_qs, u"/media/usb/SIZELESS"_qs);
    QCOMPARE(detectedIds(), QStringList());
}

void TestStorageVolumes::scsiTypeTellsOpticalDrives_data() {
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("listed");
    QTest::newRow("optical") << QByteArray("5") << false;
    QTest::newRow("optical, with blanks around") << QByteArray(" 5 \t") << false;
    QTest::newRow("optical, with more lines") << QByteArray("5\n0") << false;
    QTest::newRow("disk") << QByteArray("0") << true;
    QTest::newRow("two digits") << QByteArray("05") << true;
    QTest::newRow("begins with 5") << QByteArray("50") << true;
    QTest::newRow("second line only") << QByteArray("0\n5") << true;
    QTest::newRow("empty") << QByteArray() << true;
}

void TestStorageVolumes::scsiTypeTellsOpticalDrives() {
    QFETCH(const QByteArray, type);
    QFETCH(const bool, listed);
    FakeUsb usb;
    usb.addDisk(u"sry"_qs);
    usb.addDisk(u"srz"_qs);
    usb.addDisk(u"srx"_qs);
    for (const QString& drive : {u"srx"_qs, u"sry"_qs, u"srz"_qs}) {
        usb.setAttribute(drive, u"device/type"_qs, type);
    }
    usb.mountVolume(u"srx"_qs, u"/media/ana/CD"_qs);
    usb.mountSizeless(u"sry"_qs, u"/media/ana/SIZELESS"_qs);
    // In the storage API, in the mount table and in the scan of block devices.
    const QStringList all{u"/dev/srx:/media/ana/CD"_qs, u"/dev/sry:/media/ana/SIZELESS"_qs,
                          u"/dev/srz"_qs};
    QCOMPARE(detectedIds(), listed ? all : QStringList());
}

void TestStorageVolumes::opticalDiskHidesItsPartition() {
    FakeUsb usb;
    usb.addDisk(u"srz"_qs);
    usb.setAttribute(u"srz"_qs, u"device/type"_qs, "5");
    usb.addPartition(u"srz"_qs, u"srz1"_qs);
    usb.addPartition(u"srz"_qs, u"srz2"_qs);
    usb.mountVolume(u"srz1"_qs, u"/media/ana/CD"_qs);
    QCOMPARE(detectedIds(), QStringList());
}

void TestStorageVolumes::deviceWithoutADiskAnswersForItself() {
    DevicesWithoutADisk usb;
    // It is no disk, so what lies beneath it does not stand for it.
    usb.addPartition(u"sdz"_qs, u"sdz1"_qs);
    usb.setAttribute(u"sdz1"_qs, u"removable"_qs, "1");
    usb.addBlockDeviceAt(u"/sys/devices/pci0/ata1/sdw"_qs);
    QStringList ids = detectedIds();
    ids.sort();
    QCOMPARE(ids, (QStringList{u"/dev/sdx:/media/ana/PEN"_qs, u"/dev/sdy:/media/ana/SIZELESS"_qs,
                               u"/dev/sdz"_qs, u"/dev/sdz1"_qs}));
    for (const UsbDevice& device : detect()) {
        QCOMPARE(device.removable, device.id == u"/dev/sdz1");
    }
    usb.setAttributeOfAll(u"removable"_qs, "1");
    for (const UsbDevice& device : detect()) {
        QVERIFY(device.removable);
    }
}

void TestStorageVolumes::opticalDeviceWithoutADiskIsIgnored() {
    DevicesWithoutADisk usb;
    for (const QString& name : {u"sdx"_qs, u"sdy"_qs, u"sdz"_qs}) {
        usb.makeDirectory(u"/sys/class/block/%1/device"_qs.arg(name));
    }
    usb.setAttributeOfAll(u"device/type"_qs, "0");
    QCOMPARE(detect().size(), 3);
    usb.setAttributeOfAll(u"device/type"_qs, "5");
    QCOMPARE(detectedIds(), QStringList());
}

void TestStorageVolumes::removableFlag_data() {
    QTest::addColumn<QByteArray>("ofDisk");
    QTest::addColumn<QByteArray>("ofPartition");
    QTest::addColumn<bool>("removable");
    QTest::newRow("of the disk") << QByteArray("1") << QByteArray("-") << true;
    QTest::newRow("of the partition") << QByteArray("0") << QByteArray("1") << true;
    QTest::newRow("the disk outweighs the partition") << QByteArray("1") << QByteArray("0") << true;
    QTest::newRow("of both") << QByteArray("1") << QByteArray("1") << true;
    QTest::newRow("of neither") << QByteArray("0") << QByteArray("0") << false;
    QTest::newRow("no attribute") << QByteArray("-") << QByteArray("-") << false;
    QTest::newRow("with blanks around") << QByteArray(" 1 ") << QByteArray("-") << true;
    QTest::newRow("another digit") << QByteArray("2") << QByteArray("-") << false;
    QTest::newRow("two digits") << QByteArray("11") << QByteArray("01") << false;
    QTest::newRow("empty") << QByteArray() << QByteArray() << false;
}

void TestStorageVolumes::removableFlag() {
    QFETCH(const QByteArray, ofDisk);
    QFETCH(const QByteArray, ofPartition);
    QFETCH(const bool, removable);
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    // Found by the storage API, by the mount table, and by the scan of block devices.
    const QStringList partitions{u"sdz1"_qs, u"sdz2"_qs, u"sdz3"_qs};
    if (ofDisk != "-") {
        usb.setAttribute(u"sdz"_qs, u"removable"_qs, ofDisk);
    }
    for (const QString& partition : partitions) {
        usb.addPartition(u"sdz"_qs, partition);
        if (ofPartition != "-") {
            usb.setAttribute(partition, u"removable"_qs, ofPartition);
        }
    }
    usb.mountVolume(u"sdz1"_qs, u"/media/ana/PEN"_qs);
    usb.mountSizeless(u"sdz2"_qs, u"/media/ana/SIZELESS"_qs);
    const QList<UsbDevice> devices = detect();
    QCOMPARE(devices.size(), partitions.size());
    for (const UsbDevice& device : devices) {
        QCOMPARE(device.removable, removable);
    }
}

void TestStorageVolumes::eachCallLooksAfresh() {
    FakeUsb usb;
    usb.addDisk(u"sdz"_qs);
    const LinuxDeviceManager manager;
    QCOMPARE(manager.detectUsbDevices().value(0).mounted, false);
    usb.mountVolume(u"sdz"_qs, u"/media/ana/PEN"_qs);
    QCOMPARE(manager.detectUsbDevices().value(0).mounted, true);
    usb.unmount(u"/media/ana/PEN"_qs);
    QCOMPARE(manager.detectUsbDevices().value(0).mounted, false);
}

TESSEL_TEST_MAIN(runOnFakeMachine<QCoreApplication, TestStorageVolumes>);

#include "test_storage_volumes.moc"
