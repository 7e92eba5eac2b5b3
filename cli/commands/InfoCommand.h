#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// What a container's header tells without its password.
class InfoCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(InfoCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
