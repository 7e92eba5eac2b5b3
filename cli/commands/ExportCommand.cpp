#include "cli/commands/ExportCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/LocalTarget.h"
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

bool ExportCommand::toOutput(const CommandContext& context)
{
    return context.arguments.at(2) == QLatin1String("-");
}

int ExportCommand::checkArguments(const CommandContext& context, QString& entryPath)
{
    const int valid = VaultCommand::checkArguments(context, entryPath);
    if (valid != Success || toOutput(context)) {
        return valid;
    }
    m_destination = LocalTarget::resolve(context.arguments.at(2), Core::vaultFileName(entryPath));
    return LocalTarget::checkWritable(context.console, m_destination,
                                      context.parser.isSet(QStringLiteral("force")));
}

int ExportCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    Console& console = context.console;
    if (!vault.fileExists(path)) {
        console.message(vault.directoryExists(path)
                            ? tr("%1 é uma pasta; exporte os arquivos dela.").arg(path)
                            : tr("O arquivo %1 não existe no cofre.").arg(path));
        return Failed;
    }
    bool exported = false;
    if (toOutput(context)) {
        exported = vault.exportFile(path, &console.output()) && console.output().flush();
    } else {
        // Written beside the destination and renamed at the end: a failure leaves no half file and
        // keeps whatever --force was about to replace.
        QSaveFile file(m_destination);
        exported = file.open(QIODevice::WriteOnly) && vault.exportFile(path, &file) && file.commit();
    }
    if (!exported) {
        console.message(tr("Não foi possível exportar o arquivo."));
        return Failed;
    }
    if (!toOutput(context)) {
        console.message(tr("Arquivo exportado com sucesso."));
    }
    return Success;
}

} // namespace Velmarin::Cli
