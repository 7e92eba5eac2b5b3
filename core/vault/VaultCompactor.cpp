#include "core/vault/VaultCompactor.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"
#include "core/container/ContainerLock.h"
#include "core/container/ContainerRecovery.h"
#include "core/container/DriveSpace.h"
#include "core/container/IndexCipher.h"
#include "core/container/PayloadStore.h"
#include "core/container/WriteBehind.h"
#include "core/index/ByteCount.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

namespace Velmarin::Core {

VaultCompactor::VaultCompactor(const ContainerFile& containerFile, const IndexCipher& cipher,
                               const PayloadStore& store, ContainerLock* heldLock)
    : m_containerFile(containerFile)
    , m_cipher(cipher)
    , m_store(store)
    , m_heldLock(heldLock)
{}

bool VaultCompactor::compact(const QString& containerPath, const VaultIndex& liveIndex,
                             const ProgressCallback& progress, QString* preservedPath,
                             VaultIndex& compactedIndex, QStringList* damagedFiles) const
{
    ContainerHeader header;
    if (!m_containerFile.readHeader(containerPath, header)) {
        if (damagedFiles != nullptr) {
            damagedFiles->clear();
        }
        return false;
    }
    return rebuild(containerPath, header, nullptr, liveIndex, progress, preservedPath, compactedIndex,
                   damagedFiles);
}

bool VaultCompactor::reseal(const QString& containerPath, const ContainerHeader& newHeader,
                            const PayloadStore& sealer, const VaultIndex& liveIndex,
                            const ProgressCallback& progress, QString* preservedPath,
                            VaultIndex& resealedIndex, QStringList* damagedFiles) const
{
    return rebuild(containerPath, newHeader, &sealer, liveIndex, progress, preservedPath, resealedIndex,
                   damagedFiles);
}

bool VaultCompactor::rebuild(const QString& containerPath, ContainerHeader header, const PayloadStore* sealer,
                             const VaultIndex& liveIndex, const ProgressCallback& progress,
                             QString* preservedPath, VaultIndex& rebuiltIndex,
                             QStringList* damagedFiles) const
{
    if (damagedFiles != nullptr) {
        damagedFiles->clear();
    }
    QFile oldContainer(containerPath);
    if (!oldContainer.open(QIODevice::ReadOnly)) {
        return false;
    }
    QTemporaryDir workFolder(QDir::tempPath() + QStringLiteral("/Velmarin-compact-XXXXXX"));
    if (!workFolder.isValid()) {
        return false;
    }
    // Removal is ours to decide: the folder must outlive a failed swap.
    workFolder.setAutoRemove(false);
    const QString newPath = workFolder.filePath(ContainerFile::DefaultFileName);

    // The encrypted index can only be made once the blocks have their new offsets; the writer
    // serialises this header after the payload, so filling it in from the payload writer is enough.
    VaultIndex newIndex;
    QStringList damaged;
    const bool written = m_containerFile.writeNewContainer(newPath, header, [&](QIODevice& device) {
        return copyLiveBlocks(oldContainer, device, liveIndex, sealer, progress, newIndex, damaged) &&
               m_cipher.sealInto(header, newIndex);
    });
    oldContainer.close();
    if (!written || !verify(newPath, liveIndex)) {
        workFolder.remove();
        if (damagedFiles != nullptr) {
            *damagedFiles = damaged;
        }
        return false;
    }
    QString kept;
    const DriveSpace drive = DriveSpace::of(containerPath);
    // A drive that does not tell its free space (FAT through FUSE) is tried beside first: a copy
    // that does not fit is removed, and the old container was never touched.
    const bool replaced =
        drive.hasRoomFor(QFileInfo(newPath).size() + RoomMargin)
            ? replaceBeside(newPath, containerPath, progress) ||
                  (!drive.available && replaceInTurn(newPath, containerPath, progress, kept))
            : replaceInTurn(newPath, containerPath, progress, kept);
    if (!replaced) {
        // A preserved container keeps its folder, asked for or not: it is the only whole copy.
        if (kept.isEmpty()) {
            workFolder.remove();
        } else if (preservedPath != nullptr) {
            *preservedPath = kept;
        }
        return false;
    }
    rebuiltIndex = newIndex;
    workFolder.remove();
    return true;
}

bool VaultCompactor::replaceBeside(const QString& newPath, const QString& containerPath,
                                   const ProgressCallback& progress) const
{
    // The old container stays whole under its name until the new one, whole and on the device,
    // takes the name in one step.
    const QString replacement = ContainerRecovery::replacementPathFor(containerPath);
    if (!FileSync::copyFile(newPath, replacement, swapProgress(progress))) {
        return false;
    }
    if (!FileSync::replaceFile(replacement, containerPath)) {
        FileSync::removeFile(replacement);
        return false;
    }
    // The name holds a new file now: the session's lock goes onto it.
    if (m_heldLock != nullptr) {
        m_heldLock->acquire(containerPath);
    }
    return true;
}

bool VaultCompactor::replaceInTurn(const QString& newPath, const QString& containerPath,
                                   const ProgressCallback& progress, QString& preservedPath) const
{
    // No room for two: the old container must go first. Until the new one is whole on the drive, a
    // journal there names the local copy, so that the next unlock puts it back after a cut.
    QByteArray oldHeader;
    QByteArray newHeader;
    if (!m_containerFile.readHeaderBytes(containerPath, oldHeader) ||
        !m_containerFile.readHeaderBytes(newPath, newHeader)) {
        return false;
    }
    const ContainerJournal journal = ContainerJournal::forCompaction(
        oldHeader, QFileInfo(containerPath).size(), newHeader, QFileInfo(newPath).size(), newPath);
    // Held while the drive has no whole container, which no container lock can guard.
    ContainerLock journalLock;
    if (!journal.write(containerPath) ||
        journalLock.acquire(ContainerJournal::pathFor(containerPath)) != ContainerLock::Result::Acquired) {
        ContainerJournal::remove(containerPath);
        return false;
    }
    if (m_heldLock != nullptr) {
        m_heldLock->release();
    }
    if (!FileSync::removeFile(containerPath)) {
        journalLock.release();
        ContainerJournal::remove(containerPath);
        return false;
    }
    if (!FileSync::copyFile(newPath, containerPath, swapProgress(progress))) {
        preservedPath = newPath;
        return false;
    }
    // The session's lock goes onto the new container while the journal's still keeps others out.
    if (m_heldLock != nullptr) {
        m_heldLock->acquire(containerPath);
    }
    journalLock.release();
    // The new container is whole; a journal that cannot go now is stale and the next unlock removes it.
    ContainerJournal::remove(containerPath);
    return true;
}

FileSync::CopyProgress VaultCompactor::swapProgress(const ProgressCallback& progress)
{
    if (!progress) {
        return {};
    }
    // The engine words nothing for the user: an empty label tells the front end which phase this is.
    return [progress](qint64 copied, qint64 total) { progress(copied, total, QString()); };
}

bool VaultCompactor::copyLiveBlocks(QIODevice& oldContainer, QIODevice& newContainer,
                                    const VaultIndex& liveIndex, const PayloadStore* sealer,
                                    const ProgressCallback& progress, VaultIndex& newIndex,
                                    QStringList& damagedFiles) const
{
    newIndex = VaultIndex();
    for (const DirectoryEntry& directory : liveIndex.directories()) {
        newIndex.upsertDirectory(directory);
    }
    qint64 total = 0;
    for (const FileEntry& file : liveIndex.files()) {
        total = addByteCount(total, file.sizeBytes);
    }
    qint64 done = 0;
    QByteArray sealed;
    WriteBehind toDisk(newContainer);
    for (const FileEntry& file : liveIndex.files()) {
        FileEntry moved = file;
        moved.blocks.clear();
        bool damaged = false;
        for (const BlockEntry& block : file.blocks) {
            // After the first bad block the file is known damaged; its other blocks need no reading.
            // Blocks move unchanged, their associated data not depending on where they lie, unless
            // they go under a new key.
            BlockEntry movedBlock = block;
            damaged = damaged ||
                      !(sealer != nullptr ? m_store.reseal(oldContainer, block, *sealer, sealed, movedBlock)
                                          : m_store.readAuthentic(oldContainer, block, sealed));
            // Once anything is damaged the new container will be dropped: only checking goes on.
            if (!damaged && damagedFiles.isEmpty()) {
                movedBlock.offset = newContainer.pos();
                if (!FileSync::writeAll(newContainer, sealed.constData(), sealed.size()) ||
                    !toDisk.advance()) {
                    return false;
                }
                moved.blocks.append(movedBlock);
            }
            done = addByteCount(done, block.plainSize);
            if (progress) {
                progress(qMin(done, total), total, file.vaultPath);
            }
        }
        if (damaged) {
            damagedFiles.append(file.vaultPath);
        }
        newIndex.upsertFile(moved);
    }
    return damagedFiles.isEmpty();
}

bool VaultCompactor::verify(const QString& newPath, const VaultIndex& liveIndex) const
{
    ContainerHeader header;
    VaultIndex reread;
    return m_containerFile.readHeader(newPath, header) && m_cipher.decryptIndex(header, reread) &&
           reread.files().size() == liveIndex.files().size() &&
           reread.directories().size() == liveIndex.directories().size();
}

} // namespace Velmarin::Core
