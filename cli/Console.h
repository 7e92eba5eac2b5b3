#pragma once

#include <QString>
#include <QtGlobal>

class QFileDevice;

namespace Velmarin::Cli {

// The tool's two output streams: data on one, messages and progress on the other, so a script
// can pipe the data and still see what went wrong.
class Console
{
public:
    // Progress is drawn only when errorsIsTerminal: a log file should not fill with redraws.
    Console(QFileDevice& output, QFileDevice& errors, bool errorsIsTerminal);

    QFileDevice& output() { return m_output; }
    // A line of data.
    void print(const QString& line);
    // A line for the person at the terminal; it ends any progress line first.
    void message(const QString& text);
    // Text that expects an answer on the same line.
    void prompt(const QString& text);
    void endPromptLine();

    // "<label>: 45% (1,2 MB de 2,7 MB)", redrawn in place.
    void progress(const QString& label, qint64 done, qint64 total);
    void endProgress();

    // "1,5 MB (1572864 bytes)": readable, and exact for whoever compares numbers.
    static QString sizeWithBytes(qint64 bytes);
    // text with "?" for every control character but line feed and tab, and for the marks that
    // reverse the direction of text: names come from containers, and a name must not move the
    // cursor, recolour the terminal or disguise its own extension. --json keeps names exact.
    static QString visible(const QString& text);

private:
    void writeErrors(const QString& text);

    QFileDevice& m_output;
    QFileDevice& m_errors;
    bool m_errorsIsTerminal;
    // Characters of the progress line on screen, so a shorter one can blank the rest.
    qsizetype m_progressWidth = 0;
};

} // namespace Velmarin::Cli
