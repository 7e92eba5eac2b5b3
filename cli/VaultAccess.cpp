#include "cli/VaultAccess.h"

#include "cli/Command.h"
#include "cli/Console.h"
#include "cli/ExitCode.h"
#include "cli/FailureText.h"
#include "cli/PasswordSource.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerLock.h"
#include "core/container/ContainerProbe.h"
#include "core/vault/RollbackRecord.h"

#include <QFileInfo>

namespace Velmarin::Cli {

namespace {

// Set to 1, a command goes on over a container that went back to an earlier state.
const char* const AcceptEarlierStateVariable = "VELMARIN_ACCEPT_EARLIER_STATE";

} // namespace

VaultAccess::VaultAccess(const CommandContext& context)
    : m_context(context)
    , m_vault(QString(), Core::RollbackRecord::defaultRoot())
{}

VaultAccess::~VaultAccess()
{
    m_vault.lock();
}

int VaultAccess::checkContainer(Console& console, const QString& containerPath, Core::ContainerHeader& header)
{
    const bool exists = QFileInfo::exists(containerPath);
    if (exists && Core::ContainerFile().readHeader(containerPath, header)) {
        return Success;
    }
    if (Core::VaultManager::hasInterruptedChange(containerPath)) {
        return adviseRecovery(console, containerPath);
    }
    if (!exists) {
        console.message(FailureText::sentence(Core::Failure::Reason::ContainerMissing, containerPath));
        return Failed;
    }
    // A newer version's container and a drive that would not read are not damage; say which it is.
    using Verdict = Core::ContainerProbe::Verdict;
    const Core::ContainerProbe::Finding finding = Core::ContainerProbe::probe(containerPath);
    Core::Failure failure;
    failure.path = containerPath;
    switch (finding.verdict) {
    case Verdict::Missing:
        failure.reason = Core::Failure::Reason::ContainerMissing;
        break;
    case Verdict::NewerFormat:
        failure.reason = Core::Failure::Reason::NewerFormat;
        break;
    case Verdict::Unreadable:
    case Verdict::Readable:
        failure.reason = Core::Failure::Reason::DriveRead;
        failure.systemError = finding.systemError;
        break;
    case Verdict::NotAFile:
        failure.reason = Core::Failure::Reason::NotARegularFile;
        break;
    case Verdict::NotAContainer:
        failure.reason = Core::Failure::Reason::NotAContainer;
        break;
    }
    return FailureText::report(console, failure, NoAccess);
}

int VaultAccess::adviseRecovery(Console& console, const QString& containerPath)
{
    console.message(tr("Uma alteração no cofre foi interrompida antes de terminar. Execute "
                       "\"velmarin-cli recover %1\" para restaurá-lo.")
                        .arg(containerPath));
    return Failed;
}

int VaultAccess::refuseIfInUse(Console& console, const QString& containerPath)
{
    if (!Core::ContainerLock::isInUse(containerPath)) {
        return Success;
    }
    console.message(FailureText::sentence(Core::Failure::Reason::InUse, containerPath));
    return InUse;
}

int VaultAccess::open(const QString& containerPath, Core::VaultManager::Access access)
{
    Core::ContainerHeader header;
    int checked = checkContainer(m_context.console, containerPath, header);
    // Asked before the password too, so nobody types it for a vault that cannot open now.
    checked = checked == Success ? refuseIfInUse(m_context.console, containerPath) : checked;
    if (checked != Success) {
        return checked;
    }
    PasswordBytes password;
    const int read = m_context.passwords.current(m_context.passwordFile(), tr("Senha do cofre: "), password);
    if (read != Success) {
        return read;
    }
    if (m_vault.unlock(containerPath, password.bytes(), access)) {
        tellAboutRecovery();
        return m_vault.foundEarlierState() ? handleEarlierState(access) : Success;
    }
    Console& console = m_context.console;
    const Core::Failure failure = m_vault.lastFailure();
    if (refuseIfInUse(console, containerPath) != Success) {
        return InUse;
    }
    if (m_vault.isUnlocked()) {
        console.message(tr("Não foi possível preparar a área temporária do cofre."));
        return FailureText::report(console, failure, Failed);
    }
    // A header torn in a way that still parses: the journal beside it knows the one before.
    if (Core::VaultManager::hasInterruptedChange(containerPath)) {
        return adviseRecovery(console, containerPath);
    }
    console.message(
        tr("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado."));
    // That line already says what a wrong password means.
    return failure.reason == Core::Failure::Reason::WrongPassword
               ? NoAccess
               : FailureText::report(console, failure, NoAccess);
}

QString VaultAccess::recoveryMessage(Core::VaultManager::Recovery outcome)
{
    switch (outcome) {
    case Core::VaultManager::Recovery::HeaderRestored:
        return tr("A última alteração no cofre foi interrompida e foi desfeita. O cofre voltou ao estado "
                  "anterior a ela.");
    case Core::VaultManager::Recovery::ContainerRestored:
        return tr("O container compactado foi copiado de volta do computador para o USB.");
    case Core::VaultManager::Recovery::JournalLeft:
        return tr("Há ao lado do container um diário de alteração que não corresponde a ele. Ele não foi "
                  "aplicado e foi deixado onde está: nada foi alterado no container.");
    case Core::VaultManager::Recovery::Nothing:
    case Core::VaultManager::Recovery::Failed:
        break;
    }
    return QString();
}

QString VaultAccess::earlierStateMessage()
{
    return tr("Este cofre voltou a um estado anterior ao que este computador viu por último: "
              "arquivos excluídos podem ter voltado e arquivos novos podem ter sumido. Alguém pode ter "
              "gravado no USB uma cópia antiga do container.");
}

int VaultAccess::handleEarlierState(Core::VaultManager::Access access)
{
    Console& console = m_context.console;
    console.message(earlierStateMessage());
    // Reading changes nothing; a change would build on the earlier state, so it waits for consent.
    if (access == Core::VaultManager::Access::ReadOnly) {
        return Success;
    }
    if (qEnvironmentVariable(AcceptEarlierStateVariable) == QLatin1String("1")) {
        m_vault.acceptEarlierState();
        return Success;
    }
    m_vault.lock();
    console.message(tr("Nada foi alterado. Para continuar com este estado, execute o comando de novo com a "
                       "variável %1=1.")
                        .arg(QLatin1String(AcceptEarlierStateVariable)));
    return Failed;
}

void VaultAccess::tellAboutRecovery()
{
    // What a journal did, or was kept from doing, on the way in happened before the command ran.
    const QString message = recoveryMessage(m_vault.lastRecovery());
    if (!message.isEmpty()) {
        m_context.console.message(message);
    }
}

int VaultAccess::close()
{
    if (!m_vault.lock()) {
        m_context.console.message(tr("Não foi possível limpar a área temporária."));
        return FailureText::report(m_context.console, m_vault.lastFailure(), Failed);
    }
    return Success;
}

} // namespace Velmarin::Cli
