#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Creates a folder, and any missing folders above it.
class MakeFolderCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(MakeFolderCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
