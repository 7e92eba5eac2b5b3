// Vault actions from the window: choosing, creating, unlocking, locking, backing up, changing the
// password and compacting, with their guards, prompts and messages.
#include "FailureInjection.h"
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"
#include "core/vault/VaultManager.h"

#include <QAction>
#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFormLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QProgressDialog>
#include <QPushButton>
#include <QRegularExpression>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>

#include <algorithm>

using namespace Velmarin;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::InputRecord;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

const QString Filter = QStringLiteral("Velmarin Container (*.vltx);;Todos os arquivos (*.*)");
const QString NewPassword = QStringLiteral("nova-senha-do-cofre");

Platform::UsbDevice drive(const QString& root)
{
    Platform::UsbDevice device;
    device.mountPath = root;
    device.devicePath = QStringLiteral("/dev/sdb1");
    device.label = QStringLiteral("PENDRIVE");
    device.id = root;
    device.mounted = true;
    device.removable = true;
    return device;
}

bool canUnlock(const QString& container, const QByteArray& password, const QString& workspace)
{
    Core::VaultManager vault(workspace);
    return vault.unlock(container, password) && vault.lock();
}

// Flips one byte inside the first block of each file, through a session of its own that ends before
// the window unlocks.
bool damageFiles(const QString& container, const QStringList& vaultPaths)
{
    Core::VaultManager vault;
    if (!vault.unlock(container, TestFiles::password())) {
        return false;
    }
    QFile file(container);
    if (!file.open(QIODevice::ReadWrite)) {
        return false;
    }
    for (const QString& vaultPath : vaultPaths) {
        const Core::FileEntry* entry = vault.index().findFile(vaultPath);
        if (entry == nullptr || entry->blocks.isEmpty()) {
            return false;
        }
        const qint64 at = entry->blocks.first().offset + entry->blocks.first().encryptedSize / 2;
        char byte = 0;
        if (!file.seek(at) || !file.getChar(&byte) || !file.seek(at) ||
            !file.putChar(static_cast<char>(byte ^ 0x01))) {
            return false;
        }
    }
    file.close();
    return vault.lock();
}

} // namespace

class VaultActionsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanup();

    void chooseContainerStartsOnTheDrive();
    void chooseContainerCancelled();
    void createRefusesAnythingButTheDriveRoot_data();
    void createRefusesAnythingButTheDriveRoot();
    void createWithoutADeviceIsRefused();
    void createAcceptsUpperCaseAtTheRoot();
    void createFailureIsReported();
    void createReportsMismatchBeforeLength_data();
    void createReportsMismatchBeforeLength();
    void cancellingAPasswordPromptEndsTheFlowSilently_data();
    void cancellingAPasswordPromptEndsTheFlowSilently();
    void guardsWithoutAContainer_data();
    void guardsWithoutAContainer();
    void unlockWithAWrongPassword();
    void lockReportsAWorkspaceThatCannotBeCleaned();
    void backupGuards();
    void aVaultOpenElsewhereIsRefused();
    void backupMakesAByteCopy();
    void backupOfAnEmptyFileFillsTheBar();
    void backupReadErrorDeletesThePartialCopy();
    void backupFailsWhenTheContainerCannotBeOpened();
    void changePasswordFlow();
    void compactAsksFirst();
    void compactShrinksTheContainer();
    void compactFailureNamesThePreservedContainer();
    void unlockTellsThatAnInterruptedChangeWasUndone();
    void unlockLeavesAForgedJournalAndSaysSo();
    void unlockAsksBeforeOpeningAnEarlierState();
    void compactFailureWithoutAPreservedContainer();
    void compactOfADamagedVaultNamesTheFilesAndChangesNothing();
    void compactNamesAtMostTenDamagedFiles();

private:
    void setUpWithDrive(const QStringList& folders = {}, const QList<WindowFixture::Entry>& files = {});
    // Unlocks with the test password and answers the one message box that follows.
    void unlockAnswering(MessageRecord& message);
    QString statusMessage() { return m_fixture.window().statusBar()->currentMessage(); }

    WindowFixture m_fixture;
};

void VaultActionsTest::initTestCase()
{
    QLocale::setDefault(QLocale(QLocale::Portuguese, QLocale::Brazil));
    QVERIFY(FailureInjection::isAvailable());
}

void VaultActionsTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

void VaultActionsTest::unlockAnswering(MessageRecord& message)
{
    if (m_fixture.window().containerPath().isEmpty()) {
        m_fixture.chooseContainer(m_fixture.container());
    }
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &message);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
}

void VaultActionsTest::setUpWithDrive(const QStringList& folders, const QList<WindowFixture::Entry>& files)
{
    QVERIFY(m_fixture.setUp(folders, files));
    m_fixture.fakes().devices->devices = {drive(m_fixture.driveRoot())};
    m_fixture.action(QStringLiteral("Atualizar lista"))->trigger();
    QCOMPARE(m_fixture.deviceList()->currentRow(), 0);
}

void VaultActionsTest::chooseContainerStartsOnTheDrive()
{
    setUpWithDrive();
    m_fixture.chooseContainer(m_fixture.path(QStringLiteral("qualquer-nome.bin")));
    const Tests::PickerCall call = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(call.kind, QStringLiteral("open"));
    QCOMPARE(call.caption, QStringLiteral("Escolher container Velmarin"));
    QCOMPARE(call.directory, m_fixture.driveRoot());
    QCOMPARE(call.filter, Filter);
    // Any name and any place is accepted.
    QCOMPARE(m_fixture.window().containerPath(), m_fixture.path(QStringLiteral("qualquer-nome.bin")));
    QCOMPARE(statusMessage(), QStringLiteral("Container selecionado."));
}

void VaultActionsTest::chooseContainerCancelled()
{
    setUpWithDrive();
    m_fixture.action(QStringLiteral("Escolher container..."))->trigger();
    QCOMPARE(m_fixture.window().containerPath(), QString());
    QCOMPARE(statusMessage(), QStringLiteral("Pronto"));
}

void VaultActionsTest::createRefusesAnythingButTheDriveRoot_data()
{
    QTest::addColumn<QString>("relative");
    QTest::newRow("sub-folder of the drive") << "usb/pasta/velmarin.vltx";
    QTest::newRow("another drive") << "outro/velmarin.vltx";
    QTest::newRow("extension bin") << "usb/velmarin.bin";
    QTest::newRow("no extension") << "usb/velmarin";
}

void VaultActionsTest::createRefusesAnythingButTheDriveRoot()
{
    QFETCH(QString, relative);
    setUpWithDrive();
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(relative));
    MessageRecord refusal;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &refusal);
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(refusal.title, QStringLiteral("Criar cofre"));
    QCOMPARE(refusal.text,
             QStringLiteral("O cofre deve ser criado como arquivo .vltx diretamente na raiz da unidade "
                            "USB selecionada."));
    QCOMPARE(refusal.icon, QMessageBox::Information);
    QVERIFY(refusal.hasParent);
    QVERIFY(!QFile::exists(m_fixture.path(relative)));

    const Tests::PickerCall call = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(call.kind, QStringLiteral("save"));
    QCOMPARE(call.caption, QStringLiteral("Criar container Velmarin"));
    QCOMPARE(call.directory, QDir(m_fixture.driveRoot()).filePath(QStringLiteral("velmarin.vltx")));
    QCOMPARE(call.filter, Filter);
}

void VaultActionsTest::createWithoutADeviceIsRefused()
{
    QVERIFY(m_fixture.setUp());
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(QStringLiteral("usb/novo.vltx")));
    MessageRecord refusal;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &refusal);
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QCOMPARE(refusal.title, QStringLiteral("Criar cofre"));
    QCOMPARE(m_fixture.fakes().dialogs->calls.last().directory, QStringLiteral("velmarin.vltx"));
}

void VaultActionsTest::createAcceptsUpperCaseAtTheRoot()
{
    setUpWithDrive();
    const QString chosen = m_fixture.path(QStringLiteral("usb/VELMARIN.VLTX"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(chosen);
    InputRecord first;
    InputRecord second;
    m_fixture.driver().expectInput(NewPassword, &first);
    m_fixture.driver().expectInput(NewPassword, &second);
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(first.title, QStringLiteral("Definir senha do cofre"));
    QCOMPARE(second.title, QStringLiteral("Confirmar senha do cofre"));
    QCOMPARE(first.label, QStringLiteral("Senha:"));
    QVERIFY(first.masked && second.masked);
    QVERIFY(!first.hasParent && !second.hasParent);
    QCOMPARE(first.initialText, QString());

    QCOMPARE(m_fixture.window().containerPath(), chosen);
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), QStringLiteral("Cofre criado com sucesso."));
    QCOMPARE(m_fixture.deviceList()->item(0)->font().weight(), QFont::Bold);
    QVERIFY(canUnlock(chosen, NewPassword.toUtf8(), m_fixture.path(QStringLiteral("workspaces"))));
}

void VaultActionsTest::createFailureIsReported()
{
    setUpWithDrive();
    const QString chosen = m_fixture.path(QStringLiteral("usb/novo.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(chosen);
    m_fixture.driver().expectInput(NewPassword);
    m_fixture.driver().expectInput(NewPassword);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The new container is written through a temporary file in the drive's root folder.
        const FailureInjection injection(m_fixture.driveRoot(), "write");
        m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível criar o cofre."));
    QVERIFY(warning.hasParent);
    QCOMPARE(m_fixture.window().containerPath(), QString());
    QVERIFY(!QFile::exists(chosen));
}

void VaultActionsTest::createReportsMismatchBeforeLength_data()
{
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<QString>("message");
    QTest::newRow("abc / abd") << "abc"
                               << "abd"
                               << "As senhas informadas não coincidem.";
    QTest::newRow("11 characters twice") << "onze-caract"
                                         << "onze-caract"
                                         << "Use uma senha com pelo menos 12 caracteres para criar o cofre.";
    QTest::newRow("case differs") << "Senha-Longa-1"
                                  << "senha-longa-1"
                                  << "As senhas informadas não coincidem.";
}

void VaultActionsTest::createReportsMismatchBeforeLength()
{
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(QString, message);
    setUpWithDrive();
    const QString chosen = m_fixture.path(QStringLiteral("usb/novo.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(chosen);
    m_fixture.driver().expectInput(first);
    m_fixture.driver().expectInput(second);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, message);
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QVERIFY(!warning.hasParent);
    QVERIFY(!QFile::exists(chosen));
    QCOMPARE(m_fixture.window().containerPath(), QString());
}

void VaultActionsTest::cancellingAPasswordPromptEndsTheFlowSilently_data()
{
    QTest::addColumn<QString>("flow");
    QTest::newRow("create, first prompt") << "create1";
    QTest::newRow("create, confirmation") << "create2";
    QTest::newRow("unlock") << "unlock";
    QTest::newRow("unlock with an empty password") << "unlock-empty";
}

void VaultActionsTest::cancellingAPasswordPromptEndsTheFlowSilently()
{
    QFETCH(QString, flow);
    setUpWithDrive();
    const QString created = m_fixture.path(QStringLiteral("usb/novo.vltx"));
    if (flow.startsWith(QLatin1String("create"))) {
        m_fixture.fakes().dialogs->fileAnswers.push_back(created);
        if (flow == QLatin1String("create2")) {
            m_fixture.driver().expectInput(NewPassword);
        }
        m_fixture.driver().expectInput(QString(), nullptr, false);
        m_fixture.action(QStringLiteral("Criar novo cofre..."))->trigger();
        QVERIFY(!QFile::exists(created));
    } else {
        m_fixture.chooseContainer(m_fixture.container());
        m_fixture.driver().expectInput(QString(), nullptr, flow == QLatin1String("unlock-empty"));
        m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
        QVERIFY(!m_fixture.window().isVaultUnlocked());
    }
    // No message box followed: the driver would have recorded it as unexpected.
    QVERIFY(m_fixture.driver().allHandled());
    QVERIFY(m_fixture.driver().unexpected().isEmpty());
}

void VaultActionsTest::guardsWithoutAContainer_data()
{
    QTest::addColumn<QString>("slot");
    QTest::newRow("unlock") << "unlockVault";
    QTest::newRow("backup") << "backupContainer";
    QTest::newRow("change password") << "changePassword";
}

void VaultActionsTest::guardsWithoutAContainer()
{
    QFETCH(QString, slot);
    QVERIFY(m_fixture.setUp());
    MessageRecord information;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &information);
    QVERIFY(QMetaObject::invokeMethod(&m_fixture.window(), slot.toLatin1().constData()));
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(information.title, QStringLiteral("Velmarin"));
    QCOMPARE(information.text, QStringLiteral("Selecione um cofre primeiro."));
    QCOMPARE(information.icon, QMessageBox::Information);
}

void VaultActionsTest::unlockWithAWrongPassword()
{
    setUpWithDrive();
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.driver().expectInput(QStringLiteral("senha-errada-mesmo"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text,
             QStringLiteral("Não foi possível desbloquear o cofre. Verifique a senha ou se o container "
                            "foi alterado."));
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.window().containerPath(), m_fixture.container());
    QCOMPARE(statusMessage(), QStringLiteral("Container selecionado."));

    QVERIFY(m_fixture.unlock());
    QCOMPARE(statusMessage(), QStringLiteral("Cofre desbloqueado."));
}

void VaultActionsTest::lockReportsAWorkspaceThatCannotBeCleaned()
{
    setUpWithDrive();
    QVERIFY(m_fixture.unlock());
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The workspace is removed relative to its own folder: its "files" folder is what will not go.
        const FailureInjection injection(QStringLiteral("files$"), "unlink");
        m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível limpar a área temporária."));
    // The window counts the vault as locked all the same.
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(statusMessage(), QStringLiteral("Cofre bloqueado."));
    QCOMPARE(m_fixture.table()->rowCount(), 0);
}

void VaultActionsTest::backupGuards()
{
    setUpWithDrive();
    QVERIFY(m_fixture.unlock());
    MessageRecord unlocked;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &unlocked);
    m_fixture.window().backupContainer();
    QCOMPARE(unlocked.text, QStringLiteral("Bloqueie o cofre antes de fazer o backup."));
    QCOMPARE(unlocked.title, QStringLiteral("Velmarin"));
    QCOMPARE(unlocked.icon, QMessageBox::Information);
    MessageRecord passwordWhileUnlocked;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &passwordWhileUnlocked);
    m_fixture.window().changePassword();
    QCOMPARE(passwordWhileUnlocked.text, QStringLiteral("Bloqueie o cofre antes de alterar a senha."));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();

    m_fixture.chooseContainer(m_fixture.path(QStringLiteral("nao-existe.vltx")));
    MessageRecord missing;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &missing);
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QCOMPARE(missing.title, QStringLiteral("Fazer backup"));
    QCOMPARE(missing.text, QStringLiteral("O arquivo do container não foi encontrado."));
    QCOMPARE(missing.icon, QMessageBox::Warning);

    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.container());
    MessageRecord own;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &own);
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QCOMPARE(own.title, QStringLiteral("Fazer backup"));
    QCOMPARE(own.text, QStringLiteral("Escolha um destino diferente do container original."));

    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(QStringLiteral("nao/existe/copia.vltx")));
    MessageRecord destination;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &destination);
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QCOMPARE(destination.title, QStringLiteral("Fazer backup"));
    QCOMPARE(destination.text, QStringLiteral("Não foi possível criar o arquivo de backup."));
    QVERIFY(m_fixture.driver().allHandled());
}

void VaultActionsTest::aVaultOpenElsewhereIsRefused()
{
    setUpWithDrive();
    m_fixture.chooseContainer(m_fixture.container());
    // Another window or velmarin-cli: any other session on the same container.
    Core::VaultManager elsewhere;
    QVERIFY(elsewhere.unlock(m_fixture.container(), TestFiles::password()));
    const qsizetype pickerCalls = m_fixture.fakes().dialogs->calls.size();
    const QString inUse =
        QStringLiteral("Este cofre já está aberto em outra janela ou programa do Velmarin.");

    // Each action says so before asking for a password or a destination.
    const QList<QPair<QString, QString>> actions = {
        {QStringLiteral("Desbloquear"), QStringLiteral("Velmarin")},
        {QStringLiteral("Fazer backup..."), QStringLiteral("Fazer backup")},
        {QStringLiteral("Alterar senha..."), QStringLiteral("Velmarin")},
    };
    for (const auto& [action, title] : actions) {
        MessageRecord warning;
        m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
        m_fixture.action(action)->trigger();
        QVERIFY2(m_fixture.driver().allHandled(), qPrintable(action));
        QCOMPARE(warning.title, title);
        QCOMPARE(warning.text, inUse);
        QCOMPARE(warning.icon, QMessageBox::Warning);
        QCOMPARE(warning.buttons, QStringList{QStringLiteral("OK")});
        QVERIFY(warning.hasParent);
    }
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.fakes().dialogs->calls.size(), pickerCalls);

    // The other session was not disturbed, and once it ends the window gets in.
    QVERIFY(elsewhere.createFolder(QStringLiteral("De fora")));
    QVERIFY(elsewhere.lock());
    QVERIFY(m_fixture.unlock());
    QCOMPARE(m_fixture.names(), QStringList{QStringLiteral("De fora")});
    QVERIFY(!elsewhere.unlock(m_fixture.container(), TestFiles::password()));
}

void VaultActionsTest::backupMakesAByteCopy()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), TestFiles::pattern(3 * 1024 * 1024, 7)}});
    m_fixture.chooseContainer(m_fixture.container());
    const QString destination = m_fixture.path(QStringLiteral("copia.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    MessageRecord done;
    int barAtTheEnd = -1;
    m_fixture.driver().expect([&](QWidget* widget) {
        const QList<int> values = m_fixture.driver().progressValues();
        barAtTheEnd = values.isEmpty() ? -1 : *std::max_element(values.cbegin(), values.cend());
        done = Tests::DialogDriver::describe(qobject_cast<QMessageBox*>(widget));
        qobject_cast<QMessageBox*>(widget)->accept();
    });
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(done.title, QStringLiteral("Fazer backup"));
    QCOMPARE(done.text,
             QStringLiteral("Backup concluído com sucesso.\n\nO arquivo de backup é uma cópia criptografada "
                            "do container e permanece protegido pela senha do cofre."));
    QCOMPARE(barAtTheEnd, 1000);
    QCOMPARE(statusMessage(), QStringLiteral("Backup do container concluído."));
    QVERIFY(TestFiles::sameContents(destination, m_fixture.container()));

    const Tests::PickerCall call = m_fixture.fakes().dialogs->calls.last();
    QCOMPARE(call.caption, QStringLiteral("Fazer backup do container"));
    QCOMPARE(call.filter, Filter);
    QVERIFY(call.directory.startsWith(QDir::homePath() + QStringLiteral("/velmarin_backup_")));
    QVERIFY(QRegularExpression(QStringLiteral("velmarin_backup_\\d{4}-\\d{2}-\\d{2}_\\d{4}\\.vltx$"))
                .match(call.directory)
                .hasMatch());
    // The copy opens with the vault's password, like the original.
    QVERIFY(canUnlock(destination, TestFiles::password(), m_fixture.path(QStringLiteral("workspaces"))));
}

void VaultActionsTest::backupOfAnEmptyFileFillsTheBar()
{
    setUpWithDrive();
    const QString empty = m_fixture.path(QStringLiteral("vazio.vltx"));
    QVERIFY(TestFiles::write(empty, QByteArray()));
    m_fixture.chooseContainer(empty);
    const QString destination = m_fixture.path(QStringLiteral("copia-vazia.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    int bar = -1;
    m_fixture.driver().expect([&](QWidget* widget) {
        // The highest value the bar showed before the dialog closed.
        const QList<int> values = m_fixture.driver().progressValues();
        bar = values.isEmpty() ? -1 : *std::max_element(values.cbegin(), values.cend());
        qobject_cast<QMessageBox*>(widget)->accept();
    });
    m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    QCOMPARE(bar, 1000);
    QCOMPARE(m_fixture.driver().progressTitles(), QStringList({QStringLiteral("Fazer backup")}));
    QVERIFY(QFile::exists(destination));
    QCOMPARE(QFileInfo(destination).size(), 0);
    QCOMPARE(statusMessage(), QStringLiteral("Backup do container concluído."));
}

void VaultActionsTest::backupReadErrorDeletesThePartialCopy()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), TestFiles::pattern(2 * 1024 * 1024, 3)}});
    m_fixture.chooseContainer(m_fixture.container());
    const QString destination = m_fixture.path(QStringLiteral("parcial.vltx"));
    m_fixture.fakes().dialogs->fileAnswers.push_back(destination);
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // The drive fails after the first 8 MiB piece was read and written.
        const FailureInjection injection(m_fixture.container(), "read", 8 * 1024 * 1024);
        m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Fazer backup"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível concluir o backup."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao fazer backup do container."));
    QVERIFY(!QFile::exists(destination));
}

void VaultActionsTest::backupFailsWhenTheContainerCannotBeOpened()
{
    setUpWithDrive();
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.fakes().dialogs->fileAnswers.push_back(m_fixture.path(QStringLiteral("copia.vltx")));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        const FailureInjection injection(m_fixture.container(), "open-read");
        m_fixture.action(QStringLiteral("Fazer backup..."))->trigger();
    }
    QCOMPARE(warning.title, QStringLiteral("Fazer backup"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível abrir o container para backup."));
}

void VaultActionsTest::changePasswordFlow()
{
    setUpWithDrive();
    m_fixture.chooseContainer(m_fixture.container());
    const auto fillDialog = [](const QString& current, const QString& replacement) {
        return [current, replacement](QWidget* widget) {
            auto* form = widget->findChild<QFormLayout*>();
            QCOMPARE(widget->windowTitle(), QStringLiteral("Alterar senha do cofre"));
            qobject_cast<QLineEdit*>(form->itemAt(0, QFormLayout::FieldRole)->widget())->setText(current);
            qobject_cast<QLineEdit*>(form->itemAt(1, QFormLayout::FieldRole)->widget())->setText(replacement);
            qobject_cast<QLineEdit*>(form->itemAt(2, QFormLayout::FieldRole)->widget())->setText(replacement);
            for (QPushButton* button : widget->findChildren<QPushButton*>()) {
                if (button->text() == QStringLiteral("Alterar")) {
                    button->click();
                }
            }
        };
    };

    // Cancelled: nothing happens.
    m_fixture.driver().expect([](QWidget* widget) { qobject_cast<QDialog*>(widget)->reject(); });
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QCOMPARE(statusMessage(), QStringLiteral("Container selecionado."));

    // A wrong current password is known only once the vault tries it.
    m_fixture.driver().expect(fillDialog(QStringLiteral("nao-e-a-senha"), NewPassword));
    MessageRecord wrong;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &wrong);
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QCOMPARE(wrong.title, QStringLiteral("Velmarin"));
    QCOMPARE(wrong.text,
             QStringLiteral("Não foi possível alterar a senha. Verifique a senha atual e tente novamente."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao alterar a senha."));

    m_fixture.driver().expect(fillDialog(QString::fromUtf8(TestFiles::password()), NewPassword));
    MessageRecord changed;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &changed);
    m_fixture.action(QStringLiteral("Alterar senha..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(changed.title, QStringLiteral("Velmarin"));
    QCOMPARE(changed.text, QStringLiteral("Senha alterada com sucesso."));
    QCOMPARE(changed.icon, QMessageBox::Information);
    QCOMPARE(statusMessage(), QStringLiteral("Senha alterada com sucesso."));

    m_fixture.driver().expectInput(NewPassword);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.window().isVaultUnlocked());
}

void VaultActionsTest::compactAsksFirst()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.unlock());
    const qint64 size = QFileInfo(m_fixture.container()).size();
    MessageRecord question;
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &question);
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    QCOMPARE(question.title, QStringLiteral("Compactar cofre"));
    QCOMPARE(
        question.text,
        QStringLiteral("A compactação reconstruirá o container removendo fisicamente dados de arquivos já "
                       "excluídos.\n\nDurante a operação, será criado temporariamente um container "
                       "criptografado no disco local. Nenhum arquivo descriptografado será gravado fora do "
                       "cofre.\n\nDeseja continuar?"));
    QCOMPARE(question.buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Não")}));
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    QCOMPARE(question.icon, QMessageBox::Question);
    QCOMPARE(QFileInfo(m_fixture.container()).size(), size);
}

void VaultActionsTest::compactShrinksTheContainer()
{
    const QByteArray kept = TestFiles::pattern(300 * 1024, 1);
    setUpWithDrive({}, {{QStringLiteral("fica.bin"), kept},
                        {QStringLiteral("sai.bin"), TestFiles::pattern(200 * 1024, 2)}});
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("sai.bin")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    const qint64 before = QFileInfo(m_fixture.container()).size();

    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord done;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &done);
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(done.title, QStringLiteral("Compactar cofre"));
    QCOMPARE(done.text, QStringLiteral("Cofre compactado com sucesso."));
    QCOMPARE(statusMessage(), QStringLiteral("Cofre compactado com sucesso."));
    QVERIFY(QFileInfo(m_fixture.container()).size() < before);
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("fica.bin")}));
    QVERIFY(m_fixture.window().isVaultUnlocked());
}

void VaultActionsTest::compactFailureNamesThePreservedContainer()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.unlock());
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    {
        // No room for two containers, so the old one goes first; then the drive takes no more
        // new files: the compacted container cannot replace it.
        const FailureInjection injection(m_fixture.container() + QLatin1Char('$'), "no-room,open-write");
        m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    }
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Compactar cofre"));
    const QString prefix =
        QStringLiteral("Não foi possível substituir o container no USB.\n\nUm container compactado "
                       "criptografado foi preservado em:\n");
    QVERIFY2(warning.text.startsWith(prefix), qPrintable(warning.text));
    const QString preserved = warning.text.mid(prefix.size());
    QVERIFY(QFile::exists(preserved));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao compactar o cofre."));
    QVERIFY(!QFile::exists(m_fixture.container()));

    // The drive, found again, has only the journal that names the preserved container: the window
    // takes it as the vault, and unlocking puts the container back.
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    Q_EMIT m_fixture.deviceList()->itemDoubleClicked(m_fixture.deviceList()->item(0));
    QVERIFY(m_fixture.driver().unexpected().isEmpty());
    QCOMPARE(m_fixture.window().containerPath(), m_fixture.container());
    MessageRecord restored;
    unlockAnswering(restored);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(restored.title, QStringLiteral("Velmarin"));
    QCOMPARE(restored.icon, QMessageBox::Information);
    QCOMPARE(restored.text,
             QStringLiteral("Uma compactação interrompida deixou o USB sem o container. O "
                            "container compactado foi copiado de volta do computador para o USB."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));
    QVERIFY(!QFile::exists(preserved));
    QCOMPARE(statusMessage(), QStringLiteral("Cofre desbloqueado."));
}

void VaultActionsTest::unlockTellsThatAnInterruptedChangeWasUndone()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}});
    {
        // Another session's change is cut off half-way through writing the header.
        Core::VaultManager other;
        QByteArray oldHeader;
        QByteArray newHeader;
        const Core::ContainerFile file;
        QVERIFY(file.readHeaderBytes(m_fixture.container(), oldHeader));
        QVERIFY(other.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(other.createFolder(QStringLiteral("Nova pasta")));
        QVERIFY(other.lock());
        QVERIFY(file.readHeaderBytes(m_fixture.container(), newHeader));
        QVERIFY(Core::ContainerJournal::forHeaderChange(oldHeader, newHeader).write(m_fixture.container()));
        QFile container(m_fixture.container());
        QVERIFY(container.open(QIODevice::ReadWrite) && container.seek(7 + 21 + 100));
        QVERIFY(container.write(QByteArray(4, '\0')) == 4);
    }
    QVERIFY(Core::VaultManager::hasInterruptedChange(m_fixture.container()));
    MessageRecord restored;
    unlockAnswering(restored);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(restored.title, QStringLiteral("Velmarin"));
    QCOMPARE(restored.icon, QMessageBox::Information);
    QCOMPARE(
        restored.text,
        QStringLiteral("A última alteração no cofre foi interrompida (o USB foi removido ou faltou energia) "
                       "e foi desfeita. O cofre voltou ao estado anterior a ela."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));
    QVERIFY(!Core::VaultManager::hasInterruptedChange(m_fixture.container()));
}

void VaultActionsTest::unlockLeavesAForgedJournalAndSaysSo()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}, {QStringLiteral("b.txt"), "b"}});
    {
        // Someone kept the header from before b.txt was deleted and puts it beside today's as the
        // old header of a change that never happened.
        Core::VaultManager other;
        QByteArray earlier;
        const Core::ContainerFile file;
        QVERIFY(file.readHeaderBytes(m_fixture.container(), earlier));
        QVERIFY(other.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(other.deleteFile(QStringLiteral("b.txt")));
        QVERIFY(other.lock());
        QVERIFY(Core::ContainerJournal::forHeaderChange(earlier, "forjado").write(m_fixture.container()));
    }
    const QByteArray today = TestFiles::read(m_fixture.container());
    MessageRecord left;
    unlockAnswering(left);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(left.title, QStringLiteral("Velmarin"));
    QCOMPARE(left.icon, QMessageBox::Warning);
    QCOMPARE(left.text, QStringLiteral("Há ao lado do container um diário de alteração que não corresponde a "
                                       "ele. Ele não foi aplicado e foi deixado onde está: nada foi alterado "
                                       "no container."));
    QCOMPARE(left.informativeText, QStringLiteral("Aplicá-lo voltaria o cofre a um estado anterior. Pode ser "
                                                  "que outra pessoa tenha alterado este USB."));
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));
    QCOMPARE(TestFiles::read(m_fixture.container()), today);
    QVERIFY(Core::VaultManager::hasInterruptedChange(m_fixture.container()));
}

void VaultActionsTest::unlockAsksBeforeOpeningAnEarlierState()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.unlock());
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    const QByteArray seen = TestFiles::read(m_fixture.container());
    {
        // A later change on this computer, then the copy from before it written back over it.
        Core::VaultManager here(QString(), m_fixture.path(QStringLiteral("states")));
        QVERIFY(here.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(here.createFolder(QStringLiteral("Nova")));
        QVERIFY(here.lock());
    }
    QVERIFY(TestFiles::write(m_fixture.container(), seen));

    const QString question = QStringLiteral(
        "Este cofre voltou a um estado anterior ao que este computador viu por último: arquivos excluídos "
        "podem ter voltado e arquivos novos podem ter sumido. Alguém pode ter gravado no USB uma cópia "
        "antiga do container.\n\nDeseja abrir o cofre assim mesmo?");
    MessageRecord declined;
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(QStringLiteral("Não"), &declined);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(declined.title, QStringLiteral("Velmarin"));
    QCOMPARE(declined.text, question);
    QCOMPARE(declined.icon, QMessageBox::Question);
    QCOMPARE(declined.buttons, QStringList({QStringLiteral("Sim"), QStringLiteral("Não")}));
    QCOMPARE(declined.defaultButton, QStringLiteral("Não"));
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QVERIFY(!Core::VaultManager::isInUse(m_fixture.container()));
    QCOMPARE(statusMessage(), QStringLiteral("O cofre não foi aberto."));
    QCOMPARE(TestFiles::read(m_fixture.container()), seen);

    MessageRecord accepted;
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"), &accepted);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(accepted.text, question);
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("a.txt")}));
    m_fixture.action(QStringLiteral("Bloquear"))->trigger();

    // Accepted once, the state is the newest this computer saw: no question again.
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.driver().unexpected().isEmpty());
}

void VaultActionsTest::compactFailureWithoutAPreservedContainer()
{
    setUpWithDrive({}, {{QStringLiteral("a.txt"), "a"}});
    QVERIFY(m_fixture.unlock());
    // No work folder can be made: the temporary folder is a file.
    const QString notAFolder = m_fixture.path(QStringLiteral("tmp-arquivo"));
    QVERIFY(TestFiles::write(notAFolder, "x"));
    const QByteArray oldTemp = qgetenv("TMPDIR");
    qputenv("TMPDIR", notAFolder.toLocal8Bit());
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    qputenv("TMPDIR", oldTemp);
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Compactar cofre"));
    QCOMPARE(warning.text, QStringLiteral("Não foi possível compactar o cofre."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao compactar o cofre."));
}

void VaultActionsTest::compactOfADamagedVaultNamesTheFilesAndChangesNothing()
{
    setUpWithDrive({QStringLiteral("Fotos")},
                   {{QStringLiteral("a.txt"), "a"},
                    {QStringLiteral("Fotos/praia.jpg"), TestFiles::pattern(5000, 3)},
                    {QStringLiteral("c.txt"), "ccc"}});
    QVERIFY(damageFiles(m_fixture.container(), {QStringLiteral("Fotos/praia.jpg")}));
    const QByteArray bytes = TestFiles::read(m_fixture.container());
    QVERIFY(m_fixture.unlock());
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Compactar cofre"));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QCOMPARE(warning.text,
             QStringLiteral("O cofre não foi compactado porque estes arquivos estão danificados:\n\n"
                            "Fotos/praia.jpg\n\nNada foi alterado: o container continua como estava."));
    QCOMPARE(statusMessage(), QStringLiteral("Falha ao compactar o cofre."));
    QCOMPARE(TestFiles::read(m_fixture.container()), bytes);
    // Beside the container, only the journal's reserve that an open vault holds.
    QCOMPARE(QDir(m_fixture.driveRoot()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList({QStringLiteral("velmarin.vltx"), QStringLiteral("velmarin.vltx.reserve")}));
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.names(),
             QStringList({QStringLiteral("Fotos"), QStringLiteral("a.txt"), QStringLiteral("c.txt")}));
}

void VaultActionsTest::compactNamesAtMostTenDamagedFiles()
{
    QList<WindowFixture::Entry> files;
    QStringList names;
    for (int i = 1; i <= 12; ++i) {
        names << QStringLiteral("arquivo-%1.txt").arg(i, 2, 10, QLatin1Char('0'));
        files.append({names.last(), QByteArray(10, 'x')});
    }
    setUpWithDrive({}, files);
    QVERIFY(damageFiles(m_fixture.container(), names));
    QVERIFY(m_fixture.unlock());
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    MessageRecord warning;
    m_fixture.driver().expectMessage(QStringLiteral("OK"), &warning);
    m_fixture.action(QStringLiteral("Compactar cofre..."))->trigger();
    QVERIFY(m_fixture.driver().allHandled());
    // Nine names and the count of the other three: a box taller than the screen would hide its button.
    QCOMPARE(warning.text,
             QStringLiteral("O cofre não foi compactado porque estes arquivos estão danificados:\n\n") +
                 names.mid(0, 9).join(QLatin1Char('\n')) +
                 QStringLiteral("\ne mais 3 arquivos\n\nNada foi alterado: o container continua como "
                                "estava."));
}

QTEST_MAIN(VaultActionsTest)
#include "tst_vaultactions.moc"
