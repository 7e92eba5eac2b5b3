#pragma once

#include <QString>

#include <optional>

namespace Velmarin::UI {

// Free space of the volume holding a path: the window's one question to the file system that
// tests must be able to answer with any number.
class StorageProbe
{
public:
    virtual ~StorageProbe() = default;
    // Bytes available to this user, or nothing when the volume is not valid or not ready.
    virtual std::optional<qint64> bytesAvailable(const QString& path) = 0;
};

} // namespace Velmarin::UI
