#pragma once

#include "core/container/ContainerHeader.h"
#include "core/container/FileSync.h"
#include "core/container/ProgressCallback.h"
#include "core/index/VaultIndex.h"

#include <QString>
#include <QStringList>

class QIODevice;
class QFile;

namespace Velmarin::Core {

class ContainerLock;

class ContainerFile;
class IndexCipher;
class PayloadStore;

// Rebuilds a container with only the blocks its index still refers to. The new container is built
// on the local disk first: each block's authentication tag is checked as the block is copied (the
// blocks themselves move unchanged), then the new header and index are read back. When the drive
// has room for both, the new container is copied beside the old one and takes its name in one step,
// so the drive always holds a whole container. Otherwise the old one is removed first, a journal on
// the drive names the local copy until the new one is whole there, and when the copy fails the
// local copy is kept and its path handed back.
//
// Progress: while blocks are copied, the label is the vault path of the file being copied and the
// bytes count plaintext over all live files; while the new container goes onto the drive, the label
// is empty (see isContainerSwap: the engine words nothing) and the bytes count the new container.
class VaultCompactor
{
public:
    // Kept free beyond the new container's size for the file system's own bookkeeping.
    static constexpr qint64 RoomMargin = 1048576;

    // store reads the blocks of the container being compacted (its key and associated data).
    // heldLock, when given, is the session's lock on the container: let go of before a swap in turn
    // removes the container, since an open file keeps its room on the drive until it is closed.
    VaultCompactor(const ContainerFile& containerFile, const IndexCipher& cipher, const PayloadStore& store,
                   ContainerLock* heldLock = nullptr);

    // On success compactedIndex holds the index with the blocks' new offsets. A damaged block (one
    // that cannot be read or does not authenticate) stops the compaction before anything on the
    // drive is touched, but only once every file was checked: damagedFiles then names each damaged
    // file, in index order, and is left empty by every other failure.
    bool compact(const QString& containerPath, const VaultIndex& liveIndex, const ProgressCallback& progress,
                 QString* preservedPath, VaultIndex& compactedIndex,
                 QStringList* damagedFiles = nullptr) const;
    // The same rebuild under a new master key (a re-key): each live block is opened with the store's
    // key and sealed again by sealer under a fresh nonce, and the new container takes newHeader (the
    // new key's wrapping) in place of the old header. The cipher given at construction is the new
    // key's: it seals the new index and reads it back.
    bool reseal(const QString& containerPath, const ContainerHeader& newHeader, const PayloadStore& sealer,
                const VaultIndex& liveIndex, const ProgressCallback& progress, QString* preservedPath,
                VaultIndex& resealedIndex, QStringList* damagedFiles = nullptr) const;

private:
    // header is what the new container starts from; sealer, when given, seals every block anew.
    bool rebuild(const QString& containerPath, ContainerHeader header, const PayloadStore* sealer,
                 const VaultIndex& liveIndex, const ProgressCallback& progress, QString* preservedPath,
                 VaultIndex& rebuiltIndex, QStringList* damagedFiles) const;
    // False on damage (named in damagedFiles) or when the new container cannot be written.
    bool copyLiveBlocks(QIODevice& oldContainer, QIODevice& newContainer, const VaultIndex& liveIndex,
                        const PayloadStore* sealer, const ProgressCallback& progress, VaultIndex& newIndex,
                        QStringList& damagedFiles) const;
    bool verify(const QString& newPath, const VaultIndex& liveIndex) const;
    bool replaceBeside(const QString& newPath, const QString& containerPath,
                       const ProgressCallback& progress) const;
    // preservedPath names the local copy when the drive was left without a whole container.
    bool replaceInTurn(const QString& newPath, const QString& containerPath, const ProgressCallback& progress,
                       QString& preservedPath) const;
    static FileSync::CopyProgress swapProgress(const ProgressCallback& progress);

    const ContainerFile& m_containerFile;
    const IndexCipher& m_cipher;
    const PayloadStore& m_store;
    ContainerLock* m_heldLock;
};

} // namespace Velmarin::Core
