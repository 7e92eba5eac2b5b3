#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Bench {

class BenchTable;

// The real window importing many small files chosen at once: how long it takes, and how long the
// window goes at most without answering while it works (its progress is all the user sees).
class WindowImportBench
{
public:
    WindowImportBench(const QString& workDirectory, const QByteArray& password);
    bool run(int fileCount, BenchTable& table);
    QString failure() const { return m_failure; }

private:
    bool fail(const QString& why);

    QString m_work;
    QByteArray m_password;
    QString m_failure;
};

} // namespace Velmarin::Bench
