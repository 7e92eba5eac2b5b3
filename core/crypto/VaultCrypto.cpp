#include "core/crypto/VaultCrypto.h"

#include "core/crypto/AeadCipher.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QtEndian>

#include <sodium.h>

namespace Velmarin::Core {

static_assert(VaultCrypto::KeySize == AeadCipher::KeySize &&
                  VaultCrypto::NonceSize == AeadCipher::NonceSize &&
                  VaultCrypto::TagSize == AeadCipher::TagSize,
              "one cipher seals everything");

namespace {

const QByteArray Argon2idName = QByteArrayLiteral("Argon2id");

const unsigned char* bytes(const QByteArray& data)
{
    return reinterpret_cast<const unsigned char*>(data.constData());
}

unsigned char* bytes(QByteArray& data)
{
    return reinterpret_cast<unsigned char*>(data.data());
}

} // namespace

VaultCrypto::VaultCrypto()
{
    // A failed initialisation surfaces as the first primitive's own failure, so it is not kept here.
    [[maybe_unused]] const int initialised = sodium_init();
}

QByteArray VaultCrypto::randomBytes(int count) const
{
    if (count < 1) {
        return {};
    }
    QByteArray out(count, Qt::Uninitialized);
    randombytes_buf(out.data(), static_cast<size_t>(count));
    return out;
}

bool VaultCrypto::isCostBounded(const KdfParams& params)
{
    // Argon2id's cost is fixed in code and never read from a header.
    return params.algorithm.toUtf8() == Argon2idName ||
           (params.iterations >= 1 && params.iterations <= MaxPbkdf2Iterations);
}

QByteArray VaultCrypto::deriveKey(const QByteArray& password, const KdfParams& params) const
{
    if (password.isEmpty() || params.salt.isEmpty() || params.keyLength < 1 || !isCostBounded(params)) {
        return {};
    }
    if (params.algorithm.toUtf8() != Argon2idName) {
        return pbkdf2HmacSha256(password, params.salt, params.iterations, params.keyLength);
    }
    // libsodium reads exactly 16 salt bytes: a shorter salt would be read past its end.
    if (params.salt.size() != SaltSize) {
        return {};
    }
    QByteArray key(params.keyLength, Qt::Uninitialized);
    const int rc =
        crypto_pwhash(bytes(key), static_cast<unsigned long long>(key.size()), password.constData(),
                      static_cast<unsigned long long>(password.size()), bytes(params.salt), Argon2OpsLimit,
                      Argon2MemLimit, crypto_pwhash_ALG_ARGON2ID13);
    if (rc != 0) {
        wipe(key);
        return {};
    }
    return key;
}

QByteArray VaultCrypto::pbkdf2HmacSha256(const QByteArray& password, const QByteArray& salt, int iterations,
                                         int keyLength)
{
    if (iterations < 1) {
        return {};
    }
    QMessageAuthenticationCode mac(QCryptographicHash::Sha256, password);
    QByteArray derived;
    derived.reserve(keyLength + 32);
    for (quint32 blockIndex = 1; derived.size() < keyLength; ++blockIndex) {
        QByteArray counter(4, Qt::Uninitialized);
        qToBigEndian(blockIndex, counter.data());
        mac.reset();
        mac.addData(salt);
        mac.addData(counter);
        QByteArray u = mac.result();
        QByteArray block(u.constData(), u.size());
        for (int round = 2; round <= iterations; ++round) {
            mac.reset();
            mac.addData(u);
            QByteArray next = mac.result();
            wipe(u);
            u = std::move(next);
            for (int i = 0; i < block.size(); ++i) {
                block[i] = static_cast<char>(block[i] ^ u[i]);
            }
        }
        derived.append(block);
        wipe(u);
        wipe(block);
    }
    QByteArray key = derived.left(keyLength);
    wipe(derived);
    return key;
}

QByteArray VaultCrypto::encrypt(const QByteArray& plaintext, const QByteArray& key, const QByteArray& nonce,
                                const QByteArray& associatedData) const
{
    if (key.size() != KeySize || nonce.size() != NonceSize) {
        return {};
    }
    QByteArray out(plaintext.size() + TagSize, Qt::Uninitialized);
    AeadCipher cipher;
    if (!cipher.seal(bytes(key), bytes(nonce), associatedData, bytes(plaintext),
                     static_cast<size_t>(plaintext.size()), bytes(out))) {
        return {};
    }
    return out;
}

QByteArray VaultCrypto::decrypt(const QByteArray& ciphertext, const QByteArray& key, const QByteArray& nonce,
                                const QByteArray& associatedData) const
{
    if (key.size() != KeySize || nonce.size() != NonceSize || ciphertext.size() < TagSize) {
        return {};
    }
    // Opening wipes what it released when the tag does not hold.
    QByteArray out(ciphertext.size() - TagSize, Qt::Uninitialized);
    AeadCipher cipher;
    if (!cipher.open(bytes(key), bytes(nonce), associatedData, bytes(ciphertext),
                     static_cast<size_t>(ciphertext.size()), bytes(out))) {
        return {};
    }
    return out;
}

QByteArray VaultCrypto::hmacSha256(const QByteArray& key, const QByteArray& message) const
{
    if (key.isEmpty()) {
        return {};
    }
    // libsodium's own HMAC, so the key is never copied into a buffer nobody wipes.
    crypto_auth_hmacsha256_state state;
    QByteArray mac(crypto_auth_hmacsha256_BYTES, Qt::Uninitialized);
    crypto_auth_hmacsha256_init(&state, reinterpret_cast<const unsigned char*>(key.constData()),
                                size_t(key.size()));
    crypto_auth_hmacsha256_update(&state, reinterpret_cast<const unsigned char*>(message.constData()),
                                  quint64(message.size()));
    crypto_auth_hmacsha256_final(&state, reinterpret_cast<unsigned char*>(mac.data()));
    sodium_memzero(&state, sizeof state);
    return mac;
}

void VaultCrypto::wipe(QByteArray& secret)
{
    if (!secret.isEmpty()) {
        sodium_memzero(secret.data(), static_cast<size_t>(secret.size()));
    }
    secret.clear();
}

} // namespace Velmarin::Core
