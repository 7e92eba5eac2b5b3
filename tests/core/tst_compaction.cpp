#include "CompactionTemp.h"
#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/ProgressCallback.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::CompactionTemp;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;
using Triple = std::tuple<qint64, qint64, QString>;

qint64 encryptedBytes(const FileEntry& file)
{
    qint64 total = 0;
    for (const BlockEntry& block : file.blocks) {
        total += block.encryptedSize;
    }
    return total;
}

} // namespace

class TestCompaction : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void vaultWithoutFilesKeepsItsFolders();
    void shrinksByExactlyTheDeadBytes();
    void progressLabelsFollowThePhases();
    void aDamagedBlockChangesNothingAndIsNamed();
    void everyDamagedFileIsNamed();
    void unreadableHeaderChangesNothing();
    void impossibleWorkFolderChangesNothing();
    void failedVerificationDeletesTheWorkFolder();
    void undeletableOldContainerDeletesTheWorkFolder();
    void failureBesideTheOldContainerKeepsIt_data();
    void failureBesideTheOldContainerKeepsIt();
    void roomForBothNeverLeavesTheDriveWithoutAContainer();
    void failedCopyOntoTheDriveKeepsTheNewContainer_data();
    void failedCopyOntoTheDriveKeepsTheNewContainer();
    void aCopyNobodyAskedAboutIsStillKept();
    void lockedVaultIsRefused();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    void importPattern(const QString& vaultPath, qint64 size, quint32 seed);
    QStringList workFolders() const { return m_temp.workFolders(); }
    QString journal() const { return m_fixture.container() + QStringLiteral(".journal"); }
    void fillVault();
    // Flips one byte in the middle of the file's block number blockIndex (from 0) in the container.
    void flipByteInBlock(const QString& vaultPath, int blockIndex);

    VaultFixture m_fixture;
    CompactionTemp m_temp;
};

void TestCompaction::init()
{
    // The work folder goes to the system's temporary folder: point it where the test can look.
    // The manager reads it at each compaction, so it may be set after the fixture made the vault.
    QVERIFY(m_fixture.setUp(QStringLiteral("usb/velmarin.vltx")));
    QVERIFY(m_temp.set(path(QStringLiteral("tmp"))));
}

void TestCompaction::cleanup()
{
    m_fixture.tearDown();
    m_temp.restore();
}

void TestCompaction::importPattern(const QString& vaultPath, qint64 size, quint32 seed)
{
    const QString source = path(QStringLiteral("fonte-%1.bin").arg(seed));
    QVERIFY(TestFiles::writePattern(source, size, seed));
    QVERIFY(m_fixture.vault().importFile(source, vaultPath));
}

void TestCompaction::fillVault()
{
    importPattern(QStringLiteral("Fotos/grande.bin"), 20 * MiB, 1);
    importPattern(QStringLiteral("Fotos/pequeno.bin"), 1000, 2);
    importPattern(QStringLiteral("doc.bin"), 3 * MiB, 3);
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Vazia")));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Fotos/grande.bin")));
}

void TestCompaction::flipByteInBlock(const QString& vaultPath, int blockIndex)
{
    const FileEntry* file = m_fixture.vault().index().findFile(vaultPath);
    QVERIFY(file != nullptr && blockIndex < file->blocks.size());
    const BlockEntry& block = file->blocks.at(blockIndex);
    QFile container(m_fixture.container());
    QVERIFY(container.open(QIODevice::ReadWrite));
    const qint64 at = block.offset + block.encryptedSize / 2;
    char byte = 0;
    QVERIFY(container.seek(at) && container.getChar(&byte));
    QVERIFY(container.seek(at) && container.putChar(static_cast<char>(byte ^ 0x01)));
}

void TestCompaction::vaultWithoutFilesKeepsItsFolders()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("A/B")));
    importPattern(QStringLiteral("A/apagado.bin"), 5000, 4);
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("A/apagado.bin")));
    QString preserved = QStringLiteral("sobra");
    QVERIFY(m_fixture.vault().compactVault({}, &preserved));
    QVERIFY(preserved.isEmpty());
    QCOMPARE(QFileInfo(m_fixture.container()).size(), 8388636);
    QVERIFY(m_fixture.vault().isUnlocked());
    QVERIFY(workFolders().isEmpty());

    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.vault().index().directories().size(), 2);
    QVERIFY(m_fixture.vault().directoryExists(QStringLiteral("A/B")));
    QVERIFY(m_fixture.vault().index().files().isEmpty());
}

void TestCompaction::shrinksByExactlyTheDeadBytes()
{
    importPattern(QStringLiteral("substituido.bin"), 2 * MiB, 5);
    const qint64 replacedDead = encryptedBytes(m_fixture.vault().index().files().at(0));
    importPattern(QStringLiteral("substituido.bin"), 1 * MiB, 6);
    importPattern(QStringLiteral("Fotos/grande.bin"), 20 * MiB, 1);
    const qint64 deletedDead =
        encryptedBytes(*m_fixture.vault().index().findFile(QStringLiteral("Fotos/grande.bin")));
    importPattern(QStringLiteral("Fotos/pequeno.bin"), 1000, 2);
    importPattern(QStringLiteral("doc.bin"), 17 * MiB, 3);
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Fotos/grande.bin")));
    const qint64 before = QFileInfo(m_fixture.container()).size();

    QVERIFY(m_fixture.vault().compactVault({}, nullptr));
    QCOMPARE(before - QFileInfo(m_fixture.container()).size(), replacedDead + deletedDead);
    qint64 live = 0;
    for (const FileEntry& file : m_fixture.vault().index().files()) {
        live += encryptedBytes(file);
    }
    QCOMPARE(QFileInfo(m_fixture.container()).size(), 8388636 + live);

    // Still unlocked with the new offsets, and again after a fresh unlock.
    const QList<std::pair<QString, quint32>> expected{{QStringLiteral("substituido.bin"), 6},
                                                      {QStringLiteral("Fotos/pequeno.bin"), 2},
                                                      {QStringLiteral("doc.bin"), 3}};
    for (int round = 0; round < 2; ++round) {
        for (const auto& [vaultPath, seed] : expected) {
            const QString exported = path(QStringLiteral("saida.bin"));
            QVERIFY(m_fixture.vault().exportFile(vaultPath, exported));
            QVERIFY2(TestFiles::sameContents(exported, path(QStringLiteral("fonte-%1.bin").arg(seed))),
                     qPrintable(vaultPath));
        }
        QVERIFY(m_fixture.vault().lock());
        QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    }
}

void TestCompaction::progressLabelsFollowThePhases()
{
    fillVault();
    QList<Triple> reports;
    QVERIFY(m_fixture.vault().compactVault(
        [&](qint64 done, qint64 total, const QString& label) {
            reports.append({done, total, label});
        },
        nullptr));
    const qint64 liveTotal = 1000 + 3 * MiB;
    const qint64 newSize = QFileInfo(m_fixture.container()).size();
    // The swap onto the drive names no file: its label is empty, and the front ends word it.
    const QString swap;
    const QList<Triple> expected{{1000, liveTotal, QStringLiteral("Fotos/pequeno.bin")},
                                 {liveTotal, liveTotal, QStringLiteral("doc.bin")},
                                 {0, newSize, swap},
                                 {8388608, newSize, swap},
                                 {newSize, newSize, swap}};
    QCOMPARE(reports, expected);
}

void TestCompaction::aDamagedBlockChangesNothingAndIsNamed()
{
    fillVault();
    flipByteInBlock(QStringLiteral("doc.bin"), 0);
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    const QByteArray index = m_fixture.vault().index().toJson();
    QString preserved = QStringLiteral("sobra");
    QStringList damaged{QStringLiteral("sobra")};
    QStringList labels;
    QVERIFY(!m_fixture.vault().compactVault(
        [&](qint64, qint64, const QString& label) { labels.append(label); }, &preserved, &damaged));
    QCOMPARE(damaged, QStringList{QStringLiteral("doc.bin")});
    QVERIFY(preserved.isEmpty());
    // Every file was checked, and the swap onto the drive never began.
    QCOMPARE(labels, QStringList({QStringLiteral("Fotos/pequeno.bin"), QStringLiteral("doc.bin")}));

    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QCOMPARE(QDir(QFileInfo(m_fixture.container()).absolutePath())
                 .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList({QStringLiteral("velmarin.vltx"), QStringLiteral("velmarin.vltx.reserve")}));
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(m_fixture.vault().index().toJson(), index);

    // Still the same vault: it locks, unlocks, and every sound file exports as it was imported.
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.vault().directoryExists(QStringLiteral("Vazia")));
    const QString exported = path(QStringLiteral("saida.bin"));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("Fotos/pequeno.bin"), exported));
    QVERIFY(TestFiles::sameContents(exported, path(QStringLiteral("fonte-2.bin"))));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("doc.bin"), exported));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void TestCompaction::everyDamagedFileIsNamed()
{
    importPattern(QStringLiteral("a/dois-blocos.bin"), 17 * MiB, 7);
    importPattern(QStringLiteral("b.bin"), 1000, 8);
    importPattern(QStringLiteral("c.bin"), 2000, 9);
    importPattern(QStringLiteral("d.bin"), 3000, 10);
    // The first file's damage lies in its second block, and another damaged file comes after a sound one.
    flipByteInBlock(QStringLiteral("a/dois-blocos.bin"), 1);
    flipByteInBlock(QStringLiteral("c.bin"), 0);
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    QStringList damaged;
    QVERIFY(!m_fixture.vault().compactVault({}, nullptr, &damaged));
    QCOMPARE(damaged, QStringList({QStringLiteral("a/dois-blocos.bin"), QStringLiteral("c.bin")}));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(workFolders().isEmpty());
}

void TestCompaction::unreadableHeaderChangesNothing()
{
    fillVault();
    const QByteArray index = m_fixture.vault().index().toJson();
    QByteArray bytes = TestFiles::read(m_fixture.container());
    bytes[3] = 'X';
    QVERIFY(TestFiles::write(m_fixture.container(), bytes));
    QString preserved = QStringLiteral("sobra");
    // Not damage: no file is named.
    QStringList damaged{QStringLiteral("sobra")};
    QVERIFY(!m_fixture.vault().compactVault({}, &preserved, &damaged));
    QVERIFY(preserved.isEmpty());
    QVERIFY(damaged.isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QCOMPARE(m_fixture.vault().index().toJson(), index);
    QVERIFY(workFolders().isEmpty());
}

void TestCompaction::impossibleWorkFolderChangesNothing()
{
    fillVault();
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    const QString notAFolder = path(QStringLiteral("arquivo-comum"));
    QVERIFY(TestFiles::write(notAFolder, "x"));
    qputenv("TMPDIR", notAFolder.toUtf8());
    QString preserved;
    QVERIFY(!m_fixture.vault().compactVault({}, &preserved));
    QVERIFY(preserved.isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void TestCompaction::failedVerificationDeletesTheWorkFolder()
{
    QVERIFY(FailureInjection::isAvailable());
    fillVault();
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    const QByteArray index = m_fixture.vault().index().toJson();
    QString preserved;
    {
        // The local disk returns other bytes than were written: the new container does not read back.
        const FailureInjection injection(QStringLiteral("Velmarin-compact-"), "corrupt");
        QVERIFY(!m_fixture.vault().compactVault({}, &preserved));
    }
    QVERIFY(preserved.isEmpty());
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QCOMPARE(m_fixture.vault().index().toJson(), index);
}

void TestCompaction::undeletableOldContainerDeletesTheWorkFolder()
{
    QVERIFY(FailureInjection::isAvailable());
    fillVault();
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    QString preserved;
    {
        // Without room for two the old container has to go first, and here it will not.
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "no-room,unlink");
        QVERIFY(!m_fixture.vault().compactVault({}, &preserved));
    }
    QVERIFY(preserved.isEmpty());
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("doc.bin"), path(QStringLiteral("saida.bin"))));
}

void TestCompaction::failureBesideTheOldContainerKeepsIt_data()
{
    QTest::addColumn<QString>("pathPart");
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<qint64>("allowance");
    const QString replacement = QStringLiteral("usb/velmarin.vltx.new");
    QTest::newRow("the copy cannot be created") << replacement << QByteArray("open-write") << qint64(0);
    QTest::newRow("copy fails at the first piece") << replacement << QByteArray("write") << qint64(0);
    QTest::newRow("copy fails at the second piece") << replacement << QByteArray("write") << qint64(8388608);
    QTest::newRow("sync of the copy fails") << replacement << QByteArray("fsync") << qint64(0);
    QTest::newRow("the copy cannot take the name") << replacement << QByteArray("rename") << qint64(0);
    // Without room, the journal comes before anything else is touched.
    QTest::newRow("no room, and the journal cannot be written")
        << QStringLiteral("usb/velmarin.vltx.journal") << QByteArray("no-room,write") << qint64(0);
    QTest::newRow("no room, and the journal does not reach the device")
        << QStringLiteral("usb/velmarin.vltx.journal") << QByteArray("no-room,fsync") << qint64(0);
}

void TestCompaction::failureBesideTheOldContainerKeepsIt()
{
    QFETCH(QString, pathPart);
    QFETCH(QByteArray, calls);
    QFETCH(qint64, allowance);
    QVERIFY(FailureInjection::isAvailable());
    fillVault();
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    const QByteArray index = m_fixture.vault().index().toJson();
    QString preserved = QStringLiteral("sobra");
    {
        const FailureInjection injection(pathPart, calls, allowance);
        QVERIFY(!m_fixture.vault().compactVault({}, &preserved));
    }
    QVERIFY(preserved.isEmpty());
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(!QFile::exists(m_fixture.container() + QStringLiteral(".new")));
    QCOMPARE(m_fixture.vault().index().toJson(), index);
    // Still the live vault: it takes changes and compacts once the drive behaves.
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Depois")));
    QVERIFY(m_fixture.vault().compactVault({}, &preserved));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("doc.bin"), path(QStringLiteral("saida.bin"))));
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida.bin")), path(QStringLiteral("fonte-3.bin"))));
}

void TestCompaction::roomForBothNeverLeavesTheDriveWithoutAContainer()
{
    fillVault();
    const QString container = m_fixture.container();
    QStringList seen;
    // At every step of the swap the drive holds a whole container under the vault's name.
    QVERIFY(m_fixture.vault().compactVault(
        [&](qint64, qint64, const QString& label) {
            if (!isContainerSwap(label)) {
                return;
            }
            ContainerHeader header;
            seen << (ContainerFile().readHeader(container, header) ? QStringLiteral("inteiro")
                                                                   : QStringLiteral("ausente"));
            seen << (QFile::exists(container + QStringLiteral(".new")) ? QStringLiteral("cópia")
                                                                       : QStringLiteral("sem cópia"));
        },
        nullptr));
    QVERIFY(!seen.contains(QStringLiteral("ausente")));
    QVERIFY(seen.contains(QStringLiteral("cópia")));
    QVERIFY(!QFile::exists(container + QStringLiteral(".new")));
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(workFolders().isEmpty());
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("doc.bin"), path(QStringLiteral("saida.bin"))));
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida.bin")), path(QStringLiteral("fonte-3.bin"))));
}

void TestCompaction::failedCopyOntoTheDriveKeepsTheNewContainer_data()
{
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<qint64>("allowance");
    QTest::addColumn<int>("swapReports");
    QTest::addColumn<bool>("smallFilesOnly");
    QTest::newRow("drive removed: no opening for writing")
        << QByteArray("open-write") << qint64(0) << 0 << false;
    QTest::newRow("copy fails at the first piece") << QByteArray("write") << qint64(0) << 1 << false;
    QTest::newRow("copy fails halfway through a piece") << QByteArray("write") << qint64(1000) << 1 << false;
    QTest::newRow("copy fails at the second piece") << QByteArray("write") << qint64(8388608) << 2 << false;
    // With small files only, the last piece is small enough to wait in the file's buffer:
    // every piece is reported copied and it is the flush that fails.
    QTest::newRow("flush of the buffered tail fails") << QByteArray("write") << qint64(8388608) << 3 << true;
    QTest::newRow("sync to the device fails") << QByteArray("fsync") << qint64(0) << 3 << false;
}

void TestCompaction::failedCopyOntoTheDriveKeepsTheNewContainer()
{
    QFETCH(QByteArray, calls);
    QFETCH(qint64, allowance);
    QFETCH(int, swapReports);
    QFETCH(bool, smallFilesOnly);
    QVERIFY(FailureInjection::isAvailable());
    fillVault();
    if (smallFilesOnly) {
        QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("doc.bin")));
    }
    const qsizetype liveFiles = m_fixture.vault().index().files().size();
    const QByteArray index = m_fixture.vault().index().toJson();
    QString preserved;
    int reports = 0;
    {
        // No room for two: the old container goes first, and the copy that replaces it fails.
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "no-room," + calls, allowance);
        QVERIFY(!m_fixture.vault().compactVault(
            [&](qint64, qint64, const QString& label) { reports += isContainerSwap(label) ? 1 : 0; },
            &preserved));
    }
    QCOMPARE(reports, swapReports);
    QVERIFY(!QFileInfo::exists(m_fixture.container()));
    QCOMPARE(QFileInfo(preserved).fileName(), QStringLiteral("velmarin.vltx"));
    QVERIFY(
        QFileInfo(preserved).absolutePath().startsWith(m_temp.path() + QStringLiteral("/Velmarin-compact-")));
    QCOMPARE(workFolders().size(), 1);
    QCOMPARE(m_fixture.vault().index().toJson(), index);

    // The preserved container is whole: it opens with the password and holds every live file.
    VaultManager rescue;
    QVERIFY(rescue.unlock(preserved, TestFiles::password()));
    QCOMPARE(rescue.index().files().size(), liveFiles);
    QVERIFY(rescue.directoryExists(QStringLiteral("Vazia")));
    QVERIFY(rescue.exportFile(QStringLiteral("Fotos/pequeno.bin"), path(QStringLiteral("saida.bin"))));
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida.bin")), path(QStringLiteral("fonte-2.bin"))));
    QVERIFY(rescue.lock());

    // The journal on the drive names the preserved container: the next unlock puts it back.
    QVERIFY(QFile::exists(journal()));
    QVERIFY(m_fixture.vault().lock());
    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::ContainerRestored);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(!QFile::exists(preserved));
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(again.index().files().size(), liveFiles);
    QVERIFY(again.exportFile(QStringLiteral("doc.bin"), path(QStringLiteral("saida.bin"))) ==
            !smallFilesOnly);
    QVERIFY(again.exportFile(QStringLiteral("Fotos/pequeno.bin"), path(QStringLiteral("saida.bin"))));
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida.bin")), path(QStringLiteral("fonte-2.bin"))));
    QVERIFY(again.lock());
}

void TestCompaction::aCopyNobodyAskedAboutIsStillKept()
{
    QVERIFY(FailureInjection::isAvailable());
    fillVault();
    {
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "no-room,write");
        QVERIFY(!m_fixture.vault().compactVault({}, nullptr));
    }
    // The caller did not ask where the copy is, but it is the only whole one: it stays, and the
    // journal on the drive names it.
    QCOMPARE(workFolders().size(), 1);
    QVERIFY(QFile::exists(journal()));
    QVERIFY(m_fixture.vault().lock());
    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::ContainerRestored);
    QVERIFY(workFolders().isEmpty());
    QVERIFY(again.exportFile(QStringLiteral("doc.bin"), path(QStringLiteral("saida.bin"))));
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida.bin")), path(QStringLiteral("fonte-3.bin"))));
    QVERIFY(again.lock());
}

void TestCompaction::lockedVaultIsRefused()
{
    QVERIFY(m_fixture.vault().lock());
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    QString preserved = QStringLiteral("sobra");
    QVERIFY(!m_fixture.vault().compactVault({}, &preserved));
    QVERIFY(preserved.isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

QTEST_GUILESS_MAIN(TestCompaction)
#include "tst_compaction.moc"
