#pragma once

#include <QList>
#include <QString>

class QTextStream;

namespace Velmarin::Bench {

// The one table a run prints: a Markdown table, so a run can go into the README unchanged.
class BenchTable
{
public:
    void add(const QString& measure, const QString& value, const QString& comparison = QString());
    void print(QTextStream& out) const;

    // Decimal units throughout, as drives and transfer rates are sold.
    static double megabytesPerSecond(qint64 bytes, qint64 nanoseconds);
    static QString rate(qint64 bytes, qint64 nanoseconds);
    static QString duration(qint64 nanoseconds);
    static QString size(qint64 bytes);
    static QString percent(double ratio);

private:
    struct Row
    {
        QString measure;
        QString value;
        QString comparison;
    };
    QList<Row> m_rows;
};

} // namespace Velmarin::Bench
