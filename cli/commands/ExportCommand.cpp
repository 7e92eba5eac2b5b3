#include "cli/commands/ExportCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/LocalTarget.h"
#include "cli/VaultArguments.h"
#include "core/index/VaultPath.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileDevice>
#include <QFileInfo>
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
    info.summary = tr("Exporta um arquivo ou uma pasta do cofre.");
    info.description =
        tr("Grava uma cópia descriptografada do arquivo no destino: um arquivo, uma pasta (a cópia "
           "recebe o nome do arquivo) ou \"-\" para a saída padrão.\nUm destino existente só é "
           "substituído com --force; uma exportação que falha não deixa arquivo pela metade.") +
        QLatin1Char('\n') +
        tr("Uma pasta é exportada com toda a sua árvore, como cp -r: se o destino for uma pasta que já "
           "existe, a pasta do cofre entra nela com o próprio nome; senão, o destino é criado e recebe o "
           "conteúdo dela. \"/\" exporta o cofre inteiro para dentro do destino. Sem --force, os arquivos "
           "que já existem no destino são mantidos e informados; um arquivo que não pode ser exportado é "
           "informado e os demais continuam.");
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
    // "/" is the whole vault; what else the path names is known once the vault is open.
    const int valid = VaultArguments::folderPath(context.console, context.arguments.at(1), entryPath);
    if (valid != Success || toOutput(context)) {
        return valid;
    }
    // A file and a folder land in the same place: the argument, or inside it under their own name.
    m_destination = entryPath.isEmpty()
                        ? context.arguments.at(2)
                        : LocalTarget::resolve(context.arguments.at(2), Core::vaultFileName(entryPath));
    return LocalTarget::checkFolderExists(context.console, m_destination);
}

int ExportCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    if (path.isEmpty() || (!vault.fileExists(path) && vault.directoryExists(path))) {
        return exportFolder(context, vault, path);
    }
    if (!vault.fileExists(path)) {
        context.console.message(FailureText::missingFile(path));
        return Failed;
    }
    if (!toOutput(context)) {
        const int writable = LocalTarget::checkWritable(context.console, m_destination,
                                                        context.parser.isSet(QStringLiteral("force")));
        if (writable != Success) {
            return writable;
        }
    }
    return exportFile(context, vault, path);
}

int ExportCommand::exportFile(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    Console& console = context.console;
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

int ExportCommand::exportFolder(const CommandContext& context, Core::VaultManager& vault, const QString& path)
{
    Console& console = context.console;
    if (toOutput(context)) {
        console.message(tr("Uma pasta não pode ser exportada para a saída padrão."));
        return UsageError;
    }
    const QFileInfo target(m_destination);
    if (target.exists() && !target.isDir()) {
        console.message(
            tr("O destino já existe e não é uma pasta: %1").arg(QDir::toNativeSeparators(m_destination)));
        return Failed;
    }
    const bool force = context.parser.isSet(QStringLiteral("force"));
    int result = Success;
    Core::FolderExport::Handler handler;
    handler.existing = [&](const QString&, const QString& file) {
        if (force) {
            return Core::FolderExport::Answer::OverwriteAll;
        }
        console.message(LocalTarget::existsText(file));
        return Core::FolderExport::Answer::Skip;
    };
    handler.failed = [&](const QString& vaultPath, bool isFolder, const Core::Failure& failure) {
        console.message(isFolder ? tr("Não foi possível criar a pasta %1.").arg(vaultPath)
                                 : tr("Não foi possível exportar %1.").arg(vaultPath));
        int code = Failed;
        if (failure.reason == Core::Failure::Reason::NameNotAllowed) {
            console.message(FailureText::outsideDestination(vaultPath));
        } else {
            code = FailureText::report(console, failure, Failed);
        }
        if (result == Success) {
            result = code;
        }
    };
    handler.progress = [&](qint64 done, qint64 total, const QString& label) {
        console.progress(tr("Exportando %1").arg(label), done, total);
    };
    Core::FolderExport::Outcome outcome;
    const bool started = vault.exportFolder(path, m_destination, handler, outcome);
    console.endProgress();
    if (!started) {
        console.message(tr("Não foi possível exportar a pasta."));
        return FailureText::report(console, vault.lastFailure(), Failed);
    }

    const int files = outcome.files;
    console.message(files == 0   ? tr("Nenhum arquivo exportado.")
                    : files == 1 ? tr("1 arquivo exportado com sucesso.")
                                 : tr("%1 arquivos exportados com sucesso.").arg(files));
    if (outcome.skipped > 0) {
        console.message(
            outcome.skipped == 1
                ? tr("1 arquivo não foi exportado por já existir no destino.")
                : tr("%1 arquivos não foram exportados por já existirem no destino.").arg(outcome.skipped));
        if (result == Success) {
            result = Failed;
        }
    }
    const qsizetype failed = outcome.failed.size();
    if (failed > 0) {
        console.message(failed == 1 ? tr("1 item não pôde ser exportado.")
                                    : tr("%1 itens não puderam ser exportados.").arg(failed));
    }
    return result;
}

} // namespace Velmarin::Cli
