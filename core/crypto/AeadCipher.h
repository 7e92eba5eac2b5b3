#pragma once

#include <QByteArrayView>

#include <cstddef>

namespace Velmarin::Core {

// XChaCha20-Poly1305, byte for byte libsodium's crypto_aead_xchacha20poly1305_ietf: HChaCha20 of the
// key and the nonce's first 16 bytes (libsodium) gives a subkey for ChaCha20-Poly1305 with the nonce
// 0x00000000 || the nonce's last 8 bytes, run by libcrypto, which is several times faster on CPUs
// with wide vector units. The one place in the engine that seals and opens.
// A message may be fed in pieces; opening releases plaintext before its tag is checked, so whoever
// opens keeps what it got until finishOpen() holds.
class AeadCipher
{
public:
    static constexpr int KeySize = 32;
    static constexpr int NonceSize = 24;
    static constexpr int TagSize = 16;

    AeadCipher();
    ~AeadCipher();
    AeadCipher(AeadCipher&& other) noexcept;
    AeadCipher& operator=(AeadCipher&& other) noexcept;
    AeadCipher(const AeadCipher&) = delete;
    AeadCipher& operator=(const AeadCipher&) = delete;

    // Start one message; key and nonce must hold KeySize and NonceSize bytes.
    bool beginSeal(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData);
    bool beginOpen(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData);
    // The next length bytes of the message, from in to out.
    bool update(const unsigned char* in, unsigned char* out, size_t length);
    // Ends a sealed message with its TagSize-byte tag.
    bool finishSeal(unsigned char* tag);
    // True only when tag is the opened message's own.
    bool finishOpen(const unsigned char* tag);

    // Whole messages. seal writes length + TagSize bytes to out; open reads sealedLength bytes and
    // writes sealedLength - TagSize, which are wiped again when they do not authenticate.
    bool seal(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
              const unsigned char* plain, size_t length, unsigned char* out);
    bool open(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
              const unsigned char* sealed, size_t sealedLength, unsigned char* out);

private:
    bool begin(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
               bool sealing);

    struct Context;
    Context* m_context = nullptr;
    bool m_started = false;
};

} // namespace Velmarin::Core
