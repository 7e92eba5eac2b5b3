#pragma once

#include "core/container/ProgressCallback.h"

#include <QString>

namespace Velmarin::Core {

class FileTransfer;
class VaultSession;
class Workspace;

// Plaintext copies of a file or a folder dragged out of the window to the file manager. They are
// written into the session's private workspace, apart from the copies opened for editing, so they
// are never brought back into the vault; the file manager reads them after the drag has returned,
// and they are wiped at lock (and, after a session that ended without locking, at the next unlock).
class OutgoingCopies
{
public:
    OutgoingCopies(VaultSession& session, Workspace& workspace, const FileTransfer& transfer);

    // Writes vaultPath (a file, or a folder with its tree) under its own name into a new folder of
    // the workspace and gives its local path. All or nothing: when one file cannot be written, the
    // copy is wiped and the session's failure says why.
    bool write(const QString& vaultPath, QString* localPath, const ProgressCallback& progress = {});

private:
    bool writeFile(const QString& vaultPath, const QString& target, const ProgressCallback& progress);
    bool writeFolder(const QString& vaultPath, const QString& target, const ProgressCallback& progress);

    VaultSession& m_session;
    Workspace& m_workspace;
    const FileTransfer& m_transfer;
};

} // namespace Velmarin::Core
