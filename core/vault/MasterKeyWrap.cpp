#include "core/vault/MasterKeyWrap.h"

#include "core/container/ContainerHeader.h"
#include "core/crypto/KdfParams.h"
#include "core/crypto/VaultCrypto.h"

namespace Velmarin::Core {

namespace {

const QString KdfName = QStringLiteral("Argon2id");
const QString CipherName = QStringLiteral("XChaCha20-Poly1305");
const QByteArray MasterKeyLabel = QByteArrayLiteral("master-key");

} // namespace

MasterKeyWrap::MasterKeyWrap(const VaultCrypto& crypto)
    : m_crypto(crypto)
{}

void MasterKeyWrap::renewSettings(ContainerHeader& header) const
{
    header.crypto.kdf = KdfName;
    header.crypto.cipher = CipherName;
    header.crypto.nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    header.crypto.salt = m_crypto.randomBytes(VaultCrypto::SaltSize);
}

KdfParams MasterKeyWrap::paramsOf(const ContainerHeader& header)
{
    KdfParams params;
    params.algorithm = header.crypto.kdf;
    params.salt = header.crypto.salt;
    params.iterations = header.crypto.kdfIterations;
    params.keyLength = VaultCrypto::DerivedKeySize;
    return params;
}

bool MasterKeyWrap::isCostBounded(const ContainerHeader& header)
{
    return VaultCrypto::isCostBounded(paramsOf(header));
}

SecretBytes MasterKeyWrap::derivePasswordKey(const ContainerHeader& header, const QByteArray& password) const
{
    QByteArray derived = m_crypto.deriveKey(password, paramsOf(header));
    return SecretBytes::takeFrom(derived);
}

QByteArray MasterKeyWrap::wrap(const ContainerHeader& header, const QByteArray& password,
                               const QByteArray& masterKey) const
{
    const SecretBytes passwordKey = derivePasswordKey(header, password);
    if (passwordKey.isEmpty() || masterKey.isEmpty()) {
        return {};
    }
    return m_crypto.encrypt(masterKey, passwordKey.view(VaultCrypto::KeySize), header.crypto.nonce,
                            header.associatedData(MasterKeyLabel));
}

SecretBytes MasterKeyWrap::unwrap(const ContainerHeader& header, const QByteArray& password) const
{
    const SecretBytes passwordKey = derivePasswordKey(header, password);
    if (passwordKey.isEmpty() || header.crypto.encryptedMasterKey.isEmpty()) {
        return {};
    }
    QByteArray masterKey =
        m_crypto.decrypt(header.crypto.encryptedMasterKey, passwordKey.view(VaultCrypto::KeySize),
                         header.crypto.nonce, header.associatedData(MasterKeyLabel));
    SecretBytes secret = SecretBytes::takeFrom(masterKey);
    // The first 32 bytes are the block key; anything shorter cannot be a master key of ours.
    if (secret.size() < VaultCrypto::KeySize) {
        secret.clear();
    }
    return secret;
}

} // namespace Velmarin::Core
