// The workspace on a computer shared with other people: another account that owns or prepares the
// folders cannot read, plant or delete anything through them.
#include "TestFiles.h"
#include "WorkspaceFixture.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::WorkspaceFixture;

namespace {

constexpr uid_t Nobody = 65534;

} // namespace

class TestPrivateWorkspace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { QVERIFY(m_fixture.setUp()); }
    void cleanup() { m_fixture.tearDown(); }
    void aFolderAnotherUserOwnsIsRefused_data();
    void aFolderAnotherUserOwnsIsRefused();
    void aRootThatIsALinkIsRefused();
    void aRootOthersMayChangeIsRefused();
    void aSharedParentNeedsItsStickyBit();
    void aWorkspaceSwappedForALinkMidSessionIsNeverFollowed();
    void aLinkPlantedInsideIsRemovedNotFollowed();
    void openingAgainReplacesWhateverStoodThere();
    void vaultFilesNamedLikeTheWorkspacesOwnFiles();
    void aSessionWithoutRootTakesNoWorkspace();
    void missingFoldersAreOwnerOnlyWhateverTheUmask();
    void aLinkOfAnotherAccountOnTheWayIsRefused();
    void foldersAnEditorRemadeAreRepaired();

private:
    WorkspaceFixture m_fixture;
};

void TestPrivateWorkspace::aFolderAnotherUserOwnsIsRefused_data()
{
    QTest::addColumn<QString>("foreign");
    QTest::newRow("the root itself") << QStringLiteral("area");
    QTest::newRow("a folder above it") << QStringLiteral("compartilhada");
}

void TestPrivateWorkspace::aFolderAnotherUserOwnsIsRefused()
{
    if (geteuid() != 0) {
        // Not QSKIP: clang's -Wpedantic rejects its empty variadic argument in C++17.
        QTest::qSkip("giving a folder to another account needs root", __FILE__, __LINE__);
        return;
    }
    QFETCH(QString, foreign);
    const QString workspaceRoot = foreign == QLatin1String("area")
                                      ? m_fixture.root()
                                      : m_fixture.path(QStringLiteral("compartilhada/area"));
    const QString prepared = m_fixture.path(foreign);
    QVERIFY(QDir().mkdir(prepared, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QCOMPARE(chown(QFile::encodeName(prepared).constData(), Nobody, Nobody), 0);

    VaultManager vault(workspaceRoot);
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.workspaceDirectory().isEmpty());
    QString local;
    QVERIFY(!vault.openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(vault.lock());
    // Nothing was written into the other account's folder.
    QCOMPARE(QDir(prepared).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

void TestPrivateWorkspace::aRootThatIsALinkIsRefused()
{
    const QString target = m_fixture.path(QStringLiteral("alvo"));
    QVERIFY(QDir().mkdir(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QVERIFY(QFile::link(target, m_fixture.root()));
    VaultManager vault(m_fixture.root());
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QCOMPARE(QDir(target).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

void TestPrivateWorkspace::aRootOthersMayChangeIsRefused()
{
    QVERIFY(QDir().mkdir(m_fixture.root()));
    QVERIFY(QFile::setPermissions(m_fixture.root(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                                        QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                                        QFileDevice::ExeOther));
    VaultManager vault(m_fixture.root());
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QCOMPARE(QDir(m_fixture.root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

void TestPrivateWorkspace::aSharedParentNeedsItsStickyBit()
{
    // Anyone may write into the parent: without the sticky bit anyone could rename our root away.
    const QString parent = m_fixture.path(QStringLiteral("publica"));
    QVERIFY(QDir().mkdir(parent));
    QCOMPARE(chmod(QFile::encodeName(parent).constData(), 0777), 0);
    VaultManager vault(parent + QStringLiteral("/area"));
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());

    QCOMPARE(chmod(QFile::encodeName(parent).constData(), 01777), 0);
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::None);
    QCOMPARE(WorkspaceFixture::modeOf(parent + QStringLiteral("/area")) & 07777, mode_t(0700));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aWorkspaceSwappedForALinkMidSessionIsNeverFollowed()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "original"));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("b.txt"), "outro"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(WorkspaceFixture::editCopy(local, "a edição verdadeira"));

    // Someone moves the workspace aside and puts a link to a folder of the user's own in its place,
    // laid out like a workspace, with a copy of their choosing.
    const QString workspace = vault.workspaceDirectory();
    const QString victim = m_fixture.path(QStringLiteral("documentos-do-usuario"));
    QVERIFY(QDir().mkpath(victim + QStringLiteral("/files")));
    QVERIFY(TestFiles::write(victim + QStringLiteral("/files/a.txt"), "conteúdo plantado"));
    QVERIFY(WorkspaceFixture::touchLater(victim + QStringLiteral("/files/a.txt")));
    QVERIFY(TestFiles::write(victim + QStringLiteral("/carta.txt"), "carta importante"));
    QVERIFY(QDir().rename(workspace, workspace + QStringLiteral(".movido")));
    QVERIFY(QFile::link(victim, workspace));

    // No copy is written where the desktop would find the other folder.
    QString second;
    QVERIFY(!vault.openForEdit(QStringLiteral("b.txt"), &second));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);

    // Locking brings back the real edit and removes the link, never what it points at.
    QVERIFY(vault.lock());
    QVERIFY(!QFileInfo(workspace).isSymLink() && !QFileInfo::exists(workspace));
    QCOMPARE(TestFiles::read(victim + QStringLiteral("/carta.txt")), QByteArray("carta importante"));
    QCOMPARE(TestFiles::read(victim + QStringLiteral("/files/a.txt")), QByteArray("conteúdo plantado"));
    QVERIFY(!QFileInfo::exists(workspace + QStringLiteral(".movido/files/a.txt")));
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(WorkspaceFixture::exported(vault, QStringLiteral("a.txt")), QByteArray("a edição verdadeira"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aLinkPlantedInsideIsRemovedNotFollowed()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/a.txt"), "a"));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/b.txt"), "b"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &local));
    const QString files = vault.workspaceDirectory() + QStringLiteral("/files");

    const QString victim = m_fixture.path(QStringLiteral("pasta-do-usuario"));
    QVERIFY(QDir().mkpath(victim));
    QVERIFY(TestFiles::write(victim + QStringLiteral("/b.txt"), "não pode ser sobrescrito"));
    QVERIFY(TestFiles::write(victim + QStringLiteral("/solto.txt"), "não pode ser zerado"));
    QVERIFY(QDir(files + QStringLiteral("/Docs")).removeRecursively());
    QVERIFY(QFile::link(victim, files + QStringLiteral("/Docs")));
    QVERIFY(QFile::link(victim + QStringLiteral("/solto.txt"), files + QStringLiteral("/solto.txt")));

    QString second;
    QVERIFY(!vault.openForEdit(QStringLiteral("Docs/b.txt"), &second));
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(victim + QStringLiteral("/b.txt")), QByteArray("não pode ser sobrescrito"));
    QCOMPARE(TestFiles::read(victim + QStringLiteral("/solto.txt")), QByteArray("não pode ser zerado"));
    QVERIFY(!QFileInfo::exists(files));
}

void TestPrivateWorkspace::openingAgainReplacesWhateverStoodThere()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "texto do cofre"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &local));
    const QString victim = m_fixture.path(QStringLiteral("arquivo-do-usuario"));
    QVERIFY(TestFiles::write(victim, "intocado"));
    QVERIFY(QFile::remove(local));
    QVERIFY(QFile::link(victim, local));

    QString again;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &again));
    QCOMPARE(again, local);
    QVERIFY(!QFileInfo(again).isSymLink());
    QCOMPARE(TestFiles::read(again), QByteArray("texto do cofre"));
    QCOMPARE(WorkspaceFixture::modeOf(again) & 07777, mode_t(0600));
    QCOMPARE(TestFiles::read(victim), QByteArray("intocado"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::vaultFilesNamedLikeTheWorkspacesOwnFiles()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    const QStringList names = {QStringLiteral("lock"), QStringLiteral("manifest.json"),
                               QStringLiteral(".velmarin-workspace.lock"), QStringLiteral("files")};
    for (const QString& name : names) {
        QVERIFY(m_fixture.importText(vault, name, "texto de " + name.toUtf8()));
        QString local;
        QVERIFY(vault.openForEdit(name, &local));
        QVERIFY(WorkspaceFixture::editCopy(local, "editado: " + name.toUtf8()));
    }
    // The session's lock and manifest are still its own.
    const QString copy = m_fixture.path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_fixture.container(), copy));
    VaultManager second(m_fixture.root());
    QVERIFY(!second.unlock(copy, TestFiles::password()));
    QCOMPARE(second.workspaceProblem(), Workspace::Problem::InUse);
    QVERIFY(second.lock());

    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    for (const QString& name : names) {
        QCOMPARE(WorkspaceFixture::exported(vault, name), "editado: " + name.toUtf8());
    }
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aSessionWithoutRootTakesNoWorkspace()
{
    VaultManager vault;
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault.workspaceDirectory().isEmpty());
    QVERIFY(m_fixture.importText(vault, QStringLiteral("a.txt"), "a"));
    QString local;
    QVERIFY(!vault.openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(local.isEmpty());
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::missingFoldersAreOwnerOnlyWhateverTheUmask()
{
    // Systems that give each user a private group use a umask of 002: the folders made on the way
    // to the root must not come out group-writable, or the next check would refuse them.
    const mode_t previous = umask(002);
    VaultManager vault(m_fixture.path(QStringLiteral("dados/Velmarin/area")));
    const bool unlocked = vault.unlock(m_fixture.container(), TestFiles::password());
    umask(previous);
    QVERIFY(unlocked);
    QCOMPARE(WorkspaceFixture::modeOf(m_fixture.path(QStringLiteral("dados"))) & 07777, mode_t(0700));
    QCOMPARE(WorkspaceFixture::modeOf(m_fixture.path(QStringLiteral("dados/Velmarin"))) & 07777,
             mode_t(0700));
    QCOMPARE(WorkspaceFixture::modeOf(m_fixture.path(QStringLiteral("dados/Velmarin/area"))) & 07777,
             mode_t(0700));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aLinkOfAnotherAccountOnTheWayIsRefused()
{
    // A shared folder (sticky, open to all) where another account put a link named like the way to
    // our root: following it would let that account choose where our copies go.
    const QString shared = m_fixture.path(QStringLiteral("sala"));
    const QString target = m_fixture.path(QStringLiteral("destino"));
    QVERIFY(QDir().mkdir(shared) && QDir().mkdir(target));
    QCOMPARE(chmod(QFile::encodeName(shared).constData(), 01777), 0);
    const QString link = shared + QStringLiteral("/atalho");
    QVERIFY(QFile::link(target, link));
    VaultManager ours(link + QStringLiteral("/area"));
    QVERIFY(ours.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(ours.lock());
    if (geteuid() != 0) {
        QTest::qSkip("giving a link to another account needs root", __FILE__, __LINE__);
        return;
    }
    QCOMPARE(lchown(QFile::encodeName(link).constData(), Nobody, Nobody), 0);
    VaultManager vault(link + QStringLiteral("/outra-area"));
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QVERIFY(!QFileInfo::exists(target + QStringLiteral("/outra-area")));
}

void TestPrivateWorkspace::foldersAnEditorRemadeAreRepaired()
{
    VaultManager vault(m_fixture.root());
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(vault, QStringLiteral("Docs/a.txt"), "a"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &local));
    const QString workspace = vault.workspaceDirectory();
    QVERIFY(vault.lock());
    // An editor left open saves after the lock and makes the folders again, with its own rights.
    QVERIFY(QDir().mkpath(QFileInfo(local).absolutePath()));
    QCOMPARE(chmod(QFile::encodeName(workspace).constData(), 0755), 0);
    QVERIFY(TestFiles::write(local, "salvo depois do bloqueio"));

    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.workspaceDirectory(), workspace);
    QCOMPARE(WorkspaceFixture::modeOf(workspace) & 07777, mode_t(0700));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(local));
    QVERIFY(vault.lock());
}

QTEST_GUILESS_MAIN(TestPrivateWorkspace)
#include "tst_privateworkspace.moc"
