#include "TestFiles.h"
#include "core/container/ContainerHeader.h"
#include "core/crypto/Sha256.h"
#include "core/crypto/VaultCrypto.h"
#include "core/vault/VaultManager.h"

#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::ContainerHeader;
using Velmarin::Core::KdfParams;
using Velmarin::Core::Sha256;
using Velmarin::Core::VaultCrypto;

namespace {

QByteArray sequence(int size, int first)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(first + i);
    }
    return bytes;
}

// A header with every field fixed, so associated data can be written out by hand.
ContainerHeader fixedHeader()
{
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("Argon2id");
    header.crypto.cipher = QStringLiteral("XChaCha20-Poly1305");
    header.crypto.kdfIterations = 250000;
    header.crypto.salt = sequence(16, 0x00);
    header.crypto.nonce = sequence(24, 0x10);
    header.crypto.payloadNonce = sequence(24, 0x30);
    return header;
}

} // namespace

class TestVaultCrypto : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sha256MatchesFips180Vectors_data();
    void sha256MatchesFips180Vectors();
    void sha256InPiecesMatchesCoreutils();
    void pbkdf2MatchesRfc7914_data();
    void pbkdf2MatchesRfc7914();
    void argon2idMatchesIndependentTool();
    void algorithmNameInOtherCaseTakesPbkdf2();
    void pbkdf2RefusesIterationsBelowOne_data();
    void pbkdf2RefusesIterationsBelowOne();
    void deriveKeyRefusesEmptyInputs();
    void argon2idRefusesSaltOfWrongLength();
    void encryptDecryptRoundTrip();
    void sixteenByteCiphertextDecryptsToEmpty();
    void wrongKeyOrNonceSizeIsRefused_data();
    void wrongKeyOrNonceSizeIsRefused();
    void alteredCiphertextOrDataFails();
    void associatedDataForEachLabel();
    void associatedDataKeepsSeparatorBytesRaw();
    void masterKeyFailsWhenAHeaderFieldChanges_data();
    void masterKeyFailsWhenAHeaderFieldChanges();
    void randomBytesHaveTheRequestedLength();
    void hmacSha256MatchesRfc4231_data();
    void hmacSha256MatchesRfc4231();

private:
    VaultCrypto m_crypto;
};

void TestVaultCrypto::hmacSha256MatchesRfc4231_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("expected");
    // RFC 4231, test cases 1, 2 and 6 (a key longer than the hash's block).
    QTest::newRow("case 1") << QByteArray(20, '\x0b') << QByteArray("Hi There")
                            << QByteArray::fromHex(
                                   "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    QTest::newRow("case 2") << QByteArray("Jefe") << QByteArray("what do ya want for nothing?")
                            << QByteArray::fromHex(
                                   "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    QTest::newRow("case 6") << QByteArray(131, '\xaa')
                            << QByteArray("Test Using Larger Than Block-Size Key - Hash Key First")
                            << QByteArray::fromHex(
                                   "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
    // A 64-byte key like the master key, and the workspace label; from Python's hmac module.
    QByteArray counting;
    for (int i = 0; i < 64; ++i) {
        counting.append(char(i));
    }
    QTest::newRow("workspace name")
        << counting << QByteArray("velmarin-workspace")
        << QByteArray::fromHex("5accc5996caab968a6815e8432aae6fee594959bf8ea418207c3dd3a4c0c2f97");
}

void TestVaultCrypto::hmacSha256MatchesRfc4231()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, expected);
    QCOMPARE(m_crypto.hmacSha256(key, message).toHex(), expected.toHex());
}

void TestVaultCrypto::pbkdf2MatchesRfc7914_data()
{
    QTest::addColumn<QByteArray>("password");
    QTest::addColumn<QByteArray>("salt");
    QTest::addColumn<int>("iterations");
    QTest::addColumn<QByteArray>("expected");
    // RFC 7914, section 11: PBKDF2-HMAC-SHA256 test vectors, 64-byte output.
    QTest::newRow("passwd/salt/1") << QByteArray("passwd") << QByteArray("salt") << 1
                                   << QByteArray::fromHex("55ac046e56e3089fec1691c22544b605"
                                                          "f94185216dde0465e68b9d57c20dacbc"
                                                          "49ca9cccf179b645991664b39d77ef31"
                                                          "7c71b845b1e30bd509112041d3a19783");
    QTest::newRow("Password/NaCl/80000") << QByteArray("Password") << QByteArray("NaCl") << 80000
                                         << QByteArray::fromHex("4ddcd8f60b98be21830cee5ef22701f9"
                                                                "641a4418d04c0414aeff08876b34ab56"
                                                                "a1d425a1225833549adb841b51c9b317"
                                                                "6a272bdebba1d078478f62b397f33c8d");
}

void TestVaultCrypto::pbkdf2MatchesRfc7914()
{
    QFETCH(QByteArray, password);
    QFETCH(QByteArray, salt);
    QFETCH(int, iterations);
    QFETCH(QByteArray, expected);
    const KdfParams params{QStringLiteral("PBKDF2-SHA256"), salt, iterations, 64};
    const QByteArray key = m_crypto.deriveKey(password, params);
    // 64 bytes take two SHA-256 blocks: both halves must match.
    QCOMPARE(key.size(), 64);
    QCOMPARE(key.toHex(), expected.toHex());
}

void TestVaultCrypto::argon2idMatchesIndependentTool()
{
    // Made with Debian's argon2 command (package argon2, 0~20171227):
    //   echo -n "correct horse battery" | argon2 "VelmarinSalt0123" -id -t 3 -m 18 -p 1 -l 64 -r
    //   echo -n "senha-de-teste-ção" | argon2 "0123456789abcdef" -id -t 3 -m 18 -p 1 -l 64 -r
    const KdfParams first{QStringLiteral("Argon2id"), QByteArray("VelmarinSalt0123"), 250000, 64};
    QCOMPARE(m_crypto.deriveKey(QByteArray("correct horse battery"), first).toHex(),
             QByteArray("604b8ac31846f8f9e63689d3863c182f9fbaecc05c49a1d0368f0e4f3d872716"
                        "e999e5b8ef44806cf571d24137648585d206934ffd72b41b70178be1560c429d"));
    const KdfParams second{QStringLiteral("Argon2id"), QByteArray("0123456789abcdef"), 1, 64};
    QCOMPARE(m_crypto.deriveKey(QStringLiteral("senha-de-teste-ção").toUtf8(), second).toHex(),
             QByteArray("5c7d146b3355738bf3394f483929643cf931da4b445048945888ac60ce5a3f3f"
                        "09ec1a4f76075ea09ccd9ff0555646e2f08bf25b274b8ce02b1fb3741ef06dbf"));
}

void TestVaultCrypto::algorithmNameInOtherCaseTakesPbkdf2()
{
    const KdfParams lower{QStringLiteral("argon2id"), QByteArray("salt"), 1, 64};
    QCOMPARE(m_crypto.deriveKey(QByteArray("passwd"), lower).left(16).toHex(),
             QByteArray("55ac046e56e3089fec1691c22544b605"));
}

void TestVaultCrypto::pbkdf2RefusesIterationsBelowOne_data()
{
    QTest::addColumn<int>("iterations");
    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -5;
}

void TestVaultCrypto::pbkdf2RefusesIterationsBelowOne()
{
    QFETCH(int, iterations);
    const KdfParams params{QStringLiteral("PBKDF2"), QByteArray("salt"), iterations, 64};
    QVERIFY(m_crypto.deriveKey(QByteArray("passwd"), params).isEmpty());
}

void TestVaultCrypto::deriveKeyRefusesEmptyInputs()
{
    const KdfParams params{QStringLiteral("PBKDF2"), QByteArray("salt"), 1, 64};
    QVERIFY(m_crypto.deriveKey(QByteArray(), params).isEmpty());
    QVERIFY(
        m_crypto.deriveKey(QByteArray("passwd"), KdfParams{QStringLiteral("PBKDF2"), {}, 1, 64}).isEmpty());
    QVERIFY(m_crypto.deriveKey(QByteArray("passwd"), KdfParams{QStringLiteral("PBKDF2"), "salt", 1, 0})
                .isEmpty());
    QCOMPARE(m_crypto.deriveKey(QByteArray("passwd"), params).size(), 64);
}

void TestVaultCrypto::argon2idRefusesSaltOfWrongLength()
{
    // The library reads exactly 16 salt bytes; any other length must fail instead of over-reading.
    QVERIFY(m_crypto.deriveKey("password", KdfParams{QStringLiteral("Argon2id"), "short", 1, 64}).isEmpty());
    QVERIFY(m_crypto.deriveKey("password", KdfParams{QStringLiteral("Argon2id"), QByteArray(17, 's'), 1, 64})
                .isEmpty());
}

void TestVaultCrypto::encryptDecryptRoundTrip()
{
    const QByteArray key = m_crypto.randomBytes(32);
    const QByteArray nonce = m_crypto.randomBytes(24);
    const QByteArray sealed = m_crypto.encrypt("conteúdo", key, nonce, "ad");
    QCOMPARE(sealed.size(), QByteArray("conteúdo").size() + 16);
    QCOMPARE(m_crypto.decrypt(sealed, key, nonce, "ad"), QByteArray("conteúdo"));
}

void TestVaultCrypto::sixteenByteCiphertextDecryptsToEmpty()
{
    const QByteArray key = m_crypto.randomBytes(32);
    const QByteArray nonce = m_crypto.randomBytes(24);
    const QByteArray sealed = m_crypto.encrypt(QByteArray(), key, nonce, "ad");
    QCOMPARE(sealed.size(), 16);
    // Indistinguishable from a failure, which is why every caller treats empty as one.
    QVERIFY(m_crypto.decrypt(sealed, key, nonce, "ad").isEmpty());
}

void TestVaultCrypto::wrongKeyOrNonceSizeIsRefused_data()
{
    QTest::addColumn<int>("keySize");
    QTest::addColumn<int>("nonceSize");
    QTest::newRow("key 31") << 31 << 24;
    QTest::newRow("key 33") << 33 << 24;
    QTest::newRow("nonce 12") << 32 << 12;
    QTest::newRow("nonce 25") << 32 << 25;
}

void TestVaultCrypto::wrongKeyOrNonceSizeIsRefused()
{
    QFETCH(int, keySize);
    QFETCH(int, nonceSize);
    const QByteArray key = m_crypto.randomBytes(keySize);
    const QByteArray nonce = m_crypto.randomBytes(nonceSize);
    QVERIFY(m_crypto.encrypt("plain", key, nonce, "ad").isEmpty());
    // A ciphertext that would decrypt under the first 32/24 bytes, to prove the size check decides.
    const QByteArray sealed = m_crypto.encrypt("plain", key.left(32), nonce.left(24), "ad");
    QVERIFY(m_crypto.decrypt(sealed, key, nonce, "ad").isEmpty());
}

void TestVaultCrypto::alteredCiphertextOrDataFails()
{
    const QByteArray key = m_crypto.randomBytes(32);
    const QByteArray nonce = m_crypto.randomBytes(24);
    QByteArray sealed = m_crypto.encrypt("plain text", key, nonce, "ad");
    QVERIFY(m_crypto.decrypt(sealed, key, nonce, "ad!").isEmpty());
    QVERIFY(m_crypto.decrypt(sealed.left(15), key, nonce, "ad").isEmpty());
    sealed[3] = static_cast<char>(sealed[3] ^ 1);
    QVERIFY(m_crypto.decrypt(sealed, key, nonce, "ad").isEmpty());
}

void TestVaultCrypto::associatedDataForEachLabel()
{
    const ContainerHeader header = fixedHeader();
    QCOMPARE(header.associatedData("file-block"), QByteArray("VLTBOX|file-block|3"));
    QCOMPARE(header.associatedData("file-block").size(), 19);

    const QByteArray masterKey = QByteArray("VLTBOX|master-key|3|XChaCha20-Poly1305|Argon2id|250000|") +
                                 QByteArray::fromHex("000102030405060708090a0b0c0d0e0f") + "|" +
                                 QByteArray::fromHex("101112131415161718191a1b1c1d1e1f2021222324252627");
    QCOMPARE(header.associatedData("master-key").toHex(), masterKey.toHex());

    const QByteArray index = QByteArray("VLTBOX|index|3|XChaCha20-Poly1305|") +
                             QByteArray::fromHex("303132333435363738393a3b3c3d3e3f4041424344454647");
    QCOMPARE(header.associatedData("index").toHex(), index.toHex());
}

void TestVaultCrypto::associatedDataKeepsSeparatorBytesRaw()
{
    ContainerHeader header = fixedHeader();
    header.crypto.payloadNonce = QByteArray(24, '|');
    QCOMPARE(header.associatedData("index"),
             QByteArray("VLTBOX|index|3|XChaCha20-Poly1305|") + QByteArray(24, '|'));
}

void TestVaultCrypto::masterKeyFailsWhenAHeaderFieldChanges_data()
{
    QTest::addColumn<QString>("field");
    QTest::newRow("salt") << QStringLiteral("salt");
    QTest::newRow("nonce") << QStringLiteral("nonce");
    QTest::newRow("kdf") << QStringLiteral("kdf");
    QTest::newRow("cipher") << QStringLiteral("cipher");
    QTest::newRow("kdfIterations") << QStringLiteral("kdfIterations");
    QTest::newRow("formatVersion") << QStringLiteral("formatVersion");
}

void TestVaultCrypto::masterKeyFailsWhenAHeaderFieldChanges()
{
    QFETCH(QString, field);
    // The PBKDF2 branch with one iteration keeps this fast; the binding is the same for Argon2id.
    ContainerHeader header = fixedHeader();
    header.crypto.kdf = QStringLiteral("PBKDF2");
    header.crypto.kdfIterations = 1;
    const QByteArray password("uma senha qualquer");
    const auto wrapKey = [&](const ContainerHeader& h) {
        return m_crypto
            .deriveKey(password, KdfParams{h.crypto.kdf, h.crypto.salt, h.crypto.kdfIterations, 64})
            .left(32);
    };
    const QByteArray masterKey = m_crypto.randomBytes(64);
    const QByteArray wrapped = m_crypto.encrypt(masterKey, wrapKey(header), header.crypto.nonce,
                                                header.associatedData("master-key"));
    QCOMPARE(
        m_crypto.decrypt(wrapped, wrapKey(header), header.crypto.nonce, header.associatedData("master-key")),
        masterKey);

    ContainerHeader altered = header;
    if (field == QLatin1String("salt")) {
        altered.crypto.salt[0] = static_cast<char>(altered.crypto.salt[0] ^ 1);
    } else if (field == QLatin1String("nonce")) {
        altered.crypto.nonce[5] = static_cast<char>(altered.crypto.nonce[5] ^ 1);
    } else if (field == QLatin1String("kdf")) {
        altered.crypto.kdf = QStringLiteral("PBKDF3");
    } else if (field == QLatin1String("cipher")) {
        altered.crypto.cipher = QStringLiteral("XChaCha20-Poly1306");
    } else if (field == QLatin1String("kdfIterations")) {
        altered.crypto.kdfIterations = 2;
    } else {
        altered.formatVersion = 4;
    }
    QVERIFY(
        m_crypto
            .decrypt(wrapped, wrapKey(altered), altered.crypto.nonce, altered.associatedData("master-key"))
            .isEmpty());
}

void TestVaultCrypto::randomBytesHaveTheRequestedLength()
{
    QCOMPARE(m_crypto.randomBytes(24).size(), 24);
    QCOMPARE(m_crypto.randomBytes(64).size(), 64);
    QVERIFY(m_crypto.randomBytes(32) != m_crypto.randomBytes(32));
}

void TestVaultCrypto::sha256MatchesFips180Vectors_data()
{
    // The examples of FIPS 180-2, appendix B, and the empty message.
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<QByteArray>("digest");
    QTest::newRow("empty") << QByteArray()
                           << QByteArray("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    QTest::newRow("abc") << QByteArray("abc")
                         << QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    QTest::newRow("two blocks") << QByteArray("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq")
                                << QByteArray(
                                       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
    QTest::newRow("a million a") << QByteArray(1000000, 'a')
                                 << QByteArray(
                                        "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

void TestVaultCrypto::sha256MatchesFips180Vectors()
{
    QFETCH(QByteArray, message);
    QFETCH(QByteArray, digest);
    QCOMPARE(Sha256::hash(message).toHex(), digest);
}

void TestVaultCrypto::sha256InPiecesMatchesCoreutils()
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("dados.bin"));
    const qint64 size = 40 * 1024 * 1024 + 7;
    QVERIFY(Velmarin::Tests::TestFiles::writePattern(file, size, 21));
    const QByteArray data = Velmarin::Tests::TestFiles::read(file);

    // Pieces of every awkward size, as blocks and buffers deliver them.
    Sha256 sha;
    qint64 at = 0;
    for (qint64 piece = 1; at < size; piece = piece * 3 + 1) {
        const qint64 length = qMin(piece, size - at);
        sha.addData(QByteArrayView(data.constData() + at, static_cast<qsizetype>(length)));
        at += length;
    }
    const QByteArray digest = sha.result();
    QCOMPARE(digest.size(), 32);
    QCOMPARE(digest, Velmarin::Tests::TestFiles::sha256sum(file));
    // A spent object gives nothing rather than a wrong digest.
    QVERIFY(sha.result().isEmpty());
}

QTEST_GUILESS_MAIN(TestVaultCrypto)
#include "tst_vaultcrypto.moc"
