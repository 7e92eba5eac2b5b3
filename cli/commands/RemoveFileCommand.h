#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Deletes a file from the index; its data stays until the next compaction.
class RemoveFileCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(RemoveFileCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int entryArgument() const override { return 1; }
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
};

} // namespace Velmarin::Cli
