#pragma once

#include "cli/PasswordBytes.h"

#include <QCoreApplication>
#include <QString>

#include <functional>

namespace Velmarin::Cli {

class Console;

// Where a password comes from, first match wins: a file named on the command line ("-" is standard
// input), then an environment variable, then a prompt without echo when standard input is a
// terminal. Passwords never come from arguments, which any user can read in the process list.
class PasswordSource
{
    Q_DECLARE_TR_FUNCTIONS(PasswordSource)

public:
    // Reads one environment variable, null when it is not set; the bytes it returns are wiped after use.
    using Environment = std::function<QByteArray(const char* name)>;
    // The texts of the terminal prompts for a new password.
    struct NewPasswordPrompts
    {
        QString first;
        QString confirmation;
        QString mismatch;
    };

    PasswordSource(Console& console, Environment environment, bool inputIsTerminal);

    // An Environment over this process's own variables. Each one read is overwritten in place and
    // unset: /proc/<pid>/environ and a core file would otherwise show it while the process runs.
    static QByteArray takeFromProcessEnvironment(const char* name);

    // Each returns ExitCode::Success with password filled, or the code to exit with after telling why.
    int current(const QString& passwordFile, const QString& prompt, PasswordBytes& password);
    // The same for a password the command can do without: with no file, no variable and no
    // terminal, atHand is false and Success comes back with nothing said.
    int currentIfAtHand(const QString& passwordFile, const QString& prompt, PasswordBytes& password,
                        bool* atHand);
    int fresh(const QString& passwordFile, const NewPasswordPrompts& prompts, PasswordBytes& password);

private:
    int fromFile(const QString& path, PasswordBytes& password);
    // False when the variable is not set at all; otherwise code tells how reading it went.
    bool fromEnvironment(const char* name, PasswordBytes& password, int& code);
    int fromTerminal(const QString& prompt, PasswordBytes& password);

    Console& m_console;
    Environment m_environment;
    bool m_inputIsTerminal;
    // Standard input holds one password at most; a second "-" would read nothing.
    bool m_standardInputUsed = false;
};

} // namespace Velmarin::Cli
