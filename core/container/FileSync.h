#pragma once

#include <QtGlobal>

#include <functional>

class QFileDevice;
class QIODevice;
class QString;

namespace Velmarin::Core {

// Hands buffered bytes to the system and waits until the system has them on the device,
// so that "done" is only said once a pulled USB drive would still hold the data.
class FileSync
{
public:
    // Writes all of size bytes. A write the system cut short is tried again for the rest, so that
    // its reason (a full drive, a file past its file system's limit) comes with the device's error
    // instead of being lost in a short count.
    static bool writeAll(QIODevice& device, const char* data, qint64 size);
    static bool flushToDevice(QFileDevice& file);
    // A file's creation, removal or new name lives in its folder: that is what must reach the
    // device for the name itself to survive a cut.
    static bool syncFolderOf(const QString& filePath);
    // Puts from in the place of to in one step, so a cut leaves one of the two files there, never
    // neither, and waits until the new name is on the device.
    static bool replaceFile(const QString& from, const QString& to);
    // Removes the file and waits until its removal is on the device; a file already gone counts.
    static bool removeFile(const QString& filePath);

    static constexpr qint64 CopyPieceSize = 8388608;
    // (bytes copied, bytes in all), after every piece.
    using CopyProgress = std::function<void(qint64, qint64)>;
    // Copies from onto to (created or truncated) and waits until the copy and its name are on the
    // device. A failure removes the partial copy, so it is never mistaken for a whole one.
    static bool copyFile(const QString& from, const QString& to, const CopyProgress& progress = {});
};

} // namespace Velmarin::Core
