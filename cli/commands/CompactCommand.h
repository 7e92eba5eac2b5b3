#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Rebuilds the container without the data of deleted files.
class CompactCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(CompactCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
};

} // namespace Velmarin::Cli
