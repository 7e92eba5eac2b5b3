// What the window says about the copies of files opened for editing: edits a crashed session left
// behind, a workspace that is not private, and leftovers of other vaults found at start.
#include "TestFiles.h"
#include "WindowFixture.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QStatusBar>
#include <QTableWidget>
#include <QtTest>

using namespace Velmarin;
using Velmarin::Tests::MessageRecord;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WindowFixture;

namespace {

const QString LeftoverQuestion = QStringLiteral(
    "Foram encontradas alterações de uma sessão anterior que não foi encerrada. Deseja trazê-las de volta "
    "para o cofre?");

bool editCopy(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return TestFiles::write(path, text) && file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

QByteArray exported(const QString& container, const QString& vaultPath)
{
    Core::VaultManager vault;
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    const bool done = vault.unlock(container, TestFiles::password(), Core::VaultManager::Access::ReadOnly) &&
                      vault.exportFile(vaultPath, &buffer);
    vault.lock();
    return done ? buffer.data() : QByteArray("<falhou>");
}

} // namespace

class WorkspaceFlowsTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();
    void anEditWhosePathBecameAFolderIsStoredBesideItAtLock();
    void unlockOffersEditsLeftBehind_data();
    void unlockOffersEditsLeftBehind();
    void aWorkspaceThatIsNotPrivateIsExplained();
    void leftoversOfOtherVaultsAreOfferedForRemovalAtStart_data();
    void leftoversOfOtherVaultsAreOfferedForRemovalAtStart();

private:
    QString root() const { return m_fixture.path(QStringLiteral("workspaces")); }
    // A session of container that opens vaultPath for editing, changes the copy and ends without
    // locking, as a crash would leave it. Returns the copy's path.
    QString leaveEditBehind(const QString& container, const QString& vaultPath, const QByteArray& edit);
    void unlockAnswering(const QString& button, MessageRecord* record);

    WindowFixture m_fixture;
};

void WorkspaceFlowsTest::cleanup()
{
    m_fixture.verifyDialogsAndTearDown();
}

QString WorkspaceFlowsTest::leaveEditBehind(const QString& container, const QString& vaultPath,
                                            const QByteArray& edit)
{
    Core::VaultManager session(root());
    QString local;
    if (!session.unlock(container, TestFiles::password()) || !session.openForEdit(vaultPath, &local) ||
        !editCopy(local, edit)) {
        return QString();
    }
    return local;
}

void WorkspaceFlowsTest::unlockAnswering(const QString& button, MessageRecord* record)
{
    m_fixture.chooseContainer(m_fixture.container());
    m_fixture.driver().expectInput(QString::fromUtf8(TestFiles::password()));
    m_fixture.driver().expectMessage(button, record);
    m_fixture.action(QStringLiteral("Desbloquear"))->trigger();
}

void WorkspaceFlowsTest::unlockOffersEditsLeftBehind_data()
{
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QByteArray>("stored");
    QTest::newRow("Sim brings them back") << QStringLiteral("Sim") << QByteArray("editado antes da queda");
    QTest::newRow("Não discards them") << QStringLiteral("Não") << QByteArray("original");
}

void WorkspaceFlowsTest::unlockOffersEditsLeftBehind()
{
    QFETCH(QString, answer);
    QFETCH(QByteArray, stored);
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("Docs/a.txt"), "original"}}));
    const QString copy =
        leaveEditBehind(m_fixture.container(), QStringLiteral("Docs/a.txt"), "editado antes da queda");
    QVERIFY(QFileInfo::exists(copy));

    MessageRecord question;
    unlockAnswering(answer, &question);
    QVERIFY(m_fixture.driver().allHandled());
    QVERIFY(m_fixture.window().isVaultUnlocked());
    QCOMPARE(question.title, QStringLiteral("Velmarin"));
    QCOMPARE(question.text, LeftoverQuestion);
    QCOMPARE(question.icon, QMessageBox::Question);
    QCOMPARE(question.buttons, (QStringList{QStringLiteral("Sim"), QStringLiteral("Não")}));
    // Enter keeps the edits: bringing them back is what the lock that never came would have done.
    QCOMPARE(question.defaultButton, QStringLiteral("Sim"));
    QCOMPARE(m_fixture.window().statusBar()->currentMessage(), QStringLiteral("Cofre desbloqueado."));
    QVERIFY(!QFileInfo::exists(copy));

    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QCOMPARE(exported(m_fixture.container(), QStringLiteral("Docs/a.txt")), stored);
}

void WorkspaceFlowsTest::aWorkspaceThatIsNotPrivateIsExplained()
{
    QVERIFY(m_fixture.setUp());
    // The root exists but others may look in: no copy may ever go there.
    QVERIFY(QDir().mkdir(root()));
    QVERIFY(QFile::setPermissions(root(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                              QFileDevice::ExeOther));
    MessageRecord warning;
    unlockAnswering(QStringLiteral("OK"), &warning);
    QVERIFY(m_fixture.driver().allHandled());
    QCOMPARE(warning.title, QStringLiteral("Velmarin"));
    QCOMPARE(warning.icon, QMessageBox::Warning);
    QCOMPARE(
        warning.text,
        QStringLiteral("A pasta de trabalho do Velmarin não é particular: ela, ou uma pasta acima dela, "
                       "pertence a outro usuário, pode ser alterada por outros usuários ou é um atalho.\n\n%1"
                       "\n\nPor segurança, nada foi gravado nela e o cofre continua bloqueado.")
            .arg(QDir::toNativeSeparators(root())));
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.table()->rowCount(), 0);
    QCOMPARE(QDir(root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
    // The keys were dropped too: the container is free for another session at once.
    Core::VaultManager other;
    QVERIFY(other.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(other.lock());
}

void WorkspaceFlowsTest::leftoversOfOtherVaultsAreOfferedForRemovalAtStart_data()
{
    QTest::addColumn<int>("vaults");
    QTest::addColumn<QString>("answer");
    QTest::addColumn<QString>("text");
    const QString one = QStringLiteral(
        "Foram encontradas cópias de arquivos abertos para edição de um cofre que não foi bloqueado ao final "
        "do último uso. Elas serão oferecidas de volta quando esse cofre for desbloqueado.\n\nDeseja "
        "apagá-las "
        "agora? As alterações feitas nelas serão perdidas.");
    const QString two = QStringLiteral("Foram encontradas cópias de arquivos abertos para edição de 2 cofres "
                                       "que não foram bloqueados ao final "
                                       "do último uso. Elas serão oferecidas de volta quando cada cofre for "
                                       "desbloqueado.\n\nDeseja apagá-las "
                                       "agora? As alterações feitas nelas serão perdidas.");
    QTest::newRow("one vault, removed") << 1 << QStringLiteral("Sim") << one;
    QTest::newRow("two vaults, kept") << 2 << QStringLiteral("Não") << two;
}

void WorkspaceFlowsTest::leftoversOfOtherVaultsAreOfferedForRemovalAtStart()
{
    QFETCH(int, vaults);
    QFETCH(QString, answer);
    QFETCH(QString, text);
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("a.txt"), "a"}}));
    QStringList copies{leaveEditBehind(m_fixture.container(), QStringLiteral("a.txt"), "deixado")};
    if (vaults == 2) {
        const QString other = m_fixture.path(QStringLiteral("outro.vltx"));
        const QString source = m_fixture.path(QStringLiteral("b.txt"));
        Core::VaultManager creator;
        QVERIFY(creator.createVault(other, TestFiles::password()) && TestFiles::write(source, "b") &&
                creator.unlock(other, TestFiles::password()) &&
                creator.importFile(source, QStringLiteral("b.txt")) && creator.lock());
        copies.append(leaveEditBehind(other, QStringLiteral("b.txt"), "também deixado"));
    }
    for (const QString& copy : copies) {
        QVERIFY(QFileInfo::exists(copy));
    }

    // The next start of the program.
    MessageRecord question;
    m_fixture.driver().expectMessage(answer, &question);
    Tests::FakeWindowServices services(true, root());
    UI::MainWindow window(services.take());
    window.show();
    QTRY_VERIFY(m_fixture.driver().allHandled());
    QCOMPARE(question.title, QStringLiteral("Velmarin"));
    QCOMPARE(question.text, text);
    QCOMPARE(question.defaultButton, QStringLiteral("Não"));
    for (const QString& copy : copies) {
        QCOMPARE(QFileInfo::exists(copy), answer == QStringLiteral("Não"));
    }
    if (answer == QStringLiteral("Sim")) {
        QCOMPARE(window.statusBar()->currentMessage(),
                 QStringLiteral("Cópias deixadas por sessões anteriores apagadas."));
    }
}

void WorkspaceFlowsTest::anEditWhosePathBecameAFolderIsStoredBesideItAtLock()
{
    QVERIFY(m_fixture.setUp({}, {{QStringLiteral("notas.txt"), "texto"}}));
    QVERIFY(m_fixture.unlock());
    QVERIFY(m_fixture.selectRow(QStringLiteral("notas.txt")));
    m_fixture.action(QStringLiteral("Abrir"))->trigger();
    QCOMPARE(m_fixture.fakes().urls->opened.size(), 1);
    QVERIFY(editCopy(m_fixture.fakes().urls->opened.first().toLocalFile(), "texto editado"));
    // While the copy is open, the file is deleted and a folder takes its name.
    QVERIFY(m_fixture.selectRow(QStringLiteral("notas.txt")));
    m_fixture.driver().expectMessage(QStringLiteral("Sim"));
    m_fixture.action(QStringLiteral("Excluir..."))->trigger();
    m_fixture.driver().expectInput(QStringLiteral("notas.txt"));
    m_fixture.action(QStringLiteral("Nova pasta..."))->trigger();
    QCOMPARE(m_fixture.names(), QStringList({QStringLiteral("notas.txt")}));

    m_fixture.action(QStringLiteral("Bloquear"))->trigger();
    QVERIFY(!m_fixture.window().isVaultUnlocked());
    QCOMPARE(m_fixture.window().statusBar()->currentMessage(),
             QStringLiteral("Cofre bloqueado. A cópia editada de notas.txt foi guardada como notas (2).txt, "
                            "pois o caminho original agora é ocupado por outro item."));
    Core::VaultManager vault;
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password(), Core::VaultManager::Access::ReadOnly));
    QVERIFY(vault.directoryExists(QStringLiteral("notas.txt")));
    QBuffer stored;
    QVERIFY(stored.open(QIODevice::WriteOnly));
    QVERIFY(vault.exportFile(QStringLiteral("notas (2).txt"), &stored));
    QCOMPARE(stored.data(), QByteArray("texto editado"));
}

QTEST_MAIN(WorkspaceFlowsTest)
#include "tst_workspaceflows.moc"
