#pragma once

#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>

namespace Velmarin::Platform::Linux {

// The block devices listed in /sys/class/block and what each is built on. A device-mapper volume
// (an unlocked LUKS stick, a logical volume) sits under /sys/devices/virtual, so only the
// partitions below it tell which bus its data lives on.
class BlockDeviceTree
{
public:
    struct Device
    {
        // As in /dev: "sdb1", "dm-0".
        QString name;
        // Canonical path below /sys/devices.
        QString sysPath;
        // "major:minor", as mountinfo and udev's database name the device.
        QString number;
        // The disks or partitions at the bottom of the stack; the device itself when built on nothing.
        QStringList leaves;
    };

    explicit BlockDeviceTree(const QString& sysClassBlock);

    const QList<Device>& devices() const { return m_devices; }
    const Device* findByNumber(const QString& number) const;
    // True when another device is built on this one (it is listed in that one's slaves): the
    // encrypted partition under an unlocked volume, a member of a volume group or an array.
    bool isHeld(const QString& name) const { return m_held.contains(name); }

    // Every leaf hangs below a USB controller: the kernel's device path names each bus on the way.
    static bool isOnUsb(const Device& device);
    // The whole disk of a leaf: the partition's parent, or the leaf itself.
    static QString diskOf(const QString& leafSysPath);
    // The disks every leaf of the device lives on.
    static QSet<QString> disksOf(const Device& device);

private:
    QList<Device> m_devices;
    QHash<QString, qsizetype> m_indexByNumber;
    QSet<QString> m_held;
};

} // namespace Velmarin::Platform::Linux
