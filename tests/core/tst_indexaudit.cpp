// What the index itself records, checked when a vault is verified: paths no change writes, case
// duplicates, missing folders and overlapping blocks; and an export that believes only the recorded
// size and SHA-256.
#include "HostileIndex.h"
#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/IndexAudit.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QDir>
#include <QtTest>

#include <functional>
#include <limits>

using namespace Velmarin::Core;
using Velmarin::Tests::HostileIndex;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;
using Problem = VerificationReport::DamagedFile::Problem;

Q_DECLARE_METATYPE(Problem)

namespace {

BlockEntry block(qint64 offset, qint64 plainSize)
{
    BlockEntry entry;
    entry.offset = offset;
    entry.plainSize = plainSize;
    entry.encryptedSize = plainSize + 16;
    return entry;
}

FileEntry file(const QString& path, const QList<BlockEntry>& blocks = {})
{
    FileEntry entry;
    entry.vaultPath = path;
    entry.blocks = blocks;
    return entry;
}

} // namespace

class TestIndexAudit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void pathsNormalisationWouldChange_data();
    void pathsNormalisationWouldChange();
    void overlapsAreFoundAmongAllBlocks();
    void hostilePathsLoadAndAreReportedAsDamage();
    void caseDuplicatesAreKeptReportedAndBothExport();
    void openForEditRefusesIrregularEntries();
    void aBlockReferencedManyTimesStopsAtTheRecordedSize();
    void blocksShortOfTheRecordedSizeAreDamage();
    void aWrongDigestIsDamageAndLeavesNothing();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    // Locks, lets craft change the container, unlocks again and verifies.
    VerificationReport craftAndVerify(const std::function<bool(const QString&)>& craft);

    VaultFixture m_fixture;
};

void TestIndexAudit::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("velmarin.vltx"), QStringLiteral("area")));
}

void TestIndexAudit::cleanup()
{
    m_fixture.tearDown();
}

VerificationReport TestIndexAudit::craftAndVerify(const std::function<bool(const QString&)>& craft)
{
    VerificationReport report;
    report.fileCount = -1;
    VaultManager& vault = m_fixture.vault();
    if (vault.lock() && craft(m_fixture.container()) &&
        vault.unlock(m_fixture.container(), TestFiles::password())) {
        vault.verifyContents(report);
    }
    return report;
}

void TestIndexAudit::pathsNormalisationWouldChange_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("changes");
    QTest::addColumn<Problem>("problem");
    QTest::newRow("normal") << QStringLiteral("Docs/a.txt") << false << Problem::PathNotNormal;
    QTest::newRow("..") << QStringLiteral("..") << true << Problem::DotSegment;
    QTest::newRow("a/../b") << QStringLiteral("a/../b") << true << Problem::DotSegment;
    QTest::newRow("./a") << QStringLiteral("./a") << true << Problem::DotSegment;
    QTest::newRow("/etc/x") << QStringLiteral("/etc/x") << true << Problem::AbsolutePath;
    QTest::newRow("\\x") << QStringLiteral("\\x") << true << Problem::AbsolutePath;
    QTest::newRow("C:\\x") << QStringLiteral("C:\\x") << true << Problem::AbsolutePath;
    // A colon is a character like any other in a vault name; only an export to disk refuses it.
    QTest::newRow("C:/x") << QStringLiteral("C:/x") << false << Problem::PathNotNormal;
    QTest::newRow("a\\b") << QStringLiteral("a\\b") << true << Problem::BackslashPath;
    QTest::newRow("blank around") << QStringLiteral(" a.txt") << true << Problem::PathNotNormal;
    QTest::newRow("a//b") << QStringLiteral("a//b") << true << Problem::PathNotNormal;
    QTest::newRow("trailing slash") << QStringLiteral("a/") << true << Problem::PathNotNormal;
}

void TestIndexAudit::pathsNormalisationWouldChange()
{
    QFETCH(QString, path);
    QFETCH(bool, changes);
    QFETCH(Problem, problem);
    Problem found = Problem::UnreadableBlock;
    QCOMPARE(IndexAudit::pathProblem(path, &found), changes);
    if (changes) {
        QCOMPARE(found, problem);
    }
}

void TestIndexAudit::overlapsAreFoundAmongAllBlocks()
{
    VaultIndex index;
    // Back to back is sound; 8 bytes inside the other is not; a block named twice by one file is not.
    index.upsertFile(file(QStringLiteral("a.bin"), {block(1000, 100), block(1116, 50)}));
    index.upsertFile(file(QStringLiteral("b.bin"), {block(2000, 100)}));
    index.upsertFile(file(QStringLiteral("c.bin"), {block(3000, 10), block(2108, 10)}));
    index.upsertFile(file(QStringLiteral("d.bin"), {block(5000, 17), block(5000, 17)}));
    // A block no read would take is left to the read.
    index.upsertFile(file(QStringLiteral("e.bin"), {block(std::numeric_limits<qint64>::max() - 4, 10)}));
    const IndexAudit audit(index);
    QCOMPARE(audit.findings().size(), 3);
    QVERIFY(audit.findingFor(QStringLiteral("a.bin")) == nullptr);
    QVERIFY(audit.findingFor(QStringLiteral("e.bin")) == nullptr);
    const IndexAudit::Finding* b = audit.findingFor(QStringLiteral("b.bin"));
    QVERIFY(b != nullptr);
    QCOMPARE(b->problem, Problem::OverlappingBlocks);
    QCOMPARE(b->blockNumber, 1);
    QCOMPARE(b->otherPath, QStringLiteral("c.bin"));
    const IndexAudit::Finding* c = audit.findingFor(QStringLiteral("c.bin"));
    QVERIFY(c != nullptr);
    QCOMPARE(c->blockNumber, 2);
    QCOMPARE(c->blockCount, 2);
    QCOMPARE(c->otherPath, QStringLiteral("b.bin"));
    const IndexAudit::Finding* d = audit.findingFor(QStringLiteral("d.bin"));
    QVERIFY(d != nullptr);
    QCOMPARE(d->blockNumber, 1);
    QCOMPARE(d->otherPath, QStringLiteral("d.bin"));
}

void TestIndexAudit::hostilePathsLoadAndAreReportedAsDamage()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/certo.txt"), "certo"));
    const VerificationReport report = craftAndVerify([](const QString& container) {
        return HostileIndex::addFiles(container, TestFiles::password(),
                                      {{QStringLiteral("../fora.txt"), "fora"},
                                       {QStringLiteral("/etc/absoluto.txt"), "absoluto"},
                                       {QStringLiteral("Docs\\invertida.txt"), "invertida"},
                                       {QStringLiteral("Sumida/nota.txt"), "sem pasta"}}) &&
               HostileIndex::addSharedBlocks(container, TestFiles::password(),
                                             QStringLiteral("Docs/certo.txt"),
                                             QStringLiteral("Docs/mesmos-blocos.txt"));
    });
    // Nothing is dropped on load: they are listed as they were written.
    const VaultManager& vault = m_fixture.vault();
    QVERIFY(vault.isUnlocked());
    QCOMPARE(VaultFixture::filePaths(vault.index()).size(), 6);
    QCOMPARE(report.fileCount, 6);

    QMap<QString, VerificationReport::DamagedFile> found;
    for (const VerificationReport::DamagedFile& damage : report.damagedFiles) {
        found.insert(damage.vaultPath, damage);
    }
    QCOMPARE(found.keys(),
             QStringList({QStringLiteral("../fora.txt"), QStringLiteral("/etc/absoluto.txt"),
                          QStringLiteral("Docs/certo.txt"), QStringLiteral("Docs/mesmos-blocos.txt"),
                          QStringLiteral("Docs\\invertida.txt"), QStringLiteral("Sumida/nota.txt")}));
    QCOMPARE(found.value(QStringLiteral("../fora.txt")).problem, Problem::DotSegment);
    QCOMPARE(found.value(QStringLiteral("/etc/absoluto.txt")).problem, Problem::AbsolutePath);
    QCOMPARE(found.value(QStringLiteral("Docs\\invertida.txt")).problem, Problem::BackslashPath);
    QCOMPARE(found.value(QStringLiteral("Sumida/nota.txt")).problem, Problem::MissingFolder);
    QCOMPARE(found.value(QStringLiteral("Sumida/nota.txt")).otherPath, QStringLiteral("Sumida"));
    QCOMPARE(found.value(QStringLiteral("Docs/certo.txt")).problem, Problem::OverlappingBlocks);
    QCOMPARE(found.value(QStringLiteral("Docs/certo.txt")).otherPath,
             QStringLiteral("Docs/mesmos-blocos.txt"));
    QCOMPARE(found.value(QStringLiteral("Docs/mesmos-blocos.txt")).otherPath,
             QStringLiteral("Docs/certo.txt"));
    QVERIFY(!report.isSound());
}

void TestIndexAudit::caseDuplicatesAreKeptReportedAndBothExport()
{
    const VerificationReport report = craftAndVerify([](const QString& container) {
        return HostileIndex::addCaseDuplicates(container, TestFiles::password());
    });
    VaultManager& vault = m_fixture.vault();
    QCOMPARE(VaultFixture::filePaths(vault.index()),
             QStringList({QStringLiteral("dup.txt"), QStringLiteral("DUP.txt")}));
    QCOMPARE(report.damagedFiles.size(), 2);
    QCOMPARE(report.damagedFiles.at(0).vaultPath, QStringLiteral("dup.txt"));
    QCOMPARE(report.damagedFiles.at(0).problem, Problem::CaseDuplicate);
    QCOMPARE(report.damagedFiles.at(0).otherPath, QStringLiteral("DUP.txt"));
    QCOMPARE(report.damagedFiles.at(1).vaultPath, QStringLiteral("DUP.txt"));
    QCOMPARE(report.damagedFiles.at(1).otherPath, QStringLiteral("dup.txt"));

    // Each is the user's data, and each exports its own bytes.
    QCOMPARE(m_fixture.exported(QStringLiteral("dup.txt")), HostileIndex::lowerContents());
    QCOMPARE(m_fixture.exported(QStringLiteral("DUP.txt")), HostileIndex::upperContents());
    const QString destination = path(QStringLiteral("saida"));
    FolderExport::Outcome outcome;
    QVERIFY(vault.exportFolder(QString(), destination, {}, outcome));
#ifdef Q_OS_WIN
    QCOMPARE(outcome.files, 1);
#else
    QCOMPARE(outcome.files, 2);
    QVERIFY(outcome.succeeded());
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/dup.txt")), HostileIndex::lowerContents());
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/DUP.txt")), HostileIndex::upperContents());
#endif
}

void TestIndexAudit::openForEditRefusesIrregularEntries()
{
    QVERIFY(m_fixture.importText(QStringLiteral("certo.txt"), "certo"));
    craftAndVerify([](const QString& container) {
        return HostileIndex::addCaseDuplicates(container, TestFiles::password()) &&
               HostileIndex::addFiles(container, TestFiles::password(),
                                      {{QStringLiteral("Sumida/nota.txt"), "sem pasta"}});
    });
    VaultManager& vault = m_fixture.vault();
    QVERIFY(vault.isUnlocked());
    for (const QString& path :
         {QStringLiteral("dup.txt"), QStringLiteral("DUP.txt"), QStringLiteral("Sumida/nota.txt")}) {
        QString local = QStringLiteral("sem cópia");
        QVERIFY2(!vault.openForEdit(path, &local), qPrintable(path));
        QCOMPARE(vault.lastFailure().reason, Failure::Reason::IrregularEntry);
        QCOMPARE(vault.lastFailure().path, path);
        QVERIFY(!vault.isOpenForEdit(path));
    }
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("certo.txt"), &local));
    QCOMPARE(TestFiles::read(local), QByteArray("certo"));
}

void TestIndexAudit::aBlockReferencedManyTimesStopsAtTheRecordedSize()
{
    const QByteArray contents = "dezessete bytes!!";
    QCOMPARE(contents.size(), 17);
    const VerificationReport report = craftAndVerify([&contents](const QString& container) {
        return HostileIndex::addRepeatedBlock(container, TestFiles::password(),
                                              QStringLiteral("repetido.txt"), contents, 20000);
    });
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.first().problem, Problem::WrongSize);

    VaultManager& vault = m_fixture.vault();
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    QVERIFY(!vault.exportFile(QStringLiteral("repetido.txt"), &buffer));
    // Stopped at the second block, not after 340,000 bytes.
    QCOMPARE(buffer.data(), contents);
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::Damaged);
    QCOMPARE(vault.lastFailure().path, QStringLiteral("repetido.txt"));

    const QString destination = path(QStringLiteral("repetido.txt"));
    QVERIFY(!vault.exportFile(QStringLiteral("repetido.txt"), destination));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::Damaged);
    QVERIFY(!QFileInfo::exists(destination));
}

void TestIndexAudit::blocksShortOfTheRecordedSizeAreDamage()
{
    const VerificationReport report = craftAndVerify([](const QString& container) {
        return HostileIndex::addShortFile(container, TestFiles::password(), QStringLiteral("curto.txt"),
                                          "menos do que diz", 10);
    });
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.first().problem, Problem::WrongSize);
    const QString destination = path(QStringLiteral("curto.txt"));
    QVERIFY(TestFiles::write(destination, "o que havia antes"));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("curto.txt"), destination));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::Damaged);
    QVERIFY(!QFileInfo::exists(destination));
}

void TestIndexAudit::aWrongDigestIsDamageAndLeavesNothing()
{
    QVERIFY(m_fixture.importText(QStringLiteral("resumo.txt"), "o resumo não confere"));
    craftAndVerify([](const QString& container) {
        Velmarin::Tests::LockedVaultEditor editor;
        if (!editor.open(container, TestFiles::password())) {
            return false;
        }
        FileEntry entry = *editor.index().findFile(QStringLiteral("resumo.txt"));
        entry.sha256[5] = static_cast<char>(entry.sha256.at(5) ^ 0x04);
        return editor.index().upsertFile(entry) && editor.save();
    });
    const QString destination = path(QStringLiteral("resumo.txt"));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("resumo.txt"), destination));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::Damaged);
    QVERIFY(!QFileInfo::exists(destination));
    // A folder export leaves nothing for it either.
    FolderExport::Outcome outcome;
    QVERIFY(m_fixture.vault().exportFolder(QString(), path(QStringLiteral("pasta")), {}, outcome));
    QCOMPARE(outcome.files, 0);
    QCOMPARE(outcome.failed.size(), 1);
    QCOMPARE(outcome.failed.first().failure.reason, Failure::Reason::Damaged);
    QVERIFY(QDir(path(QStringLiteral("pasta"))).isEmpty());
}

QTEST_GUILESS_MAIN(TestIndexAudit)
#include "tst_indexaudit.moc"
