#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Core {

// The file Velmarin writes beside a container while a change is under way: it says
// what the container held before the change and what it will hold after, so that a change cut short
// by a pulled drive or a power cut can be told apart from a finished one and undone.
//
// "Header" journals keep the whole previous header (length line and JSON): the header is rewritten
// in place, and a torn header would take the wrapped master key and the index with it.
// "Compaction" journals name the complete compacted copy on the local disk while the drive holds no
// whole container, because there was no room for the old and the new one side by side.
//
// On disk: one line of JSON (what the journal is about), the previous header's bytes, and a line with
// the SHA-256 of everything before it, so that a journal torn while being written is never believed.
class ContainerJournal
{
public:
    enum class Kind
    {
        Header,
        Compaction
    };

    static QString pathFor(const QString& containerPath);

    // oldHeader and newHeader are the length line and JSON before and after the change.
    static ContainerJournal forHeaderChange(const QByteArray& oldHeader, const QByteArray& newHeader);
    static ContainerJournal forCompaction(const QByteArray& oldHeader, qint64 oldSize,
                                          const QByteArray& newHeader, qint64 newSize,
                                          const QString& localCopy);

    // Writes the journal beside the container and waits until it is on the device. On a full drive
    // the journal takes the room of the container's reserve (see JournalReserve), and tookReserve
    // says so: the caller takes the reserve again once the journal is gone. systemError gets the
    // system's words when the journal could not be written.
    bool write(const QString& containerPath, bool* tookReserve = nullptr,
               QString* systemError = nullptr) const;
    // False when there is no journal or it does not read whole.
    static bool read(const QString& containerPath, ContainerJournal& out);
    // Removes the journal and waits until its removal is on the device.
    static bool remove(const QString& containerPath);
    // For a header journal once its new header is on the device: the removal is not waited for.
    // Should a cut bring the journal back, it names the header in place as its new state, and the
    // next unlock or recover removes it; a batch's checkpoint saves a sync this way.
    static bool removeFinished(const QString& containerPath);

    Kind kind() const { return m_kind; }
    const QByteArray& oldHeader() const { return m_oldHeader; }
    const QString& localCopy() const { return m_localCopy; }
    qint64 newSize() const { return m_newSize; }

    // Whether a container whose length line and JSON are header and whose size is size holds exactly
    // the state from before (isOldState) or after (isNewState) the change. A header change leaves the
    // size alone and records none.
    bool isOldState(const QByteArray& header, qint64 size) const;
    bool isNewState(const QByteArray& header, qint64 size) const;

private:
    QByteArray serialize() const;
    bool writeOnce(const QString& containerPath, QString* systemError) const;

    Kind m_kind = Kind::Header;
    QByteArray m_oldHeader;
    QByteArray m_oldDigest;
    QByteArray m_newDigest;
    qint64 m_oldSize = -1;
    qint64 m_newSize = -1;
    QString m_localCopy;
};

} // namespace Velmarin::Core
