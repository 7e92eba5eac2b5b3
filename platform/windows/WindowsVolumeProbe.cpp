#include "platform/windows/WindowsVolumeProbe.h"

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <cstring>
#include <windows.h>
#include <winioctl.h>

namespace Velmarin::Platform::Windows {

namespace {

constexpr DWORD StorageQueryProperty = 0x2D1400;
constexpr unsigned DriveRemovable = 2;
constexpr unsigned DriveFixed = 3;
// STORAGE_DEVICE_DESCRIPTOR's BusType sits at this byte offset; we read only the header.
constexpr std::size_t BusTypeOffset = 28;
constexpr std::size_t DescriptorHeaderSize = 40;
constexpr std::uint32_t UsbBus = 7;

// Asks the volume's storage stack which bus it hangs on. The volume is opened with no access
// rights at all: a query needs none, and a drive busy elsewhere still answers.
void queryBus(VolumeProbe& probe)
{
    const wchar_t volume[] = {L'\\', L'\\', L'.', L'\\', static_cast<wchar_t>(probe.letter), L':', L'\0'};
    HANDLE handle = CreateFileW(volume, 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return;
    }
    probe.handleOpened = true;

    unsigned char query[12] = {}; // StorageDeviceProperty, PropertyStandardQuery
    unsigned char descriptor[DescriptorHeaderSize] = {};
    const DWORD presetSize = DescriptorHeaderSize;
    std::memcpy(descriptor + sizeof(DWORD), &presetSize, sizeof(presetSize));
    DWORD returned = 0;
    probe.queryOk = DeviceIoControl(handle, StorageQueryProperty, query, sizeof(query), descriptor,
                                    sizeof(descriptor), &returned, nullptr) != FALSE;
    CloseHandle(handle);
    if (probe.queryOk) {
        std::memcpy(&probe.busType, descriptor + BusTypeOffset, sizeof(probe.busType));
    }
}

void queryVolumeInformation(VolumeProbe& probe)
{
    const wchar_t root[] = {static_cast<wchar_t>(probe.letter), L':', L'\\', L'\0'};
    wchar_t label[MAX_PATH + 1] = {};
    wchar_t fileSystem[MAX_PATH + 1] = {};
    DWORD serial = 0;
    probe.volumeInfoOk = GetVolumeInformationW(root, label, MAX_PATH, &serial, nullptr, nullptr, fileSystem,
                                               MAX_PATH) != FALSE;
    if (probe.volumeInfoOk) {
        probe.label = label;
        probe.fileSystem = fileSystem;
        probe.serial = serial;
    }
}

} // namespace

std::vector<VolumeProbe> probeVolumes()
{
    std::vector<VolumeProbe> probes;
    const DWORD drives = GetLogicalDrives();
    for (int bit = 0; bit < 26; ++bit) {
        if ((drives & (1u << bit)) == 0) {
            continue;
        }
        VolumeProbe probe;
        probe.letter = static_cast<char>('A' + bit);
        const wchar_t root[] = {static_cast<wchar_t>(probe.letter), L':', L'\\', L'\0'};
        probe.driveType = GetDriveTypeW(root);
        // USB sticks and disks show up as removable or fixed; the bus query decides between them.
        if (probe.driveType == DriveRemovable || probe.driveType == DriveFixed) {
            queryBus(probe);
            if (probe.queryOk && probe.busType == UsbBus) {
                queryVolumeInformation(probe);
            }
        }
        probes.push_back(probe);
    }
    return probes;
}

} // namespace Velmarin::Platform::Windows
