#include "core/vault/OutgoingCopies.h"

#include "core/index/VaultIndex.h"
#include "core/index/VaultPath.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/FolderExport.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/Workspace.h"

#include <QDir>
#include <QSaveFile>

namespace Velmarin::Core {

OutgoingCopies::OutgoingCopies(VaultSession& session, Workspace& workspace, const FileTransfer& transfer)
    : m_session(session)
    , m_workspace(workspace)
    , m_transfer(transfer)
{}

bool OutgoingCopies::write(const QString& vaultPath, QString* localPath, const ProgressCallback& progress)
{
    m_session.clearFailure();
    if (!m_session.isOpen()) {
        return m_session.fail(Failure::Reason::NotUnlocked);
    }
    if (localPath == nullptr || !m_workspace.isAcquired()) {
        return m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.root());
    }
    const QString path = normalizeVaultPath(vaultPath);
    const VaultIndex& index = m_session.index();
    const FileEntry* file = path.isEmpty() ? nullptr : index.findFile(path);
    const DirectoryEntry* folder = path.isEmpty() || file != nullptr ? nullptr : index.findDirectory(path);
    if (file == nullptr && folder == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, vaultPath);
    }
    const QString stored = file != nullptr ? file->vaultPath : folder->path;
    const QString name = vaultFileName(stored);
    // The name becomes an entry of the workspace: a hostile index could make it climb out.
    if (!FolderExport::isPlainRelative(name) || name.contains(QLatin1Char('/'))) {
        return m_session.fail(Failure::Reason::NameNotAllowed, stored);
    }
    QString drag;
    QString folderPath;
    if (!m_workspace.createOutgoingFolder(&drag, &folderPath)) {
        return m_session.fail(Failure::Reason::WorkspaceUnavailable, m_workspace.directory());
    }
    const QString target = QDir(folderPath).filePath(name);
    const bool written =
        file != nullptr ? writeFile(stored, target, progress) : writeFolder(stored, target, progress);
    if (!written) {
        m_workspace.discardOutgoing(drag);
        return false;
    }
    *localPath = target;
    return true;
}

bool OutgoingCopies::writeFile(const QString& vaultPath, const QString& target,
                               const ProgressCallback& progress)
{
    QSaveFile copy(target);
    if (!copy.open(QIODevice::WriteOnly)) {
        return m_session.fail(Failure::Reason::DestinationUnwritable, target, copy.errorString());
    }
    if (!m_transfer.exportFile(vaultPath, &copy, progress)) {
        copy.cancelWriting();
        return false;
    }
    return (copy.flush() && copy.commit()) ||
           m_session.fail(Failure::Reason::DestinationUnwritable, target, copy.errorString());
}

bool OutgoingCopies::writeFolder(const QString& vaultPath, const QString& target,
                                 const ProgressCallback& progress)
{
    FolderExport::Handler handler;
    handler.progress = progress;
    FolderExport::Outcome outcome;
    // The session's failure is then the first file's that failed.
    return FolderExport(m_session, m_transfer).run(vaultPath, target, handler, outcome) &&
           outcome.succeeded();
}

} // namespace Velmarin::Core
