#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;
using Reason = Failure::Reason;

Q_DECLARE_METATYPE(Velmarin::Core::Failure::Reason)

namespace {

bool editCopy(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return TestFiles::write(path, text) && file.open(QIODevice::ReadWrite) &&
           file.setFileTime(QDateTime::currentDateTimeUtc().addSecs(10), QFileDevice::FileModificationTime);
}

// The container with its JSON's formatVersion set to version, same length, authentic otherwise.
QByteArray withFormatVersion(const QByteArray& container, char version)
{
    QByteArray changed = container;
    const QByteArray key = QByteArrayLiteral("\"formatVersion\":");
    qsizetype at = changed.indexOf(key);
    if (at < 0) {
        return {};
    }
    at += key.size();
    while (changed.at(at) == ' ') {
        ++at;
    }
    changed[at] = version;
    return changed;
}

} // namespace

// Every refusal of the engine names its reason, caused for real; the front ends word them.
class TestFailureReasons : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void unlockSaysWhy_data();
    void unlockSaysWhy();
    void aVanishedContainerIsNotAWrongPassword();
    void aContainerAnotherSessionHoldsIsInUse();
    void passwordRulesSayWhy();
    void entryChangesSayWhy();
    void newNamesFollowOneRule();
    void lockedAndReadOnlySessionsSayWhy();
    void importSaysWhy();
    void aFullDriveIsNoSpace();
    void aFailedHeaderWriteIsADriveWriteNotAnOpenFile();
    void exportSaysWhy();
    void lockThatCannotStoreAnEditKeepsTheVaultOpen();
    void successLeavesNoReason();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    VaultManager& vault() { return m_fixture.vault(); }

    VaultFixture m_fixture;
};

void TestFailureReasons::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("velmarin.vltx"), QStringLiteral("area")));
}

void TestFailureReasons::cleanup()
{
    m_fixture.tearDown();
}

void TestFailureReasons::unlockSaysWhy_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("password");
    QTest::addColumn<Reason>("reason");
    // Rows are made before init, so they start from a vault of their own.
    QTemporaryDir folder;
    const QString source = folder.filePath(QStringLiteral("modelo.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(source));
    const QByteArray vault = TestFiles::read(source);
    QVERIFY(!vault.isEmpty());
    QTest::newRow("random bytes") << TestFiles::pattern(9 * 1024 * 1024, 7) << TestFiles::password()
                                  << Reason::NotAContainer;
    QTest::newRow("empty file") << QByteArray() << TestFiles::password() << Reason::NotAContainer;
    QTest::newRow("newer magic") << QByteArray("VLTBOX4") + vault.mid(7) << TestFiles::password()
                                 << Reason::NewerFormat;
    QTest::newRow("newer formatVersion")
        << withFormatVersion(vault, '4') << TestFiles::password() << Reason::NewerFormat;
    QTest::newRow("wrong password") << vault << QByteArray("outra senha qualquer") << Reason::WrongPassword;
}

void TestFailureReasons::unlockSaysWhy()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, password);
    QFETCH(Reason, reason);
    const QString container = path(QStringLiteral("outro.vltx"));
    QVERIFY(TestFiles::write(container, bytes));
    VaultManager other;
    QVERIFY(!other.unlock(container, password));
    QVERIFY(!other.isUnlocked());
    QCOMPARE(other.lastFailure().reason, reason);
}

void TestFailureReasons::aVanishedContainerIsNotAWrongPassword()
{
    VaultManager other;
    QVERIFY(!other.unlock(path(QStringLiteral("sumiu.vltx")), TestFiles::password()));
    QCOMPARE(other.lastFailure().reason, Reason::ContainerMissing);
    QCOMPARE(other.lastFailure().path, path(QStringLiteral("sumiu.vltx")));
    // A folder where the container was is no container either, and no wrong password.
    QVERIFY(QDir().mkpath(path(QStringLiteral("pasta.vltx"))));
    QVERIFY(!other.unlock(path(QStringLiteral("pasta.vltx")), TestFiles::password()));
    QVERIFY(other.lastFailure().reason != Reason::WrongPassword);
}

void TestFailureReasons::aContainerAnotherSessionHoldsIsInUse()
{
    VaultManager other;
    QVERIFY(!other.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(other.lastFailure().reason, Reason::InUse);
    QVERIFY(!other.changePassword(m_fixture.container(), TestFiles::password(), "uma senha nova e longa"));
    QCOMPARE(other.lastFailure().reason, Reason::InUse);
}

void TestFailureReasons::passwordRulesSayWhy()
{
    VaultManager other;
    QVERIFY(!other.createVault(path(QStringLiteral("novo.vltx")), "curta"));
    QCOMPARE(other.lastFailure().reason, Reason::PasswordTooShort);
    QVERIFY(!QFileInfo::exists(path(QStringLiteral("novo.vltx"))));
    QVERIFY(
        VaultManager::isPasswordAcceptable(QString(VaultManager::MinimumPasswordLength, QLatin1Char('x'))));
    QVERIFY(!VaultManager::isPasswordAcceptable(
        QString(VaultManager::MinimumPasswordLength - 1, QLatin1Char('x'))));

    QVERIFY(vault().lock());
    QVERIFY(!vault().changePassword(m_fixture.container(), "não é esta senha", "uma senha nova e longa"));
    QCOMPARE(vault().lastFailure().reason, Reason::WrongPassword);
    QVERIFY(!vault().changePassword(m_fixture.container(), TestFiles::password(), "curta"));
    QCOMPARE(vault().lastFailure().reason, Reason::PasswordTooShort);
}

void TestFailureReasons::entryChangesSayWhy()
{
    QVERIFY(vault().createFolder(QStringLiteral("Docs")));
    QVERIFY(m_fixture.importText(QStringLiteral("Docs/a.txt"), "a"));
    QVERIFY(m_fixture.importText(QStringLiteral("b.txt"), "b"));

    QVERIFY(!vault().createFolder(QStringLiteral("DOCS")));
    QCOMPARE(vault().lastFailure().reason, Reason::AlreadyExists);
    QVERIFY(!vault().createFolder(QStringLiteral("b.txt/sub")));
    QCOMPARE(vault().lastFailure().reason, Reason::NameNotAllowed);
    QVERIFY(!vault().deleteEmptyFolder(QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::FolderNotEmpty);
    QVERIFY(!vault().deleteFile(QStringLiteral("nada.txt")));
    QCOMPARE(vault().lastFailure(), (Failure{Reason::NotFound, QStringLiteral("nada.txt"), QString()}));
    QVERIFY(!vault().moveFile(QStringLiteral("Docs/a.txt"), QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::SamePlace);
    QVERIFY(!vault().moveFile(QStringLiteral("b.txt"), QStringLiteral("Falta")));
    QCOMPARE(vault().lastFailure().reason, Reason::NotFound);
    QVERIFY(!vault().renameFolder(QStringLiteral("Docs"), QStringLiteral("Docs/Dentro")));
    QCOMPARE(vault().lastFailure().reason, Reason::SamePlace);
    QVERIFY(!vault().renameFile(QStringLiteral("b.txt"), QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::AlreadyExists);

    QString local;
    QVERIFY(vault().openForEdit(QStringLiteral("b.txt"), &local));
    QVERIFY(!vault().renameFile(QStringLiteral("b.txt"), QStringLiteral("c.txt")));
    QCOMPARE(vault().lastFailure(), (Failure{Reason::OpenForEditing, QStringLiteral("b.txt"), QString()}));
    QVERIFY(!vault().moveFile(QStringLiteral("b.txt"), QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::OpenForEditing);
    QVERIFY(!vault().openForEdit(QStringLiteral("nada.txt"), &local));
    QCOMPARE(vault().lastFailure().reason, Reason::NotFound);
}

void TestFailureReasons::newNamesFollowOneRule()
{
    QVERIFY(vault().createFolder(QStringLiteral("Docs")));
    QString joined;
    QVERIFY(vault().checkNewEntry(QStringLiteral("Docs"), QStringLiteral("novo.txt"), &joined));
    QCOMPARE(joined, QStringLiteral("Docs/novo.txt"));
    QCOMPARE(vault().lastFailure().reason, Reason::None);
    for (const QString& bad : {QStringLiteral("a/b"), QStringLiteral(".."), QStringLiteral("."),
                               QStringLiteral("a\\b"), QStringLiteral("  ")}) {
        QVERIFY2(!vault().checkNewEntry(QString(), bad, &joined), qPrintable(bad));
        QCOMPARE(vault().lastFailure().reason, Reason::NameNotAllowed);
    }
    QVERIFY(!vault().checkNewEntry(QString(), QStringLiteral("docs"), &joined));
    QCOMPARE(vault().lastFailure(), (Failure{Reason::AlreadyExists, QStringLiteral("docs"), QString()}));
    QVERIFY(vault().entryExists(QStringLiteral("DOCS")));
}

void TestFailureReasons::lockedAndReadOnlySessionsSayWhy()
{
    QVERIFY(vault().lock());
    QVERIFY(!vault().createFolder(QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::NotUnlocked);
    QVERIFY(!vault().exportFile(QStringLiteral("a.txt"), path(QStringLiteral("a.txt"))));
    QCOMPARE(vault().lastFailure().reason, Reason::NotUnlocked);

    QVERIFY(vault().unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QVERIFY(!vault().createFolder(QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::ReadOnly);
    QVERIFY(!vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault().lastFailure().reason, Reason::AlreadyUnlocked);
}

void TestFailureReasons::importSaysWhy()
{
    QVERIFY(!vault().importFile(path(QStringLiteral("falta.txt")), QStringLiteral("falta.txt")));
    QCOMPARE(vault().lastFailure().reason, Reason::SourceUnreadable);
    QCOMPARE(vault().lastFailure().path, path(QStringLiteral("falta.txt")));
    QVERIFY(!vault().importFile(path(QStringLiteral("area")), QStringLiteral("area")));
    QCOMPARE(vault().lastFailure().reason, Reason::SourceUnreadable);
    QVERIFY(vault().createFolder(QStringLiteral("Docs")));
    QVERIFY(TestFiles::write(path(QStringLiteral("docs")), "x"));
    QVERIFY(!vault().importFile(path(QStringLiteral("docs")), QStringLiteral("docs")));
    QCOMPARE(vault().lastFailure().reason, Reason::AlreadyExists);
}

void TestFailureReasons::aFullDriveIsNoSpace()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = path(QStringLiteral("grande.bin"));
    QVERIFY(TestFiles::writePattern(source, 3 * 1024 * 1024, 1));
    const qint64 before = QFileInfo(m_fixture.container()).size();
    {
        const FailureInjection full(m_fixture.container() + QLatin1Char('$'), "write", 1024 * 1024);
        QVERIFY(!vault().importFile(source, QStringLiteral("grande.bin")));
    }
    // The drive took the first megabyte and then no more: a short write the system gave no words for.
    QCOMPARE(vault().lastFailure().reason, Reason::NoSpace);
    QCOMPARE(vault().lastFailure().path, m_fixture.container());
    QCOMPARE(QFileInfo(m_fixture.container()).size(), before);
    QVERIFY(vault().index().files().isEmpty());
}

void TestFailureReasons::aFailedHeaderWriteIsADriveWriteNotAnOpenFile()
{
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    {
        // The drive stops taking data while the change is recorded: nothing is open for editing.
        const FailureInjection failing(m_fixture.container(), "fsync");
        QVERIFY(!vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("b.txt")));
    }
    QCOMPARE(vault().lastFailure().reason, Reason::DriveWrite);
    QCOMPARE(vault().lastFailure().path, m_fixture.container());
    QVERIFY(vault().fileExists(QStringLiteral("a.txt")));
}

void TestFailureReasons::exportSaysWhy()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "conteúdo de a"));
    QVERIFY(!vault().exportFile(QStringLiteral("a.txt"), path(QStringLiteral("falta/a.txt"))));
    QCOMPARE(vault().lastFailure().reason, Reason::DestinationUnwritable);
    QCOMPARE(vault().lastFailure().path, path(QStringLiteral("falta/a.txt")));
    QVERIFY(!vault().lastFailure().systemError.isEmpty());

    // A destination that stops taking bytes half-way is no damage in the vault.
    QVERIFY(TestFiles::writePattern(path(QStringLiteral("grande.bin")), 100 * 1024, 3));
    QVERIFY(vault().importFile(path(QStringLiteral("grande.bin")), QStringLiteral("grande.bin")));
    {
        const FailureInjection refusing(QStringLiteral("recusa.bin$"), "write");
        QVERIFY(!vault().exportFile(QStringLiteral("grande.bin"), path(QStringLiteral("recusa.bin"))));
    }
    QCOMPARE(vault().lastFailure().reason, Reason::DestinationUnwritable);
    QCOMPARE(vault().lastFailure().path, path(QStringLiteral("recusa.bin")));

    // One byte of a.txt's only block altered on the drive.
    const BlockEntry block = vault().index().findFile(QStringLiteral("a.txt"))->blocks.first();
    const qint64 at = block.offset + block.encryptedSize - 5;
    QFile container(m_fixture.container());
    QVERIFY(container.open(QIODevice::ReadWrite));
    QVERIFY(container.seek(at));
    const char original = container.read(1).at(0);
    QVERIFY(container.seek(at));
    QCOMPARE(container.write(QByteArray(1, char(original ^ 0x01))), 1);
    container.close();
    QVERIFY(!vault().exportFile(QStringLiteral("A.TXT"), path(QStringLiteral("a.txt"))));
    QCOMPARE(vault().lastFailure(), (Failure{Reason::Damaged, QStringLiteral("a.txt"), QString()}));
}

void TestFailureReasons::lockThatCannotStoreAnEditKeepsTheVaultOpen()
{
    QVERIFY(FailureInjection::isAvailable());
    QVERIFY(m_fixture.importText(QStringLiteral("nota.txt"), "antes"));
    QString local;
    QVERIFY(vault().openForEdit(QStringLiteral("nota.txt"), &local));
    QVERIFY(editCopy(local, "depois, editado"));
    {
        const FailureInjection full(m_fixture.container() + QLatin1Char('$'), "write");
        QVERIFY(!vault().lock());
    }
    QVERIFY(vault().isUnlocked());
    QCOMPARE(vault().lastFailure().reason, Reason::EditNotSaved);
    QCOMPARE(vault().lastFailure().path, QStringLiteral("nota.txt"));
    QCOMPARE(vault().lastFailure().cause, Reason::NoSpace);
    QVERIFY(QFileInfo::exists(local));

    // Once the drive takes data again, the same lock stores the edit.
    QVERIFY(vault().lock());
    QCOMPARE(vault().lastFailure().reason, Reason::None);
    QVERIFY(vault().unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("nota.txt")), QByteArray("depois, editado"));
}

void TestFailureReasons::successLeavesNoReason()
{
    QVERIFY(!vault().deleteFile(QStringLiteral("nada.txt")));
    QVERIFY(vault().lastFailure().reason != Reason::None);
    QVERIFY(vault().createFolder(QStringLiteral("Docs")));
    QCOMPARE(vault().lastFailure(), Failure());
}

QTEST_GUILESS_MAIN(TestFailureReasons)
#include "tst_failurereasons.moc"
