// Compaction on a real drive short of room: the old container goes before the new one is copied
// back, and a drive that does not tell its free space is tried beside the old container first.
#include "FailureInjection.h"
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/container/ContainerFile.h"
#include "core/container/ContainerJournal.h"
#include "core/container/ContainerLock.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace Velmarin;
using Tests::FailureInjection;
using Tests::MountedDrive;
using Tests::TestFiles;

namespace {

constexpr qint64 MiB = 1024 * 1024;

} // namespace

class CompactionRoomTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void aDriveWithRoomForOneContainerIsCompactedInTurn();
    void aDriveThatDoesNotTellItsRoomIsTriedBesideFirst();
    void aDriveThatDoesNotTellItsRoomAndHasNoneGoesInTurn();
    void noSessionOpensWhileAnotherSwapsTheContainerInTurn();

private:
    // A vault on a tmpfs of driveSize: a 20 MiB file deleted, an 8 MiB one kept.
    bool setUpDrive(qint64 driveSize);
    bool compactsAndKeepsTheFile();

    std::unique_ptr<QTemporaryDir> m_local;
    std::unique_ptr<MountedDrive> m_drive;
    std::unique_ptr<Core::VaultManager> m_vault;
    QString m_container;
    QString m_kept;
};

void CompactionRoomTest::initTestCase()
{
    QVERIFY(FailureInjection::isAvailable());
}

void CompactionRoomTest::init()
{
    m_local = std::make_unique<QTemporaryDir>();
    QVERIFY(m_local->isValid());
}

void CompactionRoomTest::cleanup()
{
    m_vault.reset();
    m_drive.reset();
    m_local.reset();
}

bool CompactionRoomTest::setUpDrive(qint64 driveSize)
{
    m_drive = std::make_unique<MountedDrive>(MountedDrive::Kind::Tmpfs, driveSize);
    if (!m_drive->isMounted()) {
        return false;
    }
    const QString gone = m_local->filePath(QStringLiteral("apagado.bin"));
    m_kept = m_local->filePath(QStringLiteral("mantido.bin"));
    m_container = m_drive->filePath(QStringLiteral("velmarin.vltx"));
    m_vault = std::make_unique<Core::VaultManager>();
    return TestFiles::writePattern(gone, 20 * MiB, 1) && TestFiles::writePattern(m_kept, 8 * MiB, 2) &&
           TestFiles::copyEmptyVault(m_container) && m_vault->unlock(m_container, TestFiles::password()) &&
           m_vault->importFile(gone, QStringLiteral("apagado.bin")) &&
           m_vault->importFile(m_kept, QStringLiteral("mantido.bin")) &&
           m_vault->deleteFile(QStringLiteral("apagado.bin"));
}

bool CompactionRoomTest::compactsAndKeepsTheFile()
{
    const qint64 before = QFileInfo(m_container).size();
    QString preserved;
    if (!m_vault->compactVault({}, &preserved) || !preserved.isEmpty() ||
        QFileInfo(m_container).size() >= before - 20 * MiB) {
        qWarning("compaction: reason %d, preserved '%s'", static_cast<int>(m_vault->lastFailure().reason),
                 qPrintable(preserved));
        return false;
    }
    const QString back = m_local->filePath(QStringLiteral("de-volta.bin"));
    return m_vault->exportFile(QStringLiteral("mantido.bin"), back) &&
           TestFiles::sameContents(back, m_kept) && m_vault->lock() &&
           m_drive->rootNames() == QStringList({QStringLiteral("velmarin.vltx")});
}

void CompactionRoomTest::aDriveWithRoomForOneContainerIsCompactedInTurn()
{
    // 36 MiB of container on 48 MiB: the 16 MiB compacted one fits only once the old one is gone,
    // which the session's own open lock on it must not keep on the drive.
    if (!setUpDrive(48 * MiB)) {
        QTest::qSkip(qPrintable(m_drive->skipReason()), __FILE__, __LINE__);
        return;
    }
    QVERIFY(compactsAndKeepsTheFile());
}

void CompactionRoomTest::aDriveThatDoesNotTellItsRoomIsTriedBesideFirst()
{
    if (!setUpDrive(96 * MiB)) {
        QTest::qSkip(qPrintable(m_drive->skipReason()), __FILE__, __LINE__);
        return;
    }
    // Removing the container, which only a swap in turn does, is refused: beside it must be.
    const FailureInjection injection(m_container + QLatin1Char('$'), "no-size,unlink");
    QVERIFY(compactsAndKeepsTheFile());
}

void CompactionRoomTest::aDriveThatDoesNotTellItsRoomAndHasNoneGoesInTurn()
{
    if (!setUpDrive(48 * MiB)) {
        QTest::qSkip(qPrintable(m_drive->skipReason()), __FILE__, __LINE__);
        return;
    }
    // The copy beside finds the drive full, is removed, and the swap in turn follows.
    const FailureInjection injection(QStringLiteral("no-such-file$"), "no-size");
    QVERIFY(compactsAndKeepsTheFile());
}

void CompactionRoomTest::noSessionOpensWhileAnotherSwapsTheContainerInTurn()
{
    const QString container = m_local->filePath(QStringLiteral("velmarin.vltx"));
    QVERIFY(TestFiles::copyEmptyVault(container));
    QByteArray header;
    QVERIFY(Core::ContainerFile().readHeaderBytes(container, header));
    // What a compaction elsewhere holds while it copies the new container into place.
    QVERIFY(Core::ContainerJournal::forCompaction(header, QFileInfo(container).size(), header,
                                                  QFileInfo(container).size(),
                                                  m_local->filePath(QStringLiteral("copia.vltx")))
                .write(container));
    Core::ContainerLock swapping;
    QCOMPARE(swapping.acquire(Core::ContainerJournal::pathFor(container)),
             Core::ContainerLock::Result::Acquired);
    for (const auto access : {Core::VaultManager::Access::ReadOnly, Core::VaultManager::Access::ReadWrite}) {
        Core::VaultManager other;
        QVERIFY(!other.unlock(container, TestFiles::password(), access));
        QCOMPARE(other.lastFailure().reason, Core::Failure::Reason::InUse);
    }
    swapping.release();
    // Once the swap is over, its journal is only stale.
    Core::VaultManager after;
    QVERIFY(after.unlock(container, TestFiles::password()));
    QVERIFY(!QFileInfo::exists(Core::ContainerJournal::pathFor(container)));
}

QTEST_GUILESS_MAIN(CompactionRoomTest)
#include "tst_compactionroom.moc"
