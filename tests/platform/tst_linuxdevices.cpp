// USB detection on Linux, run against fake /proc, /sys and /dev trees built per test.
#include "FakeMachine.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QTest>

using Velmarin::Platform::UsbDevice;
using Velmarin::Platform::Linux::FakeMachine;
using Velmarin::Platform::Linux::LinuxDeviceManager;
using Velmarin::Platform::Linux::NvmeHost;
using Velmarin::Platform::Linux::SataHost;
using Velmarin::Platform::Linux::SecondUsbHost;
using Velmarin::Platform::Linux::UsbHost;

class LinuxDevicesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mountedUsbStickIsListed()
    {
        FakeMachine machine;
        QVERIFY(machine.isValid());
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"), QStringLiteral("PENDRIVE"));
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/media/ana/PENDRIVE"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        const UsbDevice& stick = devices.first();
        QCOMPARE(stick.mountPath, QStringLiteral("/media/ana/PENDRIVE"));
        QCOMPARE(stick.devicePath, QStringLiteral("/dev/sdb1"));
        QCOMPARE(stick.label, QStringLiteral("PENDRIVE"));
        QCOMPARE(stick.fileSystem, QStringLiteral("vfat"));
        QCOMPARE(stick.id, QStringLiteral("/media/ana/PENDRIVE-1234-ABCD"));
        QVERIFY(stick.removable);
        QVERIFY(stick.mounted);
    }

    void sataAndNvmeDisksAreNotListed()
    {
        FakeMachine machine;
        machine.addPartition(SataHost, QStringLiteral("sda"), QStringLiteral("sda1"), QStringLiteral("8:1"),
                             false, QStringLiteral("aaaa-1111"), QStringLiteral("Sistema"));
        machine.addPartition(NvmeHost, QStringLiteral("nvme0n1"), QStringLiteral("nvme0n1p1"),
                             QStringLiteral("259:1"), false, QStringLiteral("bbbb-2222"));
        machine.mount(QStringLiteral("8:1"), QStringLiteral("/"), QStringLiteral("ext4"),
                      QStringLiteral("/dev/sda1"));
        machine.mount(QStringLiteral("259:1"), QStringLiteral("/home"), QStringLiteral("ext4"),
                      QStringLiteral("/dev/nvme0n1p1"));
        QVERIFY(machine.manager().listDevices().isEmpty());
    }

    void unmountedUsbPartitionIsListedAsNotMounted()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdc"), QStringLiteral("sdc1"), QStringLiteral("8:33"),
                             true, QStringLiteral("5678-EF01"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        QVERIFY(!devices.first().mounted);
        QCOMPARE(devices.first().mountPath, QString());
        QCOMPARE(devices.first().devicePath, QStringLiteral("/dev/sdc1"));
        QCOMPARE(devices.first().label, QStringLiteral("USB sdc1"));
        QCOMPARE(devices.first().id, QStringLiteral("/dev/sdc1-5678-EF01"));
    }

    void labelWithSpacesAndEscapedMountPoint()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"),
                             QStringLiteral("MEU\\x20PENDRIVE\\x20\\xc3\\xa9"));
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/media/ana/MEU\\040PENDRIVE\\040\\303\\251"),
                      QStringLiteral("exfat"), QStringLiteral("/dev/sdb1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        QCOMPARE(devices.first().label, QStringLiteral("MEU PENDRIVE é"));
        QCOMPARE(devices.first().mountPath, QStringLiteral("/media/ana/MEU PENDRIVE é"));
    }

    void twoSticksWithTheSameLabelStayDistinct()
    {
        FakeMachine machine;
        // udev points the one by-label link at one stick; the other's label is in udev's database.
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1111-AAAA"), QStringLiteral("PENDRIVE"));
        machine.addPartition(SecondUsbHost, QStringLiteral("sdd"), QStringLiteral("sdd1"),
                             QStringLiteral("8:49"), true, QStringLiteral("2222-BBBB"));
        machine.udevRecord(QStringLiteral("8:49"), "S:disk/by-uuid/2222-BBBB\nE:ID_FS_LABEL_ENC=PENDRIVE\n"
                                                   "E:ID_FS_TYPE=vfat\nE:ID_BUS=usb\n");
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/media/ana/PENDRIVE"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"));
        machine.mount(QStringLiteral("8:49"), QStringLiteral("/media/ana/PENDRIVE1"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdd1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 2);
        QCOMPARE(devices.at(0).label, QStringLiteral("PENDRIVE"));
        QCOMPARE(devices.at(1).label, QStringLiteral("PENDRIVE"));
        QCOMPARE(devices.at(0).id, QStringLiteral("/media/ana/PENDRIVE-1111-AAAA"));
        QCOMPARE(devices.at(1).id, QStringLiteral("/media/ana/PENDRIVE1-2222-BBBB"));
    }

    void usbDiskWithRemovableZeroIsListedAsNotRemovable()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sde"), QStringLiteral("sde1"), QStringLiteral("8:65"),
                             false, QStringLiteral("9999-0000"), QStringLiteral("HD-EXTERNO"));
        machine.mount(QStringLiteral("8:65"), QStringLiteral("/media/ana/HD-EXTERNO"),
                      QStringLiteral("ntfs3"), QStringLiteral("/dev/sde1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        QVERIFY(!devices.first().removable);
        QVERIFY(devices.first().mounted);
    }

    void missingTreesGiveAnEmptyList()
    {
        LinuxDeviceManager::Roots roots;
        roots.mountInfo = QStringLiteral("/nonexistent/mountinfo");
        roots.sysClassBlock = QStringLiteral("/nonexistent/block");
        roots.devDisk = QStringLiteral("/nonexistent/disk");
        roots.udevData = QStringLiteral("/nonexistent/udev");
        QVERIFY(LinuxDeviceManager(roots).listDevices().isEmpty());
    }

    void escapes()
    {
        QCOMPARE(LinuxDeviceManager::unescapeMountField(QStringLiteral("/a\\040b\\011c\\134d")),
                 QStringLiteral("/a b\tc\\d"));
        QCOMPARE(LinuxDeviceManager::unescapeMountField(QStringLiteral("/trailing\\04")),
                 QStringLiteral("/trailing\\04"));
        QCOMPARE(LinuxDeviceManager::unescapeUdevName(QStringLiteral("A\\x20B\\x2fC")),
                 QStringLiteral("A B/C"));
        QCOMPARE(LinuxDeviceManager::unescapeUdevName(QStringLiteral("fim\\x2")), QStringLiteral("fim\\x2"));
    }

    void realMachineDoesNotFail()
    {
        // Whatever this machine has, listing never fails and never lists a non-USB disk's root.
        for (const UsbDevice& device : LinuxDeviceManager().listDevices()) {
            QVERIFY(device.mountPath != QStringLiteral("/"));
            QVERIFY(!device.devicePath.isEmpty());
        }
    }
};

QTEST_GUILESS_MAIN(LinuxDevicesTest)
#include "tst_linuxdevices.moc"
