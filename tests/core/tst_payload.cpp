#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;
constexpr qint64 Block = 16 * MiB;

using Triple = std::tuple<qint64, qint64, QString>;

} // namespace

class TestPayload : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void importsAndExportsEverySize_data();
    void importsAndExportsEverySize();
    void emptyFileHasNoBlocks();
    void progressReportsPlaintextTotals();
    void importOverAnyLetterCaseReplaces();
    void importCreatesMissingFolders();
    void importRefusesBadInput();
    void unusualNamesAreKeptAsTheyAre();
    void fullDiskDuringThirdBlockLeavesEverythingAsBefore();
    void alteredBlockFailsExportAtThatBlock();
    void exportOfMissingPathLeavesAnEmptyFile();
    void exportsToAnyDevice();
    void recordsSourceDateAndFreshIds();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }

    VaultFixture m_fixture;
};

void TestPayload::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestPayload::cleanup()
{
    m_fixture.tearDown();
}

void TestPayload::importsAndExportsEverySize_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QList<qint64>>("plainSizes");
    QTest::newRow("0 B") << qint64(0) << QList<qint64>{};
    QTest::newRow("1 B") << qint64(1) << QList<qint64>{1};
    QTest::newRow("16 MiB - 1") << Block - 1 << QList<qint64>{Block - 1};
    QTest::newRow("16 MiB") << Block << QList<qint64>{Block};
    QTest::newRow("16 MiB + 1") << Block + 1 << QList<qint64>{Block, 1};
    QTest::newRow("40 MiB") << 40 * MiB << QList<qint64>{Block, Block, 8 * MiB};
}

void TestPayload::importsAndExportsEverySize()
{
    QFETCH(qint64, size);
    QFETCH(QList<qint64>, plainSizes);
    const QString source = path(QStringLiteral("origem.bin"));
    QVERIFY(TestFiles::writePattern(source, size, 11));
    const qint64 containerBefore = QFileInfo(m_fixture.container()).size();

    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("Dados/arquivo.bin")));
    const FileEntry* entry = m_fixture.vault().index().findFile(QStringLiteral("Dados/arquivo.bin"));
    QVERIFY(entry != nullptr);
    QCOMPARE(entry->sizeBytes, size);
    QCOMPARE(entry->blocks.size(), plainSizes.size());
    qint64 expectedOffset = containerBefore;
    for (qsizetype i = 0; i < plainSizes.size(); ++i) {
        const BlockEntry& block = entry->blocks.at(i);
        QCOMPARE(block.plainSize, plainSizes.at(i));
        QCOMPARE(block.encryptedSize, plainSizes.at(i) + 16);
        QCOMPARE(block.offset, expectedOffset);
        QCOMPARE(block.nonce.size(), 24);
        expectedOffset += block.encryptedSize;
    }
    QCOMPARE(QFileInfo(m_fixture.container()).size(), expectedOffset);
    QCOMPARE(entry->sha256.toHex(), TestFiles::sha256sum(source).toHex());

    // Through a fresh session, so the index on disk is what is read.
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    const QString exported = path(QStringLiteral("exportado.bin"));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("dados/ARQUIVO.bin"), exported));
    QVERIFY(TestFiles::sameContents(source, exported));
}

void TestPayload::emptyFileHasNoBlocks()
{
    const QString source = path(QStringLiteral("vazio.txt"));
    QVERIFY(TestFiles::write(source, QByteArray()));
    const qint64 before = QFileInfo(m_fixture.container()).size();
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("vazio.txt")));
    const FileEntry* entry = m_fixture.vault().index().findFile(QStringLiteral("vazio.txt"));
    QVERIFY(entry != nullptr);
    QVERIFY(entry->blocks.isEmpty());
    QCOMPARE(entry->sizeBytes, 0);
    QCOMPARE(entry->sha256.toHex(),
             QByteArray("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    const QString exported = path(QStringLiteral("exportado.txt"));
    QVERIFY(TestFiles::write(exported, "lixo anterior"));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("vazio.txt"), exported));
    QCOMPARE(QFileInfo(exported).size(), 0);
}

void TestPayload::progressReportsPlaintextTotals()
{
    const QString source = path(QStringLiteral("grande.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 5));
    QList<Triple> reports;
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral(" \\Fotos\\ grande.bin "),
                                         [&](qint64 done, qint64 total, const QString& label) {
                                             reports.append({done, total, label});
                                         }));
    const QString label = QStringLiteral("Fotos/grande.bin");
    QCOMPARE(reports,
             (QList<Triple>{
                 {16 * MiB, 40 * MiB, label}, {32 * MiB, 40 * MiB, label}, {40 * MiB, 40 * MiB, label}}));
}

void TestPayload::importOverAnyLetterCaseReplaces()
{
    const QString first = path(QStringLiteral("primeiro.txt"));
    const QString second = path(QStringLiteral("segundo.txt"));
    QVERIFY(TestFiles::write(first, "versão antiga"));
    QVERIFY(TestFiles::write(second, "versão nova"));
    QVERIFY(m_fixture.vault().importFile(first, QStringLiteral("Docs/A.TXT")));
    const FileEntry old = *m_fixture.vault().index().findFile(QStringLiteral("Docs/A.TXT"));
    const qint64 sizeAfterFirst = QFileInfo(m_fixture.container()).size();

    QVERIFY(m_fixture.vault().importFile(second, QStringLiteral("docs/a.txt")));
    QCOMPARE(m_fixture.vault().index().files().size(), 1);
    const FileEntry& replaced = m_fixture.vault().index().files().at(0);
    QCOMPARE(replaced.vaultPath, QStringLiteral("docs/a.txt"));
    QVERIFY(replaced.id != old.id);
    // The old blocks stay in the file as dead space until compaction.
    QCOMPARE(QFileInfo(m_fixture.container()).size(), sizeAfterFirst + QByteArray("versão nova").size() + 16);
    QCOMPARE(TestFiles::read(m_fixture.container())
                 .mid(old.blocks.at(0).offset, old.blocks.at(0).encryptedSize)
                 .size(),
             old.blocks.at(0).encryptedSize);
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("DOCS/A.txt"), path(QStringLiteral("saida.txt"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("saida.txt"))), QByteArray("versão nova"));
}

void TestPayload::importCreatesMissingFolders()
{
    const QString source = path(QStringLiteral("c.txt"));
    QVERIFY(TestFiles::write(source, "c"));
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("A/B/c.txt")));
    QCOMPARE(m_fixture.vault().index().directories().size(), 2);
    QCOMPARE(m_fixture.vault().index().directories().at(0).path, QStringLiteral("A"));
    QCOMPARE(m_fixture.vault().index().directories().at(1).path, QStringLiteral("A/B"));
    QCOMPARE(m_fixture.vault().index().files().at(0).vaultPath, QStringLiteral("A/B/c.txt"));

    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("a/b/d.txt")));
    QCOMPARE(m_fixture.vault().index().directories().size(), 2);
}

void TestPayload::importRefusesBadInput()
{
    const QString source = path(QStringLiteral("ok.txt"));
    QVERIFY(TestFiles::write(source, "ok"));
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(!m_fixture.vault().importFile(path(QStringLiteral("ausente.txt")), QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.vault().importFile(path(QStringLiteral(".")), QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.vault().importFile(source, QStringLiteral("a/../b.txt")));
    QVERIFY(!m_fixture.vault().importFile(source, QStringLiteral("/")));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(m_fixture.vault().index().files().isEmpty());

    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!m_fixture.vault().importFile(source, QStringLiteral("a.txt")));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
}

void TestPayload::unusualNamesAreKeptAsTheyAre()
{
    // Vault paths are names inside the container, not the system's: names Windows reserves, control
    // characters and a trailing dot are stored, listed and read back unchanged, and survive a reopen.
    const QStringList names = {QStringLiteral("CON"),
                               QStringLiteral("aux.txt"),
                               QStringLiteral("LPT1/nul.c"),
                               QStringLiteral("sino\x07 e\ttab"),
                               QStringLiteral("escape\x1b[31m"),
                               QStringLiteral("ponto final."),
                               QStringLiteral("dois:pontos?*<>|\"")};
    for (const QString& name : names) {
        QVERIFY2(m_fixture.importText(name, name.toUtf8()), qPrintable(name));
    }
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    for (const QString& name : names) {
        QVERIFY2(m_fixture.vault().fileExists(name), qPrintable(name));
        QCOMPARE(m_fixture.exported(name), name.toUtf8());
    }
    QCOMPARE(m_fixture.vault().index().files().size(), names.size());
}

void TestPayload::fullDiskDuringThirdBlockLeavesEverythingAsBefore()
{
    const QString kept = path(QStringLiteral("mantido.txt"));
    QVERIFY(TestFiles::write(kept, "já estava no cofre"));
    QVERIFY(m_fixture.vault().importFile(kept, QStringLiteral("mantido.txt")));
    const QString source = path(QStringLiteral("grande.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 9));
    const qint64 before = QFileInfo(m_fixture.container()).size();
    const QByteArray indexBefore = m_fixture.vault().index().toJson();

    // The child may grow the container by two blocks and a little: the third block hits a full disk.
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlim_t limit = static_cast<rlim_t>(before + 2 * (Block + 16) + 100);
        const rlimit fileSize{limit, limit};
        if (setrlimit(RLIMIT_FSIZE, &fileSize) != 0) {
            _exit(10);
        }
        int progressCalls = 0;
        const bool imported = m_fixture.vault().importFile(
            source, QStringLiteral("grande.bin"), [&](qint64, qint64, const QString&) { ++progressCalls; });
        if (imported) {
            _exit(11);
        }
        if (progressCalls != 2) {
            _exit(12);
        }
        if (QFileInfo(m_fixture.container()).size() != before) {
            _exit(13);
        }
        _exit(m_fixture.vault().index().toJson() == indexBefore ? 0 : 14);
    }
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);

    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    // The container as a later session finds it; this session gives it up first.
    QVERIFY(m_fixture.vault().lock());
    VaultManager reopened;
    QVERIFY(reopened.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(reopened.index().toJson(), indexBefore);
    QVERIFY(reopened.exportFile(QStringLiteral("mantido.txt"), path(QStringLiteral("saida.txt"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("saida.txt"))), QByteArray("já estava no cofre"));
}

void TestPayload::alteredBlockFailsExportAtThatBlock()
{
    const QString source = path(QStringLiteral("tres-blocos.bin"));
    QVERIFY(TestFiles::writePattern(source, 40 * MiB, 3));
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("x.bin")));
    const BlockEntry second = m_fixture.vault().index().files().at(0).blocks.at(1);
    {
        QFile container(m_fixture.container());
        QVERIFY(container.open(QIODevice::ReadWrite));
        QVERIFY(container.seek(second.offset + 1000));
        char byte = 0;
        QVERIFY(container.getChar(&byte));
        QVERIFY(container.seek(second.offset + 1000));
        QVERIFY(container.putChar(static_cast<char>(byte ^ 0x20)));
    }
    const QString exported = path(QStringLiteral("saida.bin"));
    // The first block reaches a device as it is read; a file on disk keeps nothing that did not check out.
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("x.bin"), &buffer));
    QCOMPARE(buffer.data(), TestFiles::read(source).left(Block));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("x.bin"), exported));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::Damaged);
    QVERIFY(!QFileInfo::exists(exported));
}

void TestPayload::exportOfMissingPathLeavesAnEmptyFile()
{
    const QString exported = path(QStringLiteral("saida.txt"));
    QVERIFY(TestFiles::write(exported, "conteúdo anterior"));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("não-existe.txt"), exported));
    QVERIFY(QFile::exists(exported));
    QCOMPARE(QFileInfo(exported).size(), 0);
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("../x"), path(QStringLiteral("nunca.txt"))));
    QVERIFY(!QFile::exists(path(QStringLiteral("nunca.txt"))));
}

void TestPayload::exportsToAnyDevice()
{
    const QString source = path(QStringLiteral("a.txt"));
    QVERIFY(TestFiles::write(source, "para um buffer"));
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("a.txt")));
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("A.TXT"), &buffer));
    QCOMPARE(buffer.data(), QByteArray("para um buffer"));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("a.txt"), static_cast<QIODevice*>(nullptr)));
    QBuffer readOnly;
    QVERIFY(readOnly.open(QIODevice::ReadOnly));
    QVERIFY(!m_fixture.vault().exportFile(QStringLiteral("a.txt"), &readOnly));
}

void TestPayload::recordsSourceDateAndFreshIds()
{
    const QString source = path(QStringLiteral("datado.txt"));
    QVERIFY(TestFiles::write(source, "data"));
    const QDateTime modified(QDate(2023, 12, 24), QTime(22, 30, 15, 250), Qt::UTC);
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::ReadWrite));
        QVERIFY(file.setFileTime(modified, QFileDevice::FileModificationTime));
    }
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("um.txt")));
    QVERIFY(m_fixture.vault().importFile(source, QStringLiteral("dois.txt")));
    const FileEntry& one = m_fixture.vault().index().files().at(0);
    const FileEntry& two = m_fixture.vault().index().files().at(1);
    QCOMPARE(one.lastModifiedUtc, modified);
    QCOMPARE(one.lastModifiedUtc.timeSpec(), Qt::UTC);
    QVERIFY(!QUuid::fromString(one.id).isNull());
    QCOMPARE(one.id.size(), 36);
    QVERIFY(one.id != two.id);
    QVERIFY(one.blocks.at(0).nonce != two.blocks.at(0).nonce);
}

QTEST_GUILESS_MAIN(TestPayload)
#include "tst_payload.moc"
