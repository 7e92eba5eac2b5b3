#include "MainWindowServices.h"

#include "SystemFileDialogs.h"
#include "SystemStorageProbe.h"
#include "SystemUrlOpener.h"

namespace Velmarin::UI {

MainWindowServices MainWindowServices::forSystem()
{
    MainWindowServices services;
    services.deviceManager = Platform::DeviceManager::createForSystem();
    services.fileDialogs = std::make_unique<SystemFileDialogs>();
    services.storage = std::make_unique<SystemStorageProbe>();
    services.urlOpener = std::make_unique<SystemUrlOpener>();
    return services;
}

} // namespace Velmarin::UI
