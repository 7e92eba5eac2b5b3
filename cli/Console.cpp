#include "Console.h"

#include "DisplayFormat.h"

#include <QCoreApplication>
#include <QFileDevice>

namespace Velmarin::Cli {

Console::Console(QFileDevice& output, QFileDevice& errors, bool errorsIsTerminal)
    : m_output(output)
    , m_errors(errors)
    , m_errorsIsTerminal(errorsIsTerminal)
{}

void Console::print(const QString& line)
{
    m_output.write(line.toUtf8() + '\n');
}

void Console::message(const QString& text)
{
    endProgress();
    writeErrors(text + QLatin1Char('\n'));
}

void Console::prompt(const QString& text)
{
    endProgress();
    writeErrors(text);
}

void Console::endPromptLine()
{
    writeErrors(QStringLiteral("\n"));
}

void Console::progress(const QString& label, qint64 done, qint64 total)
{
    if (!m_errorsIsTerminal) {
        return;
    }
    const int percent = total > 0 ? static_cast<int>(done * 100 / total) : 100;
    QString line = QCoreApplication::translate("Velmarin::Cli::Console", "%1: %2% (%3 de %4)")
                       .arg(label)
                       .arg(percent)
                       .arg(Core::formatDataSize(done), Core::formatDataSize(total));
    const qsizetype width = line.size();
    if (width < m_progressWidth) {
        line += QString(m_progressWidth - width, QLatin1Char(' '));
    }
    m_progressWidth = width;
    writeErrors(QLatin1Char('\r') + line);
}

void Console::endProgress()
{
    if (m_progressWidth > 0) {
        m_progressWidth = 0;
        writeErrors(QStringLiteral("\n"));
    }
}

QString Console::sizeWithBytes(qint64 bytes)
{
    if (bytes < 1024) {
        return Core::formatDataSize(bytes);
    }
    return QCoreApplication::translate("Velmarin::Cli::Console", "%1 (%2 bytes)")
        .arg(Core::formatDataSize(bytes))
        .arg(bytes);
}

void Console::writeErrors(const QString& text)
{
    // Data printed so far goes first, so a terminal shows both streams in the order they were written.
    m_output.flush();
    m_errors.write(text.toUtf8());
    m_errors.flush();
}

} // namespace Velmarin::Cli
