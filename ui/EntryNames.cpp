#include "EntryNames.h"

#include "VaultPath.h"

namespace Velmarin::UI {

bool isValidEntryName(const QString& name)
{
    const QString trimmed = name.trimmed();
    return !trimmed.isEmpty() && !trimmed.contains(QLatin1Char('/')) &&
           !trimmed.contains(QLatin1Char('\\')) && trimmed != QLatin1String(".") &&
           trimmed != QLatin1String("..");
}

QString joinEntryPath(const QString& folder, const QString& name)
{
    return Core::normalizeVaultPath(Core::joinVaultPath(folder, name));
}

} // namespace Velmarin::UI
