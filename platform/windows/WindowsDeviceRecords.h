#pragma once

#include "platform/UsbDevice.h"
#include "platform/windows/WindowsVolumeProbe.h"

#include <QList>

#include <vector>

namespace Velmarin::Platform::Windows {

// The rules that turn what Windows answered into device records: only removable or fixed drives
// on the USB bus, a label or "USB X:", an id made of the root and the volume serial, A to Z.
// Plain Qt, so the rules are tested on every system.
class WindowsDeviceRecords
{
public:
    static constexpr std::uint32_t BusTypeUsb = 7;

    static QList<UsbDevice> fromProbes(const std::vector<VolumeProbe>& probes);
    static bool qualifies(const VolumeProbe& probe);
    static UsbDevice record(const VolumeProbe& probe);
};

} // namespace Velmarin::Platform::Windows
