#pragma once

#include "ProgressCallback.h"
#include "VaultIndex.h"

#include <QString>

class QIODevice;
class QFile;

namespace Velmarin::Core {

class ContainerFile;
class IndexCipher;
struct ContainerHeader;

// Rebuilds a container with only the blocks its index still refers to. The new container is built
// and verified on the local disk first, so the drive holds either the old one or a full new copy;
// when the swap fails half-way the local copy is kept and its path handed back.
class VaultCompactor
{
public:
    static constexpr qint64 CopyPieceSize = 8388608;

    VaultCompactor(const ContainerFile& containerFile, const IndexCipher& cipher);

    // On success compactedIndex holds the index with the blocks' new offsets.
    bool compact(const QString& containerPath, const VaultIndex& liveIndex, const ProgressCallback& progress,
                 QString* preservedPath, VaultIndex& compactedIndex) const;

    static QString replacingLabel();

private:
    bool copyLiveBlocks(QIODevice& oldContainer, QIODevice& newContainer, const VaultIndex& liveIndex,
                        const ProgressCallback& progress, VaultIndex& newIndex) const;
    bool verify(const QString& newPath, const VaultIndex& liveIndex) const;
    bool copyOntoDrive(const QString& newPath, const QString& containerPath,
                       const ProgressCallback& progress) const;

    const ContainerFile& m_containerFile;
    const IndexCipher& m_cipher;
};

} // namespace Velmarin::Core
