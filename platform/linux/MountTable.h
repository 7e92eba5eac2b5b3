#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

namespace Velmarin::Platform::Linux {

// The mounts of this process's namespace, as /proc/self/mountinfo lists them.
class MountTable
{
public:
    struct Mount
    {
        // "major:minor" of the mounted device.
        QString number;
        // The folder of the file system that the mount point shows: "/" for the whole file
        // system, "/photos" for a bind mount of a sub-folder.
        QString root;
        QString mountPoint;
        QString fileSystem;
    };

    explicit MountTable(const QString& mountInfoPath);

    bool isMounted(const QString& number) const;
    // The first mount that shows the device's whole file system. The container lives at the file
    // system's root, so a mount of a sub-folder alone cannot reach it.
    std::optional<Mount> wholeFileSystemMount(const QString& number) const;
    // The devices mounted at any of these points, whatever folder of theirs the mount shows.
    QStringList numbersMountedAt(const QStringList& mountPoints) const;

private:
    QList<Mount> m_mounts;
};

} // namespace Velmarin::Platform::Linux
