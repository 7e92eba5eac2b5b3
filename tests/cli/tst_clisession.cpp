// velmarin-cli's own surface and the locked-container commands: help, version, usage errors,
// every password source, create, info, passwd and backup, with their exit codes and messages.
#include "CliRunner.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

const QString NewPassword = QStringLiteral("uma senha nova e longa");
const QString NoPasswordMessage = QStringLiteral(
    "Informe a senha com --password-file, com a variável VELMARIN_PASSWORD ou em um terminal.");
const QString UnlockFailure =
    QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o container foi alterado.");
const QStringList Commands{QStringLiteral("create"), QStringLiteral("info"),   QStringLiteral("ls"),
                           QStringLiteral("import"), QStringLiteral("export"), QStringLiteral("mkdir"),
                           QStringLiteral("rmdir"),  QStringLiteral("rm"),     QStringLiteral("mv"),
                           QStringLiteral("rename"), QStringLiteral("passwd"), QStringLiteral("compact"),
                           QStringLiteral("backup"), QStringLiteral("verify")};

QStringList args(std::initializer_list<const char*> items)
{
    QStringList list;
    for (const char* item : items) {
        list << QString::fromUtf8(item);
    }
    return list;
}

bool unlocks(const QString& container, const QByteArray& password)
{
    Velmarin::Core::VaultManager vault;
    return vault.unlock(container, password, Velmarin::Core::VaultManager::Access::ReadOnly) && vault.lock();
}

} // namespace

class TestCliSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void helpListsEveryCommandAndTheExitCodes();
    void everyCommandHasItsOwnHelp_data();
    void everyCommandHasItsOwnHelp();
    void versionIsTheProducts();
    void usageErrors_data();
    void usageErrors();
    void createWithEachNewPasswordSource_data();
    void createWithEachNewPasswordSource();
    void createRefusals();
    void passwordsAreBytesEvenWhenNotUtf8();
    void createIntoAFolderUsesTheDefaultName();
    void unlockWithEachPasswordSource();
    void passwordSourceProblems_data();
    void passwordSourceProblems();
    void badContainers_data();
    void badContainers();
    void infoReadsTheHeaderWithoutAPassword();
    void passwdChangesOnlyThePassword();
    void passwdRefusals();
    void backupCopiesByteForByte();
    void backupRefusals();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliSession::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestCliSession::helpListsEveryCommandAndTheExitCodes()
{
    for (const QString& option : {QStringLiteral("--help"), QStringLiteral("-h"), QStringLiteral("help")}) {
        const CliResult result = m_cli->run({option});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.errors.isEmpty());
        const QStringList lines = result.outputLines();
        QCOMPARE(lines.first(),
                 QStringLiteral("Uso: velmarin-cli <comando> [opções] <container> [argumentos]"));
        for (const QString& command : Commands) {
            QVERIFY2(lines.filter(QRegularExpression(QStringLiteral("^  %1 +\\S").arg(command))).size() == 1,
                     qPrintable(command));
        }
        for (const QString& code :
             {QStringLiteral("  0  sucesso"), QStringLiteral("  1  a operação falhou"),
              QStringLiteral("  2  uso incorreto: argumentos, caminho ou nome inválidos"),
              QStringLiteral("  3  não é um container, senha incorreta ou container alterado"),
              QStringLiteral("  4  verify ou compact encontrou danos"),
              QStringLiteral("  5  o cofre está aberto em outra janela ou programa do Velmarin")}) {
            QVERIFY2(lines.contains(code), qPrintable(code));
        }
        QVERIFY(result.output.contains("VELMARIN_PASSWORD"));
        QVERIFY(result.output.contains("--new-password-file"));
    }
    // Without any argument the same help goes to standard error, as a usage error.
    const CliResult bare = m_cli->run({});
    QCOMPARE(bare.exitCode, 2);
    QVERIFY(bare.output.isEmpty());
    QVERIFY(bare.errors.startsWith("Uso: velmarin-cli <comando>"));
}

void TestCliSession::everyCommandHasItsOwnHelp_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("usage");
    QTest::addColumn<QStringList>("options");
    const QString password = QStringLiteral("--password-file <arquivo>");
    const QString newPassword = QStringLiteral("--new-password-file <arquivo>");
    QTest::newRow("create") << "create"
                            << "<container>" << QStringList{QStringLiteral("--force"), newPassword};
    QTest::newRow("info") << "info"
                          << "<container>" << QStringList{QStringLiteral("--json")};
    QTest::newRow("ls") << "ls"
                        << "<container> [pasta]"
                        << QStringList{QStringLiteral("--recursive"), QStringLiteral("--json"), password};
    QTest::newRow("import") << "import"
                            << "<container> <arquivo-ou-pasta>..."
                            << QStringList{QStringLiteral("--to <pasta>"), QStringLiteral("--replace"),
                                           password};
    QTest::newRow("export") << "export"
                            << "<container> <caminho-no-cofre> <destino>"
                            << QStringList{QStringLiteral("--force"), password};
    QTest::newRow("mkdir") << "mkdir"
                           << "<container> <caminho-no-cofre>" << QStringList{password};
    QTest::newRow("rmdir") << "rmdir"
                           << "<container> <caminho-no-cofre>" << QStringList{password};
    QTest::newRow("rm") << "rm"
                        << "<container> <caminho-no-cofre>" << QStringList{password};
    QTest::newRow("mv") << "mv"
                        << "<container> <caminho-no-cofre> <pasta>" << QStringList{password};
    QTest::newRow("rename") << "rename"
                            << "<container> <caminho-no-cofre> <nome-novo>" << QStringList{password};
    QTest::newRow("passwd") << "passwd"
                            << "<container>" << QStringList{password, newPassword};
    QTest::newRow("compact") << "compact"
                             << "<container>" << QStringList{password};
    QTest::newRow("backup") << "backup"
                            << "<container> <destino>" << QStringList{QStringLiteral("--force")};
    QTest::newRow("verify") << "verify"
                            << "<container>" << QStringList{QStringLiteral("--json"), password};
    QTest::newRow("recover") << "recover"
                             << "<container>" << QStringList{QStringLiteral("--force"), password};
}

void TestCliSession::everyCommandHasItsOwnHelp()
{
    QFETCH(QString, command);
    QFETCH(QString, usage);
    QFETCH(QStringList, options);
    const CliResult result = m_cli->run({command, QStringLiteral("--help")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.errors.isEmpty());
    const QStringList lines = result.outputLines();
    QCOMPARE(lines.first(), QStringLiteral("Uso: velmarin-cli %1 [opções] %2").arg(command, usage));
    for (const QString& option : options + QStringList{QStringLiteral("-h, --help")}) {
        QVERIFY2(lines.filter(QRegularExpression(
                                  QStringLiteral("^  %1 +\\S").arg(QRegularExpression::escape(option))))
                         .size() == 1,
                 qPrintable(option));
    }
    QCOMPARE(lines.last(), QStringLiteral("Códigos de saída: veja \"velmarin-cli --help\"."));
    // A command that asks no password offers no password option.
    if (!options.contains(QStringLiteral("--password-file <arquivo>"))) {
        QVERIFY(!result.output.contains("--password-file"));
    }
}

void TestCliSession::versionIsTheProducts()
{
    const CliResult result = m_cli->run({QStringLiteral("--version")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output, QByteArray("velmarin-cli 1.0.5\n"));
    QVERIFY(result.errors.isEmpty());
}

void TestCliSession::usageErrors_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("message");
    QTest::newRow("unknown command") << args({"frob", "c.vltx"}) << "Comando desconhecido: frob";
    QTest::newRow("unknown tool option") << args({"--frob"}) << "Opção desconhecida: --frob";
    QTest::newRow("unknown option") << args({"ls", "c.vltx", "--bogus"}) << "Opção desconhecida: --bogus";
    QTest::newRow("unknown short option") << args({"ls", "-q", "c.vltx"}) << "Opção desconhecida: -q";
    QTest::newRow("option without its value")
        << args({"import", "c.vltx", "a.txt", "--to"}) << "A opção --to precisa de um valor.";
    QTest::newRow("value for a flag")
        << args({"ls", "--json=sim", "c.vltx"}) << "A opção --json não aceita valor.";
    QTest::newRow("missing container") << args({"ls"}) << "Faltam argumentos.";
    QTest::newRow("missing destination") << args({"export", "c.vltx", "a.txt"}) << "Faltam argumentos.";
    QTest::newRow("too many") << args({"info", "c.vltx", "outro.vltx"}) << "Argumentos demais.";
    QTest::newRow("password as an argument")
        << args({"ls", "c.vltx", "pasta", "senha"}) << "Argumentos demais.";
}

void TestCliSession::usageErrors()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, message);
    const CliResult result = m_cli->run(arguments);
    QCOMPARE(result.exitCode, 2);
    QVERIFY(result.output.isEmpty());
    QCOMPARE(result.errorLines().first(), message);
    QCOMPARE(result.errorLines().size(), 2);
}

void TestCliSession::createWithEachNewPasswordSource_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("variable") << "variable" << QByteArray("senha pela variável");
    QTest::newRow("file with a newline") << "file" << QByteArray("senha pelo arquivo\n");
    QTest::newRow("file with a Windows line end") << "file" << QByteArray("senha pelo arquivo\r\n");
    QTest::newRow("file without a line end") << "file" << QByteArray("senha pelo arquivo");
    QTest::newRow("standard input") << "stdin" << QByteArray("senha pela entrada\n");
}

void TestCliSession::createWithEachNewPasswordSource()
{
    QFETCH(QString, source);
    QFETCH(QByteArray, stored);
    QByteArray password = stored;
    if (password.endsWith('\n')) {
        password.chop(1);
    }
    if (password.endsWith('\r')) {
        password.chop(1);
    }
    const QString container = path(QStringLiteral("novo.vltx"));
    QStringList arguments{QStringLiteral("create"), container};
    QByteArray input;
    if (source == QLatin1String("variable")) {
        m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(stored));
    } else if (source == QLatin1String("file")) {
        QVERIFY(TestFiles::write(path(QStringLiteral("senha.txt")), stored));
        arguments << QStringLiteral("--new-password-file") << QStringLiteral("senha.txt");
    } else {
        arguments << QStringLiteral("--new-password-file") << QStringLiteral("-");
        input = stored;
    }
    const CliResult result = m_cli->run(arguments, input);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Cofre criado com sucesso.")});
    QVERIFY(result.output.isEmpty());
    QCOMPARE(QFileInfo(container).size(), 8388636);
    QVERIFY(unlocks(container, password));
    if (password != stored) {
        QVERIFY(!unlocks(container, stored));
    }
}

void TestCliSession::passwordsAreBytesEvenWhenNotUtf8()
{
    // A password file from another system's encoding: its bytes are the password, as they are.
    const QByteArray latin1 = "senha em Latin-1: a\xe7\xe3o \xff";
    QVERIFY(TestFiles::write(path(QStringLiteral("latin1.txt")), latin1 + '\n'));
    const QString container = path(QStringLiteral("latin1.vltx"));
    CliResult result = m_cli->run({QStringLiteral("create"), container, QStringLiteral("--new-password-file"),
                                   QStringLiteral("latin1.txt")});
    QCOMPARE(result.exitCode, 0);
    result = m_cli->run(
        {QStringLiteral("ls"), container, QStringLiteral("--password-file"), QStringLiteral("latin1.txt")});
    QCOMPARE(result.exitCode, 0);

    // The same text read as UTF-8 (each bad byte a replacement character) is another password.
    QVERIFY(TestFiles::write(path(QStringLiteral("lida.txt")), QString::fromUtf8(latin1).toUtf8()));
    QVERIFY(QString::fromUtf8(latin1).toUtf8() != latin1);
    result = m_cli->run(
        {QStringLiteral("ls"), container, QStringLiteral("--password-file"), QStringLiteral("lida.txt")});
    QCOMPARE(result.exitCode, 3);
}

void TestCliSession::createRefusals()
{
    const QString container = path(QStringLiteral("novo.vltx"));
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("curta demais"));
    CliResult result = m_cli->run({QStringLiteral("create"), container});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(QFile::remove(container));

    // Eleven characters, two of them accented: characters count, not bytes.
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("ação-curta1"));
    result = m_cli->run({QStringLiteral("create"), container});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Use uma senha com pelo menos 12 caracteres para criar o cofre.")});
    QVERIFY(!QFileInfo::exists(container));

    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    const QByteArray before = TestFiles::read(m_container);
    result = m_cli->run({QStringLiteral("create"), m_container});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList{
                 QStringLiteral("O destino já existe: %1. Use --force para substituí-lo.").arg(m_container)});
    QCOMPARE(TestFiles::read(m_container), before);
    result = m_cli->run({QStringLiteral("create"), m_container, QStringLiteral("--force")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(unlocks(m_container, NewPassword.toUtf8()));

    result = m_cli->run({QStringLiteral("create"), path(QStringLiteral("falta/novo.vltx"))});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(
        result.errorLines(),
        QStringList{QStringLiteral("A pasta de destino não existe: %1").arg(path(QStringLiteral("falta")))});

    m_cli->unsetVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"));
    result = m_cli->run({QStringLiteral("create"), container});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Informe a nova senha com --new-password-file, com a "
                                        "variável VELMARIN_NEW_PASSWORD ou em um terminal.")});
    QVERIFY(!QFileInfo::exists(container));

    QVERIFY(TestFiles::write(path(QStringLiteral("vazia.txt")), "\n"));
    result = m_cli->run({QStringLiteral("create"), container, QStringLiteral("--new-password-file"),
                         path(QStringLiteral("vazia.txt"))});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{
                 QStringLiteral("O arquivo de senha %1 está vazio.").arg(path(QStringLiteral("vazia.txt")))});
    QVERIFY(!QFileInfo::exists(container));
}

void TestCliSession::createIntoAFolderUsesTheDefaultName()
{
    const QString drive = path(QStringLiteral("pendrive"));
    QVERIFY(QDir().mkdir(drive));
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    const CliResult result = m_cli->run({QStringLiteral("create"), QStringLiteral("pendrive")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(unlocks(QDir(drive).filePath(QStringLiteral("velmarin.vltx")), NewPassword.toUtf8()));
}

void TestCliSession::unlockWithEachPasswordSource()
{
    const QStringList list{QStringLiteral("ls"), m_container};
    const QByteArray password = TestFiles::password();
    QVERIFY(TestFiles::write(path(QStringLiteral("certa.txt")), password + '\n'));

    m_cli->useTestPassword();
    QCOMPARE(m_cli->run(list).exitCode, 0);
    m_cli->unsetVariable(QStringLiteral("VELMARIN_PASSWORD"));
    QCOMPARE(m_cli->run(list + QStringList{QStringLiteral("--password-file"), QStringLiteral("certa.txt")})
                 .exitCode,
             0);
    QCOMPARE(
        m_cli
            ->run(list + QStringList{QStringLiteral("--password-file"), QStringLiteral("-")}, password + '\n')
            .exitCode,
        0);

    // The file wins over the variable.
    m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), QStringLiteral("uma senha errada"));
    QCOMPARE(m_cli->run(list + QStringList{QStringLiteral("--password-file"), QStringLiteral("certa.txt")})
                 .exitCode,
             0);
    const CliResult wrong = m_cli->run(list);
    QCOMPARE(wrong.exitCode, 3);
    QCOMPARE(wrong.errorLines(), QStringList{UnlockFailure});

    // Only one line end is dropped: a second one belongs to the password, which is then wrong.
    QVERIFY(TestFiles::write(path(QStringLiteral("duas.txt")), password + "\n\n"));
    QCOMPARE(m_cli->run(list + QStringList{QStringLiteral("--password-file"), QStringLiteral("duas.txt")})
                 .exitCode,
             3);
}

void TestCliSession::passwordSourceProblems_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("variable");
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("message");
    const QString missing = QStringLiteral("nao-existe.txt");
    QTest::newRow("no source") << args({"ls", "velmarin.vltx"}) << QString() << QByteArray()
                               << NoPasswordMessage;
    QTest::newRow("empty variable") << args({"ls", "velmarin.vltx"}) << "" << QByteArray()
                                    << "A variável VELMARIN_PASSWORD está vazia.";
    QTest::newRow("missing file")
        << args({"ls", "velmarin.vltx", "--password-file"}) + QStringList{missing} << QString()
        << QByteArray() << QStringLiteral("Não foi possível ler o arquivo de senha %1.").arg(missing);
    QTest::newRow("empty standard input")
        << args({"ls", "velmarin.vltx", "--password-file", "-"}) << QString() << QByteArray()
        << "O arquivo de senha da entrada padrão está vazio.";
    QTest::newRow("only a line end") << args({"ls", "velmarin.vltx", "--password-file", "-"}) << QString()
                                     << QByteArray("\n")
                                     << "O arquivo de senha da entrada padrão está vazio.";
    QTest::newRow("not a password")
        << args({"ls", "velmarin.vltx", "--password-file", "-"}) << QString() << QByteArray(5000, 'x')
        << "O arquivo de senha da entrada padrão é grande demais para conter uma senha.";
    QTest::newRow("standard input twice")
        << args({"passwd", "velmarin.vltx", "--password-file", "-", "--new-password-file", "-"}) << QString()
        << QByteArray("correção-segura\n") << "A entrada padrão só pode fornecer uma das senhas.";
}

void TestCliSession::passwordSourceProblems()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, variable);
    QFETCH(QByteArray, input);
    QFETCH(QString, message);
    if (!variable.isNull()) {
        m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), variable);
    }
    const QByteArray before = TestFiles::read(m_container);
    const CliResult result = m_cli->run(arguments, input);
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(), QStringList{message});
    QVERIFY(result.output.isEmpty());
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliSession::badContainers_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing") << "ausente.vltx" << QByteArray() << 1
                             << "O arquivo do container não foi encontrado.";
    QTest::newRow("text file") << "texto.vltx" << QByteArray("isto não é um cofre\n") << 3
                               << "texto.vltx não é um container Velmarin válido.";
    QTest::newRow("empty file") << "vazio.vltx" << QByteArray("") << 3
                                << "vazio.vltx não é um container Velmarin válido.";
    // A folder is no file at all: it says so, as a pipe or a link at that path would.
    QTest::newRow("directory")
        << "pasta.vltx" << QByteArray("<pasta>") << 3
        << "pasta.vltx não é um arquivo comum: é uma pasta, um pipe, um dispositivo ou "
           "um link. Ele não foi aberto.";
}

void TestCliSession::badContainers()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, contents);
    QFETCH(int, code);
    QFETCH(QString, message);
    if (contents == "<pasta>") {
        QVERIFY(QDir(m_dir->path()).mkdir(name));
    } else if (name != QLatin1String("ausente.vltx")) {
        QVERIFY(TestFiles::write(path(name), contents));
    }
    m_cli->useTestPassword();
    for (const QStringList& arguments :
         {QStringList{QStringLiteral("ls"), name}, QStringList{QStringLiteral("info"), name},
          QStringList{QStringLiteral("verify"), name},
          QStringList{QStringLiteral("backup"), name, QStringLiteral("b.vltx")},
          QStringList{QStringLiteral("passwd"), name, QStringLiteral("--new-password-file"),
                      QStringLiteral("-")}}) {
        const CliResult result = m_cli->run(arguments, NewPassword.toUtf8());
        QCOMPARE(result.exitCode, code);
        QCOMPARE(result.errorLines(), QStringList{message});
    }
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("b.vltx"))));
}

void TestCliSession::infoReadsTheHeaderWithoutAPassword()
{
    // The length line, read straight from the file: 20 digits after the 7-byte magic.
    const QByteArray bytes = TestFiles::read(m_container);
    const qint64 headerLength = bytes.mid(7, 20).toLongLong();
    QVERIFY(headerLength > 100);

    CliResult result = m_cli->run({QStringLiteral("info"), QStringLiteral("velmarin.vltx")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.errors.isEmpty());
    QCOMPARE(
        result.outputLines(),
        QStringList(
            {QStringLiteral("Container: %1").arg(QDir::toNativeSeparators(m_container)),
             QStringLiteral("Tamanho: 8,0 MB (8388636 bytes)"), QStringLiteral("Versão do formato: 3"),
             QStringLiteral("Derivação de chave: Argon2id"), QStringLiteral("Cifra: XChaCha20-Poly1305"),
             QStringLiteral("Cabeçalho: %1 bytes").arg(headerLength), QStringLiteral("Dados: 0 bytes")}));

    // One imported file of 100 bytes adds one block: 100 bytes and a 16-byte tag.
    m_cli->useTestPassword();
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("cem.bin")), 100, 1));
    QCOMPARE(m_cli->run({QStringLiteral("import"), m_container, path(QStringLiteral("cem.bin"))}).exitCode,
             0);
    m_cli->unsetVariable(QStringLiteral("VELMARIN_PASSWORD"));
    result = m_cli->run({QStringLiteral("info"), m_container, QStringLiteral("--json")});
    QCOMPARE(result.exitCode, 0);
    const QJsonObject info = QJsonDocument::fromJson(result.output).object();
    QCOMPARE(info.value(QStringLiteral("path")).toString(), m_container);
    QCOMPARE(info.value(QStringLiteral("size")).toInteger(), 8388636 + 116);
    QCOMPARE(info.value(QStringLiteral("payloadSize")).toInteger(), 116);
    QCOMPARE(info.value(QStringLiteral("formatVersion")).toInt(), 3);
    QCOMPARE(info.value(QStringLiteral("kdf")).toString(), QStringLiteral("Argon2id"));
    QCOMPARE(info.value(QStringLiteral("cipher")).toString(), QStringLiteral("XChaCha20-Poly1305"));
    QCOMPARE(info.value(QStringLiteral("headerLength")).toInteger(),
             TestFiles::read(m_container).mid(7, 20).toLongLong());
    QCOMPARE(info.size(), 7);
}

void TestCliSession::passwdChangesOnlyThePassword()
{
    m_cli->useTestPassword();
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("dados.bin")), 5000, 2));
    QCOMPARE(m_cli->run({QStringLiteral("import"), m_container, path(QStringLiteral("dados.bin"))}).exitCode,
             0);
    const qint64 size = QFileInfo(m_container).size();
    const QByteArray payload = TestFiles::read(m_container).mid(8388636);

    m_cli->unsetVariable(QStringLiteral("VELMARIN_PASSWORD"));
    QVERIFY(TestFiles::write(path(QStringLiteral("atual.txt")), TestFiles::password() + '\n'));
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    const CliResult result = m_cli->run({QStringLiteral("passwd"), m_container,
                                         QStringLiteral("--password-file"), QStringLiteral("atual.txt")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Senha alterada com sucesso.")});
    QCOMPARE(QFileInfo(m_container).size(), size);
    QCOMPARE(TestFiles::read(m_container).mid(8388636), payload);
    QVERIFY(!unlocks(m_container, TestFiles::password()));
    QVERIFY(unlocks(m_container, NewPassword.toUtf8()));

    m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), NewPassword);
    const CliResult exported =
        m_cli->run({QStringLiteral("export"), m_container, QStringLiteral("dados.bin"), QStringLiteral("-")});
    QCOMPARE(exported.exitCode, 0);
    QCOMPARE(exported.output, TestFiles::read(path(QStringLiteral("dados.bin"))));
}

void TestCliSession::passwdRefusals()
{
    const QByteArray before = TestFiles::read(m_container);
    m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), QStringLiteral("não é a senha"));
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    CliResult result = m_cli->run({QStringLiteral("passwd"), m_container});
    QCOMPARE(result.exitCode, 3);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral(
                 "Não foi possível alterar a senha. Verifique a senha atual e tente novamente.")});

    m_cli->useTestPassword();
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QStringLiteral("curta"));
    result = m_cli->run({QStringLiteral("passwd"), m_container});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Use uma nova senha com pelo menos 12 caracteres.")});

    m_cli->unsetVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"));
    result = m_cli->run({QStringLiteral("passwd"), m_container});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Informe a nova senha com --new-password-file, com a "
                                        "variável VELMARIN_NEW_PASSWORD ou em um terminal.")});
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliSession::backupCopiesByteForByte()
{
    const QString backups = path(QStringLiteral("backups"));
    QVERIFY(QDir().mkdir(backups));
    const QDateTime before = QDateTime::currentDateTime();
    CliResult result = m_cli->run({QStringLiteral("backup"), m_container, QStringLiteral("backups")});
    const QDateTime after = QDateTime::currentDateTime();
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(
        result.errorLines(),
        QStringList({QStringLiteral("Backup concluído com sucesso."), QString(),
                     QStringLiteral("O arquivo de backup é uma cópia criptografada do container e permanece "
                                    "protegido pela senha do cofre.")}));
    const QStringList made = QDir(backups).entryList(QDir::Files);
    QCOMPARE(made.size(), 1);
    const QStringList expectedNames{
        QStringLiteral("velmarin_backup_%1.vltx").arg(before.toString(QStringLiteral("yyyy-MM-dd_HHmm"))),
        QStringLiteral("velmarin_backup_%1.vltx").arg(after.toString(QStringLiteral("yyyy-MM-dd_HHmm")))};
    QVERIFY2(expectedNames.contains(made.first()), qPrintable(made.first()));
    const QString copy = QDir(backups).filePath(made.first());
    QCOMPARE(result.output, QDir::toNativeSeparators(copy).toUtf8() + '\n');
    QVERIFY(TestFiles::sameContents(copy, m_container));

    // The copy keeps the password the container had when it was copied.
    m_cli->useTestPassword();
    m_cli->setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), NewPassword);
    QCOMPARE(m_cli->run({QStringLiteral("passwd"), m_container}).exitCode, 0);
    QVERIFY(unlocks(copy, TestFiles::password()));
    QVERIFY(!unlocks(copy, NewPassword.toUtf8()));

    result = m_cli->run({QStringLiteral("backup"), m_container, QStringLiteral("copia.vltx")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("copia.vltx")), m_container));
}

void TestCliSession::backupRefusals()
{
    const QByteArray original = TestFiles::read(m_container);
    CliResult result = m_cli->run({QStringLiteral("backup"), m_container, QStringLiteral("./velmarin.vltx")});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Escolha um destino diferente do container original.")});
    QCOMPARE(TestFiles::read(m_container), original);

    const QString existing = path(QStringLiteral("existente.vltx"));
    QVERIFY(TestFiles::write(existing, "conteúdo anterior"));
    result = m_cli->run({QStringLiteral("backup"), m_container, existing});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(
        result.errorLines(),
        QStringList{QStringLiteral("O destino já existe: %1. Use --force para substituí-lo.").arg(existing)});
    QCOMPARE(TestFiles::read(existing), QByteArray("conteúdo anterior"));
    QVERIFY(result.output.isEmpty());
    result = m_cli->run({QStringLiteral("backup"), m_container, existing, QStringLiteral("--force")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(TestFiles::sameContents(existing, m_container));

    result = m_cli->run({QStringLiteral("backup"), m_container, path(QStringLiteral("falta/b.vltx"))});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(
        result.errorLines(),
        QStringList{QStringLiteral("A pasta de destino não existe: %1").arg(path(QStringLiteral("falta")))});
}

QTEST_GUILESS_MAIN(TestCliSession)
#include "tst_clisession.moc"
