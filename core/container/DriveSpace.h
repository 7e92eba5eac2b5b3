#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

namespace Velmarin::Core {

// What the drive holding a file tells of its room: the free space and the largest file its file
// system can hold. Either may be unknown: a FUSE mount of FAT reports no blocks at all, and
// "fuseblk" does not say which file system it carries. Where a figure is unknown, a write that
// does not fit fails with its own error and is cut back.
struct DriveSpace
{
    // Every FAT holds files of at most 4 GiB - 1 bytes: the size field has 32 bits.
    static constexpr qint64 FatLargestFile = Q_INT64_C(4294967295);

    // The drive answered at all.
    bool ready = false;
    std::optional<qint64> available;
    std::optional<qint64> largestFile;
    // As the system names it: "vfat", "fuse.fusefat", "FAT32", "exFAT".
    QByteArray fileSystemType;

    // The drive holding path, which need not exist yet (a folder is asked in its stead).
    static DriveSpace of(const QString& path);
    // The largest file of a file system, by the name Linux or Windows gives it; none when the name
    // tells no limit worth checking.
    static std::optional<qint64> largestFileOn(const QByteArray& fileSystemType);

    // Whether the system's words for a failed write say the file passed its file system's largest:
    // EFBIG, or ERROR_FILE_TOO_LARGE on Windows.
    static bool isSizeRefusal(const QString& systemError);

    bool holdsFileOf(qint64 size) const { return !largestFile || size <= *largestFile; }
    bool hasRoomFor(qint64 bytes) const { return !available || bytes <= *available; }
};

} // namespace Velmarin::Core
