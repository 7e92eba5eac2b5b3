#pragma once

#include "platform/DeviceManager.h"
#include "platform/SessionEvents.h"
#include "ui/FileDialogs.h"
#include "ui/StorageProbe.h"
#include "ui/UrlOpener.h"

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
    // Sleep and session locks; null where nothing announces them.
    std::unique_ptr<Platform::SessionEvents> sessionEvents;
    // The per-user folder for copies of files opened for editing; empty for none.
    QString workspaceRoot;
    // The per-user folder where the states seen of each container are recorded; empty for none.
    QString stateRoot;

    static MainWindowServices forSystem();
};

} // namespace Velmarin::UI
