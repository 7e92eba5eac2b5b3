#include "cli/VaultArguments.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "core/index/VaultPath.h"

namespace Velmarin::Cli {

int VaultArguments::entryPath(Console& console, const QString& text, QString& path)
{
    path = Core::normalizeVaultPath(text);
    if (path.isEmpty()) {
        console.message(tr("Caminho inválido no cofre: \"%1\"").arg(text));
        return UsageError;
    }
    return Success;
}

int VaultArguments::folderPath(Console& console, const QString& text, QString& path)
{
    QString slashesRemoved = text.trimmed();
    slashesRemoved.remove(QLatin1Char('/')).remove(QLatin1Char('\\'));
    if (slashesRemoved.isEmpty()) {
        path.clear();
        return Success;
    }
    return entryPath(console, text, path);
}

} // namespace Velmarin::Cli
