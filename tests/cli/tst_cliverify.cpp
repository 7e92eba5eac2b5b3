// velmarin-cli verify and compact: what a check reports on a sound, a damaged and a compacted vault.
#include "CliRunner.h"
#include "TestFiles.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 Block = 16 * 1024 * 1024;
constexpr qint64 Tag = 16;
// Magic, 20-digit length line and the 8 MiB header region: where the first block starts.
constexpr qint64 PayloadStart = 7 + 21 + 8388608;

} // namespace

class TestCliVerify : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void soundVaultIsReportedAndNothingIsWritten();
    void alteredBlockIsNamedAndExitsWithFour();
    void truncatedContainerIsDamage();
    void deletedFilesAreDeadBytesUntilCompaction();
    void compactOfADamagedVaultNamesTheFilesAndChangesNothing();
    void compactOfAWrongPasswordChangesNothing();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    CliResult run(const QString& command, const QStringList& arguments = {}) const;
    QJsonObject verifyJson() const;
    // Everything below the tool's temporary folder, with modification times.
    QStringList temporaryEntries() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<CliRunner> m_cli;
    QString m_container;
    QString m_temporary;
};

void TestCliVerify::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_cli = std::make_unique<CliRunner>(QStringLiteral(VELMARIN_CLI), m_dir->path());
    m_cli->useTestPassword();
    // The tool's own temporary folder, so a test can see whether anything was put there.
    m_temporary = path(QStringLiteral("tmp"));
    QVERIFY(QDir().mkdir(m_temporary));
    m_cli->setVariable(QStringLiteral("TMPDIR"), m_temporary);
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

CliResult TestCliVerify::run(const QString& command, const QStringList& arguments) const
{
    return m_cli->run(QStringList{command, m_container} + arguments);
}

QJsonObject TestCliVerify::verifyJson() const
{
    const CliResult result = run(QStringLiteral("verify"), {QStringLiteral("--json")});
    return QJsonDocument::fromJson(result.output).object();
}

QStringList TestCliVerify::temporaryEntries() const
{
    QStringList entries;
    QDirIterator it(m_temporary, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        entries << it.filePath() + QLatin1Char(' ') +
                       it.fileInfo().lastModified().toString(Qt::ISODateWithMs);
    }
    entries.sort();
    return entries;
}

void TestCliVerify::soundVaultIsReportedAndNothingIsWritten()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("um.bin")), 100, 1));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("dois.bin")), Block + 1, 2));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("um.bin"), QStringLiteral("dois.bin"),
                                            QStringLiteral("--to"), QStringLiteral("Docs")})
                 .exitCode,
             0);
    QCOMPARE(run(QStringLiteral("mkdir"), {QStringLiteral("Vazia")}).exitCode, 0);
    const QByteArray before = TestFiles::read(m_container);
    const QDateTime modified = QFileInfo(m_container).lastModified();
    const QStringList temporaryBefore = temporaryEntries();

    const CliResult result = run(QStringLiteral("verify"));
    QCOMPARE(result.exitCode, 0);
    const qint64 live = (100 + Tag) + (Block + Tag) + (1 + Tag);
    QCOMPARE(result.outputLines(), QStringList({QStringLiteral("Arquivos: 2"), QStringLiteral("Pastas: 2"),
                                                QStringLiteral("Dados em uso: 16,0 MB (%1 bytes)").arg(live),
                                                QStringLiteral("Dados mortos: 0 bytes")}));
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("Nenhum dano encontrado.")});

    const QJsonObject report = verifyJson();
    QCOMPARE(report.value(QStringLiteral("files")).toInt(), 2);
    QCOMPARE(report.value(QStringLiteral("folders")).toInt(), 2);
    QCOMPARE(report.value(QStringLiteral("liveBytes")).toInteger(), live);
    QCOMPARE(report.value(QStringLiteral("deadBytes")).toInteger(), 0);
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), true);
    QCOMPARE(report.value(QStringLiteral("damaged")).toArray().size(), 0);

    // Read only: the container is untouched and no workspace was made in the temporary folder.
    QCOMPARE(TestFiles::read(m_container), before);
    QCOMPARE(QFileInfo(m_container).lastModified(), modified);
    QCOMPARE(temporaryEntries(), temporaryBefore);
}

void TestCliVerify::alteredBlockIsNamedAndExitsWithFour()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("primeiro.bin")), 100, 3));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("segundo.bin")), Block + 50, 4));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("primeiro.bin")}).exitCode, 0);
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("segundo.bin")}).exitCode, 0);

    // Blocks follow each other from the payload start in import order: one byte inside the
    // second block of segundo.bin is flipped.
    QFile container(m_container);
    QVERIFY(container.open(QIODevice::ReadWrite));
    const qint64 where = PayloadStart + (100 + Tag) + (Block + Tag) + 7;
    QCOMPARE(container.size(), where - 7 + 50 + Tag);
    QVERIFY(container.seek(where));
    const char original = container.read(1).at(0);
    QVERIFY(container.seek(where));
    QCOMPARE(container.write(QByteArray(1, static_cast<char>(original ^ 0x20))), 1);
    container.close();
    const QByteArray damaged = TestFiles::read(m_container);

    const CliResult result = run(QStringLiteral("verify"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.outputLines().mid(4),
             QStringList{QStringLiteral("Danificado: segundo.bin (bloco 2 de 2 ilegível)")});
    QCOMPARE(result.errorLines(), QStringList{QStringLiteral("1 arquivo danificado.")});
    QCOMPARE(TestFiles::read(m_container), damaged);

    const CliResult json = run(QStringLiteral("verify"), {QStringLiteral("--json")});
    QCOMPARE(json.exitCode, 4);
    const QJsonObject report = QJsonDocument::fromJson(json.output).object();
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), false);
    const QJsonArray list = report.value(QStringLiteral("damaged")).toArray();
    QCOMPARE(list.size(), 1);
    const QJsonObject entry = list.first().toObject();
    QCOMPARE(entry.value(QStringLiteral("path")).toString(), QStringLiteral("segundo.bin"));
    QCOMPARE(entry.value(QStringLiteral("problem")).toString(), QStringLiteral("block"));
    QCOMPARE(entry.value(QStringLiteral("block")).toInt(), 2);
    QCOMPARE(entry.value(QStringLiteral("blocks")).toInt(), 2);

    // The other file still exports; the damaged one stops at the damaged block.
    QCOMPARE(run(QStringLiteral("export"), {QStringLiteral("primeiro.bin"), QStringLiteral("-")}).output,
             TestFiles::read(path(QStringLiteral("primeiro.bin"))));
    QCOMPARE(
        run(QStringLiteral("export"), {QStringLiteral("segundo.bin"), QStringLiteral("copia.bin")}).exitCode,
        1);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("copia.bin"))));
}

void TestCliVerify::truncatedContainerIsDamage()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("a.bin")), 1000, 5));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("b.bin")), 1000, 6));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("a.bin"), QStringLiteral("b.bin")}).exitCode, 0);
    QFile container(m_container);
    QVERIFY(container.resize(container.size() - 10));

    const CliResult result = run(QStringLiteral("verify"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(result.outputLines().mid(4),
             QStringList{QStringLiteral("Danificado: b.bin (bloco 1 de 1 ilegível)")});
}

void TestCliVerify::deletedFilesAreDeadBytesUntilCompaction()
{
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("fica.bin")), 3000, 7));
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("sai.bin")), Block + 3, 8));
    QCOMPARE(run(QStringLiteral("import"), {QStringLiteral("fica.bin"), QStringLiteral("sai.bin")}).exitCode,
             0);
    QCOMPARE(run(QStringLiteral("rm"), {QStringLiteral("sai.bin")}).exitCode, 0);
    const qint64 dead = (Block + Tag) + (3 + Tag);
    QJsonObject report = verifyJson();
    QCOMPARE(report.value(QStringLiteral("files")).toInt(), 1);
    QCOMPARE(report.value(QStringLiteral("liveBytes")).toInteger(), 3000 + Tag);
    QCOMPARE(report.value(QStringLiteral("deadBytes")).toInteger(), dead);
    const qint64 sizeBefore = QFileInfo(m_container).size();

    const CliResult result = run(QStringLiteral("compact"));
    QCOMPARE(result.exitCode, 0);
    // Progress is drawn only on a terminal; standard error here is a pipe.
    QCOMPARE(result.errorLines(), QStringList({QStringLiteral("Cofre compactado com sucesso."),
                                               QStringLiteral("Espaço liberado: 16,0 MB.")}));
    QCOMPARE(QFileInfo(m_container).size(), sizeBefore - dead);

    report = verifyJson();
    QCOMPARE(report.value(QStringLiteral("deadBytes")).toInteger(), 0);
    QCOMPARE(report.value(QStringLiteral("liveBytes")).toInteger(), 3000 + Tag);
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), true);
    QCOMPARE(run(QStringLiteral("export"), {QStringLiteral("fica.bin"), QStringLiteral("-")}).output,
             TestFiles::read(path(QStringLiteral("fica.bin"))));
}

void TestCliVerify::compactOfADamagedVaultNamesTheFilesAndChangesNothing()
{
    const QStringList names{QStringLiteral("a.bin"), QStringLiteral("b.bin"), QStringLiteral("c.bin"),
                            QStringLiteral("d.bin")};
    for (int i = 0; i < names.size(); ++i) {
        QVERIFY(TestFiles::writePattern(path(names.at(i)), 100 * (i + 1), 20 + i));
        // One import each, so the blocks lie in this order from the payload start.
        QCOMPARE(run(QStringLiteral("import"), {names.at(i)}).exitCode, 0);
    }
    QCOMPARE(run(QStringLiteral("rm"), {QStringLiteral("d.bin")}).exitCode, 0);
    QFile container(m_container);
    QVERIFY(container.open(QIODevice::ReadWrite));
    for (const qint64 where : {PayloadStart + 7, PayloadStart + (100 + Tag) + (200 + Tag) + 7}) {
        QVERIFY(container.seek(where));
        const char original = container.read(1).at(0);
        QVERIFY(container.seek(where));
        QCOMPARE(container.write(QByteArray(1, static_cast<char>(original ^ 0x20))), 1);
    }
    container.close();
    const QByteArray damaged = TestFiles::read(m_container);
    const QStringList temporaryBefore = temporaryEntries();

    const CliResult result = run(QStringLiteral("compact"));
    QCOMPARE(result.exitCode, 4);
    QCOMPARE(
        result.errorLines(),
        QStringList({QStringLiteral("O cofre não foi compactado porque estes arquivos estão danificados:"),
                     QStringLiteral("a.bin"), QStringLiteral("c.bin"),
                     QStringLiteral("Nada foi alterado: o container continua como estava.")}));
    QVERIFY(result.output.isEmpty());
    QCOMPARE(TestFiles::read(m_container), damaged);
    QVERIFY(!QFileInfo::exists(m_container + QStringLiteral(".journal")));
    QVERIFY(!QFileInfo::exists(m_container + QStringLiteral(".new")));
    QCOMPARE(temporaryEntries(), temporaryBefore);

    // The vault is as before: the same damage, the sound file exports, the deleted one still takes room.
    QCOMPARE(run(QStringLiteral("verify")).exitCode, 4);
    QCOMPARE(run(QStringLiteral("export"), {QStringLiteral("b.bin"), QStringLiteral("-")}).output,
             TestFiles::read(path(QStringLiteral("b.bin"))));
    QCOMPARE(verifyJson().value(QStringLiteral("deadBytes")).toInteger(), 400 + Tag);
}

void TestCliVerify::compactOfAWrongPasswordChangesNothing()
{
    const QByteArray before = TestFiles::read(m_container);
    m_cli->setVariable(QStringLiteral("VELMARIN_PASSWORD"), QStringLiteral("senha errada demais"));
    for (const QString& command : {QStringLiteral("compact"), QStringLiteral("verify")}) {
        const CliResult result = run(command);
        QCOMPARE(result.exitCode, 3);
        QCOMPARE(result.errorLines(),
                 QStringList{QStringLiteral("Não foi possível desbloquear o cofre. Verifique a "
                                            "senha ou se o container foi alterado.")});
    }
    QCOMPARE(TestFiles::read(m_container), before);
}

QTEST_GUILESS_MAIN(TestCliVerify)
#include "tst_cliverify.moc"
