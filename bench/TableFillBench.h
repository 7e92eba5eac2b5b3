#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Bench {

class BenchTable;

// The real window, unlocked on a vault of many files in one folder, filling its file table.
class TableFillBench
{
public:
    TableFillBench(const QString& workDirectory, const QByteArray& password);
    bool run(int fileCount, BenchTable& table);
    QString failure() const { return m_failure; }

private:
    bool fail(const QString& why);

    QString m_work;
    QByteArray m_password;
    QString m_failure;
};

} // namespace Velmarin::Bench
