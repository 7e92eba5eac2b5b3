#include "ui/SystemStorageProbe.h"

#include <QStorageInfo>

namespace Velmarin::UI {

std::optional<qint64> SystemStorageProbe::bytesAvailable(const QString& path)
{
    const QStorageInfo storage(path);
    if (!storage.isValid() || !storage.isReady()) {
        return std::nullopt;
    }
    return storage.bytesAvailable();
}

} // namespace Velmarin::UI
