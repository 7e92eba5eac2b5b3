#include "core/vault/VaultVerifier.h"

#include "core/container/PayloadStore.h"
#include "core/index/ByteCount.h"
#include "core/vault/IndexAudit.h"

#include <QFile>
#include <QIODevice>

namespace Velmarin::Core {

namespace {

// Where an export would write the plaintext: here it is only counted and forgotten (the export
// itself checks the size and the SHA-256).
class DigestSink : public QIODevice
{
public:
    DigestSink(qint64 doneBefore, qint64 total, const QString& label, const ProgressCallback& progress)
        : m_doneBefore(doneBefore)
        , m_total(total)
        , m_label(label)
        , m_progress(progress)
    {
        open(QIODevice::WriteOnly);
    }

    int blocksWritten() const { return m_blocks; }

protected:
    qint64 readData(char*, qint64) override { return -1; }

    qint64 writeData(const char*, qint64 length) override
    {
        m_bytes += length;
        ++m_blocks;
        if (m_progress) {
            m_progress(qMin(addByteCount(m_doneBefore, m_bytes), m_total), m_total, m_label);
        }
        return length;
    }

private:
    qint64 m_doneBefore;
    qint64 m_total;
    QString m_label;
    const ProgressCallback& m_progress;
    qint64 m_bytes = 0;
    int m_blocks = 0;
};

} // namespace

VaultVerifier::VaultVerifier(const PayloadStore& store)
    : m_store(store)
{}

bool VaultVerifier::verify(const QString& containerPath, qint64 payloadOffset, const VaultIndex& index,
                           const ProgressCallback& progress, VerificationReport& report) const
{
    report = VerificationReport();
    QFile container(containerPath);
    if (!container.open(QIODevice::ReadOnly)) {
        return false;
    }
    report.fileCount = static_cast<int>(index.files().size());
    report.folderCount = static_cast<int>(index.directories().size());

    qint64 total = 0;
    for (const FileEntry& file : index.files()) {
        total = addByteCount(total, file.sizeBytes);
    }
    const IndexAudit audit(index);
    qint64 done = 0;
    for (const FileEntry& file : index.files()) {
        for (const BlockEntry& block : file.blocks) {
            report.liveBytes = addByteCount(report.liveBytes, block.encryptedSize);
        }
        DigestSink sink(done, total, file.vaultPath, progress);
        const bool readable = m_store.exportBlocks(container, file, sink);
        done = addByteCount(done, file.sizeBytes);

        // One finding a file: what its path says comes before its blocks, an overlap after them.
        using Problem = VerificationReport::DamagedFile::Problem;
        const IndexAudit::Finding* recorded = audit.findingFor(file.vaultPath);
        if (recorded != nullptr && recorded->problem != Problem::OverlappingBlocks) {
            report.damagedFiles.append(*recorded);
            continue;
        }
        VerificationReport::DamagedFile damage;
        damage.vaultPath = file.vaultPath;
        damage.blockCount = static_cast<int>(file.blocks.size());
        using Fault = PayloadStore::ExportFault;
        const Fault fault = readable ? Fault::None : m_store.exportFault();
        if (fault == Fault::PastRecordedSize || fault == Fault::ShortOfRecordedSize) {
            damage.problem = Problem::WrongSize;
        } else if (fault == Fault::WrongDigest) {
            damage.problem = Problem::WrongDigest;
        } else if (!readable) {
            damage.problem = Problem::UnreadableBlock;
            damage.blockNumber = sink.blocksWritten() + 1;
        } else if (recorded != nullptr) {
            damage = *recorded;
        } else {
            continue;
        }
        report.damagedFiles.append(damage);
    }
    // What a rebuilt container would no longer carry: everything in the payload no block claims.
    const qint64 payloadSize = qMax<qint64>(0, container.size() - payloadOffset);
    report.deadBytes = qMax<qint64>(0, payloadSize - report.liveBytes);
    return true;
}

} // namespace Velmarin::Core
