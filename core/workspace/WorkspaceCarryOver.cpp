#include "core/workspace/WorkspaceCarryOver.h"

#include "core/workspace/PrivateFolder.h"
#include "core/workspace/Workspace.h"

#include <QFileInfo>
#include <QStringList>

namespace Velmarin::Core {

bool WorkspaceCarryOver::carryOver(const QString& root, const QString& oldId, const QString& newId)
{
    if (!Workspace::isWorkspaceName(oldId) || !Workspace::isWorkspaceName(newId)) {
        return false;
    }
    // Looking makes nothing: a root that is not there yet holds no workspace.
    if (root.isEmpty() || !QFileInfo(root).isDir()) {
        return true;
    }
    PrivateFolder::Problem problem = PrivateFolder::Problem::None;
    const PrivateFolder folder = PrivateFolder::open(root, &problem);
    if (!folder.isOpen()) {
        return false;
    }
    const QStringList names = folder.entries();
    if (!names.contains(oldId)) {
        return true;
    }
    if (names.contains(newId)) {
        return false;
    }
    // Taken like a session takes it: a session that uses the folder keeps it where it is.
    PrivateFolder workspace = folder.child(oldId, &problem, false);
    if (!workspace.isOpen() || !workspace.lock(Workspace::LockFileName)) {
        return false;
    }
    if (folder.rename(oldId, newId)) {
        return true;
    }
    // Where a held folder cannot be renamed (Windows), the lock is let go first.
    workspace.close();
    return folder.rename(oldId, newId);
}

} // namespace Velmarin::Core
