// A re-key on drives short of room: a drive with room for one container only, the local disk the new
// container is built on, and FAT32's largest file.
#include "CompactionTemp.h"
#include "FailureInjection.h"
#include "LockedVaultEditor.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "VaultContents.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/PayloadStore.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::CompactionTemp;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::LockedVaultEditor;
using Velmarin::Tests::MountedDrive;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultContents;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;
const QByteArray NewPassword = QByteArrayLiteral("nova-senha-bem-longa");

} // namespace

class TestRekeyRoom : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aDriveWithRoomForOneContainerIsRekeyedInTurn();
    void aFailureInTurnKeepsAWholeContainer_data();
    void aFailureInTurnKeepsAWholeContainer();
    void aLocalDiskWithoutRoomIsRefusedFirst();
    void aFatDriveRefusesAContainerPastItsLimit();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    QString container() const { return m_fixture.container(); }
    QStringList workFolders() const { return m_temp.workFolders(); }
    // Exports every file of a fresh session on containerPath and compares it with its source.
    void exportsEveryFile(const QString& containerPath, const QByteArray& password);
    // A vault on a tmpfs, a 20 MiB file deleted and an 8 MiB one kept, locked; false when no tmpfs.
    bool setUpDrive(MountedDrive& drive, QString& driveContainer);
    bool rekey()
    {
        return m_fixture.vault().rekeyVault(container(), TestFiles::password(), NewPassword, {}, nullptr);
    }

    VaultFixture m_fixture;
    CompactionTemp m_temp;
    // Vault path to the source its bytes came from.
    QMap<QString, QString> m_sources;
};

void TestRekeyRoom::exportsEveryFile(const QString& containerPath, const QByteArray& password)
{
    const QString mismatch = VaultContents::mismatch(
        containerPath, password, m_sources, {QStringLiteral("Vazia")}, path(QStringLiteral("saida.bin")));
    QVERIFY2(mismatch.isEmpty(), qPrintable(mismatch));
}

void TestRekeyRoom::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("usb/velmarin.vltx")));
    QVERIFY(m_temp.set(path(QStringLiteral("tmp"))));
    m_sources.clear();
}

void TestRekeyRoom::cleanup()
{
    m_fixture.tearDown();
    m_temp.restore();
}

bool TestRekeyRoom::setUpDrive(MountedDrive& drive, QString& driveContainer)
{
    if (!drive.isMounted()) {
        return false;
    }
    driveContainer = drive.filePath(QStringLiteral("velmarin.vltx"));
    const QString gone = path(QStringLiteral("apagado.bin"));
    const QString kept = path(QStringLiteral("mantido.bin"));
    m_sources = {{QStringLiteral("mantido.bin"), kept}};
    VaultManager vault;
    return m_fixture.vault().lock() && TestFiles::writePattern(gone, 20 * MiB, 1) &&
           TestFiles::writePattern(kept, 8 * MiB, 2) && TestFiles::copyEmptyVault(driveContainer) &&
           vault.unlock(driveContainer, TestFiles::password()) &&
           vault.importFile(gone, QStringLiteral("apagado.bin")) &&
           vault.importFile(kept, QStringLiteral("mantido.bin")) &&
           vault.deleteFile(QStringLiteral("apagado.bin")) && vault.createFolder(QStringLiteral("Vazia")) &&
           vault.lock();
}

void TestRekeyRoom::aDriveWithRoomForOneContainerIsRekeyedInTurn()
{
    // 36 MiB of container on 48 MiB: the 16 MiB re-keyed one fits only once the old one is gone.
    MountedDrive drive(MountedDrive::Kind::Tmpfs, 48 * MiB);
    QString onDrive;
    if (!setUpDrive(drive, onDrive)) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QString preserved;
    QVERIFY(m_fixture.vault().rekeyVault(onDrive, TestFiles::password(), NewPassword, {}, &preserved));
    QVERIFY(preserved.isEmpty());
    QCOMPARE(drive.rootNames(), QStringList({QStringLiteral("velmarin.vltx")}));
    QVERIFY(workFolders().isEmpty());
    exportsEveryFile(onDrive, NewPassword);
    QVERIFY(!VaultContents::opens(onDrive, TestFiles::password()));
}

void TestRekeyRoom::aFailureInTurnKeepsAWholeContainer_data()
{
    QTest::addColumn<QString>("pathEnd");
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<qint64>("allowance");
    QTest::addColumn<bool>("keptLocally");
    QTest::newRow("the journal cannot be written")
        << QStringLiteral(".journal") << QByteArray("write") << qint64(0) << false;
    QTest::newRow("the old container will not go") << QString() << QByteArray("unlink") << qint64(0) << false;
    QTest::newRow("the copy onto the drive fails")
        << QString() << QByteArray("write") << qint64(8388608) << true;
}

void TestRekeyRoom::aFailureInTurnKeepsAWholeContainer()
{
    QFETCH(QString, pathEnd);
    QFETCH(QByteArray, calls);
    QFETCH(qint64, allowance);
    QFETCH(bool, keptLocally);
    QVERIFY(FailureInjection::isAvailable());
    MountedDrive drive(MountedDrive::Kind::Tmpfs, 48 * MiB);
    QString onDrive;
    if (!setUpDrive(drive, onDrive)) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    const QByteArray bytes = TestFiles::read(onDrive);
    QString preserved;
    {
        const FailureInjection injection(onDrive + pathEnd + QLatin1Char('$'), calls, allowance);
        QVERIFY(!m_fixture.vault().rekeyVault(onDrive, TestFiles::password(), NewPassword, {}, &preserved));
    }
    QVERIFY(m_fixture.vault().lastFailure().reason != Failure::Reason::None);
    if (!keptLocally) {
        QVERIFY(preserved.isEmpty());
        QVERIFY(workFolders().isEmpty());
        QCOMPARE(TestFiles::read(onDrive), bytes);
        QCOMPARE(drive.rootNames(), QStringList({QStringLiteral("velmarin.vltx")}));
        QVERIFY(!VaultContents::opens(onDrive, NewPassword));
        exportsEveryFile(onDrive, TestFiles::password());
        return;
    }
    // The old container went first; the re-keyed one is whole on the local disk and opens with the
    // new password only.
    QVERIFY(!QFileInfo::exists(onDrive));
    QVERIFY(
        QFileInfo(preserved).absolutePath().startsWith(m_temp.path() + QStringLiteral("/Velmarin-compact-")));
    exportsEveryFile(preserved, NewPassword);
    QVERIFY(!VaultContents::opens(preserved, TestFiles::password()));
    // The journal on the drive names it: the next unlock, with the new password, puts it back.
    VaultManager again;
    QVERIFY(again.unlock(onDrive, NewPassword));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::ContainerRestored);
    QVERIFY(again.lock());
    QCOMPARE(drive.rootNames(), QStringList({QStringLiteral("velmarin.vltx")}));
    exportsEveryFile(onDrive, NewPassword);
}

void TestRekeyRoom::aLocalDiskWithoutRoomIsRefusedFirst()
{
    MountedDrive local(MountedDrive::Kind::Tmpfs, 16 * MiB);
    if (!local.isMounted()) {
        QTest::qSkip(qPrintable(local.skipReason()), __FILE__, __LINE__);
        return;
    }
    const QString source = path(QStringLiteral("doc.bin"));
    QVERIFY(TestFiles::writePattern(source, 17 * MiB, 3));
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("doc.bin")));
    QVERIFY(m_fixture.vault().lock());
    const QByteArray bytes = TestFiles::read(container());
    // 8 MiB of header and 17 MiB of blocks do not fit 16 MiB.
    qputenv("TMPDIR", local.path().toUtf8());
    QVERIFY(!rekey());
    qputenv("TMPDIR", m_temp.path().toUtf8());
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::NoSpace);
    QCOMPARE(m_fixture.vault().lastFailure().path, local.path());
    QVERIFY(QDir(local.path()).entryList({QStringLiteral("Velmarin-compact-*")}, QDir::Dirs).isEmpty());
    QCOMPARE(TestFiles::read(container()), bytes);
}

void TestRekeyRoom::aFatDriveRefusesAContainerPastItsLimit()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QVERIFY(m_fixture.vault().lock());
    const QString onFat = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(onFat));
    {
        // An index (authentic, as a lying one can be) whose live blocks make more than 4 GiB.
        LockedVaultEditor editor;
        QVERIFY(editor.open(onFat, TestFiles::password()));
        FileEntry huge;
        huge.id = QStringLiteral("enorme");
        huge.vaultPath = QStringLiteral("enorme.bin");
        huge.lastModifiedUtc = QDateTime::currentDateTimeUtc();
        huge.sha256 = QByteArray(32, '\0');
        for (int i = 0; i < 257; ++i) {
            const qint64 size = PayloadStore::BlockSize;
            huge.blocks.append(
                BlockEntry{ContainerFile::PayloadOffset, size, size + 16, QByteArray(24, 'n')});
            huge.sizeBytes += size;
        }
        editor.index().upsertFile(huge);
        QVERIFY(editor.save());
    }
    const QByteArray bytes = TestFiles::read(onFat);
    QVERIFY(!m_fixture.vault().rekeyVault(onFat, TestFiles::password(), NewPassword, {}, nullptr));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::FileTooLargeForFileSystem);
    QCOMPARE(m_fixture.vault().lastFailure().path, onFat);
    QCOMPARE(TestFiles::read(onFat), bytes);
    QVERIFY(workFolders().isEmpty());
}

QTEST_GUILESS_MAIN(TestRekeyRoom)
#include "tst_rekeyroom.moc"
