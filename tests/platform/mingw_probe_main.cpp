// Linked with the Win32 volume probe by a cross compiler, to prove that the Windows-only code
// builds and links for Windows; it lists the USB drive letters when run there.
#include "platform/windows/WindowsVolumeProbe.h"

#include <cstdio>

int main()
{
    for (const auto& probe : Velmarin::Platform::Windows::probeVolumes()) {
        std::printf("%c: type %u bus %u\n", probe.letter, probe.driveType,
                    static_cast<unsigned>(probe.busType));
    }
    return 0;
}
