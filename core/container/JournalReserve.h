#pragma once

#include <QString>

namespace Velmarin::Core {

// Room for a journal, held beside the container while a vault is open for changes, in a file of
// its own ("velmarin.vltx.reserve"). A change to the index needs no new room in the container, whose
// header region is written in place, but its journal does: on a drive filled to the last byte the
// reserve gives its room up to the journal, and is taken again once the journal is gone. Recovery
// never reads it; a reserve left by a session that ended without locking is taken over by the next.
class JournalReserve
{
public:
    static QString pathFor(const QString& containerPath);
    // Room for the journal of a header of headerSize bytes, and for that header to grow a while.
    static qint64 sizeFor(qint64 headerSize);

    // Makes the reserve sizeFor(headerSize) bytes, its room taken on the drive now. False when the
    // drive has no room left for it (changes then need room of their own), or when a file of its
    // name is not one a reserve could be (a link, a folder, a larger file), which is left alone.
    static bool hold(const QString& containerPath, qint64 headerSize);
    // Whether a reserve is there to give up.
    static bool isHeld(const QString& containerPath);
    // Gives the reserve's room back to the drive, for a journal to take.
    static bool giveUp(const QString& containerPath);
    // Whether a reserve is there but too small for the journal of a header of headerSize bytes:
    // the header outgrew the margin it was held with.
    static bool isShortFor(const QString& containerPath, qint64 headerSize);
};

} // namespace Velmarin::Core
