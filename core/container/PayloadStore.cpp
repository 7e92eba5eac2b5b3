#include "core/container/PayloadStore.h"

#include "core/container/CacheAdvice.h"
#include "core/container/FileSync.h"
#include "core/container/WriteBehind.h"
#include "core/crypto/Sha256.h"
#include "core/crypto/VaultCrypto.h"

#include <QFileDevice>
#include <QIODevice>

namespace Velmarin::Core {

namespace {

unsigned char* bytes(char* data)
{
    return reinterpret_cast<unsigned char*>(data);
}

const unsigned char* bytes(const char* data)
{
    return reinterpret_cast<const unsigned char*>(data);
}

} // namespace

PayloadStore::PayloadStore(const VaultCrypto& crypto, const QByteArray& key, const QByteArray& associatedData)
    : m_crypto(crypto)
    , m_key(key)
    , m_associatedData(associatedData)
{}

const unsigned char* PayloadStore::key() const
{
    return m_key.size() == VaultCrypto::KeySize ? bytes(m_key.constData()) : nullptr;
}

char* PayloadStore::plainSpace(qint64 size) const
{
    if (m_plain.size() < size) {
        m_plain = PlaintextBuffer(static_cast<qsizetype>(size));
    }
    return m_plain.data();
}

bool PayloadStore::appendBlocks(QIODevice& source, QIODevice& container, qint64 expectedTotal,
                                const QString& label, const ProgressCallback& progress, FileEntry& entry,
                                bool* sourceFailed) const
{
    if (sourceFailed != nullptr) {
        *sourceFailed = false;
    }
    Sha256 hash;
    qint64 done = 0;
    entry.blocks.clear();
    m_writeError.clear();
    CacheAdvice::sequential(source);
    WriteBehind toDrive(container);
    // A small file needs no whole block of memory; a source of unknown length may fill one.
    const qint64 announced = source.isSequential() ? 0 : source.bytesAvailable();
    const qint64 room = announced > 0 ? qMin(announced, BlockSize) : BlockSize;
    while (!source.atEnd()) {
        char* plain = plainSpace(room);
        const qint64 read = source.read(plain, room);
        if (read <= 0 && sourceFailed != nullptr) {
            *sourceFailed = true;
        }
        if (read <= 0 || key() == nullptr) {
            return false;
        }
        CacheAdvice::next(source, room);
        const QByteArray nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
        m_sealed.resize(static_cast<qsizetype>(read + VaultCrypto::TagSize));
        unsigned char* sealed = bytes(m_sealed.data());
        if (nonce.size() != VaultCrypto::NonceSize ||
            !m_cipher.beginSeal(key(), bytes(nonce.constData()), m_associatedData)) {
            return false;
        }
        // One pass: each piece is hashed and sealed while it is in the cache.
        for (qint64 at = 0; at < read; at += PieceSize) {
            const qint64 piece = qMin(PieceSize, read - at);
            hash.addData(QByteArrayView(plain + at, static_cast<qsizetype>(piece)));
            if (!m_cipher.update(bytes(plain + at), sealed + at, static_cast<size_t>(piece))) {
                return false;
            }
        }
        if (!m_cipher.finishSeal(sealed + read)) {
            return false;
        }
        const qint64 offset = container.pos();
        if (!FileSync::writeAll(container, m_sealed.constData(), m_sealed.size())) {
            return false;
        }
        if (!toDrive.advance()) {
            m_writeError = toDrive.errorString();
            return false;
        }
        entry.blocks.append(BlockEntry{offset, read, m_sealed.size(), nonce});
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
                                bool* destinationFailed, const ProgressCallback& progress) const
{
    if (destinationFailed != nullptr) {
        *destinationFailed = false;
    }
    m_writeError.clear();
    m_exportFault = ExportFault::None;
    const auto fault = [this](ExportFault why) {
        m_exportFault = why;
        return false;
    };
    CacheAdvice::sequential(container);
    WriteBehind toDrive(destination);
    Sha256 hash;
    qint64 done = 0;
    for (const BlockEntry& block : entry.blocks) {
        if (!readSealed(container, block, m_sealed) || key() == nullptr) {
            return fault(ExportFault::Unreadable);
        }
        // Checked before a byte of it leaves; done never exceeds the recorded size, so no overflow.
        if (block.plainSize > entry.sizeBytes - done) {
            return fault(ExportFault::PastRecordedSize);
        }
        // Opened whole before a byte leaves: plaintext is released ahead of its tag's check.
        char* plain = plainSpace(block.plainSize);
        if (!m_cipher.open(key(), bytes(block.nonce.constData()), m_associatedData,
                           bytes(m_sealed.constData()), static_cast<size_t>(m_sealed.size()), bytes(plain))) {
            return fault(ExportFault::Unreadable);
        }
        hash.addData(QByteArrayView(plain, static_cast<qsizetype>(block.plainSize)));
        const bool written = destination.write(plain, block.plainSize) == block.plainSize;
        if (written && !toDrive.advance()) {
            m_writeError = toDrive.errorString();
        }
        if (!written || !m_writeError.isEmpty()) {
            if (destinationFailed != nullptr) {
                *destinationFailed = true;
            }
            return fault(ExportFault::DestinationFailed);
        }
        done += block.plainSize;
        if (progress) {
            progress(done, entry.sizeBytes, entry.vaultPath);
        }
    }
    if (done != entry.sizeBytes) {
        return fault(ExportFault::ShortOfRecordedSize);
    }
    return hash.result() == entry.sha256 || fault(ExportFault::WrongDigest);
}

bool PayloadStore::readAuthentic(QIODevice& container, const BlockEntry& block, QByteArray& sealed) const
{
    if (!readSealed(container, block, sealed) || key() == nullptr) {
        return false;
    }
    // Only the tag matters: the plaintext goes through one cache-sized piece and is never kept.
    const qint64 length = block.plainSize;
    char* scratch = plainSpace(qMin(PieceSize, length));
    const auto* in = bytes(sealed.constData());
    if (!m_cipher.beginOpen(key(), bytes(block.nonce.constData()), m_associatedData)) {
        return false;
    }
    for (qint64 at = 0; at < length; at += PieceSize) {
        const qint64 piece = qMin(PieceSize, length - at);
        if (!m_cipher.update(in + at, bytes(scratch), static_cast<size_t>(piece))) {
            return false;
        }
    }
    return m_cipher.finishOpen(in + length);
}

bool PayloadStore::reseal(QIODevice& container, const BlockEntry& block, const PayloadStore& sealer,
                          QByteArray& sealed, BlockEntry& resealed) const
{
    if (!readSealed(container, block, m_sealed) || key() == nullptr || sealer.key() == nullptr) {
        return false;
    }
    // Opened whole before anything is sealed again: no byte of a block that does not authenticate
    // goes under the new key.
    char* plain = plainSpace(block.plainSize);
    if (!m_cipher.open(key(), bytes(block.nonce.constData()), m_associatedData, bytes(m_sealed.constData()),
                       static_cast<size_t>(m_sealed.size()), bytes(plain))) {
        return false;
    }
    const QByteArray nonce = m_crypto.randomBytes(VaultCrypto::NonceSize);
    sealed.resize(static_cast<qsizetype>(block.encryptedSize));
    if (nonce.size() != VaultCrypto::NonceSize ||
        !sealer.m_cipher.seal(sealer.key(), bytes(nonce.constData()), sealer.m_associatedData, bytes(plain),
                              static_cast<size_t>(block.plainSize), bytes(sealed.data()))) {
        return false;
    }
    resealed = block;
    resealed.nonce = nonce;
    return true;
}

bool PayloadStore::readSealed(QIODevice& container, const BlockEntry& block, QByteArray& sealed)
{
    if (!isPlausible(block) || block.nonce.size() != VaultCrypto::NonceSize ||
        !container.seek(block.offset)) {
        return false;
    }
    sealed.resize(static_cast<qsizetype>(block.encryptedSize));
    if (container.read(sealed.data(), block.encryptedSize) != block.encryptedSize) {
        return false;
    }
    CacheAdvice::forget(container, block.offset, block.encryptedSize);
    // Blocks are appended one after another: the next one read is most often the one that follows.
    CacheAdvice::next(container, block.encryptedSize);
    return true;
}

bool PayloadStore::isPlausible(const BlockEntry& block)
{
    return block.offset >= 0 && block.plainSize > 0 && block.plainSize <= BlockSize &&
           block.encryptedSize == block.plainSize + VaultCrypto::TagSize;
}

qint64 PayloadStore::sealedSize(qint64 plainSize)
{
    const qint64 blocks = (plainSize + BlockSize - 1) / BlockSize;
    return plainSize + blocks * VaultCrypto::TagSize;
}

} // namespace Velmarin::Core
