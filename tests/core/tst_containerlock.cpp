#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerBackup.h"
#include "core/container/ContainerLock.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

class TestContainerLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void secondSessionIsRefusedAndTheFirstCarriesOn();
    void readOnlySessionsAreRefusedToo();
    void lockingReleasesTheContainer();
    void failedUnlockLeavesNoLock();
    void passwordChangeAndBackupWaitForTheSession();
    void compactedContainerStaysLocked();
    void aKilledProcessLeavesNoLock();
    void missingContainerIsNotInUse();

private:
    VaultFixture m_fixture;
};

void TestContainerLock::init()
{
    QVERIFY(m_fixture.setUp());
}

void TestContainerLock::cleanup()
{
    m_fixture.tearDown();
}

void TestContainerLock::secondSessionIsRefusedAndTheFirstCarriesOn()
{
    QVERIFY(m_fixture.importText(QStringLiteral("antes.txt"), "antes"));
    QVERIFY(ContainerLock::isInUse(m_fixture.container()));

    VaultManager second;
    QVERIFY(!second.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(!second.isUnlocked());

    // The first session is not disturbed: it still changes and reads its vault.
    QVERIFY(m_fixture.importText(QStringLiteral("depois.txt"), "depois"));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Pasta")));
    QCOMPARE(m_fixture.exported(QStringLiteral("antes.txt")), QByteArray("antes"));
    QCOMPARE(m_fixture.exported(QStringLiteral("depois.txt")), QByteArray("depois"));
}

void TestContainerLock::readOnlySessionsAreRefusedToo()
{
    VaultManager reader;
    QVERIFY(!reader.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(reader.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    // A reader holds the container as firmly as a writer.
    QVERIFY(!m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(reader.lock());
}

void TestContainerLock::lockingReleasesTheContainer()
{
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "a"));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!ContainerLock::isInUse(m_fixture.container()));

    VaultManager second;
    QVERIFY(second.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(second.fileExists(QStringLiteral("a.txt")));
    QVERIFY(ContainerLock::isInUse(m_fixture.container()));
    QVERIFY(second.lock());
}

void TestContainerLock::failedUnlockLeavesNoLock()
{
    QVERIFY(m_fixture.vault().lock());
    VaultManager other;
    QVERIFY(!other.unlock(m_fixture.container(), QByteArray("senha errada de propósito")));
    QVERIFY(!ContainerLock::isInUse(m_fixture.container()));
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
}

void TestContainerLock::passwordChangeAndBackupWaitForTheSession()
{
    const QByteArray newPassword("outra senha bem longa");
    const QString backupPath = m_fixture.path(QStringLiteral("copia.vltx"));
    const QByteArray before = TestFiles::read(m_fixture.container());

    VaultManager other;
    QVERIFY(!other.changePassword(m_fixture.container(), TestFiles::password(), newPassword));
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    ContainerBackup refused(m_fixture.container(), backupPath);
    QVERIFY(!refused.openSource());

    QVERIFY(m_fixture.vault().lock());
    ContainerBackup backup(m_fixture.container(), backupPath);
    QVERIFY(backup.openSource());
    // The backup holds the container while it copies.
    QVERIFY(!other.changePassword(m_fixture.container(), TestFiles::password(), newPassword));
    QVERIFY(backup.openDestination());
    QVERIFY(backup.copy());
    QCOMPARE(TestFiles::read(backupPath), before);
}

void TestContainerLock::compactedContainerStaysLocked()
{
    QVERIFY(m_fixture.importText(QStringLiteral("fica.txt"), "fica"));
    QVERIFY(m_fixture.importText(QStringLiteral("sai.txt"), "sai"));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("sai.txt")));
    QString preserved;
    QVERIFY(m_fixture.vault().compactVault({}, &preserved));
    QVERIFY(preserved.isEmpty());

    // The rebuilt container is a new file; the lock is on it all the same.
    QVERIFY(ContainerLock::isInUse(m_fixture.container()));
    VaultManager second;
    QVERIFY(!second.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(m_fixture.exported(QStringLiteral("fica.txt")), QByteArray("fica"));
}

void TestContainerLock::aKilledProcessLeavesNoLock()
{
    QVERIFY(m_fixture.vault().lock());
    int ready[2];
    QCOMPARE(pipe(ready), 0);
    const QByteArray path = QFile::encodeName(m_fixture.container());
    const pid_t child = fork();
    QVERIFY(child >= 0);
    if (child == 0) {
        ContainerLock held;
        const char answer =
            held.acquire(QFile::decodeName(path)) == ContainerLock::Result::Acquired ? 'y' : 'n';
        [[maybe_unused]] const ssize_t written = write(ready[1], &answer, 1);
        pause();
        _exit(0);
    }
    close(ready[1]);
    char answer = 0;
    QCOMPARE(read(ready[0], &answer, 1), ssize_t(1));
    close(ready[0]);
    QCOMPARE(answer, 'y');
    QVERIFY(ContainerLock::isInUse(m_fixture.container()));
    VaultManager blocked;
    QVERIFY(!blocked.unlock(m_fixture.container(), TestFiles::password()));

    // A crash cannot release anything by itself: the system does.
    QCOMPARE(kill(child, SIGKILL), 0);
    int status = 0;
    QCOMPARE(waitpid(child, &status, 0), child);
    QVERIFY(!ContainerLock::isInUse(m_fixture.container()));
    QVERIFY(blocked.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(blocked.lock());
}

void TestContainerLock::missingContainerIsNotInUse()
{
    ContainerLock lock;
    QCOMPARE(lock.acquire(m_fixture.path(QStringLiteral("nada.vltx"))), ContainerLock::Result::Failed);
    QVERIFY(!lock.isHeld());
    QVERIFY(!ContainerLock::isInUse(m_fixture.path(QStringLiteral("nada.vltx"))));
}

QTEST_GUILESS_MAIN(TestContainerLock)
#include "tst_containerlock.moc"
