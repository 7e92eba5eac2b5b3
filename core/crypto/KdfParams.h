#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Core {

// Input of VaultCrypto::deriveKey, taken from a container header's crypto settings.
struct KdfParams
{
    // "Argon2id" selects Argon2id; any other text selects PBKDF2-HMAC-SHA-256.
    QString algorithm;
    QByteArray salt;
    // Only the PBKDF2 branch uses it; Argon2id's cost is fixed in code.
    int iterations = 250000;
    int keyLength = 64;
};

} // namespace Velmarin::Core
