#include "DeviceManager.h"

namespace Velmarin::Platform {

std::unique_ptr<DeviceManager> DeviceManager::createForSystem()
{
    // No detection on this system yet: the window says so in its device list.
    return nullptr;
}

} // namespace Velmarin::Platform
