// One container, two front ends: what velmarin-cli makes opens in the window, and the other way round.
#include "CliRunner.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "platform/UsbDevice.h"

#include <QAction>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QtTest>

using namespace Velmarin;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

class TestCliWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void containerMadeByTheToolOpensInTheWindow();
    void containerMadeInTheWindowOpensInTheTool();

private:
    WindowFixture m_fixture;
    std::unique_ptr<CliRunner> m_cli;
};

void TestCliWindow::init()
{
    QVERIFY(m_fixture.setUp());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_fixture.path(QString()));
    m_cli->useTestPassword();
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(TestFiles::password()));
}

void TestCliWindow::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void TestCliWindow::containerMadeByTheToolOpensInTheWindow()
{
    const QString container = m_fixture.container();
    QVERIFY(QFile::remove(container));
    QVERIFY(TestFiles::write(m_fixture.path(QStringLiteral("relatorio.pdf")), "conteúdo do relatório"));
    QCOMPARE(m_cli->run({QStringLiteral("create"), container}).exitCode, 0);
    QCOMPARE(m_cli
                 ->run({QStringLiteral("import"), container, m_fixture.path(QStringLiteral("relatorio.pdf")),
                        QStringLiteral("--to"), QStringLiteral("Docs")})
                 .exitCode,
             0);
    QCOMPARE(m_cli->run({QStringLiteral("mkdir"), container, QStringLiteral("Fotos")}).exitCode, 0);

    QVERIFY(m_fixture.unlock());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Docs"), QStringLiteral("Fotos")}));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("relatorio.pdf")}));
    QVERIFY(m_fixture.selectRow(QStringLiteral("relatorio.pdf")));
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(QStringLiteral("de-volta.pdf")));
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QCOMPARE(TestFiles::read(m_fixture.path(QStringLiteral("de-volta.pdf"))),
             QByteArray("conteúdo do relatório"));
}

void TestCliWindow::containerMadeInTheWindowOpensInTheTool()
{
    Platform::UsbDevice drive;
    drive.mountPath = m_fixture.driveRoot();
    drive.devicePath = QStringLiteral("/dev/sdb1");
    drive.label = QStringLiteral("PENDRIVE");
    drive.id = drive.mountPath;
    drive.mounted = true;
    drive.removable = true;
    m_fixture.fakes().devices->devices = {drive};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(m_fixture.deviceList()->currentRow(), 0);

    // The window's own flow: create over the drive's container, unlock, a folder, an import, lock.
    const QString container = m_fixture.container();
    QVERIFY(QFile::remove(container));
    m_fixture.fakes().dialogs->fileAnswers.push_back(container);
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QVERIFY(QFile::exists(container));
    QVERIFY(m_fixture.unlock());
    m_fixture.driver().expectInput(QStringLiteral("Viagem"));
    m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
    const QString source = m_fixture.path(QStringLiteral("roteiro.txt"));
    QVERIFY(TestFiles::writePattern(source, 300000, 5));
    m_fixture.fakes().dialogs->fileListAnswers.push_back({source});
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());

    const CliResult listed = m_cli->run({QStringLiteral("ls"), container, QStringLiteral("--json")});
    QCOMPARE(listed.exitCode, 0);
    const QJsonArray entries = QJsonDocument::fromJson(listed.output).array();
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.at(0).toObject().value(QStringLiteral("path")).toString(), QStringLiteral("Viagem"));
    QCOMPARE(entries.at(0).toObject().value(QStringLiteral("kind")).toString(), QStringLiteral("folder"));
    QCOMPARE(entries.at(1).toObject().value(QStringLiteral("path")).toString(),
             QStringLiteral("roteiro.txt"));
    QCOMPARE(entries.at(1).toObject().value(QStringLiteral("sha256")).toString().toLatin1(),
             TestFiles::sha256sum(source).toHex());

    const CliResult exported =
        m_cli->run({QStringLiteral("export"), container, QStringLiteral("roteiro.txt"), QStringLiteral("-")});
    QCOMPARE(exported.exitCode, 0);
    QCOMPARE(exported.output, TestFiles::read(source));
    QCOMPARE(m_cli->run({QStringLiteral("verify"), container}).exitCode, 0);
}

QTEST_MAIN(TestCliWindow)
#include "tst_cliwindow.moc"
