#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// A byte-for-byte copy of the container, still encrypted, made without its password.
class BackupCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(BackupCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
