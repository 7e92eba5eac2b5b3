#pragma once

#include "core/container/ContainerRecovery.h"
#include "core/container/ProgressCallback.h"
#include "core/index/VaultIndex.h"
#include "core/vault/EntryOperations.h"
#include "core/vault/Failure.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/FolderExport.h"
#include "core/vault/ImportBatch.h"
#include "core/vault/OutgoingCopies.h"
#include "core/vault/VaultSession.h"
#include "core/vault/VerificationReport.h"
#include "core/vault/WorkspaceEdits.h"
#include "core/workspace/Workspace.h"

#include <QByteArray>
#include <QString>

class QDateTime;
class QFile;
class QIODevice;

namespace Velmarin::Core {

// The vault as the window and the command line see it: one container and its session. Creating,
// unlocking, locking and changing the password happen here; the work on an open vault is done by
// FileTransfer, EntryOperations and WorkspaceEdits over the shared VaultSession.
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

    using Access = VaultSession::Access;
    // What had to be put back from a journal beside the container, after a change was cut short.
    using Recovery = ContainerRecovery::Outcome;

    // Files opened for editing go to a workspace below workspaceRoot (see Workspace::defaultRoot).
    // Without a root the session takes no workspace and opens nothing for editing. The states this
    // computer saw of each container are kept below stateRoot (see RollbackRecord); without one
    // no state is ever found earlier.
    explicit VaultManager(const QString& workspaceRoot = QString(), const QString& stateRoot = QString());
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
    Recovery lastRecovery() const { return m_session.lastRecovery(); }
    // Whether the last unlock found an index this computer saw before, but not the newest it saw:
    // the container was put back to an earlier state. Nothing was changed; the caller warns the user
    // and either locks or accepts the state.
    bool foundEarlierState() const { return m_session.foundEarlierState(); }
    void acceptEarlierState() { m_session.acceptEarlierState(); }
    // Finishes or undoes a change that was cut short, without a password; while locked only.
    // A header journal beside a header that reads is left (JournalLeft) unless the user asks to
    // apply it anyway (applyOverReadableHeader): it would put back the header it holds.
    Recovery recover(const QString& containerPath, bool applyOverReadableHeader = false);
    // Whether a change was cut short beside containerPath (its journal is there), even when no
    // container is.
    static bool hasInterruptedChange(const QString& containerPath);
    // Where a drive's container lives: "velmarin.vltx" at the root of driveRoot.
    static QString containerPathOn(const QString& driveRoot);
    // Whether another window or command holds the container now (see ContainerLock).
    static bool isInUse(const QString& containerPath);
    bool changePassword(const QString& containerPath, const QByteArray& currentPassword,
                        const QByteArray& newPassword);
    // The same change with a re-key: the whole vault is sealed again under a new master key (see
    // VaultRekey), so no header from before opens what the container holds now. progress,
    // preservedPath and damagedFiles are the compaction's (see compactVault).
    bool rekeyVault(const QString& containerPath, const QByteArray& currentPassword,
                    const QByteArray& newPassword, const ProgressCallback& progress, QString* preservedPath,
                    QStringList* damagedFiles = nullptr);

    State state() const { return isUnlocked() ? State::Unlocked : State::Locked; }
    bool isUnlocked() const { return m_session.isOpen(); }
    Access access() const { return m_session.access(); }
    QString containerPath() const { return m_session.containerPath(); }
    const VaultIndex& index() const { return m_session.index(); }
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
    // Copies the last lock or bring-back stored under a free name beside their own, because a
    // folder had taken their path: (opened as, stored as).
    const QList<QPair<QString, QString>>& movedEdits() const { return m_edits.moved(); }
    bool discardLeftoverEdits();
    // Workspaces of other containers that sessions left with copies in them (see Workspace).
    QStringList strayWorkspaces() const { return Workspace::strayWorkspaces(m_workspace.root()); }
    bool removeStrayWorkspaces() { return Workspace::removeStrayWorkspaces(m_workspace.root()); }

    // Passwords shorter than this, in characters, are refused for new vaults and new passwords.
    static constexpr int MinimumPasswordLength = 12;
    static bool isPasswordAcceptable(const QByteArray& password);
    static bool isPasswordAcceptable(const QString& password);

    // Why the last operation that answered false failed; Reason::None after one that succeeded.
    const Failure& lastFailure() const { return m_session.failure(); }

    bool importFile(const QString& sourcePath, const QString& vaultPath,
                    const ProgressCallback& progress = {});
    // The same from a file already open for reading, with the size and time to record.
    bool importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc, const QString& vaultPath,
                    const ProgressCallback& progress = {});
    // Many files and folders at once, the index written at checkpoints (see ImportBatch). The
    // session's failure is the reason of a stop or of the refusal up front.
    ImportBatch::Outcome importBatch(const QList<ImportItem>& items, const ImportBatch::Handler& handler = {},
                                     ImportBatch::Checkpoints checkpoints = {});
    // How many of items' files, in order, the index can still take; nothing is written.
    bool importCapacity(const QList<ImportItem>& items, int* fitting);
    bool exportFile(const QString& vaultPath, const QString& destinationPath);
    bool exportFile(const QString& vaultPath, QIODevice* destination);
    // A folder and everything below it ("" for the whole vault) into the folder destination, each
    // file as exportFile writes it (see FolderExport). False only when nothing could start.
    bool exportFolder(const QString& folder, const QString& destination, const FolderExport::Handler& handler,
                      FolderExport::Outcome& outcome);

    bool createFolder(const QString& path);
    bool deleteEmptyFolder(const QString& path);
    bool deleteFile(const QString& path);
    bool moveFile(const QString& path, const QString& destinationFolder);
    bool renameFile(const QString& oldPath, const QString& newPath);
    bool renameFolder(const QString& oldPath, const QString& newPath);
    bool fileExists(const QString& path) const;
    bool directoryExists(const QString& path) const;
    // A file or a folder, in any letter case: what a new entry at path would clash with.
    bool entryExists(const QString& path) const;
    // The rule for a name typed for a new or renamed entry in folder: a simple name (see
    // isValidEntryName) that nothing in folder has yet. Fills path, or records NameNotAllowed or
    // AlreadyExists. Checked before anything is asked or written.
    bool checkNewEntry(const QString& folder, const QString& name, QString* path);

    bool openForEdit(const QString& vaultPath, QString* localPath);
    // A file or a folder dragged out to the file manager: a copy in the workspace, wiped at lock and
    // never brought back (see OutgoingCopies). Works in any session that took a workspace.
    bool copyOut(const QString& vaultPath, QString* localPath, const ProgressCallback& progress = {})
    {
        return m_outgoing.write(vaultPath, localPath, progress);
    }
    bool isOpenForEdit(const QString& vaultPath) const;

    // Every block is authenticated as it is copied. When some are damaged the container is left as
    // it was, and damagedFiles (if given) names each damaged file; it is empty after any other failure.
    bool compactVault(const ProgressCallback& progress, QString* preservedPath,
                      QStringList* damagedFiles = nullptr);

    // Decrypts every block of every file and checks sizes and digests; works in read-only sessions.
    // False when the container could not be read at all; damage found goes into report.
    bool verifyContents(VerificationReport& report, const ProgressCallback& progress = {}) const;

private:
    // Ends the session: the keys and the index are wiped and the container given up.
    void endSession();

    VaultSession m_session;
    Workspace m_workspace;
    FileTransfer m_transfer{m_session};
    EntryOperations m_entries{m_session, m_workspace};
    WorkspaceEdits m_edits{m_session, m_workspace, m_transfer};
    OutgoingCopies m_outgoing{m_session, m_workspace, m_transfer};
};

} // namespace Velmarin::Core
