#include "core/crypto/Sha256.h"

#include <openssl/evp.h>

namespace Velmarin::Core {

struct Sha256::Context
{
    EVP_MD_CTX* digest = EVP_MD_CTX_new();

    ~Context() { EVP_MD_CTX_free(digest); }
};

Sha256::Sha256()
    : m_context(std::make_unique<Context>())
{
    m_failed =
        m_context->digest == nullptr || EVP_DigestInit_ex(m_context->digest, EVP_sha256(), nullptr) != 1;
}

Sha256::~Sha256() = default;

void Sha256::addData(QByteArrayView data)
{
    if (!m_failed && !data.isEmpty()) {
        m_failed = EVP_DigestUpdate(m_context->digest, data.data(), static_cast<size_t>(data.size())) != 1;
    }
}

QByteArray Sha256::result()
{
    if (m_failed) {
        return {};
    }
    QByteArray digest(DigestSize, Qt::Uninitialized);
    unsigned int length = 0;
    m_failed = true;
    if (EVP_DigestFinal_ex(m_context->digest, reinterpret_cast<unsigned char*>(digest.data()), &length) !=
            1 ||
        length != static_cast<unsigned int>(DigestSize)) {
        return {};
    }
    return digest;
}

QByteArray Sha256::hash(QByteArrayView data)
{
    Sha256 sha;
    sha.addData(data);
    return sha.result();
}

} // namespace Velmarin::Core
