// Which USB volumes Linux detection lists and which it hides, and how.
#include "FakeMachine.h"
#include "platform/linux/LinuxDeviceManager.h"

#include <QTest>

using Velmarin::Platform::UsbDevice;
using Velmarin::Platform::Linux::FakeMachine;
using Velmarin::Platform::Linux::UsbHost;

class LinuxVolumesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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
};

QTEST_GUILESS_MAIN(LinuxVolumesTest)
#include "tst_linuxvolumes.moc"
