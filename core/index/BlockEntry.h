#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace Velmarin::Core {

// One encrypted piece of a stored file, at an absolute offset in the container.
struct BlockEntry
{
    qint64 offset = 0;
    qint64 plainSize = 0;
    // plainSize plus the 16-byte authentication tag.
    qint64 encryptedSize = 0;
    QByteArray nonce;
};

} // namespace Velmarin::Core
