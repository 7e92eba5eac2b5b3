#pragma once

#include "core/container/ContainerHeader.h"
#include "core/container/PayloadStore.h"
#include "core/index/VaultIndex.h"
#include "core/vault/Failure.h"
#include "core/vault/ImportItem.h"
#include "core/vault/IndexCapacity.h"

#include <QElapsedTimer>
#include <QFile>
#include <QList>

#include <functional>
#include <optional>

class QDateTime;

namespace Velmarin::Core {

class VaultSession;

// Brings many files and folders into the vault at the cost of what they hold: each file's blocks
// are appended as a single import appends them, but the index is written only at checkpoints and
// at the end, so a power cut loses at most the files since the last checkpoint and never the vault.
// A file that cannot be read is cut back off the container and the rest go on; a container that
// cannot be written stops the batch after the whole files are recorded.
class ImportBatch
{
public:
    // A checkpoint follows a whole file once interval has passed and at least the header's own size
    // was appended since the last one, or once bytes were appended, so that the header bytes written
    // stay a small multiple of the final header on a slow stick as on a fast disk.
    struct Checkpoints
    {
        qint64 intervalMs = 2000;
        qint64 bytes = 256 * 1024 * 1024;
    };

    struct Progress
    {
        int filesDone = 0;
        int filesTotal = 0;
        qint64 bytesDone = 0;
        qint64 bytesTotal = 0;
        // The file being read, and how far.
        QString vaultPath;
        qint64 fileDone = 0;
        qint64 fileTotal = 0;
    };

    // How a front end takes part; every member may be left empty.
    struct Handler
    {
        // Asked before each item, with the index as the batch has it so far; false leaves it out.
        std::function<bool(const ImportItem&, const VaultIndex&)> include;
        // An item that did not go in, and why; the batch goes on with the next.
        std::function<void(const ImportItem&, const Failure&)> failed;
        std::function<void(const Progress&)> progress;
        // Opens an item's file and tells its modification time; by default the file at localPath.
        std::function<bool(const ImportItem&, QFile&, QDateTime*)> open;
    };

    struct Outcome
    {
        // Files the vault holds now, counted once the index that records them was written.
        int imported = 0;
        // Items refused or cut back, each told to Handler::failed.
        int failed = 0;
        // The container could not be written (the reason is the session's failure): the item at
        // stoppedAt and those after it were not imported.
        bool stopped = false;
        int stoppedAt = -1;
        // Refused before anything was written because the index would not fit: how many of the
        // files, in order, would.
        std::optional<int> fitting;

        bool succeeded() const { return !stopped && failed == 0 && !fitting; }
    };

    explicit ImportBatch(VaultSession& session);
    ImportBatch(VaultSession& session, Checkpoints checkpoints);

    Outcome run(const QList<ImportItem>& items, const Handler& handler);
    // How many of items' files, in order, the index can still take, without writing anything.
    bool measure(const QList<ImportItem>& items, int* fitting);

private:
    enum class Step
    {
        Added,
        Skipped,
        Failed,
        Stop
    };

    bool start(const QList<ImportItem>& items, Outcome& outcome);
    // What the items' files add to the container.
    static qint64 sealedSize(const QList<ImportItem>& items);
    Step addFolder(const ImportItem& item);
    Step addFile(const ImportItem& item, const Handler& handler);
    // Appends source's blocks for entry; Failed or Stop leave the container as it was before.
    Step append(QFile& source, const ImportItem& item, FileEntry& entry, const Handler& handler);
    bool openSource(const ImportItem& item, const Handler& handler, QFile& source, QDateTime* modified);
    bool checkpointDue() const;
    // Syncs the appended blocks, then writes the index that refers to them.
    bool checkpoint();
    // Records the whole files after a stop, keeping the reason of the stop.
    void finishAfterStop();
    // Drops whatever the last file left after the end of the last whole one.
    bool cutBack(qint64 end);
    void report(const Handler& handler);

    VaultSession& m_session;
    const Checkpoints m_checkpoints;
    const PayloadStore m_store;
    ContainerHeader m_header;
    VaultIndex m_working;
    QFile m_container;
    QElapsedTimer m_sinceCheckpoint;
    // The end of the last whole file, and of the last one an index written refers to.
    qint64 m_end = 0;
    qint64 m_recordedEnd = 0;
    qint64 m_appendedSinceCheckpoint = 0;
    qint64 m_headerSize = 0;
    std::optional<IndexCapacity> m_capacity;
    int m_pendingFiles = 0;
    int m_recordedFiles = 0;
    bool m_changed = false;
    bool m_indexWriteFailed = false;
    Progress m_progress;
};

} // namespace Velmarin::Core
