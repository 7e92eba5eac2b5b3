#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Deletes an empty folder.
class RemoveFolderCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(RemoveFolderCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
