#pragma once

// Qt-free on purpose: this is the only code that talks to the Win32 volume services, so it can be
// compiled and linked for Windows by a cross compiler on any build machine.

#include <cstdint>
#include <string>
#include <vector>

namespace Velmarin::Platform::Windows {

// What the system answered about one drive letter, before any rule is applied. Probing stops at
// the first answer that disqualifies the drive, so later fields keep their defaults.
struct VolumeProbe
{
    char letter = 'A';
    unsigned driveType = 0;
    bool handleOpened = false;
    bool queryOk = false;
    std::uint32_t busType = 0;
    bool volumeInfoOk = false;
    std::wstring label;
    std::uint32_t serial = 0;
    std::wstring fileSystem;
};

// Every drive letter present now, A to Z. Defined only in Windows builds.
std::vector<VolumeProbe> probeVolumes();

} // namespace Velmarin::Platform::Windows
