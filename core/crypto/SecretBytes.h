#pragma once

#include <QByteArray>

namespace Velmarin::Core {

// Key material in memory that is locked against swapping and overwritten when released.
// Move-only, so a key can never be duplicated by an accidental copy or by implicit sharing.
class SecretBytes
{
public:
    SecretBytes() = default;
    ~SecretBytes();
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    SecretBytes(const SecretBytes&) = delete;
    SecretBytes& operator=(const SecretBytes&) = delete;

    // Moves a secret that arrived in an ordinary byte array into locked memory and wipes the array.
    static SecretBytes takeFrom(QByteArray& source);

    bool isEmpty() const { return m_size == 0; }
    int size() const { return m_size; }
    // A view without a copy; valid only while this object lives and is not cleared.
    QByteArray view(int length) const;
    QByteArray view() const { return view(m_size); }
    void clear();

private:
    unsigned char* m_data = nullptr;
    int m_size = 0;
};

} // namespace Velmarin::Core
