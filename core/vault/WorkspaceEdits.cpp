#include "core/vault/WorkspaceEdits.h"

#include "core/index/VaultPath.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/PrivateFolder.h"
#include "core/workspace/Workspace.h"

#include <QFile>

namespace Velmarin::Core {

WorkspaceEdits::WorkspaceEdits(VaultSession& session, Workspace& workspace, FileTransfer& transfer)
    : m_session(session)
    , m_workspace(workspace)
    , m_transfer(transfer)
{}

bool WorkspaceEdits::isOpenForEdit(const QString& vaultPath) const
{
    return m_workspace.isOpen(normalizeVaultPath(vaultPath));
}

bool WorkspaceEdits::openForEdit(const QString& vaultPath, QString* localPath)
{
    if (!m_session.canChange() || localPath == nullptr || !m_workspace.isAcquired()) {
        return false;
    }
    const QString path = normalizeVaultPath(vaultPath);
    const FileEntry* stored = m_session.index().findFile(path);
    if (path.isEmpty() || stored == nullptr) {
        return false;
    }
    // The copy goes under the name the vault keeps, so it comes back to the same entry.
    const QString storedPath = stored->vaultPath;
    QFile copy;
    QString local;
    if (!m_workspace.createCopy(storedPath, copy, &local)) {
        return false;
    }
    const bool exported = m_transfer.exportFile(storedPath, &copy) && copy.flush();
    if (!exported || !m_workspace.record(storedPath, copy)) {
        return false;
    }
    *localPath = local;
    return true;
}

bool WorkspaceEdits::bringBackChanged()
{
    return bringBack(m_workspace.changedFiles());
}

bool WorkspaceEdits::bringBackLeftovers()
{
    return m_session.canChange() && bringBack(m_workspace.leftovers()) && m_workspace.discardLeftovers();
}

bool WorkspaceEdits::bringBack(const QList<EditedFile>& copies)
{
    for (const EditedFile& edited : copies) {
        QFile copy;
        if (!m_workspace.openCopy(edited.vaultPath, copy) ||
            !m_transfer.importFile(copy, copy.size(), PrivateFolder::modified(copy), edited.vaultPath, {})) {
            return false;
        }
    }
    return true;
}

} // namespace Velmarin::Core
