#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Brings files and whole folder trees into the vault, as cp -r would copy them.
class ImportCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(ImportCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
