#include "cli/commands/ExportCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/LocalTarget.h"
#include "core/index/VaultPath.h"

#include <QCommandLineParser>
#include <QFileDevice>
#include <QSaveFile>

namespace Velmarin::Cli {

namespace {

// A copy the engine read well but the system would not keep, told the way the engine tells it.
Core::Failure unwritable(const QFileDevice& file)
{
    Core::Failure failure;
    failure.reason = Core::Failure::Reason::DestinationUnwritable;
    failure.path = file.fileName();
    failure.systemError = file.errorString();
    return failure;
}

} // namespace

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
                            : FailureText::missingFile(path));
        return Failed;
    }
    bool exported = false;
    Core::Failure failure;
    if (toOutput(context)) {
        QFileDevice& output = console.output();
        exported = vault.exportFile(path, &output);
        failure = vault.lastFailure();
        if (exported && !output.flush()) {
            exported = false;
            failure = unwritable(output);
        }
    } else {
        // Written beside the destination and renamed at the end: a failure leaves no half file and
        // keeps whatever --force was about to replace.
        QSaveFile file(m_destination);
        if (!file.open(QIODevice::WriteOnly)) {
            failure = unwritable(file);
        } else if (!vault.exportFile(path, &file)) {
            failure = vault.lastFailure();
        } else if (!file.flush() || !file.commit()) {
            // Flushed first: commit lets a failed flush of the buffer pass and puts a short copy in place.
            failure = unwritable(file);
        } else {
            exported = true;
        }
    }
    if (!exported) {
        console.message(tr("Não foi possível exportar o arquivo."));
        return FailureText::report(console, failure, Failed);
    }
    if (!toOutput(context)) {
        console.message(tr("Arquivo exportado com sucesso."));
    }
    return Success;
}

} // namespace Velmarin::Cli
