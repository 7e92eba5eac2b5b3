#pragma once

#include "core/crypto/KdfParams.h"
#include "core/crypto/SecretBytes.h"

#include <QByteArray>

namespace Velmarin::Core {

class VaultCrypto;
struct ContainerHeader;

// The random master key as the header keeps it: sealed under a key derived from the password, so
// changing the password rewraps it and never touches the index or a block.
class MasterKeyWrap
{
public:
    explicit MasterKeyWrap(const VaultCrypto& crypto);

    // New salt and nonce under the current key derivation and cipher, for a new or rewrapped key.
    void renewSettings(ContainerHeader& header) const;
    // Empty when the key could not be derived or sealed.
    QByteArray wrap(const ContainerHeader& header, const QByteArray& password,
                    const QByteArray& masterKey) const;
    // Empty for a wrong password or a wrapped key that was altered.
    SecretBytes unwrap(const ContainerHeader& header, const QByteArray& password) const;
    // Whether the header's key derivation ends in bounded time; checked before any password is tried.
    static bool isCostBounded(const ContainerHeader& header);

private:
    static KdfParams paramsOf(const ContainerHeader& header);
    SecretBytes derivePasswordKey(const ContainerHeader& header, const QByteArray& password) const;

    const VaultCrypto& m_crypto;
};

} // namespace Velmarin::Core
