#include "core/vault/FileTransfer.h"

#include "core/container/FileSync.h"
#include "core/container/PayloadStore.h"
#include "core/index/VaultPath.h"
#include "core/vault/VaultSession.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace Velmarin::Core {

FileTransfer::FileTransfer(VaultSession& session)
    : m_session(session)
{}

bool FileTransfer::importFile(const QString& sourcePath, const QString& vaultPath,
                              const ProgressCallback& progress)
{
    const QFileInfo sourceInfo(sourcePath);
    if (!sourceInfo.exists() || !sourceInfo.isFile()) {
        return false;
    }
    QFile source(sourcePath);
    return m_session.canChange() && source.open(QIODevice::ReadOnly) &&
           importFile(source, sourceInfo.size(), sourceInfo.lastModified().toUTC(), vaultPath, progress);
}

bool FileTransfer::importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc,
                              const QString& vaultPath, const ProgressCallback& progress)
{
    if (!m_session.canChange()) {
        return false;
    }
    const VaultIndex& index = m_session.index();
    const QString target = normalizeVaultPath(vaultPath);
    if (target.isEmpty() || index.crossesFile(target) || index.directoryExists(target)) {
        return false;
    }
    ContainerHeader header;
    if (!m_session.readCurrentHeader(header)) {
        return false;
    }

    // Importing over a file in any letter case replaces it; its blocks become dead space.
    VaultIndex newIndex;
    for (const DirectoryEntry& directory : index.directories()) {
        newIndex.upsertDirectory(directory);
    }
    newIndex.ensureParentDirectories(target);
    for (const FileEntry& file : index.files()) {
        if (!isSameVaultPath(file.vaultPath, target)) {
            newIndex.upsertFile(file);
        }
    }
    FileEntry entry;
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = target;
    entry.sizeBytes = size;
    entry.lastModifiedUtc = modifiedUtc;

    // Unbuffered, so that a failed write leaves nothing pending that would block the truncation.
    const QString containerPath = m_session.containerPath();
    QFile container(containerPath);
    if (!container.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
        return false;
    }
    const qint64 rollbackSize = container.size();
    const PayloadStore store = m_session.payloadStore();
    // The blocks are on the device before the header that refers to them is written.
    const bool appended = container.seek(rollbackSize) &&
                          store.appendBlocks(source, container, entry.sizeBytes, target, progress, entry) &&
                          FileSync::flushToDevice(container);
    container.close();
    bool oldHeaderKept = true;
    if (!appended || !newIndex.upsertFile(entry) || !m_session.saveIndex(header, newIndex, &oldHeaderKept)) {
        // A header that may refer to the new blocks keeps them; they are dead space at worst.
        if (oldHeaderKept) {
            truncateContainer(container, containerPath, rollbackSize);
        }
        return false;
    }
    return true;
}

void FileTransfer::truncateContainer(QFile& container, const QString& path, qint64 size)
{
    if (!container.isOpen()) {
        container.setFileName(path);
        if (!container.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
            return;
        }
    }
    container.resize(size);
    FileSync::flushToDevice(container);
    container.close();
}

bool FileTransfer::exportFile(const QString& vaultPath, QIODevice* destination) const
{
    if (destination == nullptr || !m_session.isOpen()) {
        return false;
    }
    const FileEntry* entry = m_session.index().findFile(normalizeVaultPath(vaultPath));
    if (entry == nullptr) {
        return false;
    }
    QFile container(m_session.containerPath());
    if (!container.open(QIODevice::ReadOnly)) {
        return false;
    }
    return m_session.payloadStore().exportBlocks(container, *entry, *destination);
}

bool FileTransfer::exportFile(const QString& vaultPath, const QString& destinationPath) const
{
    const QString source = normalizeVaultPath(vaultPath);
    if (source.isEmpty() || !m_session.isOpen()) {
        return false;
    }
    QFile destination(destinationPath);
    if (!destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    return exportFile(source, &destination) && destination.flush();
}

} // namespace Velmarin::Core
