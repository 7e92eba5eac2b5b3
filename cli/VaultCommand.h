#pragma once

#include "cli/Command.h"
#include "core/vault/VaultManager.h"

#include <QString>

namespace Velmarin::Cli {

// A command that works inside the vault named first on its command line. run checks the arguments
// before any password is asked for, so a typing error costs none, unlocks, hands the vault to
// runOnVault and locks it again whatever way the command leaves.
class VaultCommand : public Command
{
public:
    // The command's exit code, or the lock's when the command succeeded and locking did not.
    int run(const CommandContext& context) final;

protected:
    static constexpr int NoEntry = -1;

    // ReadOnly for commands that change nothing, so they work beside a read-only drive.
    virtual Core::VaultManager::Access vaultAccess() const = 0;
    // The position of the argument naming the entry the command works on, or NoEntry.
    virtual int entryArgument() const { return NoEntry; }
    // Success, or the exit code after telling why. This one checks the entry argument into
    // entryPath; a command checks more by overriding it and calling it where its order wants.
    virtual int checkArguments(const CommandContext& context, QString& entryPath);
    // The work itself, on the unlocked vault; returns the exit code.
    virtual int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                           const QString& entryPath) = 0;
};

} // namespace Velmarin::Cli
