#include "ui/SystemStorageProbe.h"

namespace Velmarin::UI {

Core::DriveSpace SystemStorageProbe::space(const QString& path)
{
    return Core::DriveSpace::of(path);
}

} // namespace Velmarin::UI
