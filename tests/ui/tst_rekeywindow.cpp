// "Alterar senha..." with the re-key asked for: the whole vault sealed again under a new key, behind
// the compaction's progress dialog, and what the window says when it cannot be done.
#include "FailureInjection.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"
#include "ui/ChangePasswordDialog.h"

#include <QAction>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFile>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QStatusBar>
#include <QTest>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::MountedDrive;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

const QString NewPassword = QStringLiteral("nova-senha-do-cofre");
const QString RekeyText = QStringLiteral("Recriptografar todo o cofre com uma nova chave");
const QString RekeyNote = QStringLiteral(
    "Sem esta opção, só a senha muda: cópias e backups antigos do container continuam abrindo com a senha "
    "antiga, e quem tiver uma delas e a senha antiga também consegue ler o que for gravado depois no "
    "container.\n\nCom esta opção, todo o cofre é recriptografado com uma nova chave: a senha antiga deixa "
    "de "
    "abrir o container atual (cópias antigas continuam abrindo com ela, mas só com o conteúdo que tinham). "
    "Durante a operação, será criado temporariamente um container criptografado no disco local.");

bool opens(const QString& container, const QByteArray& password)
{
    Core::VaultManager vault;
    const bool opened = vault.unlock(container, password, Core::VaultManager::Access::ReadOnly);
    vault.lock();
    return opened;
}

// Flips one byte inside the file's first block, through a session of its own.
bool damageFile(const QString& container, const QString& vaultPath)
{
    Core::VaultManager vault;
    if (!vault.unlock(container, TestFiles::password(), Core::VaultManager::Access::ReadOnly)) {
        return false;
    }
    const Core::FileEntry* entry = vault.index().findFile(vaultPath);
    QFile file(container);
    if (entry == nullptr || entry->blocks.isEmpty() || !file.open(QIODevice::ReadWrite)) {
        return false;
    }
    const qint64 at = entry->blocks.first().offset + entry->blocks.first().encryptedSize / 2;
    char byte = 0;
    const bool flipped =
        file.seek(at) && file.getChar(&byte) && file.seek(at) && file.putChar(static_cast<char>(byte ^ 0x01));
    vault.lock();
    return flipped;
}

} // namespace

class RekeyWindowTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();
    void theDialogOffersTheRekeyOffByDefault();
    void aRekeyLocksOutTheOldPassword();
    void aWrongCurrentPasswordIsToldAsBefore();
    void aDamagedVaultNamesTheFilesAndChangesNothing();
    void aFailureLeavesTheOldContainer();
    void aContainerKeptOnTheComputerIsNamed();

private:
    void setUp(const QList<WindowFixture::Entry>& files = {});
    // Answers the password dialog with current and the new password, the re-key asked for.
    void expectRekeyDialog(const QString& current);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void RekeyWindowTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QVERIFY(FailureInjection::isAvailable());
}

void RekeyWindowTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void RekeyWindowTest::setUp(const QList<WindowFixture::Entry>& files)
{
    QVERIFY(m_fixture.setUp({QStringLiteral("Fotos")}, files));
    m_fixture.chooseContainer(m_fixture.container());
}

void RekeyWindowTest::expectRekeyDialog(const QString& current)
{
    m_fixture.driver().expect([current](QWidget* widget) {
        QCOMPARE(widget->windowTitle(), QStringLiteral("Alterar senha do cofre"));
        auto* form = widget->findChild<QFormLayout*>();
        qobject_cast<QLineEdit*>(form->itemAt(0, QFormLayout::FieldRole)->widget())->setText(current);
        qobject_cast<QLineEdit*>(form->itemAt(1, QFormLayout::FieldRole)->widget())->setText(NewPassword);
        qobject_cast<QLineEdit*>(form->itemAt(2, QFormLayout::FieldRole)->widget())->setText(NewPassword);
        widget->findChild<QCheckBox*>()->setChecked(true);
        widget->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Ok)->click();
    });
}

void RekeyWindowTest::theDialogOffersTheRekeyOffByDefault()
{
    UI::ChangePasswordDialog dialog;
    const QList<QCheckBox*> boxes = dialog.findChildren<QCheckBox*>();
    QCOMPARE(boxes.size(), 1);
    QCOMPARE(boxes.first()->text(), RekeyText);
    QVERIFY(!boxes.first()->isChecked());
    QVERIFY(!dialog.rekeyRequested());
    QStringList notes;
    for (QLabel* label : dialog.findChildren<QLabel*>()) {
        if (label->wordWrap()) {
            notes << label->text();
        }
    }
    QCOMPARE(notes, QStringList({RekeyNote}));
    // The passwords' form is as it was.
    QCOMPARE(dialog.findChild<QFormLayout*>()->rowCount(), 3);
    boxes.first()->setChecked(true);
    QVERIFY(dialog.rekeyRequested());
}

void RekeyWindowTest::aRekeyLocksOutTheOldPassword()
{
    setUp(
        {{QStringLiteral("a.txt"), "a"}, {QStringLiteral("Fotos/praia.jpg"), TestFiles::pattern(300000, 3)}});
    const QString copy = m_fixture.path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_fixture.container(), copy));
    expectRekeyDialog(QString::fromUtf8(TestFiles::password()));
    MessageRecord done;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &done);
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(m_fixture.driver().progressTitles(), QStringList({QStringLiteral("Alterar senha")}));
    QCOMPARE(done.title, QStringLiteral("Velmarin"));
    QCOMPARE(done.icon, QMessageBox::Information);
    QCOMPARE(done.text, QStringLiteral("Senha alterada e cofre recriptografado com sucesso."));
    QCOMPARE(statusMessage(), QStringLiteral("Senha alterada e cofre recriptografado com sucesso."));

    QVERIFY(!opens(m_fixture.container(), TestFiles::password()));
    QVERIFY(opens(m_fixture.container(), NewPassword.toUtf8()));
    // As the dialog says: a copy made before still opens with the old password.
    QVERIFY(opens(copy, TestFiles::password()));
    QVERIFY(!opens(copy, NewPassword.toUtf8()));

    m_fixture.driver().expectInput(NewPassword);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("Fotos"), QStringLiteral("a.txt")}));
}

void RekeyWindowTest::aWrongCurrentPasswordIsToldAsBefore()
{
    setUp({{QStringLiteral("a.txt"), "a"}});
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    expectRekeyDialog(QStringLiteral("nao-e-a-senha"));
    MessageRecord wrong;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &wrong);
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(wrong.title, QStringLiteral("Velmarin"));
    QCOMPARE(wrong.text,
             QStringLiteral("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao alterar a senha."));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void RekeyWindowTest::aDamagedVaultNamesTheFilesAndChangesNothing()
{
    setUp({{QStringLiteral("a.txt"), "a"}, {QStringLiteral("Fotos/praia.jpg"), TestFiles::pattern(5000, 3)}});
    QVERIFY(damageFile(m_fixture.container(), QStringLiteral("Fotos/praia.jpg")));
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    expectRekeyDialog(QString::fromUtf8(TestFiles::password()));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QCOMPARE(warning.text,
             QStringLiteral("A senha não foi alterada porque estes arquivos estão danificados:\n\n"
                            "Fotos/praia.jpg\n\nNada foi alterado: o container continua como estava."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao alterar a senha."));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
}

void RekeyWindowTest::aFailureLeavesTheOldContainer()
{
    setUp({{QStringLiteral("a.txt"), "a"}});
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    expectRekeyDialog(QString::fromUtf8(TestFiles::password()));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The new container cannot be written beside the old one.
        const FailureInjection injection(m_fixture.container() + QStringLiteral(".new$"), "open-write");
        m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível recriptografar o cofre. O container continua "
                                          "como estava e abre com a senha atual."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao alterar a senha."));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    QVERIFY(opens(m_fixture.container(), TestFiles::password()));
}

void RekeyWindowTest::aContainerKeptOnTheComputerIsNamed()
{
    // 36 MiB of container on a 48 MiB drive: no room for two, so the old one goes first.
    MountedDrive drive(MountedDrive::Kind::Tmpfs, 48 * 1024 * 1024);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    QVERIFY(m_fixture.setUp());
    const QString onDrive = drive.filePath(QStringLiteral("velmarin.vltx"));
    const QString gone = m_fixture.path(QStringLiteral("apagado.bin"));
    const QString kept = m_fixture.path(QStringLiteral("mantido.bin"));
    QVERIFY(TestFiles::writePattern(gone, 20 * 1024 * 1024, 1));
    QVERIFY(TestFiles::writePattern(kept, 8 * 1024 * 1024, 2));
    QVERIFY(TestFiles::copyEmptyVault(onDrive));
    {
        Core::VaultManager vault;
        QVERIFY(vault.unlock(onDrive, TestFiles::password()));
        QVERIFY(vault.importFile(gone, QStringLiteral("apagado.bin")));
        QVERIFY(vault.importFile(kept, QStringLiteral("mantido.bin")));
        QVERIFY(vault.deleteFile(QStringLiteral("apagado.bin")));
        QVERIFY(vault.lock());
    }
    m_fixture.chooseContainer(onDrive);
    expectRekeyDialog(QString::fromUtf8(TestFiles::password()));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The copy onto the drive stops after its first piece.
        const FailureInjection injection(onDrive + QLatin1Char('$'), "write", 8388608);
        m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    const QString prefix = QStringLiteral("Não foi possível substituir o container no USB.\n\nUm container "
                                          "recriptografado, que abre com a nova senha, foi preservado em:\n");
    QVERIFY2(warning.text.startsWith(prefix), qPrintable(warning.text));
    const QString preserved = warning.text.mid(prefix.size());
    QVERIFY(opens(preserved, NewPassword.toUtf8()));
    QVERIFY(!opens(preserved, TestFiles::password()));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao alterar a senha."));
    // The next unlock, with the new password, puts it back on the drive.
    m_fixture.driver().expectInput(NewPassword);
    m_fixture.driver().expectMessage(QStringLiteral("OK"));
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("mantido.bin")}));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
}

QTEST_MAIN(RekeyWindowTest)
#include "tst_rekeywindow.moc"
