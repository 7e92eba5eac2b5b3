// What a session that ended without locking (a crash, kill -9, a pulled drive) leaves in the
// workspace: changed copies are offered back at the next unlock, everything else is wiped.
#include "TestFiles.h"
#include "WorkspaceFixture.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WorkspaceFixture;

class TestWorkspaceLeftovers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QVERIFY(m_fixture.setUp()); }
    void cleanup() { m_fixture.tearDown(); }
    void editsOfAKilledSessionAreOfferedBack();
    void editsOfAKilledSessionCanBeDiscarded();
    void undecidedEditsWaitForTheNextUnlock();
    void unchangedCopiesOfAKilledSessionGoSilently();
    void lockKeepingEditsKeepsOnlyChangedCopies();
    void strayWorkspacesAreFoundAndRemoved();
    void onlyChangedCopiesOutliveACrash();
    void aPendingEditIsNeverOpenedOver();
    void strayRemovalLeavesAWorkspaceInUse();
    void editsOfAKilledSessionSurviveARekey();
    void aWorkspaceInUseStaysWithTheCopyThatUsesIt();

private:
    WorkspaceFixture m_fixture;
};

void TestWorkspaceLeftovers::editsOfAKilledSessionAreOfferedBack()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/a.txt"), "antes da queda"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("Docs/a.txt"), "escrito antes do kill -9"));

    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QCOMPARE(vault.leftoverEdits().at(0).vaultPath, QStringLiteral("Docs/a.txt"));
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(QFileInfo::exists(copy));
    QVERIFY(vault.bringBackLeftoverEdits());
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(copy));
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("Docs/a.txt")),
             QByteArray("escrito antes do kill -9"));
    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::editsOfAKilledSessionCanBeDiscarded()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "guardado"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("a.txt"), "descartado"));
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(vault.discardLeftoverEdits());
    QVERIFY(!QFileInfo::exists(copy));
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("a.txt")), QByteArray("guardado"));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::undecidedEditsWaitForTheNextUnlock()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "guardado"));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("b.txt"), "b"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("a.txt"), "ainda não decidido"));
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("b.txt"), &local));
    // Locked before anyone answered: this session's copy goes, the earlier edit stays.
    QVERIFY(vault.lock());
    QVERIFY(!QFileInfo::exists(local));
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("a.txt")), QByteArray("ainda não decidido"));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::unchangedCopiesOfAKilledSessionGoSilently()
{
    QString copy;
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "só lido"));
        QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &copy));
        // Destroyed without a lock, as a crash would leave it.
    }
    QVERIFY(QFileInfo::exists(copy));
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(copy));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::lockKeepingEditsKeepsOnlyChangedCopies()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "a"));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("b.txt"), "b"));
    QString changed;
    QString unchanged;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &changed));
    QVERIFY(vault.openForEdit(QStringLiteral("b.txt"), &unchanged));
    QVERIFY(WorkspaceFixture::editCopy(changed, "a mudado"));
    const QByteArray containerBefore = TestFiles::read(m_fixture.container());

    vault.lockKeepingEdits();
    QVERIFY(!vault.isUnlocked());
    QVERIFY(vault.index().files().isEmpty());
    QCOMPARE(TestFiles::read(m_fixture.container()), containerBefore);
    QVERIFY(QFileInfo::exists(changed));
    QVERIFY(!QFileInfo::exists(unchanged));

    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QCOMPARE(vault.leftoverEdits().at(0).vaultPath, QStringLiteral("a.txt"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("a.txt")), QByteArray("a mudado"));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::strayWorkspacesAreFoundAndRemoved()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "a"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("a.txt"), "deixado para trás"));
    const QStringList stray = Workspace::strayWorkspaces(m_fixture.root());
    QCOMPARE(stray.size(), 1);

    // A workspace in use is nobody's leftover.
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(Workspace::strayWorkspaces(m_fixture.root()), QStringList());
    vault.lockKeepingEdits();
    QCOMPARE(Workspace::strayWorkspaces(m_fixture.root()), stray);

    QVERIFY(Workspace::removeStrayWorkspaces(m_fixture.root()));
    QCOMPARE(Workspace::strayWorkspaces(m_fixture.root()), QStringList());
    QVERIFY(!QFileInfo::exists(QDir(m_fixture.root()).filePath(stray.at(0))));
}

void TestWorkspaceLeftovers::onlyChangedCopiesOutliveACrash()
{
    QString unchanged;
    QString backup;
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/a.txt"), "a"));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/b.txt"), "segredo de b"));
        QString changed;
        QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &changed));
        QVERIFY(vault.openForEdit(QStringLiteral("Docs/b.txt"), &unchanged));
        QVERIFY(WorkspaceFixture::editCopy(changed, "a mudado"));
        // What an editor leaves beside the file it saves.
        backup = changed + QStringLiteral("~");
        QVERIFY(TestFiles::write(backup, "a"));
        // Destroyed without a lock, as a crash would leave it.
    }
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(!QFileInfo::exists(unchanged));
    QVERIFY(!QFileInfo::exists(backup));
    QVERIFY(vault.lock());
    // Still offered, and still the only copy.
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(!QFileInfo::exists(unchanged));
    QVERIFY(vault.discardLeftoverEdits());
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::aPendingEditIsNeverOpenedOver()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "no cofre"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("a.txt"), "editado e ainda não decidido"));
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QString local;
    QVERIFY(!vault.openForEdit(QStringLiteral("a.txt"), &local));
    QCOMPARE(TestFiles::read(copy), QByteArray("editado e ainda não decidido"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &local));
    QCOMPARE(TestFiles::read(local), QByteArray("editado e ainda não decidido"));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::strayRemovalLeavesAWorkspaceInUse()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "a"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("a.txt"), "em uso"));
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(Workspace::removeStrayWorkspaces(m_fixture.root()));
    QCOMPARE(TestFiles::read(copy), QByteArray("em uso"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("a.txt")), QByteArray("em uso"));
    QVERIFY(vault.lock());
    // Nothing of it is left, not even a renamed folder on its way out.
    QCOMPARE(QDir(m_fixture.root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

void TestWorkspaceLeftovers::editsOfAKilledSessionSurviveARekey()
{
    {
        VaultManager vault(m_fixture.root());
        QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/a.txt"), "antes da queda"));
        QVERIFY(vault.lock());
    }
    QVERIFY(m_fixture.editAndDie(QStringLiteral("Docs/a.txt"), "escrito antes do kill -9"));
    const QStringList before = QDir(m_fixture.root()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(before.size(), 1);

    // The workspace is named from the master key, which a re-key replaces: the copy moves with it.
    const QByteArray newPassword("nova-senha-bem-longa");
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.rekeyVault(m_fixture.container(), TestFiles::password(), newPassword, {}, nullptr));
    const QStringList after = QDir(m_fixture.root()).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    QCOMPARE(after.size(), 1);
    QVERIFY(after != before);
    QVERIFY(vault.unlock(m_fixture.container(), newPassword));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QCOMPARE(vault.leftoverEdits().at(0).vaultPath, QStringLiteral("Docs/a.txt"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("Docs/a.txt")),
             QByteArray("escrito antes do kill -9"));
    QVERIFY(vault.lock());
}

void TestWorkspaceLeftovers::aWorkspaceInUseStaysWithTheCopyThatUsesIt()
{
    // A copy made before the re-key has the old key, so its session uses the old identity's folder.
    const QString copy = QFileInfo(m_fixture.container()).dir().filePath(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_fixture.container(), copy));
    VaultManager other(m_fixture.root());
    QVERIFY(other.unlock(copy, TestFiles::password()));
    QString local;
    QVERIFY(m_fixture.importText(other, QStringLiteral("a.txt"), "na cópia"));
    QVERIFY(other.openForEdit(QStringLiteral("a.txt"), &local));
    const QString inUse = other.workspaceDirectory();

    VaultManager vault(m_fixture.root());
    QVERIFY(
        vault.rekeyVault(m_fixture.container(), TestFiles::password(), "nova-senha-bem-longa", {}, nullptr));
    QCOMPARE(other.workspaceDirectory(), inUse);
    QVERIFY(QFileInfo(inUse).isDir());
    QVERIFY(QFileInfo::exists(local));
    QVERIFY(other.lock());
    QVERIFY(vault.unlock(m_fixture.container(), "nova-senha-bem-longa"));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(vault.workspaceDirectory() != inUse);
    QVERIFY(vault.lock());
}

QTEST_GUILESS_MAIN(TestWorkspaceLeftovers)
#include "tst_workspaceleftovers.moc"
