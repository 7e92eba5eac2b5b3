#include "cli/commands/CompactCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "core/index/DisplayFormat.h"

#include <QDir>
#include <QFileInfo>

namespace Velmarin::Cli {

CommandInfo CompactCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("compact");
    info.synopsis = tr("<container>");
    info.summary = tr("Compacta o cofre, removendo dados de arquivos excluídos.");
    info.description =
        tr("Reconstrói o container sem os dados de arquivos já excluídos, conferindo a autenticação de cada "
           "bloco copiado. Durante a operação, é criado temporariamente um container criptografado no disco "
           "local; nenhum arquivo descriptografado é gravado fora do cofre. Se algum arquivo estiver "
           "danificado, nada é alterado e os arquivos danificados são listados (código de saída 4). Se a "
           "cópia final para o container falhar, o container compactado é preservado e o caminho dele é "
           "informado.");
    info.passwords = CommandInfo::Passwords::Current;
    return info;
}

int CompactCommand::runOnVault(const CommandContext& context, Core::VaultManager& vault, const QString&)
{
    Console& console = context.console;
    const QString container = context.arguments.at(0);
    const qint64 sizeBefore = QFileInfo(container).size();
    QString preservedPath;
    QStringList damagedFiles;
    const bool compacted = vault.compactVault(
        [&](qint64 done, qint64 total, const QString& label) {
            console.progress(Core::isContainerSwap(label) ? tr("Substituindo container no USB") : label, done,
                             total);
        },
        &preservedPath, &damagedFiles);
    console.endProgress();
    if (!damagedFiles.isEmpty()) {
        console.message(
            tr("O cofre não foi compactado porque estes arquivos estão danificados:\n%1\nNada foi "
               "alterado: o container continua como estava.")
                .arg(damagedFiles.join(QLatin1Char('\n'))));
        return DamageFound;
    }
    if (!compacted) {
        console.message(preservedPath.isEmpty()
                            ? tr("Não foi possível compactar o cofre.")
                            : tr("Não foi possível substituir o container no USB.\n\nUm container compactado "
                                 "criptografado foi preservado em:\n%1")
                                  .arg(QDir::toNativeSeparators(preservedPath)));
        return FailureText::report(console, vault.lastFailure(), Failed, FailureText::Damage::IsFinding);
    }
    const qint64 freed = qMax<qint64>(0, sizeBefore - QFileInfo(container).size());
    console.message(tr("Cofre compactado com sucesso."));
    console.message(tr("Espaço liberado: %1.").arg(Core::formatDataSize(freed)));
    return Success;
}

} // namespace Velmarin::Cli
