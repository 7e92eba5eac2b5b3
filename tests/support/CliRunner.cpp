#include "CliRunner.h"

#include "TestFiles.h"

#include <QProcess>

namespace Velmarin::Tests {

namespace {

QStringList linesOf(const QByteArray& bytes)
{
    QStringList lines = QString::fromUtf8(bytes).split(QLatin1Char('\n'));
    if (!lines.isEmpty() && lines.last().isEmpty()) {
        lines.removeLast();
    }
    return lines;
}

} // namespace

QStringList CliResult::errorLines() const
{
    return linesOf(errors);
}

QStringList CliResult::outputLines() const
{
    return linesOf(output);
}

CliRunner::CliRunner(const QString& program, const QString& workingDirectory)
    : m_program(program)
    , m_workingDirectory(workingDirectory)
    , m_environment(QProcessEnvironment::systemEnvironment())
    , m_userData(std::make_shared<QTemporaryDir>())
{
    m_environment.remove(QStringLiteral("VELMARIN_PASSWORD"));
    m_environment.remove(QStringLiteral("VELMARIN_NEW_PASSWORD"));
    m_environment.remove(QStringLiteral("VELMARIN_ACCEPT_EARLIER_STATE"));
    // The states this computer saw of each container stay with the runner, out of the user's folder
    // and out of the working folder a test may import whole.
    m_environment.insert(QStringLiteral("XDG_DATA_HOME"), m_userData->path());
    // Sizes and dates follow the user's locale; the tests read them in Brazilian Portuguese.
    m_environment.remove(QStringLiteral("LC_ALL"));
    m_environment.insert(QStringLiteral("LANG"), QStringLiteral("pt_BR.UTF-8"));
}

void CliRunner::setVariable(const QString& name, const QString& value)
{
    m_environment.insert(name, value);
}

void CliRunner::unsetVariable(const QString& name)
{
    m_environment.remove(name);
}

void CliRunner::useTestPassword()
{
    setVariable(QStringLiteral("VELMARIN_PASSWORD"), QString::fromUtf8(TestFiles::password()));
}

std::unique_ptr<QProcess> CliRunner::start(const QStringList& arguments) const
{
    auto process = std::make_unique<QProcess>();
    process->setProgram(m_program);
    process->setArguments(arguments);
    process->setWorkingDirectory(m_workingDirectory);
    process->setProcessEnvironment(m_environment);
    process->start();
    return process;
}

CliResult CliRunner::run(const QStringList& arguments, const QByteArray& input) const
{
    const std::unique_ptr<QProcess> started = start(arguments);
    QProcess& process = *started;
    CliResult result;
    if (!process.waitForStarted()) {
        return result;
    }
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitCode();
    result.output = process.readAllStandardOutput();
    result.errors = process.readAllStandardError();
    return result;
}

} // namespace Velmarin::Tests
