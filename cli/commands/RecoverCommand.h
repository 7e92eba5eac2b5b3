#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Finishes or undoes a change that a pulled drive or a power cut left half done, from the journal
// beside the container; the same as unlocking in the window does, without a password.
class RecoverCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(RecoverCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
