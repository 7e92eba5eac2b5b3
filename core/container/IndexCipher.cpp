#include "core/container/IndexCipher.h"

#include "core/crypto/PlaintextBuffer.h"
#include "core/crypto/VaultCrypto.h"

namespace Velmarin::Core {

namespace {
const QByteArray IndexLabel = QByteArrayLiteral("index");
}

IndexCipher::IndexCipher(const VaultCrypto& crypto, const QByteArray& blockKey)
    : m_crypto(crypto)
    , m_key(blockKey)
{}

QByteArray IndexCipher::encryptIndex(const ContainerHeader& header, const VaultIndex& index) const
{
    const PlaintextBuffer json(index.toJson());
    return m_crypto.encrypt(json.bytes(), m_key, header.crypto.payloadNonce,
                            header.associatedData(IndexLabel));
}

bool IndexCipher::decryptIndex(const ContainerHeader& header, VaultIndex& out) const
{
    if (header.encryptedIndex.isEmpty()) {
        return false;
    }
    const PlaintextBuffer json(m_crypto.decrypt(header.encryptedIndex, m_key, header.crypto.payloadNonce,
                                                header.associatedData(IndexLabel)));
    if (json.isEmpty()) {
        return false;
    }
    out = VaultIndex::fromJson(json.bytes());
    return true;
}

bool IndexCipher::sealInto(ContainerHeader& header, const VaultIndex& index) const
{
    header.crypto.authTag.clear();
    header.crypto.payloadNonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    header.encryptedIndex = encryptIndex(header, index);
    return !header.encryptedIndex.isEmpty();
}

} // namespace Velmarin::Core
