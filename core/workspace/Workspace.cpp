#include "core/workspace/Workspace.h"

#include "core/index/VaultPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

namespace Velmarin::Core {

namespace {

Workspace::Problem problemOf(PrivateFolder::Problem problem)
{
    return problem == PrivateFolder::Problem::NotPrivate ? Workspace::Problem::NotPrivate
                                                         : Workspace::Problem::Unavailable;
}

// A workspace renamed away to be removed (see dismantle).
bool isTombstoneName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{32}\\.x[0-9a-f]+$"));
    return pattern.match(name).hasMatch();
}

// What a removal cut short or refused left behind, renamed away: nobody uses it any more.
void removeTombstones(const PrivateFolder& root)
{
    for (const QString& name : root.entries()) {
        if (isTombstoneName(name)) {
            root.remove(name);
        }
    }
}

} // namespace

bool Workspace::isWorkspaceName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{32}$"));
    return pattern.match(name).hasMatch();
}

Workspace::Workspace(const QString& root)
    : m_root(root)
{}

QString Workspace::defaultRoot()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation))
        .filePath(QStringLiteral("workspaces"));
}

bool Workspace::fail(Problem problem)
{
    m_problem = problem;
    m_files.close();
    m_folder.close();
    return false;
}

bool Workspace::acquire(const QString& id)
{
    m_problem = Problem::None;
    m_edited.clear();
    m_leftovers.clear();
    if (!isEnabled() || !isWorkspaceName(id)) {
        return fail(Problem::Unavailable);
    }
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder root = PrivateFolder::open(m_root, &problem);
    if (!root.isOpen()) {
        return fail(problemOf(problem));
    }
    removeTombstones(root);
    // A session that is removing the folder renames it away before it lets go of the lock: a lock
    // taken in a folder that is no longer at its name is taken again in the new one.
    for (int attempt = 0; attempt < 3 && !isAcquired(); ++attempt) {
        m_folder = root.child(id, &problem);
        if (!m_folder.isOpen()) {
            return fail(problemOf(problem));
        }
        if (!m_folder.lock(LockFileName)) {
            return fail(Problem::InUse);
        }
        if (!m_folder.isStillAtItsPath()) {
            m_folder.close();
        }
    }
    m_files = isAcquired() ? m_folder.child(FilesFolderName, &problem) : PrivateFolder();
    if (!m_files.isOpen()) {
        return fail(isAcquired() ? problemOf(problem) : Problem::InUse);
    }
    m_id = id;
    // What an earlier session dragged out was read by the file manager long ago.
    discardOutgoing();
    for (const EditedFile& file : readManifest()) {
        if (isChanged(file)) {
            m_leftovers.append(file);
        }
    }
    // Copies nobody changed, and whatever else an editor left beside them, go at once.
    m_files.removeAllBut(pathsOf(m_leftovers));
    writeManifest();
    return true;
}

QStringList Workspace::pathsOf(const QList<EditedFile>& files)
{
    QStringList paths;
    for (const EditedFile& file : files) {
        paths.append(file.vaultPath);
    }
    return paths;
}

bool Workspace::discardLeftovers()
{
    m_leftovers.clear();
    if (!isAcquired()) {
        return true;
    }
    const bool removed = m_files.removeAllBut(pathsOf(m_edited.values()));
    return writeManifest() && removed;
}

bool Workspace::release()
{
    if (isAcquired() && !m_leftovers.isEmpty()) {
        // Nobody decided about an earlier session's edits yet: they wait for the next unlock.
        m_edited.clear();
        const bool removed =
            m_files.removeAllBut(pathsOf(m_leftovers)) && writeManifest() && discardOutgoing();
        closeFolders();
        return removed;
    }
    m_edited.clear();
    m_leftovers.clear();
    if (!isAcquired()) {
        return true;
    }
    m_files.close();
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder root = PrivateFolder::open(m_root, &problem);
    const bool removed = dismantle(root, m_id, m_folder);
    closeFolders();
    return removed;
}

bool Workspace::dismantle(const PrivateFolder& root, const QString& name, PrivateFolder& folder)
{
    // Everything but the lock goes while the lock is held; then the folder is renamed away, so no
    // new session can take a lock in it, and only then is the lock let go and the rest removed.
    // Whatever stands at the folder's name (a link put there) is renamed and removed as itself.
    bool removed = folder.removeAllBut({LockFileName});
    const QString tombstone =
        name + QStringLiteral(".x") + QString::number(QRandomGenerator::global()->generate(), 16);
    if (root.isOpen() && root.rename(name, tombstone)) {
        folder.close();
        return root.remove(tombstone) && removed;
    }
    // Where a held folder cannot be renamed (Windows), the lock is let go first.
    folder.close();
    return root.isOpen() && root.remove(name) && removed;
}

void Workspace::releaseKeepingEdits()
{
    if (!isAcquired()) {
        return;
    }
    QHash<QString, EditedFile> kept;
    for (const EditedFile& file : std::as_const(m_edited)) {
        if (isChanged(file)) {
            kept.insert(file.vaultPath, file);
        }
    }
    if (kept.isEmpty() && m_leftovers.isEmpty()) {
        release();
        return;
    }
    m_edited = kept;
    m_files.removeAllBut(pathsOf(m_leftovers) + pathsOf(kept.values()));
    writeManifest();
    discardOutgoing();
    closeFolders();
}

void Workspace::closeFolders()
{
    m_edited.clear();
    m_leftovers.clear();
    m_files.close();
    m_folder.close();
    m_id.clear();
}

bool Workspace::isStillPrivate() const
{
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    return PrivateFolder::open(m_root, &problem).isOpen() && m_folder.isStillAtItsPath() &&
           m_files.isStillAtItsPath();
}

bool Workspace::createCopy(const QString& vaultPath, QFile& copy, QString* localPath)
{
    if (!isAcquired()) {
        return false;
    }
    // The desktop opens the copy by its path: that path must still lead into our own folders.
    if (!isStillPrivate()) {
        m_problem = Problem::NotPrivate;
        return false;
    }
    // An earlier session's edit of this file waits for the user's answer: it is never written over.
    if (std::any_of(m_leftovers.cbegin(), m_leftovers.cend(),
                    [&](const EditedFile& file) { return file.vaultPath == vaultPath; })) {
        return false;
    }
    // A second opening starts from a new file; the first one's record goes.
    m_edited.remove(vaultPath);
    if (!m_files.createFile(vaultPath, copy)) {
        return false;
    }
    *localPath = QDir(m_files.path()).filePath(vaultPath);
    return true;
}

bool Workspace::record(const QString& vaultPath, const QFile& copy)
{
    const QDateTime written = PrivateFolder::modified(copy);
    if (!isAcquired() || !written.isValid()) {
        return false;
    }
    m_edited.insert(vaultPath, EditedFile{vaultPath, QDir(m_files.path()).filePath(vaultPath), written});
    return writeManifest();
}

bool Workspace::openCopy(const QString& vaultPath, QFile& copy) const
{
    return isAcquired() && m_files.openFile(vaultPath, copy);
}

bool Workspace::isChanged(const EditedFile& file) const
{
    QFile copy;
    return openCopy(file.vaultPath, copy) && PrivateFolder::modified(copy) > file.openedModifiedUtc;
}

QList<EditedFile> Workspace::changedFiles() const
{
    QList<EditedFile> changed;
    for (const EditedFile& file : m_edited) {
        if (isChanged(file)) {
            changed.append(file);
        }
    }
    std::sort(changed.begin(), changed.end(),
              [](const EditedFile& a, const EditedFile& b) { return a.vaultPath < b.vaultPath; });
    return changed;
}

bool Workspace::isOpen(const QString& vaultPath) const
{
    return std::any_of(m_edited.cbegin(), m_edited.cend(),
                       [&](const EditedFile& file) { return isSameVaultPath(file.vaultPath, vaultPath); });
}

bool Workspace::holdsOpenFile(const QString& folder) const
{
    return std::any_of(m_edited.cbegin(), m_edited.cend(), [&](const EditedFile& file) {
        return isSameVaultPath(file.vaultPath, folder) || liesBelow(file.vaultPath, folder);
    });
}

bool Workspace::createOutgoingFolder(QString* name, QString* path)
{
    if (!isAcquired()) {
        return false;
    }
    // The file manager reads the copies by their path: it must still lead into our own folders.
    if (!isStillPrivate()) {
        m_problem = Problem::NotPrivate;
        return false;
    }
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder outgoing = m_folder.child(OutgoingFolderName, &problem);
    // A folder of its own per drag: the file manager may still be reading an earlier one.
    const QString drag = QString::number(QRandomGenerator::global()->generate64(), 16);
    const PrivateFolder folder = outgoing.isOpen() ? outgoing.child(drag, &problem) : PrivateFolder();
    if (!folder.isOpen()) {
        return false;
    }
    *name = drag;
    *path = folder.path();
    return true;
}

bool Workspace::discardOutgoing(const QString& name) const
{
    if (!isAcquired()) {
        return true;
    }
    if (name.isEmpty()) {
        return m_folder.remove(OutgoingFolderName);
    }
    return m_folder.remove(OutgoingFolderName + QLatin1Char('/') + name);
}

bool Workspace::writeManifest() const
{
    QJsonArray copies;
    const auto add = [&copies](const EditedFile& file) {
        copies.append(
            QJsonObject{{QStringLiteral("vaultPath"), file.vaultPath},
                        {QStringLiteral("writtenUtc"), file.openedModifiedUtc.toString(Qt::ISODateWithMs)}});
    };
    std::for_each(m_leftovers.cbegin(), m_leftovers.cend(), add);
    std::for_each(m_edited.cbegin(), m_edited.cend(), add);
    const QJsonObject manifest{{QStringLiteral("copies"), copies}};
    return m_folder.writeFile(ManifestFileName, QJsonDocument(manifest).toJson(QJsonDocument::Compact));
}

QList<EditedFile> Workspace::readManifest() const
{
    QList<EditedFile> files;
    QFile manifest;
    if (!m_folder.openFile(ManifestFileName, manifest)) {
        return files;
    }
    const QJsonArray copies =
        QJsonDocument::fromJson(manifest.read(1 << 24)).object().value(QStringLiteral("copies")).toArray();
    for (const QJsonValue& value : copies) {
        const QJsonObject copy = value.toObject();
        const QString vaultPath = copy.value(QStringLiteral("vaultPath")).toString();
        const QDateTime written =
            QDateTime::fromString(copy.value(QStringLiteral("writtenUtc")).toString(), Qt::ISODateWithMs);
        if (!vaultPath.isEmpty() && normalizeVaultPath(vaultPath) == vaultPath && written.isValid()) {
            files.append(EditedFile{vaultPath, QDir(m_files.path()).filePath(vaultPath), written.toUTC()});
        }
    }
    return files;
}

QStringList Workspace::strayWorkspaces(const QString& root)
{
    QStringList stray;
    // Looking makes nothing: a root that is not there yet holds no leftovers.
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const bool exists = !root.isEmpty() && QFileInfo(root).isDir();
    const PrivateFolder folder = exists ? PrivateFolder::open(root, &problem) : PrivateFolder();
    for (const QString& name : folder.entries()) {
        const PrivateFolder workspace =
            isWorkspaceName(name) ? folder.child(name, &problem, false) : PrivateFolder();
        if (!workspace.isOpen() || workspace.isLocked(LockFileName)) {
            continue;
        }
        const PrivateFolder files = workspace.child(FilesFolderName, &problem, false);
        if (!files.entries().isEmpty()) {
            stray.append(name);
        }
    }
    stray.sort();
    return stray;
}

bool Workspace::removeStrayWorkspaces(const QString& root)
{
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder folder = PrivateFolder::open(root, &problem);
    bool removed = folder.isOpen();
    removeTombstones(folder);
    for (const QString& name : strayWorkspaces(root)) {
        // Taken like a session takes it, so a session that unlocks the same vault meanwhile keeps it.
        PrivateFolder workspace = folder.child(name, &problem, false);
        if (workspace.isOpen() && workspace.lock(LockFileName)) {
            removed = dismantle(folder, name, workspace) && removed;
        }
    }
    return removed;
}

} // namespace Velmarin::Core
