#include "cli/VaultCommand.h"

#include "cli/ExitCode.h"
#include "cli/VaultAccess.h"
#include "cli/VaultArguments.h"

namespace Velmarin::Cli {

int VaultCommand::checkArguments(const CommandContext& context, QString& entryPath)
{
    const int argument = entryArgument();
    return argument == NoEntry
               ? Success
               : VaultArguments::entryPath(context.console, context.arguments.at(argument), entryPath);
}

int VaultCommand::run(const CommandContext& context)
{
    QString entryPath;
    const int checked = checkArguments(context, entryPath);
    if (checked != Success) {
        return checked;
    }
    VaultAccess access(context);
    const int opened = access.open(context.arguments.at(0), vaultAccess());
    if (opened != Success) {
        return opened;
    }
    const int result = runOnVault(context, access.vault(), entryPath);
    const int closed = access.close();
    return result != Success ? result : closed;
}

} // namespace Velmarin::Cli
