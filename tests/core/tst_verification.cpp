#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QtTest>

#include <functional>

using namespace Velmarin::Core;
using Velmarin::Tests::LockedVaultEditor;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;
using Problem = VerificationReport::DamagedFile::Problem;

namespace {

constexpr qint64 MiB = 1024 * 1024;
constexpr qint64 Block = 16 * MiB;
constexpr qint64 Tag = 16;

// Rewrites the index of a locked container with the password, as a faulty writer could have left
// it: authentic, but no longer describing the blocks it points at.
bool rewriteIndex(const QString& container, const std::function<void(VaultIndex&)>& change)
{
    LockedVaultEditor editor;
    if (!editor.open(container, TestFiles::password())) {
        return false;
    }
    change(editor.index());
    return editor.save();
}

} // namespace

class TestVerification : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void soundVaultReportsCountsAndNoDamage();
    void readsOnlyAndReportsProgress();
    void deletedFileBecomesDeadBytesUntilCompaction();
    void alteredBlockNamesTheFileAndTheBlock();
    void truncatedContainerMakesTheLastBlocksUnreadable();
    void wrongRecordedSizeIsFound();
    void wrongRecordedDigestIsFound();
    void lockedOrVanishedContainerCannotBeVerified();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    bool importPattern(const QString& vaultPath, qint64 size, quint32 seed);
    // Locks, unlocks read-only and verifies.
    VerificationReport verifyAgain();

    VaultFixture m_fixture;
};

void TestVerification::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestVerification::cleanup()
{
    m_fixture.tearDown();
}

bool TestVerification::importPattern(const QString& vaultPath, qint64 size, quint32 seed)
{
    const QString source = path(QStringLiteral("origem.bin"));
    return TestFiles::writePattern(source, size, seed) && m_fixture.vault().importFile(source, vaultPath);
}

VerificationReport TestVerification::verifyAgain()
{
    VaultManager& vault = m_fixture.vault();
    VerificationReport report;
    report.fileCount = -1;
    if (vault.lock() &&
        vault.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly)) {
        vault.verifyContents(report);
    }
    return report;
}

void TestVerification::soundVaultReportsCountsAndNoDamage()
{
    QVERIFY(importPattern(QStringLiteral("vazio.bin"), 0, 1));
    QVERIFY(importPattern(QStringLiteral("Docs/um.bin"), 1, 2));
    QVERIFY(importPattern(QStringLiteral("Docs/Fotos/grande.bin"), Block + 1, 3));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Vazia")));

    const VerificationReport report = verifyAgain();
    QCOMPARE(report.fileCount, 3);
    QCOMPARE(report.folderCount, 3);
    // Three blocks in all, each carrying its 16-byte tag.
    QCOMPARE(report.liveBytes, (1 + Tag) + (Block + Tag) + (1 + Tag));
    QCOMPARE(report.deadBytes, 0);
    QVERIFY(report.isSound());
    QCOMPARE(QFileInfo(m_fixture.container()).size(), ContainerFile::PayloadOffset + report.liveBytes);
}

void TestVerification::readsOnlyAndReportsProgress()
{
    QVERIFY(importPattern(QStringLiteral("a.bin"), 3 * MiB, 4));
    QVERIFY(importPattern(QStringLiteral("b.bin"), Block + 5, 5));
    VaultManager& vault = m_fixture.vault();
    QVERIFY(vault.lock());
    const QString workspaceRoot = path(QStringLiteral("area"));
    VaultManager reader(workspaceRoot);
    QVERIFY(reader.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    const QByteArray before = TestFiles::read(m_fixture.container());
    const QDateTime modified = QFileInfo(m_fixture.container()).lastModified();

    QList<std::tuple<qint64, qint64, QString>> reports;
    VerificationReport report;
    QVERIFY(reader.verifyContents(report, [&](qint64 done, qint64 total, const QString& label) {
        reports.append({done, total, label});
    }));
    QVERIFY(report.isSound());
    const qint64 total = 3 * MiB + Block + 5;
    const QList<std::tuple<qint64, qint64, QString>> expected{
        {3 * MiB, total, QStringLiteral("a.bin")},
        {3 * MiB + Block, total, QStringLiteral("b.bin")},
        {total, total, QStringLiteral("b.bin")}};
    QCOMPARE(reports, expected);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QCOMPARE(QFileInfo(m_fixture.container()).lastModified(), modified);
    QVERIFY(!QFileInfo::exists(workspaceRoot));
}

void TestVerification::deletedFileBecomesDeadBytesUntilCompaction()
{
    QVERIFY(importPattern(QStringLiteral("fica.bin"), 2 * MiB, 6));
    QVERIFY(importPattern(QStringLiteral("sai.bin"), Block + 10, 7));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("sai.bin")));
    VerificationReport report = verifyAgain();
    QCOMPARE(report.fileCount, 1);
    QCOMPARE(report.liveBytes, 2 * MiB + Tag);
    QCOMPARE(report.deadBytes, (Block + Tag) + (10 + Tag));

    VaultManager& vault = m_fixture.vault();
    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QString preserved;
    QVERIFY(vault.compactVault({}, &preserved));
    report = verifyAgain();
    QCOMPARE(report.deadBytes, 0);
    QCOMPARE(report.liveBytes, 2 * MiB + Tag);
    QVERIFY(report.isSound());
}

void TestVerification::alteredBlockNamesTheFileAndTheBlock()
{
    QVERIFY(importPattern(QStringLiteral("antes.bin"), 100, 8));
    QVERIFY(importPattern(QStringLiteral("Docs/alvo.bin"), 2 * Block + 3, 9));
    QVERIFY(importPattern(QStringLiteral("depois.bin"), 200, 10));
    const FileEntry target = *m_fixture.vault().index().findFile(QStringLiteral("Docs/alvo.bin"));
    QVERIFY(m_fixture.vault().lock());

    QFile container(m_fixture.container());
    QVERIFY(container.open(QIODevice::ReadWrite));
    const qint64 where = target.blocks.at(1).offset + 1000;
    QVERIFY(container.seek(where));
    const char original = container.read(1).at(0);
    QVERIFY(container.seek(where));
    QCOMPARE(container.write(QByteArray(1, static_cast<char>(original ^ 0x01))), 1);
    container.close();

    const VerificationReport report = verifyAgain();
    QCOMPARE(report.fileCount, 3);
    QCOMPARE(report.damagedFiles.size(), 1);
    const VerificationReport::DamagedFile& damage = report.damagedFiles.first();
    QCOMPARE(damage.vaultPath, QStringLiteral("Docs/alvo.bin"));
    QCOMPARE(damage.problem, Problem::UnreadableBlock);
    QCOMPARE(damage.blockNumber, 2);
    QCOMPARE(damage.blockCount, 3);
}

void TestVerification::truncatedContainerMakesTheLastBlocksUnreadable()
{
    QVERIFY(importPattern(QStringLiteral("inteiro.bin"), 1000, 11));
    QVERIFY(importPattern(QStringLiteral("cortado.bin"), 1000, 12));
    QVERIFY(m_fixture.vault().lock());
    QFile container(m_fixture.container());
    QVERIFY(container.resize(container.size() - 1));

    const VerificationReport report = verifyAgain();
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.first().vaultPath, QStringLiteral("cortado.bin"));
    QCOMPARE(report.damagedFiles.first().blockNumber, 1);
    // The truncated block is still counted as live: the index refers to it.
    QCOMPARE(report.liveBytes, 2 * (1000 + Tag));
    QCOMPARE(report.deadBytes, 0);
}

void TestVerification::wrongRecordedSizeIsFound()
{
    QVERIFY(importPattern(QStringLiteral("tamanho.bin"), 5000, 13));
    QVERIFY(importPattern(QStringLiteral("certo.bin"), 10, 14));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(rewriteIndex(m_fixture.container(), [](VaultIndex& index) {
        FileEntry entry = *index.findFile(QStringLiteral("tamanho.bin"));
        entry.sizeBytes += 1;
        index.upsertFile(entry);
    }));

    const VerificationReport report = verifyAgain();
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.first().vaultPath, QStringLiteral("tamanho.bin"));
    QCOMPARE(report.damagedFiles.first().problem, Problem::WrongSize);
}

void TestVerification::wrongRecordedDigestIsFound()
{
    QVERIFY(importPattern(QStringLiteral("resumo.bin"), 5000, 15));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(rewriteIndex(m_fixture.container(), [](VaultIndex& index) {
        FileEntry entry = *index.findFile(QStringLiteral("resumo.bin"));
        entry.sha256[0] = static_cast<char>(entry.sha256.at(0) ^ 0x80);
        index.upsertFile(entry);
    }));

    const VerificationReport report = verifyAgain();
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.first().problem, Problem::WrongDigest);
}

void TestVerification::lockedOrVanishedContainerCannotBeVerified()
{
    QVERIFY(importPattern(QStringLiteral("a.bin"), 10, 16));
    VaultManager& vault = m_fixture.vault();
    QVERIFY(vault.lock());
    VerificationReport report;
    report.fileCount = 99;
    QVERIFY(!vault.verifyContents(report));
    QCOMPARE(report.fileCount, 0);

    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QVERIFY(QFile::rename(m_fixture.container(), path(QStringLiteral("movido.vltx"))));
    QVERIFY(!vault.verifyContents(report));
    QVERIFY(report.isSound());
    QCOMPARE(report.fileCount, 0);
}

QTEST_GUILESS_MAIN(TestVerification)
#include "tst_verification.moc"
