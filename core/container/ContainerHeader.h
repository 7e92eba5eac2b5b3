#pragma once

#include "core/container/CryptoHeader.h"

#include <QByteArray>

namespace Velmarin::Core {

// The JSON header of a container, as read from or about to be written to its header region.
struct ContainerHeader
{
    // The "magic" text inside the JSON; the file itself starts with FileMagic.
    static inline const QByteArray MagicText = QByteArrayLiteral("VLTBOX");
    static constexpr int CurrentFormatVersion = 3;

    int formatVersion = CurrentFormatVersion;
    CryptoHeader crypto;
    QByteArray encryptedIndex;
    // Set by the reader: where the payload region starts in the file it came from, and the length of
    // the JSON its length line announced.
    qint64 payloadOffset = 0;
    qint64 headerLength = 0;

    // What each sealed part of the container is bound to, so a part cannot be moved to another
    // label or to a header with other settings. label is "master-key", "index" or "file-block".
    QByteArray associatedData(const QByteArray& label) const;
    // Whether the master key's wrapping has the sizes it needs to open at all. A write cut inside it
    // can leave JSON that reads but a wrapping no password opens.
    bool hasWholeKeyWrap() const;
};

} // namespace Velmarin::Core
