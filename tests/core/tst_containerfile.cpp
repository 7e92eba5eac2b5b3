#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 Region = 8388608;

QByteArray lengthLine(qint64 length)
{
    return QByteArray::number(length).rightJustified(20, '0') + '\n';
}

// A container laid out by hand, so the reader is checked against the layout, not against our writer.
QByteArray containerBytes(const QByteArray& json, const QByteArray& line, qint64 regionSize = Region)
{
    QByteArray bytes = "VLTBOX3" + line + json;
    bytes += QByteArray(qMax<qint64>(0, regionSize - json.size()), '\0');
    return bytes;
}

QByteArray containerBytes(const QByteArray& json)
{
    return containerBytes(json, lengthLine(json.size()));
}

// A counter of /proc/self/io ("rchar" or "wchar"): bytes this process asked the kernel to move.
qint64 ioCounter(const QByteArray& name)
{
    QFile io(QStringLiteral("/proc/self/io"));
    if (!io.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray& line : io.readAll().split('\n')) {
        if (line.startsWith(name + ':')) {
            return line.mid(name.size() + 1).trimmed().toLongLong();
        }
    }
    return -1;
}

const QByteArray MinimalJson = R"({"formatVersion":3,"magic":"VLTBOX"})";

// A valid JSON object that fills the whole header region.
QByteArray fullRegionJson()
{
    QByteArray json = R"({"formatVersion":3,"magic":"VLTBOX","x":")";
    json += QByteArray(Region - json.size() - 2, 'a') + "\"}";
    return json;
}

// A record no reader would produce, to prove a failed read leaves its output alone.
ContainerHeader sentinel()
{
    ContainerHeader header;
    header.formatVersion = 77;
    header.crypto.kdf = QStringLiteral("sentinela");
    header.payloadOffset = 4242;
    return header;
}

bool untouched(const ContainerHeader& header)
{
    return header.formatVersion == 77 && header.crypto.kdf == QLatin1String("sentinela") &&
           header.payloadOffset == 4242;
}

} // namespace

class TestContainerFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void defaultContainerPathJoinsTheDriveRoot();
    void newContainerHasTheExactLayout();
    void readsAMinimalHeader();
    void refusesMalformedContainers_data();
    void refusesMalformedContainers();
    void refusesAMissingFileAndADirectory();
    void lengthOf8388608IsAccepted();
    void unpaddedLengthLineMovesThePayloadOffset();
    void lenientBase64StillDecodes();
    void strictBase64DecodesLikeQt();
    void legacyMembersAreIgnoredAndNeverWritten();
    void oversizedHeaderIsNotWritten();
    void rewriteKeepsThePayloadAndPadsWithZeros();
    void rewriteRefusesAShortLengthLine();
    void rewriteGivesTheBytesOfAFullRegionRewrite();
    void readAndRewriteTouchOnlyTheJson();
    void serializedCryptoHasAllEightKeys();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
    ContainerFile m_file;
};

void TestContainerFile::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void TestContainerFile::defaultContainerPathJoinsTheDriveRoot()
{
    QCOMPARE(ContainerFile::defaultContainerPath(QStringLiteral("/media/ana/USB")),
             QStringLiteral("/media/ana/USB/velmarin.vltx"));
    QCOMPARE(ContainerFile::defaultContainerPath(QStringLiteral("/media/ana/USB/")),
             QStringLiteral("/media/ana/USB/velmarin.vltx"));
}

void TestContainerFile::newContainerHasTheExactLayout()
{
    VaultManager vault;
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(vault.createVault(container, TestFiles::password()));
    const QByteArray bytes = TestFiles::read(container);
    QCOMPARE(bytes.size(), 8388636);

    const QByteArray head = bytes.left(28);
    QVERIFY(head.startsWith("VLTBOX3"));
    QCOMPARE(head.at(27), '\n');
    bool isNumber = false;
    const qint64 length = head.mid(7, 20).toLongLong(&isNumber);
    QVERIFY(isNumber);
    QCOMPARE(head.mid(7, 20), QByteArray::number(length).rightJustified(20, '0'));

    const QByteArray json = bytes.mid(28, length);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    // Compact and sorted: exactly what QJsonDocument writes back from the parsed object.
    QCOMPARE(document.toJson(QJsonDocument::Compact), json);
    const QJsonObject root = document.object();
    QCOMPARE(root.keys(), QStringList({QStringLiteral("crypto"), QStringLiteral("encryptedIndex"),
                                       QStringLiteral("formatVersion"), QStringLiteral("magic")}));
    QCOMPARE(root.value(QStringLiteral("magic")).toString(), QStringLiteral("VLTBOX"));
    QCOMPARE(root.value(QStringLiteral("formatVersion")).toInt(), 3);
    const QJsonObject crypto = root.value(QStringLiteral("crypto")).toObject();
    QCOMPARE(crypto.keys(), QStringList({QStringLiteral("authTag"), QStringLiteral("cipher"),
                                         QStringLiteral("encryptedMasterKey"), QStringLiteral("kdf"),
                                         QStringLiteral("kdfIterations"), QStringLiteral("nonce"),
                                         QStringLiteral("payloadNonce"), QStringLiteral("salt")}));
    QCOMPARE(crypto.value(QStringLiteral("kdf")).toString(), QStringLiteral("Argon2id"));
    QCOMPARE(crypto.value(QStringLiteral("cipher")).toString(), QStringLiteral("XChaCha20-Poly1305"));
    QCOMPARE(crypto.value(QStringLiteral("kdfIterations")).toInt(), 250000);
    QCOMPARE(crypto.value(QStringLiteral("authTag")).toString(), QString());
    const auto decoded = [&](const char* name) {
        return QByteArray::fromBase64(crypto.value(QString::fromLatin1(name)).toString().toLatin1());
    };
    QCOMPARE(decoded("salt").size(), 16);
    QCOMPARE(decoded("nonce").size(), 24);
    QCOMPARE(decoded("payloadNonce").size(), 24);
    QCOMPARE(decoded("encryptedMasterKey").size(), 80);
    // An empty index: its compact JSON plus the 16-byte tag.
    const QByteArray emptyIndex = R"({"directories":[],"files":[],"formatVersion":1})";
    QCOMPARE(
        QByteArray::fromBase64(root.value(QStringLiteral("encryptedIndex")).toString().toLatin1()).size(),
        emptyIndex.size() + 16);

    const QByteArray padding = bytes.mid(28 + length);
    QCOMPARE(padding.size(), Region - length);
    QCOMPARE(padding.count('\0'), padding.size());
}

void TestContainerFile::readsAMinimalHeader()
{
    const QString container = path(QStringLiteral("c.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(MinimalJson) + "payload"));
    ContainerHeader header = sentinel();
    QVERIFY(m_file.readHeader(container, header));
    QCOMPARE(header.formatVersion, 3);
    QCOMPARE(header.payloadOffset, 8388636);
    QCOMPARE(header.headerLength, MinimalJson.size());
    QCOMPARE(header.crypto.kdfIterations, 250000);
    QVERIFY(header.crypto.salt.isEmpty());
    QVERIFY(header.encryptedIndex.isEmpty());
}

void TestContainerFile::refusesMalformedContainers_data()
{
    QTest::addColumn<QByteArray>("bytes");
    const QByteArray good = containerBytes(MinimalJson);
    QByteArray otherVersionDigit = good;
    otherVersionDigit[6] = '4';
    QTest::newRow("VLTBOX then 4") << otherVersionDigit;
    QTest::newRow("VLTBOX then newline") << QByteArray("VLTBOX\n") + good.mid(7);
    QTest::newRow("length 0") << containerBytes(MinimalJson, lengthLine(0));
    // The region holds valid JSON, so only the bound itself can refuse this one.
    QTest::newRow("length 8388609") << containerBytes(fullRegionJson(), lengthLine(8388609));
    QTest::newRow("length negative") << containerBytes(MinimalJson, "-36\n");
    QTest::newRow("length not a number") << containerBytes(MinimalJson, "0000000000000000003x\n");
    QTest::newRow("one byte short of the region") << good.left(8388635);
    QTest::newRow("VLTBOX then 9") << QByteArray("VLTBOX9") + good.mid(7);
    QTest::newRow("formatVersion 2") << containerBytes(R"({"formatVersion":2,"magic":"VLTBOX"})");
    // A later format is refused whole, never read as far as its fields look like ours.
    QTest::newRow("formatVersion 4") << containerBytes(R"({"formatVersion":4,"magic":"VLTBOX"})");
    QTest::newRow("formatVersion 4 with our fields")
        << containerBytes(R"({"crypto":{"kdf":"Argon2id","salt":"AAEC"},"encryptedIndex":"aGVsbG8=",)"
                          R"("formatVersion":4,"magic":"VLTBOX"})");
    QTest::newRow("formatVersion as text") << containerBytes(R"({"formatVersion":"3","magic":"VLTBOX"})");
    QTest::newRow("formatVersion missing") << containerBytes(R"({"magic":"VLTBOX"})");
    QTest::newRow("magic text wrong") << containerBytes(R"({"formatVersion":3,"magic":"VLTBOX3"})");
    QTest::newRow("magic missing") << containerBytes(R"({"formatVersion":3})");
    QTest::newRow("json is an array") << containerBytes(R"([{"formatVersion":3,"magic":"VLTBOX"}])");
    QTest::newRow("json cut by the length")
        << containerBytes(MinimalJson, lengthLine(MinimalJson.size() - 1));
    QTest::newRow("json broken") << containerBytes(R"({"formatVersion":3,"magic":"VLTBOX")");
    QTest::newRow("no length line") << QByteArray("VLTBOX3") + QByteArray(5000, '0');
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("magic only") << QByteArray("VLTBOX3");
    QTest::newRow("random bytes") << TestFiles::pattern(9 * 1024 * 1024, 7);
}

void TestContainerFile::refusesMalformedContainers()
{
    QFETCH(QByteArray, bytes);
    const QString container = path(QStringLiteral("bad.vltx"));
    QVERIFY(TestFiles::write(container, bytes));
    ContainerHeader header = sentinel();
    QVERIFY(!m_file.readHeader(container, header));
    QVERIFY(untouched(header));
}

void TestContainerFile::refusesAMissingFileAndADirectory()
{
    ContainerHeader header = sentinel();
    QVERIFY(!m_file.readHeader(path(QStringLiteral("missing.vltx")), header));
    QVERIFY(untouched(header));
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("folder.vltx")));
    QVERIFY(!m_file.readHeader(path(QStringLiteral("folder.vltx")), header));
    QVERIFY(untouched(header));
}

void TestContainerFile::lengthOf8388608IsAccepted()
{
    const QByteArray json = fullRegionJson();
    QCOMPARE(json.size(), Region);
    const QString container = path(QStringLiteral("full.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(json)));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    QCOMPARE(header.payloadOffset, 8388636);
    QCOMPARE(header.headerLength, 8388608);
}

void TestContainerFile::unpaddedLengthLineMovesThePayloadOffset()
{
    const QString container = path(QStringLiteral("short.vltx"));
    const QByteArray line = QByteArray::number(MinimalJson.size()) + '\n';
    QCOMPARE(line, QByteArray("36\n"));
    QVERIFY(TestFiles::write(container, containerBytes(MinimalJson, line)));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    QCOMPARE(header.payloadOffset, 7 + 3 + Region);

    const QString spaced = path(QStringLiteral("spaced.vltx"));
    QVERIFY(TestFiles::write(spaced, containerBytes(MinimalJson, "  36 \n")));
    QVERIFY(m_file.readHeader(spaced, header));
    QCOMPARE(header.payloadOffset, 7 + 6 + Region);
    QCOMPARE(header.headerLength, 36);
}

void TestContainerFile::lenientBase64StillDecodes()
{
    const QByteArray json =
        R"({"crypto":{"kdf":"Argon2id","salt":"AAEC*AwQF!BgcI\nCQoLDA0ODw==","nonce":"AQID"},)"
        R"("encryptedIndex":"aGVs bG8=","formatVersion":3,"magic":"VLTBOX"})";
    const QString container = path(QStringLiteral("b64.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(json)));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    QCOMPARE(header.crypto.salt.toHex(), QByteArray("000102030405060708090a0b0c0d0e0f"));
    QCOMPARE(header.crypto.nonce, QByteArray("\x01\x02\x03"));
    QCOMPARE(header.encryptedIndex, QByteArray("hello"));
    QCOMPARE(header.crypto.kdf, QStringLiteral("Argon2id"));
}

void TestContainerFile::strictBase64DecodesLikeQt()
{
    // Every length from empty to past a key, padded (the fast path) and unpadded (the lenient one).
    const QString container = path(QStringLiteral("b64-strict.vltx"));
    for (int length = 0; length <= 70; ++length) {
        const QByteArray bytes = TestFiles::pattern(length, static_cast<quint32>(length));
        const QByteArray padded = bytes.toBase64();
        const QByteArray unpadded = bytes.toBase64(QByteArray::OmitTrailingEquals);
        const QByteArray json = R"({"crypto":{"salt":")" + padded + R"(","nonce":")" + unpadded +
                                R"("},"formatVersion":3,"magic":"VLTBOX"})";
        QVERIFY(TestFiles::write(container, containerBytes(json)));
        ContainerHeader header;
        QVERIFY(m_file.readHeader(container, header));
        QCOMPARE(header.crypto.salt, bytes);
        QCOMPARE(header.crypto.nonce, bytes);
        QCOMPARE(header.crypto.salt, QByteArray::fromBase64(padded));
    }
}

void TestContainerFile::legacyMembersAreIgnoredAndNeverWritten()
{
    const QByteArray json = R"({"encryptedIndex":"aW5kZXg=","encryptedPayload":"cGF5",)"
                            R"("fileIndex":{"files":[{"vaultPath":"velho.txt"}]},)"
                            R"("filePayloads":{"a":"YQ==","b":"Yg=="},"formatVersion":3,"magic":"VLTBOX"})";
    const QString container = path(QStringLiteral("legacy.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(json) + "payload"));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    QCOMPARE(header.encryptedIndex, QByteArray("index"));
    QCOMPARE(header.headerLength, json.size());

    QVERIFY(m_file.rewriteHeader(container, header));
    const QByteArray written = TestFiles::read(container);
    QCOMPARE(written, containerBytes(m_file.serializeHeader(header)) + "payload");
    QVERIFY(!written.contains("fileIndex"));
    QVERIFY(!written.contains("encryptedPayload"));
    QVERIFY(!written.contains("filePayloads"));
    ContainerHeader reread;
    QVERIFY(m_file.readHeader(container, reread));
    QCOMPARE(reread.encryptedIndex, QByteArray("index"));
}

void TestContainerFile::oversizedHeaderIsNotWritten()
{
    const QString container = path(QStringLiteral("c.vltx"));
    const QByteArray original = containerBytes(MinimalJson) + "payload";
    QVERIFY(TestFiles::write(container, original));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    header.encryptedIndex = QByteArray(Region, 'x');
    QVERIFY(m_file.serializeHeader(header).size() > Region);

    QVERIFY(!m_file.rewriteHeader(container, header));
    QCOMPARE(TestFiles::read(container), original);
    QVERIFY(!m_file.writeNewContainer(container, header));
    QCOMPARE(TestFiles::read(container), original);
    // The writer's temporary file is gone as well.
    QCOMPARE(QDir(m_dir->path()).entryList(QDir::Files), QStringList({QStringLiteral("c.vltx")}));
}

void TestContainerFile::rewriteKeepsThePayloadAndPadsWithZeros()
{
    const QString container = path(QStringLiteral("c.vltx"));
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("Argon2id");
    header.encryptedIndex = QByteArray(5000, 'i');
    const QByteArray payload = TestFiles::pattern(1000, 3);
    QVERIFY(m_file.writeNewContainer(container, header, [&](QIODevice& device) {
        return device.pos() == 8388636 && device.write(payload) == payload.size();
    }));
    QCOMPARE(TestFiles::read(container).mid(8388636), payload);

    header.encryptedIndex = QByteArray(10, 'j');
    QVERIFY(m_file.rewriteHeader(container, header));
    const QByteArray bytes = TestFiles::read(container);
    QCOMPARE(bytes.size(), 8388636 + payload.size());
    QCOMPARE(bytes.mid(8388636), payload);
    const QByteArray json = m_file.serializeHeader(header);
    QCOMPARE(bytes.mid(7, 21), lengthLine(json.size()));
    QCOMPARE(bytes.mid(28, json.size()), json);
    const QByteArray padding = bytes.mid(28 + json.size(), Region - json.size());
    QCOMPARE(padding.count('\0'), padding.size());

    ContainerHeader reread;
    QVERIFY(m_file.readHeader(container, reread));
    QCOMPARE(reread.encryptedIndex, header.encryptedIndex);

    QVERIFY(!m_file.writeNewContainer(path(QStringLiteral("failed.vltx")), header,
                                      [](QIODevice&) { return false; }));
    QVERIFY(!QFile::exists(path(QStringLiteral("failed.vltx"))));
}

void TestContainerFile::rewriteRefusesAShortLengthLine()
{
    const QString container = path(QStringLiteral("short.vltx"));
    const QByteArray original = containerBytes(MinimalJson, "36\n") + "blocks";
    QVERIFY(TestFiles::write(container, original));
    ContainerHeader header;
    QVERIFY(m_file.readHeader(container, header));
    // Writing 20 digits would shift the region over the first payload bytes.
    QVERIFY(!m_file.rewriteHeader(container, header));
    QCOMPARE(TestFiles::read(container), original);
}

void TestContainerFile::serializedCryptoHasAllEightKeys()
{
    const QByteArray json = m_file.serializeHeader(ContainerHeader());
    QCOMPARE(json, QByteArray(R"({"crypto":{"authTag":"","cipher":"","encryptedMasterKey":"","kdf":"",)"
                              R"("kdfIterations":250000,"nonce":"","payloadNonce":"","salt":""},)"
                              R"("encryptedIndex":"","formatVersion":3,"magic":"VLTBOX"})"));
}

void TestContainerFile::rewriteGivesTheBytesOfAFullRegionRewrite()
{
    const QString container = path(QStringLiteral("c.vltx"));
    ContainerHeader header;
    header.crypto.kdf = QStringLiteral("Argon2id");
    header.encryptedIndex = TestFiles::pattern(200000, 1);
    const QByteArray payload = TestFiles::pattern(3000, 5);
    QVERIFY(m_file.writeNewContainer(
        container, header, [&](QIODevice& device) { return device.write(payload) == payload.size(); }));
    // Longer, shorter, much shorter, longer again, the same, empty: after each rewrite the file holds
    // exactly what writing the JSON and zeros over the whole region would have left.
    for (const int size : {300000, 120000, 10, 250000, 250000, 0}) {
        header.encryptedIndex = TestFiles::pattern(size, static_cast<quint32>(size));
        QVERIFY(m_file.rewriteHeader(container, header));
        const QByteArray expected = containerBytes(m_file.serializeHeader(header)) + payload;
        QVERIFY2(TestFiles::read(container) == expected, qPrintable(QString::number(size)));
        ContainerHeader read;
        QVERIFY(m_file.readHeader(container, read));
        QCOMPARE(read.encryptedIndex, header.encryptedIndex);
    }
}

void TestContainerFile::readAndRewriteTouchOnlyTheJson()
{
    const QString container = path(QStringLiteral("c.vltx"));
    ContainerHeader header;
    header.encryptedIndex = TestFiles::pattern(60000, 2);
    QVERIFY(m_file.writeNewContainer(container, header));
    const qint64 jsonSize = m_file.serializeHeader(header).size();

    const qint64 readBefore = ioCounter("rchar");
    QVERIFY(readBefore >= 0);
    ContainerHeader read;
    QVERIFY(m_file.readHeader(container, read));
    const qint64 readBytes = ioCounter("rchar") - readBefore;
    QVERIFY2(readBytes < jsonSize + 64 * 1024, qPrintable(QString::number(readBytes)));

    // A change that grows the index a little writes the new JSON and no padding, and before it the
    // journal: a copy of the old header, a line saying what it is about and a digest.
    header.encryptedIndex += TestFiles::pattern(300, 3);
    const qint64 writtenBefore = ioCounter("wchar");
    QVERIFY(m_file.rewriteHeader(container, header));
    const qint64 written = ioCounter("wchar") - writtenBefore;
    const qint64 newJsonSize = m_file.serializeHeader(header).size();
    const qint64 journalSize = jsonSize + 21 + 1024;
    QVERIFY2(written <= newJsonSize + 21 + journalSize + 4096, qPrintable(QString::number(written)));
    QVERIFY(written >= newJsonSize + 21 + jsonSize + 21);
    QVERIFY(!QFile::exists(container + QStringLiteral(".journal")));
}

QTEST_GUILESS_MAIN(TestContainerFile)
#include "tst_containerfile.moc"
