#include "cli/commands/RemoveFolderCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"

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

int RemoveFolderCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault,
                                    const QString& path)
{
    if (!vault.directoryExists(path)) {
        context.console.message(FailureText::missingFolder(path));
        return Failed;
    }
    if (!vault.deleteEmptyFolder(path)) {
        context.console.message(tr("A pasta não está vazia ou não pode ser excluída."));
        return FailureText::report(context.console, vault.lastFailure(), Failed);
    }
    context.console.message(tr("Pasta excluída."));
    return Success;
}

} // namespace Velmarin::Cli
