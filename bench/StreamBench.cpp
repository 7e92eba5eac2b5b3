#include "StreamBench.h"

#include "BenchTable.h"
#include "ProcessMeter.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/container/PayloadStore.h"
#include "core/crypto/Sha256.h"
#include "core/crypto/VaultCrypto.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>

namespace Velmarin::Bench {

using Core::PayloadStore;
using Core::VaultCrypto;

namespace {

const QByteArray BlockLabel = QByteArrayLiteral("file-block");

// Runs step and adds its time to total; the step's own answer is passed on.
template <typename Step>
auto timed(qint64& total, Step step)
{
    QElapsedTimer timer;
    timer.start();
    auto result = step();
    total += timer.nsecsElapsed();
    return result;
}

QByteArray sha256OfFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    Core::Sha256 hash;
    while (!file.atEnd()) {
        hash.addData(file.read(PayloadStore::BlockSize));
    }
    return hash.result();
}

} // namespace

StreamBench::StreamBench(const QString& workDirectory, qint64 fileBytes, const QByteArray& password)
    : m_work(workDirectory)
    , m_fileBytes(fileBytes)
    , m_password(password)
{}

bool StreamBench::fail(const QString& why)
{
    m_failure = why;
    return false;
}

bool StreamBench::writeRandomFile(const QString& path, qint64 size)
{
    const VaultCrypto crypto;
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    for (qint64 written = 0; written < size; written += PayloadStore::BlockSize) {
        const int piece = static_cast<int>(qMin(PayloadStore::BlockSize, size - written));
        if (file.write(crypto.randomBytes(piece)) != piece) {
            return false;
        }
    }
    return file.flush();
}

bool StreamBench::importStages(const QString& sourcePath, const QString& sealedPath, Stages& stages)
{
    const VaultCrypto crypto;
    const QByteArray associatedData = Core::ContainerHeader().associatedData(BlockLabel);
    m_key = crypto.randomBytes(VaultCrypto::KeySize);
    m_nonces.clear();
    QFile source(sourcePath);
    QFile sealedFile(sealedPath);
    if (!source.open(QIODevice::ReadOnly) ||
        !sealedFile.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        return false;
    }
    QByteArray plain(PayloadStore::BlockSize, Qt::Uninitialized);
    Core::Sha256 hash;
    while (!source.atEnd()) {
        const qint64 read =
            timed(stages.read, [&] { return source.read(plain.data(), PayloadStore::BlockSize); });
        if (read <= 0) {
            return false;
        }
        const QByteArray piece = QByteArray::fromRawData(plain.constData(), static_cast<qsizetype>(read));
        timed(stages.hash, [&] {
            hash.addData(piece);
            return true;
        });
        m_nonces.append(crypto.randomBytes(VaultCrypto::NonceSize));
        const QByteArray sealed = timed(
            stages.cipher, [&] { return crypto.encrypt(piece, m_key, m_nonces.last(), associatedData); });
        if (timed(stages.write, [&] { return sealedFile.write(sealed); }) != sealed.size()) {
            return false;
        }
    }
    return timed(stages.write, [&] { return sealedFile.flush(); }) &&
           hash.result().size() == Core::Sha256::DigestSize;
}

bool StreamBench::exportStages(const QString& sealedPath, const QString& plainPath, Stages& stages)
{
    const VaultCrypto crypto;
    const QByteArray associatedData = Core::ContainerHeader().associatedData(BlockLabel);
    QFile sealedFile(sealedPath);
    QFile plainFile(plainPath);
    if (!sealedFile.open(QIODevice::ReadOnly) ||
        !plainFile.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        return false;
    }
    for (const QByteArray& nonce : std::as_const(m_nonces)) {
        const QByteArray sealed = timed(
            stages.read, [&] { return sealedFile.read(PayloadStore::BlockSize + VaultCrypto::TagSize); });
        const QByteArray plain =
            timed(stages.cipher, [&] { return crypto.decrypt(sealed, m_key, nonce, associatedData); });
        if (plain.isEmpty() || timed(stages.write, [&] { return plainFile.write(plain); }) != plain.size()) {
            return false;
        }
    }
    return timed(stages.write, [&] { return plainFile.flush(); });
}

QString StreamBench::stageText(const Stages& stages, bool withHash) const
{
    QString text = QStringLiteral("read %1, ").arg(BenchTable::rate(m_fileBytes, stages.read));
    if (withHash) {
        text += QStringLiteral("SHA-256 %1, ").arg(BenchTable::rate(m_fileBytes, stages.hash));
    }
    return text + QStringLiteral("AEAD %1, write %2")
                      .arg(BenchTable::rate(m_fileBytes, stages.cipher),
                           BenchTable::rate(m_fileBytes, stages.write));
}

bool StreamBench::run(BenchTable& table)
{
    const QDir work(m_work);
    const QString source = work.filePath(QStringLiteral("origem.bin"));
    const QString sealedScratch = work.filePath(QStringLiteral("estagios-selado.bin"));
    const QString plainScratch = work.filePath(QStringLiteral("estagios-aberto.bin"));
    const QString container = work.filePath(Core::ContainerFile::DefaultFileName);
    const QString exported = work.filePath(QStringLiteral("exportado.bin"));
    const QString label = QStringLiteral("%1 MiB file").arg(m_fileBytes / (1024 * 1024));
    if (!writeRandomFile(source, m_fileBytes)) {
        return fail(QStringLiteral("could not write the source file in %1").arg(m_work));
    }

    Stages importBound;
    ProcessMeter::settle();
    if (!importStages(source, sealedScratch, importBound)) {
        return fail(QStringLiteral("the import stages could not run"));
    }

    Core::VaultManager vault;
    if (!vault.createVault(container, m_password) || !vault.unlock(container, m_password)) {
        return fail(QStringLiteral("could not create and unlock a vault at %1").arg(container));
    }
    ProcessMeter::settle();
    ProcessMeter::resetPeakResident();
    qint64 importNs = 0;
    if (!timed(importNs, [&] { return vault.importFile(source, QStringLiteral("medido.bin")); })) {
        return fail(QStringLiteral("the import failed"));
    }
    const qint64 peakResident = ProcessMeter::peakResidentBytes();

    Stages exportBound;
    ProcessMeter::settle();
    if (!exportStages(sealedScratch, plainScratch, exportBound)) {
        return fail(QStringLiteral("the export stages could not run"));
    }
    QFile::remove(sealedScratch);
    QFile::remove(plainScratch);
    ProcessMeter::settle();
    qint64 exportNs = 0;
    if (!timed(exportNs, [&] { return vault.exportFile(QStringLiteral("medido.bin"), exported); })) {
        return fail(QStringLiteral("the export failed"));
    }
    if (sha256OfFile(exported) != vault.index().findFile(QStringLiteral("medido.bin"))->sha256) {
        return fail(QStringLiteral("the exported file differs from the imported one"));
    }
    QFile::remove(exported);

    const double importRatio = static_cast<double>(importBound.total()) / importNs;
    const double exportRatio = static_cast<double>(exportBound.total()) / exportNs;
    table.add(QStringLiteral("Import, %1").arg(label), BenchTable::rate(m_fileBytes, importNs),
              QStringLiteral("%1 of the single-thread bound %2 (%3)")
                  .arg(BenchTable::percent(importRatio), BenchTable::rate(m_fileBytes, importBound.total()),
                       stageText(importBound, true)));
    table.add(QStringLiteral("Export, %1").arg(label), BenchTable::rate(m_fileBytes, exportNs),
              QStringLiteral("%1 of the single-thread bound %2 (%3)")
                  .arg(BenchTable::percent(exportRatio), BenchTable::rate(m_fileBytes, exportBound.total()),
                       stageText(exportBound, false)));
    table.add(QStringLiteral("Peak RSS during the import"), BenchTable::size(peakResident),
              QStringLiteral("two 16 MiB blocks (plain and sealed) plus Qt and libraries"));

    // Compaction moves every live byte: a file is imported and deleted first so there is dead space.
    const QString discarded = work.filePath(QStringLiteral("descartado.bin"));
    const qint64 discardedBytes = qMin<qint64>(m_fileBytes / 4, 64 * 1024 * 1024);
    if (!writeRandomFile(discarded, discardedBytes) ||
        !vault.importFile(discarded, QStringLiteral("descartado.bin")) ||
        !vault.deleteFile(QStringLiteral("descartado.bin"))) {
        return fail(QStringLiteral("could not prepare the compaction"));
    }
    QFile::remove(discarded);
    ProcessMeter::settle();
    QString preserved;
    qint64 compactNs = 0;
    if (!timed(compactNs, [&] { return vault.compactVault({}, &preserved); })) {
        return fail(QStringLiteral("the compaction failed"));
    }
    const qint64 liveBytes = QFileInfo(container).size() - Core::ContainerFile::PayloadOffset;
    table.add(QStringLiteral("Compaction, %1 live").arg(BenchTable::size(liveBytes)),
              BenchTable::rate(liveBytes, compactNs),
              QStringLiteral("authenticates each live block (one decryption) on its way to the local disk, "
                             "then copies it all back"));

    qint64 unlockNs = 0;
    if (!vault.lock() || !timed(unlockNs, [&] { return vault.unlock(container, m_password); })) {
        return fail(QStringLiteral("could not unlock the vault again"));
    }
    const VaultCrypto crypto;
    qint64 kdfNs = 0;
    timed(kdfNs, [&] {
        return crypto.deriveKey(m_password,
                                Core::KdfParams{QStringLiteral("Argon2id"), crypto.randomBytes(16), 0, 64});
    });
    table.add(QStringLiteral("Unlock"), BenchTable::duration(unlockNs),
              QStringLiteral("Argon2id alone (3 passes over 256 MiB): %1").arg(BenchTable::duration(kdfNs)));
    vault.lock();
    QFile::remove(container);
    QFile::remove(source);
    return true;
}

} // namespace Velmarin::Bench
