#include "FuzzContainer.h"

#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/IndexCipher.h"
#include "core/crypto/KdfParams.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"

#include <QFile>

namespace Velmarin::Tests {

using Core::ContainerFile;
using Core::ContainerHeader;
using Core::IndexCipher;
using Core::KdfParams;
using Core::VaultCrypto;
using Core::VaultIndex;

namespace {
constexpr qint64 LengthLineEnd = 7 + ContainerFile::LengthDigits + 1;
}

qint64 FuzzContainer::announcedLength(const QByteArray& input)
{
    if (input.size() < LengthLineEnd) {
        return -1;
    }
    bool ok = false;
    const qint64 length = input.mid(7, ContainerFile::LengthDigits).toLongLong(&ok);
    if (!ok || length < 0 || length > ContainerFile::HeaderRegionSize) {
        return -1;
    }
    return length;
}

QByteArray FuzzContainer::compact(const QByteArray& container)
{
    const qint64 length = announcedLength(container);
    if (length < 0 || container.size() < ContainerFile::PayloadOffset) {
        return {};
    }
    return container.left(LengthLineEnd + length) + container.mid(ContainerFile::PayloadOffset);
}

bool FuzzContainer::write(const QString& path, const uint8_t* data, std::size_t size)
{
    const QByteArray input =
        QByteArray::fromRawData(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    const qint64 length = announcedLength(input);
    if (length < 0 || LengthLineEnd + length > input.size()) {
        return file.write(input) == input.size();
    }
    const QByteArray head = input.left(LengthLineEnd + length);
    const QByteArray payload = input.mid(LengthLineEnd + length);
    // The fill is a hole in the file: sizing it costs nothing.
    return file.write(head) == head.size() && file.resize(ContainerFile::PayloadOffset) &&
           file.seek(ContainerFile::PayloadOffset) && file.write(payload) == payload.size();
}

bool FuzzContainer::writeEmptyVault(const QString& path)
{
    const VaultCrypto crypto;
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("PBKDF2-SHA256");
    header.crypto.cipher = QStringLiteral("XChaCha20-Poly1305");
    header.crypto.kdfIterations = 1;
    header.crypto.salt = crypto.randomBytes(VaultCrypto::SaltSize);
    header.crypto.nonce = crypto.randomBytes(VaultCrypto::NonceSize);
    header.crypto.payloadNonce = crypto.randomBytes(VaultCrypto::NonceSize);
    const QByteArray masterKey = crypto.randomBytes(VaultCrypto::MasterKeySize);
    const QByteArray passwordKey =
        crypto.deriveKey(Password, KdfParams{header.crypto.kdf, header.crypto.salt,
                                             header.crypto.kdfIterations, VaultCrypto::DerivedKeySize});
    header.crypto.encryptedMasterKey =
        crypto.encrypt(masterKey, passwordKey.left(VaultCrypto::KeySize), header.crypto.nonce,
                       header.associatedData("master-key"));
    return IndexCipher(crypto, masterKey.left(VaultCrypto::KeySize)).sealInto(header, VaultIndex()) &&
           ContainerFile().writeNewContainer(path, header);
}

} // namespace Velmarin::Tests
