// One session per container: velmarin-cli beside the window's engine and beside another velmarin-cli.
#include "CliRunner.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerLock.h"

#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QThread>
#include <QtTest>

using Velmarin::Core::ContainerLock;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

const QString InUse = QStringLiteral("Este cofre já está aberto em outra janela ou programa do Velmarin.");

} // namespace

class TestCliLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void everyCommandWaitsForTheWindowsSession_data();
    void everyCommandWaitsForTheWindowsSession();
    void aSecondCommandWaitsForTheFirst();
    void commandsTakeNoWorkspace();

private:
    CliResult run(const QString& command, const QStringList& arguments = {}) const;

    VaultFixture m_fixture;
    std::unique_ptr<CliRunner> m_cli;
};

void TestCliLock::init()
{
    QVERIFY(m_fixture.setUp());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_fixture.path(QString()));
    m_cli->useTestPassword();
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("uma senha nova e longa"));
}

void TestCliLock::cleanup()
{
    m_fixture.tearDown();
}

CliResult TestCliLock::run(const QString& command, const QStringList& arguments) const
{
    return m_cli->run(QStringList{command, m_fixture.container()} + arguments);
}

void TestCliLock::everyCommandWaitsForTheWindowsSession_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("ls") << QStringLiteral("ls") << QStringList();
    QTest::newRow("import") << QStringLiteral("import") << QStringList{QStringLiteral("novo.txt")};
    QTest::newRow("export") << QStringLiteral("export")
                            << QStringList{QStringLiteral("guardado.txt"), QStringLiteral("saida.txt")};
    QTest::newRow("mkdir") << QStringLiteral("mkdir") << QStringList{QStringLiteral("Pasta")};
    QTest::newRow("rm") << QStringLiteral("rm") << QStringList{QStringLiteral("guardado.txt")};
    QTest::newRow("verify") << QStringLiteral("verify") << QStringList();
    QTest::newRow("compact") << QStringLiteral("compact") << QStringList();
    QTest::newRow("passwd") << QStringLiteral("passwd") << QStringList();
    QTest::newRow("backup") << QStringLiteral("backup") << QStringList{QStringLiteral("copia.vltx")};
}

void TestCliLock::everyCommandWaitsForTheWindowsSession()
{
    QFETCH(QString, command);
    QFETCH(QStringList, arguments);
    QVERIFY(TestFiles::write(m_fixture.path(QStringLiteral("novo.txt")), "novo"));
    QVERIFY(m_fixture.importText(QStringLiteral("guardado.txt"), "guardado"));
    const QByteArray before = TestFiles::read(m_fixture.container());

    const CliResult refused = run(command, arguments);
    QCOMPARE(refused.exitCode, 5);
    QCOMPARE(refused.errorLines(), QStringList{InUse});
    QVERIFY(refused.output.isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFile::exists(m_fixture.path(QStringLiteral("copia.vltx"))));
    QVERIFY(!QFile::exists(m_fixture.path(QStringLiteral("saida.txt"))));

    // The window's session goes on as if nothing happened, and once it locks the tool gets in.
    QVERIFY(m_fixture.importText(QStringLiteral("depois.txt"), "depois"));
    QVERIFY(m_fixture.vault().lock());
    const CliResult verified = run(QStringLiteral("verify"));
    QCOMPARE(verified.exitCode, 0);
    QVERIFY(verified.errorLines().contains(QStringLiteral("Nenhum dano encontrado.")));
    const CliResult listed = run(QStringLiteral("ls"));
    QCOMPARE(listed.exitCode, 0);
    QCOMPARE(listed.outputLines().size(), 2);
    QCOMPARE(run(command, arguments).exitCode, 0);
}

void TestCliLock::aSecondCommandWaitsForTheFirst()
{
    const QByteArray contents = TestFiles::pattern(40 * 1024 * 1024 + 3, 9);
    QVERIFY(m_fixture.importText(QStringLiteral("grande.bin"), contents));
    QVERIFY(m_fixture.vault().lock());

    // Its output is left unread, so the first export stalls on a full pipe with the vault open.
    const std::unique_ptr<QProcess> first = m_cli->start(
        {QStringLiteral("export"), m_fixture.container(), QStringLiteral("grande.bin"), QStringLiteral("-")});
    QVERIFY(first->waitForStarted());
    QElapsedTimer waited;
    waited.start();
    while (!ContainerLock::isInUse(m_fixture.container()) && waited.elapsed() < 60000) {
        QThread::msleep(20);
    }
    QVERIFY(ContainerLock::isInUse(m_fixture.container()));

    for (const QStringList& arguments :
         {QStringList{QStringLiteral("ls")}, QStringList{QStringLiteral("mkdir"), QStringLiteral("Pasta")}}) {
        const CliResult second = run(arguments.first(), arguments.mid(1));
        QCOMPARE(second.exitCode, 5);
        QCOMPARE(second.errorLines(), QStringList{InUse});
    }

    // The first is not disturbed: every byte arrives and it ends well.
    QByteArray exported;
    do {
        exported += first->readAllStandardOutput();
    } while (first->waitForReadyRead(30000));
    exported += first->readAllStandardOutput();
    QVERIFY(first->state() == QProcess::NotRunning || first->waitForFinished(30000));
    QCOMPARE(first->exitStatus(), QProcess::NormalExit);
    QCOMPARE(first->exitCode(), 0);
    QCOMPARE(exported.size(), contents.size());
    QVERIFY(exported == contents);
    QCOMPARE(run(QStringLiteral("verify")).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Pasta")}).exitCode, 0);
}

void TestCliLock::commandsTakeNoWorkspace()
{
    // Only the window opens files for editing: commands make no workspace anywhere, so another
    // account's folder where workspaces once went cannot stop them. The user's folders get only the
    // record of the states this computer saw of the container.
    QVERIFY(m_fixture.vault().lock());
    const QString temporary = m_fixture.path(QStringLiteral("tmp"));
    const QString home = m_fixture.path(QStringLiteral("casa"));
    QVERIFY(QDir().mkpath(temporary) && QDir().mkpath(home));
    QVERIFY(TestFiles::write(temporary + QStringLiteral("/Velmarin"), "de outra conta"));
    const QString source = m_fixture.path(QStringLiteral("nota.txt"));
    QVERIFY(TestFiles::write(source, "nota"));
    m_cli->setVariable(QStringLiteral("TMPDIR"), temporary);
    m_cli->setVariable(QStringLiteral("HOME"), home);
    m_cli->setVariable(QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
    m_cli->setVariable(QStringLiteral("XDG_STATE_HOME"), home + QStringLiteral("/.local/state"));

    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Pasta")}).exitCode, 0);
    QCOMPARE(
        run(QStringLiteral("import"), {source, QStringLiteral("--to"), QStringLiteral("Pasta")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("rename"), {QStringLiteral("Pasta/nota.txt"), QStringLiteral("outra.txt")})
                 .exitCode,
             0);
    QCOMPARE(run(QStringLiteral("rm"), {QStringLiteral("Pasta/outra.txt")}).exitCode, 0);
    QStringList written;
    QDirIterator entries(home, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                         QDirIterator::Subdirectories);
    while (entries.hasNext()) {
        written.append(QDir(home).relativeFilePath(entries.next()));
    }
    QCOMPARE(written.size(), 1);
    QVERIFY2(QRegularExpression(QStringLiteral("^\\.local/share/Velmarin/states/[0-9a-f]{32}$"))
                 .match(written.constFirst())
                 .hasMatch(),
             qPrintable(written.constFirst()));
    QCOMPARE(QDir(temporary).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{QStringLiteral("Velmarin")});
}

QTEST_GUILESS_MAIN(TestCliLock)
#include "tst_clilock.moc"
