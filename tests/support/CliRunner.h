#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

#include <memory>

class QProcess;

namespace Velmarin::Tests {

// What one run of velmarin-cli left behind.
struct CliResult
{
    int exitCode = -1;
    QByteArray output;
    QByteArray errors;

    // Standard error as text, one entry per line, without the final empty one.
    QStringList errorLines() const;
    QStringList outputLines() const;
};

// Runs the real velmarin-cli in a child process, the way a script would: standard input is a pipe
// (never a terminal), and neither password variable comes from the test's own environment.
class CliRunner
{
public:
    CliRunner(const QString& program, const QString& workingDirectory);

    void setVariable(const QString& name, const QString& value);
    void unsetVariable(const QString& name);
    // Sets VELMARIN_PASSWORD to the test vaults' password.
    void useTestPassword();

    CliResult run(const QStringList& arguments, const QByteArray& input = {}) const;
    // Starts the tool and leaves it running; its output waits in the pipe until the caller reads it.
    std::unique_ptr<QProcess> start(const QStringList& arguments) const;

private:
    QString m_program;
    QString m_workingDirectory;
    QProcessEnvironment m_environment;
    // Shared by copies of the runner, which stand for the same user.
    std::shared_ptr<QTemporaryDir> m_userData;
};

} // namespace Velmarin::Tests
