#pragma once

namespace Velmarin::Cli {

// What velmarin-cli tells the shell; scripts rely on these numbers, so they never change.
enum ExitCode : int
{
    Success = 0,
    // The command was right but could not be carried out: a missing file, an existing target,
    // a full disk, an entry the vault does not have.
    Failed = 1,
    // The command line itself is wrong: unknown command or option, wrong number of arguments, an
    // invalid vault path or name, no usable password.
    UsageError = 2,
    // Not a container, a wrong password or a container altered since it was written.
    NoAccess = 3,
    // verify read everything and found damaged files, or compact found some and changed nothing.
    DamageFound = 4,
    // Another Velmarin session (a window, another command) has the container open.
    InUse = 5
};

} // namespace Velmarin::Cli
