#include "platform/linux/LinuxDeviceManager.h"

#include "platform/linux/BlockDeviceTree.h"
#include "platform/linux/MountTable.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QStringList>

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

// Whether a volume that is not mounted may hold files once it is, going by what udev found on it.
// ID_FS_USAGE is "filesystem" for what mounts, "raid" for a member of a volume group or an array
// and "other" for swap; older records may name only the type.
// A locked LUKS volume ("crypto") stays in the list as not mounted: the file manager's mount action
// asks for its passphrase and mounts what is inside, which is just what the list's hint says to do.
// Once unlocked, the partition is held by its mapping and the mapping is listed in its place.
bool mayHoldFiles(const QHash<QString, QString>& udev)
{
    const QStringList noFiles = {QStringLiteral("swap"), QStringLiteral("LVM2_member"),
                                 QStringLiteral("linux_raid_member")};
    const QString usage = udev.value(QStringLiteral("ID_FS_USAGE"));
    if (noFiles.contains(udev.value(QStringLiteral("ID_FS_TYPE")))) {
        return false;
    }
    return usage.isEmpty() || usage == QLatin1String("filesystem") || usage == QLatin1String("crypto");
}

bool isAsciiDigit(QChar c)
{
    return c >= QLatin1Char('0') && c <= QLatin1Char('9');
}

// "sdb2" before "sdb10": runs of digits compare as numbers. QCollator would do it too, but it
// ignores its numeric mode in the C locale.
bool naturalLess(const QString& a, const QString& b)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        if (isAsciiDigit(a.at(i)) && isAsciiDigit(b.at(j))) {
            const qsizetype startA = i;
            const qsizetype startB = j;
            while (i < a.size() && isAsciiDigit(a.at(i))) {
                ++i;
            }
            while (j < b.size() && isAsciiDigit(b.at(j))) {
                ++j;
            }
            QStringView digitsA = QStringView(a).mid(startA, i - startA);
            QStringView digitsB = QStringView(b).mid(startB, j - startB);
            while (digitsA.size() > 1 && digitsA.front() == QLatin1Char('0')) {
                digitsA = digitsA.mid(1);
            }
            while (digitsB.size() > 1 && digitsB.front() == QLatin1Char('0')) {
                digitsB = digitsB.mid(1);
            }
            if (digitsA.size() != digitsB.size()) {
                return digitsA.size() < digitsB.size();
            }
            if (const int order = digitsA.compare(digitsB); order != 0) {
                return order < 0;
            }
            continue;
        }
        if (a.at(i) != b.at(j)) {
            return a.at(i) < b.at(j);
        }
        ++i;
        ++j;
    }
    return a.size() - i < b.size() - j;
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
    const BlockDeviceTree tree(m_roots.sysClassBlock);

    // Where the running system lives: a USB disk holding one of these is the computer's own disk.
    const QStringList systemMountPoints = {QStringLiteral("/"), QStringLiteral("/usr"),
                                           QStringLiteral("/boot"), QStringLiteral("/boot/efi"),
                                           QStringLiteral("/efi")};
    QSet<QString> systemDisks;
    for (const QString& number : mounts.numbersMountedAt(systemMountPoints)) {
        if (const BlockDeviceTree::Device* systemDevice = tree.findByNumber(number)) {
            systemDisks.unite(BlockDeviceTree::disksOf(*systemDevice));
        }
    }

    QList<UsbDevice> devices;
    // Every device is looked at, not only the targets of by-uuid links: udev gives a UUID's link
    // to one device, and a cloned stick shares its twin's UUID.
    for (const BlockDeviceTree::Device& block : tree.devices()) {
        // What is built on a held device is listed instead; the system's own disk is no place for
        // a container that travels.
        if (!BlockDeviceTree::isOnUsb(block) || tree.isHeld(block.name) ||
            BlockDeviceTree::disksOf(block).intersects(systemDisks)) {
            continue;
        }
        const QHash<QString, QString> udev = udevProperties(m_roots.udevData, block.number);
        const bool inMountTable = mounts.isMounted(block.number);
        const bool hasFileSystem =
            uuids.contains(block.name) || !udev.value(QStringLiteral("ID_FS_TYPE")).isEmpty() || inMountTable;
        if (!hasFileSystem || (!inMountTable && !mayHoldFiles(udev))) {
            continue;
        }
        // An unlocked volume goes by the name of the USB partition it is read from.
        const QString usbName = QFileInfo(block.leaves.first()).fileName();

        UsbDevice device;
        device.devicePath = m_roots.dev + QLatin1Char('/') + block.name;
        device.removable = readSmallFile(BlockDeviceTree::diskOf(block.leaves.first()) +
                                         QStringLiteral("/removable")) == "1";
        // udev links one label to one device only; a second stick with the same label finds its
        // label in udev's own record of it.
        device.label = labels.value(block.name);
        if (device.label.isEmpty()) {
            device.label = unescapeUdevName(udev.value(QStringLiteral("ID_FS_LABEL_ENC")));
        }
        if (device.label.isEmpty()) {
            device.label = QStringLiteral("USB %1").arg(usbName);
        }
        device.fileSystem = udev.value(QStringLiteral("ID_FS_TYPE"));
        if (const std::optional<MountTable::Mount> mount = mounts.wholeFileSystemMount(block.number)) {
            device.mounted = true;
            device.mountPath = mount->mountPoint;
            device.fileSystem = mount->fileSystem;
        }
        QString uuid = uuids.value(block.name);
        if (uuid.isEmpty()) {
            uuid = udev.value(QStringLiteral("ID_FS_UUID"));
        }
        device.id = device.mounted ? device.mountPath : device.devicePath;
        if (!uuid.isEmpty()) {
            device.id += QLatin1Char('-') + uuid;
        }
        devices.append(device);
    }
    std::sort(devices.begin(), devices.end(),
              [](const UsbDevice& a, const UsbDevice& b) { return naturalLess(a.devicePath, b.devicePath); });
    return devices;
}

} // namespace Velmarin::Platform::Linux
