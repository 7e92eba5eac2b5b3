#include "cli/commands/RecoverCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/VaultAccess.h"
#include "core/vault/VaultManager.h"

#include <QCommandLineParser>
#include <QFileInfo>

namespace Velmarin::Cli {

CommandInfo RecoverCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("recover");
    info.synopsis = tr("<container>");
    info.summary = tr("Restaura o cofre depois de uma alteração interrompida.");
    info.description =
        tr("Enquanto uma alteração é gravada, um diário ao lado do container (o mesmo nome terminado "
           "em .journal) guarda o que é preciso para desfazê-la. Se o USB foi removido ou faltou "
           "energia no meio dela, este comando devolve o cabeçalho anterior ou copia de volta o "
           "container compactado que ficou no computador, e remove o diário. Nenhuma senha é pedida. "
           "Desbloquear o cofre na janela faz o mesmo.\nUm diário de cabeçalho só é aplicado sozinho quando "
           "o cabeçalho atual está ilegível, como um corte o deixa: se o cabeçalho é legível e não é nenhum "
           "dos dois que o diário conhece, o diário é deixado onde está, pois aplicá-lo voltaria o cofre a "
           "um estado anterior. Use --force somente se você sabe que o diário é seu.");
    info.options = {QCommandLineOption(QStringLiteral("force"),
                                       tr("Aplica o diário de cabeçalho mesmo sobre um cabeçalho legível."))};
    return info;
}

int RecoverCommand::run(const CommandContext& context)
{
    const QString container = context.arguments.at(0);
    Console& console = context.console;
    if (!QFileInfo::exists(container) && !Core::VaultManager::hasInterruptedChange(container)) {
        console.message(FailureText::sentence(Core::Failure::Reason::ContainerMissing, container));
        return Failed;
    }
    if (VaultAccess::refuseIfInUse(console, container) != Success) {
        return InUse;
    }
    Core::VaultManager vault;
    const Core::VaultManager::Recovery outcome =
        vault.recover(container, context.parser.isSet(QStringLiteral("force")));
    switch (outcome) {
    case Core::VaultManager::Recovery::Nothing:
        console.message(tr("Nada a restaurar: nenhuma alteração foi interrompida."));
        return Success;
    case Core::VaultManager::Recovery::HeaderRestored:
    case Core::VaultManager::Recovery::ContainerRestored:
        console.message(VaultAccess::recoveryMessage(outcome));
        return Success;
    case Core::VaultManager::Recovery::JournalLeft:
        console.message(VaultAccess::recoveryMessage(outcome));
        console.message(tr("Se você sabe que o diário é seu, execute \"velmarin-cli recover --force %1\" "
                           "para aplicá-lo.")
                            .arg(container));
        return Failed;
    case Core::VaultManager::Recovery::Failed:
        break;
    }
    const Core::Failure failure = vault.lastFailure();
    if (VaultAccess::refuseIfInUse(console, container) != Success) {
        return InUse;
    }
    console.message(tr("Não foi possível restaurar o cofre. O container e o diário ao lado dele "
                       "foram deixados como estavam."));
    // That line is what an interrupted change that could not be undone means.
    return failure.reason == Core::Failure::Reason::InterruptedChange
               ? Failed
               : FailureText::report(console, failure, Failed);
}

} // namespace Velmarin::Cli
