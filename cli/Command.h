#pragma once

#include <QCommandLineOption>
#include <QList>
#include <QString>
#include <QStringList>

class QCommandLineParser;

namespace Velmarin::Cli {

class Console;
class PasswordSource;

// What the tool's help and its parser need to know about one command.
struct CommandInfo
{
    enum class Passwords
    {
        None,
        Current,
        New,
        CurrentAndNew
    };

    QString name;
    // The arguments after the command, as the usage line shows them.
    QString synopsis;
    // One line in the tool's list of commands.
    QString summary;
    // The paragraphs of the command's own help.
    QString description;
    QList<QCommandLineOption> options;
    int minimumArguments = 1;
    // -1 takes any number.
    int maximumArguments = 1;
    Passwords passwords = Passwords::None;
};

// Everything one run of a command works with; the command reads nothing global.
struct CommandContext
{
    const QCommandLineParser& parser;
    // The positional arguments, the container first.
    QStringList arguments;
    Console& console;
    PasswordSource& passwords;

    QString passwordFile() const;
    QString newPasswordFile() const;
};

// One velmarin-cli command: a thin layer that checks its arguments, calls the engine and reports.
class Command
{
public:
    virtual ~Command() = default;
    virtual CommandInfo info() const = 0;
    // Returns the process's exit code.
    virtual int run(const CommandContext& context) = 0;
};

} // namespace Velmarin::Cli
