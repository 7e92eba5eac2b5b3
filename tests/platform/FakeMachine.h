#pragma once

#include "platform/linux/LinuxDeviceManager.h"

#include <QHash>
#include <QStringList>
#include <QTemporaryDir>

namespace Velmarin::Platform::Linux {

// Where the kernel puts the disks of a few controllers, as /sys/devices paths.
inline const char* const UsbHost =
    "sys/devices/pci0000:00/0000:00:14.0/usb2/2-1/2-1:1.0/host6/target6:0:0/6:0:0:0/block";
inline const char* const SecondUsbHost =
    "sys/devices/pci0000:00/0000:00:14.0/usb3/3-2/3-2:1.0/host7/target7:0:0/7:0:0:0/block";
inline const char* const SataHost =
    "sys/devices/pci0000:00/0000:00:17.0/ata1/host0/target0:0:0/0:0:0:0/block";
inline const char* const NvmeHost = "sys/devices/pci0000:00/0000:00:1d.0/0000:3d:00.0/nvme/nvme0";

// A fake machine: block devices, their udev links and records, and the mount table.
class FakeMachine
{
public:
    bool isValid() const { return m_dir.isValid(); }

    // A partition on a disk below host; an empty uuid gives it no by-uuid link (udev points a
    // shared UUID at one device only).
    void addPartition(const char* host, const QString& disk, const QString& partition, const QString& number,
                      bool removable, const QString& uuid, const QString& labelLink = QString());
    // A device-mapper device (an unlocked LUKS volume, a logical volume) built on slaves, which are
    // earlier partitions or mappings; an empty uuid gives it no by-uuid link.
    void addMapping(const QString& name, const QString& number, const QStringList& slaves,
                    const QString& uuid);

    // One mountinfo line; root is the folder of the file system seen at the mount point.
    void mount(const QString& number, const QString& escapedMountPoint, const QString& fileSystem,
               const QString& source, const QString& root = QStringLiteral("/"));

    void udevRecord(const QString& number, const QByteArray& contents);

    LinuxDeviceManager manager() const;

private:
    QString path(const QString& relative) const { return m_dir.filePath(relative); }
    static void write(const QString& file, const QByteArray& bytes);
    void link(const QString& target, const QString& relativeLink);

    QTemporaryDir m_dir;
    QString m_mountInfo;
    int m_mountId = 20;
    // Device name -> its directory below sys/devices.
    QHash<QString, QString> m_sysDirs;
};

} // namespace Velmarin::Platform::Linux
