#pragma once

#include "core/container/ProgressCallback.h"
#include "core/crypto/SecretBytes.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Velmarin::Core {

class VaultSession;
struct ContainerHeader;

// A password change that also replaces the master key: the whole vault is sealed again under a new
// random key, wrapped under the new password, in a new container built and put on the drive the way
// a compaction does it (VaultCompactor), dead data dropped. A header of before (a copy, a backup,
// or its bytes pasted back) then opens nothing written since: its key opens neither the new index
// nor a new block. Old copies still open with the old password, with what they held.
//
// Progress and preservedPath are the compaction's: labels are vault paths, then the container swap.
class VaultRekey
{
public:
    // workspaceRoot is where this computer keeps workspaces (see Workspace); empty for none.
    VaultRekey(VaultSession& session, const QString& workspaceRoot);

    // The vault must be locked. Nothing on the drive changes before the new container was built on
    // the local disk and read back; the failures are the session's (see Failure).
    bool run(const QString& containerPath, const QByteArray& currentPassword, const QByteArray& newPassword,
             const ProgressCallback& progress, QString* preservedPath, QStringList* damagedFiles);

    // What this computer keeps under the container's identity (VaultSession::workspaceIdOf) goes from
    // the old key's identity to the new one's, once the new container holds the vault. False when
    // something stayed under the old identity, which a copy of the container made before still has.
    static bool carryOverIdentity(const QString& workspaceRoot, const QString& oldId, const QString& newId);

private:
    // The drive's file system and the local disk must take the new container (liveBytes of blocks).
    bool checkRoom(const QString& containerPath, qint64 liveBytes);
    // A header of its own for the new key: new salt, nonces and wrapping; empty key on failure.
    SecretBytes newKeyFor(const QByteArray& newPassword, ContainerHeader& header);

    VaultSession& m_session;
    QString m_workspaceRoot;
};

} // namespace Velmarin::Core
