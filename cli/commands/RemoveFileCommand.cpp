#include "cli/commands/RemoveFileCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"

namespace Velmarin::Cli {

CommandInfo RemoveFileCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("rm");
    info.synopsis = tr("<container> <caminho-no-cofre>");
    info.summary = tr("Exclui um arquivo do cofre.");
    info.description =
        tr("Remove o arquivo da lista do cofre. Os dados físicos só saem do container na próxima "
           "compactação (comando compact).");
    info.minimumArguments = 2;
    info.maximumArguments = 2;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int RemoveFileCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault,
                                  const QString& path)
{
    if (!vault.fileExists(path)) {
        context.console.message(vault.directoryExists(path) ? tr("%1 é uma pasta; use rmdir.").arg(path)
                                                            : FailureText::missingFile(path));
        return Failed;
    }
    if (!vault.deleteFile(path)) {
        context.console.message(tr("Não foi possível excluir o arquivo do cofre."));
        return FailureText::report(context.console, vault.lastFailure(), Failed);
    }
    context.console.message(tr("Arquivo excluído do cofre."));
    return Success;
}

} // namespace Velmarin::Cli
