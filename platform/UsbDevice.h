#pragma once

#include <QString>

namespace Velmarin::Platform {

// One USB volume as the device list shows it. A plain value: lists of them are copied freely.
struct UsbDevice
{
    // Stable key of the volume: the mount path plus the volume's serial or file-system id, so two
    // sticks with the same label stay apart.
    QString id;
    // Where the device is, shown to the user while it is not mounted.
    QString devicePath;
    QString label;
    // Root of the mounted volume; empty while it is not mounted.
    QString mountPath;
    QString fileSystem;
    // False for a fixed disk attached over USB.
    bool removable = false;
    bool mounted = false;
};

} // namespace Velmarin::Platform
