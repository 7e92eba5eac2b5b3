#include "core/workspace/FolderTrust.h"

#include <QFile>

#include <cerrno>
#include <grp.h>
#include <unistd.h>

namespace Velmarin::Core {

bool FolderTrust::isPrivateGroup(gid_t group)
{
    if (group != getegid()) {
        return false;
    }
    const struct group* entry = getgrgid(group);
    return entry != nullptr && (entry->gr_mem == nullptr || entry->gr_mem[0] == nullptr);
}

bool FolderTrust::isTrustedFolder(const struct stat& info)
{
    const bool owner = info.st_uid == 0 || info.st_uid == geteuid();
    const bool groupMayWrite = (info.st_mode & S_IWGRP) != 0 && !isPrivateGroup(info.st_gid);
    const bool openToOthers = groupMayWrite || (info.st_mode & S_IWOTH) != 0;
    return S_ISDIR(info.st_mode) && owner && (!openToOthers || (info.st_mode & S_ISVTX) != 0);
}

bool FolderTrust::linksAreTrusted(const QString& absolute)
{
    QByteArray prefix;
    for (const QByteArray& segment : QFile::encodeName(absolute).split('/')) {
        if (segment.isEmpty()) {
            continue;
        }
        prefix += '/' + segment;
        struct stat info = {};
        if (lstat(prefix.constData(), &info) != 0) {
            return true;
        }
        if (S_ISLNK(info.st_mode) && info.st_uid != 0 && info.st_uid != geteuid()) {
            return false;
        }
    }
    return true;
}

bool FolderTrust::makeOwnerOnlyPath(const QString& absolute)
{
    QByteArray prefix;
    for (const QByteArray& segment : QFile::encodeName(absolute).split('/')) {
        if (segment.isEmpty()) {
            continue;
        }
        prefix += '/' + segment;
        if (mkdir(prefix.constData(), 0700) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

bool FolderTrust::isTrustedPath(const QByteArray& path)
{
    struct stat info = {};
    return lstat(path.constData(), &info) == 0 && isTrustedFolder(info);
}

bool FolderTrust::ancestorsAreTrusted(const QByteArray& canonical)
{
    if (!isTrustedPath("/")) {
        return false;
    }
    QByteArray prefix;
    for (const QByteArray& segment : canonical.split('/')) {
        if (segment.isEmpty()) {
            continue;
        }
        prefix += '/' + segment;
        if (!isTrustedPath(prefix)) {
            return false;
        }
    }
    return true;
}

} // namespace Velmarin::Core
