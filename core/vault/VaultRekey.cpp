#include "core/vault/VaultRekey.h"

#include "core/container/ContainerHeader.h"
#include "core/container/ContainerLock.h"
#include "core/container/DriveSpace.h"
#include "core/container/IndexCipher.h"
#include "core/container/PayloadStore.h"
#include "core/crypto/ProcessProtection.h"
#include "core/index/ByteCount.h"
#include "core/vault/ContainerOpener.h"
#include "core/vault/MasterKeyWrap.h"
#include "core/vault/VaultCompactor.h"
#include "core/vault/VaultManager.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/WorkspaceCarryOver.h"

#include <QDir>

namespace Velmarin::Core {

namespace {

const QByteArray FileBlockLabel = QByteArrayLiteral("file-block");

qint64 liveBlockBytes(const VaultIndex& index)
{
    qint64 total = 0;
    for (const FileEntry& file : index.files()) {
        for (const BlockEntry& block : file.blocks) {
            total = addByteCount(total, block.encryptedSize);
        }
    }
    return total;
}

} // namespace

VaultRekey::VaultRekey(VaultSession& session, const QString& workspaceRoot)
    : m_session(session)
    , m_workspaceRoot(workspaceRoot)
{}

bool VaultRekey::run(const QString& containerPath, const QByteArray& currentPassword,
                     const QByteArray& newPassword, const ProgressCallback& progress, QString* preservedPath,
                     QStringList* damagedFiles)
{
    if (preservedPath != nullptr) {
        preservedPath->clear();
    }
    if (damagedFiles != nullptr) {
        damagedFiles->clear();
    }
    if (m_session.isOpen()) {
        return m_session.fail(Failure::Reason::AlreadyUnlocked);
    }
    if (currentPassword.isEmpty()) {
        return m_session.fail(Failure::Reason::WrongPassword);
    }
    if (!VaultManager::isPasswordAcceptable(newPassword)) {
        return m_session.fail(Failure::Reason::PasswordTooShort);
    }
    ProcessProtection::disableCoreDumps();
    // Held throughout: no session writes the container while its blocks are sealed again.
    ContainerLock lock;
    if (!m_session.takeLock(lock, containerPath)) {
        return false;
    }
    m_session.forgetRecovery();
    if (m_session.recoverContainer(containerPath) == ContainerRecovery::Outcome::Failed) {
        return m_session.fail(Failure::Reason::InterruptedChange, containerPath);
    }
    // A header torn inside its index gets its journal's header back once the password proved it.
    ContainerOpener::Opened opened;
    if (!ContainerOpener(m_session).open(containerPath, currentPassword, true, opened)) {
        return false;
    }
    const VaultCrypto& crypto = m_session.crypto();
    const SecretBytes& oldKey = opened.masterKey;
    const VaultIndex& index = opened.index;
    if (!checkRoom(containerPath, liveBlockBytes(index))) {
        return false;
    }
    ContainerHeader newHeader;
    const SecretBytes newKey = newKeyFor(newPassword, newHeader);
    if (newKey.isEmpty()) {
        return m_session.fail(Failure::Reason::NotEnoughMemory);
    }

    const QByteArray blockData = ContainerHeader().associatedData(FileBlockLabel);
    const PayloadStore oldStore(crypto, oldKey.view(VaultCrypto::KeySize), blockData);
    const PayloadStore newStore(crypto, newKey.view(VaultCrypto::KeySize), blockData);
    const IndexCipher newCipher(crypto, newKey.view(VaultCrypto::KeySize));
    const VaultCompactor compactor(m_session.containerFile(), newCipher, oldStore, &lock);
    if (!ContainerLock::SurvivesReplacement) {
        lock.release();
    }
    VaultIndex resealed;
    if (!compactor.reseal(containerPath, newHeader, newStore, index, progress, preservedPath, resealed,
                          damagedFiles)) {
        if (damagedFiles != nullptr && !damagedFiles->isEmpty()) {
            return m_session.fail(Failure::Reason::Damaged, damagedFiles->constFirst());
        }
        return m_session.failWrite(containerPath);
    }
    // The re-key is done whatever happens here: what stays under the old identity is still found
    // by a copy of the container made before.
    const QString oldId = VaultSession::workspaceIdOf(crypto, oldKey.view());
    const QString newId = VaultSession::workspaceIdOf(crypto, newKey.view());
    carryOverIdentity(m_workspaceRoot, oldId, newId);
    // A copy from before the re-key opens only under the old identity, and is an earlier state.
    m_session.states().carryOver(oldId, newId);
    return true;
}

bool VaultRekey::checkRoom(const QString& containerPath, qint64 liveBytes)
{
    const qint64 newSize = addByteCount(ContainerFile::PayloadOffset, liveBytes);
    // The new container is no larger than the old, but the index is all that tells its size here:
    // a container past the drive's file system, or a local disk short of room, is refused up front.
    if (!DriveSpace::of(containerPath).holdsFileOf(newSize)) {
        return m_session.fail(Failure::Reason::FileTooLargeForFileSystem, containerPath);
    }
    const QString local = QDir::tempPath();
    if (!DriveSpace::of(local).hasRoomFor(addByteCount(newSize, VaultCompactor::RoomMargin))) {
        return m_session.fail(Failure::Reason::NoSpace, local);
    }
    return true;
}

SecretBytes VaultRekey::newKeyFor(const QByteArray& newPassword, ContainerHeader& header)
{
    const VaultCrypto& crypto = m_session.crypto();
    const MasterKeyWrap keyWrap(crypto);
    keyWrap.renewSettings(header);
    header.crypto.payloadNonce = crypto.randomBytes(VaultCrypto::NonceSize);
    QByteArray randomKey = crypto.randomBytes(VaultCrypto::MasterKeySize);
    SecretBytes key = SecretBytes::takeFrom(randomKey);
    header.crypto.encryptedMasterKey = keyWrap.wrap(header, newPassword, key.view());
    if (header.crypto.encryptedMasterKey.isEmpty()) {
        key.clear();
    }
    return key;
}

bool VaultRekey::carryOverIdentity(const QString& workspaceRoot, const QString& oldId, const QString& newId)
{
    return WorkspaceCarryOver::carryOver(workspaceRoot, oldId, newId);
}

} // namespace Velmarin::Core
