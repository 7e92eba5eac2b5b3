#include "VaultCompactor.h"

#include "ByteCount.h"
#include "ContainerFile.h"
#include "FileSync.h"
#include "IndexCipher.h"
#include "PayloadStore.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

namespace Velmarin::Core {

VaultCompactor::VaultCompactor(const ContainerFile& containerFile, const IndexCipher& cipher)
    : m_containerFile(containerFile)
    , m_cipher(cipher)
{}

QString VaultCompactor::replacingLabel()
{
    return QCoreApplication::translate("Velmarin::Core::VaultCompactor", "Substituindo container no USB");
}

bool VaultCompactor::compact(const QString& containerPath, const VaultIndex& liveIndex,
                             const ProgressCallback& progress, QString* preservedPath,
                             VaultIndex& compactedIndex) const
{
    ContainerHeader header;
    if (!m_containerFile.readHeader(containerPath, header)) {
        return false;
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
    const bool written = m_containerFile.writeNewContainer(newPath, header, [&](QIODevice& device) {
        return copyLiveBlocks(oldContainer, device, liveIndex, progress, newIndex) &&
               m_cipher.sealInto(header, newIndex);
    });
    oldContainer.close();
    if (!written || !verify(newPath, liveIndex)) {
        workFolder.remove();
        return false;
    }
    if (!QFile::remove(containerPath)) {
        workFolder.remove();
        return false;
    }
    if (!copyOntoDrive(newPath, containerPath, progress)) {
        if (preservedPath != nullptr) {
            *preservedPath = newPath;
        }
        return false;
    }
    compactedIndex = newIndex;
    workFolder.remove();
    return true;
}

bool VaultCompactor::copyLiveBlocks(QIODevice& oldContainer, QIODevice& newContainer,
                                    const VaultIndex& liveIndex, const ProgressCallback& progress,
                                    VaultIndex& newIndex) const
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
    for (const FileEntry& file : liveIndex.files()) {
        FileEntry moved = file;
        moved.blocks.clear();
        for (const BlockEntry& block : file.blocks) {
            if (!PayloadStore::isPlausible(block) || !oldContainer.seek(block.offset)) {
                return false;
            }
            // Blocks move unchanged: their associated data does not depend on where they lie.
            const QByteArray sealed = oldContainer.read(block.encryptedSize);
            if (sealed.size() != block.encryptedSize) {
                return false;
            }
            BlockEntry movedBlock = block;
            movedBlock.offset = newContainer.pos();
            if (newContainer.write(sealed) != sealed.size()) {
                return false;
            }
            moved.blocks.append(movedBlock);
            done += block.plainSize;
            if (progress) {
                progress(done, total, file.vaultPath);
            }
        }
        newIndex.upsertFile(moved);
    }
    return true;
}

bool VaultCompactor::verify(const QString& newPath, const VaultIndex& liveIndex) const
{
    ContainerHeader header;
    VaultIndex reread;
    return m_containerFile.readHeader(newPath, header) && m_cipher.decryptIndex(header, reread) &&
           reread.files().size() == liveIndex.files().size() &&
           reread.directories().size() == liveIndex.directories().size();
}

bool VaultCompactor::copyOntoDrive(const QString& newPath, const QString& containerPath,
                                   const ProgressCallback& progress) const
{
    QFile source(newPath);
    if (!source.open(QIODevice::ReadOnly)) {
        return false;
    }
    QFile destination(containerPath);
    if (!destination.open(QIODevice::WriteOnly)) {
        return false;
    }
    const qint64 total = source.size();
    const QString label = replacingLabel();
    if (progress) {
        progress(0, total, label);
    }
    qint64 copied = 0;
    bool complete = true;
    while (copied < total) {
        const QByteArray piece = source.read(CopyPieceSize);
        if (piece.isEmpty() || destination.write(piece) != piece.size()) {
            complete = false;
            break;
        }
        copied += piece.size();
        if (progress) {
            progress(copied, total, label);
        }
    }
    if (complete && FileSync::flushToDevice(destination)) {
        return true;
    }
    // An incomplete container on the drive would only mislead: the full copy stays in the work folder.
    destination.close();
    QFile::remove(containerPath);
    return false;
}

} // namespace Velmarin::Core
