// velmarin-cli: start-up only; the commands live in CommandLine and commands/.
#include "cli/CommandLine.h"
#include "cli/Console.h"
#include "cli/PasswordSource.h"
#include "cli/TerminalInput.h"
#include "core/crypto/ProcessProtection.h"

#include <QCoreApplication>
#include <QFile>

#include <cstdio>

#ifdef _WIN32
#include <fcntl.h>
#include <io.h>
#endif

int main(int argc, char* argv[])
{
    // Before any argument or password is read: from here on a crash leaves no core file behind.
    Velmarin::Core::ProcessProtection::disableCoreDumps();
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("velmarin-cli"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELMARIN_VERSION));
    QCoreApplication::setOrganizationName(QStringLiteral("Velmarin"));

#ifdef _WIN32
    // An export to standard output is binary: no line-end translation may touch it.
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stdin), _O_BINARY);
#endif
    QFile output;
    QFile errors;
    if (!output.open(stdout, QIODevice::WriteOnly) || !errors.open(stderr, QIODevice::WriteOnly)) {
        return 1;
    }
    using Velmarin::Cli::TerminalInput;
    Velmarin::Cli::Console console(output, errors, TerminalInput::isTerminal(TerminalInput::Stream::Errors));
    Velmarin::Cli::PasswordSource passwords(console,
                                            &Velmarin::Cli::PasswordSource::takeFromProcessEnvironment,
                                            TerminalInput::isTerminal(TerminalInput::Stream::Input));
    Velmarin::Cli::CommandLine commandLine(console, passwords);
    const int code = commandLine.run(QCoreApplication::arguments());
    output.flush();
    errors.flush();
    return code;
}
