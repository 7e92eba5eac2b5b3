#include "platform/windows/WindowsDeviceRecords.h"

#include <algorithm>

namespace Velmarin::Platform::Windows {

bool WindowsDeviceRecords::qualifies(const VolumeProbe& probe)
{
    return (probe.driveType == 2 || probe.driveType == 3) && probe.handleOpened && probe.queryOk &&
           probe.busType == BusTypeUsb;
}

UsbDevice WindowsDeviceRecords::record(const VolumeProbe& probe)
{
    const QString root = QStringLiteral("%1:\\").arg(QLatin1Char(probe.letter));
    UsbDevice device;
    device.mountPath = root;
    device.devicePath = root;
    device.mounted = true;
    device.removable = probe.driveType == 2;
    const QString label = QString::fromStdWString(probe.label);
    device.label = probe.volumeInfoOk && !label.isEmpty()
                       ? label
                       : QStringLiteral("USB %1:").arg(QLatin1Char(probe.letter));
    device.fileSystem = probe.volumeInfoOk ? QString::fromStdWString(probe.fileSystem) : QString();
    device.id =
        probe.volumeInfoOk ? QStringLiteral("%1-%2").arg(root, QString::number(probe.serial, 16)) : root;
    return device;
}

QList<UsbDevice> WindowsDeviceRecords::fromProbes(const std::vector<VolumeProbe>& probes)
{
    std::vector<VolumeProbe> sorted = probes;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const VolumeProbe& a, const VolumeProbe& b) { return a.letter < b.letter; });
    QList<UsbDevice> devices;
    for (const VolumeProbe& probe : sorted) {
        if (qualifies(probe)) {
            devices.append(record(probe));
        }
    }
    return devices;
}

} // namespace Velmarin::Platform::Windows
