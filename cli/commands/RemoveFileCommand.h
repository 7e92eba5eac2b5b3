#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Deletes a file from the index; its data stays until the next compaction.
class RemoveFileCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(RemoveFileCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
