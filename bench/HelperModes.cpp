#include "HelperModes.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/IndexCipher.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"

#include <QElapsedTimer>

namespace Velmarin::Bench {

using Core::VaultCrypto;

bool HelperModes::writeFallbackVault(const QString& container, const QByteArray& password)
{
    const VaultCrypto crypto;
    Core::ContainerHeader header;
    // Any name but Argon2id's takes the fallback.
    header.crypto.kdf = QStringLiteral("PBKDF2-SHA256");
    header.crypto.cipher = QStringLiteral("XChaCha20-Poly1305");
    header.crypto.kdfIterations = FallbackIterations;
    header.crypto.salt = crypto.randomBytes(VaultCrypto::SaltSize);
    header.crypto.nonce = crypto.randomBytes(VaultCrypto::NonceSize);
    QByteArray masterKey = crypto.randomBytes(VaultCrypto::MasterKeySize);
    QByteArray passwordKey =
        crypto.deriveKey(password, Core::KdfParams{header.crypto.kdf, header.crypto.salt,
                                                   header.crypto.kdfIterations, VaultCrypto::DerivedKeySize});
    header.crypto.encryptedMasterKey =
        crypto.encrypt(masterKey, passwordKey.left(VaultCrypto::KeySize), header.crypto.nonce,
                       header.associatedData("master-key"));
    const bool written = !header.crypto.encryptedMasterKey.isEmpty() &&
                         Core::IndexCipher(crypto, masterKey.left(VaultCrypto::KeySize))
                             .sealInto(header, Core::VaultIndex()) &&
                         Core::ContainerFile().writeNewContainer(container, header);
    VaultCrypto::wipe(masterKey);
    VaultCrypto::wipe(passwordKey);
    return written;
}

double HelperModes::argon2idSeconds(const QByteArray& password, int runs)
{
    const VaultCrypto crypto;
    const Core::KdfParams params{QStringLiteral("Argon2id"), crypto.randomBytes(VaultCrypto::SaltSize), 0,
                                 VaultCrypto::DerivedKeySize};
    qint64 best = -1;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        QByteArray key = crypto.deriveKey(password, params);
        const qint64 elapsed = timer.nsecsElapsed();
        if (key.size() != VaultCrypto::DerivedKeySize) {
            return -1;
        }
        VaultCrypto::wipe(key);
        best = best < 0 ? elapsed : qMin(best, elapsed);
    }
    return static_cast<double>(best) / 1e9;
}

} // namespace Velmarin::Bench
