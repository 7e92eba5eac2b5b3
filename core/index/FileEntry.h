#pragma once

#include "core/index/BlockEntry.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

namespace Velmarin::Core {

// A stored file: where it lives in the vault and the blocks that hold its bytes, in order.
struct FileEntry
{
    QString id;
    QString vaultPath;
    qint64 sizeBytes = 0;
    QDateTime lastModifiedUtc;
    // Raw 32-byte digest of the whole plaintext.
    QByteArray sha256;
    QList<BlockEntry> blocks;
};

} // namespace Velmarin::Core
