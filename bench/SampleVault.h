#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Bench {

// Vaults of many small files in their root, written past the engine: importing 10,000 files one
// change at a time would take longer than everything else the benchmark measures.
class SampleVault
{
public:
    static bool create(const QString& container, const QByteArray& password, int files);
    // Names as a camera gives them, all of one length.
    static QString fileName(int number);
    static QByteArray contents(int number);
};

} // namespace Velmarin::Bench
