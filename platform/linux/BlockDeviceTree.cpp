#include "platform/linux/BlockDeviceTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Velmarin::Platform::Linux {

namespace {

// Stacks are a few levels deep (LVM inside LUKS inside a partition); the limit only guards
// against a loop in a damaged or fake tree.
constexpr int MaxStackDepth = 8;

QStringList entriesOf(const QString& folder)
{
    return QDir(folder).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Name);
}

QString readDeviceNumber(const QString& sysPath)
{
    QFile file(sysPath + QStringLiteral("/dev"));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.read(64).trimmed()) : QString();
}

// What a device is built on, down to devices built on nothing; empty when that cannot be told.
QStringList leavesOf(const QString& sysPath, int depth)
{
    const QString slavesFolder = sysPath + QStringLiteral("/slaves");
    const QStringList slaves = entriesOf(slavesFolder);
    if (slaves.isEmpty()) {
        return {sysPath};
    }
    if (depth >= MaxStackDepth) {
        return {};
    }
    QStringList leaves;
    for (const QString& slave : slaves) {
        const QString slavePath = QFileInfo(slavesFolder + QLatin1Char('/') + slave).canonicalFilePath();
        if (slavePath.isEmpty()) {
            return {};
        }
        const QStringList below = leavesOf(slavePath, depth + 1);
        if (below.isEmpty()) {
            return {};
        }
        leaves += below;
    }
    return leaves;
}

} // namespace

BlockDeviceTree::BlockDeviceTree(const QString& sysClassBlock)
{
    for (const QString& name : entriesOf(sysClassBlock)) {
        const QString sysPath = QFileInfo(sysClassBlock + QLatin1Char('/') + name).canonicalFilePath();
        if (sysPath.isEmpty()) {
            continue;
        }
        const QString number = readDeviceNumber(sysPath);
        for (const QString& slave : entriesOf(sysPath + QStringLiteral("/slaves"))) {
            m_held.insert(slave);
        }
        m_indexByNumber.insert(number, m_devices.size());
        m_devices.append({name, sysPath, number, leavesOf(sysPath, 0)});
    }
}

const BlockDeviceTree::Device* BlockDeviceTree::findByNumber(const QString& number) const
{
    const auto index = m_indexByNumber.constFind(number);
    return index == m_indexByNumber.constEnd() || number.isEmpty() ? nullptr : &m_devices.at(*index);
}

bool BlockDeviceTree::isOnUsb(const Device& device)
{
    if (device.leaves.isEmpty()) {
        return false;
    }
    for (const QString& leaf : device.leaves) {
        if (!leaf.contains(QStringLiteral("/usb"))) {
            return false;
        }
    }
    return true;
}

QString BlockDeviceTree::diskOf(const QString& leafSysPath)
{
    return QFileInfo::exists(leafSysPath + QStringLiteral("/partition"))
               ? QFileInfo(leafSysPath).absolutePath()
               : leafSysPath;
}

QSet<QString> BlockDeviceTree::disksOf(const Device& device)
{
    QSet<QString> disks;
    for (const QString& leaf : device.leaves) {
        disks.insert(diskOf(leaf));
    }
    return disks;
}

} // namespace Velmarin::Platform::Linux
