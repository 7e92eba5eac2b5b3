#pragma once

#include "core/container/ContainerHeader.h"
#include "core/vault/VaultManager.h"

#include <QCoreApplication>
#include <QString>

namespace Velmarin::Cli {

class Console;
struct CommandContext;

// Opens the container a command names: checks the file, reads the password, unlocks, and locks
// again when the command is done, whatever way it leaves.
class VaultAccess
{
    Q_DECLARE_TR_FUNCTIONS(VaultAccess)

public:
    explicit VaultAccess(const CommandContext& context);
    ~VaultAccess();
    VaultAccess(const VaultAccess&) = delete;
    VaultAccess& operator=(const VaultAccess&) = delete;

    // ExitCode::Success once unlocked, or the code to exit with after telling why.
    int open(const QString& containerPath, Core::VaultManager::Access access);
    // Success, or Failed after telling why.
    int close();

    Core::VaultManager& vault() { return m_vault; }

    // Success when the file exists and its header reads. Otherwise, after telling why: Failed for a
    // change cut short beside it (see adviseRecovery), a missing file or one the drive would not
    // read; NoAccess for a container of a newer version or anything else.
    static int checkContainer(Console& console, const QString& containerPath, Core::ContainerHeader& header);
    // InUse, with its message, when another Velmarin session holds the container; Success otherwise.
    static int refuseIfInUse(Console& console, const QString& containerPath);
    // Says that a change was cut short and how to put the vault right; Failed.
    static int adviseRecovery(Console& console, const QString& containerPath);
    // What a recovery put back or left alone, for the user; empty when there is nothing to tell.
    static QString recoveryMessage(Core::VaultManager::Recovery outcome);
    // The warning for a container put back to a state before the newest this computer saw.
    static QString earlierStateMessage();

private:
    void tellAboutRecovery();
    // Warns that the container went back to a state this computer saw before; a command that would
    // change it stops unless the user accepted that state. Success or Failed.
    int handleEarlierState(Core::VaultManager::Access access);

    const CommandContext& m_context;
    Core::VaultManager m_vault;
};

} // namespace Velmarin::Cli
