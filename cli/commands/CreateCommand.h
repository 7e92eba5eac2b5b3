#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Creates a new vault, with the window's password rule.
class CreateCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(CreateCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
