#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Bench {

// What bench/whole-process.sh asks of velmarin-bench besides its table: a vault whose key comes from
// the key-derivation fallback, so that Argon2id's 256 MiB no longer sets a command's peak memory, and
// Argon2id alone, timed as an unlock runs it.
class HelperModes
{
public:
    static constexpr int FallbackIterations = 250000;

    // An empty vault at container, its key derived by PBKDF2-HMAC-SHA-256 (FallbackIterations).
    static bool writeFallbackVault(const QString& container, const QByteArray& password);
    // The best of runs Argon2id derivations with the unlock's parameters, in seconds; negative on failure.
    static double argon2idSeconds(const QByteArray& password, int runs);
};

} // namespace Velmarin::Bench
