#pragma once

#include "core/workspace/EditedFile.h"

#include <QList>
#include <QPair>
#include <QString>

namespace Velmarin::Core {

class FileTransfer;
class VaultSession;
class Workspace;

// Files opened for editing: a plaintext copy goes into the session's private workspace, and what
// the user changed there comes back into the vault at lock, or at the next unlock when a session
// ended without locking.
class WorkspaceEdits
{
public:
    WorkspaceEdits(VaultSession& session, Workspace& workspace, FileTransfer& transfer);

    bool openForEdit(const QString& vaultPath, QString* localPath);
    bool isOpenForEdit(const QString& vaultPath) const;
    // Imports each copy the user changed under its vault path, in one batch. False when one could
    // not be stored: the others are stored all the same, and every copy stays in the workspace.
    bool bringBackChanged();
    // The same for the copies an earlier session left, which are wiped once all are stored.
    bool bringBackLeftovers();
    // After a bring-back that stored everything: the copies stored under another name because
    // their own path had become a folder (or their folder a file), as (opened as, stored as).
    const QList<QPair<QString, QString>>& moved() const { return m_moved; }

private:
    // Imports the copies, read through the workspace's own folders; the failure names the first
    // copy that could not be stored.
    bool bringBack(const QList<EditedFile>& copies);

    VaultSession& m_session;
    Workspace& m_workspace;
    FileTransfer& m_transfer;
    QList<QPair<QString, QString>> m_moved;
};

} // namespace Velmarin::Core
