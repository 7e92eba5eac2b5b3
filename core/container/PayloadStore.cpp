#include "core/container/PayloadStore.h"

#include "core/crypto/PlaintextBuffer.h"
#include "core/crypto/Sha256.h"
#include "core/crypto/VaultCrypto.h"

#include <QIODevice>

namespace Velmarin::Core {

PayloadStore::PayloadStore(const VaultCrypto& crypto, const QByteArray& key, const QByteArray& associatedData)
    : m_crypto(crypto)
    , m_key(key)
    , m_associatedData(associatedData)
{}

bool PayloadStore::appendBlocks(QIODevice& source, QIODevice& container, qint64 expectedTotal,
                                const QString& label, const ProgressCallback& progress,
                                FileEntry& entry) const
{
    Sha256 hash;
    PlaintextBuffer plain(BlockSize);
    qint64 done = 0;
    entry.blocks.clear();
    while (!source.atEnd()) {
        const qint64 read = source.read(plain.data(), BlockSize);
        if (read <= 0) {
            return false;
        }
        const QByteArray piece = plain.prefix(static_cast<qsizetype>(read));
        hash.addData(piece);
        const QByteArray nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
        const QByteArray sealed = m_crypto.encrypt(piece, m_key, nonce, m_associatedData);
        if (sealed.isEmpty()) {
            return false;
        }
        const qint64 offset = container.pos();
        if (container.write(sealed) != sealed.size()) {
            return false;
        }
        entry.blocks.append(BlockEntry{offset, read, sealed.size(), nonce});
        done += read;
        if (progress) {
            progress(done, expectedTotal, label);
        }
    }
    entry.sizeBytes = done;
    entry.sha256 = hash.result();
    return entry.sha256.size() == Sha256::DigestSize;
}

bool PayloadStore::exportBlocks(QIODevice& container, const FileEntry& entry, QIODevice& destination,
                                bool* destinationFailed) const
{
    if (destinationFailed != nullptr) {
        *destinationFailed = false;
    }
    for (const BlockEntry& block : entry.blocks) {
        QByteArray sealed;
        PlaintextBuffer plain;
        if (!readBlock(container, block, sealed, plain)) {
            return false;
        }
        // Handed over as raw bytes: a device keeping a shared copy of the array would outlive the wipe.
        if (destination.write(plain.bytes().constData(), plain.size()) != plain.size()) {
            if (destinationFailed != nullptr) {
                *destinationFailed = true;
            }
            return false;
        }
    }
    return true;
}

bool PayloadStore::readAuthentic(QIODevice& container, const BlockEntry& block, QByteArray& sealed) const
{
    PlaintextBuffer plain;
    return readBlock(container, block, sealed, plain);
}

bool PayloadStore::readBlock(QIODevice& container, const BlockEntry& block, QByteArray& sealed,
                             PlaintextBuffer& plain) const
{
    if (!isPlausible(block) || !container.seek(block.offset)) {
        return false;
    }
    sealed = container.read(block.encryptedSize);
    if (sealed.size() != block.encryptedSize) {
        return false;
    }
    plain = PlaintextBuffer(m_crypto.decrypt(sealed, m_key, block.nonce, m_associatedData));
    return plain.size() == block.plainSize;
}

bool PayloadStore::isPlausible(const BlockEntry& block)
{
    return block.offset >= 0 && block.plainSize > 0 && block.plainSize <= BlockSize &&
           block.encryptedSize == block.plainSize + VaultCrypto::TagSize;
}

} // namespace Velmarin::Core
