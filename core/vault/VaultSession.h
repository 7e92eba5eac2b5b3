#pragma once

#include "core/container/ContainerFile.h"
#include "core/container/ContainerLock.h"
#include "core/container/ContainerRecovery.h"
#include "core/crypto/SecretBytes.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"
#include "core/vault/Failure.h"
#include "core/vault/RollbackRecord.h"

#include <QString>

class QFileDevice;

namespace Velmarin::Core {

class IndexCipher;
class PayloadStore;

// What an unlocked vault holds while it is open (the container it came from and its lock, the
// master key, the live index) and the one way the index changes: a new index is sealed into the
// container's header, and only once that write succeeded does it become the live one. The
// operations on a vault (FileTransfer, EntryOperations, WorkspaceEdits) share one session.
class VaultSession
{
public:
    // A read-only session refuses every change, so listing, exporting and checking a vault write
    // nothing anywhere.
    enum class Access
    {
        ReadWrite,
        ReadOnly
    };

    VaultSession() = default;
    VaultSession(const VaultSession&) = delete;
    VaultSession& operator=(const VaultSession&) = delete;

    void open(const QString& containerPath, SecretBytes masterKey, VaultIndex index, Access access);
    // The container a locked session names, such as the one just created.
    void name(const QString& containerPath) { m_containerPath = containerPath; }
    // Wipes the keys and the index and gives up the container.
    void close();
    // Takes the room of the next journal beside the container (see JournalReserve), sized for the
    // header as it is; a session open for changes holds it from unlock to lock.
    void holdReserve();

    bool isOpen() const { return m_open; }
    // Open, and not read-only.
    bool canChange() const { return m_open && m_access == Access::ReadWrite; }
    Access access() const { return m_access; }
    QString containerPath() const { return m_containerPath; }
    const VaultIndex& index() const { return m_index; }
    const VaultCrypto& crypto() const { return m_crypto; }
    const ContainerFile& containerFile() const { return m_containerFile; }
    ContainerLock& lock() { return m_lock; }

    QByteArray blockKey() const;
    IndexCipher indexCipher() const;
    PayloadStore payloadStore() const;
    // Names the container's workspace without telling anyone who lacks the key which container it is.
    QString workspaceId() const;
    // The same name for any master key: what a re-key moves from the old key's to the new one's.
    static QString workspaceIdOf(const VaultCrypto& crypto, const QByteArray& masterKey);

    // The container's header, recovered first when an earlier change left it torn.
    bool readCurrentHeader(ContainerHeader& header);
    // Writes newIndex into the container header and, only then, makes it the live index.
    bool saveIndex(const VaultIndex& newIndex);
    // oldHeaderKept: see ContainerFile::rewriteHeader.
    bool saveIndex(ContainerHeader& header, const VaultIndex& newIndex, bool* oldHeaderKept = nullptr);
    // For a container rebuilt as a whole (compaction), whose header already holds newIndex.
    void installIndex(VaultIndex newIndex);

    // Where this computer records the states it saw of each container (see RollbackRecord).
    void keepStatesIn(const QString& root) { m_states = RollbackRecord(root); }
    const RollbackRecord& states() const { return m_states; }
    // Compares the index just opened, sealed as encryptedIndex, with the states this computer saw of
    // the container, and records it unless it is an earlier one, which waits for acceptEarlierState.
    void checkState(const QByteArray& encryptedIndex);
    bool foundEarlierState() const { return m_earlierState; }
    // The user chose to go on with the earlier state: it becomes the newest this computer saw.
    void acceptEarlierState();
    // Records an index this session sealed into the container as the newest state.
    void rememberState(const QByteArray& encryptedIndex);

    // Finishes or undoes a change cut short beside containerPath, for a caller that holds the
    // container's lock or knows there is no container. What was put back is kept for lastRecovery.
    ContainerRecovery::Outcome recoverContainer(const QString& containerPath,
                                                ContainerRecovery::HeaderJournals headerJournals =
                                                    ContainerRecovery::HeaderJournals::OverUnreadableHeader);
    ContainerRecovery::Outcome lastRecovery() const { return m_recovery; }

    // Every operation starts with a clean slate and records why it failed before answering false.
    void clearFailure() { m_failure = Failure(); }
    bool fail(Failure::Reason reason, const QString& path = QString(),
              const QString& systemError = QString());
    // Keeps a reason a lower step already recorded; records reason only when there is none yet.
    bool failUnlessKnown(Failure::Reason reason, const QString& path = QString());
    const Failure& failure() const { return m_failure; }
    void setCause(Failure::Reason cause) { m_failure.cause = cause; }
    // Records why a change is refused: the vault is locked, or open read-only.
    bool failUnchangeable()
    {
        return fail(m_open ? Failure::Reason::ReadOnly : Failure::Reason::NotUnlocked);
    }
    // Takes lock on containerPath, or records why not: another session holds it, or the file is not
    // there or does not open.
    bool takeLock(ContainerLock& lock, const QString& containerPath);
    // Records why containerPath did not read as a container: missing, not one, newer, unreadable.
    bool failRead(const QString& containerPath);
    // Records why a write to path (the container, its journal, a new container) failed: a full drive
    // is told apart from other failures by the drive's free space and the system's error.
    // device is the file whose open or write failed, when the caller has it.
    bool failWrite(const QString& path, const QFileDevice* device = nullptr);
    // The same from the system's words, for a write done out of sight (a journal).
    bool failWrite(const QString& path, const QString& systemError, bool cutShort = false);
    // Refuses, before anything is written, growing the container by growth bytes past the largest
    // file its drive's file system can hold (FAT's 4 GiB), which no free space would make fit.
    bool checkGrowth(qint64 growth);
    void forgetRecovery() { m_recovery = ContainerRecovery::Outcome::Nothing; }

private:
    // Keyed by the master key, so the record ties nothing to a drive for whoever lacks the key.
    QByteArray stateDigest(const QByteArray& encryptedIndex) const;

    VaultCrypto m_crypto;
    ContainerFile m_containerFile;
    // Held from unlock to lock, so no other session writes the same container.
    ContainerLock m_lock;
    bool m_open = false;
    Access m_access = Access::ReadWrite;
    ContainerRecovery::Outcome m_recovery = ContainerRecovery::Outcome::Nothing;
    RollbackRecord m_states;
    QByteArray m_openedState;
    bool m_earlierState = false;
    Failure m_failure;
    QString m_containerPath;
    SecretBytes m_masterKey;
    VaultIndex m_index;
};

} // namespace Velmarin::Core
