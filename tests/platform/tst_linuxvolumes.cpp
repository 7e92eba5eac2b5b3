// Which USB volumes Linux detection lists and which it hides: encrypted sticks, cloned sticks,
// partitions without files, bind mounts, the system's own disk, and the order of the list.
#include "FakeMachine.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QTest>

using Velmarin::Platform::UsbDevice;
using Velmarin::Platform::Linux::FakeMachine;
using Velmarin::Platform::Linux::SataHost;
using Velmarin::Platform::Linux::SecondUsbHost;
using Velmarin::Platform::Linux::UsbHost;

namespace {

QStringList devicePaths(const QList<UsbDevice>& devices)
{
    QStringList paths;
    for (const UsbDevice& device : devices) {
        paths.append(device.devicePath);
    }
    return paths;
}

// sdb1 on a USB stick, encrypted with LUKS.
void addLuksStick(FakeMachine& machine)
{
    machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"), true,
                         QStringLiteral("0f1e2d3c-luks"));
    machine.udevRecord(QStringLiteral("8:17"), "E:ID_FS_UUID=0f1e2d3c-luks\nE:ID_FS_VERSION=2\n"
                                               "E:ID_FS_TYPE=crypto_LUKS\nE:ID_FS_USAGE=crypto\n");
}

} // namespace

class LinuxVolumesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void unlockedLuksStickShowsItsMountAndUsbName()
    {
        FakeMachine machine;
        QVERIFY(machine.isValid());
        addLuksStick(machine);
        machine.addMapping(QStringLiteral("dm-0"), QStringLiteral("254:0"), {QStringLiteral("sdb1")},
                           QStringLiteral("7a6b5c4d-ext4"));
        machine.udevRecord(QStringLiteral("254:0"),
                           "E:DM_NAME=luks-0f1e2d3c-luks\nE:ID_FS_UUID=7a6b5c4d-ext4\n"
                           "E:ID_FS_TYPE=ext4\nE:ID_FS_USAGE=filesystem\n");
        machine.mount(QStringLiteral("254:0"), QStringLiteral("/media/ana/7a6b5c4d-ext4"),
                      QStringLiteral("ext4"), QStringLiteral("/dev/mapper/luks-0f1e2d3c-luks"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        const UsbDevice& stick = devices.first();
        QVERIFY(stick.mounted);
        QCOMPARE(stick.mountPath, QStringLiteral("/media/ana/7a6b5c4d-ext4"));
        QCOMPARE(stick.label, QStringLiteral("USB sdb1"));
        QCOMPARE(stick.devicePath, QStringLiteral("/dev/dm-0"));
        QCOMPARE(stick.fileSystem, QStringLiteral("ext4"));
        QCOMPARE(stick.id, QStringLiteral("/media/ana/7a6b5c4d-ext4-7a6b5c4d-ext4"));
        QVERIFY(stick.removable);
    }

    void unlockedButUnmountedLuksStickIsOneEntry()
    {
        FakeMachine machine;
        addLuksStick(machine);
        machine.addMapping(QStringLiteral("dm-0"), QStringLiteral("254:0"), {QStringLiteral("sdb1")},
                           QStringLiteral("7a6b5c4d-ext4"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devicePaths(devices), QStringList{QStringLiteral("/dev/dm-0")});
        QVERIFY(!devices.first().mounted);
        QCOMPARE(devices.first().label, QStringLiteral("USB sdb1"));
    }

    void lockedLuksStickIsListedAsNotMounted()
    {
        FakeMachine machine;
        addLuksStick(machine);
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devicePaths(devices), QStringList{QStringLiteral("/dev/sdb1")});
        QVERIFY(!devices.first().mounted);
        QCOMPARE(devices.first().mountPath, QString());
        QCOMPARE(devices.first().fileSystem, QStringLiteral("crypto_LUKS"));
    }

    void logicalVolumeInsideLuksStickIsListed()
    {
        FakeMachine machine;
        addLuksStick(machine);
        machine.addMapping(QStringLiteral("dm-0"), QStringLiteral("254:0"), {QStringLiteral("sdb1")},
                           QStringLiteral("pv-uuid"));
        machine.udevRecord(QStringLiteral("254:0"), "E:ID_FS_TYPE=LVM2_member\nE:ID_FS_USAGE=raid\n");
        machine.addMapping(QStringLiteral("dm-1"), QStringLiteral("254:1"), {QStringLiteral("dm-0")},
                           QStringLiteral("lv-uuid"));
        machine.mount(QStringLiteral("254:1"), QStringLiteral("/media/ana/dados"), QStringLiteral("xfs"),
                      QStringLiteral("/dev/mapper/vg-dados"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devicePaths(devices), QStringList{QStringLiteral("/dev/dm-1")});
        QCOMPARE(devices.first().mountPath, QStringLiteral("/media/ana/dados"));
        QCOMPARE(devices.first().label, QStringLiteral("USB sdb1"));
    }

    void mappingOnAnInternalDiskIsNotListed()
    {
        FakeMachine machine;
        machine.addPartition(SataHost, QStringLiteral("sda"), QStringLiteral("sda3"), QStringLiteral("8:3"),
                             false, QStringLiteral("sata-luks"));
        machine.addMapping(QStringLiteral("dm-0"), QStringLiteral("254:0"), {QStringLiteral("sda3")},
                           QStringLiteral("home-uuid"));
        machine.mount(QStringLiteral("254:0"), QStringLiteral("/home"), QStringLiteral("ext4"),
                      QStringLiteral("/dev/mapper/home"));
        QVERIFY(machine.manager().listDevices().isEmpty());
    }

    void clonedSticksAreBothListed()
    {
        FakeMachine machine;
        // udev gives the shared UUID's link to one of them; each one's own record still has it.
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"));
        machine.addPartition(SecondUsbHost, QStringLiteral("sdd"), QStringLiteral("sdd1"),
                             QStringLiteral("8:49"), true, QString());
        machine.udevRecord(QStringLiteral("8:17"),
                           "E:ID_FS_UUID=1234-ABCD\nE:ID_FS_TYPE=vfat\nE:ID_FS_USAGE=filesystem\n");
        machine.udevRecord(QStringLiteral("8:49"),
                           "E:ID_FS_UUID=1234-ABCD\nE:ID_FS_TYPE=vfat\nE:ID_FS_USAGE=filesystem\n");
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/media/ana/1234-ABCD"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"));
        machine.mount(QStringLiteral("8:49"), QStringLiteral("/media/ana/1234-ABCD1"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdd1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devicePaths(devices),
                 (QStringList{QStringLiteral("/dev/sdb1"), QStringLiteral("/dev/sdd1")}));
        QCOMPARE(devices.at(0).mountPath, QStringLiteral("/media/ana/1234-ABCD"));
        QCOMPARE(devices.at(1).mountPath, QStringLiteral("/media/ana/1234-ABCD1"));
        QCOMPARE(devices.at(0).id, QStringLiteral("/media/ana/1234-ABCD-1234-ABCD"));
        QCOMPARE(devices.at(1).id, QStringLiteral("/media/ana/1234-ABCD1-1234-ABCD"));
    }

    void unmountedCloneIsListedFromItsUdevRecord()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"));
        machine.addPartition(SecondUsbHost, QStringLiteral("sdd"), QStringLiteral("sdd1"),
                             QStringLiteral("8:49"), true, QString());
        machine.udevRecord(QStringLiteral("8:49"), "E:ID_FS_UUID=1234-ABCD\nE:ID_FS_TYPE=vfat\n");
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devicePaths(devices),
                 (QStringList{QStringLiteral("/dev/sdb1"), QStringLiteral("/dev/sdd1")}));
        QCOMPARE(devices.at(0).id, QStringLiteral("/dev/sdb1-1234-ABCD"));
        QCOMPARE(devices.at(1).id, QStringLiteral("/dev/sdd1-1234-ABCD"));
        QCOMPARE(devices.at(1).fileSystem, QStringLiteral("vfat"));
    }

    void usbPartitionWithoutFileSystemIsNotListed()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QString());
        machine.udevRecord(QStringLiteral("8:17"), "E:ID_PART_ENTRY_UUID=5e4d3c2b-01\nE:ID_BUS=usb\n");
        QVERIFY(machine.manager().listDevices().isEmpty());
    }

    void partitionsThatCannotHoldFilesAreHidden()
    {
        FakeMachine machine;
        const QList<QPair<QString, QByteArray>> records = {
            {QStringLiteral("1"), "E:ID_FS_TYPE=swap\nE:ID_FS_USAGE=other\n"},
            {QStringLiteral("2"), "E:ID_FS_TYPE=LVM2_member\nE:ID_FS_USAGE=raid\n"},
            {QStringLiteral("3"), "E:ID_FS_TYPE=linux_raid_member\nE:ID_FS_USAGE=raid\n"},
            {QStringLiteral("5"), "E:ID_FS_TYPE=swap\n"},
            {QStringLiteral("6"), "E:ID_FS_TYPE=isw_raid_member\nE:ID_FS_USAGE=raid\n"},
            {QStringLiteral("7"), "E:ID_FS_TYPE=ext4\nE:ID_FS_USAGE=filesystem\n"},
        };
        for (const auto& [partition, record] : records) {
            const QString number = QStringLiteral("8:%1").arg(16 + partition.toInt());
            machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb") + partition, number,
                                 true, QStringLiteral("uuid-") + partition);
            machine.udevRecord(number, record);
        }
        QCOMPARE(devicePaths(machine.manager().listDevices()), QStringList{QStringLiteral("/dev/sdb7")});
    }

    void bindMountOfASubfolderIsNotTheStickRoot()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"));
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/home/ana/Fotos"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"), QStringLiteral("/photos"));
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/media/ana/PENDRIVE"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        QVERIFY(devices.first().mounted);
        QCOMPARE(devices.first().mountPath, QStringLiteral("/media/ana/PENDRIVE"));
        QCOMPARE(devices.first().id, QStringLiteral("/media/ana/PENDRIVE-1234-ABCD"));
    }

    void stickMountedOnlyBelowItsRootIsNotMounted()
    {
        // velmarin.vltx sits at the file system's root, which such a mount does not show.
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             true, QStringLiteral("1234-ABCD"));
        machine.udevRecord(QStringLiteral("8:17"), "E:ID_FS_TYPE=exfat\nE:ID_FS_USAGE=filesystem\n");
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/home/ana/Fotos"), QStringLiteral("exfat"),
                      QStringLiteral("/dev/sdb1"), QStringLiteral("/photos"));
        const QList<UsbDevice> devices = machine.manager().listDevices();
        QCOMPARE(devices.size(), 1);
        QVERIFY(!devices.first().mounted);
        QCOMPARE(devices.first().mountPath, QString());
        QCOMPARE(devices.first().devicePath, QStringLiteral("/dev/sdb1"));
        QCOMPARE(devices.first().id, QStringLiteral("/dev/sdb1-1234-ABCD"));
        QCOMPARE(devices.first().fileSystem, QStringLiteral("exfat"));
    }

    void diskTheSystemRunsFromIsHidden()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             false, QStringLiteral("EFI-UUID"));
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb2"), QStringLiteral("8:18"),
                             false, QStringLiteral("root-uuid"));
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb3"), QStringLiteral("8:19"),
                             false, QStringLiteral("data-uuid"));
        machine.addPartition(SecondUsbHost, QStringLiteral("sdc"), QStringLiteral("sdc1"),
                             QStringLiteral("8:33"), true, QStringLiteral("5678-EF01"));
        machine.mount(QStringLiteral("8:18"), QStringLiteral("/"), QStringLiteral("ext4"),
                      QStringLiteral("/dev/sdb2"));
        machine.mount(QStringLiteral("8:17"), QStringLiteral("/boot/efi"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdb1"));
        machine.mount(QStringLiteral("8:33"), QStringLiteral("/media/ana/PENDRIVE"), QStringLiteral("vfat"),
                      QStringLiteral("/dev/sdc1"));
        QCOMPARE(devicePaths(machine.manager().listDevices()), QStringList{QStringLiteral("/dev/sdc1")});
    }

    void encryptedSystemOnUsbDiskIsHidden()
    {
        FakeMachine machine;
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb1"), QStringLiteral("8:17"),
                             false, QStringLiteral("boot-uuid"));
        machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb2"), QStringLiteral("8:18"),
                             false, QStringLiteral("luks-root"));
        machine.addMapping(QStringLiteral("dm-0"), QStringLiteral("254:0"), {QStringLiteral("sdb2")},
                           QStringLiteral("root-uuid"));
        machine.mount(QStringLiteral("254:0"), QStringLiteral("/"), QStringLiteral("ext4"),
                      QStringLiteral("/dev/mapper/root"));
        QVERIFY(machine.manager().listDevices().isEmpty());
    }

    void devicesAreSortedWithNumbersAsNumbers()
    {
        FakeMachine machine;
        for (const int partition : {10, 2, 1}) {
            machine.addPartition(UsbHost, QStringLiteral("sdb"), QStringLiteral("sdb%1").arg(partition),
                                 QStringLiteral("8:%1").arg(16 + partition), true,
                                 QStringLiteral("uuid-b%1").arg(partition));
        }
        machine.addPartition(SecondUsbHost, QStringLiteral("sda"), QStringLiteral("sda1"),
                             QStringLiteral("8:1"), true, QStringLiteral("uuid-a1"));
        QCOMPARE(devicePaths(machine.manager().listDevices()),
                 (QStringList{QStringLiteral("/dev/sda1"), QStringLiteral("/dev/sdb1"),
                              QStringLiteral("/dev/sdb2"), QStringLiteral("/dev/sdb10")}));
    }
};

QTEST_GUILESS_MAIN(LinuxVolumesTest)
#include "tst_linuxvolumes.moc"
