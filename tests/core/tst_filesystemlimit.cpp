// The largest file a drive's file system can hold: FAT's 4 GiB - 1 bytes, checked before a
// container grows past it, and the file system's own refusal (EFBIG) where its type does not tell.
#include "FileSizeLimit.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/container/ContainerBackup.h"
#include "core/container/DriveSpace.h"
#include "core/container/PayloadStore.h"
#include "core/vault/VaultManager.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <limits>

using namespace Velmarin;
using Core::DriveSpace;
using Core::Failure;
using Tests::FileSizeLimit;
using Tests::MountedDrive;
using Tests::TestFiles;

namespace {

constexpr qint64 MiB = 1024 * 1024;
constexpr qint64 FatLimit = Q_INT64_C(4294967295);

} // namespace

class FileSystemLimitTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyNameOfFatHasItsLimit_data();
    void everyNameOfFatHasItsLimit();
    void otherFileSystemsTellNoLimit_data();
    void otherFileSystemsTellNoLimit();
    void anOrdinaryDriveTellsItsFreeSpace();
    void aFat32DriveThroughFuseTellsItsLimitButNoFreeSpace();
    void importsPastTheFatLimitAreRefusedBeforeAnythingIsWritten();
    void theLimitItselfStillFits();
    void aBackupLargerThanTheLimitIsRefusedOnFat();
    void aFileSystemThatRefusesTheSizeGivesTheSameReason();
    void aBatchStoppedByTheSizeRefusalKeepsTheWholeFiles();
};

void FileSystemLimitTest::everyNameOfFatHasItsLimit_data()
{
    QTest::addColumn<QByteArray>("type");
    // Linux kernel, FUSE and Windows volume names.
    for (const char* name : {"vfat", "msdos", "fuse.fusefat", "FAT32", "FAT", "FAT16", "FAT12", "VFAT"}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void FileSystemLimitTest::everyNameOfFatHasItsLimit()
{
    QFETCH(QByteArray, type);
    QCOMPARE(DriveSpace::largestFileOn(type), std::optional<qint64>(FatLimit));
}

void FileSystemLimitTest::otherFileSystemsTellNoLimit_data()
{
    QTest::addColumn<QByteArray>("type");
    // fuseblk carries exFAT or NTFS as often as anything: the system's refusal decides there.
    for (const char* name : {"exfat", "exFAT", "NTFS", "ntfs3", "fuseblk", "ext4", "btrfs", "tmpfs", ""}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void FileSystemLimitTest::otherFileSystemsTellNoLimit()
{
    QFETCH(QByteArray, type);
    QVERIFY(!DriveSpace::largestFileOn(type).has_value());
}

void FileSystemLimitTest::anOrdinaryDriveTellsItsFreeSpace()
{
    QTemporaryDir dir;
    const DriveSpace space = DriveSpace::of(dir.filePath(QStringLiteral("not-yet.vltx")));
    QVERIFY(space.ready);
    QVERIFY(space.available.has_value());
    QVERIFY(*space.available > 0);
    QVERIFY(space.hasRoomFor(1));
    QVERIFY(!space.hasRoomFor(std::numeric_limits<qint64>::max()));
}

void FileSystemLimitTest::aFat32DriveThroughFuseTellsItsLimitButNoFreeSpace()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    const DriveSpace space = DriveSpace::of(drive.filePath(QStringLiteral("velmarin.vltx")));
    QVERIFY(space.ready);
    QCOMPARE(space.fileSystemType, QByteArray("fuse.fusefat"));
    QCOMPARE(space.largestFile, std::optional<qint64>(FatLimit));
    QVERIFY(space.holdsFileOf(FatLimit));
    QVERIFY(!space.holdsFileOf(FatLimit + 1));
    // fusefat reports no blocks at all: its free space is unknown, not zero.
    QVERIFY(!space.available.has_value());
    QVERIFY(space.hasRoomFor(FatLimit));
}

void FileSystemLimitTest::importsPastTheFatLimitAreRefusedBeforeAnythingIsWritten()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QTemporaryDir local;
    const QString huge = local.filePath(QStringLiteral("huge.bin"));
    // 4.06 GiB: a film that fits the drive's free space but not one FAT file.
    QVERIFY(TestFiles::makeSparse(huge, Q_INT64_C(4359283343)));
    const QString container = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    const QByteArray before = TestFiles::read(container);
    Core::VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));

    QVERIFY(!vault.importFile(huge, QStringLiteral("huge.bin")));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
    QCOMPARE(vault.lastFailure().path, container);

    const QList<Core::ImportItem> items{{huge, QStringLiteral("huge.bin"), QFileInfo(huge).size(), false}};
    int fitting = -1;
    QVERIFY(!vault.importCapacity(items, &fitting));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
    bool read = false;
    Core::ImportBatch::Handler handler;
    handler.progress = [&](const Core::ImportBatch::Progress& progress) {
        read = read || progress.fileDone > 0;
    };
    const Core::ImportBatch::Outcome outcome = vault.importBatch(items, handler);
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.imported, 0);
    QVERIFY(!read);
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);

    QVERIFY(vault.index().files().isEmpty());
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(container), before);
}

void FileSystemLimitTest::theLimitItselfStillFits()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    const QString container = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    Core::VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    // The file whose blocks and tags bring the container to exactly 4 GiB - 1 bytes.
    const qint64 room = FatLimit - QFileInfo(container).size();
    const qint64 blocks = (room + Core::PayloadStore::BlockSize + 15) / (Core::PayloadStore::BlockSize + 16);
    const qint64 exact = room - blocks * 16;
    QCOMPARE(Core::PayloadStore::sealedSize(exact), room);
    int fitting = -1;
    QVERIFY(vault.importCapacity({{QStringLiteral("/x"), QStringLiteral("x.bin"), exact, false}}, &fitting));
    QCOMPARE(fitting, 1);
    QVERIFY(
        !vault.importCapacity({{QStringLiteral("/x"), QStringLiteral("x.bin"), exact + 1, false}}, &fitting));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
}

void FileSystemLimitTest::aBackupLargerThanTheLimitIsRefusedOnFat()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QTemporaryDir local;
    const QString large = local.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::makeSparse(large, FatLimit + 1));
    Core::ContainerBackup tooLarge(large, drive.filePath(QStringLiteral("copia.vltx")));
    QVERIFY(tooLarge.openSource());
    QVERIFY(!tooLarge.fitsDestination());
    QVERIFY(!QFileInfo::exists(drive.filePath(QStringLiteral("copia.vltx"))));

    const QString small = local.filePath(QStringLiteral("pequeno.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(small));
    Core::ContainerBackup fits(small, drive.filePath(QStringLiteral("copia.vltx")));
    QVERIFY(fits.openSource());
    QVERIFY(fits.fitsDestination());
    QVERIFY(fits.openDestination());
    QVERIFY(fits.copy());
    QVERIFY(TestFiles::sameContents(small, drive.filePath(QStringLiteral("copia.vltx"))));
}

void FileSystemLimitTest::aFileSystemThatRefusesTheSizeGivesTheSameReason()
{
    QTemporaryDir dir;
    const QString container = dir.filePath(QStringLiteral("velmarin.vltx"));
    const QString source = dir.filePath(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    QVERIFY(TestFiles::writePattern(source, 3 * MiB, 7));
    const QByteArray before = TestFiles::read(container);
    Core::VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    {
        const FileSizeLimit limit(QFileInfo(container).size() + MiB);
        QVERIFY(limit.isSet());
        QVERIFY(!vault.importFile(source, QStringLiteral("video.bin")));
    }
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
    QCOMPARE(vault.lastFailure().path, container);
    QVERIFY(!vault.lastFailure().systemError.isEmpty());
    QVERIFY(vault.index().files().isEmpty());
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(container), before);
}

void FileSystemLimitTest::aBatchStoppedByTheSizeRefusalKeepsTheWholeFiles()
{
    QTemporaryDir dir;
    const QString container = dir.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    QList<Core::ImportItem> items;
    for (int i = 0; i < 3; ++i) {
        const QString source = dir.filePath(QStringLiteral("parte%1.bin").arg(i));
        QVERIFY(TestFiles::writePattern(source, 2 * MiB, static_cast<quint32>(i)));
        items.append({source, QStringLiteral("parte%1.bin").arg(i), 2 * MiB, false});
    }
    Core::VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    const qint64 empty = QFileInfo(container).size();
    Core::ImportBatch::Outcome outcome;
    {
        // Room for the first file and half of the second.
        const FileSizeLimit limit(empty + 3 * MiB);
        QVERIFY(limit.isSet());
        outcome = vault.importBatch(items);
    }
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.stoppedAt, 1);
    QCOMPARE(outcome.imported, 1);
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
    QCOMPARE(vault.index().files().size(), 1);
    QCOMPARE(QFileInfo(container).size(), empty + Core::PayloadStore::sealedSize(2 * MiB));
    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QCOMPARE(vault.index().files().size(), 1);
    const QString back = dir.filePath(QStringLiteral("de-volta.bin"));
    QVERIFY(vault.exportFile(QStringLiteral("parte0.bin"), back));
    QVERIFY(TestFiles::sameContents(back, items.at(0).localPath));
}

QTEST_GUILESS_MAIN(FileSystemLimitTest)
#include "tst_filesystemlimit.moc"
