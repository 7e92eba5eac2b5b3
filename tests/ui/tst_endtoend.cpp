// One user's whole session through the real window, on a folder a fake device manager presents as
// a USB drive: from creating the vault to unlocking it with a new password.
#include "TestFiles.h"
#include "WindowFixture.h"

#include <QAction>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStatusBar>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

class EndToEndTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil)); }
    void wholeSession();

private:
    QString status() { return m_fixture.window().statusBar()->currentMessage(); }
    void unlockWith(const QString& password);
    void importFiles(const QStringList& files);
    QByteArray exportFile(const QString& name);

    WindowFixture m_fixture;
};

void EndToEndTest::unlockWith(const QString& password)
{
    m_fixture.driver().expectInput(password);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.window().isVaultUnlocked());
}

void EndToEndTest::importFiles(const QStringList& files)
{
    m_fixture.fakes().dialogs->fileListAnswers.push_back(files);
    m_fixture.action(QStringLiteral("Importar..."))->trigger();
}

QByteArray EndToEndTest::exportFile(const QString& name)
{
    if (!m_fixture.selectRow(name)) {
        return "<linha ausente>";
    }
    const QString destination = m_fixture.path(QStringLiteral("exportados/") + name);
    QDir().mkpath(m_fixture.path(QStringLiteral("exportados")));
    QFile::remove(destination);
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    m_fixture.driver().expectMessage(QStringLiteral("Continuar"));
    m_fixture.action(QStringLiteral("Exportar..."))->trigger();
    return TestFiles::read(destination);
}

void EndToEndTest::wholeSession()
{
    QVERIFY(m_fixture.setUp());
    const QString stick = m_fixture.path(QStringLiteral("stick"));
    QVERIFY(QDir().mkpath(stick + QStringLiteral("/sub")));
    Platform::UsbDevice device;
    device.mountPath = stick;
    device.devicePath = QStringLiteral("/dev/sdb1");
    device.label = QStringLiteral("PENDRIVE");
    device.id = stick + QStringLiteral("-1234");
    device.mounted = true;
    m_fixture.fakes().devices->devices = {device};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(m_fixture.deviceList()->currentRow(), 0);
    const QString password = QStringLiteral("senha-de-ponta-a-ponta");
    const QString container = stick + QStringLiteral("/velmarin.vltx");

    // Create: refused in a sub-folder and with another extension, accepted at the root.
    for (const QString& wrong :
         {stick + QStringLiteral("/sub/velmarin.vltx"), stick + QStringLiteral("/cofre.bin")}) {
        m_fixture.fakes().dialogs->fileAnswers.push_back(wrong);
        MessageRecord refusal;
        m_fixture.driver().expectMessage(QStringLiteral("OK"), &refusal);
        m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
        QCOMPARE(refusal.title, QStringLiteral("Criar cofre"));
    }
    m_fixture.fakes().dialogs->fileAnswers.push_back(container);
    m_fixture.driver().expectInput(password);
    m_fixture.driver().expectInput(password);
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Cofre criado com sucesso."));
    QCOMPARE(m_fixture.window().containerPath(), container);

    unlockWith(password);
    QCOMPARE(status(), QStringLiteral("Cofre desbloqueado."));

    // Import three files: one replaces an existing one, one replacement is declined.
    const QString local = m_fixture.path(QStringLiteral("local"));
    QDir().mkpath(local);
    QVERIFY(TestFiles::write(local + QStringLiteral("/a.txt"), "primeira versão"));
    QVERIFY(TestFiles::write(local + QStringLiteral("/c.txt"), "c original"));
    importFiles({local + QStringLiteral("/a.txt"), local + QStringLiteral("/c.txt")});
    QCOMPARE(status(), QStringLiteral("2 arquivos importados com sucesso."));
    const QByteArray newA = "segunda versão de a";
    const QByteArray b = TestFiles::pattern(17 * 1024 * 1024 + 5, 11); // two blocks
    QVERIFY(TestFiles::write(local + QStringLiteral("/a.txt"), newA));
    QVERIFY(TestFiles::write(local + QStringLiteral("/b.bin"), b));
    QVERIFY(TestFiles::write(local + QStringLiteral("/c.txt"), "c que não entra"));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.driver().expectMessage(QStringLiteral("Não"));
    importFiles({local + QStringLiteral("/a.txt"), local + QStringLiteral("/b.bin"),
                 local + QStringLiteral("/c.txt")});
    QCOMPARE(status(), QStringLiteral("2 arquivos importados com sucesso."));
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("a.txt"), QStringLiteral("b.bin"), QStringLiteral("c.txt")}));

    // New folder, move, rename a file and a folder.
    m_fixture.driver().expectInput(QStringLiteral("Docs"));
    m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Pasta criada."));
    QVERIFY(m_fixture.selectRow(QStringLiteral("b.bin")));
    m_fixture.driver().expect([](QWidget* dialog) {
        auto* combo = dialog->findChild<QComboBox*>();
        combo->setCurrentIndex(combo->findText(QStringLiteral("Docs")));
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
    m_fixture.action(QStringLiteral("Mover para pasta..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Arquivo movido."));
    QVERIFY(m_fixture.selectRow(QStringLiteral("a.txt")));
    m_fixture.driver().expectInput(QStringLiteral("carta.txt"));
    m_fixture.action(QStringLiteral("Renomear arquivo..."))->trigger();
    QVERIFY(m_fixture.selectRow(QStringLiteral("Docs")));
    m_fixture.driver().expectInput(QStringLiteral("Papéis"));
    m_fixture.action(QStringLiteral("Renomear pasta..."))->trigger();
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("Papéis"), QStringLiteral("c.txt"), QStringLiteral("carta.txt")}));

    // Export gives the bytes back.
    QCOMPARE(exportFile(QStringLiteral("carta.txt")), newA);

    // Open for editing, change the copy, lock: the change goes into the vault.
    QVERIFY(m_fixture.selectRow(QStringLiteral("carta.txt")));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(status(), QStringLiteral("Arquivo aberto para edição."));
    const QString working = m_fixture.fakes().urls->opened.last().toLocalFile();
    QTest::qWait(1100);
    QVERIFY(TestFiles::write(working, "editada no aplicativo"));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QCOMPARE(status(), QStringLiteral("Cofre bloqueado."));
    QVERIFY(!QFile::exists(working));
    unlockWith(password);
    QCOMPARE(exportFile(QStringLiteral("carta.txt")), QByteArray("editada no aplicativo"));

    // Delete, then compact: the container shrinks and everything still exports the same.
    QVERIFY(m_fixture.selectRow(QStringLiteral("c.txt")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Arquivo excluído do cofre."));
    const qint64 beforeCompaction = QFileInfo(container).size();
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.driver().expectMessage(QStringLiteral("OK"));
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Cofre compactado com sucesso."));
    QVERIFY(QFileInfo(container).size() < beforeCompaction);
    QCOMPARE(exportFile(QStringLiteral("carta.txt")), QByteArray("editada no aplicativo"));
    QVERIFY(m_fixture.doubleClickRow(QStringLiteral("Papéis")));
    QVERIFY(exportFile(QStringLiteral("b.bin")) == b);

    // Lock and back up: a byte-identical copy.
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    const QString backup = m_fixture.path(QStringLiteral("copia.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(backup);
    m_fixture.driver().expectMessage(QStringLiteral("OK"));
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Backup do container concluído."));
    QVERIFY(TestFiles::sameContents(backup, container));

    // Change the password and unlock with the new one.
    const QString newPassword = QStringLiteral("outra-senha-bem-longa");
    m_fixture.driver().expect([&](QWidget* dialog) {
        auto* form = dialog->findChild<QFormLayout*>();
        qobject_cast<QLineEdit*>(form->itemAt(0, QFormLayout::FieldRole)->widget())->setText(password);
        qobject_cast<QLineEdit*>(form->itemAt(1, QFormLayout::FieldRole)->widget())->setText(newPassword);
        qobject_cast<QLineEdit*>(form->itemAt(2, QFormLayout::FieldRole)->widget())->setText(newPassword);
        dialog->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
    m_fixture.driver().expectMessage(QStringLiteral("OK"));
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QCOMPARE(status(), QStringLiteral("Senha alterada com sucesso."));
    unlockWith(newPassword);
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Papéis"), QStringLiteral("carta.txt")}));

    // The backup still opens with the password it had when it was copied.
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    m_fixture.chooseContainer(backup);
    unlockWith(password);

    QVERIFY2(m_fixture.driver().unexpected().isEmpty(),
             qPrintable(m_fixture.driver().unexpected().join(QLatin1Char('\n'))));
    QVERIFY(m_fixture.driver().allHandled());
    m_fixture.tearDown();
}

QTEST_MAIN(EndToEndTest)
#include "tst_endtoend.moc"
