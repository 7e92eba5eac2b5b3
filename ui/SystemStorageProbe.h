#pragma once

#include "ui/StorageProbe.h"

namespace Velmarin::UI {

class SystemStorageProbe : public StorageProbe
{
public:
    std::optional<qint64> bytesAvailable(const QString& path) override;
};

} // namespace Velmarin::UI
