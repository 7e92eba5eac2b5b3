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
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    if (localPath == nullptr || !m_workspace.isAcquired()) {
        return m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root());
    }
    const QString path = normalizeVaultPath(vaultPath);
    const FileEntry* stored = path.isEmpty() ? nullptr : m_session.index().findFile(path);
    if (stored == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, vaultPath);
    }
    // The copy goes under the name the vault keeps, so it comes back to the same entry.
    const QString storedPath = stored->vaultPath;
    QFile copy;
    QString local;
    if (!m_workspace.createCopy(storedPath, copy, &local)) {
        return m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.directory(),
                              copy.errorString());
    }
    if (!m_transfer.exportFile(storedPath, &copy)) {
        return false;
    }
    if (!copy.flush() || !m_workspace.record(storedPath, copy)) {
        return m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.directory(),
                              copy.errorString());
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
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    return bringBack(m_workspace.leftovers()) &&
           (m_workspace.discardLeftovers() ||
            m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root()));
}

bool WorkspaceEdits::bringBack(const QList<EditedFile>& copies)
{
    for (const EditedFile& edited : copies) {
        QFile copy;
        const bool stored =
            m_workspace.openCopy(edited.vaultPath, copy) &&
            m_transfer.importFile(copy, copy.size(), PrivateFolder::modified(copy), edited.vaultPath, {});
        if (!stored) {
            // What stopped the import travels along, so the user learns what to do with the copy.
            const Failure cause = m_session.failure();
            const QString why = !cause.systemError.isEmpty() ? cause.systemError : copy.errorString();
            m_session.fail(Failure::Reason::EditNotSaved, edited.vaultPath, why);
            m_session.setCause(cause.reason);
            return false;
        }
    }
    return true;
}

} // namespace Velmarin::Core
