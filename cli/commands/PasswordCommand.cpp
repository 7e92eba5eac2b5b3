#include "cli/commands/PasswordCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/PasswordSource.h"
#include "cli/VaultAccess.h"

namespace Velmarin::Cli {

CommandInfo PasswordCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("passwd");
    info.synopsis = tr("<container>");
    info.summary = tr("Altera a senha do cofre.");
    info.description =
        tr("Troca a senha do cofre sem recifrar os arquivos: só a chave mestra é protegida de novo. "
           "A senha nova deve ter pelo menos %1 caracteres. Backups feitos antes continuam abrindo "
           "com a senha antiga.")
            .arg(Core::VaultManager::MinimumPasswordLength);
    info.passwords = CommandInfo::Passwords::CurrentAndNew;
    return info;
}

int PasswordCommand::run(const CommandContext& context)
{
    Console& console = context.console;
    const QString container = context.arguments.at(0);
    Core::ContainerHeader header;
    int checked = VaultAccess::checkContainer(console, container, header);
    checked = checked == Success ? VaultAccess::refuseIfInUse(console, container) : checked;
    if (checked != Success) {
        return checked;
    }
    PasswordBytes current;
    int read = context.passwords.current(context.passwordFile(), tr("Senha atual: "), current);
    if (read != Success) {
        return read;
    }
    PasswordBytes replacement;
    const PasswordSource::NewPasswordPrompts prompts{tr("Nova senha: "), tr("Confirmar nova senha: "),
                                                     tr("A confirmação não coincide com a nova senha.")};
    read = context.passwords.fresh(context.newPasswordFile(), prompts, replacement);
    if (read != Success) {
        return read;
    }
    if (!Core::VaultManager::isPasswordAcceptable(replacement.bytes())) {
        console.message(tr("Use uma nova senha com pelo menos %1 caracteres.")
                            .arg(Core::VaultManager::MinimumPasswordLength));
        return UsageError;
    }

    Core::VaultManager vault;
    if (vault.changePassword(container, current.bytes(), replacement.bytes())) {
        console.message(tr("Senha alterada com sucesso."));
        return Success;
    }
    const Core::Failure failure = vault.lastFailure();
    if (VaultAccess::refuseIfInUse(console, container) != Success) {
        return InUse;
    }
    bool passwordRight = failure.reason != Core::Failure::Reason::WrongPassword;
    if (failure.reason == Core::Failure::Reason::None) {
        // No reason given: a read-only unlock tells a wrong password from a failed write.
        passwordRight = vault.unlock(container, current.bytes(), Core::VaultManager::Access::ReadOnly);
        vault.lock();
    }
    if (!passwordRight) {
        console.message(tr("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
        return NoAccess;
    }
    console.message(tr("Falha ao alterar a senha."));
    return FailureText::report(console, failure, Failed);
}

} // namespace Velmarin::Cli
