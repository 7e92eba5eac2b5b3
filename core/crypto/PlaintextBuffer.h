#pragma once

#include <QByteArray>

namespace Velmarin::Core {

// Contents the engine decrypted, or is about to encrypt, held in one byte array that is overwritten
// before its memory goes back to the heap, where the next allocation or a memory dump would find it.
// Move-only: an implicitly shared copy would keep the bytes past the wipe.
class PlaintextBuffer
{
public:
    PlaintextBuffer() = default;
    // size bytes, left uninitialised, to be read into.
    explicit PlaintextBuffer(qsizetype size);
    // Takes over an array that nothing else shares, such as a function's result.
    explicit PlaintextBuffer(QByteArray&& bytes);
    ~PlaintextBuffer();
    PlaintextBuffer(PlaintextBuffer&& other) noexcept;
    PlaintextBuffer& operator=(PlaintextBuffer&& other) noexcept;
    PlaintextBuffer(const PlaintextBuffer&) = delete;
    PlaintextBuffer& operator=(const PlaintextBuffer&) = delete;

    char* data() { return m_bytes.data(); }
    qsizetype size() const { return m_bytes.size(); }
    bool isEmpty() const { return m_bytes.isEmpty(); }
    // The bytes without a copy. Whoever copies them (or keeps a shared copy) owns that copy's wipe.
    const QByteArray& bytes() const { return m_bytes; }
    // The first length bytes without a copy; valid while this buffer lives unchanged.
    QByteArray prefix(qsizetype length) const;

private:
    QByteArray m_bytes;
};

} // namespace Velmarin::Core
