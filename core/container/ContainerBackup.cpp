#include "core/container/ContainerBackup.h"

#include "core/container/CacheAdvice.h"
#include "core/container/DriveSpace.h"
#include "core/container/FileSync.h"
#include "core/container/WriteBehind.h"

#include <QByteArray>
#include <QFileInfo>

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

bool ContainerBackup::fitsDestination() const
{
    return DriveSpace::of(m_destination.fileName()).holdsFileOf(QFileInfo(m_source.fileName()).size());
}

bool ContainerBackup::copy(const Progress& progress)
{
    bool copied = copyChunks(progress) && FileSync::flushToDevice(m_destination);
    m_refusedSize = !copied && m_destination.error() != QFileDevice::NoError &&
                    DriveSpace::isSizeRefusal(m_destination.errorString());
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
    // One buffer for the whole copy, so no chunk pages in fresh memory.
    QByteArray chunk(static_cast<qsizetype>(qMin<qint64>(ChunkSize, qMax<qint64>(total, 1))),
                     Qt::Uninitialized);
    WriteBehind toDrive(m_destination);
    CacheAdvice::sequential(m_source);
    while (!m_source.atEnd()) {
        const qint64 read = m_source.read(chunk.data(), chunk.size());
        // An empty read before the end is a read error: the drive went away or the medium failed.
        if (read <= 0 || !FileSync::writeAll(m_destination, chunk.constData(), read) || !toDrive.advance()) {
            return false;
        }
        CacheAdvice::forget(m_source, done, read);
        done += read;
        if (progress) {
            progress(done, total);
        }
    }
    return true;
}

} // namespace Velmarin::Core
