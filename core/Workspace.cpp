#include "Workspace.h"

#include "VaultPath.h"

#include <QDir>
#include <QFileInfo>
#include <QUuid>

#include <algorithm>

namespace Velmarin::Core {

namespace {

const QFileDevice::Permissions OwnerOnlyFolder =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

// mkdir with owner-only rights from the start, so there is no moment another user could look in.
bool makeOwnerOnlyDirectory(const QString& path)
{
    const QFileInfo info(path);
    if (info.isDir()) {
        return true;
    }
    if (info.exists()) {
        return false;
    }
    return QDir().mkdir(path, OwnerOnlyFolder);
}

} // namespace

Workspace::Workspace(const QString& parentDirectory)
{
    const QString parent = parentDirectory.isEmpty() ? QDir::tempPath() : parentDirectory;
    m_directory = QDir(parent).filePath(QStringLiteral("Velmarin/") +
                                        QUuid::createUuid().toString(QUuid::WithoutBraces));
}

bool Workspace::acquire()
{
    // The shared "Velmarin" parent keeps the system's default rights so other users can make their own.
    const QString parent = QFileInfo(m_directory).absolutePath();
    if (!QDir().mkpath(parent) || !makeOwnerOnlyDirectory(m_directory)) {
        return false;
    }
    auto lock = std::make_unique<QLockFile>(QDir(m_directory).filePath(LockFileName));
    if (!lock->tryLock(0)) {
        return false;
    }
    m_lock = std::move(lock);
    return true;
}

bool Workspace::release()
{
    if (!QFileInfo::exists(m_directory)) {
        m_lock.reset();
        return true;
    }
    m_lock.reset();
    return QDir(m_directory).removeRecursively();
}

QString Workspace::localPathFor(const QString& vaultPath) const
{
    return QDir(m_directory).filePath(vaultPath);
}

bool Workspace::makeParentDirectories(const QString& localPath) const
{
    const QString relative = QDir(m_directory).relativeFilePath(QFileInfo(localPath).absolutePath());
    if (relative.startsWith(QLatin1String(".."))) {
        return false;
    }
    QString current = m_directory;
    if (!makeOwnerOnlyDirectory(current)) {
        return false;
    }
    if (relative == QLatin1String(".")) {
        return true;
    }
    for (const QString& segment : relative.split(QLatin1Char('/'), Qt::SkipEmptyParts)) {
        current = QDir(current).filePath(segment);
        if (!makeOwnerOnlyDirectory(current)) {
            return false;
        }
    }
    return true;
}

bool Workspace::record(const QString& vaultPath, const QString& localPath)
{
    const QFileInfo info(localPath);
    if (!info.exists() || !info.isFile()) {
        return false;
    }
    m_edited.insert(vaultPath, EditedFile{vaultPath, localPath, info.lastModified().toUTC()});
    return true;
}

QList<EditedFile> Workspace::changedFiles() const
{
    QList<EditedFile> changed;
    for (const EditedFile& file : m_edited) {
        const QFileInfo info(file.localPath);
        if (info.exists() && info.lastModified().toUTC() > file.openedModifiedUtc) {
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

void Workspace::clearRecords()
{
    m_edited.clear();
}

} // namespace Velmarin::Core
