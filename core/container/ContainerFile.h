#pragma once

#include "core/container/ContainerHeader.h"

#include <QByteArray>
#include <QString>

#include <functional>

class QFile;
class QIODevice;

namespace Velmarin::Core {

// Reads and writes the container's fixed layout: magic, length line, 8 MiB header region, payload.
class ContainerFile
{
public:
    static inline const QByteArray FileMagic = QByteArrayLiteral("VLTBOX3");
    static inline const QString DefaultFileName = QStringLiteral("velmarin.vltx");
    static constexpr qint64 HeaderRegionSize = 8388608;
    static constexpr int LengthDigits = 20;
    // Magic, the 20-digit length and its line feed, then the header region.
    static constexpr qint64 PayloadOffset = 7 + LengthDigits + 1 + HeaderRegionSize;

    // Appends the payload region to a container being written; the device stands at PayloadOffset.
    using PayloadWriter = std::function<bool(QIODevice&)>;

    static QString defaultContainerPath(const QString& driveRoot);

    // Fills out only on success.
    bool readHeader(const QString& path, ContainerHeader& out) const;
    // readHeader's two steps, for ContainerProbe to tell why a file does not read. The first reads,
    // from the start of file, the magic, the length line and the JSON that line announces, after
    // checking that the file holds the whole header region.
    static bool readRawHeader(QFile& file, QByteArray& line, QByteArray& json);
    // The second checks the JSON's magic and version and fills out's fields from it, not the
    // offsets; out may be partly filled on failure.
    static bool parseHeader(const QByteArray& json, ContainerHeader& out);
    // The length line and the JSON exactly as they stand in the file, after the same checks as
    // readHeader's up to the JSON itself: what a journal keeps and compares.
    bool readHeaderBytes(const QString& path, QByteArray& out) const;
    // Replaces path atomically and returns once the new file and its name are on the device. The
    // header is serialised after the payload writer ran, so a writer may still complete the very
    // header object it was given (compaction adds its index that way).
    bool writeNewContainer(const QString& path, const ContainerHeader& header,
                           const PayloadWriter& payloadWriter = {}) const;
    // Rewrites the header region in place; the payload is never touched. A journal beside the
    // container holds the old header until the new one is on the device, so a cut at any moment
    // leaves a header that reads or one the journal restores. On failure, oldHeaderKept tells
    // whether the old header is known to be in place again; when it is not, the journal is left.
    // systemError gets the system's words when the journal could not be written.
    bool rewriteHeader(const QString& path, const ContainerHeader& header, bool* oldHeaderKept = nullptr,
                       QString* systemError = nullptr) const;
    QByteArray serializeHeader(const ContainerHeader& header) const;
    // Writes a header kept by a journal (length line and JSON) back over the whole header region.
    bool restoreHeaderBytes(const QString& path, const QByteArray& header) const;
    // Zeros the region from the end of the current header up to coveredBefore bytes after the magic,
    // where an interrupted rewrite may have left the end of a longer, older header.
    bool clearAfterHeader(const QString& path, qint64 coveredBefore) const;

private:
    // The length line and the header region for json, which must fit in the region.
    static QByteArray headerBytes(const QByteArray& json);
    static QByteArray lengthLine(qint64 jsonSize);
    // header followed by the zeros that clear what an earlier header of coveredBefore bytes left.
    static QByteArray padded(const QByteArray& header, qint64 coveredBefore);
    static bool writeAt(QFile& file, qint64 offset, const QByteArray& bytes);
};

} // namespace Velmarin::Core
