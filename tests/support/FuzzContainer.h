#pragma once

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

namespace Velmarin::Tests {

// Fuzz inputs hold containers without the zero fill of their 8 MiB header region: magic, length
// line, JSON, payload. A seed is then a few kilobytes, and every mutation lands on bytes the engine
// reads. write() puts the fill back where the length line says the JSON ends.
class FuzzContainer
{
public:
    // The password of every unlock seed. Their key is derived with PBKDF2 of one iteration, so that
    // a run costs microseconds instead of Argon2id's 256 MiB and half a second.
    static inline const QByteArray Password = QByteArrayLiteral("senha do cofre de fuzz");

    // The compact form of a whole container file; empty when its length line does not read.
    static QByteArray compact(const QByteArray& container);
    // Writes a compact input to path as a container file. Inputs whose length line does not read,
    // or announces more JSON than they hold, are written as they are: truncated files.
    static bool write(const QString& path, const uint8_t* data, std::size_t size);
    // An empty vault opened by Password, laid out from the primitives (the engine only ever makes
    // Argon2id vaults).
    static bool writeEmptyVault(const QString& path);

private:
    // The JSON length the input's length line announces, or -1.
    static qint64 announcedLength(const QByteArray& input);
};

} // namespace Velmarin::Tests
