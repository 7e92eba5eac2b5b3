#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

namespace Velmarin::Bench {

class BenchTable;

// One large file through the engine (import, export, compaction, unlock), each figure set beside the
// single-thread bound: the same data through each stage alone (read, SHA-256, AEAD, write), timed
// piece by piece in the same run, so the ratio says how much the engine itself costs.
class StreamBench
{
public:
    StreamBench(const QString& workDirectory, qint64 fileBytes, const QByteArray& password);
    bool run(BenchTable& table);
    QString failure() const { return m_failure; }

private:
    struct Stages
    {
        qint64 read = 0;
        qint64 hash = 0;
        qint64 cipher = 0;
        qint64 write = 0;
        qint64 total() const { return read + hash + cipher + write; }
    };

    bool writeRandomFile(const QString& path, qint64 size);
    bool importStages(const QString& sourcePath, const QString& sealedPath, Stages& stages);
    bool exportStages(const QString& sealedPath, const QString& plainPath, Stages& stages);
    QString stageText(const Stages& stages, bool withHash) const;
    bool fail(const QString& why);

    QString m_work;
    qint64 m_fileBytes;
    QByteArray m_password;
    QByteArray m_key;
    QList<QByteArray> m_nonces;
    QString m_failure;
};

} // namespace Velmarin::Bench
