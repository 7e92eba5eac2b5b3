#pragma once

#include "cli/ExitCode.h"
#include "cli/VaultCommand.h"
#include "core/vault/ImportItem.h"

#include <QCoreApplication>
#include <QList>
#include <QString>

namespace Velmarin::Cli {

// Brings files and whole folder trees into the vault, as cp -r would copy them.
class ImportCommand : public VaultCommand
{
    Q_DECLARE_TR_FUNCTIONS(ImportCommand)

public:
    CommandInfo info() const override;

private:
    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int checkArguments(const CommandContext& context, QString& entryPath) override;
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;
    // The index's room and the drive's free space for the whole plan, told when short.
    bool hasRoom(const CommandContext& context, Core::VaultManager& vault) const;

    // Each folder to create and file to import, with the vault path it gets, folders first.
    QList<Core::ImportItem> m_items;
    // Failed when the plan left out an entry whose name the vault cannot take.
    int m_planned = Success;
};

} // namespace Velmarin::Cli
