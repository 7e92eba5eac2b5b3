#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Core {

// The "crypto" object of a container header: how the password key is derived and what it wraps.
struct CryptoHeader
{
    QString kdf;
    QString cipher;
    // Bound into the master key's associated data even though Argon2id ignores it.
    int kdfIterations = 250000;
    QByteArray salt;
    QByteArray nonce;
    QByteArray payloadNonce;
    // Never filled by Velmarin; a value read from a file is carried until the next change.
    QByteArray authTag;
    QByteArray encryptedMasterKey;
};

} // namespace Velmarin::Core
