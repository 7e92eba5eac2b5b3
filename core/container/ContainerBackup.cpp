#include "core/container/ContainerBackup.h"

#include "core/container/FileSync.h"

#include <QByteArray>

namespace Velmarin::Core {

ContainerBackup::ContainerBackup(const QString& sourcePath, const QString& destinationPath)
    : m_source(sourcePath)
    , m_destination(destinationPath)
{}

bool ContainerBackup::openSource()
{
    // A copy taken while another session writes could hold half of a change.
    return m_lock.acquire(m_source.fileName()) == ContainerLock::Result::Acquired &&
           m_source.open(QIODevice::ReadOnly);
}

bool ContainerBackup::openDestination()
{
    return m_destination.open(QIODevice::WriteOnly | QIODevice::Truncate);
}

bool ContainerBackup::copy(const Progress& progress)
{
    bool copied = copyChunks(progress) && FileSync::flushToDevice(m_destination);
    m_source.close();
    m_destination.close();
    // A new backup's name is only on the device once its folder is.
    copied = copied && FileSync::syncFolderOf(m_destination.fileName());
    if (!copied) {
        m_destination.remove();
    }
    return copied;
}

bool ContainerBackup::copyChunks(const Progress& progress)
{
    if (!m_source.isOpen() || !m_destination.isOpen()) {
        return false;
    }
    const qint64 total = m_source.size();
    qint64 done = 0;
    while (!m_source.atEnd()) {
        const QByteArray chunk = m_source.read(ChunkSize);
        // An empty read before the end is a read error: the drive went away or the medium failed.
        if (chunk.isEmpty() || m_destination.write(chunk) != chunk.size()) {
            return false;
        }
        done += chunk.size();
        if (progress) {
            progress(done, total);
        }
    }
    return true;
}

} // namespace Velmarin::Core
