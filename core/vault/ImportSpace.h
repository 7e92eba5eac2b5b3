#pragma once

#include <QtGlobal>

namespace Velmarin::Core {

// How much free space the container's drive must have before files are imported into it.
class ImportSpace
{
public:
    // Room kept free beyond the files themselves: one block in flight and the header's growth.
    static constexpr qint64 Reserve = 16 * 1024 * 1024;
    // Below this much left over, a front end should ask before the drive is nearly filled.
    static constexpr qint64 ComfortableRemainder = 128 * 1024 * 1024;

    // The encrypted blocks, their tags and the reserve, with a 5 % margin for the file system.
    static qint64 required(qint64 totalBytes)
    {
        return Reserve + static_cast<qint64>(1.05 * static_cast<double>(totalBytes));
    }
};

} // namespace Velmarin::Core
