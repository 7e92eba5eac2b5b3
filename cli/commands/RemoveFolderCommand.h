#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Deletes an empty folder.
class RemoveFolderCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(RemoveFolderCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int entryArgument() const override { return 1; }
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
};

} // namespace Velmarin::Cli
