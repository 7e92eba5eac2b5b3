#pragma once

#include "EditedFile.h"

#include <QHash>
#include <QList>
#include <QLockFile>
#include <QString>

#include <memory>

namespace Velmarin::Core {

// The private folder that holds decrypted copies of files opened for editing, guarded by a lock file.
// Its name is fixed once per instance; it exists only while a vault is unlocked. Everything in it
// is readable by the current user alone, since it holds plaintext in a folder other users share.
class Workspace
{
public:
    static inline const QString LockFileName = QStringLiteral(".velmarin-workspace.lock");

    // The folder is "Velmarin/<uuid>" below the given parent, by default the system's temporary folder.
    explicit Workspace(const QString& parentDirectory = QString());

    QString directory() const { return m_directory; }

    // Creates the folder and takes its lock without waiting.
    bool acquire();
    // Drops the lock and deletes the folder with everything in it.
    bool release();

    // Where the copy of vaultPath goes; the vault's folders are mirrored below the workspace.
    QString localPathFor(const QString& vaultPath) const;
    // Creates the missing folders of a local path below the workspace, owner-only.
    bool makeParentDirectories(const QString& localPath) const;

    bool record(const QString& vaultPath, const QString& localPath);
    // Records whose copy still exists and was modified after it was written, by vault path.
    QList<EditedFile> changedFiles() const;
    bool isOpen(const QString& vaultPath) const;
    // True when an open file is folder itself or lies inside it.
    bool holdsOpenFile(const QString& folder) const;
    void clearRecords();

private:
    QString m_directory;
    std::unique_ptr<QLockFile> m_lock;
    QHash<QString, EditedFile> m_edited;
};

} // namespace Velmarin::Core
