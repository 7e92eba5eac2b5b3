#include "ProcessMeter.h"

#include <QByteArray>
#include <QFile>
#include <QList>

#include <unistd.h>

namespace Velmarin::Bench {

namespace {

// The number after "name" in a "name value [unit]" line of a /proc file, or -1.
qint64 procField(const char* file, const QByteArray& name)
{
    QFile proc(QString::fromLatin1(file));
    if (!proc.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray& line : proc.readAll().split('\n')) {
        if (line.startsWith(name)) {
            return line.mid(name.size()).simplified().split(' ').value(0).toLongLong();
        }
    }
    return -1;
}

} // namespace

void ProcessMeter::resetPeakResident()
{
    QFile clear(QStringLiteral("/proc/self/clear_refs"));
    if (clear.open(QIODevice::WriteOnly)) {
        clear.write("5");
    }
}

qint64 ProcessMeter::peakResidentBytes()
{
    return procField("/proc/self/status", "VmHWM:") * 1024;
}

qint64 ProcessMeter::bytesWritten()
{
    return procField("/proc/self/io", "wchar:");
}

void ProcessMeter::settle()
{
    ::sync();
}

} // namespace Velmarin::Bench
