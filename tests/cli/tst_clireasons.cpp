// When the engine refuses, velmarin-cli keeps its own line and says why on the next one, with the
// exit code the reason stands for. Drives that fail come from the preloaded failure shim.
#include "CliRunner.h"
#include "FailureInjection.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;

class TestCliReasons : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void importIntoAFullDriveSaysWhy();
    void exportToAFolderThatFailsSaysWhyAndLeavesNoFile();
    void createWhereNothingCanBeWrittenSaysWhy();
    void passwdWhoseHeaderCannotBeWrittenSaysWhy();
    void mkdirThroughAFileNamesThePath();
    void importLeavesOutWhatIsInsideAFolderItCouldNotMake();
    void unlockOfAnAlteredIndexSaysThePasswordWasRight();
    void aContainerOfANewerVersionAsksForANewerProgram();
    void aContainerTheDriveWillNotReadIsNotCalledForeign();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult run(const QString& command, const QStringList& arguments = {}) const;
    // The same, with the calls named failing on paths containing pathPart while it runs.
    CliResult runFailing(const QString& pathPart, const QByteArray& calls,
                         const QStringList& arguments) const;
    QStringList vaultFiles() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliReasons::initTestCase()
{
    QVERIFY(FailureInjection::isAvailable());
}

void TestCliReasons::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

CliResult TestCliReasons::run(const QString& command, const QStringList& arguments) const
{
    return m_cli->run(QStringList{command, m_container} + arguments);
}

CliResult TestCliReasons::runFailing(const QString& pathPart, const QByteArray& calls,
                                     const QStringList& arguments) const
{
    const FailureInjection injection(pathPart, calls);
    // A runner takes the environment as it is when made, the shim's variables with it.
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
    cli.useTestPassword();
    cli.setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("uma senha nova e longa"));
    return cli.run(arguments);
}

QStringList TestCliReasons::vaultFiles() const
{
    VaultManager vault;
    QStringList paths;
    if (vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly)) {
        for (const auto& file : vault.index().files()) {
            paths << file.vaultPath;
        }
    }
    paths.sort();
    return paths;
}

void TestCliReasons::importIntoAFullDriveSaysWhy()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("grande.bin")), 100000, 7));
    const QByteArray before = TestFiles::read(m_container);

    // Every write to the container finds the drive full, as the system says it.
    const CliResult result =
        runFailing(m_container + QLatin1Char('$'), "write",
                   {QStringLiteral("import"), m_container, QStringLiteral("grande.bin")});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0), QStringLiteral("Não foi possível importar grande.bin."));
    QVERIFY2(
        lines.at(1).startsWith(QStringLiteral("Não há espaço livre suficiente na unidade do container (")) &&
            lines.at(1).endsWith(QStringLiteral(").")),
        qPrintable(lines.at(1)));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(vaultFiles().isEmpty());
}

void TestCliReasons::exportToAFolderThatFailsSaysWhyAndLeavesNoFile()
{
    QVERIFY(TestFiles::write(path(QStringLiteral("a.txt")), "conteúdo"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    const QString folder = path(QStringLiteral("saida"));
    QVERIFY(QDir().mkdir(folder));

    // Small enough to wait in the file's buffer: the write that fails is the last one.
    const CliResult result =
        runFailing(folder, "write", {QStringLiteral("export"), m_container, QStringLiteral("a.txt"), folder});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0), QStringLiteral("Não foi possível exportar o arquivo."));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível gravar a cópia exportada em %1 (")
                                        .arg(QDir::toNativeSeparators(path(QStringLiteral("saida/a.txt"))))),
             qPrintable(lines.at(1)));
    QVERIFY(QDir(folder).isEmpty());
}

void TestCliReasons::createWhereNothingCanBeWrittenSaysWhy()
{
    QVERIFY(QDir().mkdir(path(QStringLiteral("unidade"))));
    const QString container = path(QStringLiteral("unidade/novo.vltx"));

    const CliResult result =
        runFailing(path(QStringLiteral("unidade")), "open-write", {QStringLiteral("create"), container});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0), QStringLiteral("Não foi possível criar o cofre."));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível gravar em %1").arg(container)),
             qPrintable(lines.at(1)));
    QVERIFY(QDir(path(QStringLiteral("unidade"))).isEmpty());
}

void TestCliReasons::passwdWhoseHeaderCannotBeWrittenSaysWhy()
{
    // The journal beside the container is written; the container itself is not.
    const CliResult result =
        runFailing(m_container + QLatin1Char('$'), "write", {QStringLiteral("passwd"), m_container});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0), QStringLiteral("Falha ao alterar a senha."));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível gravar em %1").arg(m_container)),
             qPrintable(lines.at(1)));
}

void TestCliReasons::mkdirThroughAFileNamesThePath()
{
    QVERIFY(TestFiles::write(path(QStringLiteral("a.txt")), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    const QByteArray before = TestFiles::read(m_container);

    const CliResult result = run(QStringLiteral("mkdir"), {QStringLiteral("a.txt/b")});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("Não foi possível criar a pasta."),
                          QStringLiteral("O caminho a.txt/b não pode ser usado no cofre.")}));
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliReasons::importLeavesOutWhatIsInsideAFolderItCouldNotMake()
{
    QVERIFY(TestFiles::write(path(QStringLiteral("a.txt")), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    QVERIFY(QDir().mkpath(path(QStringLiteral("arvore/a.txt"))));
    QVERIFY(TestFiles::write(path(QStringLiteral("arvore/a.txt/dentro.txt")), "d"));
    QVERIFY(TestFiles::write(path(QStringLiteral("outro.txt")), "o"));

    // The file in the way is the reason; what the folder held is not tried, the rest comes in.
    const CliResult result =
        run(QStringLiteral("import"), {QStringLiteral("arvore/a.txt"), QStringLiteral("outro.txt")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList({QStringLiteral("Não foi possível criar a pasta a.txt."),
                                               QStringLiteral("Já existe um item com esse nome nesta pasta."),
                                               QStringLiteral("Arquivo importado com sucesso.")}));
    QCOMPARE(vaultFiles(), QStringList({QStringLiteral("a.txt"), QStringLiteral("outro.txt")}));
}

void TestCliReasons::unlockOfAnAlteredIndexSaysThePasswordWasRight()
{
    // One character of the sealed index changed: still a header, still the right password.
    QByteArray bytes = TestFiles::read(m_container);
    const QByteArray key = QByteArrayLiteral("\"encryptedIndex\":\"");
    const qsizetype at = bytes.indexOf(key);
    QVERIFY(at > 0);
    char& changed = bytes[at + key.size() + 20];
    changed = changed == 'B' ? 'C' : 'B';
    QVERIFY(TestFiles::write(m_container, bytes));

    const CliResult result = run(QStringLiteral("ls"));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o "
                                         "container foi alterado."),
                          QStringLiteral("O índice do cofre está danificado ou foi alterado.")}));
}

void TestCliReasons::aContainerOfANewerVersionAsksForANewerProgram()
{
    QByteArray bytes = TestFiles::read(m_container);
    QVERIFY(bytes.startsWith("VLTBOX3"));
    bytes[6] = '4';
    QVERIFY(TestFiles::write(m_container, bytes));

    for (const QString& command : {QStringLiteral("info"), QStringLiteral("ls"), QStringLiteral("verify")}) {
        const CliResult result = run(command);
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(result.errorLines(),
                 QStringList{QStringLiteral("Este container foi criado por uma versão mais nova "
                                            "do Velmarin. Atualize o programa para abri-lo.")});
    }
    QCOMPARE(TestFiles::read(m_container), bytes);
}

void TestCliReasons::aContainerTheDriveWillNotReadIsNotCalledForeign()
{
    const CliResult result =
        runFailing(m_container + QLatin1Char('$'), "open-read", {QStringLiteral("info"), m_container});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.at(0).startsWith(QStringLiteral("Não foi possível ler o container %1 (").arg(m_container)),
             qPrintable(lines.at(0)));
}

QTEST_GUILESS_MAIN(TestCliReasons)
#include "tst_clireasons.moc"
