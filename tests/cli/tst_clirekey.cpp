// velmarin-cli passwd --rekey: the whole vault sealed again under a new master key, with the exit
// codes of a plain password change and of compact for the same failures.
#include "CliRunner.h"
#include "FailureInjection.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;

namespace {

const QString NewPassword = QStringLiteral("uma senha nova e longa");

bool unlocks(const QString& container, const QByteArray& password)
{
    VaultManager vault;
    return vault.unlock(container, password, VaultManager::Access::ReadOnly) && vault.lock();
}

} // namespace

class TestCliRekey : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void theHelpTellsWhatTheRekeyDoes();
    void rekeyLocksOutTheOldPasswordAndKeepsEveryFile();
    void aWrongPasswordIsRefusedAsBefore();
    void damagedFilesAreNamedAndNothingChanges();
    void aDriveThatFailsSaysWhyAndKeepsTheOldContainer();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult rekey(const QString& current) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliRekey::initTestCase()
{
    QVERIFY(FailureInjection::isAvailable());
}

void TestCliRekey::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("dados.bin")), 3 * 1024 * 1024, 2));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("sai.bin")), 200000, 3));
    QCOMPARE(m_cli
                 ->run({QStringLiteral("import"), m_container, path(QStringLiteral("dados.bin")),
                        path(QStringLiteral("sai.bin"))})
                 .exitCode,
             0);
    QCOMPARE(m_cli->run({QStringLiteral("rm"), m_container, QStringLiteral("sai.bin")}).exitCode, 0);
}

CliResult TestCliRekey::rekey(const QString& current) const
{
    // A runner takes the environment as it is when made, the shim's variables with it.
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
    cli.setVariable(QStringLiteral("VELMARIN_PASSWORD"), current);
    cli.setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    return cli.run({QStringLiteral("passwd"), m_container, QStringLiteral("--rekey")});
}

void TestCliRekey::theHelpTellsWhatTheRekeyDoes()
{
    const CliResult result = m_cli->run({QStringLiteral("passwd"), QStringLiteral("--help")});
    QCOMPARE(result.exitCode, 0);
    const QString help = QString::fromUtf8(result.output);
    QVERIFY2(help.contains(QStringLiteral("--rekey")), qPrintable(help));
    QVERIFY(help.contains(QStringLiteral("Recriptografa todo o cofre com uma chave mestra nova.")));
    // The description is wrapped: compare it word for word.
    const QString words = help.simplified();
    QVERIFY2(words.contains(QStringLiteral(
                 "Com --rekey, todo o cofre é recriptografado com uma chave mestra nova, num container novo "
                 "montado como na compactação (dados de arquivos excluídos são descartados): a senha "
                 "antiga e cabeçalhos antigos deixam de abrir o container atual. Cópias e backups antigos "
                 "continuam abrindo com a senha antiga, com o conteúdo que tinham.")),
             qPrintable(words));
}

void TestCliRekey::rekeyLocksOutTheOldPasswordAndKeepsEveryFile()
{
    const QString copy = path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_container, copy));
    const qint64 before = QFileInfo(m_container).size();
    const CliResult result = rekey(QString::fromUtf8(TestFiles::password()));
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Senha alterada e cofre recriptografado com sucesso.")});
    // The removed file's blocks went with the old container.
    QVERIFY(QFileInfo(m_container).size() <= before - 200000);
    QVERIFY(!unlocks(m_container, TestFiles::password()));
    QVERIFY(unlocks(m_container, NewPassword.toUtf8()));
    QVERIFY(unlocks(copy, TestFiles::password()));
    QVERIFY(!unlocks(copy, NewPassword.toUtf8()));

    m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), NewPassword);
    const CliResult exported =
        m_cli->run({QStringLiteral("export"), m_container, QStringLiteral("dados.bin"), QStringLiteral("-")});
    QCOMPARE(exported.exitCode, 0);
    QCOMPARE(exported.output, TestFiles::read(path(QStringLiteral("dados.bin"))));
}

void TestCliRekey::aWrongPasswordIsRefusedAsBefore()
{
    const QByteArray before = TestFiles::read(m_container);
    const CliResult result = rekey(QStringLiteral("não é a senha"));
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral(
                 "Não foi possível alterar a senha. Verifique a senha atual e tente novamente.")});
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliRekey::damagedFilesAreNamedAndNothingChanges()
{
    {
        VaultManager vault;
        QVERIFY(vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly));
        const auto& block = vault.index().findFile(QStringLiteral("dados.bin"))->blocks.first();
        QFile file(m_container);
        QVERIFY(file.open(QIODevice::ReadWrite));
        char byte = 0;
        QVERIFY(file.seek(block.offset + 10) && file.getChar(&byte));
        QVERIFY(file.seek(block.offset + 10) && file.putChar(static_cast<char>(byte ^ 0x01)));
        vault.lock();
    }
    const QByteArray before = TestFiles::read(m_container);
    const CliResult result = rekey(QString::fromUtf8(TestFiles::password()));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("A senha não foi alterada porque estes arquivos estão danificados:"),
                          QStringLiteral("dados.bin"),
                          QStringLiteral("Nada foi alterado: o container continua como estava.")}));
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliRekey::aDriveThatFailsSaysWhyAndKeepsTheOldContainer()
{
    const QByteArray before = TestFiles::read(m_container);
    CliResult result;
    {
        // The new container cannot be written beside the old one.
        const FailureInjection injection(m_container + QStringLiteral(".new$"), "write");
        result = rekey(QString::fromUtf8(TestFiles::password()));
    }
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(0), QStringLiteral("Falha ao alterar a senha."));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível gravar em %1").arg(m_container)),
             qPrintable(lines.at(1)));
    QCOMPARE(TestFiles::read(m_container), before);
    QVERIFY(unlocks(m_container, TestFiles::password()));
}

QTEST_GUILESS_MAIN(TestCliRekey)
#include "tst_clirekey.moc"
