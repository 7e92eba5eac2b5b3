#pragma once

#include "core/vault/ImportItem.h"

#include <QList>

namespace Velmarin::Core {

class ContainerFile;
class VaultIndex;
struct ContainerHeader;
struct FileEntry;

// Whether a batch's index will fit in the container's header region, known from names and sizes
// alone before anything is written: each new entry is counted at its largest possible size (every
// block at the far end of the largest container), and a file replaced is counted as if it stayed.
class IndexCapacity
{
public:
    // header is the container's current one; index is what its sealed index holds.
    IndexCapacity(const ContainerFile& file, const ContainerHeader& header, const VaultIndex& index);

    // How many of items' files, in order, fit together with everything before them.
    int fittingFiles(const QList<ImportItem>& items) const;
    // The header's size once it holds a sealed index of sealedSize bytes.
    qint64 headerSize(qint64 sealedSize) const;

    // The most a file of size bytes at vaultPath can add to the index; entry is then within it.
    static qint64 fileBound(const QString& vaultPath, qint64 size);
    static bool isWithinBound(const FileEntry& entry, qint64 listedSize);
    static qint64 folderBound(const QString& path);

private:
    const VaultIndex& m_index;
    qint64 m_fixedSize = 0;
    qint64 m_indexJsonSize = 0;
};

} // namespace Velmarin::Core
