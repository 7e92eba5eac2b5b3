#pragma once

#include "DeviceManager.h"
#include "FileDialogs.h"
#include "StorageProbe.h"
#include "UrlOpener.h"

#include <QString>

#include <memory>

namespace Velmarin::UI {

// What the window asks of the system. The program uses forSystem(); tests pass their own answers.
struct MainWindowServices
{
    // Null where the system has no USB detection.
    std::unique_ptr<Platform::DeviceManager> deviceManager;
    std::unique_ptr<FileDialogs> fileDialogs;
    std::unique_ptr<StorageProbe> storage;
    std::unique_ptr<UrlOpener> urlOpener;
    // Where workspaces go; empty for the system's temporary folder.
    QString workspaceParent;

    static MainWindowServices forSystem();
};

} // namespace Velmarin::UI
