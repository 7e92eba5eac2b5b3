#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/WriteBehind.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QtTest>

#include <cerrno>
#include <sys/mman.h>
#include <sys/vfs.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;
using Reason = Failure::Reason;

namespace {

constexpr qint64 MiB = 1024 * 1024;
// tmpfs keeps its pages in memory by nature: there is no drive to send them to.
constexpr long TmpfsMagic = 0x01021994;

bool onTmpfs(const QString& path)
{
    struct statfs info
    {};
    return ::statfs(QFile::encodeName(path).constData(), &info) == 0 && info.f_type == TmpfsMagic;
}

// How many of the file's pages in [from, to) the system's cache holds.
qint64 cachedPages(const QString& path, qint64 from, qint64 to)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return -1;
    }
    const long page = ::sysconf(_SC_PAGESIZE);
    void* mapped = ::mmap(nullptr, static_cast<size_t>(to), PROT_READ, MAP_SHARED, file.handle(), 0);
    if (mapped == MAP_FAILED) {
        return -1;
    }
    std::vector<unsigned char> resident(static_cast<size_t>((to + page - 1) / page));
    qint64 count = -1;
    if (::mincore(mapped, static_cast<size_t>(to), resident.data()) == 0) {
        count = 0;
        for (qint64 at = from / page; at < to / page; ++at) {
            count += resident[static_cast<size_t>(at)] & 1;
        }
    }
    ::munmap(mapped, static_cast<size_t>(to));
    return count;
}

} // namespace

// Long writes reach the drive while they are made, and a refusal the system reports along the way
// fails the operation with the system's words, since the final sync no longer sees it.
class TestWriteBehind : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aLongWriteLeavesTheSystemsCache();
    void aDeviceThatIsNotAFileIsWrittenAsBefore();
    void blocksReadOnceLeaveTheSystemsCache();
    void aRefusedWritebackFailsTheImportAndChangesNothing();
    void aRefusedWritebackFailsTheExportWithTheSystemsWords();
    void aRefusedWritebackFailsTheCompactionBeforeTheSwap();
    void aFileSystemWithoutWritebackIsWrittenAsBefore();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    VaultManager& vault() { return m_fixture.vault(); }

    VaultFixture m_fixture;
};

void TestWriteBehind::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestWriteBehind::cleanup()
{
    m_fixture.tearDown();
}

void TestWriteBehind::aLongWriteLeavesTheSystemsCache()
{
    const QString target = path(QStringLiteral("longo.bin"));
    if (onTmpfs(target)) {
        QTest::qSkip("the temporary folder is on tmpfs, whose pages have no drive to go to", __FILE__,
                     __LINE__);
        return;
    }
    const QByteArray piece = TestFiles::pattern(4 * MiB, 7);
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly));
    WriteBehind toDrive(file);
    for (int i = 0; i < 16; ++i) {
        QCOMPARE(file.write(piece), piece.size());
        QVERIFY(toDrive.advance());
    }
    file.close();
    // Everything but the last two pieces of 8 MiB is on the drive and out of the cache.
    const long page = ::sysconf(_SC_PAGESIZE);
    const qint64 early = cachedPages(target, 0, 48 * MiB);
    QVERIFY2(early >= 0, "mincore");
    QVERIFY2(early < 48 * MiB / page / 10, qPrintable(QStringLiteral("%1 pages still cached").arg(early)));
    QCOMPARE(TestFiles::read(target).left(piece.size()), piece);
    QCOMPARE(QFileInfo(target).size(), 64 * MiB);
}

void TestWriteBehind::aDeviceThatIsNotAFileIsWrittenAsBefore()
{
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    WriteBehind toDrive(buffer);
    const QByteArray piece = TestFiles::pattern(9 * MiB, 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(buffer.write(piece), piece.size());
        QVERIFY(toDrive.advance());
    }
    QCOMPARE(buffer.data().size(), 3 * piece.size());
    QVERIFY(toDrive.errorString().isEmpty());
}

void TestWriteBehind::blocksReadOnceLeaveTheSystemsCache()
{
    if (onTmpfs(m_fixture.container())) {
        QTest::qSkip("the temporary folder is on tmpfs, whose pages have no drive to go to", __FILE__,
                     __LINE__);
        return;
    }
    const QString source = path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 15));
    QVERIFY(vault().importFile(source, QStringLiteral("video.bin")));
    const BlockEntry first = vault().index().findFile(QStringLiteral("video.bin"))->blocks.first();
    const qint64 end = QFileInfo(m_fixture.container()).size();
    const long page = ::sysconf(_SC_PAGESIZE);
    const qint64 payloadPages = (end - first.offset) / page;
    // Read whole, so everything starts in the cache.
    QVERIFY(!TestFiles::read(m_fixture.container()).isEmpty());
    QVERIFY(cachedPages(m_fixture.container(), first.offset, end) > payloadPages * 9 / 10);

    QCOMPARE(m_fixture.exported(QStringLiteral("video.bin")), TestFiles::read(source));
    const qint64 left = cachedPages(m_fixture.container(), first.offset, end);
    QVERIFY2(left >= 0, "mincore");
    QVERIFY2(left < payloadPages / 10,
             qPrintable(QStringLiteral("%1 of %2 pages still cached").arg(left).arg(payloadPages)));
}

void TestWriteBehind::aRefusedWritebackFailsTheImportAndChangesNothing()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 11));
    const qint64 before = QFileInfo(m_fixture.container()).size();
    {
        const FailureInjection failing(m_fixture.container() + QLatin1Char('$'), "writeback");
        QVERIFY(!vault().importFile(source, QStringLiteral("video.bin")));
    }
    QCOMPARE(vault().lastFailure().reason, Reason::DriveWrite);
    QCOMPARE(vault().lastFailure().path, m_fixture.container());
    QCOMPARE(vault().lastFailure().systemError, qt_error_string(EIO));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QVERIFY(vault().index().files().isEmpty());

    // The same through the batch, which keeps one container open for every file.
    {
        const FailureInjection failing(m_fixture.container() + QLatin1Char('$'), "writeback");
        const auto outcome =
            vault().importBatch({ImportItem{source, QStringLiteral("video.bin"), 40 * MiB, false}});
        QCOMPARE(outcome.imported, 0);
        QVERIFY(outcome.stopped);
    }
    QCOMPARE(vault().lastFailure().reason, Reason::DriveWrite);
    QCOMPARE(vault().lastFailure().systemError, qt_error_string(EIO));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QVERIFY(vault().index().files().isEmpty());
}

void TestWriteBehind::aRefusedWritebackFailsTheExportWithTheSystemsWords()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 12));
    QVERIFY(vault().importFile(source, QStringLiteral("video.bin")));
    const QString destination = path(QStringLiteral("copia.bin"));
    {
        const FailureInjection failing(QStringLiteral("copia.bin$"), "writeback");
        QVERIFY(!vault().exportFile(QStringLiteral("video.bin"), destination));
    }
    QCOMPARE(vault().lastFailure().reason, Reason::DestinationUnwritable);
    QCOMPARE(vault().lastFailure().path, destination);
    QCOMPARE(vault().lastFailure().systemError, qt_error_string(EIO));

    QVERIFY(vault().exportFile(QStringLiteral("video.bin"), destination));
    QVERIFY(TestFiles::sameContents(source, destination));
}

void TestWriteBehind::aRefusedWritebackFailsTheCompactionBeforeTheSwap()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 13));
    QVERIFY(vault().importFile(source, QStringLiteral("video.bin")));
    QVERIFY(m_fixture.importText(QStringLiteral("apagado.txt"), "dados mortos"));
    QVERIFY(vault().deleteFile(QStringLiteral("apagado.txt")));
    const QByteArray before = TestFiles::read(m_fixture.container());
    {
        // The copy beside the container never reached the drive whole.
        const FailureInjection failing(QStringLiteral("velmarin.vltx.new"), "writeback");
        QString preserved;
        QVERIFY(!vault().compactVault({}, &preserved));
        QVERIFY(preserved.isEmpty());
    }
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFileInfo::exists(m_fixture.container() + QStringLiteral(".new")));
    QCOMPARE(m_fixture.exported(QStringLiteral("video.bin")), TestFiles::read(source));
}

void TestWriteBehind::aFileSystemWithoutWritebackIsWrittenAsBefore()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = path(QStringLiteral("video.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 14));
    {
        const FailureInjection unsupported(QStringLiteral("velmarin.vltx"), "writeback-unsupported");
        QVERIFY(vault().importFile(source, QStringLiteral("video.bin")));
    }
    QCOMPARE(m_fixture.exported(QStringLiteral("video.bin")), TestFiles::read(source));
}

QTEST_GUILESS_MAIN(TestWriteBehind)
#include "tst_writebehind.moc"
