#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Moves a file into another folder, keeping its name.
class MoveCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(MoveCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int entryArgument() const override { return 1; }
    int checkArguments(const CommandContext& context, QString& entryPath) override;
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;

    // The folder the file goes to, "" for the root.
    QString m_folder;
};

} // namespace Velmarin::Cli
