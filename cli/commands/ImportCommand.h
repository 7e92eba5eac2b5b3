#pragma once

#include "cli/ExitCode.h"
#include "cli/VaultCommand.h"

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
    // One thing to bring in: a folder to create or a file to import, with the vault path it gets.
    struct Item
    {
        QString localPath;
        QString vaultPath;
        bool folder = false;
        qint64 size = 0;
    };

    Core::VaultManager::Access vaultAccess() const override { return Core::VaultManager::Access::ReadWrite; }
    int checkArguments(const CommandContext& context, QString& entryPath) override;
    int runOnVault(const CommandContext& context, Core::VaultManager& vault,
                   const QString& entryPath) override;

    QList<Item> m_items;
    // Failed when the plan left out an entry whose name the vault cannot take.
    int m_planned = Success;
};

} // namespace Velmarin::Cli
