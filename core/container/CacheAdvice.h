#pragma once

#include <QtGlobal>

class QIODevice;

namespace Velmarin::Core {

// Tells the system how the program reads a file, so the drive works while the cipher does and
// pages read once are reused rather than taken fresh. Devices that are not files, and systems
// without the means, ignore it.
class CacheAdvice
{
public:
    // The file is read front to back: a larger read-ahead keeps the drive busy.
    static void sequential(QIODevice& device);
    // Start reading the length bytes after the device's position now.
    static void next(QIODevice& device, qint64 length);
    // The bytes in [from, from + length) will not be read again by this operation.
    static void forget(QIODevice& device, qint64 from, qint64 length);
};

} // namespace Velmarin::Core
