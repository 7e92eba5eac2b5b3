#pragma once

#include "core/crypto/KdfParams.h"

#include <QByteArray>

namespace Velmarin::Core {

// Stateless wrapper around the few primitives the vault uses. Every failure is an empty QByteArray.
class VaultCrypto
{
public:
    static constexpr int KeySize = 32;
    static constexpr int NonceSize = 24;
    static constexpr int TagSize = 16;
    static constexpr int SaltSize = 16;
    static constexpr int MasterKeySize = 64;
    static constexpr int DerivedKeySize = 64;

    // Argon2id cost, fixed in code and never stored in the container.
    static constexpr unsigned long long Argon2OpsLimit = 3;
    static constexpr size_t Argon2MemLimit = 268435456;

    // The most PBKDF2 rounds a header may ask for. Containers written here use 250,000; a count an
    // altered header sets to 2^31 would derive for hours before the password could even be judged.
    static constexpr int MaxPbkdf2Iterations = 2000000;

    VaultCrypto();

    // Whether deriving a key with params ends in bounded time; deriveKey refuses anything else.
    static bool isCostBounded(const KdfParams& params);

    QByteArray randomBytes(int count) const;
    QByteArray deriveKey(const QByteArray& password, const KdfParams& params) const;
    QByteArray encrypt(const QByteArray& plaintext, const QByteArray& key, const QByteArray& nonce,
                       const QByteArray& associatedData) const;
    QByteArray decrypt(const QByteArray& ciphertext, const QByteArray& key, const QByteArray& nonce,
                       const QByteArray& associatedData) const;
    // HMAC-SHA-256 of message under key (any length).
    QByteArray hmacSha256(const QByteArray& key, const QByteArray& message) const;

    // Overwrites and empties a byte array this process owns alone (a shared one would detach first).
    static void wipe(QByteArray& secret);

private:
    static QByteArray pbkdf2HmacSha256(const QByteArray& password, const QByteArray& salt, int iterations,
                                       int keyLength);
};

} // namespace Velmarin::Core
