#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Changes the password of a locked container; no file data is re-encrypted.
class PasswordCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(PasswordCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;
};

} // namespace Velmarin::Cli
