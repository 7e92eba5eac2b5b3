#include "ui/MainWindowServices.h"

#include "core/vault/RollbackRecord.h"
#include "core/workspace/Workspace.h"
#include "ui/SystemFileDialogs.h"
#include "ui/SystemStorageProbe.h"
#include "ui/SystemUrlOpener.h"

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
    services.stateRoot = Core::RollbackRecord::defaultRoot();
    return services;
}

} // namespace Velmarin::UI
