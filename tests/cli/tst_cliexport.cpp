// velmarin-cli export of a folder, the way cp -r copies one, and the JSON of ls and verify as a
// script reads it.
#include "CliRunner.h"
#include "FailureInjection.h"
#include "TestFiles.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;

class TestCliExport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void folderRoundTripsLikeCpR();
    void existingFilesNeedForce();
    void wholeVaultAndRefusals();
    void aFailingFileIsToldAndTheRestGoOn();
    void lsJsonIsOneDocument();
    void verifyJsonIsOneDocument();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult run(const QString& command, const QStringList& arguments = {}) const
    {
        return m_cli->run(QStringList{command, m_container} + arguments);
    }
    // src/Fotos with a tree in it, imported as Backup/Fotos.
    void importTree();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliExport::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestCliExport::importTree()
{
    const QString src = path(QStringLiteral("src/Fotos"));
    QVERIFY(QDir().mkpath(src + QStringLiteral("/2026/vazia")));
    QVERIFY(QDir().mkpath(src + QStringLiteral("/Férias 🌊")));
    QVERIFY(TestFiles::writePattern(src + QStringLiteral("/praia.jpg"), 100000, 1));
    QVERIFY(TestFiles::writePattern(src + QStringLiteral("/Férias 🌊/mar ☀.png"), 5000, 2));
    QVERIFY(TestFiles::write(src + QStringLiteral("/2026/vazio.txt"), QByteArray()));
    const CliResult imported =
        run(QStringLiteral("import"), {src, QStringLiteral("--to"), QStringLiteral("Backup")});
    QCOMPARE(imported.exitCode, 0);
}

void TestCliExport::folderRoundTripsLikeCpR()
{
    importTree();
    const QString src = path(QStringLiteral("src/Fotos"));

    // A destination that does not exist is made and receives the folder's contents.
    CliResult result =
        run(QStringLiteral("export"), {QStringLiteral("backup/fotos"), QStringLiteral("copia")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.isEmpty());
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("3 arquivos exportados com sucesso.")});
    QCOMPARE(TestFiles::tree(path(QStringLiteral("copia"))), TestFiles::tree(src));
    for (const QString& entry : TestFiles::tree(src)) {
        if (!entry.endsWith(QLatin1Char('/'))) {
            QVERIFY2(TestFiles::sameContents(src + QLatin1Char('/') + entry,
                                             path(QStringLiteral("copia/")) + entry),
                     qPrintable(entry));
        }
    }

    // An existing folder receives the vault folder under its own name, as stored.
    QVERIFY(QDir().mkdir(path(QStringLiteral("saida"))));
    result = run(QStringLiteral("export"), {QStringLiteral("Backup/Fotos/"), QStringLiteral("saida")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(TestFiles::tree(path(QStringLiteral("saida/Fotos"))), TestFiles::tree(src));
    QCOMPARE(TestFiles::tree(path(QStringLiteral("saida"))).first(), QStringLiteral("Fotos/"));

    // An empty folder comes out as one.
    result = run(QStringLiteral("export"), {QStringLiteral("Backup/Fotos/2026/vazia"), QStringLiteral("v")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Nenhum arquivo exportado.")});
    QVERIFY(QFileInfo(path(QStringLiteral("v"))).isDir());
}

void TestCliExport::existingFilesNeedForce()
{
    importTree();
    // copia exists, so the folder goes into copia/Fotos, where two of its files already are.
    const QString copy = path(QStringLiteral("copia/Fotos"));
    QVERIFY(QDir().mkpath(copy + QStringLiteral("/2026")));
    QVERIFY(TestFiles::write(copy + QStringLiteral("/praia.jpg"), "antigo"));
    QVERIFY(TestFiles::write(copy + QStringLiteral("/2026/vazio.txt"), "antigo"));

    CliResult result =
        run(QStringLiteral("export"), {QStringLiteral("Backup/Fotos"), QStringLiteral("copia")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("O destino já existe: %1. Use --force para substituí-lo.")
                              .arg(copy + QStringLiteral("/2026/vazio.txt")),
                          QStringLiteral("O destino já existe: %1. Use --force para substituí-lo.")
                              .arg(copy + QStringLiteral("/praia.jpg")),
                          QStringLiteral("1 arquivo exportado com sucesso."),
                          QStringLiteral("2 arquivos não foram exportados por já existirem no destino.")}));
    QCOMPARE(TestFiles::read(copy + QStringLiteral("/praia.jpg")), QByteArray("antigo"));
    QCOMPARE(TestFiles::read(copy + QStringLiteral("/2026/vazio.txt")), QByteArray("antigo"));
    QVERIFY(QFileInfo(copy + QStringLiteral("/Férias 🌊/mar ☀.png")).isFile());

    result = run(QStringLiteral("export"),
                 {QStringLiteral("Backup/Fotos"), QStringLiteral("copia"), QStringLiteral("--force")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("3 arquivos exportados com sucesso.")});
    QVERIFY(TestFiles::sameContents(copy + QStringLiteral("/praia.jpg"),
                                    path(QStringLiteral("src/Fotos/praia.jpg"))));
    QCOMPARE(QFileInfo(copy + QStringLiteral("/2026/vazio.txt")).size(), 0);
}

void TestCliExport::wholeVaultAndRefusals()
{
    importTree();
    QVERIFY(TestFiles::write(path(QStringLiteral("raiz.txt")), "raiz"));
    QCOMPARE(run(QStringLiteral("import"), {path(QStringLiteral("raiz.txt"))}).exitCode, 0);

    // "/" is the whole vault, into the destination itself.
    CliResult result = run(QStringLiteral("export"), {QStringLiteral("/"), QStringLiteral("tudo")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("4 arquivos exportados com sucesso.")});
    QCOMPARE(TestFiles::tree(path(QStringLiteral("tudo/Backup/Fotos"))),
             TestFiles::tree(path(QStringLiteral("src/Fotos"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("tudo/raiz.txt"))), QByteArray("raiz"));

    struct Case
    {
        QStringList arguments;
        int code;
        QString message;
    };
    QVERIFY(TestFiles::write(path(QStringLiteral("arquivo")), "x"));
    const QList<Case> cases{
        {{QStringLiteral("Backup"), QStringLiteral("-")},
         2,
         QStringLiteral("Uma pasta não pode ser exportada para a saída padrão.")},
        {{QStringLiteral("Backup"), QStringLiteral("arquivo")},
         1,
         QStringLiteral("O destino já existe e não é uma pasta: arquivo")},
        {{QStringLiteral("Backup"), path(QStringLiteral("falta/copia"))},
         1,
         QStringLiteral("A pasta de destino não existe: %1").arg(path(QStringLiteral("falta")))},
        {{QStringLiteral("Nada"), QStringLiteral("n")},
         1,
         QStringLiteral("O arquivo Nada não existe no cofre.")}};
    for (const Case& test : cases) {
        result = run(QStringLiteral("export"), test.arguments);
        QCOMPARE(result.exitCode, test.code);
        QCOMPARE(result.errorLines(), QStringList{test.message});
        QVERIFY(result.output.isEmpty());
    }
    QCOMPARE(TestFiles::read(path(QStringLiteral("arquivo"))), QByteArray("x"));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("falta"))));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("n"))));
}

void TestCliExport::aFailingFileIsToldAndTheRestGoOn()
{
    QVERIFY(FailureInjection::isAvailable());
    importTree();
    const QString copy = path(QStringLiteral("copia"));
    CliResult result;
    {
        const FailureInjection refusing(QStringLiteral("copia/Férias"), "write", 1000);
        // A runner takes the environment as it is when made, the shim's variables with it.
        CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
        cli.useTestPassword();
        result = cli.run(
            {QStringLiteral("export"), m_container, QStringLiteral("Backup/Fotos"), QStringLiteral("copia")});
    }
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 4);
    QCOMPARE(lines.at(0), QStringLiteral("Não foi possível exportar Backup/Fotos/Férias 🌊/mar ☀.png."));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível gravar a cópia exportada em %1")
                                        .arg(copy + QStringLiteral("/Férias 🌊/mar ☀.png"))),
             qPrintable(lines.at(1)));
    QCOMPARE(lines.at(2), QStringLiteral("2 arquivos exportados com sucesso."));
    QCOMPARE(lines.at(3), QStringLiteral("1 item não pôde ser exportado."));
    // No half file; the rest are there.
    QCOMPARE(TestFiles::tree(copy + QStringLiteral("/Férias 🌊")), QStringList());
    QVERIFY(TestFiles::sameContents(copy + QStringLiteral("/praia.jpg"),
                                    path(QStringLiteral("src/Fotos/praia.jpg"))));
    QVERIFY(QFileInfo(copy + QStringLiteral("/2026/vazio.txt")).isFile());
}

void TestCliExport::lsJsonIsOneDocument()
{
    importTree();
    const CliResult result =
        run(QStringLiteral("ls"),
            {QStringLiteral("Backup"), QStringLiteral("--recursive"), QStringLiteral("--json")});
    QCOMPARE(result.exitCode, 0);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(result.output, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QVERIFY(document.isArray());
    QHash<QString, QJsonObject> byPath;
    for (const QJsonValue& value : document.array()) {
        byPath.insert(value.toObject().value(QStringLiteral("path")).toString(), value.toObject());
    }
    QCOMPARE(byPath.size(), 7);
    const QJsonObject photo = byPath.value(QStringLiteral("Backup/Fotos/praia.jpg"));
    QCOMPARE(photo.value(QStringLiteral("kind")).toString(), QStringLiteral("file"));
    QCOMPARE(photo.value(QStringLiteral("size")).toInteger(), 100000);
    QCOMPARE(photo.value(QStringLiteral("sha256")).toString().toLatin1(),
             TestFiles::sha256sum(path(QStringLiteral("src/Fotos/praia.jpg"))).toHex());
    const QRegularExpression iso(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z$"));
    QVERIFY(iso.match(photo.value(QStringLiteral("modified")).toString()).hasMatch());
    const QJsonObject sea = byPath.value(QStringLiteral("Backup/Fotos/Férias 🌊/mar ☀.png"));
    QCOMPARE(sea.value(QStringLiteral("size")).toInteger(), 5000);
    const QJsonObject empty = byPath.value(QStringLiteral("Backup/Fotos/2026/vazia"));
    QCOMPARE(empty.value(QStringLiteral("kind")).toString(), QStringLiteral("folder"));
    QCOMPARE(empty.value(QStringLiteral("size")).toInteger(), 0);
    QVERIFY(!empty.contains(QStringLiteral("sha256")));
    QVERIFY(iso.match(empty.value(QStringLiteral("modified")).toString()).hasMatch());
}

void TestCliExport::verifyJsonIsOneDocument()
{
    importTree();
    QCOMPARE(run(QStringLiteral("rm"), {QStringLiteral("Backup/Fotos/praia.jpg")}).exitCode, 0);
    const CliResult result = run(QStringLiteral("verify"), {QStringLiteral("--json")});
    QCOMPARE(result.exitCode, 0);
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(result.output, &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    const QJsonObject report = document.object();
    QCOMPARE(report.value(QStringLiteral("files")).toInt(), 2);
    QCOMPARE(report.value(QStringLiteral("folders")).toInt(), 5);
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), true);
    QCOMPARE(report.value(QStringLiteral("damaged")).toArray().size(), 0);
    // The removed file's block and its tag stay until compaction.
    QCOMPARE(report.value(QStringLiteral("deadBytes")).toInteger(), 100000 + 16);
    QCOMPARE(report.value(QStringLiteral("liveBytes")).toInteger(), 5000 + 16);
}

QTEST_GUILESS_MAIN(TestCliExport)
#include "tst_cliexport.moc"
