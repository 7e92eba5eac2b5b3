#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// The folders and files of a vault folder, folders first, as the window lists them.
class ListCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(ListCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadOnly; }
    int checkArguments(const CommandContext& context, QString& entryPath) override;
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
};

} // namespace Velmarin::Cli
