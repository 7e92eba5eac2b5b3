// The window on a drive whose file system limits a file's size: FAT's 4 GiB refused before
// anything is written, and a file system's own refusal told with the same words.
#include "FileSizeLimit.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "WindowFixture.h"

#include <QAction>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::FileSizeLimit;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::MountedDrive;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;

const QString FatLimitText = QStringLiteral(
    "O container ficaria maior que 4 GB, o limite de tamanho de arquivo do sistema de arquivos FAT32 desta "
    "unidade.\n\nFormate a unidade como exFAT ou NTFS para guardar mais de 4 GB no cofre, depois de copiar o "
    "container para outro lugar: "
    "formatar apaga tudo o que está na unidade.");

} // namespace

class DriveLimitsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void anImportPastFatsLimitIsRefusedBeforeAnythingIsWritten();
    void aFileSystemThatRefusesTheSizeIsToldWithTheSameWords();
    void aBackupTooLargeForAFatDriveIsRefused();

private:
    WindowFixture m_fixture;
};

void DriveLimitsTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void DriveLimitsTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void DriveLimitsTest::anImportPastFatsLimitIsRefusedBeforeAnythingIsWritten()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QVERIFY(m_fixture.setUp());
    const QString container = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    const QByteArray before = TestFiles::read(container);
    m_fixture.chooseContainer(container);
    QVERIFY(m_fixture.unlock());
    // 4.06 GiB: free space is no obstacle (fusefat tells none), one FAT file is.
    const QString film = m_fixture.path(QStringLiteral("filme.mkv"));
    QVERIFY(TestFiles::makeSparse(film, Q_INT64_C(4359283343)));
    m_fixture.fakes().dialogs->fileListAnswers.push_back({film});
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();

    QCOMPARE(warning.title, QStringLiteral("Importar arquivos"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível importar os arquivos."));
    QCOMPARE(warning.informativeText, FatLimitText);
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
    QVERIFY(m_fixture.names().isEmpty());
    m_fixture.tearDown();
    QCOMPARE(TestFiles::read(container), before);
}

void DriveLimitsTest::aFileSystemThatRefusesTheSizeIsToldWithTheSameWords()
{
    QVERIFY(m_fixture.setUp());
    QVERIFY(m_fixture.unlock());
    const QString source = m_fixture.path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 3 * MiB, 3));
    const qint64 empty = QFileInfo(m_fixture.container()).size();
    m_fixture.fakes().dialogs->fileListAnswers.push_back({source});
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        const FileSizeLimit limit(empty + MiB);
        QVERIFY(limit.isSet());
        m_fixture.action(QStringLiteral("Importar..."))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível importar video.bin."));
    QVERIFY2(warning.informativeText.startsWith(FatLimitText + QStringLiteral("\n\nO sistema informou: ")),
             qPrintable(warning.informativeText));
    QVERIFY(warning.informativeText.endsWith(
        QStringLiteral("\n\nArquivos importados antes da interrupção: 0. Os demais não foram tentados.")));
    QVERIFY(m_fixture.names().isEmpty());
    QCOMPARE(QFileInfo(m_fixture.container()).size(), empty);
}

void DriveLimitsTest::aBackupTooLargeForAFatDriveIsRefused()
{
    MountedDrive drive(MountedDrive::Kind::Fat32, 64 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QVERIFY(m_fixture.setUp());
    const QString large = m_fixture.path(QStringLiteral("grande/velmarin.vltx"));
    QVERIFY(QDir().mkpath(QFileInfo(large).absolutePath()));
    // A vault with 4 GiB of dead space after its payload, which takes no room on the computer.
    QVERIFY(TestFiles::copyEmptyVault(large));
    QVERIFY(TestFiles::makeSparse(large, Q_INT64_C(4294967296)));
    m_fixture.chooseContainer(large);
    const QString destination = drive.filePath(QStringLiteral("copia.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();

    QCOMPARE(warning.title, QStringLiteral("Fazer backup"));
    QCOMPARE(warning.text, FatLimitText);
    QVERIFY(!QFileInfo::exists(destination));
}

QTEST_MAIN(DriveLimitsTest)
#include "tst_drivelimits.moc"
