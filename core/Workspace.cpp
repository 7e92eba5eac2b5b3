#include "Workspace.h"

#include "VaultPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

bool isWorkspaceName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[0-9a-f]{32}$"));
    return pattern.match(name).hasMatch();
}

} // namespace

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
    m_folder = root.child(id, &problem);
    if (!m_folder.isOpen()) {
        return fail(problemOf(problem));
    }
    if (!m_folder.lock(LockFileName)) {
        return fail(Problem::InUse);
    }
    m_files = m_folder.child(FilesFolderName, &problem);
    if (!m_files.isOpen()) {
        return fail(problemOf(problem));
    }
    m_id = id;
    for (EditedFile file : readManifest()) {
        if (isChanged(file)) {
            m_leftovers.append(file);
        }
    }
    // Copies nobody changed are of no use to anyone: they go at once.
    return m_leftovers.isEmpty() ? discardLeftovers() : true;
}

bool Workspace::discardLeftovers()
{
    m_leftovers.clear();
    if (!isAcquired()) {
        return true;
    }
    bool removed = true;
    for (const QString& name : m_files.entries()) {
        const bool open = std::any_of(m_edited.cbegin(), m_edited.cend(), [&](const EditedFile& file) {
            return file.vaultPath.section(QLatin1Char('/'), 0, 0) == name;
        });
        if (!open) {
            removed = m_files.remove(name) && removed;
        }
    }
    return writeManifest() && removed;
}

bool Workspace::release()
{
    if (isAcquired() && !m_leftovers.isEmpty()) {
        // Nobody decided about an earlier session's edits yet: they wait for the next unlock.
        bool removed = true;
        for (const EditedFile& file : std::as_const(m_edited)) {
            removed = m_files.remove(file.vaultPath) && removed;
        }
        m_edited.clear();
        removed = writeManifest() && removed;
        closeFolders();
        return removed;
    }
    m_edited.clear();
    m_leftovers.clear();
    if (!isAcquired()) {
        return true;
    }
    bool removed = m_folder.removeAll();
    m_files.close();
    m_folder.close();
    // Whatever stands at the folder's name now goes too: a link put there is removed, not followed.
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder root = PrivateFolder::open(m_root, &problem);
    removed = root.isOpen() && root.remove(m_id) && removed;
    m_id.clear();
    return removed;
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
        } else {
            m_files.remove(file.vaultPath);
        }
    }
    if (kept.isEmpty() && m_leftovers.isEmpty()) {
        release();
        return;
    }
    m_edited = kept;
    writeManifest();
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
    // A second opening starts from a new file; the first one's record and any leftover go.
    m_edited.remove(vaultPath);
    m_leftovers.erase(std::remove_if(m_leftovers.begin(), m_leftovers.end(),
                                     [&](const EditedFile& file) { return file.vaultPath == vaultPath; }),
                      m_leftovers.end());
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
            isWorkspaceName(name) ? folder.child(name, &problem) : PrivateFolder();
        if (!workspace.isOpen() || workspace.isLocked(LockFileName)) {
            continue;
        }
        const PrivateFolder files = workspace.child(FilesFolderName, &problem);
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
    for (const QString& name : strayWorkspaces(root)) {
        removed = folder.remove(name) && removed;
    }
    return removed;
}

} // namespace Velmarin::Core
