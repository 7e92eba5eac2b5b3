// The engine's XChaCha20-Poly1305 against libsodium's own, which the container format was first
// sealed with: the same bytes for every key, nonce, associated data and length, and a refusal for
// every byte changed on the way.
#include "core/crypto/AeadCipher.h"
#include "core/crypto/VaultCrypto.h"

#include <QtTest>

#include <sodium.h>

using Velmarin::Core::AeadCipher;
using Velmarin::Core::VaultCrypto;

namespace {

constexpr qint64 MiB = 1024 * 1024;

QByteArray randomBytes(qint64 size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    randombytes_buf(bytes.data(), static_cast<size_t>(size));
    return bytes;
}

const unsigned char* bytes(const QByteArray& data)
{
    return reinterpret_cast<const unsigned char*>(data.constData());
}

unsigned char* bytes(QByteArray& data)
{
    return reinterpret_cast<unsigned char*>(data.data());
}

// One message with its key, nonce and associated data, sealed by libsodium.
struct Sample
{
    QByteArray key = randomBytes(AeadCipher::KeySize);
    QByteArray nonce = randomBytes(AeadCipher::NonceSize);
    QByteArray associatedData;
    QByteArray plain;
    QByteArray sealed;

    Sample(qint64 size, qint64 associatedSize)
        : associatedData(randomBytes(associatedSize))
        , plain(randomBytes(size))
        , sealed(size + AeadCipher::TagSize, Qt::Uninitialized)
    {
        unsigned long long length = 0;
        crypto_aead_xchacha20poly1305_ietf_encrypt(
            bytes(sealed), &length, bytes(plain), static_cast<unsigned long long>(plain.size()),
            bytes(associatedData), static_cast<unsigned long long>(associatedData.size()), nullptr,
            bytes(nonce), bytes(key));
    }

    // What libsodium says of a sealed message under this sample's key.
    static bool libsodiumOpens(const QByteArray& sealed, const QByteArray& nonce,
                               const QByteArray& associatedData, const QByteArray& key)
    {
        QByteArray out(qMax<qsizetype>(1, sealed.size() - AeadCipher::TagSize), Qt::Uninitialized);
        return crypto_aead_xchacha20poly1305_ietf_decrypt(
                   bytes(out), nullptr, nullptr, bytes(sealed),
                   static_cast<unsigned long long>(sealed.size()), bytes(associatedData),
                   static_cast<unsigned long long>(associatedData.size()), bytes(nonce), bytes(key)) == 0;
    }

    // Opens through the engine; plainOut holds exactly what the cipher left in the output.
    bool engineOpens(const QByteArray& sealedBytes, const QByteArray& nonceBytes,
                     const QByteArray& associated, QByteArray& plainOut) const
    {
        plainOut = QByteArray(qMax<qsizetype>(0, sealedBytes.size() - AeadCipher::TagSize), '\x5a');
        AeadCipher cipher;
        return cipher.open(bytes(key), bytes(nonceBytes), associated, bytes(sealedBytes),
                           static_cast<size_t>(sealedBytes.size()), bytes(plainOut));
    }
};

QList<qint64> lengths()
{
    return {0, 1, 15, 16, 63, 64, 65, 4096, MiB + 7, 16 * MiB};
}

} // namespace

class TestAeadCipher : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void sealsAsLibsodium_data();
    void sealsAsLibsodium();
    void refusesEveryAlteredByte_data();
    void refusesEveryAlteredByte();
    void refusedOpenLeavesNoPlaintext();
    void sealWithoutBeginFails();
};

void TestAeadCipher::initTestCase()
{
    QVERIFY(sodium_init() >= 0);
}

void TestAeadCipher::sealsAsLibsodium_data()
{
    QTest::addColumn<qint64>("length");
    for (const qint64 length : lengths()) {
        QTest::addRow("%lld bytes", static_cast<long long>(length)) << length;
    }
}

void TestAeadCipher::sealsAsLibsodium()
{
    QFETCH(qint64, length);
    const int rounds = length <= 64 * 1024 ? 24 : 3;
    const VaultCrypto crypto;
    for (int round = 0; round < rounds; ++round) {
        // No associated data, then lengths that straddle Poly1305's 16-byte padding.
        const qint64 associatedSize = round == 0 ? 0 : static_cast<qint64>(randombytes_uniform(80));
        const Sample sample(length, associatedSize);

        QByteArray whole(length + AeadCipher::TagSize, Qt::Uninitialized);
        AeadCipher cipher;
        QVERIFY(cipher.seal(bytes(sample.key), bytes(sample.nonce), sample.associatedData,
                            bytes(sample.plain), static_cast<size_t>(length), bytes(whole)));
        QCOMPARE(whole, sample.sealed);
        QCOMPARE(crypto.encrypt(sample.plain, sample.key, sample.nonce, sample.associatedData),
                 sample.sealed);

        // In pieces of any length, as a block is sealed while it is hashed, the same cipher reused.
        QByteArray pieces(length + AeadCipher::TagSize, '\0');
        QVERIFY(cipher.beginSeal(bytes(sample.key), bytes(sample.nonce), sample.associatedData));
        for (qint64 done = 0; done < length;) {
            const qint64 piece = qMin<qint64>(length - done, 1 + randombytes_uniform(300 * 1024));
            QVERIFY(
                cipher.update(bytes(sample.plain) + done, bytes(pieces) + done, static_cast<size_t>(piece)));
            done += piece;
        }
        QVERIFY(cipher.finishSeal(bytes(pieces) + length));
        QCOMPARE(pieces, sample.sealed);

        QByteArray opened;
        QVERIFY(sample.engineOpens(sample.sealed, sample.nonce, sample.associatedData, opened));
        QCOMPARE(opened, sample.plain);
        const QByteArray decrypted =
            crypto.decrypt(sample.sealed, sample.key, sample.nonce, sample.associatedData);
        QCOMPARE(decrypted, sample.plain);
    }
}

void TestAeadCipher::refusesEveryAlteredByte_data()
{
    sealsAsLibsodium_data();
}

void TestAeadCipher::refusesEveryAlteredByte()
{
    QFETCH(qint64, length);
    const Sample sample(length, 37);
    const qint64 sealedSize = sample.sealed.size();
    // Every byte of short messages; of long ones the first and last bytes, the whole tag, and bytes
    // spread between (each refusal decrypts the whole message).
    QList<qint64> positions;
    if (length <= 4096) {
        for (qint64 i = 0; i < sealedSize; ++i) {
            positions << i;
        }
    } else {
        positions << 0 << 1 << length / 2 << length - 1;
        for (int i = 0; i < 4; ++i) {
            positions << static_cast<qint64>(randombytes_uniform(static_cast<uint32_t>(length)));
        }
        for (qint64 i = length; i < sealedSize; ++i) {
            positions << i;
        }
    }
    QByteArray opened;
    QVERIFY(sample.engineOpens(sample.sealed, sample.nonce, sample.associatedData, opened));
    for (const qint64 position : std::as_const(positions)) {
        QByteArray altered = sample.sealed;
        altered[position] = static_cast<char>(altered[position] ^ (1 << (position % 8)));
        QVERIFY2(!Sample::libsodiumOpens(altered, sample.nonce, sample.associatedData, sample.key),
                 "the alteration must be one libsodium refuses");
        QVERIFY2(!sample.engineOpens(altered, sample.nonce, sample.associatedData, opened),
                 qPrintable(QStringLiteral("sealed byte %1 altered").arg(position)));
    }
    const int nonceStep = length <= 4096 ? 1 : 7;
    for (int i = 0; i < AeadCipher::NonceSize; i += nonceStep) {
        QByteArray nonce = sample.nonce;
        nonce[i] = static_cast<char>(nonce[i] ^ 0x80);
        QVERIFY2(!sample.engineOpens(sample.sealed, nonce, sample.associatedData, opened),
                 qPrintable(QStringLiteral("nonce byte %1 altered").arg(i)));
    }
    const int associatedStep = length <= 4096 ? 1 : 9;
    for (int i = 0; i < sample.associatedData.size(); i += associatedStep) {
        QByteArray associated = sample.associatedData;
        associated[i] = static_cast<char>(associated[i] ^ 0x01);
        QVERIFY2(!sample.engineOpens(sample.sealed, sample.nonce, associated, opened),
                 qPrintable(QStringLiteral("associated byte %1 altered").arg(i)));
    }
    QVERIFY(!sample.engineOpens(sample.sealed, sample.nonce, sample.associatedData.chopped(1), opened));
    QVERIFY(!sample.engineOpens(sample.sealed, sample.nonce, sample.associatedData + '\0', opened));
    QVERIFY(!sample.engineOpens(sample.sealed.chopped(1), sample.nonce, sample.associatedData, opened));
}

void TestAeadCipher::refusedOpenLeavesNoPlaintext()
{
    const Sample sample(4096, 8);
    QByteArray altered = sample.sealed;
    altered[altered.size() - 1] = static_cast<char>(altered[altered.size() - 1] ^ 0x01);
    QByteArray opened;
    QVERIFY(!sample.engineOpens(altered, sample.nonce, sample.associatedData, opened));
    QCOMPARE(opened, QByteArray(4096, '\0'));
    const VaultCrypto crypto;
    QVERIFY(crypto.decrypt(altered, sample.key, sample.nonce, sample.associatedData).isEmpty());
}

void TestAeadCipher::sealWithoutBeginFails()
{
    AeadCipher cipher;
    unsigned char in[16] = {};
    unsigned char out[16];
    QVERIFY(!cipher.update(in, out, sizeof in));
    QVERIFY(!cipher.finishSeal(out));
    QVERIFY(!cipher.finishOpen(in));
}

QTEST_GUILESS_MAIN(TestAeadCipher)
#include "tst_aeadcipher.moc"
