// Whole folders brought into the window's vault, from the picker or dropped from the file manager:
// their trees with empty folders, what is left out and counted, replacements answered for all, and
// names that would land on one vault path listed instead of imported.
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"

#include <QAction>
#include <QBuffer>
#include <QDir>
#include <QDropEvent>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QMimeData>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QToolButton>
#include <QUrl>

using namespace Velmarin;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

QMimeData* urlsOf(const QStringList& paths)
{
    auto* mime = new QMimeData;
    QList<QUrl> urls;
    for (const QString& path : paths) {
        urls << QUrl::fromLocalFile(path);
    }
    mime->setUrls(urls);
    return mime;
}

} // namespace

class ImportFoldersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void theActionFollowsImportWithoutAShortcut();
    void aFolderComesInWithItsWholeTree();
    void yesToAllReplacesEveryCollision();
    void noToAllKeepsEveryCollision();
    void namesTheVaultCannotTakeAreListedOnce();
    void aDropImportsIntoTheCurrentFolder();
    void aDropOnAFolderRowImportsIntoThatFolder();
    void aDropWhileLockedDoesNothing();
    void onlyLocalFilesAreTaken();

private:
    bool write(const QString& relative, const QByteArray& bytes);
    // "pasta/" for each folder and "arquivo" for each file of the vault, as a session of its own
    // reads it once the window has locked the vault.
    QStringList vaultTree();
    QByteArray contentsOf(const QString& vaultPath);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }
    // A drag entering the table's viewport at position, then a drop there; whether each was accepted.
    QPair<bool, bool> dropOnTable(const QStringList& paths, const QPoint& position);
    QPoint belowTheRows() const;

    WindowFixture m_fixture;
};

void ImportFoldersTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void ImportFoldersTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

bool ImportFoldersTest::write(const QString& relative, const QByteArray& bytes)
{
    const QString path = m_fixture.path(relative);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && TestFiles::write(path, bytes);
}

QStringList ImportFoldersTest::vaultTree()
{
    if (m_fixture.window().isVaultUnlocked()) {
        m_fixture.lockButton()->click();
    }
    Core::VaultManager vault;
    if (!vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly)) {
        return {QStringLiteral("<falhou>")};
    }
    QStringList tree;
    for (const Core::DirectoryEntry& folder : vault.index().directories()) {
        tree << folder.path + QLatin1Char('/');
    }
    for (const Core::FileEntry& file : vault.index().files()) {
        tree << file.vaultPath;
    }
    tree.sort();
    return tree;
}

QByteArray ImportFoldersTest::contentsOf(const QString& vaultPath)
{
    Core::VaultManager vault;
    QBuffer buffer;
    if (!vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly) ||
        !buffer.open(QIODevice::WriteOnly) || !vault.exportFile(vaultPath, &buffer)) {
        return QByteArrayLiteral("<falhou>");
    }
    return buffer.data();
}

QPair<bool, bool> ImportFoldersTest::dropOnTable(const QStringList& paths, const QPoint& position)
{
    QWidget* viewport = m_fixture.table()->viewport();
    const std::unique_ptr<QMimeData> mime(urlsOf(paths));
    QDragEnterEvent enter(position, Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &enter);
    QDropEvent drop(QPointF(position), Qt::CopyAction, mime.get(), Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &drop);
    return {enter.isAccepted(), drop.isAccepted()};
}

QPoint ImportFoldersTest::belowTheRows() const
{
    const QWidget* viewport = m_fixture.table()->viewport();
    return QPoint(viewport->width() / 2, viewport->height() - 4);
}

void ImportFoldersTest::theActionFollowsImportWithoutAShortcut()
{
    QVERIFY(m_fixture.setUp());
    QAction* action = m_fixture.action(QStringLiteral("Importar pasta..."));
    QVERIFY(action);
    QVERIFY(action->shortcut().isEmpty());
    QMenu* files = nullptr;
    for (QMenu* menu : m_fixture.window().menuBar()->findChildren<QMenu*>()) {
        if (menu->title() == QStringLiteral("Arquivos protegidos")) {
            files = menu;
        }
    }
    QVERIFY(files);
    const QList<QAction*> actions = files->actions();
    const auto importAt = actions.indexOf(m_fixture.action(QStringLiteral("Importar...")));
    QVERIFY(importAt >= 0);
    QCOMPARE(actions.value(importAt + 1), action);

    // Enabled exactly when "Importar..." is.
    QVERIFY(!action->isEnabled());
    QVERIFY(m_fixture.unlock());
    QVERIFY(action->isEnabled());
    QVERIFY(m_fixture.action(QStringLiteral("Importar..."))->isEnabled());
    m_fixture.lockButton()->click();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!action->isEnabled());
    QCOMPARE(action->isEnabled(), m_fixture.action(QStringLiteral("Importar..."))->isEnabled());
}

void ImportFoldersTest::aFolderComesInWithItsWholeTree()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Destino")}, {}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Destino")));
    const QByteArray photo = TestFiles::pattern(300 * 1024, 7);
    QVERIFY(write(QStringLiteral("Fotos/Férias 2024/praia 🌊.jpg"), photo));
    QVERIFY(write(QStringLiteral("Fotos/Férias 2024/São João.txt"), "forró"));
    QVERIFY(write(QStringLiteral("Fotos/vazio.txt"), QByteArray()));
    QVERIFY(QDir().mkpath(m_fixture.path(QStringLiteral("Fotos/sem nada/nem aqui"))));
    QVERIFY(write(QStringLiteral("fora.txt"), "fora da árvore"));
    QVERIFY(QFile::link(m_fixture.path(QStringLiteral("fora.txt")),
                        m_fixture.path(QStringLiteral("Fotos/atalho.txt"))));
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(QStringLiteral("Fotos")));

    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();

    // The picker that chose the container came first.
    const Tests::PickerCall picker = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(picker.kind, QStringLiteral("folder"));
    QCOMPARE(picker.caption, QStringLiteral("Importar pasta para o cofre"));
    QCOMPARE(picker.directory, QString());
    QCOMPARE(m_fixture.driver().progressTitles().value(0), QStringLiteral("Importar arquivos"));
    QCOMPARE(statusMessage(), QStringLiteral("3 arquivos importados com sucesso; 1 item ignorado."));
    QCOMPARE(m_fixture.window().currentFolder(), QStringLiteral("Destino"));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("Fotos")}));
    QCOMPARE(vaultTree(), QStringList({QStringLiteral("Destino/"), QStringLiteral("Destino/Fotos/"),
                                       QStringLiteral("Destino/Fotos/Férias 2024/"),
                                       QStringLiteral("Destino/Fotos/Férias 2024/São João.txt"),
                                       QStringLiteral("Destino/Fotos/Férias 2024/praia 🌊.jpg"),
                                       QStringLiteral("Destino/Fotos/sem nada/"),
                                       QStringLiteral("Destino/Fotos/sem nada/nem aqui/"),
                                       QStringLiteral("Destino/Fotos/vazio.txt")}));
    QCOMPARE(contentsOf(QStringLiteral("Destino/Fotos/Férias 2024/praia 🌊.jpg")), photo);
    QCOMPARE(contentsOf(QStringLiteral("Destino/Fotos/Férias 2024/São João.txt")), QByteArray("forró"));
    QCOMPARE(contentsOf(QStringLiteral("Destino/Fotos/vazio.txt")), QByteArray());
}

void ImportFoldersTest::yesToAllReplacesEveryCollision()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "antigo a"},
                                 {QStringLiteral("Docs/B.txt"), "antigo b"},
                                 {QStringLiteral("Docs/c.txt"), "antigo c"}}));
    QVERIFY(m_fixture.unlock());
    for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt"}) {
        QVERIFY(write(QStringLiteral("Docs/%1").arg(QLatin1String(name)), QByteArray("novo ") + name));
    }
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(QStringLiteral("Docs")));
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Sim para todos"), &question);
    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();

    QCOMPARE(question.title, QStringLiteral("Substituir arquivo"));
    QCOMPARE(question.text,
             QStringLiteral("Docs/a.txt já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(question.buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Sim para todos"),
                                            QStringLiteral("Não"), QStringLiteral("Não para todos")}));
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    QCOMPARE(question.icon, QMessageBox::Question);
    QCOMPARE(statusMessage(), QStringLiteral("4 arquivos importados com sucesso."));
    m_fixture.lockButton()->click();
    for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt"}) {
        QCOMPARE(contentsOf(QStringLiteral("Docs/%1").arg(QLatin1String(name))), QByteArray("novo ") + name);
    }
}

void ImportFoldersTest::noToAllKeepsEveryCollision()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "antigo a"},
                                 {QStringLiteral("Docs/b.txt"), "antigo b"},
                                 {QStringLiteral("Docs/c.txt"), "antigo c"}}));
    QVERIFY(m_fixture.unlock());
    for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt", "e.txt"}) {
        QVERIFY(write(QStringLiteral("Docs/%1").arg(QLatin1String(name)), QByteArray("novo ") + name));
    }
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(QStringLiteral("Docs")));
    MessageRecord first;
    MessageRecord second;
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &first);
    m_fixture.driver().expectMessage(QStringLiteral("Não para todos"), &second);
    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();

    QCOMPARE(first.text,
             QStringLiteral("Docs/a.txt já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(second.text,
             QStringLiteral("Docs/b.txt já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(second.defaultButton, QStringLiteral("Não"));
    QCOMPARE(statusMessage(), QStringLiteral("3 arquivos importados com sucesso."));
    m_fixture.lockButton()->click();
    QCOMPARE(contentsOf(QStringLiteral("Docs/a.txt")), QByteArray("novo a.txt"));
    QCOMPARE(contentsOf(QStringLiteral("Docs/b.txt")), QByteArray("antigo b"));
    QCOMPARE(contentsOf(QStringLiteral("Docs/c.txt")), QByteArray("antigo c"));
    QCOMPARE(contentsOf(QStringLiteral("Docs/d.txt")), QByteArray("novo d.txt"));
    QCOMPARE(contentsOf(QStringLiteral("Docs/e.txt")), QByteArray("novo e.txt"));
}

void ImportFoldersTest::namesTheVaultCannotTakeAreListedOnce()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Album/foto.jpg"), "do cofre"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(write(QStringLiteral("Album/Foto.jpg"), "maiúscula"));
    QVERIFY(write(QStringLiteral("Album/foto.jpg"), "minúscula"));
    QVERIFY(write(QStringLiteral("Album/outra.jpg"), "outra"));
    QVERIFY(write(QStringLiteral("Album/a\\b.txt"), "barra invertida"));
    QVERIFY(write(QStringLiteral("Album/dentro\\fora/perdido.txt"), "perdido"));
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(QStringLiteral("Album")));
    MessageRecord list;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &list);
    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();

    // One box, and no replacement question for the twins or the vault's own foto.jpg.
    QCOMPARE(list.title, QStringLiteral("Importar arquivos"));
    QCOMPARE(list.text, QStringLiteral("Alguns itens não foram importados."));
    QCOMPARE(list.icon, QMessageBox::Warning);
    QCOMPARE(list.buttons, QStringList{QStringLiteral("OK")});
    QCOMPARE(list.informativeText,
             QStringLiteral("O cofre não aceita estes nomes:\n%1\n%2\n\nEstes arquivos chegariam ao mesmo "
                            "lugar do cofre, pois seus nomes diferem apenas em letras maiúsculas e "
                            "minúsculas:\n%3\n%4")
                 .arg(m_fixture.path(QStringLiteral("Album/a\\b.txt")),
                      m_fixture.path(QStringLiteral("Album/dentro\\fora")),
                      m_fixture.path(QStringLiteral("Album/Foto.jpg")),
                      m_fixture.path(QStringLiteral("Album/foto.jpg"))));
    QCOMPARE(statusMessage(), QStringLiteral("1 arquivo importado com sucesso; 4 itens ignorados."));
    QCOMPARE(vaultTree(), QStringList({QStringLiteral("Album/"), QStringLiteral("Album/foto.jpg"),
                                       QStringLiteral("Album/outra.jpg")}));
    QCOMPARE(contentsOf(QStringLiteral("Album/foto.jpg")), QByteArray("do cofre"));
}

void ImportFoldersTest::aDropImportsIntoTheCurrentFolder()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Pasta atual"), QStringLiteral("Pasta atual/Outra")}, {}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Pasta atual")));
    QVERIFY(write(QStringLiteral("solto.txt"), "solto"));
    QVERIFY(write(QStringLiteral("Arraste/dentro.txt"), "dentro"));
    QVERIFY(QDir().mkpath(m_fixture.path(QStringLiteral("Arraste/vazia"))));

    const QPair<bool, bool> accepted =
        dropOnTable({m_fixture.path(QStringLiteral("solto.txt")), m_fixture.path(QStringLiteral("Arraste"))},
                    belowTheRows());
    QVERIFY(accepted.first);
    QVERIFY(accepted.second);
    QTRY_COMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("Arraste"),
                                             QStringLiteral("Outra"), QStringLiteral("solto.txt")}));
    QCOMPARE(vaultTree(),
             QStringList({QStringLiteral("Pasta atual/"), QStringLiteral("Pasta atual/Arraste/"),
                          QStringLiteral("Pasta atual/Arraste/dentro.txt"),
                          QStringLiteral("Pasta atual/Arraste/vazia/"), QStringLiteral("Pasta atual/Outra/"),
                          QStringLiteral("Pasta atual/solto.txt")}));
    QCOMPARE(contentsOf(QStringLiteral("Pasta atual/solto.txt")), QByteArray("solto"));
}

void ImportFoldersTest::aDropOnAFolderRowImportsIntoThatFolder()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Destino")}, {{QStringLiteral("raiz.txt"), "raiz"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(write(QStringLiteral("solto.txt"), "solto"));
    const int row = m_fixture.rowOf(QStringLiteral("Destino"));
    QVERIFY(row >= 0);
    const QPoint onRow = m_fixture.table()->visualItemRect(m_fixture.table()->item(row, 1)).center();

    const QPair<bool, bool> accepted = dropOnTable({m_fixture.path(QStringLiteral("solto.txt"))}, onRow);
    QVERIFY(accepted.first);
    QVERIFY(accepted.second);
    QTRY_COMPARE(statusMessage(), QStringLiteral("Arquivo importado com sucesso."));
    QCOMPARE(m_fixture.window().currentFolder(), QString());
    QCOMPARE(vaultTree(), QStringList({QStringLiteral("Destino/"), QStringLiteral("Destino/solto.txt"),
                                       QStringLiteral("raiz.txt")}));
}

void ImportFoldersTest::aDropWhileLockedDoesNothing()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    m_fixture.lockButton()->click();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(write(QStringLiteral("solto.txt"), "solto"));
    const QByteArray before = TestFiles::read(m_fixture.container());

    const QPair<bool, bool> accepted =
        dropOnTable({m_fixture.path(QStringLiteral("solto.txt"))}, belowTheRows());
    QVERIFY(!accepted.first);
    QVERIFY(!accepted.second);
    QTest::qWait(100);
    QVERIFY(statusMessage().isEmpty() || !statusMessage().contains(QStringLiteral("importad")));
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
}

void ImportFoldersTest::onlyLocalFilesAreTaken()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    QWidget* viewport = m_fixture.table()->viewport();
    QMimeData mime;
    mime.setUrls({QUrl(QStringLiteral("https://example.com/arquivo.txt"))});
    QDragEnterEvent enter(belowTheRows(), Qt::CopyAction, &mime, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &enter);
    QVERIFY(!enter.isAccepted());
    QMimeData text;
    text.setText(QStringLiteral("só texto"));
    QDropEvent drop(QPointF(belowTheRows()), Qt::CopyAction, &text, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(viewport, &drop);
    QVERIFY(!drop.isAccepted());
    QTest::qWait(100);
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
    QVERIFY(m_fixture.names().isEmpty());
}

QTEST_MAIN(ImportFoldersTest)
#include "tst_importfolders.moc"
