#pragma once

#include "ContainerHeader.h"

#include <QByteArray>
#include <QString>

#include <functional>

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
    // Replaces path atomically. The header is serialised after the payload writer ran, so a writer
    // may still complete the very header object it was given (compaction adds its index that way).
    bool writeNewContainer(const QString& path, const ContainerHeader& header,
                           const PayloadWriter& payloadWriter = {}) const;
    // Rewrites the header region in place; the payload is never touched.
    bool rewriteHeader(const QString& path, const ContainerHeader& header) const;
    QByteArray serializeHeader(const ContainerHeader& header) const;

private:
    // The length line and the header region for json, which must fit in the region.
    static QByteArray headerBytes(const QByteArray& json);
};

} // namespace Velmarin::Core
