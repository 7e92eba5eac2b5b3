#include "cli/commands/RenameCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "core/index/VaultPath.h"

namespace Velmarin::Cli {

CommandInfo RenameCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("rename");
    info.synopsis = tr("<container> <caminho-no-cofre> <nome-novo>");
    info.summary = tr("Renomeia um arquivo ou uma pasta.");
    info.description =
        tr("Dá um nome novo ao arquivo ou à pasta, que continua na mesma pasta. O nome novo é um "
           "nome simples, sem barras.");
    info.minimumArguments = 3;
    info.maximumArguments = 3;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int RenameCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    Console& console = context.console;
    const bool folder = vault.directoryExists(path);
    if (!folder && !vault.fileExists(path)) {
        console.message(FailureText::sentence(Core::Failure::Reason::NotFound, path));
        return Failed;
    }
    const QString name = context.arguments.at(2);
    if (!Core::isValidEntryName(name)) {
        console.message(folder ? FailureText::folderNameRule() : FailureText::fileNameRule());
        return UsageError;
    }
    const QString stored =
        folder ? vault.index().findDirectory(path)->path : vault.index().findFile(path)->vaultPath;
    const QString newPath = Core::joinEntryPath(Core::parentVaultPath(stored), name);
    if (vault.entryExists(newPath)) {
        console.message(FailureText::sentence(Core::Failure::Reason::AlreadyExists, newPath));
        return Failed;
    }
    const bool renamed = folder ? vault.renameFolder(stored, newPath) : vault.renameFile(stored, newPath);
    if (!renamed) {
        console.message(folder ? tr("Não foi possível renomear a pasta.")
                               : tr("Não foi possível renomear o arquivo."));
        return FailureText::report(console, vault.lastFailure(), Failed);
    }
    console.message(folder ? tr("Pasta renomeada.") : tr("Arquivo renomeado."));
    return Success;
}

} // namespace Velmarin::Cli
