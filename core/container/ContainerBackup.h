#pragma once

#include "core/container/ContainerLock.h"

#include <QFile>
#include <QString>

#include <functional>

namespace Velmarin::Core {

// A byte-for-byte copy of a locked container. Nothing is decrypted: the copy opens with the
// password the container had when it was copied, whatever the original's password becomes later.
class ContainerBackup
{
public:
    static constexpr qint64 ChunkSize = 8 * 1024 * 1024;
    // (bytes copied, bytes in all), after every chunk.
    using Progress = std::function<void(qint64, qint64)>;

    ContainerBackup(const QString& sourcePath, const QString& destinationPath);

    // Fails too when another session holds the container (ContainerLock::isInUse tells).
    bool openSource();
    // Creates or truncates the destination.
    bool openDestination();
    // Copies everything, then makes sure the copy is on the device. A failure removes the partial
    // destination, so a half copy is never mistaken for a backup.
    bool copy(const Progress& progress = {});

    // Whether the destination's file system can hold a file the container's size (FAT: 4 GiB - 1);
    // asked before anything is written there.
    bool fitsDestination() const;
    // After a failed copy: the destination's file system refused the file's size.
    bool destinationRefusedSize() const { return m_refusedSize; }

private:
    bool copyChunks(const Progress& progress);

    ContainerLock m_lock;
    QFile m_source;
    QFile m_destination;
    bool m_refusedSize = false;
};

} // namespace Velmarin::Core
