// Folders out of the window's vault: "Exportar pasta..." writes a folder, or the whole vault from the
// root, with its tree into a folder the user picks, asking about existing files and listing at the
// end what could not be written.
#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "WindowFixture.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolButton>

using namespace Velmarin;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

class ExportFoldersTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void theActionFollowsExportInTheMenuAndInTheFolderRows();
    void theActionIsEnabledWhenUnlocked();
    void aFolderComesOutByteForByte();
    void cancellingWritesNothing();
    void yesToAllReplacesAtTheDestination();
    void noToAllKeepsTheDestination();
    void aFailedFileIsToldAtTheEndAndTheRestAreWritten();
    void theRootExportsTheWholeVault();
    void aPathLeadingOutIsRefusedAndNeverWritten();

private:
    bool write(const QString& relative, const QByteArray& bytes);
    // Imports the folder path(relative) into the current folder through "Importar pasta...".
    void importFolder(const QString& relative);
    // Answers the export's question with "Continuar" and the picker with destination.
    void exportTo(const QString& destination, MessageRecord* question = nullptr);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }
    QStringList contextMenuOf(const QString& row);

    WindowFixture m_fixture;
};

void ExportFoldersTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void ExportFoldersTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

bool ExportFoldersTest::write(const QString& relative, const QByteArray& bytes)
{
    const QString path = m_fixture.path(relative);
    return QDir().mkpath(QFileInfo(path).absolutePath()) && TestFiles::write(path, bytes);
}

void ExportFoldersTest::importFolder(const QString& relative)
{
    m_fixture.fakes().dialogs->folderAnswers.push_back(m_fixture.path(relative));
    m_fixture.action(QStringLiteral("Importar pasta..."))->trigger();
}

void ExportFoldersTest::exportTo(const QString& destination, MessageRecord* question)
{
    QVERIFY(QDir().mkpath(destination));
    m_fixture.fakes().dialogs->folderAnswers.push_back(destination);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"), question);
}

QStringList ExportFoldersTest::contextMenuOf(const QString& row)
{
    QTableWidget* table = m_fixture.table();
    QPoint at(4, table->viewport()->height() - 4);
    if (!row.isEmpty()) {
        m_fixture.selectRow(row);
        at = table->visualItemRect(table->item(m_fixture.rowOf(row), 1)).center();
    }
    QStringList texts;
    QTimer::singleShot(50, this, [&texts] {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (menu == nullptr) {
            texts << QStringLiteral("<sem menu>");
            return;
        }
        for (const QAction* action : menu->actions()) {
            texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
        }
        menu->close();
    });
    Q_EMIT table->customContextMenuRequested(at);
    return texts;
}

void ExportFoldersTest::theActionFollowsExportInTheMenuAndInTheFolderRows()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}}));
    QAction* action = m_fixture.action(QStringLiteral("Exportar pasta..."));
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
    const auto exportAt = actions.indexOf(m_fixture.action(QStringLiteral("Exportar...")));
    QVERIFY(exportAt >= 0);
    QCOMPARE(actions.value(exportAt + 1), action);

    QVERIFY(m_fixture.unlock());
    QCOMPARE(contextMenuOf(QStringLiteral("Docs")),
             QStringList({QStringLiteral("Exportar pasta..."), QStringLiteral("Renomear pasta..."),
                          QStringLiteral("Excluir pasta vazia"), QStringLiteral("-"),
                          QStringLiteral("Nova pasta..."), QStringLiteral("Importar...")}));
    // The file rows keep their menu.
    QCOMPARE(contextMenuOf(QStringLiteral("a.txt")),
             QStringList({QStringLiteral("Abrir"), QStringLiteral("Exportar..."),
                          QStringLiteral("Mover para pasta..."), QStringLiteral("Renomear arquivo..."),
                          QStringLiteral("Excluir..."), QStringLiteral("-"), QStringLiteral("Nova pasta..."),
                          QStringLiteral("Importar...")}));
}

void ExportFoldersTest::theActionIsEnabledWhenUnlocked()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}}));
    QAction* action = m_fixture.action(QStringLiteral("Exportar pasta..."));
    QAction* exportFile = m_fixture.action(QStringLiteral("Exportar..."));
    QVERIFY(!action->isEnabled());
    QVERIFY(m_fixture.unlock());
    // Nothing selected: the current folder, here the whole vault.
    QVERIFY(action->isEnabled());
    QVERIFY(!exportFile->isEnabled());
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    QVERIFY(action->isEnabled());
    QVERIFY(!exportFile->isEnabled());
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    QVERIFY(action->isEnabled());
    QVERIFY(exportFile->isEnabled());
    m_fixture.lockButton()->click();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!action->isEnabled());

    // Triggered while locked anyway, it asks and writes nothing.
    action->trigger();
    QVERIFY(m_fixture.fakes().dialogs->folderAnswers.empty());
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
}

void ExportFoldersTest::aFolderComesOutByteForByte()
{
    QVERIFY(m_fixture.setUp({}, {}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(write(QStringLiteral("origem/Fotos/Férias 2024/praia 🌊.jpg"), TestFiles::pattern(300 * 1024, 7)));
    QVERIFY(write(QStringLiteral("origem/Fotos/Férias 2024/São João.txt"), "forró"));
    QVERIFY(write(QStringLiteral("origem/Fotos/vazio.txt"), QByteArray()));
    QVERIFY(write(QStringLiteral("origem/Fotos/çãõ/ñ/ü.bin"), TestFiles::pattern(17 * 1024 * 1024 + 3, 9)));
    QVERIFY(QDir().mkpath(m_fixture.path(QStringLiteral("origem/Fotos/sem nada/nem aqui"))));
    importFolder(QStringLiteral("origem/Fotos"));
    QCOMPARE(statusMessage(), QStringLiteral("4 arquivos importados com sucesso."));

    QVERIFY(m_fixture.selectRow(QStringLiteral("Fotos")));
    const QString destination = m_fixture.path(QStringLiteral("saída"));
    MessageRecord question;
    exportTo(destination, &question);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QCOMPARE(question.title, QStringLiteral("Exportar pasta"));
    QCOMPARE(question.text, QStringLiteral("Exportar a pasta Fotos criará cópias descriptografadas fora do "
                                           "cofre. Alterações feitas nessas cópias não voltam "
                                           "automaticamente para o Velmarin."));
    QCOMPARE(question.buttons, QStringList({QStringLiteral("Continuar"), QStringLiteral("Cancelar")}));
    QCOMPARE(question.defaultButton, QStringLiteral("Cancelar"));
    QCOMPARE(question.icon, QMessageBox::Question);
    QVERIFY(question.hasParent);
    const Tests::PickerCall picker = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(picker.kind, QStringLiteral("folder"));
    QCOMPARE(picker.caption, QStringLiteral("Exportar pasta"));
    QCOMPARE(m_fixture.driver().progressTitles().last(), QStringLiteral("Exportar pasta"));
    QCOMPARE(statusMessage(), QStringLiteral("4 arquivos exportados com sucesso."));
    // Like cp -r: the folder itself, by its own name, inside the destination.
    QCOMPARE(TestFiles::tree(destination).value(0), QStringLiteral("Fotos/"));
    QVERIFY(TestFiles::sameTree(m_fixture.path(QStringLiteral("origem/Fotos")),
                                destination + QStringLiteral("/Fotos")));
    QVERIFY(m_fixture.window().isVaultUnlocked());
}

void ExportFoldersTest::cancellingWritesNothing()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Docs")}, {{QStringLiteral("Docs/a.txt"), "a"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    const qsizetype pickers = m_fixture.fakes().dialogs->calls.size();
    m_fixture.driver().expectMessage(QStringLiteral("Cancelar"));
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();
    QCOMPARE(m_fixture.fakes().dialogs->calls.size(), pickers);

    // A cancelled picker: nothing written either.
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();
    QCOMPARE(m_fixture.fakes().dialogs->calls.size(), pickers + 1);
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
}

void ExportFoldersTest::yesToAllReplacesAtTheDestination()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "novo a"},
                                 {QStringLiteral("Docs/b.txt"), "novo b"},
                                 {QStringLiteral("Docs/c.txt"), "novo c"},
                                 {QStringLiteral("Docs/d.txt"), "novo d"}}));
    QVERIFY(m_fixture.unlock());
    for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
        QVERIFY(write(QStringLiteral("saida/Docs/%1").arg(QLatin1String(name)), "velho"));
    }
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    const QString destination = m_fixture.path(QStringLiteral("saida"));
    exportTo(destination);
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Sim para todos"), &question);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QCOMPARE(question.title, QStringLiteral("Substituir arquivo"));
    QCOMPARE(question.text, QStringLiteral("%1 já existe na pasta de destino. Deseja substituir o arquivo?")
                                .arg(QDir::toNativeSeparators(destination + QStringLiteral("/Docs/a.txt"))));
    QCOMPARE(question.buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Sim para todos"),
                                            QStringLiteral("Não"), QStringLiteral("Não para todos")}));
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    QCOMPARE(question.icon, QMessageBox::Question);
    QCOMPARE(statusMessage(), QStringLiteral("4 arquivos exportados com sucesso."));
    for (const char* name : {"a.txt", "b.txt", "c.txt", "d.txt"}) {
        QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/%1").arg(QLatin1String(name))),
                 QByteArray("novo ") + QByteArray(name).left(1));
    }
}

void ExportFoldersTest::noToAllKeepsTheDestination()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "novo a"},
                                 {QStringLiteral("Docs/b.txt"), "novo b"},
                                 {QStringLiteral("Docs/c.txt"), "novo c"},
                                 {QStringLiteral("Docs/d.txt"), "novo d"}}));
    QVERIFY(m_fixture.unlock());
    for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
        QVERIFY(write(QStringLiteral("saida/Docs/%1").arg(QLatin1String(name)), "velho"));
    }
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    const QString destination = m_fixture.path(QStringLiteral("saida"));
    exportTo(destination);
    MessageRecord first;
    MessageRecord second;
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &first);
    m_fixture.driver().expectMessage(QStringLiteral("Não para todos"), &second);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QVERIFY(first.text.startsWith(QDir::toNativeSeparators(destination + QStringLiteral("/Docs/a.txt "))));
    QCOMPARE(second.text, QStringLiteral("%1 já existe na pasta de destino. Deseja substituir o arquivo?")
                              .arg(QDir::toNativeSeparators(destination + QStringLiteral("/Docs/b.txt"))));
    QCOMPARE(second.defaultButton, QStringLiteral("Não"));
    QCOMPARE(statusMessage(),
             QStringLiteral("2 arquivos exportados com sucesso; 2 arquivos mantidos no destino."));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/a.txt")), QByteArray("novo a"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/b.txt")), QByteArray("velho"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/c.txt")), QByteArray("velho"));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/d.txt")), QByteArray("novo d"));
}

void ExportFoldersTest::aFailedFileIsToldAtTheEndAndTheRestAreWritten()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "a"},
                                 {QStringLiteral("Docs/b.txt"), "b"},
                                 {QStringLiteral("Docs/c.txt"), "c"}}));
    QVERIFY(m_fixture.unlock());
    const QString destination = m_fixture.path(QStringLiteral("saida"));
    // A folder stands where b.txt goes.
    QVERIFY(QDir().mkpath(destination + QStringLiteral("/Docs/b.txt")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    exportTo(destination);
    MessageRecord told;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &told);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QCOMPARE(told.title, QStringLiteral("Exportar pasta"));
    QCOMPARE(told.text, QStringLiteral("Alguns itens não foram exportados."));
    QCOMPARE(told.icon, QMessageBox::Warning);
    QCOMPARE(told.informativeText,
             QStringLiteral("Não foi possível gravar estes itens:\nDocs/b.txt\n\nNão foi possível gravar %1.")
                 .arg(destination + QStringLiteral("/Docs/b.txt")));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos exportados com sucesso; 1 item com falha."));
    // The others written, nothing half written beside them.
    QCOMPARE(TestFiles::tree(destination + QStringLiteral("/Docs")),
             QStringList({QStringLiteral("a.txt"), QStringLiteral("b.txt/"), QStringLiteral("c.txt")}));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Docs/c.txt")), QByteArray("c"));
}

void ExportFoldersTest::theRootExportsTheWholeVault()
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Vazia"), QStringLiteral("Docs")},
                            {{QStringLiteral("raiz.txt"), "raiz"}, {QStringLiteral("Docs/a.txt"), "a"}}));
    QVERIFY(m_fixture.unlock());
    const QString destination = m_fixture.path(QStringLiteral("saida"));
    MessageRecord question;
    exportTo(destination, &question);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QCOMPARE(question.title, QStringLiteral("Exportar pasta"));
    QCOMPARE(question.text, QStringLiteral("Exportar o cofre inteiro criará cópias descriptografadas fora do "
                                           "cofre. Alterações feitas nessas cópias não voltam "
                                           "automaticamente para o Velmarin."));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos exportados com sucesso."));
    // Named like the container in the status bar.
    QCOMPARE(TestFiles::tree(destination),
             QStringList({QStringLiteral("Velmarin/"), QStringLiteral("Velmarin/Docs/"),
                          QStringLiteral("Velmarin/Docs/a.txt"), QStringLiteral("Velmarin/Vazia/"),
                          QStringLiteral("Velmarin/raiz.txt")}));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Velmarin/raiz.txt")), QByteArray("raiz"));

    // Inside a folder with a file row selected, that folder goes.
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    const QString second = m_fixture.path(QStringLiteral("outra"));
    exportTo(second, &question);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();
    QVERIFY(question.text.startsWith(QStringLiteral("Exportar a pasta Docs criará")));
    QCOMPARE(TestFiles::tree(second), QStringList({QStringLiteral("Docs/"), QStringLiteral("Docs/a.txt")}));
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo exportado com sucesso."));
}

void ExportFoldersTest::aPathLeadingOutIsRefusedAndNeverWritten()
{
    QVERIFY(m_fixture.setUp({}, {}));
    {
        Tests::LockedVaultEditor editor;
        QVERIFY(editor.open(m_fixture.container(), TestFiles::password()));
        const QDateTime now = QDateTime::currentDateTimeUtc();
        QVERIFY(editor.appendFile(QStringLiteral("../escapou1.txt"), "hostil", now));
        QVERIFY(editor.appendFile(QStringLiteral("Pasta/../../escapou2.txt"), "hostil", now));
        QVERIFY(editor.appendFile(QStringLiteral("Pasta/legitimo.txt"), "legítimo", now));
        QVERIFY(editor.save());
    }
    QVERIFY(m_fixture.unlock());
    const QString destination = m_fixture.path(QStringLiteral("fora/dentro"));
    exportTo(destination);
    const QStringList before = TestFiles::tree(m_fixture.path(QStringLiteral("fora")));
    MessageRecord told;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &told);
    m_fixture.action(QStringLiteral("Exportar pasta..."))->trigger();

    QCOMPARE(told.title, QStringLiteral("Exportar pasta"));
    QCOMPARE(told.text, QStringLiteral("Alguns itens não foram exportados."));
    QCOMPARE(
        told.informativeText,
        QStringLiteral("Estes caminhos do cofre levariam para fora da pasta de destino; nada foi gravado "
                       "para eles:\n..\n../escapou1.txt\nPasta/..\nPasta/../..\nPasta/../../escapou2.txt"));
    QCOMPARE(statusMessage(), QStringLiteral("1 arquivo exportado com sucesso; 5 itens com falha."));
    QCOMPARE(TestFiles::read(destination + QStringLiteral("/Velmarin/Pasta/legitimo.txt")),
             QByteArray("legítimo"));
    QDirIterator everything(m_fixture.path(QString()), QDir::Files, QDirIterator::Subdirectories);
    while (everything.hasNext()) {
        QVERIFY2(!everything.next().contains(QStringLiteral("escapou")), qPrintable(everything.filePath()));
    }
    QStringList after = TestFiles::tree(m_fixture.path(QStringLiteral("fora")));
    after.removeIf([](const QString& entry) { return entry.startsWith(QStringLiteral("dentro/Velmarin/")); });
    QCOMPARE(after, before);
}

QTEST_MAIN(ExportFoldersTest)
#include "tst_exportfolders.moc"
