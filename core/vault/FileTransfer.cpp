#include "core/vault/FileTransfer.h"

#include "core/container/FileSync.h"
#include "core/container/PayloadStore.h"
#include "core/index/VaultPath.h"
#include "core/vault/VaultSession.h"

#include <QFile>
#include <QFileDevice>
#include <QFileInfo>
#include <QUuid>

namespace Velmarin::Core {

FileTransfer::FileTransfer(VaultSession& session)
    : m_session(session)
{}

bool FileTransfer::importFile(const QString& sourcePath, const QString& vaultPath,
                              const ProgressCallback& progress)
{
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    const QFileInfo sourceInfo(sourcePath);
    if (!sourceInfo.exists() || !sourceInfo.isFile()) {
        return m_session.fail(Failure::Reason::SourceUnreadable, sourcePath);
    }
    QFile source(sourcePath);
    if (!source.open(QIODevice::ReadOnly)) {
        return m_session.fail(Failure::Reason::SourceUnreadable, sourcePath, source.errorString());
    }
    return importFile(source, sourceInfo.size(), sourceInfo.lastModified().toUTC(), vaultPath, progress);
}

bool FileTransfer::importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc,
                              const QString& vaultPath, const ProgressCallback& progress)
{
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    const VaultIndex& index = m_session.index();
    const QString target = normalizeVaultPath(vaultPath);
    if (target.isEmpty() || index.crossesFile(target)) {
        return m_session.fail(Failure::Reason::NameNotAllowed, vaultPath);
    }
    if (index.directoryExists(target)) {
        return m_session.fail(Failure::Reason::AlreadyExists, target);
    }
    if (!m_session.checkGrowth(PayloadStore::sealedSize(size))) {
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
        return m_session.failWrite(containerPath, &container);
    }
    const qint64 rollbackSize = container.size();
    const PayloadStore store = m_session.payloadStore();
    // The blocks are on the device before the header that refers to them is written.
    bool sourceFailed = false;
    const bool written =
        container.seek(rollbackSize) &&
        store.appendBlocks(source, container, entry.sizeBytes, target, progress, entry, &sourceFailed);
    const bool appended = written && FileSync::flushToDevice(container);
    // Told apart before the container is cut back, while the drive is still as full as it got.
    if (!written && source.error() != QFileDevice::NoError) {
        m_session.fail(Failure::Reason::SourceUnreadable, source.fileName(), source.errorString());
    } else if (!written && sourceFailed) {
        m_session.fail(Failure::Reason::SourceChanged, source.fileName());
    } else if (!written && !store.writeError().isEmpty()) {
        m_session.failWrite(containerPath, store.writeError());
    } else if (!written) {
        m_session.failWrite(containerPath, &container);
    } else if (!appended) {
        m_session.failWrite(containerPath);
    }
    container.close();
    bool oldHeaderKept = true;
    if (appended && !newIndex.upsertFile(entry)) {
        m_session.fail(Failure::Reason::NameNotAllowed, target);
    }
    if (!appended || m_session.failure().reason != Failure::Reason::None ||
        !m_session.saveIndex(header, newIndex, &oldHeaderKept)) {
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

bool FileTransfer::exportFile(const QString& vaultPath, QIODevice* destination,
                              const ProgressCallback& progress) const
{
    if (!m_session.isOpen()) {
        return m_session.fail(Failure::Reason::NotUnlocked);
    }
    const FileEntry* entry = m_session.index().findFilePreferringExact(normalizeVaultPath(vaultPath));
    if (entry == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, vaultPath);
    }
    if (destination == nullptr) {
        return m_session.fail(Failure::Reason::DestinationUnwritable, vaultPath);
    }
    QFile container(m_session.containerPath());
    if (!container.open(QIODevice::ReadOnly)) {
        return m_session.fail(Failure::Reason::DriveRead, container.fileName(), container.errorString());
    }
    bool destinationFailed = false;
    const PayloadStore& store = m_session.payloadStore();
    if (store.exportBlocks(container, *entry, *destination, &destinationFailed, progress)) {
        return true;
    }
    if (destinationFailed) {
        const auto* file = qobject_cast<const QFileDevice*>(destination);
        const QString where = file != nullptr ? file->fileName() : entry->vaultPath;
        const QString why = !store.writeError().isEmpty()                              ? store.writeError()
                            : file != nullptr && file->error() != QFileDevice::NoError ? file->errorString()
                                                                                       : QString();
        return m_session.fail(Failure::Reason::DestinationUnwritable, where, why);
    }
    if (container.error() != QFileDevice::NoError) {
        return m_session.fail(Failure::Reason::DriveRead, container.fileName(), container.errorString());
    }
    // The drive read every byte it was asked for and they did not authenticate, or did not add up to
    // the recorded size or SHA-256.
    return m_session.fail(Failure::Reason::Damaged, entry->vaultPath);
}

bool FileTransfer::exportFile(const QString& vaultPath, const QString& destinationPath) const
{
    const QString source = normalizeVaultPath(vaultPath);
    if (!m_session.isOpen()) {
        return m_session.fail(Failure::Reason::NotUnlocked);
    }
    if (source.isEmpty()) {
        return m_session.fail(Failure::Reason::NotFound, vaultPath);
    }
    // The file the user chose to overwrite is emptied before the entry is looked up, as export always did.
    QFile destination(destinationPath);
    if (!destination.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return m_session.fail(Failure::Reason::DestinationUnwritable, destinationPath,
                              destination.errorString());
    }
    if (!exportFile(source, &destination)) {
        // Bytes that did not check out are no copy of the file: nothing of them stays behind.
        if (m_session.failure().reason == Failure::Reason::Damaged) {
            destination.remove();
        }
        return false;
    }
    return destination.flush() ||
           m_session.fail(Failure::Reason::DestinationUnwritable, destinationPath, destination.errorString());
}

} // namespace Velmarin::Core
