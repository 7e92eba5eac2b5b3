#include "core/crypto/AeadCipher.h"

#include <sodium.h>

#include <climits>
#include <cstring>
#include <openssl/evp.h>
#include <utility>

namespace Velmarin::Core {

namespace {

constexpr int IetfNonceSize = 12;
constexpr int HChaChaInputSize = 16;
// libcrypto counts lengths in int.
constexpr size_t LargestPiece = size_t(1) << 30;

} // namespace

struct AeadCipher::Context
{
    EVP_CIPHER_CTX* cipher = EVP_CIPHER_CTX_new();

    ~Context() { EVP_CIPHER_CTX_free(cipher); }
};

AeadCipher::AeadCipher()
    : m_context(new Context)
{}

AeadCipher::~AeadCipher()
{
    delete m_context;
}

AeadCipher::AeadCipher(AeadCipher&& other) noexcept
    : m_context(std::exchange(other.m_context, nullptr))
    , m_started(std::exchange(other.m_started, false))
{}

AeadCipher& AeadCipher::operator=(AeadCipher&& other) noexcept
{
    if (this != &other) {
        delete m_context;
        m_context = std::exchange(other.m_context, nullptr);
        m_started = std::exchange(other.m_started, false);
    }
    return *this;
}

bool AeadCipher::beginSeal(const unsigned char* key, const unsigned char* nonce,
                           QByteArrayView associatedData)
{
    return begin(key, nonce, associatedData, true);
}

bool AeadCipher::beginOpen(const unsigned char* key, const unsigned char* nonce,
                           QByteArrayView associatedData)
{
    return begin(key, nonce, associatedData, false);
}

bool AeadCipher::begin(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
                       bool sealing)
{
    m_started = false;
    if (m_context == nullptr || m_context->cipher == nullptr || key == nullptr || nonce == nullptr ||
        associatedData.size() > INT_MAX) {
        return false;
    }
    unsigned char subkey[KeySize];
    unsigned char ietfNonce[IetfNonceSize] = {};
    std::memcpy(ietfNonce + 4, nonce + HChaChaInputSize, NonceSize - HChaChaInputSize);
    bool ok = crypto_core_hchacha20(subkey, nonce, key, nullptr) == 0 &&
              EVP_CipherInit_ex(m_context->cipher, EVP_chacha20_poly1305(), nullptr, subkey, ietfNonce,
                                sealing ? 1 : 0) == 1;
    sodium_memzero(subkey, sizeof subkey);
    int written = 0;
    if (ok && !associatedData.isEmpty()) {
        ok = EVP_CipherUpdate(m_context->cipher, nullptr, &written,
                              reinterpret_cast<const unsigned char*>(associatedData.data()),
                              static_cast<int>(associatedData.size())) == 1;
    }
    m_started = ok;
    return ok;
}

bool AeadCipher::update(const unsigned char* in, unsigned char* out, size_t length)
{
    while (m_started && length > 0) {
        const size_t piece = length < LargestPiece ? length : LargestPiece;
        int written = 0;
        if (EVP_CipherUpdate(m_context->cipher, out, &written, in, static_cast<int>(piece)) != 1 ||
            written != static_cast<int>(piece)) {
            m_started = false;
            return false;
        }
        in += piece;
        out += piece;
        length -= piece;
    }
    return m_started;
}

bool AeadCipher::finishSeal(unsigned char* tag)
{
    // The stream cipher leaves nothing for the final step; the library still wants a place for it.
    unsigned char rest[TagSize];
    int written = 0;
    const bool ok = m_started && EVP_CipherFinal_ex(m_context->cipher, rest, &written) == 1 &&
                    EVP_CIPHER_CTX_ctrl(m_context->cipher, EVP_CTRL_AEAD_GET_TAG, TagSize, tag) == 1;
    m_started = false;
    return ok;
}

bool AeadCipher::finishOpen(const unsigned char* tag)
{
    // The library compares in constant time.
    unsigned char rest[TagSize];
    int written = 0;
    const bool ok = m_started &&
                    EVP_CIPHER_CTX_ctrl(m_context->cipher, EVP_CTRL_AEAD_SET_TAG, TagSize,
                                        const_cast<unsigned char*>(tag)) == 1 &&
                    EVP_CipherFinal_ex(m_context->cipher, rest, &written) == 1;
    m_started = false;
    return ok;
}

bool AeadCipher::seal(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
                      const unsigned char* plain, size_t length, unsigned char* out)
{
    return beginSeal(key, nonce, associatedData) && update(plain, out, length) && finishSeal(out + length);
}

bool AeadCipher::open(const unsigned char* key, const unsigned char* nonce, QByteArrayView associatedData,
                      const unsigned char* sealed, size_t sealedLength, unsigned char* out)
{
    if (sealedLength < static_cast<size_t>(TagSize)) {
        return false;
    }
    const size_t length = sealedLength - TagSize;
    if (beginOpen(key, nonce, associatedData) && update(sealed, out, length) && finishOpen(sealed + length)) {
        return true;
    }
    if (length > 0) {
        sodium_memzero(out, length);
    }
    return false;
}

} // namespace Velmarin::Core
