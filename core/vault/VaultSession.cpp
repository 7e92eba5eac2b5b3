#include "core/vault/VaultSession.h"

#include "core/container/ContainerJournal.h"
#include "core/container/IndexCipher.h"
#include "core/container/PayloadStore.h"

#include <QFileInfo>

namespace Velmarin::Core {

namespace {

const QByteArray FileBlockLabel = QByteArrayLiteral("file-block");

} // namespace

void VaultSession::open(const QString& containerPath, SecretBytes masterKey, VaultIndex index, Access access)
{
    m_masterKey = std::move(masterKey);
    m_index = std::move(index);
    m_containerPath = containerPath;
    m_access = access;
    m_open = true;
}

void VaultSession::close()
{
    m_masterKey.clear();
    m_index.clear();
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
    const QByteArray digest =
        m_crypto.hmacSha256(m_masterKey.view(), QByteArrayLiteral("velmarin-workspace"));
    return QString::fromLatin1(digest.left(16).toHex());
}

bool VaultSession::readCurrentHeader(ContainerHeader& header)
{
    if (m_containerFile.readHeader(m_containerPath, header)) {
        return true;
    }
    // An earlier change of this session may have been cut off by the drive half-way through its
    // header; this session holds the lock, so it can put the old header back itself.
    return recoverContainer(m_containerPath) != ContainerRecovery::Outcome::Failed &&
           m_containerFile.readHeader(m_containerPath, header);
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
    if (!indexCipher().sealInto(header, newIndex) ||
        !m_containerFile.rewriteHeader(m_containerPath, header, oldHeaderKept)) {
        return false;
    }
    m_index = newIndex;
    return true;
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

ContainerRecovery::Outcome VaultSession::recoverContainer(const QString& containerPath)
{
    using Outcome = ContainerRecovery::Outcome;
    if (!ContainerRecovery::hasJournal(containerPath) &&
        !QFileInfo::exists(ContainerRecovery::replacementPathFor(containerPath))) {
        return Outcome::Nothing;
    }
    // The journal's own lock: while a compaction copies onto a drive that has no whole container,
    // the container's lock guards nothing.
    ContainerLock journalLock;
    if (ContainerRecovery::hasJournal(containerPath) &&
        journalLock.acquire(ContainerJournal::pathFor(containerPath)) != ContainerLock::Result::Acquired) {
        return Outcome::Failed;
    }
    const Outcome outcome = ContainerRecovery(m_containerFile).recover(containerPath);
    if (outcome == Outcome::Failed) {
        return Outcome::Failed;
    }
    if (outcome != Outcome::Nothing) {
        m_recovery = outcome;
    }
    return m_recovery;
}

} // namespace Velmarin::Core
