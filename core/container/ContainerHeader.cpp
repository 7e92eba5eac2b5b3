#include "core/container/ContainerHeader.h"

namespace Velmarin::Core {

QByteArray ContainerHeader::associatedData(const QByteArray& label) const
{
    const char separator = '|';
    QByteArray data = MagicText;
    data += separator;
    data += label;
    data += separator;
    data += QByteArray::number(formatVersion);
    if (label == "file-block") {
        return data;
    }
    data += separator;
    data += crypto.cipher.toUtf8();
    data += separator;
    if (label == "master-key") {
        data += crypto.kdf.toUtf8();
        data += separator;
        data += QByteArray::number(crypto.kdfIterations);
        data += separator;
        data += crypto.salt;
        data += separator;
        data += crypto.nonce;
    } else {
        data += crypto.payloadNonce;
    }
    return data;
}

} // namespace Velmarin::Core
