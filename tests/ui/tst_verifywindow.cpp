// "Verificar cofre..." in the window, and what the window says of entries the index records in a
// way no change writes.
#include "HostileIndex.h"
#include "TestFiles.h"
#include "WindowFixture.h"

#include <QAction>
#include <QFileInfo>
#include <QLocale>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::HostileIndex;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

class VerifyWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void actionFollowsCompactionAndNeedsAnUnlockedVault();
    void aSoundVaultSaysNoDamage();
    void anAlteredBlockIsListed();
    void caseDuplicatesAreListedAndNeitherOpensForEditing();
    void theListStopsAtTwentyNames();
    void anExportPastTheRecordedSizeIsDamage();

private:
    // The one box "Verificar cofre..." ends with.
    MessageRecord verify();
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void VerifyWindowTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
}

void VerifyWindowTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

MessageRecord VerifyWindowTest::verify()
{
    MessageRecord box;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &box);
    m_fixture.action(QStringLiteral("Verificar cofre..."))->trigger();
    [&] { QVERIFY(m_fixture.driver().allHandled()); }();
    return box;
}

void VerifyWindowTest::actionFollowsCompactionAndNeedsAnUnlockedVault()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("a.txt"), "a"}}));
    QAction* action = m_fixture.action(QStringLiteral("Verificar cofre..."));
    QVERIFY(action != nullptr);
    QVERIFY(action->shortcut().isEmpty());
    QVERIFY(!action->isEnabled());
    m_fixture.chooseContainer(m_fixture.container());
    QVERIFY(!action->isEnabled());

    // Right after "Compactar cofre..." in the same menu.
    QAction* compact = m_fixture.action(QStringLiteral("Compactar cofre..."));
    QList<QAction*> siblings;
    for (QMenu* menu : m_fixture.window().menuBar()->findChildren<QMenu*>()) {
        if (menu->actions().contains(compact)) {
            siblings = menu->actions();
        }
    }
    const qsizetype at = siblings.indexOf(compact);
    QVERIFY(at >= 0 && at + 1 < siblings.size());
    QCOMPARE(siblings.at(at + 1), action);

    QVERIFY(m_fixture.unlock());
    QVERIFY(action->isEnabled());
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!action->isEnabled());
}

void VerifyWindowTest::aSoundVaultSaysNoDamage()
{
    QVERIFY(m_fixture.setUp(
        {QStringLiteral("Fotos")},
        {{QStringLiteral("a.txt"), "a"}, {QStringLiteral("Fotos/praia.jpg"), TestFiles::pattern(5000, 3)}}));
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(m_fixture.unlock());
    const MessageRecord box = verify();
    QCOMPARE(box.title, QStringLiteral("Verificar cofre"));
    QCOMPARE(box.text, QStringLiteral("Nenhum dano encontrado."));
    QCOMPARE(box.icon, QMessageBox::Information);
    QCOMPARE(statusMessage(), QStringLiteral("Nenhum dano encontrado."));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
}

void VerifyWindowTest::anAlteredBlockIsListed()
{
    QVERIFY(m_fixture.setUp(
        {QStringLiteral("Fotos")},
        {{QStringLiteral("a.txt"), "a"}, {QStringLiteral("Fotos/praia.jpg"), TestFiles::pattern(5000, 3)}}));
    QVERIFY(HostileIndex::alterFirstBlock(m_fixture.container(), TestFiles::password(),
                                          QStringLiteral("Fotos/praia.jpg")));
    QVERIFY(m_fixture.unlock());
    const MessageRecord box = verify();
    QCOMPARE(box.title, QStringLiteral("Verificar cofre"));
    QCOMPARE(box.icon, QMessageBox::Warning);
    QCOMPARE(box.text, QStringLiteral("A verificação encontrou danos em 1 arquivo:\n\n"
                                      "Fotos/praia.jpg: o bloco 1 de 1 não pôde ser lido ou foi alterado\n\n"
                                      "Nada foi alterado no cofre. Exporte o que puder e guarde um backup do "
                                      "container antes de fazer alterações."));
    QCOMPARE(statusMessage(), QStringLiteral("Danos encontrados no cofre."));
}

void VerifyWindowTest::caseDuplicatesAreListedAndNeitherOpensForEditing()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("a.txt"), "a"}}));
    QVERIFY(HostileIndex::addCaseDuplicates(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.unlock());
    QCOMPARE(m_fixture.names().filter(QStringLiteral("dup"), Qt::CaseInsensitive).size(), 2);
    const MessageRecord box = verify();
    QCOMPARE(box.text,
             QStringLiteral("A verificação encontrou danos em 2 arquivos:\n\n"
                            "dup.txt: tem o mesmo nome que DUP.txt, com outras maiúsculas e minúsculas\n"
                            "DUP.txt: tem o mesmo nome que dup.txt, com outras maiúsculas e minúsculas\n\n"
                            "Nada foi alterado no cofre. Exporte o que puder e guarde um backup do container "
                            "antes de fazer alterações."));

    for (const QString& name : {QStringLiteral("dup.txt"), QStringLiteral("DUP.txt")}) {
        QVERIFY(m_fixture.selectRow(name));
        MessageRecord warning;
        m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
        m_fixture.action(QStringLiteral("Abrir"))->trigger();
        QVERIFY(m_fixture.driver().allHandled());
        QCOMPARE(warning.text, QStringLiteral("Não foi possível preparar o arquivo para edição."));
        QCOMPARE(
            warning.informativeText,
            QStringLiteral("O índice do cofre registra %1 de forma irregular (por exemplo, outro arquivo com "
                           "o mesmo nome em outras maiúsculas e minúsculas), e uma cópia editada não "
                           "poderia voltar a ele com segurança. O arquivo pode ser exportado, mas não aberto "
                           "para edição. Use \"Verificar cofre...\" para ver os detalhes.")
                .arg(name));
    }
    QVERIFY(m_fixture.fakes().urls->opened.isEmpty());

    // Both export, each its own bytes.
    QVERIFY(m_fixture.selectRow(QStringLiteral("DUP.txt")));
    const QString destination = m_fixture.path(QStringLiteral("maiusculas.txt"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(statusMessage(), QStringLiteral("Arquivo exportado com sucesso."));
    QCOMPARE(TestFiles::read(destination), HostileIndex::upperContents());
}

void VerifyWindowTest::theListStopsAtTwentyNames()
{
    QVERIFY(m_fixture.setUp());
    QList<HostileIndex::File> files;
    for (int i = 1; i <= 22; ++i) {
        files.append({QStringLiteral("Sumida/n%1.txt").arg(i, 2, 10, QLatin1Char('0')), "sem pasta"});
    }
    QVERIFY(HostileIndex::addFiles(m_fixture.container(), TestFiles::password(), files));
    QVERIFY(m_fixture.unlock());
    const MessageRecord box = verify();
    QStringList lines;
    for (int i = 1; i <= 20; ++i) {
        lines << QStringLiteral("Sumida/n%1.txt: a pasta Sumida não está no índice")
                     .arg(i, 2, 10, QLatin1Char('0'));
    }
    lines << QStringLiteral("... e mais 2.");
    QCOMPARE(box.text,
             QStringLiteral("A verificação encontrou danos em 22 arquivos:\n\n%1\n\nNada foi alterado no "
                            "cofre. Exporte o que puder e guarde um backup do container antes de fazer "
                            "alterações.")
                 .arg(lines.join(QLatin1Char('\n'))));
}

void VerifyWindowTest::anExportPastTheRecordedSizeIsDamage()
{
    QVERIFY(m_fixture.setUp());
    QVERIFY(HostileIndex::addRepeatedBlock(m_fixture.container(), TestFiles::password(),
                                           QStringLiteral("repetido.txt"), "dezessete bytes!!", 20000));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("repetido.txt")));
    const QString destination = m_fixture.path(QStringLiteral("repetido.txt"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.text, QStringLiteral("Não foi possível exportar o arquivo."));
    QCOMPARE(
        warning.informativeText,
        QStringLiteral("Os dados de repetido.txt estão danificados: não conferem com o que foi gravado."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao exportar o arquivo."));
    QVERIFY(!QFileInfo::exists(destination));

    const MessageRecord box = verify();
    QCOMPARE(box.text, QStringLiteral("A verificação encontrou danos em 1 arquivo:\n\n"
                                      "repetido.txt: o tamanho não confere com o registrado\n\n"
                                      "Nada foi alterado no cofre. Exporte o que puder e guarde um backup do "
                                      "container antes de fazer alterações."));
}

QTEST_MAIN(VerifyWindowTest)
#include "tst_verifywindow.moc"
