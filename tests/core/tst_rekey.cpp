// A password change with a re-key: the whole vault sealed again under a new master key, in a new
// container built like a compaction's, so no header of before opens what the container holds now.
#include "CompactionTemp.h"
#include "FailureInjection.h"
#include "FileSizeLimit.h"
#include "TestFiles.h"
#include "VaultContents.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/ProgressCallback.h"
#include "core/vault/VaultManager.h"

#include <QtTest>

using namespace Velmarin::Core;
using Velmarin::Tests::CompactionTemp;
using Velmarin::Tests::FailureInjection;
using Velmarin::Tests::FileSizeLimit;
using Velmarin::Tests::TestFiles;
using Velmarin::Tests::VaultContents;
using Velmarin::Tests::VaultFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;
const QByteArray NewPassword = QByteArrayLiteral("nova-senha-bem-longa");

QStringList nonces(const VaultIndex& index)
{
    QStringList all;
    for (const FileEntry& file : index.files()) {
        for (const BlockEntry& block : file.blocks) {
            all << QString::fromLatin1(block.nonce.toHex());
        }
    }
    return all;
}

} // namespace

class TestRekey : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void everyFileExportsTheSameAndDeadDataGoes();
    void anOldHeaderPastedBackOpensNothingOfToday();
    void withoutARekeyTheOldWrappingOpensToday();
    void anOldCopyStillOpensWithTheOldPasswordOnly();
    void aFailureBesideTheOldContainerKeepsIt_data();
    void aFailureBesideTheOldContainerKeepsIt();
    void aFileSizeLimitStopsTheBuildAndChangesNothing();
    void aDamagedBlockChangesNothingAndIsNamed();
    void aWrongPasswordOrAnOpenVaultChangesNothing();

private:
    QString path(const QString& name) const { return m_fixture.path(name); }
    QString container() const { return m_fixture.container(); }
    void importPattern(const QString& vaultPath, qint64 size, quint32 seed);
    // Three files and an empty folder, a fourth file deleted; the vault is left locked.
    void fillVaultAndLock();
    QStringList workFolders() const { return m_temp.workFolders(); }
    // Exports every file of a fresh session on containerPath and compares it with its source.
    void exportsEveryFile(const QString& containerPath, const QByteArray& password);
    bool rekey(QString* preserved = nullptr, QStringList* damaged = nullptr,
               const ProgressCallback& progress = {})
    {
        return m_fixture.vault().rekeyVault(container(), TestFiles::password(), NewPassword, progress,
                                            preserved, damaged);
    }

    VaultFixture m_fixture;
    CompactionTemp m_temp;
    // Vault path to the source its bytes came from.
    QMap<QString, QString> m_sources;
};

void TestRekey::init()
{
    QVERIFY(m_fixture.setUp(QStringLiteral("usb/velmarin.vltx")));
    QVERIFY(m_temp.set(path(QStringLiteral("tmp"))));
    m_sources.clear();
}

void TestRekey::cleanup()
{
    m_fixture.tearDown();
    m_temp.restore();
}

void TestRekey::importPattern(const QString& vaultPath, qint64 size, quint32 seed)
{
    const QString source = path(QStringLiteral("fonte-%1.bin").arg(seed));
    QVERIFY(TestFiles::writePattern(source, size, seed));
    QVERIFY(m_fixture.vault().importFile(source, vaultPath));
    m_sources.insert(vaultPath, source);
}

void TestRekey::fillVaultAndLock()
{
    importPattern(QStringLiteral("Fotos/grande.bin"), 5 * MiB, 1);
    importPattern(QStringLiteral("Fotos/pequeno.bin"), 1000, 2);
    importPattern(QStringLiteral("doc.bin"), 17 * MiB, 3);
    importPattern(QStringLiteral("carta.txt"), 300, 4);
    QVERIFY(m_fixture.vault().createFolder(QStringLiteral("Vazia")));
    QVERIFY(m_fixture.vault().deleteFile(QStringLiteral("Fotos/grande.bin")));
    m_sources.remove(QStringLiteral("Fotos/grande.bin"));
    QVERIFY(m_fixture.vault().lock());
}

void TestRekey::exportsEveryFile(const QString& containerPath, const QByteArray& password)
{
    const QString mismatch = VaultContents::mismatch(
        containerPath, password, m_sources, {QStringLiteral("Vazia")}, path(QStringLiteral("saida.bin")));
    QVERIFY2(mismatch.isEmpty(), qPrintable(mismatch));
}

void TestRekey::everyFileExportsTheSameAndDeadDataGoes()
{
    fillVaultAndLock();
    VaultManager before;
    QVERIFY(before.unlock(container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    const QStringList oldNonces = nonces(before.index());
    QStringList expectedLabels = VaultFixture::filePaths(before.index());
    expectedLabels << QStringLiteral("<troca>");
    qint64 liveBytes = 0;
    for (const FileEntry& file : before.index().files()) {
        for (const BlockEntry& block : file.blocks) {
            liveBytes += block.encryptedSize;
        }
    }
    before.lock();

    QStringList labels;
    QVERIFY(rekey(nullptr, nullptr, [&](qint64, qint64, const QString& label) {
        const QString shown = isContainerSwap(label) ? QStringLiteral("<troca>") : label;
        if (labels.isEmpty() || labels.constLast() != shown) {
            labels << shown;
        }
    }));
    QCOMPARE(labels, expectedLabels);
    // The deleted file's blocks are gone, and only they.
    QCOMPARE(QFileInfo(container()).size(), ContainerFile::PayloadOffset + liveBytes);
    QVERIFY(workFolders().isEmpty());
    QVERIFY(!QFile::exists(container() + QStringLiteral(".journal")));

    Failure failure;
    QVERIFY(!VaultContents::opens(container(), TestFiles::password(), &failure));
    QCOMPARE(failure.reason, Failure::Reason::WrongPassword);
    exportsEveryFile(container(), NewPassword);
    // Every block went under the new key with a nonce of its own.
    VaultManager after;
    QVERIFY(after.unlock(container(), NewPassword, VaultManager::Access::ReadOnly));
    const QStringList newNonces = nonces(after.index());
    QCOMPARE(newNonces.size(), oldNonces.size());
    for (const QString& nonce : newNonces) {
        QVERIFY(!oldNonces.contains(nonce));
    }
}

void TestRekey::anOldHeaderPastedBackOpensNothingOfToday()
{
    fillVaultAndLock();
    QByteArray oldHeaderRegion = TestFiles::read(container()).left(ContainerFile::PayloadOffset);
    ContainerHeader oldHeader;
    QVERIFY(ContainerFile().readHeader(container(), oldHeader));
    // Written after the old header was copied: what the attacker must not read.
    QVERIFY(m_fixture.vault().unlock(container(), TestFiles::password()));
    importPattern(QStringLiteral("depois.bin"), 2000, 9);
    QVERIFY(m_fixture.vault().lock());
    QVERIFY(rekey());
    const QByteArray today = TestFiles::read(container());

    // Only the old key wrapping spliced into today's header: the old password opens the old key,
    // which does not open today's index; the new password does not open the old wrapping.
    ContainerHeader spliced;
    QVERIFY(ContainerFile().readHeader(container(), spliced));
    spliced.crypto.kdf = oldHeader.crypto.kdf;
    spliced.crypto.kdfIterations = oldHeader.crypto.kdfIterations;
    spliced.crypto.salt = oldHeader.crypto.salt;
    spliced.crypto.nonce = oldHeader.crypto.nonce;
    spliced.crypto.encryptedMasterKey = oldHeader.crypto.encryptedMasterKey;
    QVERIFY(ContainerFile().rewriteHeader(container(), spliced));
    Failure failure;
    QVERIFY(!VaultContents::opens(container(), TestFiles::password(), &failure));
    QCOMPARE(failure.reason, Failure::Reason::Damaged);
    QVERIFY(!VaultContents::opens(container(), NewPassword, &failure));
    QCOMPARE(failure.reason, Failure::Reason::WrongPassword);

    // The whole old header region pasted over today's: the old password opens the old index, whose
    // blocks are not there under its key; nothing of today is named or read.
    QVERIFY(TestFiles::write(container(), today));
    QFile file(container());
    QVERIFY(file.open(QIODevice::ReadWrite));
    QCOMPARE(file.write(oldHeaderRegion), ContainerFile::PayloadOffset);
    file.close();
    QVERIFY(!VaultContents::opens(container(), NewPassword, &failure));
    QCOMPARE(failure.reason, Failure::Reason::WrongPassword);
    VaultManager attacker;
    if (attacker.unlock(container(), TestFiles::password(), VaultManager::Access::ReadOnly)) {
        QVERIFY(!attacker.fileExists(QStringLiteral("depois.bin")));
        for (const FileEntry& entry : attacker.index().files()) {
            QBuffer out;
            QVERIFY(out.open(QIODevice::WriteOnly));
            QVERIFY2(!attacker.exportFile(entry.vaultPath, &out), qPrintable(entry.vaultPath));
            QCOMPARE(attacker.lastFailure().reason, Failure::Reason::Damaged);
        }
        VerificationReport report;
        QVERIFY(attacker.verifyContents(report));
        QCOMPARE(report.damagedFiles.size(), attacker.index().files().size());
        attacker.lock();
    }
    // Today's bytes put back open with the new password as before.
    QVERIFY(TestFiles::write(container(), today));
    exportsEveryFile(container(), NewPassword);
}

void TestRekey::withoutARekeyTheOldWrappingOpensToday()
{
    // What the re-key is for: a plain change keeps the master key, so the old wrapping spliced back
    // reads what was written after the change.
    fillVaultAndLock();
    ContainerHeader oldHeader;
    QVERIFY(ContainerFile().readHeader(container(), oldHeader));
    QVERIFY(m_fixture.vault().changePassword(container(), TestFiles::password(), NewPassword));
    QVERIFY(m_fixture.vault().unlock(container(), NewPassword));
    importPattern(QStringLiteral("depois.bin"), 2000, 9);
    QVERIFY(m_fixture.vault().lock());
    ContainerHeader spliced;
    QVERIFY(ContainerFile().readHeader(container(), spliced));
    spliced.crypto.salt = oldHeader.crypto.salt;
    spliced.crypto.nonce = oldHeader.crypto.nonce;
    spliced.crypto.encryptedMasterKey = oldHeader.crypto.encryptedMasterKey;
    QVERIFY(ContainerFile().rewriteHeader(container(), spliced));
    exportsEveryFile(container(), TestFiles::password());
}

void TestRekey::anOldCopyStillOpensWithTheOldPasswordOnly()
{
    fillVaultAndLock();
    const QString copy = path(QStringLiteral("copia.vltx"));
    QVERIFY(QFile::copy(container(), copy));
    QVERIFY(rekey());
    // Expected, and what the window's text warns about: a copy keeps the key it had.
    exportsEveryFile(copy, TestFiles::password());
    Failure failure;
    QVERIFY(!VaultContents::opens(copy, NewPassword, &failure));
    QCOMPARE(failure.reason, Failure::Reason::WrongPassword);
    QVERIFY(!VaultContents::opens(container(), TestFiles::password(), &failure));
    QCOMPARE(failure.reason, Failure::Reason::WrongPassword);
}

void TestRekey::aFailureBesideTheOldContainerKeepsIt_data()
{
    QTest::addColumn<QString>("pathPart");
    QTest::addColumn<QByteArray>("calls");
    QTest::addColumn<qint64>("allowance");
    const QString replacement = QStringLiteral("usb/velmarin.vltx.new");
    QTest::newRow("the copy cannot be created") << replacement << QByteArray("open-write") << qint64(0);
    QTest::newRow("copy fails at the second piece") << replacement << QByteArray("write") << qint64(8388608);
    QTest::newRow("the copy cannot take the name") << replacement << QByteArray("rename") << qint64(0);
    QTest::newRow("the local disk fills up")
        << QStringLiteral("/Velmarin-compact-") << QByteArray("write") << qint64(9 * MiB);
}

void TestRekey::aFailureBesideTheOldContainerKeepsIt()
{
    QFETCH(QString, pathPart);
    QFETCH(QByteArray, calls);
    QFETCH(qint64, allowance);
    QVERIFY(FailureInjection::isAvailable());
    fillVaultAndLock();
    const QByteArray bytes = TestFiles::read(container());
    QString preserved = QStringLiteral("sobra");
    {
        const FailureInjection injection(pathPart, calls, allowance);
        QVERIFY(!rekey(&preserved));
    }
    QVERIFY(m_fixture.vault().lastFailure().reason != Failure::Reason::None);
    QVERIFY(preserved.isEmpty());
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(TestFiles::read(container()), bytes);
    QVERIFY(!QFile::exists(container() + QStringLiteral(".journal")));
    QVERIFY(!QFile::exists(container() + QStringLiteral(".new")));
    QVERIFY(!VaultContents::opens(container(), NewPassword));
    exportsEveryFile(container(), TestFiles::password());
}

void TestRekey::aFileSizeLimitStopsTheBuildAndChangesNothing()
{
    fillVaultAndLock();
    const QByteArray bytes = TestFiles::read(container());
    {
        // Every file this process writes stops short: the new container is never whole.
        const FileSizeLimit limit(ContainerFile::PayloadOffset + MiB);
        if (!limit.isSet()) {
            QTest::qSkip("no file size limit on this system", __FILE__, __LINE__);
            return;
        }
        QVERIFY(!rekey());
    }
    QVERIFY(m_fixture.vault().lastFailure().reason != Failure::Reason::None);
    QVERIFY(workFolders().isEmpty());
    QCOMPARE(TestFiles::read(container()), bytes);
    exportsEveryFile(container(), TestFiles::password());
}

void TestRekey::aDamagedBlockChangesNothingAndIsNamed()
{
    fillVaultAndLock();
    VaultManager reader;
    QVERIFY(reader.unlock(container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    const BlockEntry block = reader.index().findFile(QStringLiteral("doc.bin"))->blocks.at(1);
    reader.lock();
    QFile file(container());
    QVERIFY(file.open(QIODevice::ReadWrite));
    char byte = 0;
    QVERIFY(file.seek(block.offset + 100) && file.getChar(&byte));
    QVERIFY(file.seek(block.offset + 100) && file.putChar(static_cast<char>(byte ^ 0x01)));
    file.close();
    const QByteArray bytes = TestFiles::read(container());

    QStringList damaged;
    QVERIFY(!rekey(nullptr, &damaged));
    QCOMPARE(damaged, QStringList({QStringLiteral("doc.bin")}));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::Damaged);
    QCOMPARE(m_fixture.vault().lastFailure().path, QStringLiteral("doc.bin"));
    QCOMPARE(TestFiles::read(container()), bytes);
    QVERIFY(workFolders().isEmpty());
    QVERIFY(VaultContents::opens(container(), TestFiles::password()));
}

void TestRekey::aWrongPasswordOrAnOpenVaultChangesNothing()
{
    fillVaultAndLock();
    const QByteArray bytes = TestFiles::read(container());
    QVERIFY(!m_fixture.vault().rekeyVault(container(), "nao-e-a-senha", NewPassword, {}, nullptr));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::WrongPassword);
    QVERIFY(!m_fixture.vault().rekeyVault(container(), TestFiles::password(), "curta", {}, nullptr));
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::PasswordTooShort);
    QVERIFY(m_fixture.vault().unlock(container(), TestFiles::password()));
    QVERIFY(!rekey());
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::AlreadyUnlocked);
    QVERIFY(m_fixture.vault().lock());
    // Another session holds the container.
    VaultManager other;
    QVERIFY(other.unlock(container(), TestFiles::password()));
    QVERIFY(!rekey());
    QCOMPARE(m_fixture.vault().lastFailure().reason, Failure::Reason::InUse);
    QVERIFY(other.lock());
    QCOMPARE(TestFiles::read(container()), bytes);
    QVERIFY(workFolders().isEmpty());
}

QTEST_GUILESS_MAIN(TestRekey)
#include "tst_rekey.moc"
