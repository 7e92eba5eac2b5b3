#pragma once

#include <QByteArray>
#include <QString>

#include <sys/stat.h>
#include <sys/types.h>

namespace Velmarin::Core {

// Which folders on the way to a private folder can be trusted (POSIX): those that nobody but this
// user or the system can rename, replace or point elsewhere.
class FolderTrust
{
public:
    // Nobody but this user or the system can rename or replace what lies in the folder: its owner
    // is either, and it is closed to others (a shared folder such as /tmp only with its sticky bit).
    static bool isTrustedFolder(const struct stat& info);
    // A group of this user alone: the user's own primary group with no other member, as systems that
    // give each user a private group (and a umask of 002) make it.
    static bool isPrivateGroup(gid_t group);
    // A link on the way is followed by everyone who opens the path: it must be this user's or the
    // system's, or another account could point our plaintext wherever it likes.
    static bool linksAreTrusted(const QString& absolute);
    // Every folder of a canonical path (which holds no link) is trusted.
    static bool ancestorsAreTrusted(const QByteArray& canonical);
    // Makes the missing folders of an absolute path owner-only, whatever the umask would give them.
    static bool makeOwnerOnlyPath(const QString& absolute);

private:
    static bool isTrustedPath(const QByteArray& path);
};

} // namespace Velmarin::Core
