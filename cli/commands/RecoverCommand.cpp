#include "cli/commands/RecoverCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/VaultAccess.h"
#include "core/vault/VaultManager.h"

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
           "Desbloquear o cofre na janela faz o mesmo.");
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
    switch (vault.recover(container)) {
    case Core::VaultManager::Recovery::Nothing:
        console.message(tr("Nada a restaurar: nenhuma alteração foi interrompida."));
        return Success;
    case Core::VaultManager::Recovery::HeaderRestored:
        console.message(tr("A última alteração no cofre foi interrompida e foi desfeita. O cofre voltou "
                           "ao estado anterior a ela."));
        return Success;
    case Core::VaultManager::Recovery::ContainerRestored:
        console.message(tr("O container compactado foi copiado de volta do computador para o USB."));
        return Success;
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
