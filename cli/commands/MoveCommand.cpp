#include "cli/commands/MoveCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/VaultAccess.h"
#include "cli/VaultArguments.h"
#include "core/index/VaultPath.h"

namespace Velmarin::Cli {

CommandInfo MoveCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("mv");
    info.synopsis = tr("<container> <caminho-no-cofre> <pasta>");
    info.summary = tr("Move um arquivo para outra pasta.");
    info.description =
        tr("Move o arquivo para a pasta indicada, com o mesmo nome. \"/\" ou \"\" indicam a raiz. "
           "Nada é substituído: um item com o mesmo nome na pasta de destino impede a mudança.");
    info.minimumArguments = 3;
    info.maximumArguments = 3;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int MoveCommand::run(const CommandContext& context)
{
    Console& console = context.console;
    QString folder;
    const int valid = VaultArguments::folderPath(console, context.arguments.at(2), folder);
    if (valid != Success) {
        return valid;
    }
    VaultAccess access(context);
    QString path;
    const int opened =
        access.openForEntry(context.arguments.at(1), Core::VaultManager::Access::ReadWrite, path);
    if (opened != Success) {
        return opened;
    }
    Core::VaultManager& vault = access.vault();
    if (!vault.fileExists(path)) {
        console.message(vault.directoryExists(path)
                            ? tr("%1 é uma pasta; somente arquivos podem ser movidos.").arg(path)
                            : tr("O arquivo %1 não existe no cofre.").arg(path));
        return Failed;
    }
    if (!folder.isEmpty() && !vault.directoryExists(folder)) {
        console.message(tr("A pasta %1 não existe no cofre.").arg(folder));
        return Failed;
    }
    const QString stored = vault.index().findFile(path)->vaultPath;
    if (Core::isSameVaultPath(Core::parentVaultPath(stored), folder)) {
        console.message(tr("O arquivo já está nessa pasta."));
        return Failed;
    }
    const QString newPath = Core::joinVaultPath(folder, Core::vaultFileName(stored));
    if (vault.fileExists(newPath) || vault.directoryExists(newPath)) {
        console.message(tr("Já existe um item com esse nome na pasta de destino."));
        return Failed;
    }
    if (!vault.moveFile(stored, folder)) {
        console.message(tr("Não foi possível mover o arquivo."));
        return Failed;
    }
    console.message(tr("Arquivo movido."));
    return access.close();
}

} // namespace Velmarin::Cli
