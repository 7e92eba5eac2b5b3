// velmarin-cli verify and export on indexes no change writes: hostile paths, case duplicates,
// overlapping blocks, and a block named many times by a file recorded as one block long.
#include "CliRunner.h"
#include "HostileIndex.h"
#include "TestFiles.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::HostileIndex;
using Velmarin::Tests::TestFiles;

class TestCliIndexAudit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void irregularEntriesAreDamageInTextAndJson();
    void caseDuplicatesEachExportTheirOwnBytes();
    void aBlockReferencedManyTimesDoesNotExport();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult run(const QString& command, const QStringList& arguments = {}) const
    {
        return m_cli->run(QStringList{command, m_container} + arguments);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
};

void TestCliIndexAudit::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestCliIndexAudit::irregularEntriesAreDamageInTextAndJson()
{
    QVERIFY(TestFiles::write(path(QStringLiteral("certo.txt")), "certo"));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("certo.txt")}).exitCode, 0);
    QVERIFY(HostileIndex::addFiles(m_container, TestFiles::password(),
                                   {{QStringLiteral("../fora.txt"), "fora"},
                                    {QStringLiteral("/etc/absoluto.txt"), "absoluto"},
                                    {QStringLiteral("a\\b.txt"), "invertida"},
                                    {QStringLiteral("Sumida/nota.txt"), "sem pasta"}}));
    QVERIFY(HostileIndex::addCaseDuplicates(m_container, TestFiles::password()));
    QVERIFY(HostileIndex::addSharedBlocks(m_container, TestFiles::password(), QStringLiteral("certo.txt"),
                                          QStringLiteral("copia.txt")));

    const CliResult result = run(QStringLiteral("verify"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(
        result.outputLines().mid(4),
        QStringList(
            {QStringLiteral("Danificado: certo.txt (bloco 1 de 1 sobreposto a um bloco de copia.txt)"),
             QStringLiteral("Danificado: ../fora.txt (caminho com \".\" ou \"..\")"),
             QStringLiteral("Danificado: /etc/absoluto.txt (caminho absoluto)"),
             QStringLiteral("Danificado: a\\b.txt (caminho com barra invertida)"),
             QStringLiteral("Danificado: Sumida/nota.txt (a pasta Sumida não está no índice)"),
             QStringLiteral("Danificado: dup.txt (mesmo nome que DUP.txt em outras maiúsculas e "
                            "minúsculas)"),
             QStringLiteral("Danificado: DUP.txt (mesmo nome que dup.txt em outras maiúsculas e "
                            "minúsculas)"),
             QStringLiteral("Danificado: copia.txt (bloco 1 de 1 sobreposto a um bloco de certo.txt)")}));
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("8 arquivos danificados.")});

    const CliResult json = run(QStringLiteral("verify"), {QStringLiteral("--json")});
    QCOMPARE(json.exitCode, 4);
    const QJsonObject report = QJsonDocument::fromJson(json.output).object();
    QCOMPARE(report.value(QStringLiteral("files")).toInt(), 8);
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), false);
    const QJsonArray list = report.value(QStringLiteral("damaged")).toArray();
    QStringList problems;
    for (const QJsonValue& value : list) {
        const QJsonObject entry = value.toObject();
        problems << entry.value(QStringLiteral("path")).toString() + QLatin1Char(' ') +
                        entry.value(QStringLiteral("problem")).toString() + QLatin1Char(' ') +
                        entry.value(QStringLiteral("other")).toString();
    }
    QCOMPARE(problems,
             QStringList(
                 {QStringLiteral("certo.txt overlap copia.txt"), QStringLiteral("../fora.txt dot-segment "),
                  QStringLiteral("/etc/absoluto.txt absolute-path "), QStringLiteral("a\\b.txt backslash "),
                  QStringLiteral("Sumida/nota.txt missing-folder Sumida"),
                  QStringLiteral("dup.txt case-duplicate DUP.txt"),
                  QStringLiteral("DUP.txt case-duplicate dup.txt"),
                  QStringLiteral("copia.txt overlap certo.txt")}));
    const QJsonObject overlap = list.first().toObject();
    QCOMPARE(overlap.value(QStringLiteral("block")).toInt(), 1);
    QCOMPARE(overlap.value(QStringLiteral("blocks")).toInt(), 1);
    QVERIFY(!list.at(1).toObject().contains(QStringLiteral("other")));
    QVERIFY(!list.at(1).toObject().contains(QStringLiteral("block")));
}

void TestCliIndexAudit::caseDuplicatesEachExportTheirOwnBytes()
{
    QVERIFY(HostileIndex::addCaseDuplicates(m_container, TestFiles::password()));
    QCOMPARE(run(QStringLiteral("ls")).outputLines().size(), 2);
    const CliResult lower = run(QStringLiteral("export"), {QStringLiteral("dup.txt"), QStringLiteral("-")});
    QCOMPARE(lower.exitCode, 0);
    QCOMPARE(lower.output, HostileIndex::lowerContents());
    const CliResult upper =
        run(QStringLiteral("export"), {QStringLiteral("DUP.txt"), path(QStringLiteral("maiusculas.txt"))});
    QCOMPARE(upper.exitCode, 0);
    QCOMPARE(TestFiles::read(path(QStringLiteral("maiusculas.txt"))), HostileIndex::upperContents());
}

void TestCliIndexAudit::aBlockReferencedManyTimesDoesNotExport()
{
    const QByteArray contents = "dezessete bytes!!";
    QVERIFY(HostileIndex::addRepeatedBlock(m_container, TestFiles::password(), QStringLiteral("repetido.txt"),
                                           contents, 20000));
    const QString destination = path(QStringLiteral("repetido.txt"));
    const CliResult result = run(QStringLiteral("export"), {QStringLiteral("repetido.txt"), destination});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.errorLines(), QStringList({QStringLiteral("Não foi possível exportar o arquivo."),
                                               QStringLiteral("O arquivo repetido.txt está danificado no "
                                                              "container.")}));
    QVERIFY(!QFileInfo::exists(destination));

    // To standard output no more than the recorded size ever leaves.
    const CliResult piped =
        run(QStringLiteral("export"), {QStringLiteral("repetido.txt"), QStringLiteral("-")});
    QCOMPARE(piped.exitCode, 1);
    QCOMPARE(piped.output, contents);

    const CliResult verify = run(QStringLiteral("verify"));
    QCOMPARE(verify.exitCode, 4);
    QCOMPARE(verify.outputLines().mid(4),
             QStringList{QStringLiteral("Danificado: repetido.txt (tamanho diferente do registrado)")});
}

QTEST_GUILESS_MAIN(TestCliIndexAudit)
#include "tst_cliindexaudit.moc"
