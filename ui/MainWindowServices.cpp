#include "MainWindowServices.h"

#include "SystemFileDialogs.h"
#include "SystemStorageProbe.h"
#include "SystemUrlOpener.h"
#include "Workspace.h"

namespace Velmarin::UI {

MainWindowServices MainWindowServices::forSystem()
{
    MainWindowServices services;
    services.deviceManager = Platform::DeviceManager::createForSystem();
    services.fileDialogs = std::make_unique<SystemFileDialogs>();
    services.storage = std::make_unique<SystemStorageProbe>();
    services.urlOpener = std::make_unique<SystemUrlOpener>();
    services.sessionEvents = Platform::SessionEvents::createForSystem();
    services.workspaceRoot = Core::Workspace::defaultRoot();
    return services;
}

} // namespace Velmarin::UI
