#pragma once

#include "cli/Command.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

namespace Velmarin::Cli {

class Console;
class PasswordSource;

// Finds the command a command line names, parses its options, answers --help and --version, and
// runs it. Every text it prints is Brazilian Portuguese, Qt's English help included.
class CommandLine
{
    Q_DECLARE_TR_FUNCTIONS(CommandLine)

public:
    CommandLine(Console& console, PasswordSource& passwords);
    ~CommandLine();

    // arguments as the process received them, program name first. Returns the exit code.
    int run(const QStringList& arguments);

private:
    const Command* find(const QString& name) const;
    Command* find(const QString& name);
    QString toolHelp() const;
    QString commandHelp(const CommandInfo& info) const;
    static QList<QCommandLineOption> optionsOf(const CommandInfo& info);
    static QString usageLine(const CommandInfo& info);
    // The parser's own error, which Qt writes in English, said again in Portuguese.
    static QString parseErrorText(const QString& englishError, const QStringList& unknownOptions);

    Console& m_console;
    PasswordSource& m_passwords;
    std::vector<std::unique_ptr<Command>> m_commands;
};

} // namespace Velmarin::Cli
