#include "cli/commands/MakeFolderCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/VaultAccess.h"

namespace Velmarin::Cli {

CommandInfo MakeFolderCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("mkdir");
    info.synopsis = tr("<container> <caminho-no-cofre>");
    info.summary = tr("Cria uma pasta.");
    info.description = tr("Cria a pasta indicada e as pastas acima dela que ainda não existirem.");
    info.minimumArguments = 2;
    info.maximumArguments = 2;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int MakeFolderCommand::run(const CommandContext& context)
{
    VaultAccess access(context);
    QString path;
    const int opened =
        access.openForEntry(context.arguments.at(1), Core::VaultManager::Access::ReadWrite, path);
    if (opened != Success) {
        return opened;
    }
    Core::VaultManager& vault = access.vault();
    if (vault.fileExists(path) || vault.directoryExists(path)) {
        context.console.message(tr("Já existe um item com esse nome nesta pasta."));
        return Failed;
    }
    if (!vault.createFolder(path)) {
        context.console.message(tr("Não foi possível criar a pasta."));
        return Failed;
    }
    context.console.message(tr("Pasta criada."));
    return access.close();
}

} // namespace Velmarin::Cli
