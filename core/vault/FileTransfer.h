#pragma once

#include "core/container/ProgressCallback.h"

#include <QString>

class QDateTime;
class QFile;
class QIODevice;

namespace Velmarin::Core {

class VaultSession;

// Moves a file's contents into the vault and out of it: import appends its encrypted blocks to the
// container, then records it in the index; export decrypts them to a destination.
class FileTransfer
{
public:
    explicit FileTransfer(VaultSession& session);

    bool importFile(const QString& sourcePath, const QString& vaultPath, const ProgressCallback& progress);
    // The same from a file already open for reading, with the size and time to record.
    bool importFile(QFile& source, qint64 size, const QDateTime& modifiedUtc, const QString& vaultPath,
                    const ProgressCallback& progress);
    bool exportFile(const QString& vaultPath, const QString& destinationPath) const;
    // progress gets (bytes written, the file's size, its vault path) after each block.
    bool exportFile(const QString& vaultPath, QIODevice* destination,
                    const ProgressCallback& progress = {}) const;

private:
    // Puts the container back to size after a failed append.
    static void truncateContainer(QFile& container, const QString& path, qint64 size);

    VaultSession& m_session;
};

} // namespace Velmarin::Core
