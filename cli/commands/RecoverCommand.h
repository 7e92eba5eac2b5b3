#pragma once

#include "cli/Command.h"

#include <QCoreApplication>

namespace Velmarin::Cli {

// Finishes or undoes a change that a pulled drive or a power cut left half done, from the journal
// beside the container; the same as unlocking in the window does, without a password unless the
// header still reads and only the password can tell whether the journal is the user's.
class RecoverCommand : public Command
{
    Q_DECLARE_TR_FUNCTIONS(RecoverCommand)

public:
    CommandInfo info() const override;
    int run(const CommandContext& context) override;

private:
    // For a journal left beside a header that reads: applied when the password opens the key but not
    // the index, otherwise left where it is, with a word on --force.
    int proveJournal(const CommandContext& context);
};

} // namespace Velmarin::Cli
