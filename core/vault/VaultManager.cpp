#include "core/vault/VaultManager.h"

#include "core/container/IndexCipher.h"
#include "core/container/JournalReserve.h"
#include "core/container/PayloadStore.h"
#include "core/crypto/ProcessProtection.h"
#include "core/index/VaultPath.h"
#include "core/vault/ContainerOpener.h"
#include "core/vault/MasterKeyWrap.h"
#include "core/vault/VaultCompactor.h"
#include "core/vault/VaultRekey.h"
#include "core/vault/VaultVerifier.h"

#include <QFileInfo>

namespace Velmarin::Core {

VaultManager::VaultManager(const QString& workspaceRoot, const QString& stateRoot)
    : m_workspace(workspaceRoot)
{
    m_session.keepStatesIn(stateRoot);
}

VaultManager::~VaultManager() = default;

bool VaultManager::isPasswordAcceptable(const QByteArray& password)
{
    return isPasswordAcceptable(QString::fromUtf8(password));
}

bool VaultManager::isPasswordAcceptable(const QString& password)
{
    return password.size() >= MinimumPasswordLength;
}

bool VaultManager::createVault(const QString& containerPath, const QByteArray& password)
{
    m_session.clearFailure();
    // An open session still holds edits and a workspace: it is closed with lock, never replaced.
    if (isUnlocked()) {
        return m_session.fail(Failure::Reason::AlreadyUnlocked);
    }
    if (!isPasswordAcceptable(password)) {
        return m_session.fail(Failure::Reason::PasswordTooShort);
    }
    ProcessProtection::disableCoreDumps();
    const VaultCrypto& crypto = m_session.crypto();
    const MasterKeyWrap keyWrap(crypto);
    ContainerHeader header;
    keyWrap.renewSettings(header);
    header.crypto.payloadNonce = crypto.randomBytes(VaultCrypto::NonceSize);

    QByteArray randomKey = crypto.randomBytes(VaultCrypto::MasterKeySize);
    const SecretBytes masterKey = SecretBytes::takeFrom(randomKey);
    header.crypto.encryptedMasterKey = keyWrap.wrap(header, password, masterKey.view());
    if (header.crypto.encryptedMasterKey.isEmpty()) {
        return m_session.fail(Failure::Reason::NotEnoughMemory);
    }
    header.encryptedIndex =
        IndexCipher(crypto, masterKey.view(VaultCrypto::KeySize)).encryptIndex(header, VaultIndex());
    if (header.encryptedIndex.isEmpty()) {
        return m_session.fail(Failure::Reason::NotEnoughMemory);
    }
    m_session.name(containerPath);
    return m_session.containerFile().writeNewContainer(containerPath, header) ||
           m_session.failWrite(containerPath);
}

bool VaultManager::unlock(const QString& containerPath, const QByteArray& password, Access access)
{
    m_session.clearFailure();
    if (isUnlocked()) {
        return m_session.fail(Failure::Reason::AlreadyUnlocked);
    }
    if (password.isEmpty()) {
        return m_session.fail(Failure::Reason::WrongPassword);
    }
    // Before the master key exists in this process.
    ProcessProtection::disableCoreDumps();
    m_session.forgetRecovery();
    // A compaction cut short may have left only its journal where the container was.
    if (access == Access::ReadWrite && !QFileInfo::exists(containerPath) &&
        m_session.recoverContainer(containerPath) == Recovery::Failed) {
        return m_session.fail(Failure::Reason::InterruptedChange, containerPath);
    }
    // The lock comes first: a container another session holds is refused before its header is read.
    ContainerLock& containerLock = m_session.lock();
    if (!m_session.takeLock(containerLock, containerPath)) {
        return false;
    }
    const auto refuse = [this, &containerLock](Failure::Reason reason) {
        containerLock.release();
        return m_session.failUnlessKnown(reason);
    };
    // A read-only session writes nothing, so it opens only what reads as it stands.
    if (access == Access::ReadWrite && m_session.lastRecovery() == Recovery::Nothing &&
        m_session.recoverContainer(containerPath) == Recovery::Failed) {
        return refuse(Failure::Reason::InterruptedChange);
    }
    ContainerOpener::Opened opened;
    if (!ContainerOpener(m_session).open(containerPath, password, access == Access::ReadWrite, opened)) {
        containerLock.release();
        return false;
    }
    if (access == Access::ReadWrite) {
        ContainerRecovery::removeUnfinishedReplacement(containerPath);
    }
    m_session.open(containerPath, std::move(opened.masterKey), std::move(opened.index), access);
    m_session.checkState(opened.header.encryptedIndex);
    if (access == Access::ReadOnly || !m_workspace.isEnabled()) {
        return true;
    }
    // Failing to take the workspace still leaves the session open; the next lock releases it.
    return m_workspace.acquire(m_session.workspaceId()) ||
           m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root());
}

VaultManager::Recovery VaultManager::recover(const QString& containerPath, bool applyOverReadableHeader)
{
    m_session.clearFailure();
    if (isUnlocked()) {
        m_session.fail(Failure::Reason::AlreadyUnlocked);
        return Recovery::Failed;
    }
    m_session.forgetRecovery();
    ContainerLock lock;
    if (QFileInfo::exists(containerPath) && lock.acquire(containerPath) != ContainerLock::Result::Acquired) {
        m_session.fail(Failure::Reason::InUse, containerPath);
        return Recovery::Failed;
    }
    const Recovery outcome = m_session.recoverContainer(
        containerPath, applyOverReadableHeader ? ContainerRecovery::HeaderJournals::Always
                                               : ContainerRecovery::HeaderJournals::OverUnreadableHeader);
    if (outcome == Recovery::Failed) {
        m_session.fail(Failure::Reason::InterruptedChange, containerPath);
    } else {
        // No session holds the container now: what one left beside it is no longer anyone's.
        ContainerRecovery::removeUnfinishedReplacement(containerPath);
        JournalReserve::giveUp(containerPath);
    }
    return outcome;
}

bool VaultManager::hasInterruptedChange(const QString& containerPath)
{
    return ContainerRecovery::hasJournal(containerPath);
}

QString VaultManager::containerPathOn(const QString& driveRoot)
{
    return ContainerFile::defaultContainerPath(driveRoot);
}

bool VaultManager::isInUse(const QString& containerPath)
{
    return ContainerLock::isInUse(containerPath);
}

bool VaultManager::lock()
{
    m_session.clearFailure();
    // Edits come home first; one that cannot be stored keeps the vault open so nothing is lost.
    if (isUnlocked() && !m_edits.bringBackChanged()) {
        return false;
    }
    const bool released = m_workspace.release();
    endSession();
    return released || m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root());
}

void VaultManager::endSession()
{
    m_session.close();
}

void VaultManager::lockKeepingEdits()
{
    m_workspace.releaseKeepingEdits();
    endSession();
}

bool VaultManager::bringBackLeftoverEdits()
{
    m_session.clearFailure();
    return m_edits.bringBackLeftovers();
}

bool VaultManager::discardLeftoverEdits()
{
    m_session.clearFailure();
    return m_workspace.discardLeftovers() ||
           m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root());
}

bool VaultManager::changePassword(const QString& containerPath, const QByteArray& currentPassword,
                                  const QByteArray& newPassword)
{
    m_session.clearFailure();
    if (isUnlocked()) {
        return m_session.fail(Failure::Reason::AlreadyUnlocked);
    }
    if (currentPassword.isEmpty()) {
        return m_session.fail(Failure::Reason::WrongPassword);
    }
    if (!isPasswordAcceptable(newPassword)) {
        return m_session.fail(Failure::Reason::PasswordTooShort);
    }
    ProcessProtection::disableCoreDumps();
    // The wrapped master key shares the header with the index a session may be rewriting.
    ContainerLock lock;
    if (!m_session.takeLock(lock, containerPath)) {
        return false;
    }
    m_session.forgetRecovery();
    if (m_session.recoverContainer(containerPath) == Recovery::Failed) {
        return m_session.fail(Failure::Reason::InterruptedChange, containerPath);
    }
    // The index is opened too: a header torn in its index must get its journal's header back before
    // a new wrapping is written over it.
    ContainerOpener::Opened opened;
    if (!ContainerOpener(m_session).open(containerPath, currentPassword, true, opened)) {
        return false;
    }
    ContainerHeader& header = opened.header;
    const MasterKeyWrap keyWrap(m_session.crypto());
    const SecretBytes& masterKey = opened.masterKey;
    // Only the wrapping changes: the index's associated data has neither salt, nonce nor KDF name.
    keyWrap.renewSettings(header);
    header.crypto.encryptedMasterKey = keyWrap.wrap(header, newPassword, masterKey.view());
    if (header.crypto.encryptedMasterKey.isEmpty()) {
        return m_session.fail(Failure::Reason::NotEnoughMemory);
    }
    return m_session.containerFile().rewriteHeader(containerPath, header) ||
           m_session.failWrite(containerPath);
}

bool VaultManager::rekeyVault(const QString& containerPath, const QByteArray& currentPassword,
                              const QByteArray& newPassword, const ProgressCallback& progress,
                              QString* preservedPath, QStringList* damagedFiles)
{
    m_session.clearFailure();
    return VaultRekey(m_session, m_workspace.root())
        .run(containerPath, currentPassword, newPassword, progress, preservedPath, damagedFiles);
}

bool VaultManager::importFile(const QString& sourcePath, const QString& vaultPath,
                              const ProgressCallback& progress)
{
    m_session.clearFailure();
    return m_transfer.importFile(sourcePath, vaultPath, progress);
}

bool VaultManager::importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc,
                              const QString& vaultPath, const ProgressCallback& progress)
{
    m_session.clearFailure();
    return m_transfer.importFile(source, size, modifiedUtc, vaultPath, progress);
}

ImportBatch::Outcome VaultManager::importBatch(const QList<ImportItem>& items,
                                               const ImportBatch::Handler& handler,
                                               ImportBatch::Checkpoints checkpoints)
{
    m_session.clearFailure();
    return ImportBatch(m_session, checkpoints).run(items, handler);
}

bool VaultManager::importCapacity(const QList<ImportItem>& items, int* fitting)
{
    m_session.clearFailure();
    return ImportBatch(m_session).measure(items, fitting);
}

bool VaultManager::exportFile(const QString& vaultPath, QIODevice* destination)
{
    m_session.clearFailure();
    return m_transfer.exportFile(vaultPath, destination);
}

bool VaultManager::exportFile(const QString& vaultPath, const QString& destinationPath)
{
    m_session.clearFailure();
    return m_transfer.exportFile(vaultPath, destinationPath);
}

bool VaultManager::exportFolder(const QString& folder, const QString& destination,
                                const FolderExport::Handler& handler, FolderExport::Outcome& outcome)
{
    m_session.clearFailure();
    return FolderExport(m_session, m_transfer).run(folder, destination, handler, outcome);
}

bool VaultManager::createFolder(const QString& path)
{
    m_session.clearFailure();
    return m_entries.createFolder(path);
}

bool VaultManager::deleteEmptyFolder(const QString& path)
{
    m_session.clearFailure();
    return m_entries.deleteEmptyFolder(path);
}

bool VaultManager::deleteFile(const QString& path)
{
    m_session.clearFailure();
    return m_entries.deleteFile(path);
}

bool VaultManager::moveFile(const QString& path, const QString& destinationFolder)
{
    m_session.clearFailure();
    return m_entries.moveFile(path, destinationFolder);
}

bool VaultManager::renameFile(const QString& oldPath, const QString& newPath)
{
    m_session.clearFailure();
    return m_entries.renameFile(oldPath, newPath);
}

bool VaultManager::renameFolder(const QString& oldPath, const QString& newPath)
{
    m_session.clearFailure();
    return m_entries.renameFolder(oldPath, newPath);
}

bool VaultManager::fileExists(const QString& path) const
{
    const QString normalized = normalizeVaultPath(path);
    return !normalized.isEmpty() && index().fileExists(normalized);
}

bool VaultManager::directoryExists(const QString& path) const
{
    const QString normalized = normalizeVaultPath(path);
    return !normalized.isEmpty() && index().directoryExists(normalized);
}

bool VaultManager::entryExists(const QString& path) const
{
    return fileExists(path) || directoryExists(path);
}

bool VaultManager::checkNewEntry(const QString& folder, const QString& name, QString* path)
{
    m_session.clearFailure();
    if (!isValidEntryName(name)) {
        return m_session.fail(Failure::Reason::NameNotAllowed, name);
    }
    const QString joined = joinEntryPath(folder, name);
    if (entryExists(joined)) {
        return m_session.fail(Failure::Reason::AlreadyExists, joined);
    }
    if (path != nullptr) {
        *path = joined;
    }
    return true;
}

bool VaultManager::isOpenForEdit(const QString& vaultPath) const
{
    return m_edits.isOpenForEdit(vaultPath);
}

bool VaultManager::openForEdit(const QString& vaultPath, QString* localPath)
{
    m_session.clearFailure();
    return m_edits.openForEdit(vaultPath, localPath);
}

bool VaultManager::compactVault(const ProgressCallback& progress, QString* preservedPath,
                                QStringList* damagedFiles)
{
    if (preservedPath != nullptr) {
        preservedPath->clear();
    }
    if (damagedFiles != nullptr) {
        damagedFiles->clear();
    }
    m_session.clearFailure();
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    const IndexCipher cipher = m_session.indexCipher();
    const PayloadStore store = m_session.payloadStore();
    const VaultCompactor compactor(m_session.containerFile(), cipher, store, &m_session.lock());
    VaultIndex compacted;
    if (!ContainerLock::SurvivesReplacement) {
        m_session.lock().release();
    }
    const bool done = compactor.compact(m_session.containerPath(), m_session.index(), progress, preservedPath,
                                        compacted, damagedFiles);
    // Where the compactor could not put the lock back on the container (or let go of it up front),
    // it goes onto whatever holds the vault now; a journal that took the reserve's room gave it up.
    if (!m_session.lock().isHeld()) {
        m_session.lock().acquire(m_session.containerPath());
    }
    m_session.holdReserve();
    if (!done) {
        if (damagedFiles != nullptr && !damagedFiles->isEmpty()) {
            return m_session.fail(Failure::Reason::Damaged, damagedFiles->constFirst());
        }
        return m_session.failWrite(m_session.containerPath());
    }
    m_session.installIndex(std::move(compacted));
    return true;
}

bool VaultManager::verifyContents(VerificationReport& report, const ProgressCallback& progress) const
{
    report = VerificationReport();
    ContainerHeader header;
    if (!isUnlocked() || !m_session.containerFile().readHeader(m_session.containerPath(), header)) {
        return false;
    }
    const PayloadStore store = m_session.payloadStore();
    return VaultVerifier(store).verify(m_session.containerPath(), header.payloadOffset, m_session.index(),
                                       progress, report);
}

} // namespace Velmarin::Core
