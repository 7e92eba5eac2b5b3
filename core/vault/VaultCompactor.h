#pragma once

#include "core/container/FileSync.h"
#include "core/container/ProgressCallback.h"
#include "core/index/VaultIndex.h"

#include <QString>

class QIODevice;
class QFile;

namespace Velmarin::Core {

class ContainerFile;
class IndexCipher;
struct ContainerHeader;

// Rebuilds a container with only the blocks its index still refers to. The new container is built
// and verified on the local disk first. When the drive has room for both, it is copied beside the
// old one and takes its name in one step, so the drive always holds a whole container. Otherwise
// the old one is removed first, a journal on the drive names the local copy until the new one is
// whole there, and when the copy fails the local copy is kept and its path handed back.
class VaultCompactor
{
public:
    // Kept free beyond the new container's size for the file system's own bookkeeping.
    static constexpr qint64 RoomMargin = 1048576;

    VaultCompactor(const ContainerFile& containerFile, const IndexCipher& cipher);

    // On success compactedIndex holds the index with the blocks' new offsets.
    bool compact(const QString& containerPath, const VaultIndex& liveIndex, const ProgressCallback& progress,
                 QString* preservedPath, VaultIndex& compactedIndex) const;

    static QString replacingLabel();

private:
    bool copyLiveBlocks(QIODevice& oldContainer, QIODevice& newContainer, const VaultIndex& liveIndex,
                        const ProgressCallback& progress, VaultIndex& newIndex) const;
    bool verify(const QString& newPath, const VaultIndex& liveIndex) const;
    static bool hasRoomBeside(const QString& containerPath, qint64 newSize);
    bool replaceBeside(const QString& newPath, const QString& containerPath,
                       const ProgressCallback& progress) const;
    // preservedPath names the local copy when the drive was left without a whole container.
    bool replaceInTurn(const QString& newPath, const QString& containerPath, const ProgressCallback& progress,
                       QString& preservedPath) const;
    static FileSync::CopyProgress swapProgress(const ProgressCallback& progress);

    const ContainerFile& m_containerFile;
    const IndexCipher& m_cipher;
};

} // namespace Velmarin::Core
