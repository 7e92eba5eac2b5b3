#pragma once

#include <QByteArray>
#include <QString>

#include <functional>

namespace Velmarin::Bench {

class BenchTable;

// What one change of the index costs in vaults of different sizes: time and bytes written for a
// rename, a new folder, a delete and a 1-byte import, beside the whole-region rewrite it replaced.
class IndexChangeBench
{
public:
    IndexChangeBench(const QString& workDirectory, const QByteArray& password);
    bool run(int fileCount, BenchTable& table);
    // How many files like the sample vault's fit before the header region is full.
    bool countFilesThatFit(BenchTable& table);
    QString failure() const { return m_failure; }

private:
    struct Cost
    {
        qint64 nanoseconds = 0;
        qint64 bytesWritten = 0;
    };
    static constexpr int Repeats = 5;

    // Runs change(0) .. change(Repeats - 1); the median time and the most bytes any run wrote.
    bool measure(const std::function<bool(int)>& change, Cost& cost);
    // A change as it used to be: the whole region read and parsed, then length line, JSON and zeros
    // written over all of it.
    bool measureWholeRegion(const QString& container, Cost& cost, qint64& jsonBytes);
    bool fail(const QString& why);

    QString m_work;
    QByteArray m_password;
    QString m_failure;
};

} // namespace Velmarin::Bench
