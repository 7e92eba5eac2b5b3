#include "core/container/JournalReserve.h"

#include "core/container/ContainerFile.h"

#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_LINUX
#include <fcntl.h>
#endif

namespace Velmarin::Core {

namespace {

// A journal holds the previous header plus a line about itself and a digest line.
constexpr qint64 JournalOverhead = 4096;
// The header grows by an entry's JSON with each new file or folder: room for a few hundred.
constexpr qint64 GrowthMargin = 64 * 1024;

// Takes the room on the drive, not only the size: a file grown by a seek is a hole on most file
// systems, which a full drive would then refuse to fill.
bool allocate(QFile& file, qint64 size)
{
#if defined(Q_OS_WIN)
    // Windows gives a file grown by SetEndOfFile its clusters at once.
    return file.resize(size);
#else
#if defined(Q_OS_LINUX)
    // The system call itself: glibc's posix_fallocate would fall back to writing single bytes far
    // apart, which fusefat refuses and then hangs on.
    if (fallocate(file.handle(), 0, 0, size) == 0) {
        return file.size() == size || file.resize(size);
    }
#endif
    // Some FUSE file systems (FAT through fusefat) neither allocate nor take a write past the end:
    // the room is taken by writing it, in order.
    if (!file.resize(0)) {
        return false;
    }
    const QByteArray zeros(64 * 1024, '\0');
    for (qint64 left = size; left > 0; left -= zeros.size()) {
        const qint64 piece = qMin<qint64>(left, zeros.size());
        if (file.write(zeros.constData(), piece) != piece) {
            return false;
        }
    }
    return file.flush();
#endif
}

// A file of the reserve's name that no reserve could be (a link, a folder, something larger than
// the largest header's journal) is someone else's, and is never resized or removed.
bool mayBeOurs(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink()) {
        return true;
    }
    return !info.isSymLink() && info.isFile() &&
           info.size() <=
               JournalReserve::sizeFor(ContainerFile::LengthDigits + 1 + ContainerFile::HeaderRegionSize);
}

} // namespace

QString JournalReserve::pathFor(const QString& containerPath)
{
    return containerPath + QStringLiteral(".reserve");
}

qint64 JournalReserve::sizeFor(qint64 headerSize)
{
    return headerSize + JournalOverhead + GrowthMargin;
}

bool JournalReserve::hold(const QString& containerPath, qint64 headerSize)
{
    if (!mayBeOurs(pathFor(containerPath))) {
        return false;
    }
    QFile file(pathFor(containerPath));
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    if (allocate(file, sizeFor(headerSize))) {
        return true;
    }
    // Half a reserve holds room nobody counts on.
    file.close();
    file.remove();
    return false;
}

bool JournalReserve::isHeld(const QString& containerPath)
{
    return QFileInfo::exists(pathFor(containerPath));
}

bool JournalReserve::giveUp(const QString& containerPath)
{
    const QString path = pathFor(containerPath);
    return mayBeOurs(path) && (QFile::remove(path) || !QFileInfo::exists(path));
}

bool JournalReserve::isShortFor(const QString& containerPath, qint64 headerSize)
{
    const QFileInfo info(pathFor(containerPath));
    return info.exists() && info.size() < headerSize + JournalOverhead;
}

} // namespace Velmarin::Core
