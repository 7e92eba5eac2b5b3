// The workspace on a computer shared with other people: another account that owns or prepares the
// folders cannot read, plant or delete anything through them, and a session that died leaves
// nothing behind that the next unlock does not offer back or wipe.
#include "TestFiles.h"
#include "VaultManager.h"

#include <QtTest>

#include <csignal>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;

namespace {

constexpr uid_t Nobody = 65534;

bool touchLater(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

bool editCopy(const QString& path, const QByteArray& text)
{
    return TestFiles::write(path, text) && touchLater(path);
}

mode_t modeOf(const QString& path)
{
    struct stat info = {};
    return lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode : 0;
}

} // namespace

class TestPrivateWorkspace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aFolderAnotherUserOwnsIsRefused_data();
    void aFolderAnotherUserOwnsIsRefused();
    void aRootThatIsALinkIsRefused();
    void aRootOthersMayChangeIsRefused();
    void aSharedParentNeedsItsStickyBit();
    void aWorkspaceSwappedForALinkMidSessionIsNeverFollowed();
    void aLinkPlantedInsideIsRemovedNotFollowed();
    void openingAgainReplacesWhateverStoodThere();
    void vaultFilesNamedLikeTheWorkspacesOwnFiles();
    void editsOfAKilledSessionAreOfferedBack();
    void editsOfAKilledSessionCanBeDiscarded();
    void undecidedEditsWaitForTheNextUnlock();
    void unchangedCopiesOfAKilledSessionGoSilently();
    void lockKeepingEditsKeepsOnlyChangedCopies();
    void strayWorkspacesAreFoundAndRemoved();
    void aSessionWithoutRootTakesNoWorkspace();
    void missingFoldersAreOwnerOnlyWhateverTheUmask();
    void aLinkOfAnotherAccountOnTheWayIsRefused();
    void foldersAnEditorRemadeAreRepaired();
    void onlyChangedCopiesOutliveACrash();
    void aPendingEditIsNeverOpenedOver();
    void strayRemovalLeavesAWorkspaceInUse();

private:
    QString path(const QString& name) const { return m_dir->filePath(name); }
    QString root() const { return path(QStringLiteral("area")); }
    bool importText(VaultManager& vault, const QString& vaultPath, const QByteArray& text);
    QByteArray exported(VaultManager& vault, const QString& vaultPath);
    // Unlocks in a child process, opens name for editing, changes the copy and dies by SIGKILL.
    bool editAndDie(const QString& name, const QByteArray& edit);

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_container;
};

void TestPrivateWorkspace::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_container = path(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
}

void TestPrivateWorkspace::cleanup()
{
    m_dir.reset();
}

bool TestPrivateWorkspace::importText(VaultManager& vault, const QString& vaultPath, const QByteArray& text)
{
    const QString source = path(QStringLiteral("fonte"));
    return TestFiles::write(source, text) && vault.importFile(source, vaultPath);
}

QByteArray TestPrivateWorkspace::exported(VaultManager& vault, const QString& vaultPath)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    return vault.exportFile(vaultPath, &buffer) ? buffer.data() : QByteArray("<falhou>");
}

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
    const QString workspaceRoot =
        foreign == QLatin1String("area") ? root() : path(QStringLiteral("compartilhada/area"));
    const QString prepared = path(foreign);
    QVERIFY(QDir().mkdir(prepared, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QCOMPARE(chown(QFile::encodeName(prepared).constData(), Nobody, Nobody), 0);

    VaultManager vault(workspaceRoot);
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
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
    const QString target = path(QStringLiteral("alvo"));
    QVERIFY(QDir().mkdir(target, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    QVERIFY(QFile::link(target, root()));
    VaultManager vault(root());
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QCOMPARE(QDir(target).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

void TestPrivateWorkspace::aRootOthersMayChangeIsRefused()
{
    QVERIFY(QDir().mkdir(root()));
    QVERIFY(QFile::setPermissions(root(), QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                              QFileDevice::ExeOwner | QFileDevice::ReadOther |
                                              QFileDevice::ExeOther));
    VaultManager vault(root());
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QCOMPARE(QDir(root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

void TestPrivateWorkspace::aSharedParentNeedsItsStickyBit()
{
    // Anyone may write into the parent: without the sticky bit anyone could rename our root away.
    const QString parent = path(QStringLiteral("publica"));
    QVERIFY(QDir().mkdir(parent));
    QCOMPARE(chmod(QFile::encodeName(parent).constData(), 0777), 0);
    VaultManager vault(parent + QStringLiteral("/area"));
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());

    QCOMPARE(chmod(QFile::encodeName(parent).constData(), 01777), 0);
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::None);
    QCOMPARE(modeOf(parent + QStringLiteral("/area")) & 07777, mode_t(0700));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aWorkspaceSwappedForALinkMidSessionIsNeverFollowed()
{
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(importText(vault, QStringLiteral("a.txt"), "original"));
    QVERIFY(importText(vault, QStringLiteral("b.txt"), "outro"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &local));
    QVERIFY(editCopy(local, "a edição verdadeira"));

    // Someone moves the workspace aside and puts a link to a folder of the user's own in its place,
    // laid out like a workspace, with a copy of their choosing.
    const QString workspace = vault.workspaceDirectory();
    const QString victim = path(QStringLiteral("documentos-do-usuario"));
    QVERIFY(QDir().mkpath(victim + QStringLiteral("/files")));
    QVERIFY(TestFiles::write(victim + QStringLiteral("/files/a.txt"), "conteúdo plantado"));
    QVERIFY(touchLater(victim + QStringLiteral("/files/a.txt")));
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
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(exported(vault, QStringLiteral("a.txt")), QByteArray("a edição verdadeira"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aLinkPlantedInsideIsRemovedNotFollowed()
{
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(importText(vault, QStringLiteral("Docs/a.txt"), "a"));
    QVERIFY(importText(vault, QStringLiteral("Docs/b.txt"), "b"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &local));
    const QString files = vault.workspaceDirectory() + QStringLiteral("/files");

    const QString victim = path(QStringLiteral("pasta-do-usuario"));
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
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(importText(vault, QStringLiteral("a.txt"), "texto do cofre"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &local));
    const QString victim = path(QStringLiteral("arquivo-do-usuario"));
    QVERIFY(TestFiles::write(victim, "intocado"));
    QVERIFY(QFile::remove(local));
    QVERIFY(QFile::link(victim, local));

    QString again;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &again));
    QCOMPARE(again, local);
    QVERIFY(!QFileInfo(again).isSymLink());
    QCOMPARE(TestFiles::read(again), QByteArray("texto do cofre"));
    QCOMPARE(modeOf(again) & 07777, mode_t(0600));
    QCOMPARE(TestFiles::read(victim), QByteArray("intocado"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::vaultFilesNamedLikeTheWorkspacesOwnFiles()
{
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    const QStringList names = {QStringLiteral("lock"), QStringLiteral("manifest.json"),
                               QStringLiteral(".velmarin-workspace.lock"), QStringLiteral("files")};
    for (const QString& name : names) {
        QVERIFY(importText(vault, name, "texto de " + name.toUtf8()));
        QString local;
        QVERIFY(vault.openForEdit(name, &local));
        QVERIFY(editCopy(local, "editado: " + name.toUtf8()));
    }
    // The session's lock and manifest are still its own.
    const QString copy = path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(m_container, copy));
    VaultManager second(root());
    QVERIFY(!second.unlock(copy, TestFiles::password()));
    QCOMPARE(second.workspaceProblem(), Workspace::Problem::InUse);
    QVERIFY(second.lock());

    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    for (const QString& name : names) {
        QCOMPARE(exported(vault, name), "editado: " + name.toUtf8());
    }
    QVERIFY(vault.lock());
}

bool TestPrivateWorkspace::editAndDie(const QString& name, const QByteArray& edit)
{
    const pid_t child = fork();
    if (child == 0) {
        VaultManager vault(root());
        QString local;
        if (vault.unlock(m_container, TestFiles::password()) && vault.openForEdit(name, &local) &&
            editCopy(local, edit)) {
            raise(SIGKILL);
        }
        _exit(1);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFSIGNALED(status) &&
           WTERMSIG(status) == SIGKILL;
}

void TestPrivateWorkspace::editsOfAKilledSessionAreOfferedBack()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("Docs/a.txt"), "antes da queda"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("Docs/a.txt"), "escrito antes do kill -9"));

    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QCOMPARE(vault.leftoverEdits().at(0).vaultPath, QStringLiteral("Docs/a.txt"));
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(QFileInfo::exists(copy));
    QVERIFY(vault.bringBackLeftoverEdits());
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(copy));
    QCOMPARE(exported(vault, QStringLiteral("Docs/a.txt")), QByteArray("escrito antes do kill -9"));
    QVERIFY(vault.lock());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::editsOfAKilledSessionCanBeDiscarded()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "guardado"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("a.txt"), "descartado"));
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(vault.discardLeftoverEdits());
    QVERIFY(!QFileInfo::exists(copy));
    QCOMPARE(exported(vault, QStringLiteral("a.txt")), QByteArray("guardado"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::undecidedEditsWaitForTheNextUnlock()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "guardado"));
        QVERIFY(importText(vault, QStringLiteral("b.txt"), "b"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("a.txt"), "ainda não decidido"));
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("b.txt"), &local));
    // Locked before anyone answered: this session's copy goes, the earlier edit stays.
    QVERIFY(vault.lock());
    QVERIFY(!QFileInfo::exists(local));
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(exported(vault, QStringLiteral("a.txt")), QByteArray("ainda não decidido"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::unchangedCopiesOfAKilledSessionGoSilently()
{
    QString copy;
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "só lido"));
        QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &copy));
        // Destroyed without a lock, as a crash would leave it.
    }
    QVERIFY(QFileInfo::exists(copy));
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(copy));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::lockKeepingEditsKeepsOnlyChangedCopies()
{
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(importText(vault, QStringLiteral("a.txt"), "a"));
    QVERIFY(importText(vault, QStringLiteral("b.txt"), "b"));
    QString changed;
    QString unchanged;
    QVERIFY(vault.openForEdit(QStringLiteral("a.txt"), &changed));
    QVERIFY(vault.openForEdit(QStringLiteral("b.txt"), &unchanged));
    QVERIFY(editCopy(changed, "a mudado"));
    const QByteArray containerBefore = TestFiles::read(m_container);

    vault.lockKeepingEdits();
    QVERIFY(!vault.isUnlocked());
    QVERIFY(vault.index().files().isEmpty());
    QCOMPARE(TestFiles::read(m_container), containerBefore);
    QVERIFY(QFileInfo::exists(changed));
    QVERIFY(!QFileInfo::exists(unchanged));

    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QCOMPARE(vault.leftoverEdits().at(0).vaultPath, QStringLiteral("a.txt"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(exported(vault, QStringLiteral("a.txt")), QByteArray("a mudado"));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::strayWorkspacesAreFoundAndRemoved()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "a"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("a.txt"), "deixado para trás"));
    const QStringList stray = Workspace::strayWorkspaces(root());
    QCOMPARE(stray.size(), 1);

    // A workspace in use is nobody's leftover.
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(Workspace::strayWorkspaces(root()), QStringList());
    vault.lockKeepingEdits();
    QCOMPARE(Workspace::strayWorkspaces(root()), stray);

    QVERIFY(Workspace::removeStrayWorkspaces(root()));
    QCOMPARE(Workspace::strayWorkspaces(root()), QStringList());
    QVERIFY(!QFileInfo::exists(QDir(root()).filePath(stray.at(0))));
}

void TestPrivateWorkspace::aSessionWithoutRootTakesNoWorkspace()
{
    VaultManager vault;
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(vault.workspaceDirectory().isEmpty());
    QVERIFY(importText(vault, QStringLiteral("a.txt"), "a"));
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
    VaultManager vault(path(QStringLiteral("dados/Velmarin/area")));
    const bool unlocked = vault.unlock(m_container, TestFiles::password());
    umask(previous);
    QVERIFY(unlocked);
    QCOMPARE(modeOf(path(QStringLiteral("dados"))) & 07777, mode_t(0700));
    QCOMPARE(modeOf(path(QStringLiteral("dados/Velmarin"))) & 07777, mode_t(0700));
    QCOMPARE(modeOf(path(QStringLiteral("dados/Velmarin/area"))) & 07777, mode_t(0700));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aLinkOfAnotherAccountOnTheWayIsRefused()
{
    // A shared folder (sticky, open to all) where another account put a link named like the way to
    // our root: following it would let that account choose where our copies go.
    const QString shared = path(QStringLiteral("sala"));
    const QString target = path(QStringLiteral("destino"));
    QVERIFY(QDir().mkdir(shared) && QDir().mkdir(target));
    QCOMPARE(chmod(QFile::encodeName(shared).constData(), 01777), 0);
    const QString link = shared + QStringLiteral("/atalho");
    QVERIFY(QFile::link(target, link));
    VaultManager ours(link + QStringLiteral("/area"));
    QVERIFY(ours.unlock(m_container, TestFiles::password()));
    QVERIFY(ours.lock());
    if (geteuid() != 0) {
        QTest::qSkip("giving a link to another account needs root", __FILE__, __LINE__);
        return;
    }
    QCOMPARE(lchown(QFile::encodeName(link).constData(), Nobody, Nobody), 0);
    VaultManager vault(link + QStringLiteral("/outra-area"));
    QVERIFY(!vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceProblem(), Workspace::Problem::NotPrivate);
    QVERIFY(vault.lock());
    QVERIFY(!QFileInfo::exists(target + QStringLiteral("/outra-area")));
}

void TestPrivateWorkspace::foldersAnEditorRemadeAreRepaired()
{
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QVERIFY(importText(vault, QStringLiteral("Docs/a.txt"), "a"));
    QString local;
    QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &local));
    const QString workspace = vault.workspaceDirectory();
    QVERIFY(vault.lock());
    // An editor left open saves after the lock and makes the folders again, with its own rights.
    QVERIFY(QDir().mkpath(QFileInfo(local).absolutePath()));
    QCOMPARE(chmod(QFile::encodeName(workspace).constData(), 0755), 0);
    QVERIFY(TestFiles::write(local, "salvo depois do bloqueio"));

    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.workspaceDirectory(), workspace);
    QCOMPARE(modeOf(workspace) & 07777, mode_t(0700));
    QVERIFY(vault.leftoverEdits().isEmpty());
    QVERIFY(!QFileInfo::exists(local));
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::onlyChangedCopiesOutliveACrash()
{
    QString unchanged;
    QString backup;
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("Docs/a.txt"), "a"));
        QVERIFY(importText(vault, QStringLiteral("Docs/b.txt"), "segredo de b"));
        QString changed;
        QVERIFY(vault.openForEdit(QStringLiteral("Docs/a.txt"), &changed));
        QVERIFY(vault.openForEdit(QStringLiteral("Docs/b.txt"), &unchanged));
        QVERIFY(editCopy(changed, "a mudado"));
        // What an editor leaves beside the file it saves.
        backup = changed + QStringLiteral("~");
        QVERIFY(TestFiles::write(backup, "a"));
        // Destroyed without a lock, as a crash would leave it.
    }
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(!QFileInfo::exists(unchanged));
    QVERIFY(!QFileInfo::exists(backup));
    QVERIFY(vault.lock());
    // Still offered, and still the only copy.
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(vault.leftoverEdits().size(), 1);
    QVERIFY(!QFileInfo::exists(unchanged));
    QVERIFY(vault.discardLeftoverEdits());
    QVERIFY(vault.lock());
}

void TestPrivateWorkspace::aPendingEditIsNeverOpenedOver()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "no cofre"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("a.txt"), "editado e ainda não decidido"));
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
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

void TestPrivateWorkspace::strayRemovalLeavesAWorkspaceInUse()
{
    {
        VaultManager vault(root());
        QVERIFY(vault.unlock(m_container, TestFiles::password()));
        QVERIFY(importText(vault, QStringLiteral("a.txt"), "a"));
        QVERIFY(vault.lock());
    }
    QVERIFY(editAndDie(QStringLiteral("a.txt"), "em uso"));
    VaultManager vault(root());
    QVERIFY(vault.unlock(m_container, TestFiles::password()));
    const QString copy = vault.leftoverEdits().at(0).localPath;
    QVERIFY(Workspace::removeStrayWorkspaces(root()));
    QCOMPARE(TestFiles::read(copy), QByteArray("em uso"));
    QVERIFY(vault.bringBackLeftoverEdits());
    QCOMPARE(exported(vault, QStringLiteral("a.txt")), QByteArray("em uso"));
    QVERIFY(vault.lock());
    // Nothing of it is left, not even a renamed folder on its way out.
    QCOMPARE(QDir(root()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

QTEST_GUILESS_MAIN(TestPrivateWorkspace)
#include "tst_privateworkspace.moc"
