#include "cli/commands/PasswordCommand.h"

#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/PasswordSource.h"
#include "cli/VaultAccess.h"
#include "core/vault/VaultManager.h"

#include <QCommandLineParser>
#include <QDir>

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
            .arg(Core::VaultManager::MinimumPasswordLength) +
        QStringLiteral("\n\n") +
        tr("Com --rekey, todo o cofre é recriptografado com uma chave mestra nova, num container novo "
           "montado como na compactação (dados de arquivos excluídos são descartados): a senha antiga "
           "e cabeçalhos antigos deixam de abrir o container atual. Cópias e backups antigos continuam "
           "abrindo com a senha antiga, com o conteúdo que tinham. Durante a operação, é criado "
           "temporariamente um container criptografado no disco local. Se algum arquivo estiver "
           "danificado, nada é alterado e os arquivos danificados são listados (código de saída 4).");
    info.options = {QCommandLineOption(QStringLiteral("rekey"),
                                       tr("Recriptografa todo o cofre com uma chave mestra nova."))};
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
    if (context.parser.isSet(QStringLiteral("rekey"))) {
        return rekey(context, vault, current.bytes(), replacement.bytes());
    }
    if (vault.changePassword(container, current.bytes(), replacement.bytes())) {
        console.message(tr("Senha alterada com sucesso."));
        return Success;
    }
    return explainFailure(context, vault, current.bytes());
}

int PasswordCommand::rekey(const CommandContext& context, Core::VaultManager& vault,
                           const QByteArray& current, const QByteArray& replacement)
{
    Console& console = context.console;
    QString preservedPath;
    QStringList damagedFiles;
    const bool rekeyed = vault.rekeyVault(
        context.arguments.at(0), current, replacement,
        [&](qint64 done, qint64 total, const QString& label) {
            console.progress(Core::isContainerSwap(label) ? tr("Substituindo container no USB") : label, done,
                             total);
        },
        &preservedPath, &damagedFiles);
    console.endProgress();
    // What a journal did on the way in happened before the re-key.
    const QString recovered = VaultAccess::recoveryMessage(vault.lastRecovery());
    if (!recovered.isEmpty()) {
        console.message(recovered);
    }
    if (rekeyed) {
        console.message(tr("Senha alterada e cofre recriptografado com sucesso."));
        return Success;
    }
    if (!damagedFiles.isEmpty()) {
        console.message(tr("A senha não foi alterada porque estes arquivos estão danificados:\n%1\nNada foi "
                           "alterado: o container continua como estava.")
                            .arg(damagedFiles.join(QLatin1Char('\n'))));
        return DamageFound;
    }
    if (!preservedPath.isEmpty()) {
        console.message(tr("Não foi possível substituir o container no USB.\n\nUm container recriptografado, "
                           "que abre com a nova senha, foi preservado em:\n%1")
                            .arg(QDir::toNativeSeparators(preservedPath)));
        return FailureText::report(console, vault.lastFailure(), Failed);
    }
    return explainFailure(context, vault, current);
}

int PasswordCommand::explainFailure(const CommandContext& context, Core::VaultManager& vault,
                                    const QByteArray& current)
{
    Console& console = context.console;
    const QString container = context.arguments.at(0);
    const Core::Failure failure = vault.lastFailure();
    if (VaultAccess::refuseIfInUse(console, container) != Success) {
        return InUse;
    }
    bool passwordRight = failure.reason != Core::Failure::Reason::WrongPassword;
    if (failure.reason == Core::Failure::Reason::None) {
        // No reason given: a read-only unlock tells a wrong password from a failed write.
        passwordRight = vault.unlock(container, current, Core::VaultManager::Access::ReadOnly);
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
