#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Reads back every block of every file and reports what compaction would free.
class VerifyCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(VerifyCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
