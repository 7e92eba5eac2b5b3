#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// The folders and files of a vault folder, folders first, as the window lists them.
class ListCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(ListCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
