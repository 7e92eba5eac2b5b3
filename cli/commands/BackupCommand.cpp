#include "cli/commands/BackupCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/LocalTarget.h"
#include "cli/VaultAccess.h"
#include "core/container/ContainerBackup.h"

#include <QCommandLineParser>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>

namespace Velmarin::Cli {

CommandInfo BackupCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("backup");
    info.synopsis = tr("<container> <destino>");
    info.summary = tr("Copia o container, byte a byte, sem decifrar nada.");
    info.description = tr(
        "Copia o container para o destino, ainda criptografado; nenhuma senha é pedida. Se o destino for uma "
        "pasta, a cópia recebe o nome \"velmarin_backup_AAAA-MM-DD_HHmm.vltx\". O caminho da cópia é escrito "
        "na "
        "saída padrão.\nO backup abre com a senha que o cofre tinha no momento da cópia. O próprio container "
        "e "
        "um destino existente (sem --force) são recusados.");
    info.options = {
        QCommandLineOption(QStringLiteral("force"), tr("Substitui um arquivo que já exista no destino."))};
    info.minimumArguments = 2;
    info.maximumArguments = 2;
    return info;
}

int BackupCommand::run(const CommandContext& context)
{
    Console& console = context.console;
    const QString container = context.arguments.at(0);
    Core::ContainerHeader header;
    int checked = VaultAccess::checkContainer(console, container, header);
    checked = checked == Success ? VaultAccess::refuseIfInUse(console, container) : checked;
    if (checked != Success) {
        return checked;
    }
    const QString proposedName =
        QStringLiteral("velmarin_backup_%1.vltx")
            .arg(QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd_HHmm")));
    const QString destination = LocalTarget::resolve(context.arguments.at(1), proposedName);
    const QFileInfo destinationInfo(destination);
    if (destinationInfo.exists() &&
        destinationInfo.canonicalFilePath() == QFileInfo(container).canonicalFilePath()) {
        console.message(tr("Escolha um destino diferente do container original."));
        return UsageError;
    }
    const int writable =
        LocalTarget::checkWritable(console, destination, context.parser.isSet(QStringLiteral("force")));
    if (writable != Success) {
        return writable;
    }

    Core::ContainerBackup backup(container, destination);
    if (!backup.openSource()) {
        if (VaultAccess::refuseIfInUse(console, container) != Success) {
            return InUse;
        }
        console.message(tr("Não foi possível abrir o container para backup."));
        return Failed;
    }
    if (!backup.fitsDestination()) {
        console.message(FailureText::sentence(Core::Failure::Reason::FileTooLargeForFileSystem));
        return Failed;
    }
    if (!backup.openDestination()) {
        console.message(tr("Não foi possível criar o arquivo de backup."));
        return Failed;
    }
    const QString label = tr("Copiando backup criptografado");
    const bool copied = backup.copy([&](qint64 done, qint64 total) { console.progress(label, done, total); });
    console.endProgress();
    if (!copied) {
        console.message(backup.destinationRefusedSize()
                            ? tr("Não foi possível concluir o backup.") + QStringLiteral("\n\n") +
                                  FailureText::sentence(Core::Failure::Reason::FileTooLargeForFileSystem)
                            : tr("Não foi possível concluir o backup."));
        return Failed;
    }
    console.print(QDir::toNativeSeparators(QFileInfo(destination).absoluteFilePath()));
    console.message(
        tr("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada do container e "
           "permanece protegido pela senha do cofre."));
    return Success;
}

} // namespace Velmarin::Cli
