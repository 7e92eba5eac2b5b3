#include "core/container/ContainerHeader.h"

#include "core/crypto/VaultCrypto.h"

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

bool ContainerHeader::hasWholeKeyWrap() const
{
    // Argon2id takes exactly its salt size; PBKDF2 takes any salt.
    const bool wholeSalt = crypto.kdf == QLatin1String("Argon2id")
                               ? crypto.salt.size() == VaultCrypto::SaltSize
                               : !crypto.salt.isEmpty();
    return wholeSalt && crypto.nonce.size() == VaultCrypto::NonceSize &&
           crypto.encryptedMasterKey.size() == VaultCrypto::MasterKeySize + VaultCrypto::TagSize;
}

} // namespace Velmarin::Core
