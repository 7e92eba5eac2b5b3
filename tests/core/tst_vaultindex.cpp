#include "VaultFixture.h"
#include "VaultIndex.h"
#include "VaultPath.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::VaultFixture;

namespace {

FileEntry file(const QString& path, qint64 size = 0)
{
    FileEntry entry;
    entry.id = QStringLiteral("0f8fad5b-d9cb-469f-a165-70867728950e");
    entry.vaultPath = path;
    entry.sizeBytes = size;
    entry.lastModifiedUtc = QDateTime(QDate(2024, 5, 3), QTime(14, 7, 9, 123), Qt::UTC);
    entry.sha256 = QByteArray::fromHex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    return entry;
}

} // namespace

class TestVaultIndex : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void normalizesPaths_data();
    void normalizesPaths();
    void entryNamesAreSingleSegments_data();
    void entryNamesAreSingleSegments();
    void ensureParentDirectoriesAddsEveryMissingAncestor();
    void ensureParentDirectoriesSkipsExistingInAnyCase();
    void existenceTestsIgnoreLetterCase();
    void upsertAndRemoveMatchExactly();
    void documentWithXAndUpperXKeepsBoth();
    void duplicateVaultPathKeepsSecondAtFirstPosition();
    void emptyVaultPathDisappearsOnLoad();
    void sha256IsWrittenLowerCaseAndReadInAnyCase();
    void datesRoundTripWithMillisecondsInUtc();
    void nonObjectTextLoadsAsEmptyIndex_data();
    void nonObjectTextLoadsAsEmptyIndex();
    void serialisesCompactWithSortedKeys();
    void numbersReadThroughAGeneralValue();
    void orderSurvivesSaveAndLoad();
    void entriesBelowAFolder();
};

void TestVaultIndex::normalizesPaths_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("normalized");
    QTest::newRow("backslashes and trailing slashes")
        << QStringLiteral("Fotos\\\\Praia//") << QStringLiteral("Fotos/Praia");
    QTest::newRow("blanks around segments") << QStringLiteral(" a / b ") << QStringLiteral("a/b");
    QTest::newRow("dot dot inside") << QStringLiteral("a/../b") << QString();
    QTest::newRow("leading dot") << QStringLiteral("./a") << QString();
    QTest::newRow("dot inside") << QStringLiteral("a/./b") << QString();
    QTest::newRow("leading dot dot") << QStringLiteral("../x") << QString();
    QTest::newRow("blank segment") << QStringLiteral("a/ /b") << QString();
    QTest::newRow("mixed separators")
        << QStringLiteral(" \\Fotos\\ 2024 /praia.jpg") << QStringLiteral("Fotos/2024/praia.jpg");
    QTest::newRow("lone slash") << QStringLiteral("/") << QString();
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("double slash") << QStringLiteral("a//b") << QStringLiteral("a/b");
    QTest::newRow("case kept") << QStringLiteral("/Documentos/Nota.PDF")
                               << QStringLiteral("Documentos/Nota.PDF");
    QTest::newRow("other characters kept") << QStringLiteral("ação: 50% *") << QStringLiteral("ação: 50% *");
}

void TestVaultIndex::normalizesPaths()
{
    QFETCH(QString, typed);
    QFETCH(QString, normalized);
    QCOMPARE(normalizeVaultPath(typed), normalized);
}

void TestVaultIndex::entryNamesAreSingleSegments_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("joinedUnderDocs");
    QTest::newRow("plain") << QStringLiteral("notas.txt") << true << QStringLiteral("Docs/notas.txt");
    QTest::newRow("spaces trimmed") << QStringLiteral("  ação 1  ") << true << QStringLiteral("Docs/ação 1");
    QTest::newRow("three dots") << QStringLiteral("...") << true << QStringLiteral("Docs/...");
    QTest::newRow("empty") << QString() << false << QStringLiteral("Docs");
    QTest::newRow("blank") << QStringLiteral("   ") << false << QStringLiteral("Docs");
    QTest::newRow("slash") << QStringLiteral("a/b") << false << QStringLiteral("Docs/a/b");
    QTest::newRow("backslash") << QStringLiteral("a\\b") << false << QStringLiteral("Docs/a/b");
    QTest::newRow("dot") << QStringLiteral(".") << false << QString();
    QTest::newRow("dot dot") << QStringLiteral("..") << false << QString();
}

void TestVaultIndex::entryNamesAreSingleSegments()
{
    QFETCH(QString, name);
    QFETCH(bool, valid);
    QFETCH(QString, joinedUnderDocs);
    QCOMPARE(isValidEntryName(name), valid);
    QCOMPARE(joinEntryPath(QStringLiteral("Docs"), name), joinedUnderDocs);
}

void TestVaultIndex::ensureParentDirectoriesAddsEveryMissingAncestor()
{
    VaultIndex index;
    index.ensureParentDirectories(QStringLiteral("A/B/c.txt"));
    QCOMPARE(VaultFixture::directoryPaths(index), QStringList({QStringLiteral("A"), QStringLiteral("A/B")}));
    const DirectoryEntry& first = index.directories().at(0);
    QVERIFY(first.createdUtc.isValid());
    QCOMPARE(first.createdUtc, first.modifiedUtc);
    QCOMPARE(index.directories().at(1).createdUtc, first.createdUtc);

    VaultIndex rootOnly;
    rootOnly.ensureParentDirectories(QStringLiteral("c.txt"));
    QVERIFY(rootOnly.directories().isEmpty());
}

void TestVaultIndex::ensureParentDirectoriesSkipsExistingInAnyCase()
{
    VaultIndex index;
    const QDateTime old(QDate(2020, 1, 1), QTime(0, 0), Qt::UTC);
    index.upsertDirectory(DirectoryEntry{QStringLiteral("a"), old, old});
    index.ensureParentDirectories(QStringLiteral("A/b/c/d.txt"));
    QCOMPARE(VaultFixture::directoryPaths(index),
             QStringList({QStringLiteral("a"), QStringLiteral("A/b"), QStringLiteral("A/b/c")}));
    QCOMPARE(index.directories().at(0).createdUtc, old);
}

void TestVaultIndex::existenceTestsIgnoreLetterCase()
{
    VaultIndex index;
    index.upsertFile(file(QStringLiteral("Fotos/Praia.JPG")));
    index.upsertDirectory(DirectoryEntry{QStringLiteral("Fotos"), {}, {}});
    QVERIFY(index.fileExists(QStringLiteral("fotos/praia.jpg")));
    QVERIFY(index.directoryExists(QStringLiteral("FOTOS")));
    QVERIFY(!index.fileExists(QStringLiteral("Fotos")));
    QVERIFY(!index.directoryExists(QStringLiteral("Fotos/Praia.JPG")));
    QCOMPARE(index.findFile(QStringLiteral("FOTOS/PRAIA.jpg"))->vaultPath, QStringLiteral("Fotos/Praia.JPG"));
}

void TestVaultIndex::upsertAndRemoveMatchExactly()
{
    VaultIndex index;
    QVERIFY(index.upsertFile(file(QStringLiteral("x.txt"), 1)));
    QVERIFY(index.upsertFile(file(QStringLiteral("X.txt"), 2)));
    QVERIFY(index.upsertFile(file(QStringLiteral("x.txt"), 3)));
    QCOMPARE(VaultFixture::filePaths(index), QStringList({QStringLiteral("x.txt"), QStringLiteral("X.txt")}));
    QCOMPARE(index.files().at(0).sizeBytes, 3);
    QVERIFY(!index.upsertFile(file(QString())));
    QVERIFY(!index.removeFile(QStringLiteral("X.TXT")));
    QVERIFY(index.removeFile(QStringLiteral("X.txt")));
    QCOMPARE(VaultFixture::filePaths(index), QStringList({QStringLiteral("x.txt")}));

    QVERIFY(!index.upsertDirectory(DirectoryEntry{}));
    QVERIFY(index.upsertDirectory(DirectoryEntry{QStringLiteral("Docs"), {}, {}}));
    QVERIFY(!index.removeDirectory(QStringLiteral("docs")));
    QVERIFY(index.removeDirectory(QStringLiteral("Docs")));
    QVERIFY(index.directories().isEmpty());
}

void TestVaultIndex::documentWithXAndUpperXKeepsBoth()
{
    const QByteArray json = R"({"files":[],"directories":[{"path":"x"},{"path":"X"}]})";
    QCOMPARE(VaultFixture::directoryPaths(VaultIndex::fromJson(json)),
             QStringList({QStringLiteral("x"), QStringLiteral("X")}));
}

void TestVaultIndex::duplicateVaultPathKeepsSecondAtFirstPosition()
{
    const QByteArray json = R"({"files":[)"
                            R"({"id":"first","vaultPath":"a.txt","sizeBytes":1},)"
                            R"({"id":"middle","vaultPath":"b.txt","sizeBytes":2},)"
                            R"({"id":"second","vaultPath":"a.txt","sizeBytes":3}]})";
    const VaultIndex index = VaultIndex::fromJson(json);
    QCOMPARE(VaultFixture::filePaths(index), QStringList({QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
    QCOMPARE(index.files().at(0).id, QStringLiteral("second"));
    QCOMPARE(index.files().at(0).sizeBytes, 3);
}

void TestVaultIndex::emptyVaultPathDisappearsOnLoad()
{
    const QByteArray json = R"({"files":[{"id":"a","vaultPath":""},{"id":"b","vaultPath":"b.txt"}],)"
                            R"("directories":[{"path":""}]})";
    const VaultIndex index = VaultIndex::fromJson(json);
    QCOMPARE(VaultFixture::filePaths(index), QStringList({QStringLiteral("b.txt")}));
    QVERIFY(index.directories().isEmpty());
}

void TestVaultIndex::sha256IsWrittenLowerCaseAndReadInAnyCase()
{
    VaultIndex index;
    index.upsertFile(file(QStringLiteral("a.txt")));
    const QByteArray json = index.toJson();
    QVERIFY(json.contains("\"sha256\":\"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855\""));

    const QByteArray upper =
        R"({"files":[{"vaultPath":"a.txt","sha256":"E3B0C44298FC1C149AFBF4C8996FB92427AE41E4649B934CA495991B7852B855"}]})";
    QCOMPARE(VaultIndex::fromJson(upper).files().at(0).sha256, file(QStringLiteral("a.txt")).sha256);
}

void TestVaultIndex::datesRoundTripWithMillisecondsInUtc()
{
    // 11:07:09.123 at UTC-3 is 14:07:09.123 UTC.
    const QDateTime local(QDate(2024, 5, 3), QTime(11, 7, 9, 123), Qt::OffsetFromUTC, -3 * 3600);
    FileEntry entry = file(QStringLiteral("a.txt"));
    entry.lastModifiedUtc = local;
    VaultIndex index;
    index.upsertFile(entry);
    index.upsertDirectory(DirectoryEntry{QStringLiteral("d"), local, local.addMSecs(1)});
    const QByteArray json = index.toJson();
    QVERIFY(json.contains("\"lastModifiedUtc\":\"2024-05-03T14:07:09.123Z\""));
    QVERIFY(json.contains("\"createdUtc\":\"2024-05-03T14:07:09.123Z\""));
    QVERIFY(json.contains("\"modifiedUtc\":\"2024-05-03T14:07:09.124Z\""));

    const VaultIndex reloaded = VaultIndex::fromJson(json);
    QCOMPARE(reloaded.files().at(0).lastModifiedUtc, local);
    QCOMPARE(reloaded.files().at(0).lastModifiedUtc.timeSpec(), Qt::UTC);
    QCOMPARE(reloaded.directories().at(0).modifiedUtc.toMSecsSinceEpoch(), local.toMSecsSinceEpoch() + 1);
}

void TestVaultIndex::nonObjectTextLoadsAsEmptyIndex_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("array") << QByteArray("[1,2,3]");
    QTest::newRow("garbage") << QByteArray("not json at all");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("truncated object") << QByteArray(R"({"files":[{"vaultPath":"a")");
}

void TestVaultIndex::nonObjectTextLoadsAsEmptyIndex()
{
    QFETCH(QByteArray, json);
    const VaultIndex index = VaultIndex::fromJson(json);
    QVERIFY(index.files().isEmpty());
    QVERIFY(index.directories().isEmpty());
}

void TestVaultIndex::serialisesCompactWithSortedKeys()
{
    FileEntry entry = file(QStringLiteral("Docs/a.txt"), 17);
    entry.blocks.append(BlockEntry{8388636, 1, 17, QByteArray(24, '\x01')});
    VaultIndex index;
    index.upsertDirectory(
        DirectoryEntry{QStringLiteral("Docs"), entry.lastModifiedUtc, entry.lastModifiedUtc});
    index.upsertFile(entry);
    const QByteArray expected =
        R"({"directories":[{"createdUtc":"2024-05-03T14:07:09.123Z","modifiedUtc":"2024-05-03T14:07:09.123Z",)"
        R"("path":"Docs"}],"files":[{"blocks":[{"encryptedSize":17,"nonce":"AQEBAQEBAQEBAQEBAQEBAQEBAQEBAQEB",)"
        R"("offset":8388636,"plainSize":1}],"id":"0f8fad5b-d9cb-469f-a165-70867728950e",)"
        R"("lastModifiedUtc":"2024-05-03T14:07:09.123Z",)"
        R"("sha256":"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855","sizeBytes":17,)"
        R"("vaultPath":"Docs/a.txt"}],"formatVersion":1})";
    QCOMPARE(index.toJson(), expected);
}

void TestVaultIndex::numbersReadThroughAGeneralValue()
{
    const QByteArray json = R"({"files":[{"vaultPath":"a","sizeBytes":"1234",)"
                            R"("blocks":[{"offset":9007199254740993,"plainSize":"x","encryptedSize":17}]},)"
                            R"({"vaultPath":"b","sizeBytes":[1]}]})";
    const VaultIndex index = VaultIndex::fromJson(json);
    QCOMPARE(index.files().at(0).sizeBytes, 1234);
    QCOMPARE(index.files().at(0).blocks.at(0).offset, Q_INT64_C(9007199254740993));
    QCOMPARE(index.files().at(0).blocks.at(0).plainSize, 0);
    QCOMPARE(index.files().at(1).sizeBytes, 0);
}

void TestVaultIndex::orderSurvivesSaveAndLoad()
{
    VaultIndex index;
    for (const char* name : {"zeta", "alfa", "Meio", "beta"}) {
        index.upsertFile(file(QString::fromLatin1(name)));
        index.upsertDirectory(DirectoryEntry{QString::fromLatin1(name) + QStringLiteral("-d"), {}, {}});
    }
    const VaultIndex reloaded = VaultIndex::fromJson(index.toJson());
    QCOMPARE(VaultFixture::filePaths(reloaded), VaultFixture::filePaths(index));
    QCOMPARE(VaultFixture::directoryPaths(reloaded), VaultFixture::directoryPaths(index));
    QCOMPARE(reloaded.toJson(), index.toJson());
}

void TestVaultIndex::entriesBelowAFolder()
{
    VaultIndex index;
    index.upsertDirectory(DirectoryEntry{QStringLiteral("Fotos"), {}, {}});
    index.upsertDirectory(DirectoryEntry{QStringLiteral("Fotos2"), {}, {}});
    QVERIFY(!index.hasEntriesBelow(QStringLiteral("Fotos")));
    index.upsertFile(file(QStringLiteral("FOTOS/a.jpg")));
    QVERIFY(index.hasEntriesBelow(QStringLiteral("fotos")));
    QVERIFY(!index.hasEntriesBelow(QStringLiteral("Fotos2")));
    QVERIFY(liesBelow(QStringLiteral("a/b/c"), QStringLiteral("A/B")));
    QVERIFY(!liesBelow(QStringLiteral("a/bc"), QStringLiteral("a/b")));
    QVERIFY(!liesBelow(QStringLiteral("a/b"), QStringLiteral("a/b")));
}

QTEST_GUILESS_MAIN(TestVaultIndex)
#include "tst_vaultindex.moc"
