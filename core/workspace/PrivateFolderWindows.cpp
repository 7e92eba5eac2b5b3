// The Windows private folder. Windows has no openat, so the folder is held open without
// FILE_SHARE_DELETE (nobody can rename or replace it while we use it), every folder is made with an
// owner-only access list, and every step below it refuses or removes reparse points (links,
// junctions) instead of going through them. The POSIX version is in PrivateFolder.cpp.
#include "core/workspace/PrivateFolder.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>

// clang-format off
// windows.h first: sddl.h relies on what it declares.
#include <windows.h>
#include <io.h>
#include <sddl.h>
// clang-format on

namespace Velmarin::Core {

namespace {

std::wstring nativePath(const QString& path)
{
    return QDir::toNativeSeparators(path).toStdWString();
}

bool isPlainSegment(const QString& segment)
{
    return !segment.isEmpty() && segment != QLatin1String(".") && segment != QLatin1String("..") &&
           !segment.contains(QLatin1Char('/')) && !segment.contains(QLatin1Char('\\'));
}

DWORD attributesOf(const QString& path)
{
    return GetFileAttributesW(nativePath(path).c_str());
}

bool isRealFolder(const QString& path)
{
    const DWORD attributes = attributesOf(path);
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

// "Owner rights" alone, not inherited from the parent: nobody but the user who made it gets in.
bool makeOwnerOnlyFolder(const QString& path)
{
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(L"D:P(A;OICI;FA;;;OW)", SDDL_REVISION_1,
                                                              &descriptor, nullptr)) {
        return false;
    }
    SECURITY_ATTRIBUTES attributes{sizeof(SECURITY_ATTRIBUTES), descriptor, FALSE};
    const bool made = CreateDirectoryW(nativePath(path).c_str(), &attributes) != 0 ||
                      GetLastError() == ERROR_ALREADY_EXISTS;
    LocalFree(descriptor);
    return made;
}

HANDLE holdFolder(const QString& path)
{
    return CreateFileW(nativePath(path).c_str(), FILE_LIST_DIRECTORY, FILE_SHARE_READ | FILE_SHARE_WRITE,
                       nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                       nullptr);
}

qintptr openFolder(const QString& path, bool create, PrivateFolder::Problem* problem)
{
    if (create && !makeOwnerOnlyFolder(path)) {
        *problem = PrivateFolder::Problem::Unavailable;
        return -1;
    }
    if (!isRealFolder(path)) {
        *problem = attributesOf(path) == INVALID_FILE_ATTRIBUTES ? PrivateFolder::Problem::Unavailable
                                                                 : PrivateFolder::Problem::NotPrivate;
        return -1;
    }
    const HANDLE handle = holdFolder(path);
    if (handle == INVALID_HANDLE_VALUE) {
        *problem = PrivateFolder::Problem::Unavailable;
        return -1;
    }
    *problem = PrivateFolder::Problem::None;
    return reinterpret_cast<qintptr>(handle);
}

void overwriteWithZeros(const QString& path)
{
    const HANDLE file = CreateFileW(nativePath(path).c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return;
    }
    BY_HANDLE_FILE_INFORMATION information = {};
    // A second name would turn the wipe onto a file that is not ours alone.
    if (GetFileInformationByHandle(file, &information) && information.nNumberOfLinks == 1) {
        const QByteArray zeros(1 << 20, '\0');
        quint64 left = (quint64(information.nFileSizeHigh) << 32) | information.nFileSizeLow;
        while (left > 0) {
            DWORD written = 0;
            const DWORD piece = DWORD(qMin<quint64>(left, quint64(zeros.size())));
            if (!WriteFile(file, zeros.constData(), piece, &written, nullptr) || written == 0) {
                break;
            }
            left -= written;
        }
        FlushFileBuffers(file);
    }
    CloseHandle(file);
}

bool removeEntry(const QString& path);

bool removeContents(const QString& folder)
{
    bool removed = true;
    // Links and junctions are listed too, so they are removed as themselves.
    for (const QString& name :
         QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        removed = removeEntry(QDir(folder).filePath(name)) && removed;
    }
    return removed;
}

bool removeAllBelow(const QString& folder, const QString& prefix, const QStringList& keep)
{
    bool removed = true;
    for (const QString& name :
         QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        const QString relative = prefix + name;
        const QString path = QDir(folder).filePath(name);
        if (keep.contains(relative)) {
            continue;
        }
        const bool leadsToKept = std::any_of(keep.cbegin(), keep.cend(), [&](const QString& kept) {
            return kept.startsWith(relative + QLatin1Char('/'));
        });
        if (leadsToKept && isRealFolder(path)) {
            removed = removeAllBelow(path, relative + QLatin1Char('/'), keep) && removed;
        } else {
            removed = removeEntry(path) && removed;
        }
    }
    return removed;
}

bool removeEntry(const QString& path)
{
    const DWORD attributes = attributesOf(path);
    if (attributes == INVALID_FILE_ATTRIBUTES) {
        return true;
    }
    const std::wstring native = nativePath(path);
    const bool folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    // A reparse point is removed itself; what it points at is never touched.
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
        return folder ? RemoveDirectoryW(native.c_str()) != 0 : DeleteFileW(native.c_str()) != 0;
    }
    if (folder) {
        const bool emptied = removeContents(path);
        return RemoveDirectoryW(native.c_str()) != 0 && emptied;
    }
    overwriteWithZeros(path);
    return DeleteFileW(native.c_str()) != 0;
}

} // namespace

void PrivateFolder::close()
{
    for (qintptr* handle : {&m_lockHandle, &m_handle}) {
        if (*handle != -1) {
            CloseHandle(reinterpret_cast<HANDLE>(*handle));
            *handle = -1;
        }
    }
}

PrivateFolder PrivateFolder::open(const QString& path, Problem* problem)
{
    *problem = Problem::Unavailable;
    const QFileInfo info(QDir::cleanPath(QFileInfo(path).absoluteFilePath()));
    if (!isPlainSegment(info.fileName()) || !QDir().mkpath(info.absolutePath())) {
        return {};
    }
    const qintptr handle = openFolder(info.absoluteFilePath(), true, problem);
    return handle == -1 ? PrivateFolder() : PrivateFolder(handle, info.absoluteFilePath());
}

PrivateFolder PrivateFolder::child(const QString& name, Problem* problem, bool create) const
{
    *problem = Problem::Unavailable;
    if (!isOpen() || !isPlainSegment(name)) {
        return {};
    }
    const QString path = QDir(m_path).filePath(name);
    const qintptr handle = openFolder(path, create, problem);
    return handle == -1 ? PrivateFolder() : PrivateFolder(handle, path);
}

bool PrivateFolder::isStillAtItsPath() const
{
    // Held without FILE_SHARE_DELETE, the folder cannot have been renamed or replaced.
    return isOpen() && isRealFolder(m_path);
}

PrivateFolder PrivateFolder::parentOf(const QString& relativePath, bool create, QString* name) const
{
    QStringList segments = relativePath.split(QLatin1Char('/'));
    *name = segments.takeLast();
    if (!isOpen() || !isPlainSegment(*name)) {
        return {};
    }
    PrivateFolder folder(reinterpret_cast<qintptr>(holdFolder(m_path)), m_path);
    for (const QString& segment : segments) {
        Problem problem = Problem::None;
        if (!folder.isOpen() || !isPlainSegment(segment)) {
            return {};
        }
        const QString path = QDir(folder.m_path).filePath(segment);
        const qintptr handle = openFolder(path, create, &problem);
        if (handle == -1) {
            return {};
        }
        folder = PrivateFolder(handle, path);
    }
    return folder;
}

bool PrivateFolder::createFile(const QString& relativePath, QFile& file) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, true, &name);
    const QString path = QDir(folder.m_path).filePath(name);
    if (!folder.isOpen() || !removeEntry(path)) {
        return false;
    }
    const HANDLE handle = CreateFileW(nativePath(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                      CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return false;
    }
    CloseHandle(handle);
    file.setFileName(path);
    return file.open(QIODevice::WriteOnly | QIODevice::ExistingOnly);
}

bool PrivateFolder::openFile(const QString& relativePath, QFile& file) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, false, &name);
    const QString path = QDir(folder.m_path).filePath(name);
    const DWORD attributes = attributesOf(path);
    if (!folder.isOpen() || attributes == INVALID_FILE_ATTRIBUTES ||
        (attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT)) != 0) {
        return false;
    }
    file.setFileName(path);
    return file.open(QIODevice::ReadOnly);
}

bool PrivateFolder::writeFile(const QString& name, const QByteArray& contents) const
{
    QFile file;
    const QString temporary = name + QStringLiteral(".new");
    if (!createFile(temporary, file)) {
        return false;
    }
    const bool written = file.write(contents) == contents.size() && file.flush() &&
                         FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(file.handle())));
    file.close();
    return written && MoveFileExW(nativePath(QDir(m_path).filePath(temporary)).c_str(),
                                  nativePath(QDir(m_path).filePath(name)).c_str(),
                                  MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
}

bool PrivateFolder::lock(const QString& name)
{
    if (!isOpen() || m_lockHandle != -1) {
        return false;
    }
    // Opened without sharing: a second session's open fails until this process lets go or ends.
    const HANDLE handle =
        CreateFileW(nativePath(QDir(m_path).filePath(name)).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                    OPEN_ALWAYS, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return false;
    }
    m_lockHandle = reinterpret_cast<qintptr>(handle);
    return true;
}

bool PrivateFolder::isLocked(const QString& name) const
{
    const HANDLE handle = CreateFileW(nativePath(QDir(m_path).filePath(name)).c_str(), GENERIC_READ, 0,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        return GetLastError() == ERROR_SHARING_VIOLATION;
    }
    CloseHandle(handle);
    return false;
}

QStringList PrivateFolder::entries() const
{
    return isOpen()
               ? QDir(m_path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)
               : QStringList();
}

bool PrivateFolder::remove(const QString& relativePath) const
{
    QString name;
    const PrivateFolder folder = parentOf(relativePath, false, &name);
    return folder.isOpen() && removeEntry(QDir(folder.m_path).filePath(name));
}

bool PrivateFolder::removeAll() const
{
    return isOpen() && removeContents(m_path);
}

bool PrivateFolder::removeAllBut(const QStringList& keep) const
{
    return isOpen() && removeAllBelow(m_path, QString(), keep);
}

bool PrivateFolder::rename(const QString& from, const QString& to) const
{
    return isOpen() && isPlainSegment(from) && isPlainSegment(to) &&
           MoveFileExW(nativePath(QDir(m_path).filePath(from)).c_str(),
                       nativePath(QDir(m_path).filePath(to)).c_str(), MOVEFILE_WRITE_THROUGH) != 0;
}

QDateTime PrivateFolder::modified(const QFile& file)
{
    return QFileInfo(file.fileName()).lastModified().toUTC();
}

} // namespace Velmarin::Core
