#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Renames a file or a folder in place.
class RenameCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(RenameCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int entryArgument() const override { return 1; }
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
};

} // namespace Velmarin::Cli
