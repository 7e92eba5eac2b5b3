#include "FailureInjection.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"
#include "core/container/ContainerRecovery.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 HeaderStart = 7;

// The length line and JSON of the container at path, as the file holds them.
QByteArray headerOf(const QString& path)
{
    QByteArray header;
    return ContainerFile().readHeaderBytes(path, header) ? header : QByteArray("<ilegível>");
}

bool overwrite(const QString& path, qint64 offset, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::ReadWrite) && file.seek(offset) && file.write(bytes) == bytes.size();
}

// Where two headers first differ: a cut before it leaves the old header exactly as it was.
qsizetype firstDifference(const QByteArray& a, const QByteArray& b)
{
    qsizetype at = 0;
    while (at < a.size() && at < b.size() && a.at(at) == b.at(at)) {
        ++at;
    }
    return at;
}

// Writes the new header over the old one as a write cut short after `extra` bytes past the first
// byte that differs would have left it.
bool tear(const QString& container, const QByteArray& oldHeader, const QByteArray& newHeader, qsizetype extra)
{
    return overwrite(container, HeaderStart, newHeader.left(firstDifference(oldHeader, newHeader) + extra));
}

} // namespace

// A header rewritten in place is guarded by a journal beside the container until the new header is
// on the device; whatever a cut leaves, the next unlock (or recover) ends with a header that opens.
class TestHeaderJournal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void aFinishedChangeLeavesNoJournal();
    void aFailedHeaderWritePutsTheOldHeaderBack();
    void aSessionGetsPastAHeaderLeftTorn();
    void aFailedSyncLeavesAJournalTheNextUnlockClears();
    void aTornHeaderIsRestoredAtUnlock_data();
    void aTornHeaderIsRestoredAtUnlock();
    void aCutInTheZerosKeepsTheNewHeaderAndClearsTheRest();
    void aStaleJournalBesideTheOldHeaderIsRemoved();
    void aJournalBackBesideItsNewHeaderIsRemoved();
    void aTornJournalIsNeverBelieved();
    void aTornJournalBesideATornHeaderIsLeftAlone();
    void readOnlySessionsWriteNothing();
    void recoverNeedsNoPassword();
    void recoverLeavesATornIndexToThePassword();
    void aHeaderTornInItsKeyWrapIsRestoredWithoutAPassword();
    void aForgedJournalBesideASoundHeaderIsLeft();
    void aForgedJournalIsLeftByAPasswordChange();
    void aWrongPasswordLeavesATornIndexAndItsJournal();
    void aReadOnlySessionLeavesATornIndexAndItsJournal();
    void changePasswordRecoversFirst();
    void aCompactionJournalPutsTheLocalCopyBack();
    void aCompactionJournalBesideTheNewContainerIsStale();
    void aCompactionJournalBesideTheOldContainerIsStale();
    void aJournalNamingAForeignFileIsRefused();
    void anUnfinishedReplacementIsRemoved();
    void aWrongPasswordLeavesAFileNamedLikeAReplacementAlone();

private:
    // A vault with two files, a journal for renaming one of them, and the header bytes before and
    // after the rename. The container is left holding the old header.
    void prepareRename(QByteArray& oldHeader, QByteArray& newHeader);
    QString journal() const { return ContainerJournal::pathFor(m_fixture.container()); }
    QStringList onDrive() const;

    VaultFixture m_fixture;
};

void TestHeaderJournal::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("usb/velmarin.vltx")));
    QVERIFY(m_fixture.importText(QStringLiteral("a.txt"), "primeiro arquivo"));
    QVERIFY(m_fixture.importText(QStringLiteral("Pasta/b.txt"), "segundo arquivo"));
}

void TestHeaderJournal::cleanup()
{
    m_fixture.tearDown();
}

QStringList TestHeaderJournal::onDrive() const
{
    return QDir(QFileInfo(m_fixture.container()).absolutePath()).entryList(QDir::Files | QDir::Hidden);
}

void TestHeaderJournal::prepareRename(QByteArray& oldHeader, QByteArray& newHeader)
{
    oldHeader = headerOf(m_fixture.container());
    // Same length names: the torn header's JSON may then still parse, which must not fool recovery.
    QVERIFY(m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("c.txt")));
    newHeader = headerOf(m_fixture.container());
    QVERIFY(oldHeader != newHeader);
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(overwrite(m_fixture.container(), HeaderStart, oldHeader));
    QVERIFY(ContainerJournal::forHeaderChange(oldHeader, newHeader).write(m_fixture.container()));
}

void TestHeaderJournal::aFinishedChangeLeavesNoJournal()
{
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Nova")));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    // The reserve beside it holds the next journal's room while the vault is open.
    QCOMPARE(onDrive(),
             QStringList({QStringLiteral("velmarin.vltx"), QStringLiteral("velmarin.vltx.reserve")}));
}

void TestHeaderJournal::aFailedHeaderWritePutsTheOldHeaderBack()
{
    QVERIFY(FailureInjection::isAvailable());
    const QByteArray before = TestFiles::read(m_fixture.container());
    const QByteArray index = m_fixture.vault().index().toJson();
    {
        // The header write stops after 100 bytes; the write that puts the old one back succeeds.
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "write-once", 100);
        QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("Nova")));
    }
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QCOMPARE(onDrive(),
             QStringList({QStringLiteral("velmarin.vltx"), QStringLiteral("velmarin.vltx.reserve")}));
    QCOMPARE(m_fixture.vault().index().toJson(), index);
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Nova")));
}

void TestHeaderJournal::aSessionGetsPastAHeaderLeftTorn()
{
    QVERIFY(FailureInjection::isAvailable());
    {
        // The drive fails for good: neither the new header nor the old one goes back whole.
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "write", 100);
        QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("Nova")));
    }
    QVERIFY(QFile::exists(journal()));
    // Once the drive answers again, the open session puts the old header back before its next change.
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Outra")));
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(m_fixture.vault().lock());
    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(again.directoryExists(QStringLiteral("Outra")));
    QVERIFY(!again.directoryExists(QStringLiteral("Nova")));
    QCOMPARE(again.index().files().size(), 2);
    QVERIFY(again.lock());
}

void TestHeaderJournal::aFailedSyncLeavesAJournalTheNextUnlockClears()
{
    QVERIFY(FailureInjection::isAvailable());
    const QString source = m_fixture.path(QStringLiteral("fonte.bin"));
    QVERIFY(TestFiles::writePattern(source, 5000, 4));
    const qint64 sizeBefore = QFileInfo(m_fixture.container()).size();
    {
        // Every sync of the container fails, so neither header is known to be on the device.
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "fsync");
        QVERIFY(!m_fixture.vault().createFolder(QStringLiteral("Nova")));
        QVERIFY(QFile::exists(journal()));
    }
    {
        const FailureInjection injection(QStringLiteral("usb/velmarin.vltx$"), "fsync");
        QVERIFY(!m_fixture.vault().importFile(source, QStringLiteral("novo.bin")));
    }
    // The blocks were not even synced: the import was taken back before its header was written.
    QCOMPARE(QFileInfo(m_fixture.container()).size(), sizeBefore);
    QVERIFY(m_fixture.vault().lock());

    // The system did write the bytes: the journal is stale, and the vault opens as it stands.
    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::Nothing);
    QVERIFY(!QFile::exists(journal()));
    QStringList files = VaultFixture::filePaths(again.index());
    files.sort();
    QCOMPARE(files, QStringList({QStringLiteral("Pasta/b.txt"), QStringLiteral("a.txt")}));
    QVERIFY(again.lock());
}

void TestHeaderJournal::aTornHeaderIsRestoredAtUnlock_data()
{
    QTest::addColumn<bool>("sameLength");
    QTest::addColumn<int>("extra");
    QTest::newRow("inside the length line of a longer header") << false << 1;
    QTest::newRow("a longer header, cut in its JSON") << false << 300;
    QTest::newRow("same length, first changed byte only") << true << 1;
    QTest::newRow("same length, cut in the index, the JSON still parses") << true << 200;
}

void TestHeaderJournal::aTornHeaderIsRestoredAtUnlock()
{
    QFETCH(bool, sameLength);
    QFETCH(int, extra);
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    if (!sameLength) {
        // A longer name: the length line itself changes.
        newHeader = oldHeader;
        QVERIFY(m_fixture.vault().unlock(m_fixture.container(), TestFiles::password()));
        QVERIFY(
            m_fixture.vault().renameFile(QStringLiteral("a.txt"), QStringLiteral("um nome mais longo.txt")));
        newHeader = headerOf(m_fixture.container());
        QVERIFY(m_fixture.vault().lock());
        QVERIFY(
            overwrite(m_fixture.container(), HeaderStart, oldHeader + QByteArray(newHeader.size(), '\0')));
        QVERIFY(ContainerJournal::forHeaderChange(oldHeader, newHeader).write(m_fixture.container()));
        QVERIFY(firstDifference(oldHeader, newHeader) < 21);
    }
    const QByteArray before = TestFiles::read(m_fixture.container());
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, extra));
    QVERIFY(headerOf(m_fixture.container()) != oldHeader);
    QVERIFY(headerOf(m_fixture.container()) != newHeader);
    if (sameLength && extra == 200) {
        ContainerHeader parsed;
        QVERIFY(ContainerFile().readHeader(m_fixture.container(), parsed));
    }

    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::HeaderRestored);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(again.fileExists(QStringLiteral("a.txt")));
    QVERIFY(!again.fileExists(QStringLiteral("c.txt")));
    QVERIFY(again.lock());
}

void TestHeaderJournal::aCutInTheZerosKeepsTheNewHeaderAndClearsTheRest()
{
    const QByteArray longHeader = headerOf(m_fixture.container());
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Pasta/b.txt")));
    const QByteArray clean = TestFiles::read(m_fixture.container());
    const QByteArray shortHeader = headerOf(m_fixture.container());
    QVERIFY(m_fixture.vault().lock());
    // The new, shorter header is whole, but the zeros that should clear the old one's end never came.
    QVERIFY(overwrite(m_fixture.container(), HeaderStart, longHeader));
    QVERIFY(overwrite(m_fixture.container(), HeaderStart, shortHeader));
    QVERIFY(ContainerJournal::forHeaderChange(longHeader, shortHeader).write(m_fixture.container()));

    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::Nothing);
    QCOMPARE(TestFiles::read(m_fixture.container()), clean);
    QVERIFY(!again.fileExists(QStringLiteral("Pasta/b.txt")));
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(again.lock());
}

void TestHeaderJournal::aStaleJournalBesideTheOldHeaderIsRemoved()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    const QByteArray before = TestFiles::read(m_fixture.container());
    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.lastRecovery(), VaultManager::Recovery::Nothing);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(again.lock());
}

void TestHeaderJournal::aJournalBackBesideItsNewHeaderIsRemoved()
{
    // A finished change does not wait for its journal's removal: a cut may bring the journal back,
    // beside the header it names as new, after a batch appended more blocks past that header's.
    QVERIFY(FailureInjection::isAvailable());
    const QString source = m_fixture.path(QStringLiteral("fonte.bin"));
    QVERIFY(TestFiles::writePattern(source, 5000, 4));
    const QList<ImportItem> items = {{source, QStringLiteral("um.bin"), 5000, false},
                                     {source, QStringLiteral("dois.bin"), 5000, false}};
    {
        const FailureInjection injection(QStringLiteral(".journal"), "unlink");
        QVERIFY(m_fixture.vault().importBatch(items, {}, ImportBatch::Checkpoints{0, 1}).succeeded());
    }
    QVERIFY(QFile::exists(journal()));
    QVERIFY(m_fixture.vault().lock());
    QFile container(m_fixture.container());
    QVERIFY(container.open(QIODevice::Append) && container.write(QByteArray(70000, 'x')) == 70000);
    container.close();

    VaultManager again;
    QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(again.fileExists(QStringLiteral("um.bin")) && again.fileExists(QStringLiteral("dois.bin")));
    QVERIFY(again.lock());
}

void TestHeaderJournal::aTornJournalIsNeverBelieved()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    const QByteArray whole = TestFiles::read(journal());
    // Cut short, or one byte of the kept header altered: the digest no longer holds.
    for (const QByteArray& damaged : {whole.left(whole.size() / 2), QByteArray(whole).replace(200, 1, "#")}) {
        QVERIFY(TestFiles::write(journal(), damaged));
        ContainerJournal read;
        QVERIFY(!ContainerJournal::read(m_fixture.container(), read));
        VaultManager again;
        QVERIFY(again.unlock(m_fixture.container(), TestFiles::password()));
        QCOMPARE(again.lastRecovery(), VaultManager::Recovery::Nothing);
        QVERIFY(!QFile::exists(journal()));
        QVERIFY(again.fileExists(QStringLiteral("a.txt")));
        QVERIFY(again.lock());
    }
}

void TestHeaderJournal::aTornJournalBesideATornHeaderIsLeftAlone()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    QVERIFY(overwrite(m_fixture.container(), HeaderStart + 21, "{{{{"));
    const QByteArray container = TestFiles::read(m_fixture.container());
    const QByteArray torn = TestFiles::read(journal()).left(100);
    QVERIFY(TestFiles::write(journal(), torn));
    VaultManager again;
    QVERIFY(!again.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(again.recover(m_fixture.container()), VaultManager::Recovery::Failed);
    QCOMPARE(TestFiles::read(m_fixture.container()), container);
    QCOMPARE(TestFiles::read(journal()), torn);
}

void TestHeaderJournal::readOnlySessionsWriteNothing()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, 50));
    const QByteArray container = TestFiles::read(m_fixture.container());
    const QByteArray kept = TestFiles::read(journal());
    VaultManager reader;
    QVERIFY(!reader.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QCOMPARE(TestFiles::read(m_fixture.container()), container);
    QCOMPARE(TestFiles::read(journal()), kept);
}

void TestHeaderJournal::recoverNeedsNoPassword()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    const QByteArray before = TestFiles::read(m_fixture.container());
    // Cut inside the JSON's closing: the header no longer reads.
    QVERIFY(overwrite(m_fixture.container(), HeaderStart, newHeader.left(newHeader.size() - 2)));
    QVERIFY(overwrite(m_fixture.container(), HeaderStart + newHeader.size() - 2, "@@"));
    ContainerHeader parsed;
    QVERIFY(!ContainerFile().readHeader(m_fixture.container(), parsed));
    VaultManager vault;
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::HeaderRestored);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::Nothing);
    // Never while a vault is open: its session is the one that may be writing.
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::Failed);
    QVERIFY(vault.lock());
}

void TestHeaderJournal::recoverLeavesATornIndexToThePassword()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    const QByteArray before = TestFiles::read(m_fixture.container());
    // Torn inside the index: the header reads, and without the password nothing tells this cut
    // from a journal someone put beside a header that is whole.
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, 30));
    const QByteArray torn = TestFiles::read(m_fixture.container());
    const QByteArray journalBytes = TestFiles::read(journal());
    VaultManager vault;
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::JournalLeft);
    QCOMPARE(TestFiles::read(m_fixture.container()), torn);
    QCOMPARE(TestFiles::read(journal()), journalBytes);
    // The password opens the master key but not the index: the journal is the user's own.
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.lastRecovery(), VaultManager::Recovery::HeaderRestored);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(vault.fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault.lock());
}

void TestHeaderJournal::aHeaderTornInItsKeyWrapIsRestoredWithoutAPassword()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    const QByteArray before = TestFiles::read(m_fixture.container());
    // Zeros where the wrapped key's text was: the JSON may still read, but no password opens it.
    const qsizetype wrapAt = newHeader.indexOf("\"encryptedMasterKey\":\"") + 22;
    QVERIFY(wrapAt > 22);
    QVERIFY(overwrite(m_fixture.container(), HeaderStart, newHeader));
    QVERIFY(overwrite(m_fixture.container(), HeaderStart + wrapAt + 10, QByteArray(4, '\0')));
    VaultManager vault;
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::HeaderRestored);
    QCOMPARE(TestFiles::read(m_fixture.container()), before);
    QVERIFY(!QFile::exists(journal()));
}

void TestHeaderJournal::aForgedJournalBesideASoundHeaderIsLeft()
{
    // Someone with the drive kept today's header from before a.txt was deleted, and puts it back as
    // the old header of a change that never happened.
    const QByteArray earlier = headerOf(m_fixture.container());
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(ContainerJournal::forHeaderChange(earlier, "um cabeçalho que nunca existiu")
                .write(m_fixture.container()));
    const QByteArray today = TestFiles::read(m_fixture.container());
    const QByteArray forged = TestFiles::read(journal());

    VaultManager vault;
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QCOMPARE(vault.lastRecovery(), VaultManager::Recovery::JournalLeft);
    QVERIFY(!vault.fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(m_fixture.container()), today);
    QCOMPARE(TestFiles::read(journal()), forged);
    QCOMPARE(vault.recover(m_fixture.container()), VaultManager::Recovery::JournalLeft);
    QCOMPARE(TestFiles::read(m_fixture.container()), today);
    QCOMPARE(TestFiles::read(journal()), forged);

    // Applied only when the user says the journal is theirs.
    QCOMPARE(vault.recover(m_fixture.container(), true), VaultManager::Recovery::HeaderRestored);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(vault.unlock(m_fixture.container(), TestFiles::password()));
    QVERIFY(vault.fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault.lock());
}

void TestHeaderJournal::aForgedJournalIsLeftByAPasswordChange()
{
    const QByteArray earlier = headerOf(m_fixture.container());
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(ContainerJournal::forHeaderChange(earlier, "forjado").write(m_fixture.container()));
    const QByteArray newPassword = "outra senha bem longa";
    VaultManager vault;
    QVERIFY(vault.changePassword(m_fixture.container(), TestFiles::password(), newPassword));
    QCOMPARE(vault.lastRecovery(), VaultManager::Recovery::JournalLeft);
    QVERIFY(vault.unlock(m_fixture.container(), newPassword));
    QVERIFY(!vault.fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault.fileExists(QStringLiteral("Pasta/b.txt")));
    QVERIFY(vault.lock());
}

void TestHeaderJournal::aWrongPasswordLeavesATornIndexAndItsJournal()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, 30));
    const QByteArray torn = TestFiles::read(m_fixture.container());
    const QByteArray journalBytes = TestFiles::read(journal());
    VaultManager vault;
    QVERIFY(!vault.unlock(m_fixture.container(), "uma senha que não é esta"));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::WrongPassword);
    QVERIFY(
        !vault.changePassword(m_fixture.container(), "uma senha que não é esta", "outra senha bem longa"));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::WrongPassword);
    QCOMPARE(TestFiles::read(m_fixture.container()), torn);
    QCOMPARE(TestFiles::read(journal()), journalBytes);
}

void TestHeaderJournal::aReadOnlySessionLeavesATornIndexAndItsJournal()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, 30));
    const QByteArray torn = TestFiles::read(m_fixture.container());
    VaultManager vault;
    QVERIFY(!vault.unlock(m_fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::Damaged);
    QCOMPARE(TestFiles::read(m_fixture.container()), torn);
    QVERIFY(QFile::exists(journal()));
}

void TestHeaderJournal::changePasswordRecoversFirst()
{
    QByteArray oldHeader;
    QByteArray newHeader;
    prepareRename(oldHeader, newHeader);
    QVERIFY(tear(m_fixture.container(), oldHeader, newHeader, 30));
    const QByteArray newPassword = "outra senha bem longa";
    VaultManager vault;
    QVERIFY(vault.changePassword(m_fixture.container(), TestFiles::password(), newPassword));
    QCOMPARE(vault.lastRecovery(), VaultManager::Recovery::HeaderRestored);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(vault.unlock(m_fixture.container(), newPassword));
    QVERIFY(vault.fileExists(QStringLiteral("a.txt")));
    QVERIFY(vault.lock());
}

void TestHeaderJournal::aCompactionJournalPutsTheLocalCopyBack()
{
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(m_fixture.vault().lock());
    const QByteArray oldHeader = headerOf(container);
    const qint64 oldSize = QFileInfo(container).size();
    // The compacted copy: here simply the container as it stands, in a work folder of compaction's.
    const QString folder = m_fixture.path(QStringLiteral("tmp/Velmarin-compact-abc123"));
    QVERIFY(QDir().mkpath(folder));
    const QString copy = folder + QStringLiteral("/velmarin.vltx");
    QVERIFY(QFile::copy(container, copy));
    QVERIFY(m_fixture.vault().unlock(container, TestFiles::password()));
    QVERIFY(m_fixture.vault().renameFile(QStringLiteral("Pasta/b.txt"), QStringLiteral("Pasta/d.txt")));
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(QFile::remove(copy) && QFile::copy(container, copy));
    const QByteArray compacted = TestFiles::read(copy);
    QVERIFY(overwrite(container, HeaderStart, oldHeader));
    QVERIFY(ContainerJournal::forCompaction(oldHeader, oldSize, headerOf(copy), compacted.size(), copy)
                .write(container));

    // The copy onto the drive was cut ten bytes short of the end; then with no container at all.
    for (const bool partial : {true, false}) {
        if (partial) {
            QVERIFY(TestFiles::write(container, compacted.left(compacted.size() - 10)));
        } else {
            QVERIFY(QFile::remove(container));
        }
        QVERIFY(QFile::copy(copy, m_fixture.path(QStringLiteral("guardada.vltx"))));
        VaultManager again;
        QVERIFY(again.unlock(container, TestFiles::password()));
        QCOMPARE(again.lastRecovery(), VaultManager::Recovery::ContainerRestored);
        QCOMPARE(TestFiles::read(container), compacted);
        QVERIFY(!QFile::exists(journal()));
        QVERIFY(!QDir(folder).exists());
        QVERIFY(again.fileExists(QStringLiteral("Pasta/d.txt")));
        QVERIFY(again.lock());
        // Set the scene again for the second round.
        QVERIFY(QDir().mkpath(folder));
        QVERIFY(QFile::rename(m_fixture.path(QStringLiteral("guardada.vltx")), copy));
        QVERIFY(ContainerJournal::forCompaction(oldHeader, oldSize, headerOf(copy), compacted.size(), copy)
                    .write(container));
    }
}

void TestHeaderJournal::aCompactionJournalBesideTheNewContainerIsStale()
{
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().lock());
    const QString folder = m_fixture.path(QStringLiteral("tmp/Velmarin-compact-x1"));
    QVERIFY(QDir().mkpath(folder));
    const QString copy = folder + QStringLiteral("/velmarin.vltx");
    QVERIFY(QFile::copy(container, copy));
    const QByteArray bytes = TestFiles::read(container);
    QVERIFY(
        ContainerJournal::forCompaction("antigo", 1, headerOf(copy), bytes.size(), copy).write(container));
    VaultManager vault;
    QCOMPARE(vault.recover(container), VaultManager::Recovery::Nothing);
    QCOMPARE(TestFiles::read(container), bytes);
    QVERIFY(!QFile::exists(journal()));
    QVERIFY(!QDir(folder).exists());
}

void TestHeaderJournal::aCompactionJournalBesideTheOldContainerIsStale()
{
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().lock());
    const QByteArray bytes = TestFiles::read(container);
    QVERIFY(ContainerJournal::forCompaction(
                headerOf(container), bytes.size(), "novo", 9,
                m_fixture.path(QStringLiteral("tmp/Velmarin-compact-x2/velmarin.vltx")))
                .write(container));
    VaultManager vault;
    QCOMPARE(vault.recover(container), VaultManager::Recovery::Nothing);
    QCOMPARE(TestFiles::read(container), bytes);
    QVERIFY(!QFile::exists(journal()));
}

void TestHeaderJournal::aJournalNamingAForeignFileIsRefused()
{
    // A journal is read from a drive anyone may have written: it cannot make Velmarin copy an
    // arbitrary local file onto the drive, even one that is a container.
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().lock());
    const QString foreign = m_fixture.path(QStringLiteral("documentos/velmarin.vltx"));
    QVERIFY(QDir().mkpath(QFileInfo(foreign).absolutePath()));
    QVERIFY(QFile::copy(container, foreign));
    QVERIFY(QFile::remove(container));
    QVERIFY(
        ContainerJournal::forCompaction("antigo", 1, headerOf(foreign), QFileInfo(foreign).size(), foreign)
            .write(container));
    VaultManager vault;
    QCOMPARE(vault.recover(container), VaultManager::Recovery::Failed);
    QVERIFY(!QFile::exists(container));
    QVERIFY(QFile::exists(foreign));
    QVERIFY(QFile::exists(journal()));
}

void TestHeaderJournal::anUnfinishedReplacementIsRemoved()
{
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().lock());
    const QByteArray bytes = TestFiles::read(container);
    QVERIFY(TestFiles::write(ContainerRecovery::replacementPathFor(container), bytes.left(1000)));
    VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QCOMPARE(vault.lastRecovery(), VaultManager::Recovery::Nothing);
    QCOMPARE(onDrive(),
             QStringList({QStringLiteral("velmarin.vltx"), QStringLiteral("velmarin.vltx.reserve")}));
    QCOMPARE(TestFiles::read(container), bytes);
    QVERIFY(vault.lock());
    QCOMPARE(onDrive(), QStringList({QStringLiteral("velmarin.vltx")}));
}

void TestHeaderJournal::aWrongPasswordLeavesAFileNamedLikeAReplacementAlone()
{
    // Until a password opens the vault, a file beside it is nobody's business but its owner's.
    const QString container = m_fixture.container();
    QVERIFY(m_fixture.vault().lock());
    const QString replacement = ContainerRecovery::replacementPathFor(container);
    QVERIFY(TestFiles::write(replacement, "um arquivo meu"));
    VaultManager vault;
    QVERIFY(!vault.unlock(container, QByteArrayLiteral("uma senha errada qualquer")));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::WrongPassword);
    QCOMPARE(TestFiles::read(replacement), QByteArray("um arquivo meu"));
    QVERIFY(vault.unlock(container, TestFiles::password(), VaultManager::Access::ReadOnly));
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(replacement), QByteArray("um arquivo meu"));
}

QTEST_GUILESS_MAIN(TestHeaderJournal)
#include "tst_headerjournal.moc"
