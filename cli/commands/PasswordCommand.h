#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Core {
class VaultManager;
}

namespace Velmarin::Cli {

// Changes the password of a locked container; no file data is re-encrypted unless --rekey asks for a
// new master key.
class PasswordCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(PasswordCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;

private:
    static int rekey(const CommandContext& context, Core::VaultManager& vault, const QByteArray& current,
                     const QByteArray& replacement);
    // Says why the change failed: a wrong current password, or the reason; the exit code.
    static int explainFailure(const CommandContext& context, Core::VaultManager& vault,
                              const QByteArray& current);
};

} // namespace Velmarin::Cli
