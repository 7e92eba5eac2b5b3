// velmarin-cli on the file systems of real USB sticks, FAT32 through fusefat and exFAT through
// exfat-fuse: one command per step, as a script on a user's stick would run them.
#include "CliRunner.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTemporaryDir>
#include <QtTest>

using Velmarin::Core::VaultManager;
using Velmarin::Tests::CliResult;
using Velmarin::Tests::CliRunner;
using Velmarin::Tests::MountedDrive;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

} // namespace

class TestCliRealFileSystems : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aWholeSessionOnTheStick_data();
    void aWholeSessionOnTheStick();
};

void TestCliRealFileSystems::aWholeSessionOnTheStick_data()
{
    QTest::addColumn<MountedDrive::Kind>("kind");
    QTest::newRow("fat32") << MountedDrive::Kind::Fat32;
    QTest::newRow("exfat") << MountedDrive::Kind::Exfat;
}

void TestCliRealFileSystems::aWholeSessionOnTheStick()
{
    QFETCH(MountedDrive::Kind, kind);
    MountedDrive drive(kind, 96 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QTemporaryDir local;
    QVERIFY(local.isValid());
    const auto source = [&](const QString& name) { return local.filePath(QStringLiteral("origem/") + name); };
    QVERIFY(QDir().mkpath(source(QStringLiteral("Fotos/2024"))));
    QVERIFY(QDir().mkpath(source(QStringLiteral("Fotos/Vazia"))));
    QVERIFY(TestFiles::write(source(QStringLiteral("Fotos/vazio.txt")), QByteArray()));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/a.jpg")), 300 * KiB, 1));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/b.jpg")), MiB, 2));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("Fotos/2024/c.jpg")), 70 * KiB + 3, 3));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("notas.txt")), 1500, 4));
    QVERIFY(TestFiles::writePattern(source(QStringLiteral("grande.bin")), 17 * MiB, 5));

    CliRunner cli(QStringLiteral(VELMARIN_CLI), local.path());
    cli.useTestPassword();
    cli.setVariable(QStringLiteral("VELMARIN_NEW_PASSWORD"), QString::fromUtf8(TestFiles::password()));
    const auto run = [&](const QStringList& arguments) {
        const CliResult result = cli.run(arguments);
        if (result.exitCode != 0) {
            qWarning("%s: %s", qPrintable(arguments.join(QLatin1Char(' '))), result.errors.constData());
        }
        return result.exitCode;
    };

    // Given the drive's root, create puts the container there under its usual name.
    QCOMPARE(run({QStringLiteral("create"), drive.path()}), 0);
    const QString container = VaultManager::containerPathOn(drive.path());
    QVERIFY(QFileInfo(container).isFile());
    QCOMPARE(run({QStringLiteral("import"), container, source(QStringLiteral("Fotos")),
                  source(QStringLiteral("notas.txt")), source(QStringLiteral("grande.bin"))}),
             0);
    QCOMPARE(run({QStringLiteral("mkdir"), container, QStringLiteral("Arquivo")}), 0);
    QCOMPARE(run({QStringLiteral("rename"), container, QStringLiteral("notas.txt"),
                  QStringLiteral("anotações.txt")}),
             0);
    QCOMPARE(
        run({QStringLiteral("rename"), container, QStringLiteral("Fotos/2024"), QStringLiteral("Verão")}), 0);
    QCOMPARE(run({QStringLiteral("mv"), container, QStringLiteral("grande.bin"), QStringLiteral("Arquivo")}),
             0);
    QCOMPARE(run({QStringLiteral("rm"), container, QStringLiteral("Fotos/b.jpg")}), 0);
    QCOMPARE(run({QStringLiteral("rmdir"), container, QStringLiteral("Fotos/Vazia")}), 0);
    const qint64 sizeBefore = QFileInfo(container).size();
    QCOMPARE(run({QStringLiteral("compact"), container}), 0);
    QVERIFY(QFileInfo(container).size() < sizeBefore);

    const CliResult verify = cli.run({QStringLiteral("verify"), container, QStringLiteral("--json")});
    QCOMPARE(verify.exitCode, 0);
    const QJsonObject report = QJsonDocument::fromJson(verify.output).object();
    QCOMPARE(report.value(QStringLiteral("sound")).toBool(), true);
    QCOMPARE(report.value(QStringLiteral("files")).toInt(), 5);
    QCOMPARE(report.value(QStringLiteral("folders")).toInt(), 3);
    QCOMPARE(report.value(QStringLiteral("deadBytes")).toInteger(), qint64(0));

    const QMap<QString, QString> expected{
        {QStringLiteral("Fotos/vazio.txt"), source(QStringLiteral("Fotos/vazio.txt"))},
        {QStringLiteral("Fotos/a.jpg"), source(QStringLiteral("Fotos/a.jpg"))},
        {QStringLiteral("Fotos/Verão/c.jpg"), source(QStringLiteral("Fotos/2024/c.jpg"))},
        {QStringLiteral("anotações.txt"), source(QStringLiteral("notas.txt"))},
        {QStringLiteral("Arquivo/grande.bin"), source(QStringLiteral("grande.bin"))}};
    const CliResult list =
        cli.run({QStringLiteral("ls"), container, QStringLiteral("--recursive"), QStringLiteral("--json")});
    QCOMPARE(list.exitCode, 0);
    QStringList files;
    QStringList folders;
    for (const QJsonValue& value : QJsonDocument::fromJson(list.output).array()) {
        const QJsonObject item = value.toObject();
        const QString path = item.value(QStringLiteral("path")).toString();
        if (item.value(QStringLiteral("kind")).toString() == QLatin1String("folder")) {
            folders << path;
            continue;
        }
        files << path;
        // The digest recorded is the source's; verify above read every block against it.
        QCOMPARE(item.value(QStringLiteral("sha256")).toString().toLatin1(),
                 TestFiles::sha256sum(expected.value(path)).toHex());
    }
    files.sort();
    folders.sort();
    QStringList expectedFiles = expected.keys();
    expectedFiles.sort();
    QCOMPARE(files, expectedFiles);
    QCOMPARE(folders, QStringList({QStringLiteral("Arquivo"), QStringLiteral("Fotos"),
                                   QStringLiteral("Fotos/Verão")}));

    // Byte for byte, the files that were moved, renamed or span two blocks; one command each.
    for (const QString& path : {QStringLiteral("Arquivo/grande.bin"), QStringLiteral("Fotos/Verão/c.jpg"),
                                QStringLiteral("anotações.txt")}) {
        const QString back = local.filePath(QFileInfo(path).fileName());
        QCOMPARE(run({QStringLiteral("export"), container, path, back}), 0);
        QVERIFY2(TestFiles::sameContents(back, expected.value(path)), qPrintable(path));
    }
    // Every command let go of the container and left nothing beside it: no lock file, journal or copy.
    QCOMPARE(drive.rootNames(), QStringList{QStringLiteral("velmarin.vltx")});
}

QTEST_GUILESS_MAIN(TestCliRealFileSystems)
#include "tst_clirealfilesystems.moc"
