#include "cli/commands/RecoverCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/PasswordBytes.h"
#include "cli/PasswordSource.h"
#include "cli/VaultAccess.h"
#include "core/vault/RollbackRecord.h"
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
           "container compactado que ficou no computador, e remove o diário. Nenhuma senha é pedida "
           "para isso. Desbloquear o cofre na janela faz o mesmo.\nUm diário de cabeçalho só é aplicado "
           "sem senha quando o cabeçalho atual está ilegível, como um corte o deixa. Se o cabeçalho é "
           "legível e não é nenhum dos dois que o diário conhece, a senha do cofre, quando disponível, "
           "mostra onde foi o corte: se ela abre a chave do cofre mas não o índice, o corte foi no "
           "índice e o diário é aplicado. Senão, o diário é deixado onde está, pois aplicá-lo voltaria o "
           "cofre a um estado anterior. Use --force somente se você sabe que o diário é seu.");
    info.options = {QCommandLineOption(QStringLiteral("force"),
                                       tr("Aplica o diário de cabeçalho mesmo sobre um cabeçalho legível."))};
    info.passwords = CommandInfo::Passwords::Current;
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
        return proveJournal(context);
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

int RecoverCommand::proveJournal(const CommandContext& context)
{
    const QString container = context.arguments.at(0);
    Console& console = context.console;
    const auto leave = [&] {
        console.message(VaultAccess::recoveryMessage(Core::VaultManager::Recovery::JournalLeft));
        console.message(tr("Se você sabe que o diário é seu, execute \"velmarin-cli recover --force %1\" "
                           "para aplicá-lo.")
                            .arg(container));
        return Failed;
    };
    PasswordBytes password;
    bool atHand = false;
    const int read = context.passwords.currentIfAtHand(
        context.passwordFile(), tr("Senha do cofre (para conferir o diário ao lado do container): "),
        password, &atHand);
    if (read != Success) {
        return read;
    }
    if (!atHand) {
        return leave();
    }
    // The read-write unlock applies the journal only when the password opens this vault's key but
    // not the index, as a cut leaves it.
    Core::VaultManager vault(QString(), Core::RollbackRecord::defaultRoot());
    const bool unlocked = vault.unlock(container, password.bytes());
    const bool restored = vault.lastRecovery() == Core::VaultManager::Recovery::HeaderRestored;
    const bool earlier = unlocked && vault.foundEarlierState();
    const Core::Failure failure = vault.lastFailure();
    vault.lock();
    if (unlocked && !restored) {
        return leave();
    }
    if (restored) {
        console.message(VaultAccess::recoveryMessage(Core::VaultManager::Recovery::HeaderRestored));
    }
    if (earlier) {
        // Undone all the same; what comes next waits for the user's consent, as every command's does.
        console.message(VaultAccess::earlierStateMessage());
        return Failed;
    }
    if (unlocked) {
        return Success;
    }
    if (failure.reason == Core::Failure::Reason::InUse) {
        console.message(FailureText::sentence(failure.reason, container));
        return InUse;
    }
    console.message(
        tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado."));
    if (!restored) {
        console.message(VaultAccess::recoveryMessage(Core::VaultManager::Recovery::JournalLeft));
    }
    return failure.reason == Core::Failure::Reason::WrongPassword
               ? NoAccess
               : FailureText::report(console, failure, NoAccess);
}

} // namespace Velmarin::Cli
