#pragma once

#include "core/container/ContainerFile.h"
#include "core/container/ContainerLock.h"
#include "core/container/ProgressCallback.h"
#include "core/crypto/SecretBytes.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"
#include "core/vault/VerificationReport.h"
#include "core/workspace/Workspace.h"

#include <QByteArray>
#include <QString>

class QDateTime;
class QFile;
class QIODevice;

namespace Velmarin::Core {

class IndexCipher;
class PayloadStore;

// The vault engine: one container, its session and every operation on its contents.
// Operations answer only true or false; the caller chooses what to tell the user. Each change is
// made on a copy of the index that becomes the live one only after the container header was written.
class VaultManager
{
public:
    enum class State
    {
        Locked = 0,
        Unlocked = 1
    };

    // A read-only session takes no workspace and refuses every change, so listing, exporting and
    // checking a vault write nothing anywhere.
    enum class Access
    {
        ReadWrite,
        ReadOnly
    };

    // What had to be put back from a journal beside the container, after a change was cut short.
    enum class Recovery
    {
        Nothing,
        // The header from before the interrupted change: that change is lost, nothing else.
        HeaderRestored,
        // The compacted container, from its copy on the local disk.
        ContainerRestored,
        // A journal is there but the container could not be made whole; everything was left as it was.
        Failed
    };

    // Files opened for editing go to a workspace below workspaceRoot (see Workspace::defaultRoot).
    // Without a root the session takes no workspace and opens nothing for editing.
    explicit VaultManager(const QString& workspaceRoot = QString());
    ~VaultManager();
    VaultManager(const VaultManager&) = delete;
    VaultManager& operator=(const VaultManager&) = delete;

    // Passwords are the UTF-8 bytes of what the user typed; the caller owns and wipes them.
    // unlock and changePassword fail when another session holds the container (ContainerLock::isInUse).
    bool createVault(const QString& containerPath, const QByteArray& password);
    bool unlock(const QString& containerPath, const QByteArray& password, Access access = Access::ReadWrite);
    bool lock();
    // For when the vault must close at once (its drive is gone, the computer is going to sleep and an
    // edit could not be stored): the keys and the index are wiped without touching the container.
    // Copies the user changed stay in the private workspace and are offered back at the next unlock.
    void lockKeepingEdits();
    // What the last unlock, recover or changePassword had to put back first (never in read-only
    // sessions, which write nothing).
    Recovery lastRecovery() const { return m_recovery; }
    // Finishes or undoes a change that was cut short, without a password; while locked only.
    Recovery recover(const QString& containerPath);
    // Whether a change was cut short beside containerPath (its journal is there), even when no
    // container is.
    static bool hasInterruptedChange(const QString& containerPath);
    bool changePassword(const QString& containerPath, const QByteArray& currentPassword,
                        const QByteArray& newPassword);

    State state() const { return m_state; }
    bool isUnlocked() const { return m_state == State::Unlocked; }
    Access access() const { return m_access; }
    QString containerPath() const { return m_containerPath; }
    const VaultIndex& index() const { return m_index; }
    QString workspaceDirectory() const { return m_workspace.directory(); }
    QString workspaceRoot() const { return m_workspace.root(); }
    // Why the last unlock or openForEdit could not use the workspace.
    Workspace::Problem workspaceProblem() const { return m_workspace.problem(); }

    // Copies that a session of this container changed and never brought back (it ended without
    // locking), found by unlock. The caller brings them back or discards them.
    QList<EditedFile> leftoverEdits() const { return m_workspace.leftovers(); }
    // Imports each leftover copy under its vault path, then wipes them all. False when one could not
    // be stored: those not stored stay for the next unlock.
    bool bringBackLeftoverEdits();
    bool discardLeftoverEdits();
    // Workspaces of other containers that sessions left with copies in them (see Workspace).
    QStringList strayWorkspaces() const { return Workspace::strayWorkspaces(m_workspace.root()); }
    bool removeStrayWorkspaces() { return Workspace::removeStrayWorkspaces(m_workspace.root()); }

    static bool isPasswordAcceptable(const QByteArray& password);

    bool importFile(const QString& sourcePath, const QString& vaultPath,
                    const ProgressCallback& progress = {});
    // The same from a file already open for reading, with the size and time to record.
    bool importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc, const QString& vaultPath,
                    const ProgressCallback& progress = {});
    bool exportFile(const QString& vaultPath, const QString& destinationPath);
    bool exportFile(const QString& vaultPath, QIODevice* destination);

    bool createFolder(const QString& path);
    bool deleteEmptyFolder(const QString& path);
    bool deleteFile(const QString& path);
    bool moveFile(const QString& path, const QString& destinationFolder);
    bool renameFile(const QString& oldPath, const QString& newPath);
    bool renameFolder(const QString& oldPath, const QString& newPath);
    bool fileExists(const QString& path) const;
    bool directoryExists(const QString& path) const;

    bool openForEdit(const QString& vaultPath, QString* localPath);
    bool isOpenForEdit(const QString& vaultPath) const;

    bool compactVault(const ProgressCallback& progress, QString* preservedPath);

    // Decrypts every block of every file and checks sizes and digests; works in read-only sessions.
    // False when the container could not be read at all; damage found goes into report.
    bool verifyContents(VerificationReport& report, const ProgressCallback& progress = {}) const;

private:
    // Unlocked, and not read-only.
    bool canChange() const;
    // Wipes the keys and the index and gives up the container.
    void endSession();
    // Imports the copies of files opened for editing, read through the workspace's own folders.
    bool bringBack(const QList<EditedFile>& copies);
    // Names the container's workspace without telling anyone who lacks the key which container it is.
    QString workspaceId() const;
    // True when a file stands where one of path's folders would have to be.
    bool crossesFile(const QString& path) const;
    QByteArray blockKey() const;
    PayloadStore payloadStore() const;
    // A copy of the live index with the file at oldPath (any letter case) moved to newPath.
    VaultIndex withFileRenamed(const QString& oldPath, const QString& newPath) const;
    IndexCipher indexCipher() const;
    SecretBytes derivePasswordKey(const ContainerHeader& header, const QByteArray& password) const;
    QByteArray wrapMasterKey(const ContainerHeader& header, const QByteArray& password,
                             const QByteArray& masterKey) const;
    SecretBytes unwrapMasterKey(const ContainerHeader& header, const QByteArray& password) const;
    // Writes newIndex into the container header and, only then, makes it the live index.
    bool saveIndex(const VaultIndex& newIndex);
    // oldHeaderKept: see ContainerFile::rewriteHeader.
    bool saveIndex(ContainerHeader& header, const VaultIndex& newIndex, bool* oldHeaderKept = nullptr);
    // The container's header, recovered first when an earlier change left it torn.
    bool readCurrentHeader(ContainerHeader& header);
    // recover, for a caller that holds the container's lock or knows there is no container.
    Recovery recoverContainer(const QString& containerPath);
    // Puts the container back to size after a failed append.
    static void truncateContainer(QFile& container, const QString& path, qint64 size);

    VaultCrypto m_crypto;
    ContainerFile m_containerFile;
    // Held from unlock to lock, so no other session writes the same container.
    ContainerLock m_lock;
    Workspace m_workspace;
    State m_state = State::Locked;
    Recovery m_recovery = Recovery::Nothing;
    Access m_access = Access::ReadWrite;
    QString m_containerPath;
    SecretBytes m_masterKey;
    VaultIndex m_index;
};

} // namespace Velmarin::Core
