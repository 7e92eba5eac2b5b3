#pragma once

#include "ui/StorageProbe.h"

namespace Velmarin::UI {

class SystemStorageProbe : public StorageProbe
{
public:
    Core::DriveSpace space(const QString& path) override;
};

} // namespace Velmarin::UI
