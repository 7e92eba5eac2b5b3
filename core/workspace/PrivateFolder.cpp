// The POSIX private folder: every step goes through descriptors (openat, mkdirat, unlinkat) with
// O_NOFOLLOW, so a path is resolved once, when the folder is checked. The Windows version is in
// PrivateFolderWindows.cpp.
#include "core/workspace/PrivateFolder.h"

#include "core/workspace/FolderTrust.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Velmarin::Core {

namespace {

constexpr mode_t OwnerOnlyFolder = 0700;
constexpr mode_t OwnerOnlyFile = 0600;

QByteArray nameBytes(const QString& name)
{
    return QFile::encodeName(name);
}

bool isPlainSegment(const QString& segment)
{
    return !segment.isEmpty() && segment != QLatin1String(".") && segment != QLatin1String("..") &&
           !segment.contains(QLatin1Char('/'));
}

// A folder of ours: this user's, owner-only, and really a folder (the descriptor was opened without
// following a link).
bool isOwnPrivateFolder(int handle)
{
    struct stat info = {};
    return fstat(handle, &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
           (info.st_mode & 07777) == OwnerOnlyFolder;
}

// repair: the folder lies inside one already checked, so only this user can have made it; rights an
// editor or a umask left too open are put back to owner-only.
int openFolderAt(int parent, const QByteArray& name, bool create, bool repair,
                 PrivateFolder::Problem* problem)
{
    if (create && mkdirat(parent, name.constData(), OwnerOnlyFolder) != 0 && errno != EEXIST) {
        *problem = PrivateFolder::Problem::Unavailable;
        return -1;
    }
    const int handle = openat(parent, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (handle < 0) {
        // A link or a file where the folder should be is someone's trap, not a missing folder.
        *problem = (errno == ELOOP || errno == ENOTDIR) ? PrivateFolder::Problem::NotPrivate
                                                        : PrivateFolder::Problem::Unavailable;
        return -1;
    }
    struct stat info = {};
    if (repair && fstat(handle, &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == geteuid() &&
        (info.st_mode & 07777) != OwnerOnlyFolder) {
        fchmod(handle, OwnerOnlyFolder);
    }
    if (!isOwnPrivateFolder(handle)) {
        ::close(handle);
        *problem = PrivateFolder::Problem::NotPrivate;
        return -1;
    }
    *problem = PrivateFolder::Problem::None;
    return handle;
}

// Zeros a file's bytes on the device. Only a file of ours with no other name: a hard link
// planted here must not turn the wipe onto somebody else's file.
void overwriteWithZeros(int parent, const QByteArray& name, const struct stat& seen)
{
    if (seen.st_uid != geteuid() || seen.st_nlink != 1 || seen.st_size <= 0) {
        return;
    }
    const int handle = openat(parent, name.constData(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (handle < 0) {
        return;
    }
    struct stat info = {};
    if (fstat(handle, &info) == 0 && info.st_ino == seen.st_ino && info.st_dev == seen.st_dev) {
        const QByteArray zeros(1 << 20, '\0');
        for (off_t done = 0; done < info.st_size;) {
            const size_t piece = size_t(qMin<off_t>(zeros.size(), info.st_size - done));
            const ssize_t written = pwrite(handle, zeros.constData(), piece, done);
            if (written <= 0) {
                break;
            }
            done += written;
        }
        fdatasync(handle);
    }
    ::close(handle);
}

bool removeContents(int folder);

bool removeEntry(int parent, const QByteArray& name)
{
    struct stat info = {};
    if (fstatat(parent, name.constData(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT;
    }
    if (S_ISDIR(info.st_mode)) {
        const int handle = openat(parent, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        const bool emptied = handle >= 0 && removeContents(handle);
        if (handle >= 0) {
            ::close(handle);
        }
        return unlinkat(parent, name.constData(), AT_REMOVEDIR) == 0 && emptied;
    }
    if (S_ISREG(info.st_mode)) {
        overwriteWithZeros(parent, name, info);
    }
    return unlinkat(parent, name.constData(), 0) == 0 || errno == ENOENT;
}

QList<QByteArray> namesIn(int folder)
{
    QList<QByteArray> names;
    const int copy = fcntl(folder, F_DUPFD_CLOEXEC, 0);
    DIR* dir = copy >= 0 ? fdopendir(copy) : nullptr;
    if (dir == nullptr) {
        if (copy >= 0) {
            ::close(copy);
        }
        return names;
    }
    // The copy shares its offset with the folder's descriptor, which an earlier listing left at the end.
    rewinddir(dir);
    while (const dirent* entry = readdir(dir)) {
        const QByteArray name(entry->d_name);
        if (name != "." && name != "..") {
            names.append(name);
        }
    }
    closedir(dir);
    return names;
}

bool removeContents(int folder)
{
    bool removed = true;
    for (const QByteArray& name : namesIn(folder)) {
        removed = removeEntry(folder, name) && removed;
    }
    return removed;
}

// Removes everything below folder but the paths in keep (relative to it) and the folders that lead
// to them.
bool removeAllBut(int folder, const QString& prefix, const QStringList& keep)
{
    bool removed = true;
    for (const QByteArray& name : namesIn(folder)) {
        const QString path = prefix + QFile::decodeName(name);
        if (keep.contains(path)) {
            continue;
        }
        const bool leadsToKept = std::any_of(keep.cbegin(), keep.cend(), [&](const QString& kept) {
            return kept.startsWith(path + QLatin1Char('/'));
        });
        const int handle =
            leadsToKept ? openat(folder, name.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
                        : -1;
        if (handle >= 0) {
            removed = removeAllBut(handle, path + QLatin1Char('/'), keep) && removed;
            ::close(handle);
        } else {
            removed = removeEntry(folder, name) && removed;
        }
    }
    return removed;
}

} // namespace

void PrivateFolder::close()
{
    if (m_lockHandle >= 0) {
        ::close(int(m_lockHandle));
        m_lockHandle = -1;
    }
    if (m_handle >= 0) {
        ::close(int(m_handle));
        m_handle = -1;
    }
}

PrivateFolder PrivateFolder::open(const QString& path, Problem* problem)
{
    *problem = Problem::Unavailable;
    const QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    const QString parent = info.absolutePath();
    const QString name = info.fileName();
    if (!FolderTrust::linksAreTrusted(info.absoluteFilePath())) {
        *problem = Problem::NotPrivate;
        return {};
    }
    if (!isPlainSegment(name) || !FolderTrust::makeOwnerOnlyPath(parent)) {
        return {};
    }
    char* resolved = realpath(QFile::encodeName(parent).constData(), nullptr);
    if (resolved == nullptr) {
        return {};
    }
    const QByteArray canonical(resolved);
    free(resolved);
    if (!FolderTrust::ancestorsAreTrusted(canonical)) {
        *problem = Problem::NotPrivate;
        return {};
    }
    const int parentHandle = ::open(canonical.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (parentHandle < 0) {
        return {};
    }
    // The root itself is never repaired: rights that are not owner-only there are refused.
    const int handle = openFolderAt(parentHandle, nameBytes(name), true, false, problem);
    ::close(parentHandle);
    if (handle < 0) {
        return {};
    }
    return PrivateFolder(handle, QDir(QFile::decodeName(canonical)).filePath(name));
}

PrivateFolder PrivateFolder::child(const QString& name, Problem* problem, bool create) const
{
    *problem = Problem::Unavailable;
    if (!isOpen() || !isPlainSegment(name)) {
        return {};
    }
    const int handle = openFolderAt(int(m_handle), nameBytes(name), create, true, problem);
    return handle < 0 ? PrivateFolder() : PrivateFolder(handle, QDir(m_path).filePath(name));
}

bool PrivateFolder::isStillAtItsPath() const
{
    struct stat held = {};
    struct stat named = {};
    return isOpen() && fstat(int(m_handle), &held) == 0 &&
           lstat(QFile::encodeName(m_path).constData(), &named) == 0 && S_ISDIR(named.st_mode) &&
           held.st_dev == named.st_dev && held.st_ino == named.st_ino;
}

PrivateFolder PrivateFolder::parentOf(const QString& relativePath, bool create, QString* name) const
{
    QStringList segments = relativePath.split(QLatin1Char('/'));
    *name = segments.takeLast();
    if (!isOpen() || !isPlainSegment(*name)) {
        return {};
    }
    PrivateFolder folder(fcntl(int(m_handle), F_DUPFD_CLOEXEC, 0), m_path);
    for (const QString& segment : segments) {
        Problem problem = Problem::None;
        if (!folder.isOpen() || !isPlainSegment(segment)) {
            return {};
        }
        const int handle = openFolderAt(int(folder.m_handle), nameBytes(segment), create, true, &problem);
        if (handle < 0) {
            return {};
        }
        folder = PrivateFolder(handle, QDir(folder.m_path).filePath(segment));
    }
    return folder;
}

bool PrivateFolder::createFile(const QString& relativePath, QFile& file) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, true, &name);
    if (!folder.isOpen()) {
        return false;
    }
    const QByteArray encoded = nameBytes(name);
    if (!removeEntry(int(folder.m_handle), encoded)) {
        return false;
    }
    const int handle = openat(int(folder.m_handle), encoded.constData(),
                              O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, OwnerOnlyFile);
    if (handle < 0) {
        return false;
    }
    if (!file.open(handle, QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(handle);
        return false;
    }
    return true;
}

bool PrivateFolder::openFile(const QString& relativePath, QFile& file) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, false, &name);
    if (!folder.isOpen()) {
        return false;
    }
    const int handle = openat(int(folder.m_handle), nameBytes(name).constData(),
                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (handle < 0) {
        return false;
    }
    struct stat info = {};
    if (fstat(handle, &info) != 0 || !S_ISREG(info.st_mode) ||
        !file.open(handle, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(handle);
        return false;
    }
    return true;
}

bool PrivateFolder::writeFile(const QString& name, const QByteArray& contents) const
{
    const QByteArray target = nameBytes(name);
    const QByteArray temporary = target + ".new";
    QFile file;
    if (!createFile(name + QStringLiteral(".new"), file)) {
        return false;
    }
    const bool written = file.write(contents) == contents.size() && file.flush() && fsync(file.handle()) == 0;
    file.close();
    if (!written || renameat(int(m_handle), temporary.constData(), int(m_handle), target.constData()) != 0) {
        unlinkat(int(m_handle), temporary.constData(), 0);
        return false;
    }
    return fsync(int(m_handle)) == 0;
}

bool PrivateFolder::lock(const QString& name)
{
    if (!isOpen() || m_lockHandle >= 0) {
        return false;
    }
    const int handle = openat(int(m_handle), nameBytes(name).constData(),
                              O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, OwnerOnlyFile);
    if (handle < 0) {
        return false;
    }
    // flock goes with the process: a session that crashed leaves no lock to clean up.
    if (flock(handle, LOCK_EX | LOCK_NB) != 0) {
        ::close(handle);
        return false;
    }
    m_lockHandle = handle;
    return true;
}

bool PrivateFolder::isLocked(const QString& name) const
{
    if (!isOpen()) {
        return false;
    }
    const int handle = openat(int(m_handle), nameBytes(name).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (handle < 0) {
        return false;
    }
    const bool held = flock(handle, LOCK_SH | LOCK_NB) != 0;
    ::close(handle);
    return held;
}

QStringList PrivateFolder::entries() const
{
    QStringList names;
    if (isOpen()) {
        for (const QByteArray& name : namesIn(int(m_handle))) {
            names.append(QFile::decodeName(name));
        }
    }
    return names;
}

bool PrivateFolder::remove(const QString& relativePath) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, false, &name);
    return folder.isOpen() && removeEntry(int(folder.m_handle), nameBytes(name));
}

bool PrivateFolder::removeAll() const
{
    return isOpen() && removeContents(int(m_handle));
}

bool PrivateFolder::removeAllBut(const QStringList& keep) const
{
    return isOpen() && Velmarin::Core::removeAllBut(int(m_handle), QString(), keep);
}

bool PrivateFolder::rename(const QString& from, const QString& to) const
{
    return isOpen() && isPlainSegment(from) && isPlainSegment(to) &&
           renameat(int(m_handle), nameBytes(from).constData(), int(m_handle), nameBytes(to).constData()) ==
               0;
}

QDateTime PrivateFolder::modified(const QFile& file)
{
    struct stat info = {};
    if (fstat(file.handle(), &info) != 0) {
        return {};
    }
    const qint64 milliseconds = qint64(info.st_mtim.tv_sec) * 1000 + info.st_mtim.tv_nsec / 1000000;
    return QDateTime::fromMSecsSinceEpoch(milliseconds, Qt::UTC);
}

} // namespace Velmarin::Core
