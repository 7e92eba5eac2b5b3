#include "core/crypto/PlaintextBuffer.h"

#include "core/crypto/SecretText.h"

#include <utility>

namespace Velmarin::Core {

PlaintextBuffer::PlaintextBuffer(qsizetype size)
    : m_bytes(size, Qt::Uninitialized)
{}

PlaintextBuffer::PlaintextBuffer(QByteArray&& bytes)
    : m_bytes(std::move(bytes))
{}

PlaintextBuffer::~PlaintextBuffer()
{
    SecretText::wipe(m_bytes);
}

PlaintextBuffer::PlaintextBuffer(PlaintextBuffer&& other) noexcept
    : m_bytes(std::exchange(other.m_bytes, QByteArray()))
{}

PlaintextBuffer& PlaintextBuffer::operator=(PlaintextBuffer&& other) noexcept
{
    if (this != &other) {
        SecretText::wipe(m_bytes);
        m_bytes = std::exchange(other.m_bytes, QByteArray());
    }
    return *this;
}

QByteArray PlaintextBuffer::prefix(qsizetype length) const
{
    return QByteArray::fromRawData(m_bytes.constData(), qBound<qsizetype>(0, length, m_bytes.size()));
}

} // namespace Velmarin::Core
