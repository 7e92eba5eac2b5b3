#include "core/vault/EntryOperations.h"

#include "core/index/VaultPath.h"
#include "core/vault/VaultSession.h"
#include "core/workspace/Workspace.h"

#include <QDateTime>

namespace Velmarin::Core {

EntryOperations::EntryOperations(VaultSession& session, const Workspace& workspace)
    : m_session(session)
    , m_workspace(workspace)
{}

bool EntryOperations::createFolder(const QString& path)
{
    const VaultIndex& index = m_session.index();
    const QString folder = normalizeVaultPath(path);
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    if (folder.isEmpty() || index.crossesFile(folder)) {
        return m_session.fail(Failure::Reason::NameNotAllowed, path);
    }
    if (index.fileExists(folder) || index.directoryExists(folder)) {
        return m_session.fail(Failure::Reason::AlreadyExists, folder);
    }
    VaultIndex newIndex = index;
    newIndex.ensureParentDirectories(folder);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    newIndex.upsertDirectory(DirectoryEntry{folder, now, now});
    return m_session.saveIndex(newIndex);
}

bool EntryOperations::deleteEmptyFolder(const QString& path)
{
    const VaultIndex& index = m_session.index();
    const QString folder = normalizeVaultPath(path);
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    const DirectoryEntry* stored = folder.isEmpty() ? nullptr : index.findDirectory(folder);
    if (stored == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, path);
    }
    if (index.hasEntriesBelow(folder)) {
        return m_session.fail(Failure::Reason::FolderNotEmpty, stored->path);
    }
    VaultIndex newIndex = index;
    return newIndex.removeDirectory(stored->path) && m_session.saveIndex(newIndex);
}

bool EntryOperations::deleteFile(const QString& path)
{
    const VaultIndex& index = m_session.index();
    const QString file = normalizeVaultPath(path);
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    const FileEntry* stored = file.isEmpty() ? nullptr : index.findFile(file);
    if (stored == nullptr) {
        return m_session.fail(Failure::Reason::NotFound, path);
    }
    VaultIndex newIndex = index;
    return newIndex.removeFile(stored->vaultPath) && m_session.saveIndex(newIndex);
}

bool EntryOperations::moveFile(const QString& path, const QString& destinationFolder)
{
    const VaultIndex& index = m_session.index();
    const QString oldPath = normalizeVaultPath(path);
    const QString folder = normalizeVaultPath(destinationFolder);
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    if (oldPath.isEmpty() || !index.fileExists(oldPath)) {
        return m_session.fail(Failure::Reason::NotFound, path);
    }
    if (!folder.isEmpty() && !index.directoryExists(folder)) {
        return m_session.fail(Failure::Reason::NotFound, destinationFolder);
    }
    // A move never replaces anything, and moving into the folder that holds the file is no move.
    const QString newPath = joinVaultPath(folder, vaultFileName(oldPath));
    if (newPath.isEmpty()) {
        return m_session.fail(Failure::Reason::NameNotAllowed, destinationFolder);
    }
    if (isSameVaultPath(newPath, oldPath)) {
        return m_session.fail(Failure::Reason::SamePlace, oldPath);
    }
    if (index.fileExists(newPath) || index.directoryExists(newPath)) {
        return m_session.fail(Failure::Reason::AlreadyExists, newPath);
    }
    if (m_workspace.isOpen(oldPath)) {
        return m_session.fail(Failure::Reason::OpenForEditing, oldPath);
    }
    return m_session.saveIndex(withFileRenamed(oldPath, newPath));
}

bool EntryOperations::renameFile(const QString& oldPath, const QString& newPath)
{
    const VaultIndex& index = m_session.index();
    const QString from = normalizeVaultPath(oldPath);
    const QString to = normalizeVaultPath(newPath);
    // A change of letter case alone is refused: existence tests could not tell the two apart.
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    if (from.isEmpty() || !index.fileExists(from)) {
        return m_session.fail(Failure::Reason::NotFound, oldPath);
    }
    if (to.isEmpty() || index.crossesFile(to)) {
        return m_session.fail(Failure::Reason::NameNotAllowed, newPath);
    }
    if (isSameVaultPath(from, to) || index.fileExists(to) || index.directoryExists(to)) {
        return m_session.fail(Failure::Reason::AlreadyExists, to);
    }
    if (m_workspace.isOpen(from)) {
        return m_session.fail(Failure::Reason::OpenForEditing, from);
    }
    return m_session.saveIndex(withFileRenamed(from, to));
}

VaultIndex EntryOperations::withFileRenamed(const QString& oldPath, const QString& newPath) const
{
    const VaultIndex& index = m_session.index();
    VaultIndex newIndex;
    for (const DirectoryEntry& directory : index.directories()) {
        newIndex.upsertDirectory(directory);
    }
    bool renamed = false;
    for (FileEntry file : index.files()) {
        if (!renamed && isSameVaultPath(file.vaultPath, oldPath)) {
            file.vaultPath = newPath;
            renamed = true;
        }
        newIndex.upsertFile(file);
    }
    return newIndex;
}

bool EntryOperations::renameFolder(const QString& oldPath, const QString& newPath)
{
    const VaultIndex& index = m_session.index();
    const QString from = normalizeVaultPath(oldPath);
    const QString to = normalizeVaultPath(newPath);
    if (!m_session.canChange()) {
        return m_session.failUnchangeable();
    }
    if (from.isEmpty() || !index.directoryExists(from)) {
        return m_session.fail(Failure::Reason::NotFound, oldPath);
    }
    if (to.isEmpty() || index.crossesFile(to)) {
        return m_session.fail(Failure::Reason::NameNotAllowed, newPath);
    }
    if (liesBelow(to, from)) {
        return m_session.fail(Failure::Reason::SamePlace, to);
    }
    if (isSameVaultPath(from, to) || index.directoryExists(to) || index.fileExists(to)) {
        return m_session.fail(Failure::Reason::AlreadyExists, to);
    }
    if (m_workspace.holdsOpenFile(from)) {
        return m_session.fail(Failure::Reason::OpenForEditing, from);
    }
    return m_session.saveIndex(withFolderRenamed(from, to));
}

VaultIndex EntryOperations::withFolderRenamed(const QString& from, const QString& to) const
{
    const VaultIndex& index = m_session.index();
    // The new index starts with the ancestors the new place still lacks.
    VaultIndex withAncestors = index;
    withAncestors.ensureParentDirectories(to);
    VaultIndex newIndex;
    for (qsizetype i = index.directories().size(); i < withAncestors.directories().size(); ++i) {
        newIndex.upsertDirectory(withAncestors.directories().at(i));
    }
    const QDateTime now = QDateTime::currentDateTimeUtc();
    const auto moved = [&](const QString& path) {
        return isSameVaultPath(path, from) ? to : to + path.mid(from.size());
    };
    for (DirectoryEntry directory : index.directories()) {
        if (isSameVaultPath(directory.path, from) || liesBelow(directory.path, from)) {
            directory.path = moved(directory.path);
            directory.modifiedUtc = now;
        }
        newIndex.upsertDirectory(directory);
    }
    for (FileEntry file : index.files()) {
        if (liesBelow(file.vaultPath, from)) {
            file.vaultPath = moved(file.vaultPath);
        }
        newIndex.upsertFile(file);
    }
    return newIndex;
}

} // namespace Velmarin::Core
