#include "FailureInjection.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace Velmarin::Tests {

FailureInjection::FailureInjection(const QString& pathPart, const QByteArray& calls, qint64 writeAllowance)
{
    qputenv("VELMARIN_FAIL_CALLS", calls);
    qputenv("VELMARIN_FAIL_AFTER", QByteArray::number(writeAllowance));
    qputenv("VELMARIN_FAIL_PATH", pathPart.toUtf8());
}

FailureInjection::~FailureInjection()
{
    qunsetenv("VELMARIN_FAIL_PATH");
    qunsetenv("VELMARIN_FAIL_CALLS");
    qunsetenv("VELMARIN_FAIL_AFTER");
}

bool FailureInjection::isAvailable()
{
    QTemporaryDir dir;
    const QString probe = dir.filePath(QStringLiteral("shim-probe"));
    QFile file(probe);
    const FailureInjection injection(QStringLiteral("shim-probe"), "open-write");
    return !file.open(QIODevice::WriteOnly);
}

} // namespace Velmarin::Tests
