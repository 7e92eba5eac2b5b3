#pragma once

#include "StorageProbe.h"

namespace Velmarin::UI {

class SystemStorageProbe : public StorageProbe
{
public:
    std::optional<qint64> bytesAvailable(const QString& path) override;
};

} // namespace Velmarin::UI
