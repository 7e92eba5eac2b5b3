#include "FailureInjection.h"
#include "LockedVaultEditor.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/VaultManager.h"

#include <QMessageAuthenticationCode>
#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

// Editors save within the same second as the copy was written; a later stamp is what counts.
bool touchLater(const QString& path, int seconds)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(seconds),
                            QFileDevice::FileModificationTime);
}

bool editCopy(const QString& path, const QByteArray& text)
{
    return TestFiles::write(path, text) && touchLater(path, 10);
}

} // namespace

class TestWorkspace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void copyMirrorsTheVaultPath();
    void workspaceIsOwnerOnly();
    void workspaceIsLockedWhileUnlocked();
    void changedCopyIsWrittenBackAtLock();
    void unchangedCopyIsNotImportedAgain();
    void deletedCopyIsSkipped();
    void openingTwiceResetsTheCopy();
    void failedWriteBackKeepsTheVaultOpen();
    void openForEditRefusals();
    void workspaceIsNamedFromTheContainersKey();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }

    VaultFixture m_fixture;
};

void TestWorkspace::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("velmarin.vltx"), QStringLiteral("tmp")));
}

void TestWorkspace::cleanup()
{
    m_fixture.tearDown();
}

void TestWorkspace::copyMirrorsTheVaultPath()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "texto do cofre"));
    const QString workspace = m_fixture.vault().workspaceDirectory();
    QCOMPARE(QFileInfo(workspace).absolutePath(), path(QStringLiteral("tmp")));

    // The copy goes under the name the vault keeps, below the workspace's "files" folder.
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("docs/a.txt"), &local));
    QCOMPARE(local, QDir(workspace).filePath(QStringLiteral("files/Docs/a.txt")));
    QVERIFY(QFileInfo(QDir(workspace).filePath(QStringLiteral("files/Docs"))).isDir());
    QCOMPARE(TestFiles::read(local), QByteArray("texto do cofre"));
    QVERIFY(m_fixture.vault().isOpenForEdit(QStringLiteral("Docs/a.txt")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(workspace));
}

void TestWorkspace::workspaceIsOwnerOnly()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/Sub/a.txt"), "segredo"));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("Docs/Sub/a.txt"), &local));
    const auto ownerOnlyFolder = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;
    const auto ownerOnlyFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
    const auto othersOrGroup = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup |
                               QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
    const QString workspace = m_fixture.vault().workspaceDirectory();
    for (const QString& folder :
         {path(QStringLiteral("tmp")), workspace, workspace + QStringLiteral("/files"),
          workspace + QStringLiteral("/files/Docs"), workspace + QStringLiteral("/files/Docs/Sub")}) {
        const QFileDevice::Permissions permissions = QFileInfo(folder).permissions();
        QVERIFY2((permissions & ownerOnlyFolder) == ownerOnlyFolder, qPrintable(folder));
        QVERIFY2((permissions & othersOrGroup) == 0, qPrintable(folder));
    }
    const QFileDevice::Permissions filePermissions = QFileInfo(local).permissions();
    QCOMPARE(filePermissions & ownerOnlyFile, ownerOnlyFile);
    QCOMPARE(filePermissions & (othersOrGroup | QFileDevice::ExeOwner), QFileDevice::Permissions());
}

void TestWorkspace::workspaceIsLockedWhileUnlocked()
{
    // A copy of the container is the same vault, so it has the same workspace: a second session on
    // it waits until the first one ends.
    const QString lockPath = QDir(m_fixture.vault().workspaceDirectory()).filePath(QStringLiteral("lock"));
    QVERIFY(QFileInfo::exists(lockPath));
    const QString copy = path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_fixture.container(), copy));
    VaultManager second(path(QStringLiteral("tmp")));
    QVERIFY(!second.unlock(copy, TestFiles::password()));
    QCOMPARE(second.workspaceProblem(), Workspace::Problem::InUse);
    QVERIFY(second.lock());
    QVERIFY(QFileInfo::exists(lockPath));

    const QString workspace = m_fixture.vault().workspaceDirectory();
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(lockPath));
    QVERIFY(second.unlock(copy, TestFiles::password()));
    QCOMPARE(second.workspaceDirectory(), workspace);
    QVERIFY(second.lock());
}

void TestWorkspace::changedCopyIsWrittenBackAtLock()
{
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "original"));
    const QString oldId = m_fixture.vault().index().files().at(0).id;
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("Docs/a.txt"), &local));
    QVERIFY(editCopy(local, "editado pelo usuário"));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(local));

    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("Docs/a.txt")), QByteArray("editado pelo usuário"));
    QCOMPARE(m_fixture.vault().index().files().size(), 1);
    QVERIFY(m_fixture.vault().index().files().at(0).id != oldId);
}

void TestWorkspace::unchangedCopyIsNotImportedAgain()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "só leitura"));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(m_fixture.vault().lock());
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
}

void TestWorkspace::deletedCopyIsSkipped()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "apagado da área"));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(QFile::remove(local));
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(m_fixture.vault().lock());
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("a.txt")), QByteArray("apagado da área"));
}

void TestWorkspace::openingTwiceResetsTheCopy()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "do cofre"));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(editCopy(local, "edição perdida"));
    // The second opening writes the vault's version again and takes its new time as the reference.
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    QCOMPARE(TestFiles::read(local), QByteArray("do cofre"));
    QVERIFY(touchLater(local, -3600));
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(m_fixture.vault().lock());
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
}

void TestWorkspace::failedWriteBackKeepsTheVaultOpen()
{
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "original"));
    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(editCopy(local, "edição que não pode se perder"));
    const QByteArray before = TestFiles::read(m_fixture.container());
    {
        // The drive is full: not one byte of the edited copy fits in the container.
        const FailureInjection injection(m_fixture.container(), "write");
        QVERIFY(!m_fixture.vault().lock());
    }
    QVERIFY(m_fixture.vault().isUnlocked());
    QCOMPARE(TestFiles::read(local), QByteArray("edição que não pode se perder"));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(m_fixture.vault().isOpenForEdit(QStringLiteral("a.txt")));

    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("a.txt")), QByteArray("edição que não pode se perder"));
}

void TestWorkspace::openForEditRefusals()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    QString local = QStringLiteral("intocado");
    QVERIFY(!m_fixture.vault().openForEdit(QStringLiteral("a.txt"), nullptr));
    QVERIFY(!m_fixture.vault().openForEdit(QStringLiteral("../a.txt"), &local));
    QVERIFY(!m_fixture.vault().openForEdit(QStringLiteral("ausente.txt"), &local));
    QCOMPARE(local, QStringLiteral("intocado"));
    QVERIFY(!m_fixture.vault().isOpenForEdit(QStringLiteral("ausente.txt")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!m_fixture.vault().openForEdit(QStringLiteral("a.txt"), &local));
}

void TestWorkspace::workspaceIsNamedFromTheContainersKey()
{
    // HMAC-SHA-256 of "velmarin-workspace" under the master key, computed here with Qt's own HMAC
    // over the key unwrapped past the engine: nobody without the key can tell which vault it is.
    const QString workspace = m_fixture.vault().workspaceDirectory();
    QVERIFY(m_fixture.vault().lock());
    Velmarin::Tests::LockedVaultEditor editor;
    QVERIFY(editor.open(m_fixture.container(), TestFiles::password()));
    const QByteArray expected =
        QMessageAuthenticationCode::hash(QByteArrayLiteral("velmarin-workspace"), editor.masterKey(),
                                         QCryptographicHash::Sha256)
            .left(16)
            .toHex();
    QCOMPARE(QFileInfo(workspace).fileName(), QString::fromLatin1(expected));

    // The same on every unlock; another vault has another.
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.vault().workspaceDirectory(), workspace);
    QVERIFY(m_fixture.vault().lock());
    const QString other = path(QStringLiteral("outro.vltx"));
    VaultManager second(path(QStringLiteral("tmp")));
    QVERIFY(second.createVault(other, TestFiles::password()));
    QVERIFY(second.unlock(other, TestFiles::password()));
    QVERIFY(second.workspaceDirectory() != workspace);
    QCOMPARE(QFileInfo(second.workspaceDirectory()).absolutePath(), path(QStringLiteral("tmp")));
    QVERIFY(second.lock());
}

QTEST_GUILESS_MAIN(TestWorkspace)
#include "tst_workspace.moc"
