#pragma once

#include <QString>

namespace Velmarin::Core {

// A re-key gives the container a new identity, and with it a new workspace name: the workspace of
// the old identity, with whatever copies a session left in it, takes the new name.
class WorkspaceCarryOver
{
public:
    // Renames root's workspace oldId to newId. Nothing there is nothing to do. False when it stays
    // under oldId: a session (of a copy of the container made before) uses it, a workspace newId is
    // there already, or the folders could not be renamed.
    static bool carryOver(const QString& root, const QString& oldId, const QString& newId);
};

} // namespace Velmarin::Core
