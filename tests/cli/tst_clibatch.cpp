// velmarin-cli import of many files as one batch: the index's room checked before anything is
// written, a file that fails reported while the rest go on, a drive that stops ending the import.
#include "CliRunner.h"
#include "FailureInjection.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 KiB = 1024;

} // namespace

class TestCliBatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void aFolderOfManyFilesGoesInWhole();
    void refusesWhatTheIndexCannotHoldBeforeWriting();
    void aDriveThatStopsEndsTheImportAfterTheWholeFiles();
    void anUnreadableFileIsReportedAndTheRestGoOn();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    // count pattern files of size bytes in folder, named "<stem>00000.bin" on.
    bool makeFiles(const QString& folder, const QString& stem, int count, qint64 size) const;
    CliResult import(const QStringList& sources, const QString& failingPath = {},
                     const QByteArray& calls = {}, qint64 allowance = 0) const;
    QStringList vaultFiles() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
};

void TestCliBatch::initTestCase()
{
    QVERIFY(FailureInjection::isAvailable());
}

void TestCliBatch::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

bool TestCliBatch::makeFiles(const QString& folder, const QString& stem, int count, qint64 size) const
{
    if (!QDir().mkpath(path(folder))) {
        return false;
    }
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("%1/%2%3.bin").arg(folder, stem).arg(i, 5, 10, QLatin1Char('0'));
        if (!TestFiles::writePattern(path(name), size, static_cast<quint32>(i + 1))) {
            return false;
        }
    }
    return true;
}

CliResult TestCliBatch::import(const QStringList& sources, const QString& failingPath,
                               const QByteArray& calls, qint64 allowance) const
{
    std::unique_ptr<FailureInjection> injection;
    if (!failingPath.isEmpty()) {
        injection = std::make_unique<FailureInjection>(failingPath, calls, allowance);
    }
    // A runner takes the environment as it is when made, the shim's variables with it.
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
    cli.useTestPassword();
    return cli.run(QStringList{QStringLiteral("import"), m_container} + sources);
}

QStringList TestCliBatch::vaultFiles() const
{
    VaultManager vault;
    QStringList files;
    if (vault.unlock(m_container, TestFiles::password(), VaultManager::Access::ReadOnly)) {
        for (const auto& file : vault.index().files()) {
            files << file.vaultPath;
        }
    }
    files.sort();
    return files;
}

void TestCliBatch::aFolderOfManyFilesGoesInWhole()
{
    QVERIFY(makeFiles(QStringLiteral("Fotos/2026"), QStringLiteral("foto"), 300, 2 * KiB));
    QVERIFY(QDir().mkpath(path(QStringLiteral("Fotos/Vazia"))));
    const CliResult result = import({QStringLiteral("Fotos")});
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.errorLines(), QStringList({QStringLiteral("300 arquivos importados com sucesso.")}));
    const QStringList files = vaultFiles();
    QCOMPARE(files.size(), 300);
    QCOMPARE(files.constFirst(), QStringLiteral("Fotos/2026/foto00000.bin"));
    CliRunner cli(QStringLiteral(VELMARIN_CLI), m_dir->path());
    cli.useTestPassword();
    const CliResult exported =
        cli.run({QStringLiteral("export"), m_container, QStringLiteral("Fotos/2026/foto00299.bin"),
                 path(QStringLiteral("de-volta.bin"))});
    QCOMPARE(exported.exitCode, 0);
    QVERIFY(TestFiles::sameContents(path(QStringLiteral("de-volta.bin")),
                                    path(QStringLiteral("Fotos/2026/foto00299.bin"))));
}

void TestCliBatch::refusesWhatTheIndexCannotHoldBeforeWriting()
{
    QVERIFY(makeFiles(QStringLiteral("muitos"), QString(200, QLatin1Char('n')), 16000, 1));
    const QByteArray before = TestFiles::read(m_container);
    const CliResult result = import({QStringLiteral("muitos")});
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 1);
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^O índice do cofre comporta mais (\\d+) dos 16000 arquivos "
                                          "selecionados\\. Importe em partes menores\\.$"))
            .match(lines.constFirst());
    QVERIFY2(match.hasMatch(), qPrintable(lines.constFirst()));
    QVERIFY(match.captured(1).toInt() > 1000 && match.captured(1).toInt() < 16000);
    QCOMPARE(TestFiles::read(m_container), before);
}

void TestCliBatch::aDriveThatStopsEndsTheImportAfterTheWholeFiles()
{
    QVERIFY(makeFiles(QStringLiteral("Videos"), QStringLiteral("video"), 5, 400 * KiB));
    // The drive takes one megabyte more: two whole files and part of the third.
    const CliResult result =
        import({QStringLiteral("Videos")}, m_container + QLatin1Char('$'), "write", 1024 * KiB);
    QCOMPARE(result.exitCode, 1);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 3);
    QVERIFY2(lines.at(0).startsWith(QStringLiteral("Não foi possível importar ")) &&
                 lines.at(0).endsWith(QDir::toNativeSeparators(QStringLiteral("/Videos/video00002.bin."))),
             qPrintable(lines.at(0)));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não há espaço livre suficiente na unidade do container")),
             qPrintable(lines.at(1)));
    QCOMPARE(lines.at(2), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(vaultFiles(),
             QStringList({QStringLiteral("Videos/video00000.bin"), QStringLiteral("Videos/video00001.bin")}));
}

void TestCliBatch::anUnreadableFileIsReportedAndTheRestGoOn()
{
    QVERIFY(makeFiles(QStringLiteral("Docs"), QStringLiteral("doc"), 3, 10 * KiB));
    const CliResult result = import({QStringLiteral("Docs")}, QStringLiteral("doc00001.bin"), "open-read");
    QVERIFY(result.exitCode != 0);
    const QStringList lines = result.errorLines();
    QCOMPARE(lines.size(), 3);
    QVERIFY2(lines.at(0).endsWith(QDir::toNativeSeparators(QStringLiteral("/Docs/doc00001.bin."))),
             qPrintable(lines.at(0)));
    QVERIFY2(lines.at(1).startsWith(QStringLiteral("Não foi possível ler ")), qPrintable(lines.at(1)));
    QCOMPARE(lines.at(2), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(vaultFiles(),
             QStringList({QStringLiteral("Docs/doc00000.bin"), QStringLiteral("Docs/doc00002.bin")}));
}

QTEST_GUILESS_MAIN(TestCliBatch)
#include "tst_clibatch.moc"
