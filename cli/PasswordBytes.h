#pragma once

#include "core/crypto/SecretText.h"

#include <QByteArray>

namespace Velmarin::Cli {

// The UTF-8 bytes of one password, wiped when the holder goes away on whatever path it leaves by.
// Move-only, so no second copy can outlive the wipe.
class PasswordBytes
{
public:
    PasswordBytes() = default;
    ~PasswordBytes() { Core::SecretText::wipe(m_bytes); }
    PasswordBytes(PasswordBytes&& other) noexcept
        : m_bytes(std::move(other.m_bytes))
    {}
    PasswordBytes& operator=(PasswordBytes&& other) noexcept
    {
        Core::SecretText::wipe(m_bytes);
        m_bytes = std::move(other.m_bytes);
        return *this;
    }
    PasswordBytes(const PasswordBytes&) = delete;
    PasswordBytes& operator=(const PasswordBytes&) = delete;

    // Takes bytes over; the array handed in is left empty.
    void take(QByteArray& bytes)
    {
        Core::SecretText::wipe(m_bytes);
        m_bytes = std::move(bytes);
        bytes = QByteArray();
    }

    const QByteArray& bytes() const { return m_bytes; }
    bool isEmpty() const { return m_bytes.isEmpty(); }

private:
    QByteArray m_bytes;
};

} // namespace Velmarin::Cli
