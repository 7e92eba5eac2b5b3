#include "core/vault/VaultSession.h"

#include "core/container/ContainerJournal.h"
#include "core/container/ContainerProbe.h"
#include "core/container/DriveSpace.h"
#include "core/container/IndexCipher.h"
#include "core/container/JournalReserve.h"
#include "core/container/PayloadStore.h"

#include <QFileDevice>
#include <QFileInfo>

#include <cerrno>

namespace Velmarin::Core {

namespace {

const QByteArray FileBlockLabel = QByteArrayLiteral("file-block");
// A write that failed with less than a block and a header free was most likely out of room.
constexpr qint64 NearlyFull = PayloadStore::BlockSize + ContainerFile::HeaderRegionSize;

} // namespace

void VaultSession::open(const QString& containerPath, SecretBytes masterKey, VaultIndex index, Access access)
{
    m_masterKey = std::move(masterKey);
    m_index = std::move(index);
    m_containerPath = containerPath;
    m_access = access;
    m_open = true;
    if (access == Access::ReadWrite) {
        holdReserve();
    }
}

void VaultSession::holdReserve()
{
    QByteArray header;
    // Without it (the drive is full already), a change needs room of its own for its journal.
    if (m_containerFile.readHeaderBytes(m_containerPath, header)) {
        JournalReserve::hold(m_containerPath, header.size());
    }
}

void VaultSession::close()
{
    if (m_open && m_access == Access::ReadWrite) {
        JournalReserve::giveUp(m_containerPath);
    }
    m_masterKey.clear();
    m_index.clear();
    m_openedState.clear();
    m_earlierState = false;
    m_open = false;
    m_access = Access::ReadWrite;
    m_lock.release();
}

QByteArray VaultSession::blockKey() const
{
    return m_masterKey.view(VaultCrypto::KeySize);
}

IndexCipher VaultSession::indexCipher() const
{
    return IndexCipher(m_crypto, blockKey());
}

PayloadStore VaultSession::payloadStore() const
{
    // Block associated data names only the format version, which every readable header shares.
    return PayloadStore(m_crypto, blockKey(), ContainerHeader().associatedData(FileBlockLabel));
}

QString VaultSession::workspaceId() const
{
    return workspaceIdOf(m_crypto, m_masterKey.view());
}

QString VaultSession::workspaceIdOf(const VaultCrypto& crypto, const QByteArray& masterKey)
{
    const QByteArray digest = crypto.hmacSha256(masterKey, QByteArrayLiteral("velmarin-workspace"));
    return QString::fromLatin1(digest.left(16).toHex());
}

bool VaultSession::readCurrentHeader(ContainerHeader& header)
{
    if (m_containerFile.readHeader(m_containerPath, header)) {
        return true;
    }
    // An earlier change of this session may have been cut off by the drive half-way through its
    // header; this session holds the lock, so it can put the old header back itself.
    if (recoverContainer(m_containerPath) == ContainerRecovery::Outcome::Failed) {
        return fail(Failure::Reason::InterruptedChange, m_containerPath);
    }
    return m_containerFile.readHeader(m_containerPath, header) || failRead(m_containerPath);
}

bool VaultSession::saveIndex(const VaultIndex& newIndex)
{
    ContainerHeader header;
    return readCurrentHeader(header) && saveIndex(header, newIndex);
}

bool VaultSession::saveIndex(ContainerHeader& header, const VaultIndex& newIndex, bool* oldHeaderKept)
{
    if (oldHeaderKept != nullptr) {
        *oldHeaderKept = true;
    }
    if (!indexCipher().sealInto(header, newIndex)) {
        return fail(Failure::Reason::NotEnoughMemory);
    }
    QString systemError;
    if (!m_containerFile.rewriteHeader(m_containerPath, header, oldHeaderKept, &systemError)) {
        // Told apart only after the fact, so a change that fits pays for one serialisation.
        if (m_containerFile.serializeHeader(header).size() > ContainerFile::HeaderRegionSize) {
            return fail(Failure::Reason::IndexFull, m_containerPath);
        }
        return failWrite(m_containerPath, systemError);
    }
    m_index = newIndex;
    rememberState(header.encryptedIndex);
    return true;
}

void VaultSession::installIndex(VaultIndex newIndex)
{
    m_index = std::move(newIndex);
    ContainerHeader header;
    if (m_containerFile.readHeader(m_containerPath, header)) {
        rememberState(header.encryptedIndex);
    }
}

QByteArray VaultSession::stateDigest(const QByteArray& encryptedIndex) const
{
    return m_crypto
        .hmacSha256(m_masterKey.view(), QByteArrayLiteral("velmarin-index-state|") + encryptedIndex)
        .toHex();
}

void VaultSession::checkState(const QByteArray& encryptedIndex)
{
    m_openedState = stateDigest(encryptedIndex);
    m_earlierState = m_states.check(workspaceId(), m_openedState) == RollbackRecord::Verdict::Earlier;
    if (!m_earlierState) {
        // A record that cannot be written costs only the warning next time, never the session.
        m_states.remember(workspaceId(), m_openedState);
    }
}

void VaultSession::acceptEarlierState()
{
    if (m_open && m_earlierState) {
        m_states.remember(workspaceId(), m_openedState);
        m_earlierState = false;
    }
}

void VaultSession::rememberState(const QByteArray& encryptedIndex)
{
    if (m_open && m_states.isEnabled()) {
        m_states.remember(workspaceId(), stateDigest(encryptedIndex));
        m_earlierState = false;
    }
}

bool VaultSession::fail(Failure::Reason reason, const QString& path, const QString& systemError)
{
    m_failure = Failure{reason, path, systemError};
    return false;
}

bool VaultSession::failUnlessKnown(Failure::Reason reason, const QString& path)
{
    return m_failure.reason != Failure::Reason::None ? false : fail(reason, path);
}

bool VaultSession::takeLock(ContainerLock& lock, const QString& containerPath)
{
    switch (lock.acquire(containerPath)) {
    case ContainerLock::Result::Acquired:
        // A compaction elsewhere is copying a new container into place: its journal's lock, held
        // meanwhile, stands for the container's, which the half-copied file cannot yet carry.
        if (ContainerRecovery::hasJournal(containerPath) &&
            ContainerLock::isInUse(ContainerJournal::pathFor(containerPath))) {
            lock.release();
            return fail(Failure::Reason::InUse, containerPath);
        }
        return true;
    case ContainerLock::Result::InUse:
        return fail(Failure::Reason::InUse, containerPath);
    case ContainerLock::Result::Failed:
        break;
    }
    return failRead(containerPath);
}

bool VaultSession::failRead(const QString& containerPath)
{
    const ContainerProbe::Finding finding = ContainerProbe::probe(containerPath);
    switch (finding.verdict) {
    case ContainerProbe::Verdict::Missing:
        return fail(Failure::Reason::ContainerMissing, containerPath);
    case ContainerProbe::Verdict::NewerFormat:
        return fail(Failure::Reason::NewerFormat, containerPath);
    case ContainerProbe::Verdict::NotAFile:
        return fail(Failure::Reason::NotARegularFile, containerPath);
    case ContainerProbe::Verdict::NotAContainer:
        return fail(Failure::Reason::NotAContainer, containerPath);
    case ContainerProbe::Verdict::Unreadable:
    case ContainerProbe::Verdict::Readable:
        // Readable now: the drive failed the first read and not the second.
        break;
    }
    return fail(Failure::Reason::DriveRead, containerPath, finding.systemError);
}

bool VaultSession::failWrite(const QString& path, const QFileDevice* device)
{
    const bool told = device != nullptr && device->error() != QFileDevice::NoError;
    // Qt reports a write the system cut short without its error: the drive took what fitted.
    const bool cutShort = device != nullptr && !told;
    return failWrite(path, told ? device->errorString() : QString(), cutShort);
}

bool VaultSession::failWrite(const QString& path, const QString& systemError, bool cutShort)
{
    // The file system's own limit first: a FAT drive may have room left and still refuse.
    if (DriveSpace::isSizeRefusal(systemError)) {
        return fail(Failure::Reason::FileTooLargeForFileSystem, path, systemError);
    }
    const DriveSpace drive = DriveSpace::of(path);
    const bool nearlyFull = drive.available && *drive.available < NearlyFull;
    if (nearlyFull || cutShort || systemError == qt_error_string(ENOSPC)) {
        return fail(Failure::Reason::NoSpace, path, systemError);
    }
    return fail(Failure::Reason::DriveWrite, path, systemError);
}

bool VaultSession::checkGrowth(qint64 growth)
{
    const DriveSpace drive = DriveSpace::of(m_containerPath);
    if (drive.holdsFileOf(QFileInfo(m_containerPath).size() + growth)) {
        return true;
    }
    return fail(Failure::Reason::FileTooLargeForFileSystem, m_containerPath);
}

ContainerRecovery::Outcome VaultSession::recoverContainer(const QString& containerPath,
                                                          ContainerRecovery::HeaderJournals headerJournals)
{
    using Outcome = ContainerRecovery::Outcome;
    if (!ContainerRecovery::hasJournal(containerPath)) {
        return Outcome::Nothing;
    }
    // The journal's own lock: while a compaction copies onto a drive that has no whole container,
    // the container's lock guards nothing.
    ContainerLock journalLock;
    if (ContainerRecovery::hasJournal(containerPath) &&
        journalLock.acquire(ContainerJournal::pathFor(containerPath)) != ContainerLock::Result::Acquired) {
        return Outcome::Failed;
    }
    const Outcome outcome = ContainerRecovery(m_containerFile).recover(containerPath, headerJournals);
    if (outcome == Outcome::Failed) {
        return Outcome::Failed;
    }
    if (outcome != Outcome::Nothing) {
        m_recovery = outcome;
    }
    return m_recovery;
}

} // namespace Velmarin::Core
