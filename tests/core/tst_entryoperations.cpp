#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

// The file as a writer of the whole header region would have left it: the same length line, JSON and
// payload, with nothing but zeros between the JSON and the payload.
QByteArray withFullRegion(const QByteArray& bytes)
{
    constexpr qint64 Region = ContainerFile::HeaderRegionSize;
    const qint64 length = bytes.mid(7, 20).toLongLong();
    return bytes.left(28 + length) + QByteArray(Region - length, '\0') + bytes.mid(28 + Region);
}

} // namespace

class TestEntryOperations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void createFolderMakesEveryAncestor();
    void createFolderRefusesExistingNamesInAnyCase();
    void deleteFolderOnlyWhenEmpty();
    void deleteFileKeepsContainerSize();
    void moveFileRules();
    void moveFileKeepsEverythingButThePath();
    void renameFileRules();
    void renameFolderMovesEverythingBelow();
    void renameFolderRefusals();
    void openFileCanBeDeletedButNotMovedOrRenamed();
    void refusalsLeaveContainerAndIndexAsTheyWere();
    void unreadableHeaderKeepsTheLiveIndex();
    void lockedVaultRefusesEverything();
    void nothingIsPlacedOnOrUnderAFile();
    void everyChangeLeavesAZeroPaddedRegion();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }

    VaultFixture m_fixture;
};

void TestEntryOperations::init()
{
    // Some tests open files for editing, so the session gets a workspace.
    QVERIFY(m_fixture.setUp(QStringLiteral("velmarin.vltx"), QStringLiteral("area")));
}

void TestEntryOperations::cleanup()
{
    m_fixture.tearDown();
}

void TestEntryOperations::createFolderMakesEveryAncestor()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("a/b/c")));
    QCOMPARE(VaultFixture::directoryPaths(m_fixture.vault().index()),
             QStringList({QStringLiteral("a"), QStringLiteral("a/b"), QStringLiteral("a/b/c")}));
    const DirectoryEntry& created = m_fixture.vault().index().directories().at(2);
    QCOMPARE(created.createdUtc, created.modifiedUtc);
    QVERIFY(qAbs(created.createdUtc.secsTo(QDateTime::currentDateTimeUtc())) < 60);

    // The change is in the container, not only in memory.
    const QStringList createdPaths = VaultFixture::directoryPaths(m_fixture.vault().index());
    QVERIFY(m_fixture.vault().lock());
    VaultManager other;
    QVERIFY(other.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(VaultFixture::directoryPaths(other.index()), createdPaths);
    QVERIFY(other.directoryExists(QStringLiteral("A/B/C")));
}

void TestEntryOperations::createFolderRefusesExistingNamesInAnyCase()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Fotos")));
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("fotos")));
    QVERIFY(m_fixture.importText(QStringLiteral("nota.txt"), "x"));
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("NOTA.TXT")));
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("/")));
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("a/./b")));
    QCOMPARE(VaultFixture::directoryPaths(m_fixture.vault().index()), QStringList({QStringLiteral("Fotos")}));
}

void TestEntryOperations::deleteFolderOnlyWhenEmpty()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Pai/Filho")));
    QVERIFY(!m_fixture.vault().deleteEmptyFolder(QStringLiteral("Pai")));
    QVERIFY(m_fixture.vault().deleteEmptyFolder(QStringLiteral("pai/FILHO")));
    QVERIFY(m_fixture.vault().deleteEmptyFolder(QStringLiteral("PAI")));
    QVERIFY(m_fixture.vault().index().directories().isEmpty());
    QVERIFY(!m_fixture.vault().deleteEmptyFolder(QStringLiteral("Pai")));

    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "a"));
    QVERIFY(!m_fixture.vault().deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Docs/a.txt")));
    QVERIFY(m_fixture.vault().deleteEmptyFolder(QStringLiteral("Docs")));
}

void TestEntryOperations::deleteFileKeepsContainerSize()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "conteúdo"));
    QVERIFY(m_fixture.importText(QStringLiteral("b.txt"), "outro"));
    const qint64 before = QFileInfo(m_fixture.container()).size();
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("A.TXT")));
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QCOMPARE(VaultFixture::filePaths(m_fixture.vault().index()), QStringList({QStringLiteral("b.txt")}));
    QVERIFY(!m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.vault().deleteFile(QString()));
}

void TestEntryOperations::moveFileRules()
{
    QVERIFY(m_fixture.importText(QStringLiteral("x.txt"), "raiz"));
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/X.TXT"), "docs"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Vazia")));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Outra/x.txt")));

    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("x.txt"), QString()));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("x.txt"), QStringLiteral("/")));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("x.txt"), QStringLiteral("docs")));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("x.txt"), QStringLiteral("Inexistente")));
    // A folder already has the new path.
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("x.txt"), QStringLiteral("Outra")));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("ausente.txt"), QStringLiteral("Vazia")));

    // Paths are taken as given: the window passes the stored ones, so letter case stays as stored.
    QVERIFY(m_fixture.vault().moveFile(QStringLiteral("x.txt"), QStringLiteral("Vazia")));
    QCOMPARE(m_fixture.vault().index().findFile(QStringLiteral("vazia/X.TXT"))->vaultPath,
             QStringLiteral("Vazia/x.txt"));
    QVERIFY(m_fixture.vault().moveFile(QStringLiteral("Vazia/x.txt"), QStringLiteral("/")));
    QVERIFY(m_fixture.vault().fileExists(QStringLiteral("x.txt")));
}

void TestEntryOperations::moveFileKeepsEverythingButThePath()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "mover sem copiar"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Destino")));
    const FileEntry before = m_fixture.vault().index().files().at(0);
    const qint64 size = QFileInfo(m_fixture.container()).size();
    QVERIFY(m_fixture.vault().moveFile(QStringLiteral("a.txt"), QStringLiteral("Destino")));
    const FileEntry after = m_fixture.vault().index().files().at(0);
    QCOMPARE(after.vaultPath, QStringLiteral("Destino/a.txt"));
    QCOMPARE(after.id, before.id);
    QCOMPARE(after.sha256, before.sha256);
    QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
    QCOMPARE(after.blocks.at(0).offset, before.blocks.at(0).offset);
    QCOMPARE(QFileInfo(m_fixture.container()).size(), size);
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("destino/A.txt"), path(QStringLiteral("saida.txt"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("saida.txt"))), QByteArray("mover sem copiar"));
}

void TestEntryOperations::renameFileRules()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    QVERIFY(m_fixture.importText(QStringLiteral("c.txt"), "c"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("b.txt")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("A.txt")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("C.TXT")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("ausente.txt"), QStringLiteral("z.txt")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("..")));
    // Under a file, in any letter case, as every other operation refuses it.
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("C.txt/a.txt")));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::NameNotAllowed);
    QVERIFY(m_fixture.vault().fileExists(QStringLiteral("a.txt")));

    QVERIFY(m_fixture.vault().renameFile(QStringLiteral("A.TXT"), QStringLiteral("renomeado.txt")));
    QCOMPARE(VaultFixture::filePaths(m_fixture.vault().index()),
             QStringList({QStringLiteral("renomeado.txt"), QStringLiteral("c.txt")}));
    // The new path's folders are the caller's business: none is made here.
    QVERIFY(m_fixture.vault().renameFile(QStringLiteral("c.txt"), QStringLiteral("Nova/c.txt")));
    QVERIFY(!m_fixture.vault().directoryExists(QStringLiteral("Nova")));
}

void TestEntryOperations::renameFolderMovesEverythingBelow()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Fotos/2023")));
    QVERIFY(m_fixture.importText(QStringLiteral("Fotos/2023/praia.jpg"), "praia"));
    QVERIFY(m_fixture.importText(QStringLiteral("Fotos/capa.jpg"), "capa"));
    QVERIFY(m_fixture.importText(QStringLiteral("Fotos2/fora.jpg"), "fora"));
    const FileEntry praia = *m_fixture.vault().index().findFile(QStringLiteral("Fotos/2023/praia.jpg"));
    const DirectoryEntry fotos = *m_fixture.vault().index().findDirectory(QStringLiteral("Fotos"));
    QTest::qWait(5);

    QVERIFY(m_fixture.vault().renameFolder(QStringLiteral("fotos"), QStringLiteral("Arquivo/Fotos")));
    const VaultIndex& index = m_fixture.vault().index();
    QCOMPARE(VaultFixture::directoryPaths(index),
             QStringList({QStringLiteral("Arquivo"), QStringLiteral("Arquivo/Fotos"),
                          QStringLiteral("Arquivo/Fotos/2023"), QStringLiteral("Fotos2")}));
    QCOMPARE(VaultFixture::filePaths(index),
             QStringList({QStringLiteral("Arquivo/Fotos/2023/praia.jpg"),
                          QStringLiteral("Arquivo/Fotos/capa.jpg"), QStringLiteral("Fotos2/fora.jpg")}));
    const DirectoryEntry& moved = *index.findDirectory(QStringLiteral("Arquivo/Fotos"));
    QCOMPARE(moved.createdUtc, fotos.createdUtc);
    QVERIFY(moved.modifiedUtc > fotos.modifiedUtc);
    QCOMPARE(index.findDirectory(QStringLiteral("Arquivo/Fotos/2023"))->modifiedUtc, moved.modifiedUtc);
    QCOMPARE(index.findDirectory(QStringLiteral("Fotos2"))->modifiedUtc,
             index.findDirectory(QStringLiteral("Fotos2"))->createdUtc);
    const FileEntry* movedFile = index.findFile(QStringLiteral("Arquivo/Fotos/2023/praia.jpg"));
    QCOMPARE(movedFile->id, praia.id);
    QCOMPARE(movedFile->lastModifiedUtc, praia.lastModifiedUtc);
    QVERIFY(m_fixture.vault().exportFile(QStringLiteral("arquivo/fotos/2023/PRAIA.jpg"),
                                         path(QStringLiteral("p.jpg"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("p.jpg"))), QByteArray("praia"));
}

void TestEntryOperations::renameFolderRefusals()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Fotos")));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Docs")));
    QVERIFY(m_fixture.importText(QStringLiteral("nota.txt"), "n"));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QStringLiteral("Fotos/2024")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QStringLiteral("FOTOS")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QStringLiteral("docs")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QStringLiteral("Nota.txt")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Ausente"), QStringLiteral("Outra")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QString()));
    QVERIFY(m_fixture.vault().renameFolder(QStringLiteral("Fotos"), QStringLiteral("Imagens")));
}

void TestEntryOperations::openFileCanBeDeletedButNotMovedOrRenamed()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Pasta/aberto.txt"), "em edição"));
    QVERIFY(m_fixture.importText(QStringLiteral("outro.txt"), "outro"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Destino")));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("Pasta/aberto.txt"), &local));

    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("Pasta/aberto.txt"), QStringLiteral("Destino")));
    QVERIFY(
        !m_fixture.vault().renameFile(QStringLiteral("Pasta/aberto.txt"), QStringLiteral("Pasta/novo.txt")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Pasta"), QStringLiteral("Destino/Pasta")));
    QVERIFY(m_fixture.vault().moveFile(QStringLiteral("outro.txt"), QStringLiteral("Destino")));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Pasta/aberto.txt")));
    QVERIFY(!m_fixture.vault().fileExists(QStringLiteral("Pasta/aberto.txt")));
}

void TestEntryOperations::refusalsLeaveContainerAndIndexAsTheyWere()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Docs/Sub")));
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    const QByteArray index = m_fixture.vault().index().toJson();
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("docs")));
    QVERIFY(!m_fixture.vault().deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(!m_fixture.vault().deleteFile(QStringLiteral("b.txt")));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("a.txt"), QStringLiteral("Nada")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("A.TXT")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Docs"), QStringLiteral("Docs/Sub/X")));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QCOMPARE(m_fixture.vault().index().toJson(), index);
}

void TestEntryOperations::unreadableHeaderKeepsTheLiveIndex()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    const QByteArray index = m_fixture.vault().index().toJson();
    QByteArray bytes = TestFiles::read(m_fixture.container());
    bytes[0] = 'X';
    QVERIFY(TestFiles::write(m_fixture.container(), bytes));
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("Nova")));
    QVERIFY(!m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QCOMPARE(m_fixture.vault().index().toJson(), index);
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void TestEntryOperations::lockedVaultRefusesEverything()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Docs")));
    QVERIFY(m_fixture.vault().lock());
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("Nova")));
    QVERIFY(!m_fixture.vault().deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(!m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.vault().moveFile(QStringLiteral("a.txt"), QStringLiteral("Docs")));
    QVERIFY(!m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QVERIFY(!m_fixture.vault().renameFolder(QStringLiteral("Docs"), QStringLiteral("Outra")));
    QVERIFY(!m_fixture.vault().fileExists(QStringLiteral("a.txt")));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void TestEntryOperations::nothingIsPlacedOnOrUnderAFile()
{
    VaultManager& vault = m_fixture.vault();
    QVERIFY(m_fixture.importText(QStringLiteral("Docs"), "um arquivo chamado Docs"));
    QVERIFY(vault.createFolder(QStringLiteral("Pasta")));
    const QString source = path(QStringLiteral("fonte.txt"));
    QVERIFY(TestFiles::write(source, "conteúdo"));
    const QByteArray before = TestFiles::read(m_fixture.container());

    // A file and a folder of one name could never both be shown, so neither operation may make one.
    QVERIFY(!vault.importFile(source, QStringLiteral("docs/dentro.txt")));
    QVERIFY(!vault.importFile(source, QStringLiteral("Docs/sub/fundo.txt")));
    QVERIFY(!vault.importFile(source, QStringLiteral("PASTA")));
    QVERIFY(!vault.createFolder(QStringLiteral("Docs/sub")));
    QVERIFY(!vault.renameFolder(QStringLiteral("Pasta"), QStringLiteral("Docs/Pasta")));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QCOMPARE(VaultFixture::filePaths(vault.index()), QStringList{QStringLiteral("Docs")});
    QCOMPARE(VaultFixture::directoryPaths(vault.index()), QStringList{QStringLiteral("Pasta")});

    QVERIFY(vault.importFile(source, QStringLiteral("Pasta/dentro.txt")));
}

void TestEntryOperations::everyChangeLeavesAZeroPaddedRegion()
{
    VaultManager& vault = m_fixture.vault();
    const auto check = [&](const char* step) {
        const QByteArray bytes = TestFiles::read(m_fixture.container());
        QVERIFY2(bytes == withFullRegion(bytes), step);
    };
    for (int i = 0; i < 40; ++i) {
        QVERIFY(m_fixture.importText(QStringLiteral("Docs/arquivo-com-um-nome-longo-%1.txt").arg(i), "x"));
    }
    check("imports");
    QVERIFY(vault.createFolder(QStringLiteral("Nova")));
    check("new folder");
    QVERIFY(vault.renameFolder(QStringLiteral("Docs"), QStringLiteral("D")));
    check("shorter names");
    for (int i = 0; i < 30; ++i) {
        QVERIFY(vault.deleteFile(QStringLiteral("D/arquivo-com-um-nome-longo-%1.txt").arg(i)));
    }
    check("deletes");
    QVERIFY(vault.moveFile(QStringLiteral("D/arquivo-com-um-nome-longo-31.txt"), QStringLiteral("Nova")));
    check("move");
    QVERIFY(vault.lock());
    QVERIFY(vault.changePassword(m_fixture.container(), TestFiles::password(), "outra senha bem longa"));
    check("password");
    QVERIFY(vault.unlock(m_fixture.container(), "outra senha bem longa"));
    QCOMPARE(vault.index().files().size(), 10);
}

QTEST_GUILESS_MAIN(TestEntryOperations)
#include "tst_entryoperations.moc"
