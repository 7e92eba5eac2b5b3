#pragma once

#include "core/container/DriveSpace.h"

#include <QString>

namespace Velmarin::UI {

// Free space of the volume holding a path: the window's one question to the file system that
// tests must be able to answer with any number.
class StorageProbe
{
public:
    virtual ~StorageProbe() = default;
    // The drive's free space and file size limit, each unknown where the drive does not tell.
    virtual Core::DriveSpace space(const QString& path) = 0;
};

} // namespace Velmarin::UI
