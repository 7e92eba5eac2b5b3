#include "platform/linux/MountTable.h"

#include "platform/linux/LinuxDeviceManager.h"

#include <QFile>

#include <algorithm>

namespace Velmarin::Platform::Linux {

MountTable::MountTable(const QString& mountInfoPath)
{
    QFile file(mountInfoPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return;
    }
    // id parent major:minor root mount-point options [optional fields...] - fstype source super-options
    for (const QByteArray& rawLine : file.readAll().split('\n')) {
        const QStringList fields = QString::fromUtf8(rawLine).split(QLatin1Char(' '), Qt::SkipEmptyParts);
        const qsizetype separator = fields.indexOf(QStringLiteral("-"));
        if (fields.size() < 5 || separator < 6 || separator + 1 >= fields.size()) {
            continue;
        }
        m_mounts.append({fields.at(2), LinuxDeviceManager::unescapeMountField(fields.at(3)),
                         LinuxDeviceManager::unescapeMountField(fields.at(4)), fields.at(separator + 1)});
    }
}

bool MountTable::isMounted(const QString& number) const
{
    return std::any_of(m_mounts.cbegin(), m_mounts.cend(),
                       [&number](const Mount& mount) { return mount.number == number; });
}

std::optional<MountTable::Mount> MountTable::wholeFileSystemMount(const QString& number) const
{
    for (const Mount& mount : m_mounts) {
        if (mount.number == number && mount.root == QLatin1String("/")) {
            return mount;
        }
    }
    return std::nullopt;
}

QStringList MountTable::numbersMountedAt(const QStringList& mountPoints) const
{
    QStringList numbers;
    for (const Mount& mount : m_mounts) {
        if (mountPoints.contains(mount.mountPoint) && !numbers.contains(mount.number)) {
            numbers.append(mount.number);
        }
    }
    return numbers;
}

} // namespace Velmarin::Platform::Linux
