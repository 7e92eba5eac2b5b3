#pragma once

#include <QString>
#include <QtGlobal>

namespace Velmarin::Core {

// One thing a batch brings into the vault: a file read from localPath, or a folder made at
// vaultPath. size is the file's size when it was listed, from which the batch bounds the index
// before anything is written.
struct ImportItem
{
    QString localPath;
    QString vaultPath;
    qint64 size = 0;
    bool isFolder = false;
};

} // namespace Velmarin::Core
