#include "core/vault/WorkspaceEdits.h"

#include "core/index/VaultPath.h"
#include "core/vault/FileTransfer.h"
#include "core/vault/ImportBatch.h"
#include "core/vault/IndexAudit.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/PrivateFolder.h"
#include "core/workspace/Workspace.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

namespace Velmarin::Core {

namespace {

bool isTaken(const QString& path, const VaultIndex& index, const QStringList& taken)
{
    return index.fileExists(path) || index.directoryExists(path) || index.crossesFile(path) ||
           taken.contains(path, Qt::CaseInsensitive);
}

// Where a copy goes back: its own vault path, or, when a folder took that path while the copy was
// open (or a file took the place of its folder), the first free name beside it, "nota (2).txt", so
// that no lock strands an edit. A folder that became a file leaves only the vault's root.
QString homeFor(const QString& vaultPath, const VaultIndex& index, const QStringList& taken)
{
    if (!index.directoryExists(vaultPath) && !index.crossesFile(vaultPath) &&
        !taken.contains(vaultPath, Qt::CaseInsensitive)) {
        return vaultPath;
    }
    const QString folder = index.crossesFile(vaultPath) ? QString() : parentVaultPath(vaultPath);
    const QString name = vaultFileName(vaultPath);
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    const QString stem = dot > 0 ? name.left(dot) : name;
    const QString suffix = dot > 0 ? name.mid(dot) : QString();
    for (int number = 1;; ++number) {
        const QString candidate = joinVaultPath(
            folder, number == 1 ? name : QStringLiteral("%1 (%2)%3").arg(stem).arg(number).arg(suffix));
        if (!isTaken(candidate, index, taken)) {
            return candidate;
        }
    }
}

} // namespace

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
    const FileEntry* stored = path.isEmpty() ? nullptr : m_session.index().findFilePreferringExact(path);
    if (stored == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, vaultPath);
    }
    // The copy goes under the name the vault keeps, so it comes back to the same entry.
    const QString storedPath = stored->vaultPath;
    if (IndexAudit(m_session.index()).findingFor(storedPath) != nullptr) {
        return m_session.fail(Failure::Reason::IrregularEntry, storedPath);
    }
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
    m_moved.clear();
    if (copies.isEmpty()) {
        return true;
    }
    QList<ImportItem> items;
    // The vault path each copy is stored under -> the one it was opened from.
    QHash<QString, QString> openedAs;
    QStringList homes;
    for (const EditedFile& edited : copies) {
        const QString home = homeFor(edited.vaultPath, m_session.index(), homes);
        homes.append(home);
        openedAs.insert(home, edited.vaultPath);
        if (home != edited.vaultPath) {
            m_moved.append({edited.vaultPath, home});
        }
        items.append(ImportItem{edited.localPath, home, QFileInfo(edited.localPath).size(), false});
    }
    // The first copy that could not be stored names the failure; the others still go in.
    Failure firstCause;
    QString firstPath;
    ImportBatch::Handler handler;
    handler.open = [this, &openedAs](const ImportItem& item, QFile& copy, QDateTime* modified) {
        if (!m_workspace.openCopy(openedAs.value(item.vaultPath), copy)) {
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
    m_moved.clear();
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
