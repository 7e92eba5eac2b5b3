#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Writes one stored file back out, to a file or to standard output.
class ExportCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(ExportCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
