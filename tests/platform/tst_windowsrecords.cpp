// The rules that turn Windows' answers into device records, fed with made-up answers.
#include "platform/windows/WindowsDeviceRecords.h"

#include <QTest>

using Velmarin::Platform::UsbDevice;
using Velmarin::Platform::Windows::VolumeProbe;
using Velmarin::Platform::Windows::WindowsDeviceRecords;

namespace {

VolumeProbe usbVolume(char letter, unsigned driveType, const wchar_t* label, std::uint32_t serial,
                      const wchar_t* fileSystem = L"FAT32")
{
    VolumeProbe probe;
    probe.letter = letter;
    probe.driveType = driveType;
    probe.handleOpened = true;
    probe.queryOk = true;
    probe.busType = 7;
    probe.volumeInfoOk = true;
    probe.label = label;
    probe.serial = serial;
    probe.fileSystem = fileSystem;
    return probe;
}

QStringList roots(const QList<UsbDevice>& devices)
{
    QStringList result;
    for (const UsbDevice& device : devices) {
        result.append(device.mountPath);
    }
    return result;
}

} // namespace

class WindowsRecordsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void removableStick()
    {
        const QList<UsbDevice> devices =
            WindowsDeviceRecords::fromProbes({usbVolume('E', 2, L"SANDISK", 0x1A2B3C4D)});
        QCOMPARE(devices.size(), 1);
        const UsbDevice& device = devices.first();
        QCOMPARE(device.mountPath, QStringLiteral("E:\\"));
        QCOMPARE(device.devicePath, QStringLiteral("E:\\"));
        QCOMPARE(device.label, QStringLiteral("SANDISK"));
        QCOMPARE(device.fileSystem, QStringLiteral("FAT32"));
        QCOMPARE(device.id, QStringLiteral("E:\\-1a2b3c4d"));
        QVERIFY(device.removable);
        QVERIFY(device.mounted);
    }

    void serialHasNoLeadingZeros()
    {
        const QList<UsbDevice> devices =
            WindowsDeviceRecords::fromProbes({usbVolume('G', 2, L"X", 0x00000AB0)});
        QCOMPARE(devices.first().id, QStringLiteral("G:\\-ab0"));
    }

    void emptyLabelFallsBackToTheLetter()
    {
        const QList<UsbDevice> devices = WindowsDeviceRecords::fromProbes({usbVolume('F', 2, L"", 0x77)});
        QCOMPARE(devices.first().label, QStringLiteral("USB F:"));
        QCOMPARE(devices.first().id, QStringLiteral("F:\\-77"));
    }

    void unreadableVolumeInformationStillYieldsARecord()
    {
        VolumeProbe probe = usbVolume('H', 2, L"IGNORED", 0x1234, L"NTFS");
        probe.volumeInfoOk = false;
        const QList<UsbDevice> devices = WindowsDeviceRecords::fromProbes({probe});
        QCOMPARE(devices.size(), 1);
        QCOMPARE(devices.first().label, QStringLiteral("USB H:"));
        QCOMPARE(devices.first().fileSystem, QString());
        QCOMPARE(devices.first().id, QStringLiteral("H:\\"));
    }

    void fixedUsbDiskIsListedAsNotRemovable()
    {
        const QList<UsbDevice> devices =
            WindowsDeviceRecords::fromProbes({usbVolume('K', 3, L"BACKUP", 0xBEEF, L"exFAT")});
        QCOMPARE(devices.size(), 1);
        QVERIFY(!devices.first().removable);
        QCOMPARE(devices.first().fileSystem, QStringLiteral("exFAT"));
    }

    void fixedSataOrNvmeDiskIsNeverListed()
    {
        VolumeProbe sata = usbVolume('C', 3, L"Windows", 1);
        sata.busType = 11; // SATA
        VolumeProbe nvme = usbVolume('D', 3, L"Dados", 2);
        nvme.busType = 17; // NVMe
        QVERIFY(WindowsDeviceRecords::fromProbes({sata, nvme}).isEmpty());
    }

    void otherDriveTypesAndFailedQueriesAreSkipped()
    {
        VolumeProbe cdrom = usbVolume('R', 5, L"CD", 1);
        VolumeProbe network = usbVolume('Z', 4, L"REDE", 1);
        VolumeProbe noHandle = usbVolume('I', 2, L"A", 1);
        noHandle.handleOpened = false;
        VolumeProbe queryFailed = usbVolume('J', 2, L"B", 1);
        queryFailed.queryOk = false;
        QVERIFY(WindowsDeviceRecords::fromProbes({cdrom, network, noHandle, queryFailed}).isEmpty());
    }

    void orderedByLetterAndTwinsStayDistinct()
    {
        const QList<UsbDevice> devices = WindowsDeviceRecords::fromProbes(
            {usbVolume('G', 2, L"PENDRIVE", 0x2222), usbVolume('E', 2, L"PENDRIVE", 0x1111)});
        QCOMPARE(roots(devices), QStringList({QStringLiteral("E:\\"), QStringLiteral("G:\\")}));
        QCOMPARE(devices.at(0).label, devices.at(1).label);
        QVERIFY(devices.at(0).id != devices.at(1).id);
    }
};

QTEST_GUILESS_MAIN(WindowsRecordsTest)
#include "tst_windowsrecords.moc"
