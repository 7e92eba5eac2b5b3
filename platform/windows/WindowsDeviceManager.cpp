#include "platform/windows/WindowsDeviceManager.h"

#include "platform/windows/WindowsDeviceRecords.h"
#include "platform/windows/WindowsVolumeProbe.h"

namespace Velmarin::Platform::Windows {

QList<UsbDevice> WindowsDeviceManager::listDevices()
{
    return WindowsDeviceRecords::fromProbes(probeVolumes());
}

} // namespace Velmarin::Platform::Windows
