#pragma once

#include "platform/DeviceManager.h"

namespace Velmarin::Platform::Windows {

// USB volumes through the Win32 volume services: every drive letter on the USB bus.
class WindowsDeviceManager : public DeviceManager
{
public:
    ~WindowsDeviceManager() override = default;
    QList<UsbDevice> listDevices() override;
};

} // namespace Velmarin::Platform::Windows
