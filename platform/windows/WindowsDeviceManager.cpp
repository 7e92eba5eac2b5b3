#include "WindowsDeviceManager.h"

#include "WindowsDeviceRecords.h"
#include "WindowsVolumeProbe.h"

namespace Velmarin::Platform::Windows {

QList<UsbDevice> WindowsDeviceManager::listDevices()
{
    return WindowsDeviceRecords::fromProbes(probeVolumes());
}

} // namespace Velmarin::Platform::Windows
