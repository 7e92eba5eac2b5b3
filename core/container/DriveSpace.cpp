#include "core/container/DriveSpace.h"

#include <QFileInfo>
#include <QStorageInfo>

#include <cerrno>

namespace Velmarin::Core {

DriveSpace DriveSpace::of(const QString& path)
{
    const QFileInfo info(path);
    const QStorageInfo storage(info.exists() ? info.absoluteFilePath() : info.absolutePath());
    DriveSpace space;
    space.ready = storage.isValid() && storage.isReady();
    if (!space.ready) {
        return space;
    }
    space.fileSystemType = storage.fileSystemType();
    space.largestFile = largestFileOn(space.fileSystemType);
    // No file system has no blocks at all: such a drive does not tell its free space.
    if (storage.bytesTotal() > 0) {
        space.available = storage.bytesAvailable();
    }
    return space;
}

std::optional<qint64> DriveSpace::largestFileOn(const QByteArray& fileSystemType)
{
    // Linux: the kernel's vfat and msdos, and FAT through FUSE. Windows: the volume's own name.
    static const QByteArray fat[] = {"vfat",  "msdos", "umsdos", "fat",
                                     "fat12", "fat16", "fat32",  "fuse.fusefat"};
    const QByteArray type = fileSystemType.toLower();
    for (const QByteArray& name : fat) {
        if (type == name) {
            return FatLargestFile;
        }
    }
    return std::nullopt;
}

bool DriveSpace::isSizeRefusal(const QString& systemError)
{
    if (systemError.isEmpty()) {
        return false;
    }
#ifdef Q_OS_WIN
    // ERROR_FILE_TOO_LARGE, which Windows gives for a FAT file past 4 GiB; Qt words Windows errors.
    constexpr int FileTooLarge = 223;
    return systemError == qt_error_string(FileTooLarge);
#else
    return systemError == qt_error_string(EFBIG);
#endif
}

} // namespace Velmarin::Core
