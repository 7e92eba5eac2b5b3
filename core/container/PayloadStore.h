#pragma once

#include "core/container/ProgressCallback.h"
#include "core/crypto/AeadCipher.h"
#include "core/crypto/PlaintextBuffer.h"
#include "core/index/FileEntry.h"

#include <QByteArray>
#include <QString>

class QIODevice;

namespace Velmarin::Core {

class VaultCrypto;

// Moves file contents into and out of the payload region, one block of at most 16 MiB at a time,
// so memory stays bounded by a block and its ciphertext whatever the file's size. One plaintext and
// one ciphertext buffer serve every block of every file a store moves, so a long run of blocks costs
// no allocation and no fresh pages; the plaintext one is wiped when the store goes.
class PayloadStore
{
public:
    static constexpr qint64 BlockSize = 16777216;
    // A block is hashed and sealed piece by piece, each piece still in the cache for its second pass.
    static constexpr qint64 PieceSize = 256 * 1024;

    // key is the 32-byte block key, associatedData the "file-block" string of the container.
    PayloadStore(const VaultCrypto& crypto, const QByteArray& key, const QByteArray& associatedData);
    PayloadStore(PayloadStore&& other) noexcept = default;
    PayloadStore(const PayloadStore&) = delete;
    PayloadStore& operator=(const PayloadStore&) = delete;

    // Reads source to its end and appends one encrypted block per piece at the container's current
    // position, filling entry's blocks, sizeBytes and sha256. Reports (done, expectedTotal, label).
    // sourceFailed tells a source that gave no bytes before its end (it failed, or shrank while read)
    // from a container that refused them.
    bool appendBlocks(QIODevice& source, QIODevice& container, qint64 expectedTotal, const QString& label,
                      const ProgressCallback& progress, FileEntry& entry, bool* sourceFailed = nullptr) const;

    // Why the last exportBlocks answered false.
    enum class ExportFault
    {
        None,
        // A block could not be read or did not authenticate.
        Unreadable,
        DestinationFailed,
        // The next block would have carried the output past the size the entry records.
        PastRecordedSize,
        // Every block was written, and together they hold fewer bytes than recorded.
        ShortOfRecordedSize,
        // The recorded size, but not the bytes the entry's SHA-256 was taken of.
        WrongDigest
    };

    // Decrypts entry's blocks in order into destination; stops at the first block that does not
    // authenticate, after the earlier ones were written, and before a block that would pass the
    // entry's recorded size, so an index that names one block many times cannot make the output grow.
    // At the end the total and the SHA-256 of what was written must match the entry; false otherwise
    // (exportFault() tells which). destinationFailed tells a destination that refused bytes from the
    // other faults. Reports (done, entry's size, entry's vault path) after each block written.
    bool exportBlocks(QIODevice& container, const FileEntry& entry, QIODevice& destination,
                      bool* destinationFailed = nullptr, const ProgressCallback& progress = {}) const;

    // Reads a block's ciphertext into sealed and checks it the way an export would, so that it can be
    // moved unchanged; the plaintext is wiped unseen. False when the block cannot be read or does not
    // authenticate.
    bool readAuthentic(QIODevice& container, const BlockEntry& block, QByteArray& sealed) const;
    // For a new key: opens a block whole with this store's key and seals its plaintext again with
    // sealer's, under a fresh nonce; sealed and resealed (the block's sizes and new nonce) receive the
    // result. False when the block cannot be read or does not authenticate, or the seal fails.
    bool reseal(QIODevice& container, const BlockEntry& block, const PayloadStore& sealer, QByteArray& sealed,
                BlockEntry& resealed) const;

    // The system's words when the last append or export failed because bytes it had already taken
    // did not reach the drive (the device itself reports nothing then); empty otherwise.
    QString writeError() const { return m_writeError; }
    ExportFault exportFault() const { return m_exportFault; }

    // Whether a block's recorded sizes are possible at all, checked before anything is allocated.
    // An empty block is never written, and its empty plaintext could not be told from a failure.
    static bool isPlausible(const BlockEntry& block);
    // How much a file of plainSize bytes adds to the payload region: its blocks and their tags.
    static qint64 sealedSize(qint64 plainSize);

private:
    // Reads a plausible block's ciphertext into sealed, reusing its memory.
    static bool readSealed(QIODevice& container, const BlockEntry& block, QByteArray& sealed);
    // At least size bytes of the plaintext buffer, grown (the old one wiped) only past its size.
    char* plainSpace(qint64 size) const;
    const unsigned char* key() const;

    const VaultCrypto& m_crypto;
    QByteArray m_key;
    QByteArray m_associatedData;
    mutable PlaintextBuffer m_plain;
    mutable QByteArray m_sealed;
    mutable AeadCipher m_cipher;
    mutable QString m_writeError;
    mutable ExportFault m_exportFault = ExportFault::None;
};

} // namespace Velmarin::Core
