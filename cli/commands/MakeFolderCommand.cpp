#include "cli/commands/MakeFolderCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"

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

int MakeFolderCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault,
                                  const QString& path)
{
    if (vault.entryExists(path)) {
        context.console.message(FailureText::sentence(Core::Failure::Reason::AlreadyExists, path));
        return Failed;
    }
    if (!vault.createFolder(path)) {
        context.console.message(tr("Não foi possível criar a pasta."));
        return FailureText::report(context.console, vault.lastFailure(), Failed);
    }
    context.console.message(tr("Pasta criada."));
    return Success;
}

} // namespace Velmarin::Cli
