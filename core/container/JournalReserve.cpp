#include "core/container/JournalReserve.h"

#include <QFile>
#include <QFileInfo>

#ifdef Q_OS_UNIX
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
#ifdef Q_OS_UNIX
    if (posix_fallocate(file.handle(), 0, size) == 0) {
        return file.size() == size || file.resize(size);
    }
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
#else
    // Windows gives a file grown by SetEndOfFile its clusters at once.
    return file.resize(size);
#endif
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
    return QFile::remove(path) || !QFileInfo::exists(path);
}

} // namespace Velmarin::Core
