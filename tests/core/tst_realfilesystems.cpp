// A whole session of the engine on the file systems of real USB sticks: FAT32 through fusefat and
// exFAT through exfat-fuse, the container at the drive's root as the window puts it there.
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/container/DriveSpace.h"
#include "core/container/PayloadStore.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmarin;
using Core::VaultManager;
using Tests::MountedDrive;
using Tests::TestFiles;

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

QStringList sortedFilePaths(const Core::VaultIndex& index)
{
    QStringList paths;
    for (const Core::FileEntry& file : index.files()) {
        paths << file.vaultPath;
    }
    paths.sort();
    return paths;
}

QStringList sortedFolderPaths(const Core::VaultIndex& index)
{
    QStringList paths;
    for (const Core::DirectoryEntry& folder : index.directories()) {
        paths << folder.path;
    }
    paths.sort();
    return paths;
}

} // namespace

class RealFileSystemsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aWholeSessionAtTheDrivesRoot_data();
    void aWholeSessionAtTheDrivesRoot();
};

void RealFileSystemsTest::aWholeSessionAtTheDrivesRoot_data()
{
    QTest::addColumn<MountedDrive::Kind>("kind");
    QTest::addColumn<QByteArray>("fileSystemType");
    QTest::newRow("fat32") << MountedDrive::Kind::Fat32 << QByteArray("fuse.fusefat");
    QTest::newRow("exfat") << MountedDrive::Kind::Exfat << QByteArray("fuseblk");
}

void RealFileSystemsTest::aWholeSessionAtTheDrivesRoot()
{
    QFETCH(MountedDrive::Kind, kind);
    QFETCH(QByteArray, fileSystemType);
    MountedDrive drive(kind, 96 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    // The drive is the file system meant, not the temporary folder below the mount point.
    QCOMPARE(Core::DriveSpace::of(drive.path()).fileSystemType, fileSystemType);
    QTemporaryDir local;
    QVERIFY(local.isValid());
    const auto source = [&](const QString& name) { return local.filePath(QStringLiteral("origem/") + name); };
    QVERIFY(QDir().mkpath(source(QStringLiteral("Fotos/2024"))));
    QVERIFY(TestFiles::write(source(QStringLiteral("vazio.txt")), QByteArray()));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("notas.txt")), 1500, 1));
    // One block and a bit of the next.
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("grande.bin")), 17 * MiB, 2));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/a.jpg")), 300 * KiB, 3));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/b.jpg")), MiB, 4));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/2024/c.jpg")), 70 * KiB + 3, 5));

    const QString container = VaultManager::containerPathOn(drive.path());
    QCOMPARE(container, drive.filePath(QStringLiteral("velmarin.vltx")));
    VaultManager vault;
    QVERIFY(vault.createVault(container, TestFiles::password()));
    QVERIFY(!vault.isUnlocked());
    QVERIFY(vault.unlock(container, TestFiles::password()));

    QVERIFY(vault.importFile(source(QStringLiteral("vazio.txt")), QStringLiteral("vazio.txt")));
    QVERIFY(vault.importFile(source(QStringLiteral("notas.txt")), QStringLiteral("notas.txt")));
    QVERIFY(vault.importFile(source(QStringLiteral("grande.bin")), QStringLiteral("grande.bin")));
    const Core::FileEntry* large = vault.index().findFile(QStringLiteral("grande.bin"));
    QVERIFY(large != nullptr);
    QCOMPARE(large->blocks.size(), 2);
    const QList<Core::ImportItem> batch{
        {QString(), QStringLiteral("Fotos"), 0, true},
        {source(QStringLiteral("Fotos/a.jpg")), QStringLiteral("Fotos/a.jpg"), 300 * KiB, false},
        {source(QStringLiteral("Fotos/b.jpg")), QStringLiteral("Fotos/b.jpg"), MiB, false},
        {QString(), QStringLiteral("Fotos/2024"), 0, true},
        {source(QStringLiteral("Fotos/2024/c.jpg")), QStringLiteral("Fotos/2024/c.jpg"), 70 * KiB + 3,
         false}};
    const Core::ImportBatch::Outcome outcome = vault.importBatch(batch);
    QVERIFY(outcome.succeeded());
    QCOMPARE(outcome.imported, 3);

    QVERIFY(vault.createFolder(QStringLiteral("Arquivo")));
    QVERIFY(vault.renameFile(QStringLiteral("notas.txt"), QStringLiteral("anotações.txt")));
    QVERIFY(vault.renameFolder(QStringLiteral("Fotos/2024"), QStringLiteral("Fotos/Verão")));
    QVERIFY(vault.moveFile(QStringLiteral("grande.bin"), QStringLiteral("Arquivo")));
    QVERIFY(vault.deleteFile(QStringLiteral("Fotos/b.jpg")));
    QVERIFY(vault.createFolder(QStringLiteral("Vazia")));
    QVERIFY(vault.deleteEmptyFolder(QStringLiteral("Vazia")));
    // Each change finished: its journal and any replacement are gone from the drive.
    QVERIFY(!QFileInfo::exists(container + QStringLiteral(".journal")));
    QVERIFY(!QFileInfo::exists(container + QStringLiteral(".new")));
    QVERIFY(vault.lock());
    // Beside the container only while unlocked: the room set aside for a journal. The lock is the
    // system's own lock on the container, so there is no lock file; a journal or a compacted
    // replacement lives only while a change is written. Locked, the container stands alone.
    QCOMPARE(drive.rootNames(), QStringList{QStringLiteral("velmarin.vltx")});

    const QMap<QString, QString> expected{
        {QStringLiteral("vazio.txt"), source(QStringLiteral("vazio.txt"))},
        {QStringLiteral("anotações.txt"), source(QStringLiteral("notas.txt"))},
        {QStringLiteral("Arquivo/grande.bin"), source(QStringLiteral("grande.bin"))},
        {QStringLiteral("Fotos/a.jpg"), source(QStringLiteral("Fotos/a.jpg"))},
        {QStringLiteral("Fotos/Verão/c.jpg"), source(QStringLiteral("Fotos/2024/c.jpg"))}};
    QStringList expectedFiles = expected.keys();
    expectedFiles.sort();
    const QStringList expectedFolders{QStringLiteral("Arquivo"), QStringLiteral("Fotos"),
                                      QStringLiteral("Fotos/Verão")};

    QVERIFY(vault.unlock(container, TestFiles::password()));
    QCOMPARE(sortedFilePaths(vault.index()), expectedFiles);
    QCOMPARE(sortedFolderPaths(vault.index()), expectedFolders);
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        const Core::FileEntry* entry = vault.index().findFile(it.key());
        QVERIFY2(entry != nullptr, qPrintable(it.key()));
        QCOMPARE(entry->sizeBytes, QFileInfo(it.value()).size());
        QCOMPARE(entry->sha256, TestFiles::sha256sum(it.value()));
    }

    Core::VerificationReport before;
    QVERIFY(vault.verifyContents(before));
    QVERIFY(before.isSound());
    // Only the deleted photo's blocks are dead.
    QCOMPARE(before.deadBytes, Core::PayloadStore::sealedSize(MiB));
    const qint64 sizeBefore = QFileInfo(container).size();
    QString preserved;
    QStringList damaged;
    QVERIFY(vault.compactVault({}, &preserved, &damaged));
    QVERIFY(preserved.isEmpty());
    QVERIFY(damaged.isEmpty());
    QCOMPARE(QFileInfo(container).size(), sizeBefore - before.deadBytes);

    Core::VerificationReport after;
    QVERIFY(vault.verifyContents(after));
    QVERIFY(after.isSound());
    QCOMPARE(after.fileCount, expected.size());
    QCOMPARE(after.folderCount, expectedFolders.size());
    QCOMPARE(after.liveBytes, before.liveBytes);
    QCOMPARE(after.deadBytes, qint64(0));

    QVERIFY(QDir().mkpath(local.filePath(QStringLiteral("volta"))));
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        const QString back = local.filePath(QStringLiteral("volta/") + QFileInfo(it.key()).fileName());
        QVERIFY2(vault.exportFile(it.key(), back), qPrintable(it.key()));
        QVERIFY2(TestFiles::sameContents(back, it.value()), qPrintable(it.key()));
    }
    QVERIFY(vault.lock());
    // Compaction's working copy lived on the computer; nothing of it stays on the drive.
    QCOMPARE(drive.rootNames(), QStringList{QStringLiteral("velmarin.vltx")});

    // What the drive holds opens again as it was left.
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QCOMPARE(sortedFilePaths(vault.index()), expectedFiles);
    QCOMPARE(sortedFolderPaths(vault.index()), expectedFolders);
    QVERIFY(vault.lock());
}

QTEST_GUILESS_MAIN(RealFileSystemsTest)
#include "tst_realfilesystems.moc"
