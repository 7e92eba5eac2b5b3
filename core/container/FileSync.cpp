#include "core/container/FileSync.h"

#include "core/container/CacheAdvice.h"
#include "core/container/WriteBehind.h"

#include <QDir>
#include <QFile>
#include <QFileDevice>
#include <QFileInfo>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace Velmarin::Core {

bool FileSync::writeAll(QIODevice& device, const char* data, qint64 size)
{
    while (size > 0) {
        const qint64 written = device.write(data, size);
        if (written <= 0) {
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
}

bool FileSync::flushToDevice(QFileDevice& file)
{
    if (!file.flush()) {
        return false;
    }
    const int descriptor = file.handle();
    if (descriptor < 0) {
        return false;
    }
#ifdef Q_OS_WIN
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    return handle != INVALID_HANDLE_VALUE && FlushFileBuffers(handle) != 0;
#else
    return ::fsync(descriptor) == 0;
#endif
}

bool FileSync::syncFolderOf(const QString& filePath)
{
#ifdef Q_OS_WIN
    // Windows writes folder entries through with the file system's own journal (NTFS) or at the
    // next flush of the volume (FAT); there is no handle on a folder to flush.
    Q_UNUSED(filePath);
    return true;
#else
    const QByteArray folder = QFile::encodeName(QFileInfo(filePath).absolutePath());
    const int descriptor = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    // Some file systems cannot sync a folder at all (EINVAL); their entries are written through.
    const bool synced = ::fsync(descriptor) == 0 || errno == EINVAL;
    ::close(descriptor);
    return synced;
#endif
}

bool FileSync::replaceFile(const QString& from, const QString& to)
{
#ifdef Q_OS_WIN
    const std::wstring source = QDir::toNativeSeparators(from).toStdWString();
    const std::wstring target = QDir::toNativeSeparators(to).toStdWString();
    return MoveFileExW(source.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) !=
           0;
#else
    // QFile::rename never replaces an existing file; rename(2) does, atomically.
    return std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0 &&
           syncFolderOf(to);
#endif
}

bool FileSync::removeFile(const QString& filePath)
{
    if (!QFile::remove(filePath) && QFileInfo::exists(filePath)) {
        return false;
    }
    return syncFolderOf(filePath);
}

bool FileSync::copyFile(const QString& from, const QString& to, const CopyProgress& progress)
{
    QFile source(from);
    QFile destination(to);
    if (!source.open(QIODevice::ReadOnly) || !destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    const qint64 total = source.size();
    if (progress) {
        progress(0, total);
    }
    qint64 copied = 0;
    bool complete = true;
    CacheAdvice::sequential(source);
    // One buffer for the whole copy: fresh memory for every piece would be paged in anew each time.
    QByteArray piece(static_cast<qsizetype>(qMin<qint64>(CopyPieceSize, qMax<qint64>(total, 1))),
                     Qt::Uninitialized);
    WriteBehind toDrive(destination);
    while (copied < total) {
        const qint64 read = source.read(piece.data(), piece.size());
        // Nothing read before the end is a read error: the medium failed or the file shrank.
        if (read <= 0 || !writeAll(destination, piece.constData(), read) || !toDrive.advance()) {
            complete = false;
            break;
        }
        // Both sides are the program's own containers, each read once here.
        CacheAdvice::forget(source, copied, read);
        copied += read;
        if (progress) {
            progress(copied, total);
        }
    }
    complete = complete && flushToDevice(destination);
    destination.close();
    if (complete && syncFolderOf(to)) {
        return true;
    }
    QFile::remove(to);
    return false;
}

} // namespace Velmarin::Core
