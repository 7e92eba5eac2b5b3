#include "cli/commands/MoveCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
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

int MoveCommand::checkArguments(const CommandContext& context, QString& entryPath)
{
    // The destination before the file: with both mistyped, the destination is the one named.
    const int valid = VaultArguments::folderPath(context.console, context.arguments.at(2), m_folder);
    return valid != Success ? valid : VaultCommand::checkArguments(context, entryPath);
}

int MoveCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    Console& console = context.console;
    if (!vault.fileExists(path)) {
        console.message(vault.directoryExists(path)
                            ? tr("%1 é uma pasta; somente arquivos podem ser movidos.").arg(path)
                            : FailureText::missingFile(path));
        return Failed;
    }
    if (!m_folder.isEmpty() && !vault.directoryExists(m_folder)) {
        console.message(FailureText::missingFolder(m_folder));
        return Failed;
    }
    const QString stored = vault.index().findFile(path)->vaultPath;
    if (Core::isSameVaultPath(Core::parentVaultPath(stored), m_folder)) {
        console.message(tr("O arquivo já está nessa pasta."));
        return Failed;
    }
    const QString newPath = Core::joinVaultPath(m_folder, Core::vaultFileName(stored));
    if (vault.entryExists(newPath)) {
        console.message(tr("Já existe um item com esse nome na pasta de destino."));
        return Failed;
    }
    if (!vault.moveFile(stored, m_folder)) {
        console.message(tr("Não foi possível mover o arquivo."));
        return FailureText::report(console, vault.lastFailure(), Failed);
    }
    console.message(tr("Arquivo movido."));
    return Success;
}

} // namespace Velmarin::Cli
