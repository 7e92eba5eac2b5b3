#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "VaultManager.h"

#include <QLockFile>
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
    void eachManagerHasItsOwnWorkspace();

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
    QVERIFY(workspace.startsWith(path(QStringLiteral("tmp/Velmarin/"))));
    QVERIFY(!QUuid::fromString(QFileInfo(workspace).fileName()).isNull());

    QString local;
    QVERIFY(m_fixture.vault().openForEdit(QStringLiteral("docs/a.txt"), &local));
    QCOMPARE(local, QDir(workspace).filePath(QStringLiteral("docs/a.txt")));
    QVERIFY(QFileInfo(QDir(workspace).filePath(QStringLiteral("docs"))).isDir());
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
         {workspace, workspace + QStringLiteral("/Docs"), workspace + QStringLiteral("/Docs/Sub")}) {
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
    const QString lockPath =
        QDir(m_fixture.vault().workspaceDirectory()).filePath(QStringLiteral(".velmarin-workspace.lock"));
    QVERIFY(QFileInfo::exists(lockPath));
    QLockFile second(lockPath);
    QVERIFY(!second.tryLock(0));
    QCOMPARE(second.error(), QLockFile::LockFailedError);
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(lockPath));
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

void TestWorkspace::eachManagerHasItsOwnWorkspace()
{
    VaultManager second(path(QStringLiteral("tmp")));
    QVERIFY(second.workspaceDirectory() != m_fixture.vault().workspaceDirectory());
    const QString sameParent = QFileInfo(m_fixture.vault().workspaceDirectory()).absolutePath();
    QCOMPARE(QFileInfo(second.workspaceDirectory()).absolutePath(), sameParent);
    // Unlock/lock cycles of one manager reuse its folder name.
    const QString name = m_fixture.vault().workspaceDirectory();
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.vault().workspaceDirectory(), name);
    QVERIFY(QFileInfo(name).isDir());
}

QTEST_GUILESS_MAIN(TestWorkspace)
#include "tst_workspace.moc"
