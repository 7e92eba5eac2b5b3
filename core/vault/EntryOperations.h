#pragma once

#include <QString>

namespace Velmarin::Core {

class VaultIndex;
class VaultSession;
class Workspace;

// The changes that only edit the index: folders made and removed, files removed, moved and
// renamed. Each builds a new index from the live one and hands it to the session to write.
class EntryOperations
{
public:
    EntryOperations(VaultSession& session, const Workspace& workspace);

    bool createFolder(const QString& path);
    bool deleteEmptyFolder(const QString& path);
    bool deleteFile(const QString& path);
    bool moveFile(const QString& path, const QString& destinationFolder);
    bool renameFile(const QString& oldPath, const QString& newPath);
    bool renameFolder(const QString& oldPath, const QString& newPath);

private:
    // A copy of the live index with the file at oldPath (any letter case) moved to newPath.
    VaultIndex withFileRenamed(const QString& oldPath, const QString& newPath) const;
    // The live index with the folder from and everything below it moved to to.
    VaultIndex withFolderRenamed(const QString& from, const QString& to) const;

    VaultSession& m_session;
    // Files open for editing are neither moved nor renamed: their copies would come back elsewhere.
    const Workspace& m_workspace;
};

} // namespace Velmarin::Core
