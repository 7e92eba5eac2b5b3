#include "core/crypto/SecretText.h"

#include <sodium.h>

namespace Velmarin::Core {

void SecretText::wipe(QByteArray& bytes)
{
    if (!bytes.isEmpty() && !bytes.isDetached()) {
        // Another holder keeps the bytes; writing would only wipe a fresh copy of them.
        bytes.clear();
        return;
    }
    if (!bytes.isEmpty()) {
        sodium_memzero(bytes.data(), static_cast<size_t>(bytes.size()));
    }
    bytes.clear();
}

void SecretText::wipe(QString& text)
{
    if (!text.isEmpty() && text.isDetached()) {
        sodium_memzero(text.data(), static_cast<size_t>(text.size()) * sizeof(QChar));
    }
    text.clear();
}

QByteArray SecretText::takeUtf8(QString& text)
{
    QByteArray bytes = text.toUtf8();
    wipe(text);
    return bytes;
}

} // namespace Velmarin::Core
