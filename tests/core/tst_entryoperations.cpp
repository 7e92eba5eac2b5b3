#include "ContainerFile.h"
#include "TestFiles.h"
#include "VaultManager.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;

namespace {

QStringList directoryPaths(const VaultIndex& index)
{
    QStringList paths;
    for (const DirectoryEntry& entry : index.directories()) {
        paths << entry.path;
    }
    return paths;
}

QStringList filePaths(const VaultIndex& index)
{
    QStringList paths;
    for (const FileEntry& entry : index.files()) {
        paths << entry.vaultPath;
    }
    return paths;
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

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    void importText(const QString& vaultPath, const QByteArray& text);

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
    std::unique_ptr<VaultManager> m_vault;
};

void TestEntryOperations::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
    m_vault = std::make_unique<VaultManager>();
    QVERIFY(m_vault->unlock(m_container, TestFiles::password()));
}

void TestEntryOperations::cleanup()
{
    m_vault.reset();
}

void TestEntryOperations::importText(const QString& vaultPath, const QByteArray& text)
{
    const QString source = path(QStringLiteral("fonte.tmp"));
    QVERIFY(TestFiles::write(source, text));
    QVERIFY(m_vault->importFile(source, vaultPath));
}

void TestEntryOperations::createFolderMakesEveryAncestor()
{
    QVERIFY(m_vault->createFolder(QStringLiteral("a/b/c")));
    QCOMPARE(directoryPaths(m_vault->index()),
             QStringList({QStringLiteral("a"), QStringLiteral("a/b"), QStringLiteral("a/b/c")}));
    const DirectoryEntry& created = m_vault->index().directories().at(2);
    QCOMPARE(created.createdUtc, created.modifiedUtc);
    QVERIFY(qAbs(created.createdUtc.secsTo(QDateTime::currentDateTimeUtc())) < 60);

    // The change is in the container, not only in memory.
    const QStringList createdPaths = directoryPaths(m_vault->index());
    QVERIFY(m_vault->lock());
    VaultManager other;
    QVERIFY(other.unlock(m_container, TestFiles::password()));
    QCOMPARE(directoryPaths(other.index()), createdPaths);
    QVERIFY(other.directoryExists(QStringLiteral("A/B/C")));
}

void TestEntryOperations::createFolderRefusesExistingNamesInAnyCase()
{
    QVERIFY(m_vault->createFolder(QStringLiteral("Fotos")));
    QVERIFY(!m_vault->createFolder(QStringLiteral("fotos")));
    importText(QStringLiteral("nota.txt"), "x");
    QVERIFY(!m_vault->createFolder(QStringLiteral("NOTA.TXT")));
    QVERIFY(!m_vault->createFolder(QStringLiteral("/")));
    QVERIFY(!m_vault->createFolder(QStringLiteral("a/./b")));
    QCOMPARE(directoryPaths(m_vault->index()), QStringList({QStringLiteral("Fotos")}));
}

void TestEntryOperations::deleteFolderOnlyWhenEmpty()
{
    QVERIFY(m_vault->createFolder(QStringLiteral("Pai/Filho")));
    QVERIFY(!m_vault->deleteEmptyFolder(QStringLiteral("Pai")));
    QVERIFY(m_vault->deleteEmptyFolder(QStringLiteral("pai/FILHO")));
    QVERIFY(m_vault->deleteEmptyFolder(QStringLiteral("PAI")));
    QVERIFY(m_vault->index().directories().isEmpty());
    QVERIFY(!m_vault->deleteEmptyFolder(QStringLiteral("Pai")));

    importText(QStringLiteral("Docs/a.txt"), "a");
    QVERIFY(!m_vault->deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(m_vault->deleteFile(QStringLiteral("Docs/a.txt")));
    QVERIFY(m_vault->deleteEmptyFolder(QStringLiteral("Docs")));
}

void TestEntryOperations::deleteFileKeepsContainerSize()
{
    importText(QStringLiteral("a.txt"), "conteúdo");
    importText(QStringLiteral("b.txt"), "outro");
    const qint64 before = QFileInfo(m_container).size();
    QVERIFY(m_vault->deleteFile(QStringLiteral("A.TXT")));
    QCOMPARE(QFileInfo(m_container).size(), before);
    QCOMPARE(filePaths(m_vault->index()), QStringList({QStringLiteral("b.txt")}));
    QVERIFY(!m_vault->deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_vault->deleteFile(QString()));
}

void TestEntryOperations::moveFileRules()
{
    importText(QStringLiteral("x.txt"), "raiz");
    importText(QStringLiteral("Docs/X.TXT"), "docs");
    QVERIFY(m_vault->createFolder(QStringLiteral("Vazia")));
    QVERIFY(m_vault->createFolder(QStringLiteral("Outra/x.txt")));

    QVERIFY(!m_vault->moveFile(QStringLiteral("x.txt"), QString()));
    QVERIFY(!m_vault->moveFile(QStringLiteral("x.txt"), QStringLiteral("/")));
    QVERIFY(!m_vault->moveFile(QStringLiteral("x.txt"), QStringLiteral("docs")));
    QVERIFY(!m_vault->moveFile(QStringLiteral("x.txt"), QStringLiteral("Inexistente")));
    // A folder already has the new path.
    QVERIFY(!m_vault->moveFile(QStringLiteral("x.txt"), QStringLiteral("Outra")));
    QVERIFY(!m_vault->moveFile(QStringLiteral("ausente.txt"), QStringLiteral("Vazia")));

    // Paths are taken as given: the window passes the stored ones, so letter case stays as stored.
    QVERIFY(m_vault->moveFile(QStringLiteral("x.txt"), QStringLiteral("Vazia")));
    QCOMPARE(m_vault->index().findFile(QStringLiteral("vazia/X.TXT"))->vaultPath,
             QStringLiteral("Vazia/x.txt"));
    QVERIFY(m_vault->moveFile(QStringLiteral("Vazia/x.txt"), QStringLiteral("/")));
    QVERIFY(m_vault->fileExists(QStringLiteral("x.txt")));
}

void TestEntryOperations::moveFileKeepsEverythingButThePath()
{
    importText(QStringLiteral("a.txt"), "mover sem copiar");
    QVERIFY(m_vault->createFolder(QStringLiteral("Destino")));
    const FileEntry before = m_vault->index().files().at(0);
    const qint64 size = QFileInfo(m_container).size();
    QVERIFY(m_vault->moveFile(QStringLiteral("a.txt"), QStringLiteral("Destino")));
    const FileEntry after = m_vault->index().files().at(0);
    QCOMPARE(after.vaultPath, QStringLiteral("Destino/a.txt"));
    QCOMPARE(after.id, before.id);
    QCOMPARE(after.sha256, before.sha256);
    QCOMPARE(after.lastModifiedUtc, before.lastModifiedUtc);
    QCOMPARE(after.blocks.at(0).offset, before.blocks.at(0).offset);
    QCOMPARE(QFileInfo(m_container).size(), size);
    QVERIFY(m_vault->exportFile(QStringLiteral("destino/A.txt"), path(QStringLiteral("saida.txt"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("saida.txt"))), QByteArray("mover sem copiar"));
}

void TestEntryOperations::renameFileRules()
{
    importText(QStringLiteral("a.txt"), "a");
    importText(QStringLiteral("c.txt"), "c");
    QVERIFY(m_vault->createFolder(QStringLiteral("b.txt")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("A.txt")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("C.TXT")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("ausente.txt"), QStringLiteral("z.txt")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("..")));

    QVERIFY(m_vault->renameFile(QStringLiteral("A.TXT"), QStringLiteral("renomeado.txt")));
    QCOMPARE(filePaths(m_vault->index()),
             QStringList({QStringLiteral("renomeado.txt"), QStringLiteral("c.txt")}));
    // The new path's folders are the caller's business: none is made here.
    QVERIFY(m_vault->renameFile(QStringLiteral("c.txt"), QStringLiteral("Nova/c.txt")));
    QVERIFY(!m_vault->directoryExists(QStringLiteral("Nova")));
}

void TestEntryOperations::renameFolderMovesEverythingBelow()
{
    QVERIFY(m_vault->createFolder(QStringLiteral("Fotos/2023")));
    importText(QStringLiteral("Fotos/2023/praia.jpg"), "praia");
    importText(QStringLiteral("Fotos/capa.jpg"), "capa");
    importText(QStringLiteral("Fotos2/fora.jpg"), "fora");
    const FileEntry praia = *m_vault->index().findFile(QStringLiteral("Fotos/2023/praia.jpg"));
    const DirectoryEntry fotos = *m_vault->index().findDirectory(QStringLiteral("Fotos"));
    QTest::qWait(5);

    QVERIFY(m_vault->renameFolder(QStringLiteral("fotos"), QStringLiteral("Arquivo/Fotos")));
    const VaultIndex& index = m_vault->index();
    QCOMPARE(directoryPaths(index),
             QStringList({QStringLiteral("Arquivo"), QStringLiteral("Arquivo/Fotos"),
                          QStringLiteral("Arquivo/Fotos/2023"), QStringLiteral("Fotos2")}));
    QCOMPARE(filePaths(index),
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
    QVERIFY(
        m_vault->exportFile(QStringLiteral("arquivo/fotos/2023/PRAIA.jpg"), path(QStringLiteral("p.jpg"))));
    QCOMPARE(TestFiles::read(path(QStringLiteral("p.jpg"))), QByteArray("praia"));
}

void TestEntryOperations::renameFolderRefusals()
{
    QVERIFY(m_vault->createFolder(QStringLiteral("Fotos")));
    QVERIFY(m_vault->createFolder(QStringLiteral("Docs")));
    importText(QStringLiteral("nota.txt"), "n");
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Fotos"), QStringLiteral("Fotos/2024")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Fotos"), QStringLiteral("FOTOS")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Fotos"), QStringLiteral("docs")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Fotos"), QStringLiteral("Nota.txt")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Ausente"), QStringLiteral("Outra")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Fotos"), QString()));
    QVERIFY(m_vault->renameFolder(QStringLiteral("Fotos"), QStringLiteral("Imagens")));
}

void TestEntryOperations::openFileCanBeDeletedButNotMovedOrRenamed()
{
    importText(QStringLiteral("Pasta/aberto.txt"), "em edição");
    importText(QStringLiteral("outro.txt"), "outro");
    QVERIFY(m_vault->createFolder(QStringLiteral("Destino")));
    QString local;
    QVERIFY(m_vault->openForEdit(QStringLiteral("Pasta/aberto.txt"), &local));

    QVERIFY(!m_vault->moveFile(QStringLiteral("Pasta/aberto.txt"), QStringLiteral("Destino")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("Pasta/aberto.txt"), QStringLiteral("Pasta/novo.txt")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Pasta"), QStringLiteral("Destino/Pasta")));
    QVERIFY(m_vault->moveFile(QStringLiteral("outro.txt"), QStringLiteral("Destino")));
    QVERIFY(m_vault->deleteFile(QStringLiteral("Pasta/aberto.txt")));
    QVERIFY(!m_vault->fileExists(QStringLiteral("Pasta/aberto.txt")));
}

void TestEntryOperations::refusalsLeaveContainerAndIndexAsTheyWere()
{
    importText(QStringLiteral("a.txt"), "a");
    QVERIFY(m_vault->createFolder(QStringLiteral("Docs/Sub")));
    const QByteArray bytes = TestFiles::read(m_container);
    const QByteArray index = m_vault->index().toJson();
    QVERIFY(!m_vault->createFolder(QStringLiteral("docs")));
    QVERIFY(!m_vault->deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(!m_vault->deleteFile(QStringLiteral("b.txt")));
    QVERIFY(!m_vault->moveFile(QStringLiteral("a.txt"), QStringLiteral("Nada")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("A.TXT")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Docs"), QStringLiteral("Docs/Sub/X")));
    QCOMPARE(TestFiles::read(m_container), bytes);
    QCOMPARE(m_vault->index().toJson(), index);
}

void TestEntryOperations::unreadableHeaderKeepsTheLiveIndex()
{
    importText(QStringLiteral("a.txt"), "a");
    const QByteArray index = m_vault->index().toJson();
    QByteArray bytes = TestFiles::read(m_container);
    bytes[0] = 'X';
    QVERIFY(TestFiles::write(m_container, bytes));
    QVERIFY(!m_vault->createFolder(QStringLiteral("Nova")));
    QVERIFY(!m_vault->deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QCOMPARE(m_vault->index().toJson(), index);
    QCOMPARE(TestFiles::read(m_container), bytes);
}

void TestEntryOperations::lockedVaultRefusesEverything()
{
    importText(QStringLiteral("a.txt"), "a");
    QVERIFY(m_vault->createFolder(QStringLiteral("Docs")));
    QVERIFY(m_vault->lock());
    const QByteArray bytes = TestFiles::read(m_container);
    QVERIFY(!m_vault->createFolder(QStringLiteral("Nova")));
    QVERIFY(!m_vault->deleteEmptyFolder(QStringLiteral("Docs")));
    QVERIFY(!m_vault->deleteFile(QStringLiteral("a.txt")));
    QVERIFY(!m_vault->moveFile(QStringLiteral("a.txt"), QStringLiteral("Docs")));
    QVERIFY(!m_vault->renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    QVERIFY(!m_vault->renameFolder(QStringLiteral("Docs"), QStringLiteral("Outra")));
    QVERIFY(!m_vault->fileExists(QStringLiteral("a.txt")));
    QCOMPARE(TestFiles::read(m_container), bytes);
}

QTEST_GUILESS_MAIN(TestEntryOperations)
#include "tst_entryoperations.moc"
