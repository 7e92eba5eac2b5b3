#include "core/crypto/SecretBytes.h"

#include "core/crypto/VaultCrypto.h"

#include <sodium.h>

#include <algorithm>
#include <utility>

namespace Velmarin::Core {

SecretBytes::~SecretBytes()
{
    clear();
}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : m_data(std::exchange(other.m_data, nullptr))
    , m_size(std::exchange(other.m_size, 0))
{}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept
{
    if (this != &other) {
        clear();
        m_data = std::exchange(other.m_data, nullptr);
        m_size = std::exchange(other.m_size, 0);
    }
    return *this;
}

SecretBytes SecretBytes::takeFrom(QByteArray& source)
{
    SecretBytes secret;
    if (source.isEmpty() || sodium_init() < 0) {
        VaultCrypto::wipe(source);
        return secret;
    }
    // sodium_malloc locks the pages and puts guard pages around them; sodium_free wipes them.
    auto* data = static_cast<unsigned char*>(sodium_malloc(static_cast<size_t>(source.size())));
    if (data != nullptr) {
        std::copy(source.constBegin(), source.constEnd(), reinterpret_cast<char*>(data));
        secret.m_data = data;
        secret.m_size = static_cast<int>(source.size());
    }
    VaultCrypto::wipe(source);
    return secret;
}

QByteArray SecretBytes::view(int length) const
{
    if (m_data == nullptr || length < 0 || length > m_size) {
        return {};
    }
    return QByteArray::fromRawData(reinterpret_cast<const char*>(m_data), length);
}

void SecretBytes::clear()
{
    if (m_data != nullptr) {
        sodium_free(m_data);
    }
    m_data = nullptr;
    m_size = 0;
}

} // namespace Velmarin::Core
