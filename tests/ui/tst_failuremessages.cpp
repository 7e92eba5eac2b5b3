// What the window says when the engine refuses: its own box text, kept as it always was, and the
// engine's reason below it; and the refusals that used to be guessed wrong.
#include "FailureInjection.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"
#include "ui/FailureText.h"

#include <QSet>
#include <QStatusBar>
#include <QTableWidget>
#include <QtTest>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;
using Reason = Core::Failure::Reason;

namespace {

bool editCopy(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return TestFiles::write(path, text) && file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

} // namespace

class FailureMessagesTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void everyReasonHasWordsOfItsOwn();
    void reasonsCarryTheirPathAndTheSystemsWords();
    void aLockThatCouldNotStoreAnEditSaysTheVaultStaysOpen();
    void aVanishedContainerIsNotCalledAWrongPassword();
    void aNewerContainerAsksForANewerProgram();
    void aWrongPasswordAddsNothing();

private:
    void unlockExpecting(MessageRecord* record);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void FailureMessagesTest::initTestCase()
{
    QVERIFY(FailureInjection::isAvailable());
}

void FailureMessagesTest::cleanup()
{
    if (m_fixture.isSetUp()) {
        m_fixture.verifyDialogsAndTearDown();
    }
}

void FailureMessagesTest::unlockExpecting(MessageRecord* record)
{
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(QStringLiteral("OK"), record);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
}

void FailureMessagesTest::everyReasonHasWordsOfItsOwn()
{
    QSet<QString> seen;
    for (int value = int(Reason::None) + 1; value <= int(Reason::IrregularEntry); ++value) {
        const QString words = UI::FailureText::sentence(Reason(value), QStringLiteral("x.txt"));
        QVERIFY2(!words.isEmpty(), qPrintable(QString::number(value)));
        QVERIFY2(words.endsWith(QLatin1Char('.')), qPrintable(words));
        QVERIFY2(!seen.contains(words), qPrintable(words));
        seen.insert(words);
    }
    QVERIFY(UI::FailureText::why(Core::Failure()).isEmpty());
}

void FailureMessagesTest::reasonsCarryTheirPathAndTheSystemsWords()
{
    QCOMPARE(UI::FailureText::why(Core::Failure{Reason::NotFound, QStringLiteral("Docs/a.txt"), QString()}),
             QStringLiteral("Docs/a.txt não existe no cofre."));
    QCOMPARE(UI::FailureText::why(Core::Failure{Reason::NoSpace, QStringLiteral("/media/usb/velmarin.vltx"),
                                                QStringLiteral("No space left on device")}),
             QStringLiteral("Não há espaço livre suficiente na unidade do container.\n\nO sistema informou: "
                            "No space left on device"));
    QCOMPARE(
        UI::FailureText::why(
            Core::Failure{Reason::EditNotSaved, QStringLiteral("nota.txt"), QString(), Reason::NoSpace}),
        QStringLiteral("As alterações em nota.txt não puderam ser gravadas no cofre. Não há espaço livre "
                       "suficiente na unidade do container."));
    QCOMPARE(UI::FailureText::sentence(Reason::NewerFormat),
             QStringLiteral("Este container foi criado por uma versão mais nova do Velmarin. Atualize o "
                            "programa para abri-lo."));
    QCOMPARE(UI::FailureText::sentence(Reason::PasswordTooShort),
             QStringLiteral("A senha deve ter pelo menos 12 caracteres."));
    const Core::Failure badName{Reason::NameNotAllowed, QStringLiteral("a/b"), QString()};
    QCOMPARE(
        UI::FailureText::nameRefusal(badName, true),
        QStringLiteral("Use um nome de pasta simples, sem barras, pontos isolados ou caminho relativo."));
    QCOMPARE(
        UI::FailureText::nameRefusal(badName, false),
        QStringLiteral("Use um nome de arquivo simples, sem barras, pontos isolados ou caminho relativo."));
    QCOMPARE(UI::FailureText::nameRefusal(
                 Core::Failure{Reason::AlreadyExists, QStringLiteral("a"), QString()}, false),
             QStringLiteral("Já existe um item com esse nome nesta pasta."));
}

void FailureMessagesTest::aLockThatCouldNotStoreAnEditSaysTheVaultStaysOpen()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("nota.txt"), "antes"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("nota.txt")));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    QVERIFY(editCopy(m_fixture.fakes().urls->opened.first().toLocalFile(), "depois"));

    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The drive is full: the edit cannot be stored in the container.
        const FailureInjection full(m_fixture.container() + QLatin1Char('$'), "write");
        m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("O cofre não foi bloqueado, para que nenhuma alteração se perca."));
    QVERIFY2(warning.informativeText.startsWith(
                 QStringLiteral("As alterações em nota.txt não puderam ser gravadas no cofre. Não há espaço "
                                "livre suficiente na unidade do container.")),
             qPrintable(warning.informativeText));
    QVERIFY(warning.informativeText.endsWith(QStringLiteral(
        "O arquivo editado continua guardado neste computador. Verifique a unidade USB (espaço "
        "livre e conexão) e bloqueie o cofre de novo.")));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), QStringLiteral("O cofre continua desbloqueado."));
    QCOMPARE(m_fixture.table()->rowCount(), 1);

    // With room again the same action stores the edit and locks.
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), QStringLiteral("Cofre bloqueado."));
    Core::VaultManager check;
    QVERIFY(check.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly));
    QBuffer buffer;
    QVERIFY(buffer.open(QIODevice::WriteOnly));
    QVERIFY(check.exportFile(QStringLiteral("nota.txt"), &buffer));
    QCOMPARE(buffer.data(), QByteArray("depois"));
}

void FailureMessagesTest::aVanishedContainerIsNotCalledAWrongPassword()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.chooseContainer(m_fixture.container());
    QVERIFY(QFile::remove(m_fixture.container()));
    MessageRecord warning;
    unlockExpecting(&warning);
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("O arquivo do container não foi encontrado."));
    QCOMPARE(warning.informativeText, QDir::toNativeSeparators(m_fixture.container()));
    QVERIFY(!m_fixture.window().isVaultUnlocked());
}

void FailureMessagesTest::aNewerContainerAsksForANewerProgram()
{
    QVERIFY(m_fixture.setUp());
    QByteArray bytes = TestFiles::read(m_fixture.container());
    bytes[6] = '4';
    QVERIFY(TestFiles::write(m_fixture.container(), bytes));
    m_fixture.chooseContainer(m_fixture.container());
    MessageRecord warning;
    unlockExpecting(&warning);
    QCOMPARE(warning.text, QStringLiteral("Este container foi criado por uma versão mais nova do Velmarin. "
                                          "Atualize o programa para abri-lo."));
    QVERIFY(warning.informativeText.isEmpty());
    QVERIFY(!m_fixture.window().isVaultUnlocked());
}

void FailureMessagesTest::aWrongPasswordAddsNothing()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.driver().expectInput(QStringLiteral("senha-errada-mesmo"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.text, QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o "
                                          "container foi alterado."));
    QVERIFY(warning.informativeText.isEmpty());
}

QTEST_MAIN(FailureMessagesTest)
#include "tst_failuremessages.moc"
