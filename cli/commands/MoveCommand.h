#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Moves a file into another folder, keeping its name.
class MoveCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(MoveCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
