#include "cli/commands/CreateCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/LocalTarget.h"
#include "cli/PasswordSource.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QCommandLineParser>

namespace Velmarin::Cli {

CommandInfo CreateCommand::info() const
{
    CommandInfo info;
    info.name = QStringLiteral("create");
    info.synopsis = tr("<container>");
    info.summary = tr("Cria um cofre novo.");
    info.description = tr("Cria um cofre vazio no arquivo indicado. Se for indicada uma pasta, o cofre é "
                          "criado nela como \"velmarin.vltx\".\n%1")
                           .arg(FailureText::sentence(Core::Failure::Reason::PasswordTooShort));
    info.options = {
        QCommandLineOption(QStringLiteral("force"), tr("Substitui um arquivo que já exista no destino."))};
    info.passwords = CommandInfo::Passwords::New;
    return info;
}

int CreateCommand::run(const CommandContext& context)
{
    const QString container =
        LocalTarget::resolve(context.arguments.at(0), Core::ContainerFile::DefaultFileName);
    const int writable =
        LocalTarget::checkWritable(context.console, container, context.parser.isSet(QStringLiteral("force")));
    if (writable != Success) {
        return writable;
    }
    PasswordBytes password;
    const PasswordSource::NewPasswordPrompts prompts{tr("Definir senha do cofre: "),
                                                     tr("Confirmar senha do cofre: "),
                                                     tr("As senhas informadas não coincidem.")};
    const int read = context.passwords.fresh(context.newPasswordFile(), prompts, password);
    if (read != Success) {
        return read;
    }
    if (!Core::VaultManager::isPasswordAcceptable(password.bytes())) {
        context.console.message(tr("Use uma senha com pelo menos %1 caracteres para criar o cofre.")
                                    .arg(Core::VaultManager::MinimumPasswordLength));
        return UsageError;
    }
    Core::VaultManager vault;
    if (!vault.createVault(container, password.bytes())) {
        context.console.message(tr("Não foi possível criar o cofre."));
        return FailureText::report(context.console, vault.lastFailure(), Failed);
    }
    context.console.message(tr("Cofre criado com sucesso."));
    return Success;
}

} // namespace Velmarin::Cli
