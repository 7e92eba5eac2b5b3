#pragma once

#include <QDateTime>
#include <QString>

namespace Velmarin::Core {

// An explicit folder of the vault; the root is implicit and never has one.
struct DirectoryEntry
{
    QString path;
    QDateTime createdUtc;
    QDateTime modifiedUtc;
};

} // namespace Velmarin::Core
