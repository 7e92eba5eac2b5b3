#include "cli/commands/RemoveFolderCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/VaultAccess.h"

namespace Velmarin::Cli {

CommandInfo RemoveFolderCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("rmdir");
    info.synopsis = tr("<container> <caminho-no-cofre>");
    info.summary = tr("Exclui uma pasta vazia.");
    info.description = tr("Exclui a pasta indicada, que deve estar vazia.");
    info.minimumArguments = 2;
    info.maximumArguments = 2;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int RemoveFolderCommand::run(const CommandContext& context)
{
    VaultAccess access(context);
    QString path;
    const int opened =
        access.openForEntry(context.arguments.at(1), Core::VaultManager::Access::ReadWrite, path);
    if (opened != Success) {
        return opened;
    }
    if (!access.vault().directoryExists(path)) {
        context.console.message(tr("A pasta %1 não existe no cofre.").arg(path));
        return Failed;
    }
    if (!access.vault().deleteEmptyFolder(path)) {
        context.console.message(tr("A pasta não está vazia ou não pode ser excluída."));
        return Failed;
    }
    context.console.message(tr("Pasta excluída."));
    return access.close();
}

} // namespace Velmarin::Cli
