#pragma once

#include <QString>

namespace Velmarin::Core {

class ContainerFile;
class ContainerJournal;

// Finishes what a change cut short left beside a container (see ContainerJournal): a journal
// beside a container that holds the state from before or after the change is stale and goes; a
// header torn half-way gets the previous header back; a drive left without a whole container by a
// compaction gets the compacted copy back from the local disk. No password is needed: the journal
// tells the states apart by their digests.
//
// The caller keeps every other session away while this runs: it holds the container's lock, or,
// when there is no container, the journal's.
class ContainerRecovery
{
public:
    enum class Outcome
    {
        // No journal, or a stale one, now removed.
        Nothing,
        HeaderRestored,
        ContainerRestored,
        // A header journal beside a container whose header reads and is neither state the journal
        // knows: applying it would roll the vault back to whatever header the journal holds. It is
        // left where it is and nothing is changed.
        JournalLeft,
        // A journal is there, the container is not whole and cannot be put back; nothing was removed.
        Failed
    };

    explicit ContainerRecovery(const ContainerFile& containerFile);

    static bool hasJournal(const QString& containerPath);
    // Where compaction puts the new container beside the old one before it takes the old one's name.
    static QString replacementPathFor(const QString& containerPath);
    // A replacement never renamed is an unfinished copy: the container beside it was never touched.
    // Removed only once the vault is known to be the user's (its password opened it, or the user
    // asked for a recovery), since a file of that name may be the user's own.
    static void removeUnfinishedReplacement(const QString& containerPath);

    // Which header journals are applied: by default only over a header that does not read, as a cut
    // leaves it; Always also over one that reads, for a user who says the journal is theirs.
    enum class HeaderJournals
    {
        OverUnreadableHeader,
        Always
    };

    Outcome recover(const QString& containerPath,
                    HeaderJournals headerJournals = HeaderJournals::OverUnreadableHeader) const;

private:
    Outcome restoreHeader(const QString& containerPath, const ContainerJournal& journal) const;
    Outcome restoreCompacted(const QString& containerPath, const ContainerJournal& journal) const;
    // The compacted copy a journal names, when it is one of ours and whole.
    bool isWholeLocalCopy(const ContainerJournal& journal) const;
    static void removeLocalCopy(const ContainerJournal& journal);

    const ContainerFile& m_containerFile;
};

} // namespace Velmarin::Core
