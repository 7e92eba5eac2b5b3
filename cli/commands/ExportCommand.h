#pragma once

#include "cli/VaultCommand.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Writes one stored file back out, to a file or to standard output, or a folder with its whole tree
// into a folder, the way cp -r copies one.
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
    int exportFile(const CommandContext& context, Core::VaultManager& vault, const QString& path);
    int exportFolder(const CommandContext& context, Core::VaultManager& vault, const QString& path);
    // "-" writes the file to standard output.
    static bool toOutput(const CommandContext& context);

    // The file to write, or the folder that receives a folder's contents, when not standard output;
    // found while checking the arguments.
    QString m_destination;
};

} // namespace Velmarin::Cli
