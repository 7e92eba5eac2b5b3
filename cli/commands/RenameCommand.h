#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Renames a file or a folder in place.
class RenameCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(RenameCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
