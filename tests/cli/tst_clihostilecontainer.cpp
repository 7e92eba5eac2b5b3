// What a stick someone else had in hand can hold under the container's name, and a header that asks
// for hours of key derivation: velmarin-cli answers at once, says why, and exits as for a container
// it cannot open.
#include "CliRunner.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerHeader.h"

#include <QTemporaryDir>
#include <QtTest>

#include <climits>
#include <sys/stat.h>

using namespace Velmarin::Core;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

class TestCliHostileContainer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void aPipeNamedLikeTheContainerIsRefusedAtOnce();
    void aLinkToAContainerIsRefused();
    void aHeaderAskingForHoursOfDerivationIsRefused();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
};

void TestCliHostileContainer::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("uma senha nova e longa"));
}

void TestCliHostileContainer::aPipeNamedLikeTheContainerIsRefusedAtOnce()
{
    const QString pipe = path(QStringLiteral("velmarin.vltx"));
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QVERIFY(TestFiles::write(path(QStringLiteral("a.txt")), "a"));
    const QString refusal =
        QStringLiteral(
            "%1 não é um arquivo comum: é uma pasta, um pipe, um dispositivo ou um link. Ele não foi "
            "aberto.")
            .arg(pipe);
    const QList<QStringList> commands{{QStringLiteral("info"), pipe},
                                      {QStringLiteral("ls"), pipe},
                                      {QStringLiteral("verify"), pipe},
                                      {QStringLiteral("import"), pipe, QStringLiteral("a.txt")},
                                      {QStringLiteral("passwd"), pipe}};
    for (const QStringList& arguments : commands) {
        // A run that waited on the pipe would be killed by the runner's own time limit.
        const CliResult result = m_cli->run(arguments);
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(result.errorLines(), QStringList{refusal});
    }
}

void TestCliHostileContainer::aLinkToAContainerIsRefused()
{
    const QString target = path(QStringLiteral("real.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(target));
    const QByteArray before = TestFiles::read(target);
    const QString link = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(QFile::link(target, link));
    QVERIFY(TestFiles::write(path(QStringLiteral("a.txt")), "a"));
    const CliResult result = m_cli->run({QStringLiteral("import"), link, QStringLiteral("a.txt")});
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(
        result.errorLines(),
        QStringList{QStringLiteral("%1 não é um arquivo comum: é uma pasta, um pipe, um dispositivo ou um "
                                   "link. Ele não foi aberto.")
                        .arg(link)});
    QCOMPARE(TestFiles::read(target), before);
}

void TestCliHostileContainer::aHeaderAskingForHoursOfDerivationIsRefused()
{
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    ContainerHeader header;
    QVERIFY(ContainerFile().readHeader(container, header));
    header.crypto.kdf = QStringLiteral("PBKDF2");
    header.crypto.kdfIterations = INT_MAX;
    QVERIFY(ContainerFile().rewriteHeader(container, header));
    const QByteArray altered = TestFiles::read(container);
    const QString refusal =
        QStringLiteral("O cabeçalho deste container pede um cálculo de chave tão demorado que travaria o "
                       "programa por horas. O container não foi aberto: o cabeçalho pode ter sido alterado.");
    for (const QString& command :
         {QStringLiteral("ls"), QStringLiteral("verify"), QStringLiteral("passwd")}) {
        const CliResult result = m_cli->run({command, container});
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(result.errorLines().last(), refusal);
    }
    QCOMPARE(TestFiles::read(container), altered);
}

QTEST_GUILESS_MAIN(TestCliHostileContainer)
#include "tst_clihostilecontainer.moc"
