#include "platform/DeviceManager.h"

#if defined(Q_OS_WIN)
#include "platform/windows/WindowsDeviceManager.h"
#elif defined(Q_OS_LINUX)
#include "platform/linux/LinuxDeviceManager.h"
#endif

namespace Velmarin::Platform {

std::unique_ptr<DeviceManager> DeviceManager::createForSystem()
{
#if defined(Q_OS_WIN)
    return std::make_unique<Windows::WindowsDeviceManager>();
#elif defined(Q_OS_LINUX)
    return std::make_unique<Linux::LinuxDeviceManager>();
#else
    // No detection on this system: the window says so in its device list.
    return nullptr;
#endif
}

} // namespace Velmarin::Platform
