#include "core/index/DisplayFormat.h"

#include <QLocale>

namespace Velmarin::Core {

QString formatDataSize(qint64 bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

QString formatTableDate(const QDateTime& time)
{
    if (!time.isValid()) {
        return {};
    }
    return QLocale().toString(time.toLocalTime(), QStringLiteral("dd/MM/yyyy HH:mm"));
}

} // namespace Velmarin::Core
