// File actions from the window: import with its free-space rules, export, open, move, rename,
// new folder and the two deletes, and the table's context menu.
#include "FailureInjection.h"
#include "TestFiles.h"
#include "WindowFixture.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;
const QString SpeedNote = QStringLiteral("A velocidade depende da taxa de leitura e escrita da unidade USB.\n"
                                         "Dispositivos USB 3 ou superiores tendem a ser mais rápidos.");

} // namespace

class FileActionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void importOneFile();
    void importRefusedWhenTheSpaceIsShort();
    void importSpaceEdges_data();
    void importSpaceEdges();
    void importWithAMissingFile();
    void importWithoutStorageInformation();
    void importAsksBeforeReplacing();
    void decliningEveryReplacementReportsZero();
    void importFailureOfOneFileGoesOn();
    void exportAsksAndWritesTheBytes();
    void exportFailure();
    void openForEditing();
    void openFailsInTheDefaultApplication();
    void moveFromTheRootOffersNoRoot();
    void moveWithoutAnotherFolder();
    void moveRefusesAnExistingTarget();
    void moveFromAFolderOffersTheRoot();
    void renameRefusesBadNames_data();
    void renameRefusesBadNames();
    void renameBlankOrSameNameEndsSilently();
    void renameFileAndFolder();
    void renameToAnExistingName();
    void newFolder();
    void newFolderRefusals();
    void deleteFolder();
    void deleteFile();
    void namesAreNeverReadAsMarkup();
    void contextMenuFollowsTheRow();
    void engineFailures_data();
    void engineFailures();
    void openFailsWhenTheWorkingCopyCannotBeMade();

private:
    void setUpUnlocked(const QStringList& folders, const QList<WindowFixture::Entry>& files);
    QString localFile(const QString& name, qint64 size);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }
    QStringList contextMenuFor(const QString& row);

    WindowFixture m_fixture;
};

void FileActionsTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QVERIFY(FailureInjection::isAvailable());
}

void FileActionsTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void FileActionsTest::setUpUnlocked(const QStringList& folders, const QList<WindowFixture::Entry>& files)
{
    QVERIFY(m_fixture.setUp(folders, files));
    QVERIFY(m_fixture.unlock());
}

QString FileActionsTest::localFile(const QString& name, qint64 size)
{
    const QString path = m_fixture.path(name);
    if (!TestFiles::writePattern(path, size, static_cast<quint32>(size))) {
        return {};
    }
    return path;
}

void FileActionsTest::importOneFile()
{
    setUpUnlocked({QStringLiteral("Docs")}, {});
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    const QString source = localFile(QStringLiteral("relatorio.pdf"), 3 * MiB);
    m_fixture.fakes().dialogs->fileListAnswers.push_back({source});
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo importado com sucesso."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("relatorio.pdf")}));
    const Tests::PickerCall call = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(call.kind, QStringLiteral("openMany"));
    QCOMPARE(call.caption, QStringLiteral("Importar arquivos para o cofre"));
    QCOMPARE(call.directory, QString());
    QCOMPARE(call.filter, QString());
    QCOMPARE(m_fixture.driver().progressTitles(), QStringList({QStringLiteral("Importar arquivos")}));
    QVERIFY(m_fixture.driver().progressValues().contains(1000));
    // Free space is asked of the folder that holds the container.
    QCOMPARE(m_fixture.fakes().storage->askedPaths.first(), m_fixture.driveRoot());
}

void FileActionsTest::importRefusedWhenTheSpaceIsShort()
{
    setUpUnlocked({}, {});
    const QString source = localFile(QStringLiteral("grande.bin"), 4 * MiB);
    m_fixture.fakes().storage->available = 20 * MiB; // needs 16 MiB + 4.2 MiB
    m_fixture.fakes().dialogs->fileListAnswers.push_back({source});
    const qint64 before = QFileInfo(m_fixture.container()).size();
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Espaço insuficiente"));
    QCOMPARE(warning.text,
             QStringLiteral("Não há espaço livre suficiente na unidade do container.\n\nArquivos "
                            "selecionados: 4,0 MB\nEspaço livre disponível: 20,0 MB\n\nLibere espaço "
                            "na unidade USB ou selecione arquivos menores."));
    QVERIFY(!warning.hasParent);
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QVERIFY(m_fixture.names().isEmpty());
    QVERIFY(m_fixture.driver().progressTitles().isEmpty());
}

void FileActionsTest::importSpaceEdges_data()
{
    QTest::addColumn<qint64>("extra");
    QTest::addColumn<bool>("asks");
    QTest::newRow("required exactly equal to the space") << qint64(0) << true;
    QTest::newRow("100 MiB left after the reserve") << 100 * MiB << true;
    QTest::newRow("128 MiB left, just below") << 128 * MiB - 1 << true;
    QTest::newRow("128 MiB left exactly") << 128 * MiB << false;
}

void FileActionsTest::importSpaceEdges()
{
    QFETCH(qint64, extra);
    QFETCH(bool, asks);
    setUpUnlocked({}, {});
    const qint64 size = 1000 * 1000 + 7; // 1.05 x size is not a whole number
    const QString source = localFile(QStringLiteral("medio.bin"), size);
    const qint64 required = 16 * MiB + static_cast<qint64>(1.05 * static_cast<double>(size));
    m_fixture.fakes().storage->available = required + extra;
    m_fixture.fakes().dialogs->fileListAnswers.push_back({source});
    MessageRecord question;
    if (asks) {
        m_fixture.driver().expectMessage(QStringLiteral("Sim"), &question);
    }
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    if (asks) {
        QCOMPARE(question.title, QStringLiteral("Espaço livre reduzido"));
        QCOMPARE(
            question.text,
            QStringLiteral("A importação deixará pouco espaço livre na unidade do container.\n\nArquivos "
                           "selecionados: %1\nEspaço livre restante estimado: %2\n\nDeseja continuar?")
                .arg(QLocale().formattedDataSize(size, 1, QLocale::DataSizeTraditionalFormat),
                     QLocale().formattedDataSize(extra, 1, QLocale::DataSizeTraditionalFormat)));
        QCOMPARE(question.defaultButton, QStringLiteral("Não"));
        QVERIFY(question.hasParent);
    }
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("medio.bin")}));
}

void FileActionsTest::importWithAMissingFile()
{
    setUpUnlocked({}, {});
    const QString missing = m_fixture.path(QStringLiteral("sumiu.txt"));
    m_fixture.fakes().dialogs->fileListAnswers.push_back({localFile(QStringLiteral("a.txt"), 10), missing});
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Importar arquivos"));
    QCOMPARE(warning.text, QStringLiteral("O arquivo %1 não está disponível para importação.").arg(missing));
    QVERIFY(!warning.hasParent);
    QVERIFY(m_fixture.names().isEmpty());
}

void FileActionsTest::importWithoutStorageInformation()
{
    setUpUnlocked({}, {});
    m_fixture.fakes().storage->ready = false;
    m_fixture.fakes().dialogs->fileListAnswers.push_back({localFile(QStringLiteral("a.txt"), 10)});
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Importar arquivos"));
    QCOMPARE(warning.text,
             QStringLiteral("Não foi possível verificar o espaço livre da unidade do container."));
    QVERIFY(!warning.hasParent);
}

void FileActionsTest::importAsksBeforeReplacing()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "antigo"}, {QStringLiteral("b.txt"), "antigo"}});
    const QString a = m_fixture.path(QStringLiteral("novos/a.txt"));
    const QString b = m_fixture.path(QStringLiteral("novos/b.txt"));
    const QString c = m_fixture.path(QStringLiteral("novos/c.txt"));
    QDir().mkpath(m_fixture.path(QStringLiteral("novos")));
    QVERIFY(TestFiles::write(a, "novo a") && TestFiles::write(b, "novo b") && TestFiles::write(c, "novo c"));
    m_fixture.fakes().dialogs->fileListAnswers.push_back({a, b, c});
    MessageRecord replaceA;
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &replaceA);
    m_fixture.driver().expectMessage(QStringLiteral("Não"));
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(replaceA.title, QStringLiteral("Substituir arquivo"));
    QCOMPARE(replaceA.text,
             QStringLiteral("a.txt já existe no cofre. Deseja substituir o arquivo protegido?"));
    QCOMPARE(replaceA.buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Não")}));
    QCOMPARE(replaceA.defaultButton, QStringLiteral("Não"));
    QCOMPARE(statusMessage(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("a.txt"), QStringLiteral("b.txt"), QStringLiteral("c.txt")}));

    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    const QString exported = m_fixture.path(QStringLiteral("a-exportado.txt"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(exported);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QCOMPARE(TestFiles::read(exported), QByteArray("novo a"));
}

void FileActionsTest::decliningEveryReplacementReportsZero()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "antigo"}});
    const QString a = localFile(QStringLiteral("a.txt"), 5);
    m_fixture.fakes().dialogs->fileListAnswers.push_back({a});
    m_fixture.driver().expectMessage(QStringLiteral("Não"));
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("0 arquivos importados com sucesso."));
}

void FileActionsTest::importFailureOfOneFileGoesOn()
{
    setUpUnlocked({}, {});
    const QString good = localFile(QStringLiteral("bom.txt"), 100);
    const QString bad = localFile(QStringLiteral("ruim.txt"), 100);
    m_fixture.fakes().dialogs->fileListAnswers.push_back({bad, good});
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The source cannot be read: the drive is fine, the file is not.
        const FailureInjection injection(bad, "open-read");
        m_fixture.action(QStringLiteral("Importar..."))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível importar ruim.txt."));
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo importado com sucesso."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("bom.txt")}));
}

void FileActionsTest::exportAsksAndWritesTheBytes()
{
    const QByteArray contents = TestFiles::pattern(5 * MiB / 2, 9);
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("Docs/foto.jpg"), contents}});
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("foto.jpg")));

    MessageRecord cancelled;
    m_fixture.driver().expectMessage(QStringLiteral("Cancelar"), &cancelled);
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QCOMPARE(cancelled.title, QStringLiteral("Exportar arquivo"));
    QCOMPARE(cancelled.text,
             QStringLiteral("Exportar Docs/foto.jpg criará uma cópia descriptografada fora do cofre. "
                            "Alterações feitas nessa cópia não voltam automaticamente para o Velmarin."));
    QCOMPARE(cancelled.buttons, QStringList({QStringLiteral("Continuar"), QStringLiteral("Cancelar")}));
    QCOMPARE(cancelled.defaultButton, QStringLiteral("Cancelar"));
    QCOMPARE(cancelled.icon, QMessageBox::Question);
    QVERIFY(m_fixture.fakes().dialogs->calls.size() == 1); // only the container choice

    const QString destination = m_fixture.path(QStringLiteral("foto-exportada.jpg"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    const Tests::PickerCall call = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(call.kind, QStringLiteral("save"));
    QCOMPARE(call.caption, QStringLiteral("Exportar arquivo"));
    QCOMPARE(call.directory, QStringLiteral("foto.jpg"));
    QCOMPARE(call.filter, QString());
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo exportado com sucesso."));
    QCOMPARE(TestFiles::read(destination), contents);
}

void FileActionsTest::exportFailure()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(QStringLiteral("nao/existe/a.txt")));
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível exportar o arquivo."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao exportar o arquivo."));
}

void FileActionsTest::openForEditing()
{
    setUpUnlocked({}, {{QStringLiteral("notas.txt"), "texto"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("notas.txt")));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo aberto para edição."));
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    QCOMPARE(TestFiles::read(m_fixture.fakes().urls->opened.first().toLocalFile()), QByteArray("texto"));
}

void FileActionsTest::openFailsInTheDefaultApplication()
{
    setUpUnlocked({}, {{QStringLiteral("notas.txt"), "texto"}});
    m_fixture.fakes().urls->succeeds = false;
    QVERIFY(m_fixture.selectRow(QStringLiteral("notas.txt")));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível abrir o arquivo no aplicativo padrão."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao abrir o arquivo."));
}

void FileActionsTest::moveFromTheRootOffersNoRoot()
{
    setUpUnlocked({QStringLiteral("Docs"), QStringLiteral("Fotos"), QStringLiteral("Docs/Antigos")},
                  {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    QStringList offered;
    QString label;
    QStringList buttons;
    m_fixture.driver().expect([&](QWidget* dialog) {
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Mover arquivo"));
        auto* combo = dialog->findChild<QComboBox*>();
        for (int i = 0; i < combo->count(); ++i) {
            offered.append(combo->itemText(i));
        }
        label = dialog->findChild<QLabel*>()->text();
        for (QAbstractButton* button : dialog->findChild<QDialogButtonBox*>()->buttons()) {
            buttons.append(button->text());
        }
        combo->setCurrentIndex(combo->findText(QStringLiteral("Fotos")));
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
    m_fixture.action(QStringLiteral("Mover para pasta..."))->trigger();
    QCOMPARE(offered,
             QStringList({QStringLiteral("Docs"), QStringLiteral("Docs/Antigos"), QStringLiteral("Fotos")}));
    QCOMPARE(label, QStringLiteral("Mover a.txt para:"));
    QCOMPARE(buttons.size(), 2);
    QVERIFY(buttons.contains(QStringLiteral("Mover")) && buttons.contains(QStringLiteral("Cancelar")));
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo movido."));
    QVERIFY(!m_fixture.names().contains(QStringLiteral("a.txt")));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Fotos")));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("a.txt")}));
}

void FileActionsTest::moveWithoutAnotherFolder()
{
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("Docs/a.txt"), "a"}});
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    // Inside Docs the root is offered; so only a vault without any other place refuses.
    m_fixture.driver().expect([](QWidget* dialog) { qobject_cast<QDialog*>(dialog)->reject(); });
    m_fixture.action(QStringLiteral("Mover para pasta..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());

    m_fixture.tearDown();
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    QVERIFY(!m_fixture.action(QStringLiteral("Mover para pasta..."))->isEnabled());
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.window().moveFile();
    QCOMPARE(warning.title, QStringLiteral("Mover arquivo"));
    QCOMPARE(warning.text, QStringLiteral("Não há outra pasta disponível para receber este arquivo."));
}

void FileActionsTest::moveRefusesAnExistingTarget()
{
    setUpUnlocked({QStringLiteral("Docs")},
                  {{QStringLiteral("a.txt"), "raiz"}, {QStringLiteral("Docs/A.TXT"), "docs"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expect([](QWidget* dialog) {
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Mover para pasta..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Mover arquivo"));
    QCOMPARE(warning.text, QStringLiteral("Já existe um item com esse nome na pasta de destino."));
    QVERIFY(m_fixture.names().contains(QStringLiteral("a.txt")));
}

void FileActionsTest::moveFromAFolderOffersTheRoot()
{
    setUpUnlocked({QStringLiteral("Docs"), QStringLiteral("Fotos")}, {{QStringLiteral("Docs/a.txt"), "a"}});
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    QStringList offered;
    m_fixture.driver().expect([&](QWidget* dialog) {
        auto* combo = dialog->findChild<QComboBox*>();
        for (int i = 0; i < combo->count(); ++i) {
            offered.append(combo->itemText(i) + QLatin1Char('=') + combo->itemData(i).toString());
        }
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
    m_fixture.action(QStringLiteral("Mover para pasta..."))->trigger();
    QCOMPARE(offered, QStringList({QStringLiteral("Raiz="), QStringLiteral("Fotos=Fotos")}));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("..")}));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("..")));
    QVERIFY(m_fixture.names().contains(QStringLiteral("a.txt")));
}

void FileActionsTest::renameRefusesBadNames_data()
{
    QTest::addColumn<bool>("folder");
    QTest::addColumn<QString>("name");
    for (const bool folder : {false, true}) {
        for (const char* name : {"a/b", "a\\b", "..", "."}) {
            QTest::addRow("%s %s", folder ? "folder" : "file", name) << folder << QString::fromLatin1(name);
        }
    }
}

void FileActionsTest::renameRefusesBadNames()
{
    QFETCH(bool, folder);
    QFETCH(QString, name);
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(folder ? QStringLiteral("Docs") : QStringLiteral("a.txt")));
    Tests::InputRecord prompt;
    m_fixture.driver().expectInput(name, &prompt);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(folder ? QStringLiteral("Renomear pasta...") : QStringLiteral("Renomear arquivo..."))
        ->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(prompt.title, folder ? QStringLiteral("Renomear pasta") : QStringLiteral("Renomear arquivo"));
    QCOMPARE(prompt.label, QStringLiteral("Novo nome:"));
    QCOMPARE(prompt.initialText, folder ? QStringLiteral("Docs") : QStringLiteral("a.txt"));
    QCOMPARE(warning.title, prompt.title);
    QCOMPARE(
        warning.text,
        folder
            ? QStringLiteral("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo.")
            : QStringLiteral(
                  "Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Docs"), QStringLiteral("a.txt")}));
}

void FileActionsTest::renameBlankOrSameNameEndsSilently()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    for (const QString& typed : {QStringLiteral("   "), QStringLiteral("a.txt"), QStringLiteral(" a.txt ")}) {
        QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
        m_fixture.driver().expectInput(typed);
        m_fixture.action(QStringLiteral("Renomear arquivo..."))->trigger();
        QVERIFY(m_fixture.driver().allHandled());
    }
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expectInput(QStringLiteral("b.txt"), nullptr, false);
    m_fixture.action(QStringLiteral("Renomear arquivo..."))->trigger();
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));
}

void FileActionsTest::renameFileAndFolder()
{
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("Docs/a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    m_fixture.driver().expectInput(QStringLiteral("  Papéis  "));
    m_fixture.action(QStringLiteral("Renomear pasta..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Pasta renomeada."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Papéis")}));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Papéis")));
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expectInput(QStringLiteral("carta.txt"));
    m_fixture.action(QStringLiteral("Renomear arquivo..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo renomeado."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("carta.txt")}));

    // The parent row is not a folder to rename.
    QVERIFY(m_fixture.selectRow(QStringLiteral("..")));
    m_fixture.window().renameFolder();
    QVERIFY(m_fixture.driver().allHandled());
}

void FileActionsTest::renameToAnExistingName()
{
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expectInput(QStringLiteral("DOCS"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Renomear arquivo..."))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Renomear arquivo"));
    QCOMPARE(warning.text, QStringLiteral("Já existe um item com esse nome nesta pasta."));
}

void FileActionsTest::newFolder()
{
    setUpUnlocked({QStringLiteral("Docs")}, {});
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Docs")));
    Tests::InputRecord prompt;
    m_fixture.driver().expectInput(QStringLiteral(" Contratos "), &prompt);
    m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
    QCOMPARE(prompt.title, QStringLiteral("Nova pasta"));
    QCOMPARE(prompt.label, QStringLiteral("Nome da pasta:"));
    QCOMPARE(prompt.initialText, QString());
    QCOMPARE(statusMessage(), QStringLiteral("Pasta criada."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral(".."), QStringLiteral("Contratos")}));
    QCOMPARE(m_fixture.table()->item(1, 1)->data(Qt::UserRole).toString(), QStringLiteral("Docs/Contratos"));
}

void FileActionsTest::newFolderRefusals()
{
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("nota.txt"), "n"}});
    for (const QString& name :
         {QStringLiteral("a/b"), QStringLiteral("a\\b"), QStringLiteral(".."), QStringLiteral(".")}) {
        m_fixture.driver().expectInput(name);
        MessageRecord warning;
        m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
        m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
        QCOMPARE(warning.title, QStringLiteral("Nova pasta"));
        QCOMPARE(warning.text,
                 QStringLiteral("Use um nome de pasta simples, sem barras, pontos isolados ou caminho "
                                "relativo."));
    }
    for (const QString& name : {QStringLiteral("docs"), QStringLiteral("NOTA.txt")}) {
        m_fixture.driver().expectInput(name);
        MessageRecord warning;
        m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
        m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
        QCOMPARE(warning.title, QStringLiteral("Nova pasta"));
        QCOMPARE(warning.text, QStringLiteral("Já existe um item com esse nome nesta pasta."));
        QCOMPARE(warning.textFormat, Qt::PlainText);
    }
    m_fixture.driver().expectInput(QStringLiteral("    "));
    m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Docs"), QStringLiteral("nota.txt")}));
}

void FileActionsTest::deleteFolder()
{
    setUpUnlocked({QStringLiteral("Cheia"), QStringLiteral("Vazia")}, {{QStringLiteral("Cheia/x.txt"), "x"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("Vazia")));
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &question);
    m_fixture.action(QStringLiteral("Excluir pasta vazia"))->trigger();
    QCOMPARE(question.title, QStringLiteral("Excluir pasta"));
    QCOMPARE(question.text, QStringLiteral("Excluir a pasta vazia Vazia?"));
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    QVERIFY(m_fixture.names().contains(QStringLiteral("Vazia")));

    QVERIFY(m_fixture.selectRow(QStringLiteral("Vazia")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.action(QStringLiteral("Excluir pasta vazia"))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Pasta excluída."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Cheia")}));

    QVERIFY(m_fixture.selectRow(QStringLiteral("Cheia")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Excluir pasta vazia"))->trigger();
    QCOMPARE(warning.title, QStringLiteral("Excluir pasta"));
    QCOMPARE(warning.text, QStringLiteral("A pasta não está vazia ou não pode ser excluída."));
}

void FileActionsTest::deleteFile()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &question);
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    QCOMPARE(question.title, QStringLiteral("Excluir arquivo"));
    QCOMPARE(question.text,
             QStringLiteral("Excluir a.txt removerá o arquivo da lista do cofre.\n\nOs dados físicos só "
                            "serão liberados do container após executar Compactar cofre."));
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));

    const qint64 size = QFileInfo(m_fixture.container()).size();
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo excluído do cofre."));
    QVERIFY(m_fixture.names().isEmpty());
    // The data stays until compaction.
    QCOMPARE(QFileInfo(m_fixture.container()).size(), size);
}

void FileActionsTest::namesAreNeverReadAsMarkup()
{
    // A name is text, whatever it looks like: shown as markup it would lose its tags.
    const QString name = QStringLiteral("<h1>grande &amp; <u>sublinhado.txt");
    setUpUnlocked({}, {{name, "a"}});
    QVERIFY(m_fixture.selectRow(name));
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &question);
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QVERIFY(question.text.startsWith(QStringLiteral("Excluir ") + name + QStringLiteral(" removerá")));
    QCOMPARE(question.textFormat, Qt::PlainText);
    QCOMPARE(m_fixture.names(), QStringList{name});
}

QStringList FileActionsTest::contextMenuFor(const QString& row)
{
    QTableWidget* table = m_fixture.table();
    QPoint point(5, table->viewport()->height() - 5);
    if (!row.isEmpty()) {
        point = table->visualItemRect(table->item(m_fixture.rowOf(row), 1)).center();
        QTest::mouseClick(table->viewport(), Qt::LeftButton, {}, point);
    } else {
        table->clearSelection();
        table->setCurrentCell(-1, -1);
    }
    QStringList entries;
    QTimer::singleShot(50, [&entries]() {
        auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
        if (!menu) {
            return;
        }
        for (QAction* action : menu->actions()) {
            entries.append(action->isSeparator()
                               ? QStringLiteral("---")
                               : action->text() +
                                     (action->isEnabled() ? QString() : QStringLiteral(" (off)")));
        }
        menu->close();
    });
    Q_EMIT table->customContextMenuRequested(point);
    return entries;
}

void FileActionsTest::contextMenuFollowsTheRow()
{
    setUpUnlocked({QStringLiteral("Docs")}, {{QStringLiteral("a.txt"), "a"}});
    QCOMPARE(contextMenuFor(QStringLiteral("a.txt")),
             QStringList({QStringLiteral("Abrir"), QStringLiteral("Exportar..."),
                          QStringLiteral("Mover para pasta..."), QStringLiteral("Renomear arquivo..."),
                          QStringLiteral("Excluir..."), QStringLiteral("---"),
                          QStringLiteral("Nova pasta..."), QStringLiteral("Importar...")}));
    QCOMPARE(contextMenuFor(QStringLiteral("Docs")),
             QStringList({QStringLiteral("Exportar pasta..."), QStringLiteral("Renomear pasta..."),
                          QStringLiteral("Excluir pasta vazia"), QStringLiteral("---"),
                          QStringLiteral("Nova pasta..."), QStringLiteral("Importar...")}));
    QCOMPARE(contextMenuFor(QString()),
             QStringList({QStringLiteral("Nova pasta..."), QStringLiteral("Importar...")}));

    // Without another folder, moving is there but off, as its action is.
    m_fixture.tearDown();
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(contextMenuFor(QStringLiteral("a.txt")).contains(QStringLiteral("Mover para pasta... (off)")));
}

void FileActionsTest::engineFailures_data()
{
    QTest::addColumn<QString>("action");
    QTest::addColumn<QString>("row");
    QTest::addColumn<QStringList>("answers");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("status");
    QTest::newRow("new folder") << "Nova pasta..."
                                << "" << QStringList{QStringLiteral("input:Nova")} << "Nova pasta"
                                << "Não foi possível criar a pasta."
                                << "";
    QTest::newRow("rename file")
        << "Renomear arquivo..."
        << "a.txt" << QStringList{QStringLiteral("input:b.txt")} << "Renomear arquivo"
        << "Não foi possível renomear o arquivo. Feche o arquivo se ele estiver aberto e "
           "tente novamente."
        << "";
    QTest::newRow("rename folder")
        << "Renomear pasta..."
        << "Vazia" << QStringList{QStringLiteral("input:Cheia")} << "Renomear pasta"
        << "Não foi possível renomear a pasta. Feche arquivos abertos dentro dela e tente "
           "novamente."
        << "";
    QTest::newRow("move")
        << "Mover para pasta..."
        << "a.txt" << QStringList{QStringLiteral("accept")} << "Mover arquivo"
        << "Não foi possível mover o arquivo. Feche o arquivo se ele estiver aberto e tente "
           "novamente."
        << "";
    QTest::newRow("delete file") << "Excluir..."
                                 << "a.txt" << QStringList{QStringLiteral("button:Sim")} << "Velmarin"
                                 << "Não foi possível excluir o arquivo do cofre."
                                 << "Falha ao excluir o arquivo.";
    QTest::newRow("delete folder") << "Excluir pasta vazia"
                                   << "Vazia" << QStringList{QStringLiteral("button:Sim")} << "Excluir pasta"
                                   << "A pasta não está vazia ou não pode ser excluída."
                                   << "";
}

void FileActionsTest::engineFailures()
{
    QFETCH(QString, action);
    QFETCH(QString, row);
    QFETCH(QStringList, answers);
    QFETCH(QString, title);
    QFETCH(QString, message);
    QFETCH(QString, status);
    setUpUnlocked({QStringLiteral("Vazia")}, {{QStringLiteral("a.txt"), "a"}});
    if (!row.isEmpty()) {
        QVERIFY(m_fixture.selectRow(row));
    }
    for (const QString& answer : answers) {
        if (answer.startsWith(QLatin1String("input:"))) {
            m_fixture.driver().expectInput(answer.mid(6));
        } else if (answer.startsWith(QLatin1String("button:"))) {
            m_fixture.driver().expectMessage(answer.mid(7));
        } else {
            m_fixture.driver().expect([](QWidget* dialog) {
                dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
            });
        }
    }
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    const QStringList before = m_fixture.names();
    {
        // The drive refuses the header rewrite that would record the change.
        const FailureInjection injection(m_fixture.container(), "write");
        m_fixture.action(action)->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, title);
    QCOMPARE(warning.text, message);
    // The box's own text stays as it was; below it, the real reason: the drive, not an open file.
    // The shim refuses the journal's write as a full drive does, and the system's words say so.
    QCOMPARE(warning.informativeText, QStringLiteral("Não há espaço livre suficiente na unidade do container."
                                                     "\n\nO sistema informou: No space left on device"));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    if (!status.isEmpty()) {
        QCOMPARE(statusMessage(), status);
    }
    QCOMPARE(m_fixture.names(), before);
}

void FileActionsTest::openFailsWhenTheWorkingCopyCannotBeMade()
{
    setUpUnlocked({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // Copies are made relative to the workspace's folder, so the name alone is what the system sees.
        const FailureInjection injection(QStringLiteral("a.txt$"), "open-write");
        m_fixture.action(QStringLiteral("Abrir"))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível preparar o arquivo para edição."));
    QVERIFY(m_fixture.fakes().urls->opened.isEmpty());
}

QTEST_MAIN(FileActionsTest)
#include "tst_fileactions.moc"
