#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/vault/RollbackRecord.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

// This computer remembers the states it saw of each container, and an unlock that meets one of the
// earlier ones says so before anything is changed.
class TestRollbackRecord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void verdictsFollowWhatWasSeen();
    void onlyTheNewestStatesAreKept();
    void theRecordIsPrivateAndHoldsDigestsOnly();
    void aCarriedOverIdentityReadsEveryOldStateAsEarlier();
    void withoutARootNothingIsRecorded();
    void anOldCopyWrittenBackIsFoundEarlier();
    void anAcceptedEarlierStateIsNotFoundAgain();
    void aChangeMadeElsewhereIsNotEarlier();
    void aCompactionIsRemembered();
    void aReadOnlySessionFindsItToo();

private:
    // A manager keeping its states in the fixture's folder, like another window on this computer.
    std::unique_ptr<VaultManager> manager() const
    {
        return std::make_unique<VaultManager>(QString(), m_fixture.path(QStringLiteral("estados")));
    }
    // Unlocks container with a manager of this computer, returns whether it found an earlier state.
    bool unlockFindsEarlier(VaultManager::Access access = VaultManager::Access::ReadWrite);

    VaultFixture m_fixture;
};

void TestRollbackRecord::init()
{
    QVERIFY(m_fixture.setUp());
    QVERIFY(m_fixture.vault().lock());
}

void TestRollbackRecord::cleanup()
{
    m_fixture.tearDown();
}

bool TestRollbackRecord::unlockFindsEarlier(VaultManager::Access access)
{
    const auto vault = manager();
    if (!vault->unlock(m_fixture.container(), TestFiles::password(), access)) {
        return false;
    }
    const bool earlier = vault->foundEarlierState();
    vault->lock();
    return earlier;
}

void TestRollbackRecord::verdictsFollowWhatWasSeen()
{
    const RollbackRecord record(m_fixture.path(QStringLiteral("estados")));
    const QString id = QStringLiteral("0123456789abcdef0123456789abcdef");
    QCOMPARE(record.check(id, "aa"), RollbackRecord::Verdict::New);
    QVERIFY(record.remember(id, "aa"));
    QVERIFY(record.remember(id, "bb"));
    QCOMPARE(record.check(id, "bb"), RollbackRecord::Verdict::Latest);
    QCOMPARE(record.check(id, "aa"), RollbackRecord::Verdict::Earlier);
    QCOMPARE(record.check(id, "cc"), RollbackRecord::Verdict::New);
    // Another container's states are its own.
    QCOMPARE(record.check(QStringLiteral("fedcba9876543210fedcba9876543210"), "aa"),
             RollbackRecord::Verdict::New);
    // Accepting an earlier state makes it the newest.
    QVERIFY(record.remember(id, "aa"));
    QCOMPARE(record.check(id, "aa"), RollbackRecord::Verdict::Latest);
    QCOMPARE(record.check(id, "bb"), RollbackRecord::Verdict::Earlier);
    // An identity that could name a path is never used as a file name.
    QVERIFY(!record.remember(QStringLiteral("../fora"), "aa"));
    QVERIFY(!QFile::exists(m_fixture.path(QStringLiteral("fora"))));
}

void TestRollbackRecord::onlyTheNewestStatesAreKept()
{
    const RollbackRecord record(m_fixture.path(QStringLiteral("estados")));
    const QString id = QStringLiteral("0123456789abcdef0123456789abcdef");
    for (int state = 0; state <= RollbackRecord::MaxStates; ++state) {
        QVERIFY(record.remember(id, QByteArray::number(state)));
    }
    QCOMPARE(record.check(id, "0"), RollbackRecord::Verdict::New);
    QCOMPARE(record.check(id, "1"), RollbackRecord::Verdict::Earlier);
    QCOMPARE(record.check(id, QByteArray::number(RollbackRecord::MaxStates)),
             RollbackRecord::Verdict::Latest);
}

void TestRollbackRecord::theRecordIsPrivateAndHoldsDigestsOnly()
{
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.importText(QStringLiteral("Pasta secreta/nome revelador.txt"), "conteúdo"));
    QVERIFY(m_fixture.vault().lock());
    const auto vault = manager();
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->deleteFile(QStringLiteral("Pasta secreta/nome revelador.txt")));
    QVERIFY(vault->lock());

    const QDir states(m_fixture.path(QStringLiteral("estados")));
    const QStringList files = states.entryList(QDir::Files);
    QCOMPARE(files.size(), 1);
    const QFileInfo info(states.filePath(files.constFirst()));
    QCOMPARE(info.permissions() &
                 (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
             QFile::Permissions());
    QCOMPARE(QFileInfo(states.path()).permissions() & (QFile::ReadOther | QFile::ExeOther),
             QFile::Permissions());
    const QList<QByteArray> lines = TestFiles::read(info.filePath()).trimmed().split('\n');
    // The unlock's state and the deletion's.
    QCOMPARE(lines.size(), 2);
    const QRegularExpression digest(QStringLiteral("^[0-9a-f]{64}$"));
    for (const QByteArray& line : lines) {
        QVERIFY2(digest.match(QString::fromLatin1(line)).hasMatch(), line.constData());
    }
    // Keyed by the master key: not the plain digest of anything on the drive.
    const QByteArray onDrive = TestFiles::read(m_fixture.container());
    QVERIFY(!lines.contains(QCryptographicHash::hash(onDrive, QCryptographicHash::Sha256).toHex()));
}

void TestRollbackRecord::aCarriedOverIdentityReadsEveryOldStateAsEarlier()
{
    const RollbackRecord record(m_fixture.path(QStringLiteral("estados")));
    const QString oldId = QStringLiteral("0123456789abcdef0123456789abcdef");
    const QString newId = QStringLiteral("fedcba9876543210fedcba9876543210");
    QVERIFY(record.remember(oldId, "aa"));
    QVERIFY(record.remember(oldId, "bb"));
    QVERIFY(record.carryOver(oldId, newId));
    QCOMPARE(record.check(oldId, "bb"), RollbackRecord::Verdict::Earlier);
    QCOMPARE(record.check(oldId, "zz"), RollbackRecord::Verdict::Earlier);
    QCOMPARE(record.check(newId, "bb"), RollbackRecord::Verdict::Latest);
    QCOMPARE(record.check(newId, "aa"), RollbackRecord::Verdict::Earlier);
}

void TestRollbackRecord::withoutARootNothingIsRecorded()
{
    const RollbackRecord record;
    QVERIFY(!record.isEnabled());
    QVERIFY(!record.remember(QStringLiteral("0123456789abcdef0123456789abcdef"), "aa"));
    QCOMPARE(record.check(QStringLiteral("0123456789abcdef0123456789abcdef"), "aa"),
             RollbackRecord::Verdict::New);
}

void TestRollbackRecord::anOldCopyWrittenBackIsFoundEarlier()
{
    const auto vault = manager();
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(!vault->foundEarlierState());
    const QString source = m_fixture.path(QStringLiteral("a.txt"));
    QVERIFY(TestFiles::write(source, "conteúdo"));
    QVERIFY(vault->importFile(source, QStringLiteral("a.txt")));
    QVERIFY(vault->lock());
    const QByteArray withFile = TestFiles::read(m_fixture.container());
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->deleteFile(QStringLiteral("a.txt")));
    QVERIFY(vault->lock());

    // Someone writes the copy from before the deletion back over the container.
    QVERIFY(TestFiles::write(m_fixture.container(), withFile));
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->foundEarlierState());
    QVERIFY(vault->fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault->lock());
    QCOMPARE(TestFiles::read(m_fixture.container()), withFile);
    // Not accepted: found again.
    QVERIFY(unlockFindsEarlier());
}

void TestRollbackRecord::anAcceptedEarlierStateIsNotFoundAgain()
{
    QVERIFY(!unlockFindsEarlier());
    const QByteArray first = TestFiles::read(m_fixture.container());
    const auto vault = manager();
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->createFolder(QStringLiteral("Nova")));
    QVERIFY(vault->lock());
    QVERIFY(TestFiles::write(m_fixture.container(), first));
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->foundEarlierState());
    vault->acceptEarlierState();
    QVERIFY(!vault->foundEarlierState());
    QVERIFY(vault->lock());
    QVERIFY(!unlockFindsEarlier());
}

void TestRollbackRecord::aChangeMadeElsewhereIsNotEarlier()
{
    QVERIFY(!unlockFindsEarlier());
    // The fixture's own manager keeps no record: another computer, as far as this one knows.
    QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("De outro computador")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(!unlockFindsEarlier());
}

void TestRollbackRecord::aCompactionIsRemembered()
{
    const auto vault = manager();
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    const QString source = m_fixture.path(QStringLiteral("a.txt"));
    QVERIFY(TestFiles::write(source, "conteúdo"));
    QVERIFY(vault->importFile(source, QStringLiteral("a.txt")));
    QVERIFY(vault->deleteFile(QStringLiteral("a.txt")));
    QVERIFY(vault->lock());
    const QByteArray beforeCompaction = TestFiles::read(m_fixture.container());
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QString preserved;
    QVERIFY(vault->compactVault({}, &preserved));
    QVERIFY(vault->lock());
    QVERIFY(TestFiles::read(m_fixture.container()) != beforeCompaction);
    QVERIFY(!unlockFindsEarlier());
    QVERIFY(TestFiles::write(m_fixture.container(), beforeCompaction));
    QVERIFY(unlockFindsEarlier());
}

void TestRollbackRecord::aReadOnlySessionFindsItToo()
{
    const QByteArray first = TestFiles::read(m_fixture.container());
    QVERIFY(!unlockFindsEarlier());
    const auto vault = manager();
    QVERIFY(vault->unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault->createFolder(QStringLiteral("Nova")));
    QVERIFY(vault->lock());
    QVERIFY(TestFiles::write(m_fixture.container(), first));
    QVERIFY(unlockFindsEarlier(VaultManager::Access::ReadOnly));
    QCOMPARE(TestFiles::read(m_fixture.container()), first);
}

QTEST_GUILESS_MAIN(TestRollbackRecord)
#include "tst_rollbackrecord.moc"
