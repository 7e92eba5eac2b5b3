#pragma once

#include "core/container/ContainerHeader.h"
#include "core/index/VaultIndex.h"

#include <QByteArray>

namespace Velmarin::Core {

class VaultCrypto;

// Seals the index JSON under the master key, bound to the header's cipher and payloadNonce.
class IndexCipher
{
public:
    IndexCipher(const VaultCrypto& crypto, const QByteArray& blockKey);

    // The encrypted index for header (its payloadNonce must be set), or empty.
    QByteArray encryptIndex(const ContainerHeader& header, const VaultIndex& index) const;
    // False when header carries no index or it does not decrypt to something.
    bool decryptIndex(const ContainerHeader& header, VaultIndex& out) const;
    // Draws a fresh payloadNonce and stores the sealed index in header; the fields a change drops go too.
    bool sealInto(ContainerHeader& header, const VaultIndex& index) const;

private:
    const VaultCrypto& m_crypto;
    QByteArray m_key;
};

} // namespace Velmarin::Core
