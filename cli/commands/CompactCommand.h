#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Rebuilds the container without the data of deleted files.
class CompactCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(CompactCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
