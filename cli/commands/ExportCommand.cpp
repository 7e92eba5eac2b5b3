#include "cli/commands/ExportCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/LocalTarget.h"
#include "cli/VaultAccess.h"
#include "cli/VaultArguments.h"
#include "core/index/VaultPath.h"

#include <QCommandLineParser>
#include <QFileDevice>
#include <QSaveFile>

namespace Velmarin::Cli {

CommandInfo ExportCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("export");
    info.synopsis = tr("<container> <caminho-no-cofre> <destino>");
    info.summary = tr("Exporta um arquivo do cofre.");
    info.description =
        tr("Grava uma cópia descriptografada do arquivo no destino: um arquivo, uma pasta (a cópia "
           "recebe o nome do arquivo) ou \"-\" para a saída padrão.\nUm destino existente só é "
           "substituído com --force; uma exportação que falha não deixa arquivo pela metade.");
    info.options = {
        QCommandLineOption(QStringLiteral("force"), tr("Substitui um arquivo que já exista no destino."))};
    info.minimumArguments = 3;
    info.maximumArguments = 3;
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int ExportCommand::run(const CommandContext& context)
{
    Console& console = context.console;
    QString path;
    const int valid = VaultArguments::entryPath(console, context.arguments.at(1), path);
    if (valid != Success) {
        return valid;
    }
    const bool toOutput = context.arguments.at(2) == QLatin1String("-");
    const QString destination = LocalTarget::resolve(context.arguments.at(2), Core::vaultFileName(path));
    if (!toOutput) {
        const int writable =
            LocalTarget::checkWritable(console, destination, context.parser.isSet(QStringLiteral("force")));
        if (writable != Success) {
            return writable;
        }
    }

    VaultAccess access(context);
    const int opened = access.open(context.arguments.at(0), Core::VaultManager::Access::ReadOnly);
    if (opened != Success) {
        return opened;
    }
    Core::VaultManager& vault = access.vault();
    if (!vault.fileExists(path)) {
        console.message(vault.directoryExists(path)
                            ? tr("%1 é uma pasta; exporte os arquivos dela.").arg(path)
                            : tr("O arquivo %1 não existe no cofre.").arg(path));
        return Failed;
    }
    bool exported = false;
    if (toOutput) {
        exported = vault.exportFile(path, &console.output()) && console.output().flush();
    } else {
        // Written beside the destination and renamed at the end: a failure leaves no half file and
        // keeps whatever --force was about to replace.
        QSaveFile file(destination);
        exported = file.open(QIODevice::WriteOnly) && vault.exportFile(path, &file) && file.commit();
    }
    if (!exported) {
        console.message(tr("Não foi possível exportar o arquivo."));
        return Failed;
    }
    if (!toOutput) {
        console.message(tr("Arquivo exportado com sucesso."));
    }
    return access.close();
}

} // namespace Velmarin::Cli
