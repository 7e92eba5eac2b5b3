#include "core/vault/ImportBatch.h"

#include "core/container/FileSync.h"
#include "core/index/VaultPath.h"
#include "core/vault/VaultSession.h"

#include <QDateTime>
#include <QFileInfo>
#include <QUuid>

namespace Velmarin::Core {

ImportBatch::ImportBatch(VaultSession& session)
    : ImportBatch(session, Checkpoints())
{}

ImportBatch::ImportBatch(VaultSession& session, Checkpoints checkpoints)
    : m_session(session)
    , m_checkpoints(checkpoints)
    , m_store(session.payloadStore())
{}

ImportBatch::Outcome ImportBatch::run(const QList<ImportItem>& items, const Handler& handler)
{
    Outcome outcome;
    if (!start(items, outcome)) {
        return outcome;
    }
    for (qsizetype i = 0; i < items.size(); ++i) {
        const ImportItem& item = items.at(i);
        m_progress.vaultPath = item.vaultPath;
        m_progress.fileDone = 0;
        m_progress.fileTotal = item.isFolder ? 0 : item.size;
        Step step = Step::Skipped;
        if (!handler.include || handler.include(item, m_working)) {
            step = item.isFolder ? addFolder(item) : addFile(item, handler);
        }
        if (step == Step::Failed) {
            ++outcome.failed;
            if (handler.failed) {
                handler.failed(item, m_session.failure());
            }
            m_session.clearFailure();
        }
        if (step == Step::Added && !item.isFolder) {
            ++m_pendingFiles;
        }
        if (step == Step::Stop || (step == Step::Added && checkpointDue() && !checkpoint())) {
            outcome.stopped = true;
            outcome.stoppedAt = static_cast<int>(i);
            break;
        }
        m_progress.filesDone += item.isFolder ? 0 : 1;
        m_progress.bytesDone += item.isFolder ? 0 : item.size - m_progress.fileDone;
        m_progress.fileDone = m_progress.fileTotal;
        report(handler);
    }
    if (outcome.stopped) {
        finishAfterStop();
    } else if (m_changed && !checkpoint()) {
        outcome.stopped = true;
        outcome.stoppedAt = static_cast<int>(items.size());
    }
    m_container.close();
    outcome.imported = m_recordedFiles;
    return outcome;
}

bool ImportBatch::measure(const QList<ImportItem>& items, int* fitting)
{
    if (!m_session.isOpen()) {
        return m_session.fail(Failure::Reason::NotUnlocked);
    }
    if (!m_session.readCurrentHeader(m_header)) {
        return false;
    }
    *fitting = IndexCapacity(m_session.containerFile(), m_header, m_session.index()).fittingFiles(items);
    return m_session.checkGrowth(sealedSize(items));
}

qint64 ImportBatch::sealedSize(const QList<ImportItem>& items)
{
    qint64 total = 0;
    for (const ImportItem& item : items) {
        total += item.isFolder ? 0 : PayloadStore::sealedSize(item.size);
    }
    return total;
}

bool ImportBatch::start(const QList<ImportItem>& items, Outcome& outcome)
{
    if (!m_session.canChange()) {
        outcome.stopped = true;
        return m_session.failUnchangeable();
    }
    if (!m_session.readCurrentHeader(m_header)) {
        outcome.stopped = true;
        return false;
    }
    m_capacity.emplace(m_session.containerFile(), m_header, m_session.index());
    for (const ImportItem& item : items) {
        m_progress.filesTotal += item.isFolder ? 0 : 1;
        m_progress.bytesTotal += item.isFolder ? 0 : item.size;
    }
    const int fitting = m_capacity->fittingFiles(items);
    if (fitting < m_progress.filesTotal) {
        outcome.fitting = fitting;
        return m_session.fail(Failure::Reason::IndexFull, m_session.containerPath());
    }
    if (!m_session.checkGrowth(sealedSize(items))) {
        outcome.stopped = true;
        return false;
    }
    // Unbuffered, so that a failed write leaves nothing pending that would block the cut-back.
    m_container.setFileName(m_session.containerPath());
    if (!m_container.open(QIODevice::ReadWrite | QIODevice::Unbuffered)) {
        outcome.stopped = true;
        return m_session.failWrite(m_container.fileName(), &m_container);
    }
    m_working = m_session.index();
    m_end = m_recordedEnd = m_container.size();
    m_headerSize = m_capacity->headerSize(m_header.encryptedIndex.size());
    m_sinceCheckpoint.start();
    return true;
}

ImportBatch::Step ImportBatch::addFolder(const ImportItem& item)
{
    const QString folder = normalizeVaultPath(item.vaultPath);
    if (folder.isEmpty() || m_working.crossesFile(folder)) {
        m_session.fail(Failure::Reason::NameNotAllowed, item.vaultPath);
        return Step::Failed;
    }
    if (m_working.fileExists(folder)) {
        m_session.fail(Failure::Reason::AlreadyExists, folder);
        return Step::Failed;
    }
    if (m_working.directoryExists(folder)) {
        return Step::Skipped;
    }
    m_working.ensureParentDirectories(folder);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    m_working.upsertDirectory(DirectoryEntry{folder, now, now});
    m_changed = true;
    return Step::Added;
}

ImportBatch::Step ImportBatch::addFile(const ImportItem& item, const Handler& handler)
{
    const QString target = normalizeVaultPath(item.vaultPath);
    if (target.isEmpty() || m_working.crossesFile(target)) {
        m_session.fail(Failure::Reason::NameNotAllowed, item.vaultPath);
        return Step::Failed;
    }
    if (m_working.directoryExists(target)) {
        m_session.fail(Failure::Reason::AlreadyExists, target);
        return Step::Failed;
    }
    QFile source;
    FileEntry entry;
    if (!openSource(item, handler, source, &entry.lastModifiedUtc)) {
        return Step::Failed;
    }
    entry.id = QUuid::createUuid().toString(QUuid::WithoutBraces);
    entry.vaultPath = target;
    const Step appended = append(source, item, entry, handler);
    if (appended != Step::Added) {
        return appended;
    }
    // Importing over a file in any letter case replaces it; its blocks become dead space.
    for (const FileEntry* old = m_working.findFile(target); old != nullptr;
         old = m_working.findFile(target)) {
        if (!m_working.removeFile(QString(old->vaultPath))) {
            break;
        }
    }
    m_working.ensureParentDirectories(target);
    m_working.upsertFile(entry);
    m_changed = true;
    return Step::Added;
}

ImportBatch::Step ImportBatch::append(QFile& source, const ImportItem& item, FileEntry& entry,
                                      const Handler& handler)
{
    const qint64 sizeAtOpen = source.size();
    const auto blockDone = [&](qint64 done, qint64, const QString&) {
        m_progress.bytesDone += done - m_progress.fileDone;
        m_progress.fileDone = done;
        report(handler);
    };
    bool sourceFailed = false;
    const bool written =
        m_container.seek(m_end) && m_store.appendBlocks(source, m_container, item.size, entry.vaultPath,
                                                        blockDone, entry, &sourceFailed);
    if (!written && source.error() != QFileDevice::NoError) {
        m_session.fail(Failure::Reason::SourceUnreadable, source.fileName(), source.errorString());
    } else if (!written && sourceFailed) {
        // It ended before the end it had when opened: cut short while it was read.
        m_session.fail(Failure::Reason::SourceChanged, source.fileName());
    } else if (!written) {
        // Told apart before the cut-back, while the drive is still as full as it got.
        const QString refused = m_store.writeError();
        refused.isEmpty() ? m_session.failWrite(m_container.fileName(), &m_container)
                          : m_session.failWrite(m_container.fileName(), refused);
        cutBack(m_end);
        return Step::Stop;
    } else if (entry.sizeBytes != sizeAtOpen || !IndexCapacity::isWithinBound(entry, item.size)) {
        // Grown or shrunk while it was read, or past what the index was bounded for.
        m_session.fail(Failure::Reason::SourceChanged, source.fileName());
    } else {
        m_appendedSinceCheckpoint += m_container.pos() - m_end;
        m_end = m_container.pos();
        return Step::Added;
    }
    if (!cutBack(m_end)) {
        m_session.failWrite(m_container.fileName(), &m_container);
        return Step::Stop;
    }
    return Step::Failed;
}

bool ImportBatch::openSource(const ImportItem& item, const Handler& handler, QFile& source,
                             QDateTime* modified)
{
    if (handler.open) {
        if (handler.open(item, source, modified)) {
            return true;
        }
        return m_session.failure().reason != Failure::Reason::None ||
               m_session.fail(Failure::Reason::SourceUnreadable, item.localPath, source.errorString());
    }
    const QFileInfo info(item.localPath);
    if (!info.isFile()) {
        return m_session.fail(Failure::Reason::SourceUnreadable, item.localPath);
    }
    source.setFileName(item.localPath);
    if (!source.open(QIODevice::ReadOnly)) {
        return m_session.fail(Failure::Reason::SourceUnreadable, item.localPath, source.errorString());
    }
    *modified = info.lastModified().toUTC();
    return true;
}

bool ImportBatch::checkpointDue() const
{
    return m_appendedSinceCheckpoint >= m_checkpoints.bytes ||
           (m_sinceCheckpoint.elapsed() >= m_checkpoints.intervalMs &&
            m_appendedSinceCheckpoint >= m_headerSize);
}

bool ImportBatch::checkpoint()
{
    // The blocks are on the device before the header that refers to them is written.
    if (!FileSync::flushToDevice(m_container)) {
        m_indexWriteFailed = true;
        m_session.failWrite(m_container.fileName());
        cutBack(m_recordedEnd);
        return false;
    }
    bool oldHeaderKept = true;
    if (!m_session.saveIndex(m_header, m_working, &oldHeaderKept)) {
        m_indexWriteFailed = true;
        // A header that may refer to the new blocks keeps them; they are dead space at worst.
        if (oldHeaderKept) {
            cutBack(m_recordedEnd);
        }
        return false;
    }
    m_recordedEnd = m_end;
    m_recordedFiles += m_pendingFiles;
    m_pendingFiles = 0;
    m_appendedSinceCheckpoint = 0;
    m_headerSize = m_capacity->headerSize(m_header.encryptedIndex.size());
    m_changed = false;
    m_sinceCheckpoint.restart();
    return true;
}

void ImportBatch::finishAfterStop()
{
    const Failure stop = m_session.failure();
    // An index write that already failed is not tried again over what it may have left.
    if (m_changed && !m_indexWriteFailed) {
        checkpoint();
    }
    m_session.fail(stop.reason, stop.path, stop.systemError);
}

bool ImportBatch::cutBack(qint64 end)
{
    const bool cut = m_container.resize(end) && FileSync::flushToDevice(m_container);
    m_end = end;
    return cut;
}

void ImportBatch::report(const Handler& handler)
{
    if (handler.progress) {
        handler.progress(m_progress);
    }
}

} // namespace Velmarin::Core
