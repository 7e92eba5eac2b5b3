#include "cli/Console.h"

#include "core/index/ByteCount.h"
#include "core/index/DisplayFormat.h"

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
    m_output.write(visible(line).toUtf8() + '\n');
}

void Console::message(const QString& text)
{
    endProgress();
    writeErrors(visible(text) + QLatin1Char('\n'));
}

void Console::prompt(const QString& text)
{
    endProgress();
    writeErrors(visible(text));
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
    const int percent = total > 0 ? Core::scaledProgress(done, total, 100) : 100;
    QString line = QCoreApplication::translate("Velmarin::Cli::Console", "%1: %2% (%3 de %4)")
                       .arg(visible(label))
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

QString Console::visible(const QString& text)
{
    QString shown = text;
    for (QChar& character : shown) {
        const char16_t code = character.unicode();
        const bool reversesText = (code >= 0x202A && code <= 0x202E) || (code >= 0x2066 && code <= 0x2069);
        const bool control = character.category() == QChar::Other_Control && code != u'\n' && code != u'\t';
        if (control || reversesText) {
            character = QLatin1Char('?');
        }
    }
    return shown;
}

void Console::writeErrors(const QString& text)
{
    // Data printed so far goes first, so a terminal shows both streams in the order they were written.
    m_output.flush();
    m_errors.write(text.toUtf8());
    m_errors.flush();
}

} // namespace Velmarin::Cli
