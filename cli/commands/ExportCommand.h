#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Writes one stored file back out, to a file or to standard output.
class ExportCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(ExportCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadOnly; }
    int entryArgument() const override { return 1; }
    int checkArguments(const CommandContext& context, QString& entryPath) override;
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
    // "-" writes the file to standard output.
    static bool toOutput(const CommandContext& context);

    // The file to write, when not standard output; found while checking the arguments.
    QString m_destination;
};

} // namespace Velmarin::Cli
