#pragma once

#include "platform/DeviceManager.h"

#include <QString>

namespace Velmarin::Platform::Linux {

// USB volumes as the kernel and udev describe them: every block device whose data lives on the USB
// bus and that carries a file system (a by-uuid link, udev's record or a mount says so), mounted or
// not, including unlocked LUKS volumes. Left out: what something else is built on, what holds no
// files (swap, members of volume groups and arrays) and every volume of the disk the system runs
// from. Reads only world-readable files, so it needs no privilege and no helper program.
class LinuxDeviceManager : public DeviceManager
{
public:
    struct Roots
    {
        QString mountInfo = QStringLiteral("/proc/self/mountinfo");
        QString sysClassBlock = QStringLiteral("/sys/class/block");
        QString devDisk = QStringLiteral("/dev/disk");
        // udev's database: the label and file system of a volume whose by-label link went to a twin.
        QString udevData = QStringLiteral("/run/udev/data");
        // Where device nodes live, for devicePath.
        QString dev = QStringLiteral("/dev");
    };

    LinuxDeviceManager();
    explicit LinuxDeviceManager(Roots roots);

    QList<UsbDevice> listDevices() override;

    // "\040" and the other octal escapes the kernel writes into mountinfo paths.
    static QString unescapeMountField(const QString& field);
    // "\x20" and the other hexadecimal escapes udev writes into by-label link names.
    static QString unescapeUdevName(const QString& name);

private:
    Roots m_roots;
};

} // namespace Velmarin::Platform::Linux
