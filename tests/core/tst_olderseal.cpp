// Containers sealed by libsodium keep opening, and what the engine seals now libsodium opens: the
// fixture was written while every seal went through crypto_aead_xchacha20poly1305_ietf_encrypt.
#include "FuzzContainer.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"
#include "core/crypto/VaultCrypto.h"
#include "core/index/VaultIndex.h"
#include "core/vault/VaultManager.h"
#include "core/vault/VerificationReport.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sodium.h>

using namespace Velmarin::Core;
using Velmarin::Tests::FuzzContainer;
using Velmarin::Tests::TestFiles;

namespace {

// The fixture's contents: xorshift32 from seed, the low byte of each step.
QByteArray xorshiftBytes(quint32 seed, qint64 size)
{
    QByteArray out(size, Qt::Uninitialized);
    quint32 x = seed;
    for (qint64 i = 0; i < size; ++i) {
        x ^= x << 13;
        x ^= x >> 17;
        x ^= x << 5;
        out[i] = static_cast<char>(x & 0xff);
    }
    return out;
}

const unsigned char* bytes(const QByteArray& data)
{
    return reinterpret_cast<const unsigned char*>(data.constData());
}

// libsodium's own opening, independent of the engine's.
QByteArray libsodiumOpen(const QByteArray& sealed, const QByteArray& key, const QByteArray& nonce,
                         const QByteArray& associatedData)
{
    if (sealed.size() < VaultCrypto::TagSize || key.size() != VaultCrypto::KeySize ||
        nonce.size() != VaultCrypto::NonceSize) {
        return {};
    }
    QByteArray out(sealed.size() - VaultCrypto::TagSize, Qt::Uninitialized);
    if (crypto_aead_xchacha20poly1305_ietf_decrypt(
            reinterpret_cast<unsigned char*>(out.data()), nullptr, nullptr, bytes(sealed),
            static_cast<unsigned long long>(sealed.size()), bytes(associatedData),
            static_cast<unsigned long long>(associatedData.size()), bytes(nonce), bytes(key)) != 0) {
        return {};
    }
    return out;
}

} // namespace

class TestOlderSeal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void libsodiumSealedContainerOpensAndExports();
    void libsodiumOpensTheIndexAndABlockOfANewContainer();

private:
    QTemporaryDir m_dir;
};

void TestOlderSeal::initTestCase()
{
    QVERIFY(sodium_init() >= 0);
    QVERIFY(m_dir.isValid());
}

void TestOlderSeal::libsodiumSealedContainerOpensAndExports()
{
    QFile fixture(QStringLiteral(VELMARIN_FIXTURES "/sealed-by-libsodium.vltx"));
    QVERIFY(fixture.open(QIODevice::ReadOnly));
    const QByteArray compact = fixture.readAll();
    const QString container = m_dir.filePath(QStringLiteral("antigo/velmarin.vltx"));
    QVERIFY(QDir().mkpath(m_dir.filePath(QStringLiteral("antigo"))));
    QVERIFY(FuzzContainer::write(container, reinterpret_cast<const uint8_t*>(compact.constData()),
                                 static_cast<std::size_t>(compact.size())));

    VaultManager vault(m_dir.filePath(QStringLiteral("area")));
    QVERIFY(vault.unlock(container, FuzzContainer::Password, VaultManager::Access::ReadOnly));
    const struct
    {
        const char* path;
        quint32 seed;
        qint64 size;
    } files[] = {{"um-byte.bin", 1, 1},
                 {"Pasta/meio.bin", 2, 65},
                 {"Pasta/Sub/grande.bin", 3, 300007},
                 {"vazio.txt", 4, 0}};
    QCOMPARE(vault.index().files().size(), qsizetype(4));
    QVERIFY(vault.directoryExists(QStringLiteral("Pasta vazia")));
    for (const auto& file : files) {
        const QString exported = m_dir.filePath(QStringLiteral("exportado"));
        QVERIFY2(vault.exportFile(QString::fromUtf8(file.path), exported), file.path);
        QCOMPARE(TestFiles::read(exported), xorshiftBytes(file.seed, file.size));
    }
    VerificationReport report;
    QVERIFY(vault.verifyContents(report));
    QCOMPARE(report.fileCount, 4);
    QVERIFY(report.damagedFiles.isEmpty());
    QVERIFY(vault.lock());
}

void TestOlderSeal::libsodiumOpensTheIndexAndABlockOfANewContainer()
{
    const QString container = m_dir.filePath(QStringLiteral("novo/velmarin.vltx"));
    QVERIFY(QDir().mkpath(m_dir.filePath(QStringLiteral("novo"))));
    QVERIFY(FuzzContainer::writeEmptyVault(container));
    // Past one 256 KiB piece of the sealing loop, and not a whole number of them.
    const QByteArray contents = xorshiftBytes(7, 1024 * 1024 + 5);
    const QString source = m_dir.filePath(QStringLiteral("origem.bin"));
    QVERIFY(TestFiles::write(source, contents));
    {
        VaultManager vault(m_dir.filePath(QStringLiteral("area")));
        QVERIFY(vault.unlock(container, FuzzContainer::Password));
        QVERIFY(vault.importFile(source, QStringLiteral("Pasta/novo.bin")));
        QVERIFY(vault.lock());
    }

    ContainerHeader header;
    QVERIFY(ContainerFile().readHeader(container, header));
    const VaultCrypto crypto;
    QByteArray passwordKey = crypto.deriveKey(
        FuzzContainer::Password, KdfParams{header.crypto.kdf, header.crypto.salt, header.crypto.kdfIterations,
                                           VaultCrypto::DerivedKeySize});
    QByteArray masterKey =
        libsodiumOpen(header.crypto.encryptedMasterKey, passwordKey.left(VaultCrypto::KeySize),
                      header.crypto.nonce, header.associatedData("master-key"));
    VaultCrypto::wipe(passwordKey);
    QCOMPARE(masterKey.size(), VaultCrypto::MasterKeySize);
    const QByteArray blockKey = masterKey.left(VaultCrypto::KeySize);
    VaultCrypto::wipe(masterKey);

    const QByteArray json = libsodiumOpen(header.encryptedIndex, blockKey, header.crypto.payloadNonce,
                                          header.associatedData("index"));
    QVERIFY(!json.isEmpty());
    const VaultIndex index = VaultIndex::fromJson(json);
    const FileEntry* entry = index.findFile(QStringLiteral("Pasta/novo.bin"));
    QVERIFY(entry != nullptr);
    QCOMPARE(entry->blocks.size(), qsizetype(1));
    const BlockEntry& block = entry->blocks.first();

    QFile file(container);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.seek(block.offset));
    const QByteArray sealed = file.read(block.encryptedSize);
    QCOMPARE(libsodiumOpen(sealed, blockKey, block.nonce, ContainerHeader().associatedData("file-block")),
             contents);
    // The digest the index records is the standard one, taken by coreutils.
    QCOMPARE(entry->sha256, TestFiles::sha256sum(source));
}

QTEST_GUILESS_MAIN(TestOlderSeal)
#include "tst_olderseal.moc"
