#include "BenchTable.h"

#include <QTextStream>

namespace Velmarin::Bench {

void BenchTable::add(const QString& measure, const QString& value, const QString& comparison)
{
    m_rows.append(Row{measure, value, comparison});
}

void BenchTable::print(QTextStream& out) const
{
    const Row heading{QStringLiteral("Measure"), QStringLiteral("Value"),
                      QStringLiteral("Bound or comparison")};
    qsizetype widths[3] = {heading.measure.size(), heading.value.size(), heading.comparison.size()};
    for (const Row& row : m_rows) {
        widths[0] = qMax(widths[0], row.measure.size());
        widths[1] = qMax(widths[1], row.value.size());
        widths[2] = qMax(widths[2], row.comparison.size());
    }
    const auto line = [&](const Row& row) {
        out << "| " << row.measure.leftJustified(widths[0]) << " | " << row.value.rightJustified(widths[1])
            << " | " << row.comparison.leftJustified(widths[2]) << " |\n";
    };
    line(heading);
    out << "|" << QString(widths[0] + 2, QLatin1Char('-')) << "|" << QString(widths[1] + 1, QLatin1Char('-'))
        << ":|" << QString(widths[2] + 2, QLatin1Char('-')) << "|\n";
    for (const Row& row : m_rows) {
        line(row);
    }
    out.flush();
}

double BenchTable::megabytesPerSecond(qint64 bytes, qint64 nanoseconds)
{
    return nanoseconds > 0 ? bytes * 1000.0 / nanoseconds : 0.0;
}

QString BenchTable::rate(qint64 bytes, qint64 nanoseconds)
{
    return QStringLiteral("%1 MB/s").arg(megabytesPerSecond(bytes, nanoseconds), 0, 'f', 0);
}

QString BenchTable::duration(qint64 nanoseconds)
{
    const double ms = nanoseconds / 1e6;
    if (ms >= 1000) {
        return QStringLiteral("%1 s").arg(ms / 1000, 0, 'f', 2);
    }
    return QStringLiteral("%1 ms").arg(ms, 0, 'f', ms < 10 ? 2 : 1);
}

QString BenchTable::size(qint64 bytes)
{
    if (bytes < 10000) {
        return QStringLiteral("%1 B").arg(bytes);
    }
    if (bytes < 10000000) {
        return QStringLiteral("%1 KB").arg(bytes / 1e3, 0, 'f', 1);
    }
    return QStringLiteral("%1 MB").arg(bytes / 1e6, 0, 'f', 1);
}

QString BenchTable::percent(double ratio)
{
    return QStringLiteral("%1 %").arg(ratio * 100, 0, 'f', 0);
}

} // namespace Velmarin::Bench
