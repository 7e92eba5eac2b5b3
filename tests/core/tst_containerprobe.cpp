#include "FailureInjection.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerProbe.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>

#ifdef Q_OS_UNIX
#include <sys/stat.h>
#endif

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Verdict = ContainerProbe::Verdict;

Q_DECLARE_METATYPE(ContainerProbe::Verdict)

namespace {

constexpr qint64 Region = 8388608;

// A container laid out by hand: magic, padded length line, JSON, zeros to the end of the region.
QByteArray containerBytes(const QByteArray& json, const QByteArray& magic = "VLTBOX3")
{
    QByteArray bytes = magic + QByteArray::number(json.size()).rightJustified(20, '0') + '\n' + json;
    bytes += QByteArray(Region - json.size(), '\0');
    return bytes;
}

const QByteArray MinimalJson = R"({"formatVersion":3,"magic":"VLTBOX"})";

qint64 bytesRead()
{
    QFile io(QStringLiteral("/proc/self/io"));
    if (!io.open(QIODevice::ReadOnly)) {
        return -1;
    }
    for (const QByteArray& line : io.readAll().split('\n')) {
        if (line.startsWith("rchar:")) {
            return line.mid(6).trimmed().toLongLong();
        }
    }
    return -1;
}

} // namespace

namespace Velmarin::Core {

// Names the verdicts in QCOMPARE's messages.
char* toString(Verdict verdict)
{
    switch (verdict) {
    case Verdict::Readable:
        return qstrdup("Readable");
    case Verdict::Missing:
        return qstrdup("Missing");
    case Verdict::NotAFile:
        return qstrdup("NotAFile");
    case Verdict::Unreadable:
        return qstrdup("Unreadable");
    case Verdict::NewerFormat:
        return qstrdup("NewerFormat");
    case Verdict::NotAContainer:
        return qstrdup("NotAContainer");
    }
    return qstrdup(QByteArray::number(int(verdict)).constData());
}

} // namespace Velmarin::Core

class TestContainerProbe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void aRealVaultIsReadable();
    void verdictsAgreeWithTheReader_data();
    void verdictsAgreeWithTheReader();
    void aVaultOfALaterFormatVersionIsNewer();
    void nothingThereIsMissing();
    void foldersPipesAndDevicesAreNotFiles();
    void systemRefusalsKeepTheirErrorAsRoot();
    void aFailingDriveKeepsTheSystemError_data();
    void aFailingDriveKeepsTheSystemError();
    void readsNoMoreThanTheHeader();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    // The probe's verdict, after checking that readHeader reads exactly what the probe calls readable.
    Verdict verdictAgreeingWithReader(const QString& file) const;

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestContainerProbe::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

Verdict TestContainerProbe::verdictAgreeingWithReader(const QString& file) const
{
    const ContainerProbe::Finding finding = ContainerProbe::probe(file);
    ContainerHeader header;
    header.formatVersion = 77;
    const bool read = ContainerFile().readHeader(file, header);
    if (read != (finding.verdict == Verdict::Readable) || (!read && header.formatVersion != 77)) {
        qWarning("readHeader answered %d beside verdict %d", read, int(finding.verdict));
        return Verdict(-1);
    }
    if (finding.verdict != Verdict::Unreadable &&
        (!finding.systemError.isEmpty() || finding.errorNumber != 0)) {
        qWarning("a system error beside verdict %d", int(finding.verdict));
        return Verdict(-1);
    }
    return finding.verdict;
}

void TestContainerProbe::aRealVaultIsReadable()
{
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    QCOMPARE(verdictAgreeingWithReader(container), Verdict::Readable);
}

void TestContainerProbe::verdictsAgreeWithTheReader_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Verdict>("verdict");
    const QByteArray good = containerBytes(MinimalJson);
    QTest::newRow("minimal header") << good << Verdict::Readable;
    QTest::newRow("minimal header and a payload") << good + "blocos" << Verdict::Readable;
    QTest::newRow("empty file") << QByteArray() << Verdict::NotAContainer;
    QTest::newRow("text file") << QByteArray("Lista de compras\nleite\n") << Verdict::NotAContainer;
    QTest::newRow("random bytes") << TestFiles::pattern(9 * 1024 * 1024, 7) << Verdict::NotAContainer;
    QTest::newRow("VLTBOX4 and a whole region")
        << containerBytes(R"({"formatVersion":4,"magic":"VLTBOX"})", "VLTBOX4") << Verdict::NewerFormat;
    QTest::newRow("VLTBOX4 and anything")
        << QByteArray("VLTBOX4\x01\x02 qualquer coisa") << Verdict::NewerFormat;
    QTest::newRow("VLTBOX9 alone") << QByteArray("VLTBOX9") << Verdict::NewerFormat;
    QTest::newRow("VLTBOX2") << containerBytes(MinimalJson, "VLTBOX2") << Verdict::NotAContainer;
    QTest::newRow("VLTBOX0") << containerBytes(MinimalJson, "VLTBOX0") << Verdict::NotAContainer;
    QTest::newRow("VLTBOX then a letter") << containerBytes(MinimalJson, "VLTBOXx") << Verdict::NotAContainer;
    QTest::newRow("VLTBOX alone") << QByteArray("VLTBOX") << Verdict::NotAContainer;
    QTest::newRow("vltbox9 in lower case") << QByteArray("vltbox9") << Verdict::NotAContainer;
    QTest::newRow("formatVersion 4") << containerBytes(R"({"formatVersion":4,"magic":"VLTBOX"})")
                                     << Verdict::NewerFormat;
    QTest::newRow("formatVersion 9999")
        << containerBytes(R"({"formatVersion":9999,"magic":"VLTBOX"})") << Verdict::NewerFormat;
    QTest::newRow("formatVersion 2") << containerBytes(R"({"formatVersion":2,"magic":"VLTBOX"})")
                                     << Verdict::NotAContainer;
    QTest::newRow("formatVersion 4 as text")
        << containerBytes(R"({"formatVersion":"4","magic":"VLTBOX"})") << Verdict::NotAContainer;
    QTest::newRow("formatVersion 4.5")
        << containerBytes(R"({"formatVersion":4.5,"magic":"VLTBOX"})") << Verdict::NotAContainer;
    QTest::newRow("formatVersion 4 in broken JSON")
        << containerBytes(R"({"formatVersion":4,"magic":)") << Verdict::NotAContainer;
    QTest::newRow("header cut inside the length line") << good.left(15) << Verdict::NotAContainer;
    QTest::newRow("header cut inside the JSON") << good.left(40) << Verdict::NotAContainer;
    QTest::newRow("header one byte short of the region")
        << good.left(good.size() - 1) << Verdict::NotAContainer;
    QTest::newRow("formatVersion 4 one byte short of the region")
        << containerBytes(R"({"formatVersion":4,"magic":"VLTBOX"})").chopped(1) << Verdict::NotAContainer;
}

void TestContainerProbe::verdictsAgreeWithTheReader()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Verdict, verdict);
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::write(container, bytes));
    QCOMPARE(verdictAgreeingWithReader(container), verdict);
}

void TestContainerProbe::aVaultOfALaterFormatVersionIsNewer()
{
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    const ContainerFile file;
    ContainerHeader header;
    QVERIFY(file.readHeader(container, header));
    header.formatVersion = 4;
    QVERIFY(file.rewriteHeader(container, header));
    QVERIFY(TestFiles::read(container).contains(R"("formatVersion":4)"));
    QCOMPARE(verdictAgreeingWithReader(container), Verdict::NewerFormat);

    header.formatVersion = 3;
    QVERIFY(file.rewriteHeader(container, header));
    QCOMPARE(verdictAgreeingWithReader(container), Verdict::Readable);
}

void TestContainerProbe::nothingThereIsMissing()
{
    QCOMPARE(verdictAgreeingWithReader(path(QStringLiteral("velmarin.vltx"))), Verdict::Missing);
    QCOMPARE(verdictAgreeingWithReader(path(QStringLiteral("sem-pasta/velmarin.vltx"))), Verdict::Missing);
    QCOMPARE(ContainerProbe::probe(QString()).verdict, Verdict::Missing);
#ifdef Q_OS_UNIX
    // A link is never followed, even to nothing: something other than a file stands at the path.
    QVERIFY(QFile::link(path(QStringLiteral("sumiu.vltx")), path(QStringLiteral("atalho.vltx"))));
    QCOMPARE(verdictAgreeingWithReader(path(QStringLiteral("atalho.vltx"))), Verdict::NotAFile);
#endif
}

void TestContainerProbe::foldersPipesAndDevicesAreNotFiles()
{
    QVERIFY(QDir(m_dir->path()).mkdir(QStringLiteral("velmarin.vltx")));
    QCOMPARE(verdictAgreeingWithReader(path(QStringLiteral("velmarin.vltx"))), Verdict::NotAFile);
#ifdef Q_OS_UNIX
    // A plain open of a pipe nobody writes to would never return; readHeader is not asked.
    const QString pipe = path(QStringLiteral("cano.vltx"));
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QCOMPARE(ContainerProbe::probe(pipe).verdict, Verdict::NotAFile);
    QCOMPARE(verdictAgreeingWithReader(QStringLiteral("/dev/null")), Verdict::NotAFile);
#endif
}

void TestContainerProbe::systemRefusalsKeepTheirErrorAsRoot()
{
#ifndef Q_OS_UNIX
    QSKIP("The errors made here are POSIX ones");
#else
    // Permissions do not stop root; a file where a folder should be does.
    const QString file = path(QStringLiteral("arquivo"));
    QVERIFY(TestFiles::write(file, containerBytes(MinimalJson)));
    ContainerProbe::Finding finding = ContainerProbe::probe(file + QStringLiteral("/velmarin.vltx"));
    QCOMPARE(finding.verdict, Verdict::Unreadable);
    QCOMPARE(finding.errorNumber, ENOTDIR);
    QCOMPARE(finding.systemError, qt_error_string(ENOTDIR));
    QVERIFY(!finding.systemError.isEmpty());
    QCOMPARE(verdictAgreeingWithReader(file + QStringLiteral("/velmarin.vltx")), Verdict::Unreadable);

    // A loop of links is refused as the link it is, before the system would follow it.
    const QString loop = path(QStringLiteral("laco.vltx"));
    QVERIFY(QFile::link(loop, loop));
    QCOMPARE(verdictAgreeingWithReader(loop), Verdict::NotAFile);
#endif
}

void TestContainerProbe::aFailingDriveKeepsTheSystemError_data()
{
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<qint64>("allowance");
    QTest::newRow("open refused") << QByteArray("open-read") << qint64(0);
    QTest::newRow("first read") << QByteArray("read") << qint64(0);
    QTest::newRow("read after the magic") << QByteArray("read") << qint64(7);
    QTest::newRow("read inside the JSON") << QByteArray("read") << qint64(40);
}

void TestContainerProbe::aFailingDriveKeepsTheSystemError()
{
    QFETCH(QByteArray, calls);
    QFETCH(qint64, allowance);
    QVERIFY(FailureInjection::isAvailable());
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(MinimalJson)));
    QCOMPARE(ContainerProbe::probe(container).verdict, Verdict::Readable);

    const FailureInjection injection(QStringLiteral("velmarin.vltx"), calls, allowance);
    const ContainerProbe::Finding finding = ContainerProbe::probe(container);
    QCOMPARE(finding.verdict, Verdict::Unreadable);
    QCOMPARE(finding.errorNumber, EIO);
    QCOMPARE(finding.systemError, qt_error_string(EIO));
    ContainerHeader header;
    QVERIFY(!ContainerFile().readHeader(container, header));
}

void TestContainerProbe::readsNoMoreThanTheHeader()
{
    const QString container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::write(container, containerBytes(MinimalJson)));
    // A payload of 1 GiB, sparse: reading into it would show in the counter at once.
    QFile grow(container);
    QVERIFY(grow.resize(Region + (qint64(1) << 30)));
    const QString newer = path(QStringLiteral("nova.vltx"));
    QVERIFY(TestFiles::write(newer, containerBytes(R"({"formatVersion":4,"magic":"VLTBOX"})")));
    const QString random = path(QStringLiteral("aleatorio.vltx"));
    QVERIFY(TestFiles::write(random, TestFiles::pattern(9 * 1024 * 1024, 11)));

    for (const QString& file : {container, newer, random}) {
        const qint64 before = bytesRead();
        QVERIFY(before >= 0);
        (void)ContainerProbe::probe(file);
        const qint64 read = bytesRead() - before;
        QVERIFY2(read < 64 * 1024, qPrintable(file + QLatin1Char(' ') + QString::number(read)));
    }
}

QTEST_GUILESS_MAIN(TestContainerProbe)
#include "tst_containerprobe.moc"
