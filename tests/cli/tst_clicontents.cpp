// velmarin-cli on the contents of a vault: ls, import, export, mkdir, rmdir, rm, mv and rename,
// each through the real tool, with the vault checked afterwards through the engine.
#include "CliRunner.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 Block = 16 * 1024 * 1024;

} // namespace

class TestCliContents : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void importBringsFilesAndWholeTrees();
    void importSkipsExistingFilesUnlessReplacing();
    void importRefusals();
    void importIgnoresSymbolicLinksInsideTrees();
    void lsListsFoldersFirstByNameIgnoringCase();
    void lsJsonDescribesEveryEntry();
    void lsRefusals();
    void namesCannotDriveTheTerminal();
    void exportWritesExactBytes();
    void exportRefusals();
    void mkdirAndRmdir();
    void rmDropsTheFileButKeepsTheContainerSize();
    void mvMovesIntoFoldersAndTheRoot();
    void mvRefusals();
    void renameFilesAndFolders();
    void renameRefusals();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    // Runs the tool on the test container: arguments after the command's container.
    CliResult run(const QString& command, const QStringList& arguments = {}) const;
    bool writeSource(const QString& relative, const QByteArray& contents) const;
    QStringList vaultFiles() const;
    QStringList vaultFolders() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliContents::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

CliResult TestCliContents::run(const QString& command, const QStringList& arguments) const
{
    return m_cli->run(QStringList{command, m_container} + arguments);
}

bool TestCliContents::writeSource(const QString& relative, const QByteArray& contents) const
{
    const QString file = path(relative);
    return QDir().mkpath(QFileInfo(file).absolutePath()) && TestFiles::write(file, contents);
}

QStringList TestCliContents::vaultFiles() const
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

QStringList TestCliContents::vaultFolders() const
{
    VaultManager vault;
    QStringList paths;
    if (vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly)) {
        for (const auto& folder : vault.index().directories()) {
            paths << folder.path;
        }
    }
    paths.sort();
    return paths;
}

void TestCliContents::importBringsFilesAndWholeTrees()
{
    QVERIFY(writeSource(QStringLiteral("src/Fotos/praia.jpg"), "praia"));
    QVERIFY(writeSource(QStringLiteral("src/Fotos/2026/neve.png"), "neve"));
    QVERIFY(writeSource(QStringLiteral("src/Fotos/.oculto"), "oculto"));
    QVERIFY(QDir().mkpath(path(QStringLiteral("src/Fotos/vazia"))));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("src/grande.bin")), Block + 1, 3));

    const CliResult result =
        run(QStringLiteral("import"), {path(QStringLiteral("src/Fotos/")), QStringLiteral("src/grande.bin"),
                                       QStringLiteral("--to"), QStringLiteral("/Backup/")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("4 arquivos importados com sucesso.")});
    QVERIFY(result.output.isEmpty());
    QCOMPARE(
        vaultFiles(),
        QStringList({QStringLiteral("Backup/Fotos/.oculto"), QStringLiteral("Backup/Fotos/2026/neve.png"),
                     QStringLiteral("Backup/Fotos/praia.jpg"), QStringLiteral("Backup/grande.bin")}));
    QCOMPARE(vaultFolders(),
             QStringList({QStringLiteral("Backup"), QStringLiteral("Backup/Fotos"),
                          QStringLiteral("Backup/Fotos/2026"), QStringLiteral("Backup/Fotos/vazia")}));

    const CliResult exported = run(QStringLiteral("export"), {QStringLiteral("backup/GRANDE.bin"),
                                                              path(QStringLiteral("de-volta.bin"))});
    QCOMPARE(exported.exitCode, 0);
    QCOMPARE(exported.errorLines(), QStringList{QStringLiteral("Arquivo exportado com sucesso.")});
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("de-volta.bin")),
                                    path(QStringLiteral("src/grande.bin"))));

    // One file alone, into the root.
    QVERIFY(writeSource(QStringLiteral("nota.txt"), "nota"));
    const CliResult single = run(QStringLiteral("import"), {QStringLiteral("nota.txt")});
    QCOMPARE(single.exitCode, 0);
    QCOMPARE(single.errorLines(), QStringList{QStringLiteral("Arquivo importado com sucesso.")});
    QVERIFY(vaultFiles().contains(QStringLiteral("nota.txt")));
}

void TestCliContents::importSkipsExistingFilesUnlessReplacing()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "primeira versão"));
    QVERIFY(writeSource(QStringLiteral("b.txt"), "outro"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    QVERIFY(writeSource(QStringLiteral("a.txt"), "segunda versão"));

    CliResult result = run(QStringLiteral("import"), {QStringLiteral("a.txt"), QStringLiteral("b.txt")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("a.txt já existe no cofre; use --replace para substituí-lo."),
                          QStringLiteral("Arquivo importado com sucesso."),
                          QStringLiteral("1 arquivo ignorado por já existir no cofre.")}));
    result = run(QStringLiteral("export"), {QStringLiteral("a.txt"), QStringLiteral("-")});
    QCOMPARE(result.output, QByteArray("primeira versão"));

    result = run(QStringLiteral("import"), {QStringLiteral("a.txt"), QStringLiteral("--replace")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Arquivo importado com sucesso.")});
    result = run(QStringLiteral("export"), {QStringLiteral("A.TXT"), QStringLiteral("-")});
    QCOMPARE(result.output, QByteArray("segunda versão"));
    QCOMPARE(vaultFiles(), QStringList({QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
}

void TestCliContents::importRefusals()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    const QByteArray before = TestFiles::read(m_container);

    CliResult result = run(QStringLiteral("import"), {QStringLiteral("a.txt"), QStringLiteral("sumiu.txt")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("O arquivo sumiu.txt não está disponível para importação.")});

    result = run(QStringLiteral("import"),
                 {QStringLiteral("a.txt"), QStringLiteral("--to"), QStringLiteral("x/../y")});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Caminho inválido no cofre: \"x/../y\"")});

    result = m_cli->run({QStringLiteral("import"), m_container, QStringLiteral("a.txt")}, {});
    QCOMPARE(result.exitCode, 0);
    const QByteArray withA = TestFiles::read(m_container);

    // A folder of the vault where the file would go: the file is not brought in.
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("b.txt")}).exitCode, 0);
    QVERIFY(writeSource(QStringLiteral("b.txt"), "b"));
    const QByteArray withFolder = TestFiles::read(m_container);
    result = run(QStringLiteral("import"), {QStringLiteral("b.txt")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList{
                 QStringLiteral("Já existe uma pasta b.txt no cofre; o arquivo b.txt não foi importado.")});
    QCOMPARE(TestFiles::read(m_container), withFolder);

    // A file of the vault where a folder would go.
    QVERIFY(writeSource(QStringLiteral("arvore/a.txt/dentro.txt"), "d"));
    result = run(QStringLiteral("import"), {QStringLiteral("arvore/a.txt")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines().first(), QStringLiteral("Não foi possível criar a pasta a.txt."));
    QVERIFY(!vaultFiles().contains(QStringLiteral("a.txt/dentro.txt")));
    QVERIFY(before != withA);
}

void TestCliContents::importIgnoresSymbolicLinksInsideTrees()
{
    QVERIFY(writeSource(QStringLiteral("src/real.txt"), "real"));
    QVERIFY(writeSource(QStringLiteral("fora.txt"), "fora da árvore"));
    QVERIFY(QFile::link(path(QStringLiteral("fora.txt")), path(QStringLiteral("src/atalho.txt"))));
    QVERIFY(QFile::link(m_dir->path(), path(QStringLiteral("src/ciclo"))));
    const CliResult result = run(QStringLiteral("import"), {QStringLiteral("src")});
    QCOMPARE(result.exitCode, 0);
    QStringList lines = result.errorLines();
    lines.sort();
    QCOMPARE(lines,
             QStringList(
                 {QStringLiteral("Arquivo importado com sucesso."),
                  QStringLiteral("Link simbólico ignorado: %1").arg(path(QStringLiteral("src/atalho.txt"))),
                  QStringLiteral("Link simbólico ignorado: %1").arg(path(QStringLiteral("src/ciclo")))}));
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("src/real.txt")});
}

void TestCliContents::lsListsFoldersFirstByNameIgnoringCase()
{
    QVERIFY(writeSource(QStringLiteral("beta.txt"), "bb"));
    QVERIFY(writeSource(QStringLiteral("Alfa.PDF"), QByteArray(1536, 'a')));
    QVERIFY(writeSource(QStringLiteral("semtipo"), "x"));
    QVERIFY(writeSource(QStringLiteral("Zeta/interno.txt"), "z"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("beta.txt"), QStringLiteral("Alfa.PDF"),
                                            QStringLiteral("semtipo"), QStringLiteral("Zeta")})
                 .exitCode,
             0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("gama")}).exitCode, 0);

    CliResult result = run(QStringLiteral("ls"));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.errors.isEmpty());
    const QRegularExpression line(
        QStringLiteral("^(\\d\\d/\\d\\d/\\d{4} \\d\\d:\\d\\d)  (.{10})  (.{8})  (.+)$"));
    QStringList rows;
    for (const QString& text : result.outputLines()) {
        const QRegularExpressionMatch match = line.match(text);
        QVERIFY2(match.hasMatch(), qPrintable(text));
        rows << QStringLiteral("%1|%2|%3")
                    .arg(match.captured(4), match.captured(3).trimmed(), match.captured(2).trimmed());
    }
    QCOMPARE(rows, QStringList({QStringLiteral("gama|Pasta|"), QStringLiteral("Zeta|Pasta|"),
                                QStringLiteral("Alfa.PDF|PDF|1,5 kB"), QStringLiteral("beta.txt|TXT|2 bytes"),
                                QStringLiteral("semtipo|Arquivo|1 bytes")}));
    // Dates are the local time of each entry, as the window shows them.
    const QDateTime modified = QFileInfo(path(QStringLiteral("beta.txt"))).lastModified();
    QVERIFY(result.outputLines().at(3).startsWith(modified.toString(QStringLiteral("dd/MM/yyyy HH:mm"))));

    result = run(QStringLiteral("ls"), {QStringLiteral("--recursive")});
    QCOMPARE(result.exitCode, 0);
    QStringList names;
    for (const QString& text : result.outputLines()) {
        names << line.match(text).captured(4);
    }
    QCOMPARE(names, QStringList({QStringLiteral("gama"), QStringLiteral("Zeta"),
                                 QStringLiteral("Zeta/interno.txt"), QStringLiteral("Alfa.PDF"),
                                 QStringLiteral("beta.txt"), QStringLiteral("semtipo")}));

    result = run(QStringLiteral("ls"), {QStringLiteral("zeta")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.outputLines().size(), 1);
    QVERIFY(result.outputLines().first().endsWith(QStringLiteral("  interno.txt")));
}

void TestCliContents::lsJsonDescribesEveryEntry()
{
    QVERIFY(writeSource(QStringLiteral("docs/sub/leia.txt"), "leia"));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("docs/dados.bin")), 70000, 9));
    QFile dated(path(QStringLiteral("docs/dados.bin")));
    QVERIFY(dated.open(QIODevice::ReadWrite));
    QVERIFY(dated.setFileTime(QDateTime(QDate(2025, 3, 4), QTime(5, 6, 7, 89), Qt::UTC),
                              QFileDevice::FileModificationTime));
    dated.close();
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("docs")}).exitCode, 0);

    const CliResult result = run(QStringLiteral("ls"), {QStringLiteral("docs"), QStringLiteral("--recursive"),
                                                        QStringLiteral("--json")});
    QCOMPARE(result.exitCode, 0);
    QJsonParseError error;
    const QJsonArray entries = QJsonDocument::fromJson(result.output, &error).array();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(entries.size(), 3);

    const QJsonObject folder = entries.at(0).toObject();
    QCOMPARE(folder.keys(), QStringList({QStringLiteral("kind"), QStringLiteral("modified"),
                                         QStringLiteral("path"), QStringLiteral("size")}));
    QCOMPARE(folder.value(QStringLiteral("path")).toString(), QStringLiteral("docs/sub"));
    QCOMPARE(folder.value(QStringLiteral("kind")).toString(), QStringLiteral("folder"));
    QCOMPARE(folder.value(QStringLiteral("size")).toInteger(), 0);
    QVERIFY(QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z$"))
                .match(folder.value(QStringLiteral("modified")).toString())
                .hasMatch());
    QCOMPARE(entries.at(1).toObject().value(QStringLiteral("path")).toString(),
             QStringLiteral("docs/sub/leia.txt"));

    const QJsonObject file = entries.at(2).toObject();
    QCOMPARE(file.value(QStringLiteral("path")).toString(), QStringLiteral("docs/dados.bin"));
    QCOMPARE(file.value(QStringLiteral("kind")).toString(), QStringLiteral("file"));
    QCOMPARE(file.value(QStringLiteral("size")).toInteger(), 70000);
    QCOMPARE(file.value(QStringLiteral("modified")).toString(), QStringLiteral("2025-03-04T05:06:07.089Z"));
    QCOMPARE(file.value(QStringLiteral("sha256")).toString().toLatin1(),
             TestFiles::sha256sum(path(QStringLiteral("docs/dados.bin"))).toHex());
}

void TestCliContents::namesCannotDriveTheTerminal()
{
    // A title change, a colour and a bell; and a name that shows its extension backwards.
    const QString escapes = QStringLiteral("\x1b]0;t\u00edtulo\x07\x1b[31mvermelho.txt");
    const QString reversed = QStringLiteral("relat\u00f3rio\u202Etxt.exe");
    QVERIFY(writeSource(QStringLiteral("nomes/") + escapes, "a"));
    QVERIFY(writeSource(QStringLiteral("nomes/") + reversed, "b"));
    QCOMPARE(run(QStringLiteral("import"), {path(QStringLiteral("nomes"))}).exitCode, 0);

    CliResult result = run(QStringLiteral("ls"), {QStringLiteral("nomes")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.outputLines().size(), 2);
    QVERIFY(!result.output.contains('\x1b') && !result.output.contains('\x07'));
    QVERIFY2(result.outputLines().at(0).endsWith(QStringLiteral("  ?]0;t\u00edtulo??[31mvermelho.txt")),
             result.output.constData());
    QVERIFY(result.outputLines().at(1).endsWith(QStringLiteral("  relat\u00f3rio?txt.exe")));

    // The exact names stay available to scripts, escaped by JSON.
    result = run(QStringLiteral("ls"), {QStringLiteral("nomes"), QStringLiteral("--json")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(!result.output.contains('\x1b'));
    const QJsonArray entries = QJsonDocument::fromJson(result.output).array();
    QCOMPARE(entries.size(), 2);
    QCOMPARE(entries.at(0).toObject().value(QStringLiteral("path")).toString(),
             QStringLiteral("nomes/") + escapes);
    QCOMPARE(entries.at(1).toObject().value(QStringLiteral("path")).toString(),
             QStringLiteral("nomes/") + reversed);

    // Messages that repeat a name are made visible the same way.
    result = run(QStringLiteral("rm"), {QStringLiteral("\x1b[2Jsumiu.txt")});
    QCOMPARE(result.exitCode, 1);
    QVERIFY(!result.errors.contains('\x1b'));
    QVERIFY2(result.errors.contains("?[2Jsumiu.txt"), result.errors.constData());
}

void TestCliContents::lsRefusals()
{
    CliResult result = run(QStringLiteral("ls"), {QStringLiteral("nao/existe")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("A pasta nao/existe não existe no cofre.")});
    result = run(QStringLiteral("ls"), {QStringLiteral("./x")});
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Caminho inválido no cofre: \"./x\"")});
    QVERIFY(result.output.isEmpty());
    // The root by any of its spellings, in an empty vault: nothing listed.
    for (const QString& root : {QStringLiteral("/"), QString(), QStringLiteral("//")}) {
        result = run(QStringLiteral("ls"), {root});
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.output.isEmpty());
    }
}

void TestCliContents::exportWritesExactBytes()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("grande.bin")), 2 * Block + 5, 4));
    QVERIFY(writeSource(QStringLiteral("vazio.txt"), QByteArray()));
    QCOMPARE(
        run(QStringLiteral("import"), {QStringLiteral("grande.bin"), QStringLiteral("vazio.txt")}).exitCode,
        0);

    CliResult result = run(QStringLiteral("export"), {QStringLiteral("grande.bin"), QStringLiteral("-")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.errors.isEmpty());
    QCOMPARE(result.output.size(), 2 * Block + 5);
    QVERIFY(result.output == TestFiles::read(path(QStringLiteral("grande.bin"))));

    // Into a folder, under the file's own name.
    QVERIFY(QDir().mkdir(path(QStringLiteral("saida"))));
    result = run(QStringLiteral("export"), {QStringLiteral("vazio.txt"), QStringLiteral("saida")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(QFileInfo(path(QStringLiteral("saida/vazio.txt"))).isFile());
    QCOMPARE(QFileInfo(path(QStringLiteral("saida/vazio.txt"))).size(), 0);

    // --force replaces an existing file.
    QVERIFY(writeSource(QStringLiteral("saida/grande.bin"), "antigo"));
    result = run(QStringLiteral("export"),
                 {QStringLiteral("grande.bin"), QStringLiteral("saida"), QStringLiteral("--force")});
    QCOMPARE(result.exitCode, 0);
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("saida/grande.bin")),
                                    path(QStringLiteral("grande.bin"))));
}

void TestCliContents::exportRefusals()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Pasta")}).exitCode, 0);
    QVERIFY(writeSource(QStringLiteral("existente.txt"), "não mexa"));

    struct Case
    {
        QStringList arguments;
        int code;
        QString message;
    };
    const QList<Case> cases{
        {{QStringLiteral("a.txt"), QStringLiteral("existente.txt")},
         1,
         QStringLiteral("O destino já existe: existente.txt. Use --force para substituí-lo.")},
        {{QStringLiteral("a.txt"), path(QStringLiteral("falta/a.txt"))},
         1,
         QStringLiteral("A pasta de destino não existe: %1").arg(path(QStringLiteral("falta")))},
        {{QStringLiteral("nada.txt"), QStringLiteral("nada.txt")},
         1,
         QStringLiteral("O arquivo nada.txt não existe no cofre.")},
        {{QStringLiteral("../a.txt"), QStringLiteral("b.txt")},
         2,
         QStringLiteral("Caminho inválido no cofre: \"../a.txt\"")}};
    for (const Case& test : cases) {
        const CliResult result = run(QStringLiteral("export"), test.arguments);
        QCOMPARE(result.exitCode, test.code);
        QCOMPARE(result.errorLines(), QStringList{test.message});
    }
    QCOMPARE(TestFiles::read(path(QStringLiteral("existente.txt"))), QByteArray("não mexa"));
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("nada.txt"))));
}

void TestCliContents::mkdirAndRmdir()
{
    CliResult result = run(QStringLiteral("mkdir"), {QStringLiteral("Docs/2026/Notas")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Pasta criada.")});
    QCOMPARE(vaultFolders(), QStringList({QStringLiteral("Docs"), QStringLiteral("Docs/2026"),
                                          QStringLiteral("Docs/2026/Notas")}));

    result = run(QStringLiteral("mkdir"), {QStringLiteral("docs")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList{QStringLiteral("Já existe um item com esse nome nesta pasta.")});
    result = run(QStringLiteral("mkdir"), {QStringLiteral("a//..")});
    QCOMPARE(result.exitCode, 2);

    result = run(QStringLiteral("rmdir"), {QStringLiteral("docs/2026")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(),
             QStringList({QStringLiteral("A pasta não está vazia ou não pode ser excluída."),
                          QStringLiteral("A pasta Docs/2026 não está vazia.")}));
    result = run(QStringLiteral("rmdir"), {QStringLiteral("Outra")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("A pasta Outra não existe no cofre.")});
    result = run(QStringLiteral("rmdir"), {QStringLiteral("DOCS/2026/notas")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Pasta excluída.")});
    QCOMPARE(vaultFolders(), QStringList({QStringLiteral("Docs"), QStringLiteral("Docs/2026")}));
}

void TestCliContents::rmDropsTheFileButKeepsTheContainerSize()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Pasta")}).exitCode, 0);
    const qint64 size = QFileInfo(m_container).size();

    CliResult result = run(QStringLiteral("rm"), {QStringLiteral("Pasta")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Pasta é uma pasta; use rmdir.")});
    result = run(QStringLiteral("rm"), {QStringLiteral("b.txt")});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("O arquivo b.txt não existe no cofre.")});
    result = run(QStringLiteral("rm"), {QStringLiteral("A.txt")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Arquivo excluído do cofre.")});
    QCOMPARE(vaultFiles(), QStringList());
    QCOMPARE(QFileInfo(m_container).size(), size);
}

void TestCliContents::mvMovesIntoFoldersAndTheRoot()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Docs/Sub")}).exitCode, 0);

    CliResult result = run(QStringLiteral("mv"), {QStringLiteral("a.txt"), QStringLiteral("docs/sub")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Arquivo movido.")});
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("docs/sub/a.txt")});
    QCOMPARE(run(QStringLiteral("export"), {QStringLiteral("Docs/Sub/a.txt"), QStringLiteral("-")}).output,
             QByteArray("a"));

    QCOMPARE(run(QStringLiteral("mv"), {QStringLiteral("docs/sub/a.txt"), QStringLiteral("/")}).exitCode, 0);
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("a.txt")});
    QCOMPARE(run(QStringLiteral("mv"), {QStringLiteral("a.txt"), QStringLiteral("Docs")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mv"), {QStringLiteral("Docs/a.txt"), QString()}).exitCode, 0);
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("a.txt")});
}

void TestCliContents::mvRefusals()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    QVERIFY(writeSource(QStringLiteral("Docs/a.txt"), "outro a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt"), QStringLiteral("Docs")}).exitCode, 0);
    const QByteArray before = TestFiles::read(m_container);

    struct Case
    {
        QStringList arguments;
        int code;
        QString message;
    };
    const QList<Case> cases{
        {{QStringLiteral("a.txt"), QStringLiteral("docs")},
         1,
         QStringLiteral("Já existe um item com esse nome na pasta de destino.")},
        {{QStringLiteral("a.txt"), QStringLiteral("Nada")},
         1,
         QStringLiteral("A pasta Nada não existe no cofre.")},
        {{QStringLiteral("a.txt"), QStringLiteral("/")}, 1, QStringLiteral("O arquivo já está nessa pasta.")},
        {{QStringLiteral("b.txt"), QStringLiteral("Docs")},
         1,
         QStringLiteral("O arquivo b.txt não existe no cofre.")},
        {{QStringLiteral("Docs"), QStringLiteral("/")},
         1,
         QStringLiteral("Docs é uma pasta; somente arquivos podem ser movidos.")},
        {{QStringLiteral("a.txt"), QStringLiteral("../Docs")},
         2,
         QStringLiteral("Caminho inválido no cofre: \"../Docs\"")},
        {{QStringLiteral(""), QStringLiteral("Docs")}, 2, QStringLiteral("Caminho inválido no cofre: \"\"")}};
    for (const Case& test : cases) {
        const CliResult result = run(QStringLiteral("mv"), test.arguments);
        QCOMPARE(result.exitCode, test.code);
        QCOMPARE(result.errorLines(), QStringList{test.message});
    }
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliContents::renameFilesAndFolders()
{
    QVERIFY(writeSource(QStringLiteral("Docs/Sub/a.txt"), "a"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("Docs")}).exitCode, 0);

    CliResult result =
        run(QStringLiteral("rename"), {QStringLiteral("docs/sub/A.txt"), QStringLiteral("b.md")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Arquivo renomeado.")});
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("Docs/Sub/b.md")});

    result = run(QStringLiteral("rename"), {QStringLiteral("DOCS"), QStringLiteral("Papéis")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Pasta renomeada.")});
    QCOMPARE(vaultFiles(), QStringList{QStringLiteral("Papéis/Sub/b.md")});
    QCOMPARE(vaultFolders(), QStringList({QStringLiteral("Papéis"), QStringLiteral("Papéis/Sub")}));
}

void TestCliContents::renameRefusals()
{
    QVERIFY(writeSource(QStringLiteral("a.txt"), "a"));
    QVERIFY(writeSource(QStringLiteral("b.txt"), "b"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.txt"), QStringLiteral("b.txt")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Pasta")}).exitCode, 0);
    const QByteArray before = TestFiles::read(m_container);

    struct Case
    {
        QStringList arguments;
        int code;
        QString message;
    };
    const QString fileName =
        QStringLiteral("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo.");
    const QList<Case> cases{
        {{QStringLiteral("a.txt"), QStringLiteral("B.TXT")},
         1,
         QStringLiteral("Já existe um item com esse nome nesta pasta.")},
        {{QStringLiteral("a.txt"), QStringLiteral("pasta")},
         1,
         QStringLiteral("Já existe um item com esse nome nesta pasta.")},
        {{QStringLiteral("a.txt"), QStringLiteral("x/y.txt")}, 2, fileName},
        {{QStringLiteral("a.txt"), QStringLiteral("..")}, 2, fileName},
        {{QStringLiteral("Pasta"), QStringLiteral("a\\b")},
         2,
         QStringLiteral("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.")},
        {{QStringLiteral("c.txt"), QStringLiteral("d.txt")}, 1, QStringLiteral("c.txt não existe no cofre.")},
        {{QStringLiteral("a/./b"), QStringLiteral("d.txt")},
         2,
         QStringLiteral("Caminho inválido no cofre: \"a/./b\"")}};
    for (const Case& test : cases) {
        const CliResult result = run(QStringLiteral("rename"), test.arguments);
        QCOMPARE(result.exitCode, test.code);
        QCOMPARE(result.errorLines(), QStringList{test.message});
    }
    QCOMPARE(TestFiles::read(m_container), before);
}

QTEST_GUILESS_MAIN(TestCliContents)
#include "tst_clicontents.moc"
