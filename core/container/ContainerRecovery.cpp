#include "core/container/ContainerRecovery.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/ContainerJournal.h"
#include "core/container/FileSync.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Velmarin::Core {

namespace {

// The name of compaction's work folders; a journal naming anything else is not ours to follow.
const QString WorkFolderPrefix = QStringLiteral("Velmarin-compact-");

bool sameContents(const QString& first, const QString& second)
{
    QFile a(first);
    QFile b(second);
    if (!a.open(QIODevice::ReadOnly) || !b.open(QIODevice::ReadOnly) || a.size() != b.size()) {
        return false;
    }
    while (!a.atEnd()) {
        const QByteArray piece = a.read(FileSync::CopyPieceSize);
        if (piece.isEmpty() || b.read(piece.size()) != piece) {
            return false;
        }
    }
    return true;
}

} // namespace

ContainerRecovery::ContainerRecovery(const ContainerFile& containerFile)
    : m_containerFile(containerFile)
{}

bool ContainerRecovery::hasJournal(const QString& containerPath)
{
    return QFileInfo::exists(ContainerJournal::pathFor(containerPath));
}

QString ContainerRecovery::replacementPathFor(const QString& containerPath)
{
    return containerPath + QStringLiteral(".new");
}

void ContainerRecovery::removeUnfinishedReplacement(const QString& containerPath)
{
    const QString replacement = replacementPathFor(containerPath);
    if (QFileInfo::exists(replacement)) {
        FileSync::removeFile(replacement);
    }
}

ContainerRecovery::Outcome ContainerRecovery::recover(const QString& containerPath,
                                                      HeaderJournals headerJournals) const
{
    if (!hasJournal(containerPath)) {
        return Outcome::Nothing;
    }
    QByteArray header;
    const bool readable = m_containerFile.readHeaderBytes(containerPath, header);
    const qint64 size = QFileInfo(containerPath).size();
    ContainerJournal journal;
    if (!ContainerJournal::read(containerPath, journal)) {
        // Torn while it was being written, so the change it was for had not begun.
        ContainerHeader parsed;
        if (m_containerFile.readHeader(containerPath, parsed)) {
            ContainerJournal::remove(containerPath);
            return Outcome::Nothing;
        }
        return Outcome::Failed;
    }
    const bool isNew = readable && journal.isNewState(header, size) &&
                       (journal.kind() == ContainerJournal::Kind::Header || !isWholeLocalCopy(journal) ||
                        sameContents(containerPath, journal.localCopy()));
    if (readable && (journal.isOldState(header, size) || isNew)) {
        if (journal.kind() == ContainerJournal::Kind::Header && isNew) {
            // A cut in the zeros after a shorter header leaves some of the old JSON there.
            m_containerFile.clearAfterHeader(containerPath, journal.oldHeader().size());
        }
        ContainerJournal::remove(containerPath);
        if (journal.kind() == ContainerJournal::Kind::Compaction) {
            removeLocalCopy(journal);
        }
        return Outcome::Nothing;
    }
    if (journal.kind() == ContainerJournal::Kind::Compaction) {
        return restoreCompacted(containerPath, journal);
    }
    // A cut while the header was written mostly leaves one that does not read, or a key wrapping
    // torn to sizes that cannot open. One that reads whole was put there by someone: the journal,
    // which anyone with the drive can write, must not undo that without proof it is the user's.
    ContainerHeader current;
    if (headerJournals == HeaderJournals::OverUnreadableHeader &&
        m_containerFile.readHeader(containerPath, current) && current.hasWholeKeyWrap()) {
        return Outcome::JournalLeft;
    }
    return restoreHeader(containerPath, journal);
}

ContainerRecovery::Outcome ContainerRecovery::restoreHeader(const QString& containerPath,
                                                            const ContainerJournal& journal) const
{
    QByteArray restored;
    if (!m_containerFile.restoreHeaderBytes(containerPath, journal.oldHeader()) ||
        !m_containerFile.readHeaderBytes(containerPath, restored) || restored != journal.oldHeader()) {
        return Outcome::Failed;
    }
    ContainerJournal::remove(containerPath);
    return Outcome::HeaderRestored;
}

ContainerRecovery::Outcome ContainerRecovery::restoreCompacted(const QString& containerPath,
                                                               const ContainerJournal& journal) const
{
    // Whatever stands at the container's place is a part of a copy, and the copy truncates it
    // first: there was no room for two. Written over rather than removed, because on Windows a
    // removed file keeps its name while the caller's lock holds it open.
    if (!isWholeLocalCopy(journal) || !FileSync::copyFile(journal.localCopy(), containerPath)) {
        return Outcome::Failed;
    }
    ContainerJournal::remove(containerPath);
    removeLocalCopy(journal);
    return Outcome::ContainerRestored;
}

bool ContainerRecovery::isWholeLocalCopy(const ContainerJournal& journal) const
{
    // The journal lies on a drive anyone may have written: only a compacted container in one of
    // compaction's own work folders is ever copied onto the drive.
    const QFileInfo copy(journal.localCopy());
    QByteArray header;
    return copy.isAbsolute() && copy.fileName() == ContainerFile::DefaultFileName &&
           copy.absoluteDir().dirName().startsWith(WorkFolderPrefix) &&
           m_containerFile.readHeaderBytes(copy.absoluteFilePath(), header) &&
           journal.isNewState(header, copy.size());
}

void ContainerRecovery::removeLocalCopy(const ContainerJournal& journal)
{
    const QFileInfo copy(journal.localCopy());
    if (copy.fileName() == ContainerFile::DefaultFileName &&
        copy.absoluteDir().dirName().startsWith(WorkFolderPrefix)) {
        QFile::remove(copy.absoluteFilePath());
        QDir().rmdir(copy.absolutePath());
    }
}

} // namespace Velmarin::Core
