#pragma once

#include "core/workspace/EditedFile.h"
#include "core/workspace/PrivateFolder.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

class QFile;

namespace Velmarin::Core {

// Where the decrypted copies of files opened for editing live. Every workspace of a user lies below
// one root of that user's own (by default in the per-user application data, never a folder other
// users share), and each container has one folder there, named from the container's identity, so a
// session that ended without locking (a crash, a power cut) leaves copies the next unlock finds:
//   <root>/<id>/lock           held while a session uses the workspace
//   <root>/<id>/manifest.json  each copy written, with its modification time right after writing
//   <root>/<id>/files/...      the copies, mirroring the vault's folders
//   <root>/<id>/outgoing/...   copies dragged out to the file manager, wiped at lock and unlock
class Workspace
{
public:
    enum class Problem
    {
        None,
        // The root, or a folder above it, belongs to another user, is open to others, or is a link.
        NotPrivate,
        // The folders could not be made.
        Unavailable,
        // Another session uses the same workspace (the same container, or a copy of it).
        InUse
    };

    static inline const QString LockFileName = QStringLiteral("lock");
    static inline const QString ManifestFileName = QStringLiteral("manifest.json");
    static inline const QString FilesFolderName = QStringLiteral("files");
    // Copies dragged out to the file manager, one folder per drag; never edits to bring back.
    static inline const QString OutgoingFolderName = QStringLiteral("outgoing");

    // An empty root makes a workspace that is never taken: such a session opens nothing for editing.
    explicit Workspace(const QString& root = QString());
    // The per-user folder the window uses.
    static QString defaultRoot();

    bool isEnabled() const { return !m_root.isEmpty(); }
    bool isAcquired() const { return m_folder.isOpen(); }
    QString root() const { return m_root; }
    // The container's folder while acquired, empty otherwise.
    QString directory() const { return isAcquired() ? m_folder.path() : QString(); }
    Problem problem() const { return m_problem; }

    // Takes the folder of the container whose identity is id, made owner-only when missing, and
    // finds the copies an earlier session of it changed and never brought back.
    bool acquire(const QString& id);
    // Wipes and removes every copy and the container's folder, and drops the lock.
    bool release();
    // Keeps the copies the user changed, with the manifest that names them, for the next unlock;
    // wipes the others and drops the lock.
    void releaseKeepingEdits();

    // Changed copies found by acquire, until they are brought back or discarded.
    QList<EditedFile> leftovers() const { return m_leftovers; }
    bool discardLeftovers();

    // Creates the copy of vaultPath anew, owner-only, and tells where the desktop will find it.
    bool createCopy(const QString& vaultPath, QFile& copy, QString* localPath);
    // Records a copy just written, with its modification time, in memory and in the manifest.
    bool record(const QString& vaultPath, const QFile& copy);
    // Opens a copy for reading through the workspace's own folders, never through a link.
    bool openCopy(const QString& vaultPath, QFile& copy) const;
    // Records whose copy still exists and was modified after it was written, by vault path.
    QList<EditedFile> changedFiles() const;
    bool isOpen(const QString& vaultPath) const;
    // True when an open file is folder itself or lies inside it.
    bool holdsOpenFile(const QString& folder) const;

    // A new, empty folder for one drag's copies, beside the copies opened for editing and never
    // mistaken for them; its name in outgoing and its path. The file manager reads the copies after
    // the drag, so they stay until discardOutgoing or the end of the session.
    bool createOutgoingFolder(QString* name, QString* path);
    // Wipes one drag's copies (name), or all of them.
    bool discardOutgoing(const QString& name = QString()) const;

    // Workspaces below root that no session uses and that still hold copies: left by sessions of
    // other containers that ended without locking.
    static QStringList strayWorkspaces(const QString& root);
    static bool removeStrayWorkspaces(const QString& root);
    // Whether name is one a workspace folder has: a container's identity, 32 lower-case hex digits.
    static bool isWorkspaceName(const QString& name);

private:
    bool isChanged(const EditedFile& file) const;
    bool writeManifest() const;
    QList<EditedFile> readManifest() const;
    // Checks the root and the folders again before a copy is written where the desktop will look.
    bool isStillPrivate() const;
    bool fail(Problem problem);
    // Lets go of the folders and the lock, leaving on disk whatever is there.
    void closeFolders();
    // Removes the workspace name in root, whose folder is held (locked) as folder.
    static bool dismantle(const PrivateFolder& root, const QString& name, PrivateFolder& folder);
    static QStringList pathsOf(const QList<EditedFile>& files);

    QString m_root;
    QString m_id;
    Problem m_problem = Problem::None;
    PrivateFolder m_folder;
    PrivateFolder m_files;
    QHash<QString, EditedFile> m_edited;
    QList<EditedFile> m_leftovers;
};

} // namespace Velmarin::Core
