// velmarin-cli on a FAT32 stick: a container that would pass 4 GiB refused before anything is
// written, and a drive that does not tell its free space used all the same.
#include "CliRunner.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::MountedDrive;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 MiB = 1024 * 1024;

const QString FatLimitText = QStringLiteral(
    "O container ficaria maior que 4 GB, o limite de tamanho de arquivo do sistema de arquivos FAT32 desta "
    "unidade.\n\nFormate a unidade como exFAT ou NTFS para guardar mais de 4 GB no cofre, depois de copiar o "
    "container para outro lugar: "
    "formatar apaga tudo o que está na unidade.");

} // namespace

class TestCliDriveLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void anImportPastFatsLimitIsRefusedBeforeAnythingIsWritten();
    void aDriveThatDoesNotTellItsFreeSpaceStillTakesFiles();
    void aBackupTooLargeForTheFatDriveIsRefused();

private:
    CliResult run(const QStringList& arguments) const;

    std::unique_ptr<QTemporaryDir> m_local;
    std::unique_ptr<MountedDrive> m_drive;
    QString m_container;
};

void TestCliDriveLimits::init()
{
    m_local = std::make_unique<QTemporaryDir>();
    QVERIFY(m_local->isValid());
    m_drive = std::make_unique<MountedDrive>(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!m_drive->isMounted()) {
        QTest::qSkip(qPrintable(m_drive->skipReason()), __FILE__, __LINE__);
        return;
    }
    m_container = m_drive->filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestCliDriveLimits::cleanup()
{
    m_drive.reset();
    m_local.reset();
}

CliResult TestCliDriveLimits::run(const QStringList& arguments) const
{
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_local->path());
    cli.useTestPassword();
    return cli.run(arguments);
}

void TestCliDriveLimits::anImportPastFatsLimitIsRefusedBeforeAnythingIsWritten()
{
    // 4.06 GiB.
    const QString film = m_local->filePath(QStringLiteral("filme.mkv"));
    QVERIFY(TestFiles::makeSparse(film, Q_INT64_C(4359283343)));
    const QByteArray before = TestFiles::read(m_container);
    const CliResult result = run({QStringLiteral("import"), m_container, film});
    QCOMPARE(result.exitCode, 1);
    QVERIFY2(QString::fromUtf8(result.errors).contains(FatLimitText), result.errors.constData());
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliDriveLimits::aDriveThatDoesNotTellItsFreeSpaceStillTakesFiles()
{
    const QString photo = m_local->filePath(QStringLiteral("foto.jpg"));
    QVERIFY(TestFiles::writePattern(photo, 3 * MiB, 11));
    const CliResult result = run({QStringLiteral("import"), m_container, photo});
    QVERIFY2(result.exitCode == 0, result.errors.constData());
    const QString back = m_local->filePath(QStringLiteral("de-volta.jpg"));
    QCOMPARE(run({QStringLiteral("export"), m_container, QStringLiteral("foto.jpg"), back}).exitCode, 0);
    QVERIFY(TestFiles::sameContents(photo, back));
}

void TestCliDriveLimits::aBackupTooLargeForTheFatDriveIsRefused()
{
    const QString large = m_local->filePath(QStringLiteral("velmarin.vltx"));
    // A vault with 4 GiB of dead space after its payload, which takes no room on the computer.
    QVERIFY(TestFiles::copyEmptyVault(large));
    QVERIFY(TestFiles::makeSparse(large, Q_INT64_C(4294967296)));
    const QString destination = m_drive->filePath(QStringLiteral("copia.vltx"));
    const CliResult result = run({QStringLiteral("backup"), large, destination});
    QCOMPARE(result.exitCode, 1);
    QVERIFY2(QString::fromUtf8(result.errors).contains(FatLimitText), result.errors.constData());
    QVERIFY(!QFileInfo::exists(destination));
}

QTEST_GUILESS_MAIN(TestCliDriveLimits)
#include "tst_clidrivelimits.moc"
