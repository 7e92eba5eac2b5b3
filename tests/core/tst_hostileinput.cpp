// Containers whose index is authentic but lies: written with the right key by something other than
// this engine. Every size and offset in such an index is checked before it is used, so the worst a
// lie can do is make a file unreadable.
#include "FuzzContainer.h"
#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "core/index/ByteCount.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>

using namespace Velmarin::Core;
using Velmarin::Tests::FuzzContainer;
using Velmarin::Tests::LockedVaultEditor;
using Velmarin::Tests::TestFiles;

namespace {

constexpr qint64 Largest = std::numeric_limits<qint64>::max();
constexpr qint64 Keep = std::numeric_limits<qint64>::min();
constexpr qint64 PastTheEnd = Keep + 1;
const QString Readme = QStringLiteral("leia-me.txt");
const QString Photo = QStringLiteral("Fotos/2026/praia.jpg");

using Problem = VerificationReport::DamagedFile::Problem;

} // namespace

class TestHostileInput : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void fuzzSeedsOpenWithTheirPassword();
    void impossibleBlocksAreRefusedBeforeAnyRead_data();
    void impossibleBlocksAreRefusedBeforeAnyRead();
    void lyingFileSizesNeitherOverflowNorStopTheWork();
    void aBlockSharedByTwoFilesReadsForBoth();
    void sizeSumsStopAtTheLargestValue();

private:
    // The seed's container, written out under name.
    QString containerFromSeed(const QString& seed, const QString& name = QStringLiteral("velmarin.vltx"));
    // Edits the index of container past the engine.
    bool editIndex(const QString& container, const std::function<void(VaultIndex&)>& edit);
    QByteArray exported(VaultManager& vault, const QString& vaultPath, bool* succeeded = nullptr);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void TestHostileInput::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

QString TestHostileInput::containerFromSeed(const QString& seed, const QString& name)
{
    const QByteArray input = TestFiles::read(QStringLiteral(VELMARIN_FUZZ_SEEDS "/unlock/") + seed);
    const QString path = m_dir->filePath(name);
    if (input.isEmpty() || !FuzzContainer::write(path, reinterpret_cast<const uint8_t*>(input.constData()),
                                                 static_cast<size_t>(input.size()))) {
        return {};
    }
    return path;
}

bool TestHostileInput::editIndex(const QString& container, const std::function<void(VaultIndex&)>& edit)
{
    LockedVaultEditor editor;
    if (!editor.open(container, FuzzContainer::Password)) {
        return false;
    }
    edit(editor.index());
    return editor.save();
}

QByteArray TestHostileInput::exported(VaultManager& vault, const QString& vaultPath, bool* succeeded)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    const bool ok = vault.exportFile(vaultPath, &buffer);
    if (succeeded) {
        *succeeded = ok;
    }
    return buffer.data();
}

void TestHostileInput::fuzzSeedsOpenWithTheirPassword()
{
    // The fuzzer starts from these; if they stopped opening it would only ever test the refusals.
    VaultManager vault(m_dir->path());
    const QString empty = containerFromSeed(QStringLiteral("vazio"), QStringLiteral("vazio.vltx"));
    QVERIFY(vault.unlock(empty, FuzzContainer::Password, VaultManager::Access::ReadOnly));
    QVERIFY(vault.index().files().isEmpty());
    QVERIFY(vault.lock());

    const QString files = containerFromSeed(QStringLiteral("arquivos"), QStringLiteral("arquivos.vltx"));
    QVERIFY(vault.unlock(files, FuzzContainer::Password, VaultManager::Access::ReadOnly));
    QCOMPARE(vault.index().files().size(), 3);
    QVERIFY(vault.directoryExists(QStringLiteral("Pasta vazia")));
    QCOMPARE(exported(vault, Readme), QByteArray("Olá, cofre.\n"));
    QCOMPARE(exported(vault, Photo), QByteArray(700, '\xff'));
    bool succeeded = false;
    QCOMPARE(exported(vault, QStringLiteral("vazio.bin"), &succeeded), QByteArray());
    QVERIFY(succeeded);
    VerificationReport report;
    QVERIFY(vault.verifyContents(report));
    QVERIFY(report.isSound());
    QVERIFY(vault.lock());

    // Blocks past the end of the file and blocks that start inside another one.
    const QString lying =
        containerFromSeed(QStringLiteral("blocos-falsos"), QStringLiteral("mentiroso.vltx"));
    QVERIFY(vault.unlock(lying, FuzzContainer::Password, VaultManager::Access::ReadOnly));
    QVERIFY(vault.verifyContents(report));
    QCOMPARE(report.fileCount, 5);
    // The block that starts inside others makes its own file unreadable, and the files whose blocks
    // it lies across are named as overlapped by it.
    QCOMPARE(report.damagedFiles.size(), 4);
    for (const VerificationReport::DamagedFile& damage : report.damagedFiles) {
        if (damage.vaultPath == Readme || damage.vaultPath == Photo) {
            QCOMPARE(damage.problem, Problem::OverlappingBlocks);
            QCOMPARE(damage.otherPath, QStringLiteral("Fotos/cópia.jpg"));
        } else {
            QVERIFY(damage.vaultPath == QStringLiteral("além do fim.txt") ||
                    damage.vaultPath == QStringLiteral("Fotos/cópia.jpg"));
            QCOMPARE(damage.problem, Problem::UnreadableBlock);
        }
        QCOMPARE(damage.blockNumber, 1);
    }
    QCOMPARE(exported(vault, QStringLiteral("além do fim.txt"), &succeeded), QByteArray());
    QVERIFY(!succeeded);
    QCOMPARE(exported(vault, Readme), QByteArray("Olá, cofre.\n"));
    QVERIFY(vault.lock());
}

void TestHostileInput::impossibleBlocksAreRefusedBeforeAnyRead_data()
{
    QTest::addColumn<qint64>("offset");
    QTest::addColumn<qint64>("plainSize");
    QTest::addColumn<qint64>("encryptedSize");

    // Keep leaves the block's own value. Read as asked, the first row would allocate a terabyte and
    // the process would end on the allocation.
    QTest::newRow("1 TiB block") << Keep << (qint64(1) << 40) << (qint64(1) << 40) + 16;
    QTest::newRow("block of 16 MiB + 1") << Keep << qint64(16777217) << qint64(16777233);
    QTest::newRow("largest sizes") << Keep << Largest - 16 << Largest;
    QTest::newRow("negative sizes") << Keep << qint64(-16) << qint64(0);
    QTest::newRow("empty block") << Keep << qint64(0) << qint64(16);
    QTest::newRow("tag size wrong") << Keep << Keep << qint64(13 + 17);
    QTest::newRow("negative offset") << qint64(-1) << Keep << Keep;
    QTest::newRow("largest offset") << Largest << Keep << Keep;
    QTest::newRow("past the end") << PastTheEnd << Keep << Keep;
}

void TestHostileInput::impossibleBlocksAreRefusedBeforeAnyRead()
{
    QFETCH(qint64, offset);
    QFETCH(qint64, plainSize);
    QFETCH(qint64, encryptedSize);
    const QString container = containerFromSeed(QStringLiteral("arquivos"));
    const qint64 fileSize = QFileInfo(container).size();
    QVERIFY(editIndex(container, [&](VaultIndex& index) {
        FileEntry entry = *index.findFile(Readme);
        BlockEntry& block = entry.blocks[0];
        block.offset = offset == PastTheEnd ? fileSize + 1 : offset == Keep ? block.offset : offset;
        block.plainSize = plainSize == Keep ? block.plainSize : plainSize;
        block.encryptedSize = encryptedSize == Keep ? block.encryptedSize : encryptedSize;
        index.upsertFile(entry);
    }));
    const QByteArray before = TestFiles::read(container);

    VaultManager vault(m_dir->path());
    QVERIFY(vault.unlock(container, FuzzContainer::Password));
    bool succeeded = true;
    QCOMPARE(exported(vault, Readme, &succeeded), QByteArray());
    QVERIFY(!succeeded);
    QCOMPARE(exported(vault, Photo), QByteArray(700, '\xff'));

    VerificationReport report;
    QVERIFY(vault.verifyContents(report));
    QCOMPARE(report.damagedFiles.size(), 1);
    QCOMPARE(report.damagedFiles.at(0).vaultPath, Readme);
    QCOMPARE(report.damagedFiles.at(0).problem, Problem::UnreadableBlock);
    QCOMPARE(report.damagedFiles.at(0).blockNumber, 1);

    // Compaction would have to copy the block: it names the file and leaves the container as it was.
    QString preserved;
    QStringList damaged;
    QVERIFY(!vault.compactVault({}, &preserved, &damaged));
    QVERIFY(preserved.isEmpty());
    QCOMPARE(damaged, QStringList{Readme});
    QVERIFY(vault.lock());
    QVERIFY(TestFiles::read(container) == before);
}

void TestHostileInput::lyingFileSizesNeitherOverflowNorStopTheWork()
{
    const QString container = containerFromSeed(QStringLiteral("arquivos"));
    QVERIFY(editIndex(container, [](VaultIndex& index) {
        for (const QString& path : {Readme, Photo}) {
            FileEntry entry = *index.findFile(path);
            entry.sizeBytes = Largest;
            index.upsertFile(entry);
        }
        FileEntry empty = *index.findFile(QStringLiteral("vazio.bin"));
        empty.sizeBytes = -5;
        index.upsertFile(empty);
    }));

    QList<QPair<qint64, qint64>> steps;
    const ProgressCallback record = [&steps](qint64 done, qint64 total, const QString&) {
        steps.append({done, total});
    };
    VaultManager vault(m_dir->path());
    QVERIFY(vault.unlock(container, FuzzContainer::Password));
    VerificationReport report;
    QVERIFY(vault.verifyContents(report, record));
    QCOMPARE(report.damagedFiles.size(), 3);
    for (const VerificationReport::DamagedFile& damage : report.damagedFiles) {
        QCOMPARE(damage.problem, Problem::WrongSize);
    }
    // Two blocks of 13 + 16 and 700 + 16 bytes, whatever the sizes claim.
    QCOMPARE(report.liveBytes, qint64(29 + 716));
    QVERIFY(!steps.isEmpty());
    for (const auto& [done, total] : steps) {
        QCOMPARE(total, Largest);
        QVERIFY(done >= 0 && done <= total);
    }

    // The blocks themselves are sound, so compaction carries the files over, sizes and all.
    steps.clear();
    QString preserved;
    QVERIFY(vault.compactVault(record, &preserved));
    QVERIFY(!steps.isEmpty());
    for (const auto& [done, total] : steps) {
        QVERIFY(done >= 0 && total >= 0);
    }
    QCOMPARE(vault.index().findFile(Readme)->sizeBytes, Largest);
    QCOMPARE(exported(vault, Photo), QByteArray(700, '\xff'));
    QVERIFY(vault.lock());
}

void TestHostileInput::aBlockSharedByTwoFilesReadsForBoth()
{
    // Blocks carry no file name in their associated data, so two entries may name the same one:
    // both read it, verification names both as overlapping, and compaction gives each its own copy.
    const QString container = containerFromSeed(QStringLiteral("arquivos"));
    QVERIFY(editIndex(container, [](VaultIndex& index) {
        FileEntry copy = *index.findFile(Photo);
        copy.vaultPath = QStringLiteral("cópia.jpg");
        index.upsertFile(copy);
    }));
    VaultManager vault(m_dir->path());
    QVERIFY(vault.unlock(container, FuzzContainer::Password));
    QCOMPARE(exported(vault, QStringLiteral("cópia.jpg")), QByteArray(700, '\xff'));
    VerificationReport report;
    QVERIFY(vault.verifyContents(report));
    QCOMPARE(report.damagedFiles.size(), 2);
    for (const VerificationReport::DamagedFile& damage : report.damagedFiles) {
        QCOMPARE(damage.problem, Problem::OverlappingBlocks);
        QCOMPARE(damage.otherPath, damage.vaultPath == Photo ? QStringLiteral("cópia.jpg") : Photo);
    }
    QString preserved;
    QVERIFY(vault.compactVault({}, &preserved));
    QVERIFY(vault.index().findFile(QStringLiteral("cópia.jpg"))->blocks.at(0).offset !=
            vault.index().findFile(Photo)->blocks.at(0).offset);
    QCOMPARE(exported(vault, QStringLiteral("cópia.jpg")), QByteArray(700, '\xff'));
    QCOMPARE(exported(vault, Photo), QByteArray(700, '\xff'));
    QVERIFY(vault.verifyContents(report));
    QVERIFY(report.isSound());
    QVERIFY(vault.lock());
}

void TestHostileInput::sizeSumsStopAtTheLargestValue()
{
    QCOMPARE(addByteCount(Largest, 1), Largest);
    QCOMPARE(addByteCount(Largest - 1, 1), Largest);
    QCOMPARE(addByteCount(Largest / 2 + 1, Largest / 2 + 1), Largest);
    QCOMPARE(addByteCount(-5, 3), qint64(3));
    QCOMPARE(addByteCount(7, -3), qint64(7));
    QCOMPARE(addByteCount(40, 2), qint64(42));

    QCOMPARE(scaledProgress(5, 10, 100), 50);
    QCOMPARE(scaledProgress(999, 1000, 1000), 999);
    QCOMPARE(scaledProgress(-1, 10, 100), 0);
    QCOMPARE(scaledProgress(20, 10, 100), 100);
    QCOMPARE(scaledProgress(Largest, Largest, 1000), 1000);
    // Past the range where done * scale fits, exact powers of two keep the answer exact.
    QCOMPARE(scaledProgress(qint64(1) << 61, qint64(1) << 62, 100), 50);
    QCOMPARE(scaledProgress(qint64(3) << 60, qint64(1) << 62, 100), 75);
}

QTEST_GUILESS_MAIN(TestHostileInput)
#include "tst_hostileinput.moc"
