#pragma once

#include "platform/UsbDevice.h"

#include <QList>

#include <memory>

namespace Velmarin::Platform {

// Finds the USB volumes plugged in now. Stateless: every call looks afresh, nothing is watched,
// and a drive that cannot be examined is simply left out.
class DeviceManager
{
public:
    virtual ~DeviceManager() = default;
    virtual QList<UsbDevice> listDevices() = 0;

    // The implementation for the system the program runs on, or null where there is none.
    static std::unique_ptr<DeviceManager> createForSystem();
};

} // namespace Velmarin::Platform
