#pragma once

#include <QDateTime>
#include <QString>

namespace Velmarin::Core {

// How sizes and dates read wherever they are shown: the user's locale, powers of 1024.
QString formatDataSize(qint64 bytes);
// "dd/MM/yyyy HH:mm" in local time; empty for an invalid time.
QString formatTableDate(const QDateTime& time);

} // namespace Velmarin::Core
