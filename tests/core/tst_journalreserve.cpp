// The room a journal needs, held beside the container while a vault is open for changes, so that a
// drive filled to the last byte still takes renames, new folders and deletions.
#include "MountedDrive.h"
#include "TestFiles.h"
#include "VaultFixture.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"
#include "core/container/JournalReserve.h"
#include "core/vault/VaultManager.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

using namespace Velmarin;
using Core::Failure;
using Core::JournalReserve;
using Core::VaultManager;
using Tests::MountedDrive;
using Tests::TestFiles;
using Tests::VaultFixture;

namespace {

constexpr qint64 MiB = 1024 * 1024;

// Fills the drive holding folder until not one more byte is taken: large pieces, then single bytes.
bool fillDrive(const QString& folder)
{
    QFile filler(QDir(folder).filePath(QStringLiteral("enchimento.bin")));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered)) {
        return false;
    }
    const QByteArray piece(static_cast<int>(MiB), 'x');
    while (filler.write(piece) == piece.size()) {
    }
    int refused = 0;
    // A refused byte may be a short page the file system had left: try until it refuses for good.
    while (refused < 3) {
        refused = filler.write("x", 1) == 1 ? 0 : refused + 1;
    }
    return filler.size() > 0;
}

QByteArray headerBytes(const QString& container)
{
    QByteArray header;
    Core::ContainerFile().readHeaderBytes(container, header);
    return header;
}

} // namespace

class JournalReserveTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isHeldWhileTheVaultIsOpenForChangesOnly();
    void aReserveLeftByASessionThatNeverLockedIsTakenOver();
    void aFileOfItsNameThatNoReserveCouldBeIsLeftAlone();
    void recoveryNeverTakesTheReserveForAJournal();
    void aFullDriveStillTakesChangesToTheIndex();
    void aFullDriveWithoutAReserveRefusesWithNoSpaceAndLosesNothing();
};

void JournalReserveTest::isHeldWhileTheVaultIsOpenForChangesOnly()
{
    VaultFixture fixture;
    QVERIFY(fixture.setUp());
    const QString reserve = JournalReserve::pathFor(fixture.container());
    QCOMPARE(reserve, fixture.container() + QStringLiteral(".reserve"));
    QVERIFY(QFileInfo::exists(reserve));
    QCOMPARE(QFileInfo(reserve).size(), JournalReserve::sizeFor(headerBytes(fixture.container()).size()));
    QVERIFY(fixture.vault().createFolder(QStringLiteral("Fotos")));
    QVERIFY(QFileInfo::exists(reserve));
    QVERIFY(fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(reserve));

    VaultManager reader;
    QVERIFY(reader.unlock(fixture.container(), TestFiles::password(), VaultManager::Access::ReadOnly));
    QVERIFY(!QFileInfo::exists(reserve));
    QVERIFY(reader.lock());
}

void JournalReserveTest::aReserveLeftByASessionThatNeverLockedIsTakenOver()
{
    VaultFixture fixture;
    QVERIFY(fixture.setUp());
    const QString reserve = JournalReserve::pathFor(fixture.container());
    fixture.vault().lockKeepingEdits();
    QVERIFY(!QFileInfo::exists(reserve));
    // What a session cut off by a power cut leaves: a reserve of any size.
    QVERIFY(TestFiles::writePattern(reserve, 3 * MiB, 5));
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QCOMPARE(QFileInfo(reserve).size(), JournalReserve::sizeFor(headerBytes(fixture.container()).size()));
    QVERIFY(fixture.vault().lock());
    QVERIFY(!QFileInfo::exists(reserve));
}

void JournalReserveTest::aFileOfItsNameThatNoReserveCouldBeIsLeftAlone()
{
    VaultFixture fixture;
    QVERIFY(fixture.setUp());
    const QString reserve = JournalReserve::pathFor(fixture.container());
    QVERIFY(fixture.vault().lock());
    // A link someone put on the stick, to a file of theirs.
    const QString theirs = fixture.path(QStringLiteral("deles.txt"));
    QVERIFY(TestFiles::write(theirs, "conteúdo de outra pessoa"));
    QVERIFY(QFile::link(theirs, reserve));
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QVERIFY(fixture.vault().createFolder(QStringLiteral("Fotos")));
    QVERIFY(fixture.vault().lock());
    QVERIFY(QFileInfo(reserve).isSymLink());
    QCOMPARE(TestFiles::read(theirs), QByteArray("conteúdo de outra pessoa"));
    QCOMPARE(fixture.vault().recover(fixture.container()), VaultManager::Recovery::Nothing);
    QVERIFY(QFileInfo(reserve).isSymLink());
    QVERIFY(QFile::remove(reserve));

    // A file larger than any reserve, and a folder, are not one either.
    const QByteArray large = TestFiles::pattern(9 * MiB, 3);
    QVERIFY(TestFiles::write(reserve, large));
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QVERIFY(fixture.vault().lock());
    QCOMPARE(TestFiles::read(reserve), large);
    QVERIFY(QFile::remove(reserve));
    QVERIFY(QDir().mkdir(reserve));
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QVERIFY(fixture.vault().createFolder(QStringLiteral("Docs")));
    QVERIFY(fixture.vault().lock());
    QVERIFY(QFileInfo(reserve).isDir());
}

void JournalReserveTest::recoveryNeverTakesTheReserveForAJournal()
{
    VaultFixture fixture;
    QVERIFY(fixture.setUp());
    QVERIFY(fixture.importText(QStringLiteral("a.txt"), "antes"));
    QVERIFY(fixture.vault().lock());
    // A reserve holding a whole journal's bytes, of an older header, is still only a reserve.
    const QByteArray older = headerBytes(fixture.container());
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QVERIFY(fixture.vault().deleteFile(QStringLiteral("a.txt")));
    QVERIFY(fixture.vault().lock());
    const QByteArray current = TestFiles::read(fixture.container());
    QVERIFY(Core::ContainerJournal::forHeaderChange(older, older).write(fixture.container()));
    QVERIFY(QFile::rename(Core::ContainerJournal::pathFor(fixture.container()),
                          JournalReserve::pathFor(fixture.container())));

    QCOMPARE(fixture.vault().recover(fixture.container()), VaultManager::Recovery::Nothing);
    QCOMPARE(TestFiles::read(fixture.container()), current);
    QVERIFY(fixture.vault().unlock(fixture.container(), TestFiles::password()));
    QCOMPARE(fixture.vault().lastRecovery(), VaultManager::Recovery::Nothing);
    QVERIFY(VaultFixture::filePaths(fixture.vault().index()).isEmpty());
}

void JournalReserveTest::aFullDriveStillTakesChangesToTheIndex()
{
    MountedDrive drive(MountedDrive::Kind::Tmpfs, 24 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    const QString container = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    const QString source = drive.filePath(QStringLiteral("nota.txt"));
    QVERIFY(TestFiles::write(source, "uma nota"));
    QVERIFY(vault.importFile(source, QStringLiteral("nota.txt")));
    QVERIFY(QFile::remove(source));
    QVERIFY(fillDrive(drive.path()));

    QVERIFY2(vault.createFolder(QStringLiteral("Fotos")), qPrintable(vault.lastFailure().systemError));
    QVERIFY(vault.renameFile(QStringLiteral("nota.txt"), QStringLiteral("Fotos/nota antiga.txt")));
    // The reserve was taken back after each change, so the next one has it too.
    QVERIFY(JournalReserve::isHeld(container));
    QVERIFY(vault.createFolder(QStringLiteral("Vazia")));
    QVERIFY(vault.deleteEmptyFolder(QStringLiteral("Vazia")));
    QVERIFY(!QFileInfo::exists(Core::ContainerJournal::pathFor(container)));
    QVERIFY(vault.lock());

    QVERIFY(vault.unlock(container, TestFiles::password(), VaultManager::Access::ReadOnly));
    QCOMPARE(VaultFixture::filePaths(vault.index()), QStringList({QStringLiteral("Fotos/nota antiga.txt")}));
    QCOMPARE(VaultFixture::directoryPaths(vault.index()), QStringList({QStringLiteral("Fotos")}));
    QBuffer exported;
    QVERIFY(exported.open(QIODevice::WriteOnly));
    QVERIFY(vault.exportFile(QStringLiteral("Fotos/nota antiga.txt"), &exported));
    QCOMPARE(exported.data(), QByteArray("uma nota"));
}

void JournalReserveTest::aFullDriveWithoutAReserveRefusesWithNoSpaceAndLosesNothing()
{
    MountedDrive drive(MountedDrive::Kind::Tmpfs, 24 * MiB);
    if (!drive.isMounted()) {
        QTest::qSkip(qPrintable(drive.skipReason()), __FILE__, __LINE__);
        return;
    }
    const QString container = drive.filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    // Filled while the vault was locked: there is no room for a reserve at unlock.
    QVERIFY(fillDrive(drive.path()));
    const QByteArray before = TestFiles::read(container);
    VaultManager vault;
    QVERIFY(vault.unlock(container, TestFiles::password()));
    QVERIFY(!JournalReserve::isHeld(container));

    QVERIFY(!vault.createFolder(QStringLiteral("Fotos")));
    QCOMPARE(vault.lastFailure().reason, Failure::Reason::NoSpace);
    QCOMPARE(vault.lastFailure().path, container);
    QVERIFY(vault.index().directories().isEmpty());
    QVERIFY(!QFileInfo::exists(Core::ContainerJournal::pathFor(container)));
    QVERIFY(vault.lock());
    QCOMPARE(TestFiles::read(container), before);
}

QTEST_GUILESS_MAIN(JournalReserveTest)
#include "tst_journalreserve.moc"
