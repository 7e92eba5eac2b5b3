#include "platform/linux/LinuxDeviceManager.h"

#include "platform/linux/MountTable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <optional>

namespace Velmarin::Platform::Linux {

namespace {

QByteArray readSmallFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.read(4096).trimmed() : QByteArray();
}

// Device name (sdb1) -> the target of each link in a /dev/disk/by-* folder, keyed by the link's name.
QHash<QString, QString> linksByDevice(const QString& folder, bool unescape)
{
    QHash<QString, QString> result;
    const QFileInfoList links = QDir(folder).entryInfoList(QDir::Files | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& link : links) {
        if (!link.isSymLink()) {
            continue;
        }
        const QString device = QFileInfo(link.symLinkTarget()).fileName();
        if (!result.contains(device)) {
            result.insert(device,
                          unescape ? LinuxDeviceManager::unescapeUdevName(link.fileName()) : link.fileName());
        }
    }
    return result;
}

// The "E:KEY=value" properties udev recorded for a block device ("8:17").
QHash<QString, QString> udevProperties(const QString& udevData, const QString& deviceNumber)
{
    QHash<QString, QString> properties;
    QFile file(udevData + QStringLiteral("/b") + deviceNumber);
    if (!file.open(QIODevice::ReadOnly)) {
        return properties;
    }
    for (const QByteArray& line : file.read(64 * 1024).split('\n')) {
        const qsizetype equals = line.indexOf('=');
        if (line.startsWith("E:") && equals > 2) {
            properties.insert(QString::fromUtf8(line.mid(2, equals - 2)),
                              QString::fromUtf8(line.mid(equals + 1)));
        }
    }
    return properties;
}

// Replaces every escape (the marker, then three octal or two hexadecimal digits) by its byte.
// Both the kernel and udev escape bytes, so a name in UTF-8 is whole again only once every byte is
// back; a marker without its digits stays as it is.
QString unescapeBytes(const QString& text, const QByteArray& marker, int base)
{
    const int digits = base == 8 ? 3 : 2;
    const QByteArray raw = text.toUtf8();
    QByteArray bytes;
    bytes.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        if (raw.mid(i, marker.size()) == marker && i + marker.size() + digits <= raw.size()) {
            bool ok = false;
            const int code = raw.mid(i + marker.size(), digits).toInt(&ok, base);
            if (ok) {
                bytes.append(static_cast<char>(code));
                i += marker.size() + digits - 1;
                continue;
            }
        }
        bytes.append(raw.at(i));
    }
    return QString::fromUtf8(bytes);
}

} // namespace

LinuxDeviceManager::LinuxDeviceManager() = default;

LinuxDeviceManager::LinuxDeviceManager(Roots roots)
    : m_roots(std::move(roots))
{}

QString LinuxDeviceManager::unescapeMountField(const QString& field)
{
    return unescapeBytes(field, QByteArray("\\"), 8);
}

QString LinuxDeviceManager::unescapeUdevName(const QString& name)
{
    return unescapeBytes(name, QByteArray("\\x"), 16);
}

QList<UsbDevice> LinuxDeviceManager::listDevices()
{
    const QHash<QString, QString> uuids = linksByDevice(m_roots.devDisk + QStringLiteral("/by-uuid"), false);
    const QHash<QString, QString> labels = linksByDevice(m_roots.devDisk + QStringLiteral("/by-label"), true);
    const MountTable mounts(m_roots.mountInfo);

    QList<UsbDevice> devices;
    for (auto it = uuids.constBegin(); it != uuids.constEnd(); ++it) {
        const QString name = it.key();
        const QString sysPath =
            QFileInfo(m_roots.sysClassBlock + QLatin1Char('/') + name).canonicalFilePath();
        // The kernel's device path names every bus on the way: a USB device sits below a "usbN" node.
        if (sysPath.isEmpty() || !sysPath.contains(QStringLiteral("/usb"))) {
            continue;
        }
        const bool isPartition = QFileInfo::exists(sysPath + QStringLiteral("/partition"));
        const QString disk = isPartition ? QFileInfo(sysPath).absolutePath() : sysPath;

        const QString deviceNumber = QString::fromLatin1(readSmallFile(sysPath + QStringLiteral("/dev")));
        const QHash<QString, QString> udev = udevProperties(m_roots.udevData, deviceNumber);

        UsbDevice device;
        device.devicePath = m_roots.dev + QLatin1Char('/') + name;
        device.removable = readSmallFile(disk + QStringLiteral("/removable")) == "1";
        // udev links one label to one device only; a second stick with the same label finds its
        // label in udev's own record of it.
        device.label = labels.value(name);
        if (device.label.isEmpty()) {
            device.label = unescapeUdevName(udev.value(QStringLiteral("ID_FS_LABEL_ENC")));
        }
        if (device.label.isEmpty()) {
            device.label = QStringLiteral("USB %1").arg(name);
        }
        device.fileSystem = udev.value(QStringLiteral("ID_FS_TYPE"));
        if (const std::optional<MountTable::Mount> mount = mounts.wholeFileSystemMount(deviceNumber)) {
            device.mounted = true;
            device.mountPath = mount->mountPoint;
            device.fileSystem = mount->fileSystem;
        }
        device.id = (device.mounted ? device.mountPath : device.devicePath) + QLatin1Char('-') + it.value();
        devices.append(device);
    }
    std::sort(devices.begin(), devices.end(),
              [](const UsbDevice& a, const UsbDevice& b) { return a.devicePath < b.devicePath; });
    return devices;
}

} // namespace Velmarin::Platform::Linux
