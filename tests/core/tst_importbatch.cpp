#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;
using Reason = Failure::Reason;

namespace {

constexpr qint64 KiB = 1024;

// A checkpoint after every whole file, so that a test sees each one.
const ImportBatch::Checkpoints EveryFile{0, 1};

} // namespace

// Many files in one go: the index is written at checkpoints, failures of one file cost that file,
// failures of the drive stop the batch after recording the whole files.
class TestImportBatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void importsFilesAndFoldersInOneIndexWrite();
    void replacesAnExistingFileInAnyLetterCase();
    void aSourceThatVanishesCostsOnlyThatFile();
    void aSourceThatChangesWhileReadIsCutBack();
    void aSourceThatShrinksWhileReadIsCutBackAndTheRestGoOn();
    void aFileThatOutgrowsItsBoundIsCutBack();
    void aFullDriveInTheMiddleOfAFileStopsAfterTheWholeOnes();
    void checkpointsRecordWholeFilesAsTheyGo();
    void theDefaultCheckpointsWaitForTimeAndData();
    void refusesUpFrontWhatTheIndexCannotHold();
    void progressCountsFilesAndBytes();
    void foldersInTheWayOfFilesAreRefusedOneByOne();

private:
    VaultManager& vault() { return m_fixture.vault(); }
    QString path(const QString& name) const { return m_fixture.path(name); }
    // Writes count pattern files of size bytes named "<stem><i>.bin" and lists them for the vault.
    QList<ImportItem> makeFiles(const QString& stem, int count, qint64 size, const QString& folder = {});
    // The sealed index's size in the container on the drive, as another reader would see it.
    qint64 indexSizeOnDrive() const;

    VaultFixture m_fixture;
};

void TestImportBatch::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestImportBatch::cleanup()
{
    m_fixture.tearDown();
}

QList<ImportItem> TestImportBatch::makeFiles(const QString& stem, int count, qint64 size,
                                             const QString& folder)
{
    QList<ImportItem> items;
    for (int i = 0; i < count; ++i) {
        const QString name = QStringLiteral("%1%2.bin").arg(stem).arg(i);
        const QString local = path(name);
        if (!TestFiles::writePattern(local, size, static_cast<quint32>(i + 1))) {
            return {};
        }
        items.append(
            ImportItem{local, folder.isEmpty() ? name : folder + QLatin1Char('/') + name, size, false});
    }
    return items;
}

qint64 TestImportBatch::indexSizeOnDrive() const
{
    ContainerHeader header;
    return ContainerFile().readHeader(m_fixture.container(), header) ? header.encryptedIndex.size() : -1;
}

void TestImportBatch::importsFilesAndFoldersInOneIndexWrite()
{
    QList<ImportItem> items = makeFiles(QStringLiteral("f"), 5, 3 * KiB, QStringLiteral("Fotos/2026"));
    items.prepend(ImportItem{path(QStringLiteral("vazia")), QStringLiteral("Vazia"), 0, true});
    const qint64 indexBefore = indexSizeOnDrive();
    QList<qint64> indexSizesSeen;
    ImportBatch::Handler handler;
    handler.include = [&](const ImportItem&, const VaultIndex&) {
        indexSizesSeen << indexSizeOnDrive();
        return true;
    };
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QVERIFY(outcome.succeeded());
    QCOMPARE(outcome.imported, 5);
    QCOMPARE(vault().lastFailure().reason, Reason::None);
    // Nothing was written to the index while the files went in: one write at the end.
    QCOMPARE(indexSizesSeen, QList<qint64>(items.size(), indexBefore));
    QVERIFY(indexSizeOnDrive() > indexBefore);
    QStringList folders = VaultFixture::directoryPaths(vault().index());
    folders.sort();
    QCOMPARE(folders,
             QStringList({QStringLiteral("Fotos"), QStringLiteral("Fotos/2026"), QStringLiteral("Vazia")}));
    for (int i = 1; i < items.size(); ++i) {
        QCOMPARE(m_fixture.exported(items.at(i).vaultPath), TestFiles::read(items.at(i).localPath));
    }
    // A fresh session reads what the batch recorded.
    QVERIFY(vault().lock());
    QVERIFY(vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault().index().files().size(), 5);
}

void TestImportBatch::replacesAnExistingFileInAnyLetterCase()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Notas/Lista.TXT"), "antiga"));
    QVERIFY(TestFiles::write(path(QStringLiteral("lista.txt")), "nova"));
    QVERIFY(TestFiles::write(path(QStringLiteral("outra.txt")), "outra"));
    const QList<ImportItem> items = {
        {path(QStringLiteral("lista.txt")), QStringLiteral("notas/lista.txt"), 4, false},
        {path(QStringLiteral("outra.txt")), QStringLiteral("Notas/outra.txt"), 5, false},
        // The same name twice in one batch: the later one wins, as two imports in a row would.
        {path(QStringLiteral("outra.txt")), QStringLiteral("NOTAS/OUTRA.txt"), 5, false},
    };
    const ImportBatch::Outcome outcome = vault().importBatch(items);
    QVERIFY(outcome.succeeded());
    QCOMPARE(outcome.imported, 3);
    QCOMPARE(VaultFixture::filePaths(vault().index()),
             QStringList({QStringLiteral("notas/lista.txt"), QStringLiteral("NOTAS/OUTRA.txt")}));
    QCOMPARE(m_fixture.exported(QStringLiteral("Notas/Lista.txt")), QByteArray("nova"));
    QCOMPARE(m_fixture.exported(QStringLiteral("notas/outra.txt")), QByteArray("outra"));
}

void TestImportBatch::aSourceThatVanishesCostsOnlyThatFile()
{
    const QList<ImportItem> items = makeFiles(QStringLiteral("s"), 4, 20 * KiB);
    const qint64 before = QFileInfo(m_fixture.container()).size();
    QList<Failure> failures;
    ImportBatch::Handler handler;
    handler.include = [&](const ImportItem& item, const VaultIndex&) {
        // Another program takes the third file away just before its turn.
        if (item.localPath == items.at(2).localPath) {
            QFile::remove(item.localPath);
        }
        return true;
    };
    handler.failed = [&](const ImportItem&, const Failure& failure) { failures << failure; };
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QVERIFY(!outcome.succeeded());
    QVERIFY(!outcome.stopped);
    QCOMPARE(outcome.failed, 1);
    QCOMPARE(outcome.imported, 3);
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures.constFirst().reason, Reason::SourceUnreadable);
    QCOMPARE(failures.constFirst().path, items.at(2).localPath);
    QVERIFY(!vault().fileExists(items.at(2).vaultPath));
    QCOMPARE(m_fixture.exported(items.at(3).vaultPath), TestFiles::read(items.at(3).localPath));
    // Three files' blocks and their tags, nothing else.
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before + 3 * (20 * KiB + 16));
}

void TestImportBatch::aSourceThatChangesWhileReadIsCutBack()
{
    // Another program appends to the second file while its first block is being stored.
    const QList<ImportItem> items = makeFiles(QStringLiteral("c"), 3, 17 * 1024 * KiB);
    const qint64 before = QFileInfo(m_fixture.container()).size();
    QList<Failure> failures;
    bool grown = false;
    ImportBatch::Handler handler;
    handler.progress = [&](const ImportBatch::Progress& progress) {
        if (!grown && progress.vaultPath == items.at(1).vaultPath && progress.fileDone > 0) {
            QFile file(items.at(1).localPath);
            grown = file.open(QIODevice::Append) && file.write("mais") == 4;
        }
    };
    handler.failed = [&](const ImportItem&, const Failure& failure) { failures << failure; };
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QVERIFY(grown);
    QCOMPARE(outcome.imported, 2);
    QCOMPARE(outcome.failed, 1);
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures.constFirst().reason, Reason::SourceChanged);
    QCOMPARE(failures.constFirst().path, items.at(1).localPath);
    QVERIFY(!vault().fileExists(items.at(1).vaultPath));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before + 2 * (17 * 1024 * KiB + 2 * 16));
    QCOMPARE(m_fixture.exported(items.at(2).vaultPath), TestFiles::read(items.at(2).localPath));
}

void TestImportBatch::aSourceThatShrinksWhileReadIsCutBackAndTheRestGoOn()
{
    // Another program cuts the second file short after its first block was stored: the file ends
    // before the end it had when opened, which is no fault of the drive.
    const QList<ImportItem> items = makeFiles(QStringLiteral("r"), 3, 40 * 1024 * KiB);
    const qint64 before = QFileInfo(m_fixture.container()).size();
    QList<Failure> failures;
    bool shrunk = false;
    ImportBatch::Handler handler;
    handler.progress = [&](const ImportBatch::Progress& progress) {
        if (!shrunk && progress.vaultPath == items.at(1).vaultPath && progress.fileDone > 0) {
            shrunk = QFile::resize(items.at(1).localPath, 1024 * KiB);
        }
    };
    handler.failed = [&](const ImportItem&, const Failure& failure) { failures << failure; };
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QVERIFY(shrunk);
    QVERIFY(!outcome.stopped);
    QCOMPARE(outcome.imported, 2);
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures.constFirst().reason, Reason::SourceChanged);
    QCOMPARE(failures.constFirst().path, items.at(1).localPath);
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before + 2 * (40 * 1024 * KiB + 3 * 16));
    QCOMPARE(m_fixture.exported(items.at(2).vaultPath), TestFiles::read(items.at(2).localPath));
}

void TestImportBatch::aFileThatOutgrowsItsBoundIsCutBack()
{
    // Listed at one byte, found at two blocks when read: more index than was reckoned with.
    QList<ImportItem> items = makeFiles(QStringLiteral("g"), 2, 17 * 1024 * KiB);
    items[0].size = 1;
    QList<Failure> failures;
    ImportBatch::Handler handler;
    handler.failed = [&](const ImportItem&, const Failure& failure) { failures << failure; };
    const qint64 before = QFileInfo(m_fixture.container()).size();
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QCOMPARE(outcome.imported, 1);
    QCOMPARE(failures.size(), 1);
    QCOMPARE(failures.constFirst().reason, Reason::SourceChanged);
    QVERIFY(!vault().fileExists(items.at(0).vaultPath));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before + 17 * 1024 * KiB + 2 * 16);
}

void TestImportBatch::aFullDriveInTheMiddleOfAFileStopsAfterTheWholeOnes()
{
    QVERIFY(FailureInjection::isAvailable());
    const QList<ImportItem> items = makeFiles(QStringLiteral("d"), 5, 400 * KiB);
    const qint64 before = QFileInfo(m_fixture.container()).size();
    ImportBatch::Outcome outcome;
    {
        // The drive takes one megabyte more: two whole files and part of the third.
        const FailureInjection full(m_fixture.container() + QLatin1Char('$'), "write", 1024 * KiB);
        outcome = vault().importBatch(items);
    }
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.stoppedAt, 2);
    QCOMPARE(outcome.imported, 2);
    QCOMPARE(outcome.failed, 0);
    QCOMPARE(vault().lastFailure().reason, Reason::NoSpace);
    QCOMPARE(vault().lastFailure().path, m_fixture.container());
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before + 2 * (400 * KiB + 16));
    QVERIFY(vault().lock());
    QVERIFY(vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(VaultFixture::filePaths(vault().index()),
             QStringList({items.at(0).vaultPath, items.at(1).vaultPath}));
    QCOMPARE(m_fixture.exported(items.at(1).vaultPath), TestFiles::read(items.at(1).localPath));
}

void TestImportBatch::checkpointsRecordWholeFilesAsTheyGo()
{
    QVERIFY(FailureInjection::isAvailable());
    const QList<ImportItem> items = makeFiles(QStringLiteral("k"), 4, 100 * KiB);
    QList<qint64> indexSizesSeen;
    ImportBatch::Handler handler;
    handler.include = [&](const ImportItem&, const VaultIndex&) {
        indexSizesSeen << indexSizeOnDrive();
        return true;
    };
    ImportBatch::Outcome outcome = vault().importBatch(items, handler, EveryFile);
    QVERIFY(outcome.succeeded());
    // Each file was on the drive's index before the next began.
    QCOMPARE(indexSizesSeen.size(), 4);
    for (int i = 1; i < indexSizesSeen.size(); ++i) {
        QVERIFY(indexSizesSeen.at(i) > indexSizesSeen.at(i - 1));
    }

    // When the index cannot be written at a checkpoint, the files since the last one are given up
    // and the batch stops; the vault is as that checkpoint left it.
    const QList<ImportItem> more = makeFiles(QStringLiteral("m"), 3, 100 * KiB);
    const qint64 before = QFileInfo(m_fixture.container()).size();
    {
        const FailureInjection failing(QStringLiteral(".journal"), "open-write");
        outcome = vault().importBatch(more, {}, EveryFile);
    }
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.stoppedAt, 0);
    QCOMPARE(outcome.imported, 0);
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QCOMPARE(vault().index().files().size(), 4);
}

void TestImportBatch::theDefaultCheckpointsWaitForTimeAndData()
{
    // Enough data for a checkpoint by size, but no time has passed: nothing until the end.
    const QList<ImportItem> items = makeFiles(QStringLiteral("t"), 3, 64 * KiB);
    const qint64 before = indexSizeOnDrive();
    QList<qint64> seen;
    ImportBatch::Handler handler;
    handler.include = [&](const ImportItem&, const VaultIndex&) {
        seen << indexSizeOnDrive();
        return true;
    };
    QVERIFY(
        vault().importBatch(items, handler, ImportBatch::Checkpoints{60000, 1024 * 1024 * KiB}).succeeded());
    QCOMPARE(seen, QList<qint64>(3, before));

    // 256 KiB appended is a checkpoint by itself, whatever the time.
    const QList<ImportItem> big = makeFiles(QStringLiteral("b"), 3, 300 * KiB);
    seen.clear();
    const qint64 afterFirst = indexSizeOnDrive();
    QVERIFY(vault().importBatch(big, handler, ImportBatch::Checkpoints{60000, 256 * KiB}).succeeded());
    QCOMPARE(seen.constFirst(), afterFirst);
    QVERIFY(seen.at(1) > seen.at(0));
    QVERIFY(seen.at(2) > seen.at(1));
}

void TestImportBatch::refusesUpFrontWhatTheIndexCannotHold()
{
    // Long names, one byte each, far more than the header region holds; none exists on the drive.
    const QString longName = QString(180, QLatin1Char('n'));
    QList<ImportItem> items;
    for (int i = 0; i < 30000; ++i) {
        items.append(ImportItem{path(QStringLiteral("nada")), QStringLiteral("p/%1%2").arg(longName).arg(i),
                                1, false});
    }
    const QByteArray containerBefore = TestFiles::read(m_fixture.container());
    int fitting = -1;
    QVERIFY(vault().importCapacity(items, &fitting));
    QVERIFY(fitting > 1000 && fitting < items.size());
    const ImportBatch::Outcome outcome = vault().importBatch(items);
    QVERIFY(outcome.fitting.has_value());
    QCOMPARE(*outcome.fitting, fitting);
    QCOMPARE(outcome.imported, 0);
    QCOMPARE(vault().lastFailure().reason, Reason::IndexFull);
    QCOMPARE(TestFiles::read(m_fixture.container()), containerBefore);

    // What the bound lets in really fits, and it leaves little of the region unused.
    QVERIFY(TestFiles::write(path(QStringLiteral("um")), "1"));
    items.resize(fitting);
    for (ImportItem& item : items) {
        item.localPath = path(QStringLiteral("um"));
    }
    const ImportBatch::Outcome filled = vault().importBatch(items);
    QVERIFY(filled.succeeded());
    QCOMPARE(filled.imported, fitting);
    const qint64 headerUsed = ContainerFile()
                                  .serializeHeader([&] {
                                      ContainerHeader header;
                                      ContainerFile().readHeader(m_fixture.container(), header);
                                      return header;
                                  }())
                                  .size();
    QVERIFY(headerUsed <= ContainerFile::HeaderRegionSize);
    QVERIFY2(headerUsed > ContainerFile::HeaderRegionSize * 8 / 10, QByteArray::number(headerUsed));
    QVERIFY(vault().importCapacity({items.constFirst()}, &fitting));
    QCOMPARE(fitting, 1);
    // The bound counts every block at the far end of the largest container: a little room is left,
    // less than a tenth of what went in.
    QList<ImportItem> more;
    for (int i = 0; i < 1000; ++i) {
        more.append(ImportItem{QString(), QStringLiteral("novo/%1%2").arg(longName).arg(i), 1, false});
    }
    QVERIFY(vault().importCapacity(more, &fitting));
    QVERIFY2(fitting > 0 && fitting < filled.imported / 10, QByteArray::number(fitting));
}

void TestImportBatch::progressCountsFilesAndBytes()
{
    QList<ImportItem> items = makeFiles(QStringLiteral("p"), 2, 17 * 1024 * KiB);
    items.insert(1, ImportItem{path(QStringLiteral("pasta")), QStringLiteral("Pasta"), 0, true});
    QList<ImportBatch::Progress> seen;
    ImportBatch::Handler handler;
    handler.progress = [&](const ImportBatch::Progress& progress) { seen << progress; };
    QVERIFY(vault().importBatch(items, handler).succeeded());
    QVERIFY(seen.size() >= 4);
    for (int i = 1; i < seen.size(); ++i) {
        QVERIFY(seen.at(i).bytesDone >= seen.at(i - 1).bytesDone);
        QVERIFY(seen.at(i).filesDone >= seen.at(i - 1).filesDone);
        QCOMPARE(seen.at(i).filesTotal, 2);
        QCOMPARE(seen.at(i).bytesTotal, 2 * 17 * 1024 * KiB);
    }
    // A block into the first file, within the file and within the batch.
    const auto partway = std::find_if(seen.cbegin(), seen.cend(), [](const ImportBatch::Progress& p) {
        return p.fileDone == 16 * 1024 * KiB && p.filesDone == 0;
    });
    QVERIFY(partway != seen.cend());
    QCOMPARE(partway->vaultPath, items.at(0).vaultPath);
    QCOMPARE(partway->fileTotal, 17 * 1024 * KiB);
    QCOMPARE(partway->bytesDone, 16 * 1024 * KiB);
    QCOMPARE(seen.constLast().filesDone, 2);
    QCOMPARE(seen.constLast().bytesDone, 2 * 17 * 1024 * KiB);
}

void TestImportBatch::foldersInTheWayOfFilesAreRefusedOneByOne()
{
    QVERIFY(m_fixture.importText(QStringLiteral("relatorio"), "um arquivo"));
    QVERIFY(vault().createFolder(QStringLiteral("Dados")));
    QVERIFY(TestFiles::write(path(QStringLiteral("x")), "x"));
    const QList<ImportItem> items = {
        {path(QStringLiteral("x")), QStringLiteral("Relatorio"), 0, true},
        {path(QStringLiteral("x")), QStringLiteral("relatorio/dentro.txt"), 1, false},
        {path(QStringLiteral("x")), QStringLiteral("dados"), 1, false},
        {path(QStringLiteral("x")), QStringLiteral("ok.txt"), 1, false},
    };
    QList<Reason> reasons;
    ImportBatch::Handler handler;
    handler.failed = [&](const ImportItem&, const Failure& failure) { reasons << failure.reason; };
    const ImportBatch::Outcome outcome = vault().importBatch(items, handler);
    QCOMPARE(reasons, QList<Reason>({Reason::AlreadyExists, Reason::NameNotAllowed, Reason::AlreadyExists}));
    QCOMPARE(outcome.failed, 3);
    QCOMPARE(outcome.imported, 1);
    QVERIFY(vault().fileExists(QStringLiteral("ok.txt")));
}

QTEST_GUILESS_MAIN(TestImportBatch)
#include "tst_importbatch.moc"
