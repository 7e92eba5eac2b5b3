#include "core/vault/WorkspaceEdits.h"

#include "core/index/VaultPath.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/ImportBatch.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/PrivateFolder.h"
#include "core/workspace/Workspace.h"

#include <QFile>
#include <QFileInfo>

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
    if (copies.isEmpty()) {
        return true;
    }
    QList<ImportItem> items;
    for (const EditedFile& edited : copies) {
        items.append(
            ImportItem{edited.localPath, edited.vaultPath, QFileInfo(edited.localPath).size(), false});
    }
    // The first copy that could not be stored names the failure; the others still go in.
    Failure firstCause;
    QString firstPath;
    ImportBatch::Handler handler;
    handler.open = [this](const ImportItem& item, QFile& copy, QDateTime* modified) {
        if (!m_workspace.openCopy(item.vaultPath, copy)) {
            return false;
        }
        *modified = PrivateFolder::modified(copy);
        return true;
    };
    handler.failed = [&](const ImportItem& item, const Failure& cause) {
        if (firstPath.isEmpty()) {
            firstCause = cause;
            firstPath = item.vaultPath;
        }
    };
    const ImportBatch::Outcome outcome = ImportBatch(m_session).run(items, handler);
    if (outcome.succeeded()) {
        return true;
    }
    if (firstPath.isEmpty()) {
        firstCause = m_session.failure();
        firstPath = outcome.stoppedAt >= 0 && outcome.stoppedAt < items.size()
                        ? items.at(outcome.stoppedAt).vaultPath
                        : items.constFirst().vaultPath;
    }
    // What stopped the import travels along, so the user learns what to do with the copy.
    m_session.fail(Failure::Reason::EditNotSaved, firstPath, firstCause.systemError);
    m_session.setCause(firstCause.reason);
    return false;
}

} // namespace Velmarin::Core
