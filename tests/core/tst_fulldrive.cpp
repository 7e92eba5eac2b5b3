// A stick filled to the last byte while the vault is open: what needs room is refused as NoSpace
// and changes nothing, what needs none loses nothing either way, and every file still comes out.
#include "MountedDrive.h"
#include "TestFiles.h"
#include "core/container/DriveSpace.h"
#include "core/vault/VaultManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

using namespace Velmarin;
using Core::Failure;
using Core::VaultManager;
using Tests::MountedDrive;
using Tests::TestFiles;

namespace {

constexpr qint64 KiB = 1024;
constexpr qint64 MiB = 1024 * KiB;

// Writes path until the drive refuses even one byte; the errno of that refusal.
int fillUp(const QString& path)
{
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) {
        return errno;
    }
    const QByteArray chunk(64 * KiB, 'x');
    int refusal = 0;
    for (const qsizetype piece : {chunk.size(), qsizetype(1)}) {
        for (;;) {
            const ssize_t written = ::write(fd, chunk.constData(), static_cast<size_t>(piece));
            if (written < 0) {
                refusal = errno;
                break;
            }
        }
    }
    ::fsync(fd);
    ::close(fd);
    return refusal;
}

} // namespace

class FullDriveTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void anImportOnTheFullDriveIsRefusedAndChangesNothing();
    void anIndexOnlyChangeOnTheFullDriveLosesNothing_data();
    void anIndexOnlyChangeOnTheFullDriveLosesNothing();

private:
    bool fillTheDrive();
    bool everyFileExports(const QMap<QString, QString>& files);

    std::unique_ptr<QTemporaryDir> m_local;
    std::unique_ptr<MountedDrive> m_drive;
    QString m_container;
    QString m_filler;
    // Vault path to the file it was imported from.
    QMap<QString, QString> m_files;
    VaultManager m_vault;
};

void FullDriveTest::init()
{
    m_local = std::make_unique<QTemporaryDir>();
    QVERIFY(m_local->isValid());
    m_drive = std::make_unique<MountedDrive>(MountedDrive::Kind::Tmpfs, 48 * MiB);
    if (!m_drive->isMounted()) {
        QTest::qSkip(qPrintable(m_drive->skipReason()), __FILE__, __LINE__);
        return;
    }
    m_container = VaultManager::containerPathOn(m_drive->path());
    m_filler = m_drive->filePath(QStringLiteral("enchimento.bin"));
    QVERIFY(TestFiles::copyEmptyVault(m_container));
    m_files = {{QStringLiteral("Docs/carta.txt"), m_local->filePath(QStringLiteral("carta.txt"))},
               {QStringLiteral("foto.jpg"), m_local->filePath(QStringLiteral("foto.jpg"))},
               {QStringLiteral("vazio.txt"), m_local->filePath(QStringLiteral("vazio.txt"))}};
    QVERIFY(TestFiles::writePattern(m_files.value(QStringLiteral("Docs/carta.txt")), 5 * KiB + 7, 1));
    QVERIFY(TestFiles::writePattern(m_files.value(QStringLiteral("foto.jpg")), 2 * MiB + 11, 2));
    QVERIFY(TestFiles::write(m_files.value(QStringLiteral("vazio.txt")), QByteArray()));
    QVERIFY(m_vault.unlock(m_container, TestFiles::password()));
    QVERIFY(m_vault.createFolder(QStringLiteral("Docs")));
    QVERIFY(m_vault.createFolder(QStringLiteral("Vazia")));
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        QVERIFY(m_vault.importFile(it.value(), it.key()));
    }
}

void FullDriveTest::cleanup()
{
    if (m_vault.isUnlocked()) {
        m_vault.lock();
    }
    m_drive.reset();
    m_local.reset();
}

bool FullDriveTest::fillTheDrive()
{
    const int refusal = fillUp(m_filler);
    const Core::DriveSpace space = Core::DriveSpace::of(m_container);
    if (refusal != ENOSPC || space.available != std::optional<qint64>(0)) {
        qWarning("the drive did not fill up: %s, %lld bytes free", strerror(refusal),
                 static_cast<long long>(space.available.value_or(-1)));
        return false;
    }
    return true;
}

// The vault holds exactly files, each exported byte for byte as it was imported.
bool FullDriveTest::everyFileExports(const QMap<QString, QString>& files)
{
    if (m_vault.index().files().size() != files.size()) {
        qWarning("the vault holds %lld files, not %lld",
                 static_cast<long long>(m_vault.index().files().size()),
                 static_cast<long long>(files.size()));
        return false;
    }
    const QString back = m_local->filePath(QStringLiteral("de-volta.bin"));
    for (auto it = files.cbegin(); it != files.cend(); ++it) {
        QFile::remove(back);
        if (!m_vault.exportFile(it.key(), back) || !TestFiles::sameContents(back, it.value())) {
            qWarning("%s did not come out as it went in", qPrintable(it.key()));
            return false;
        }
    }
    return true;
}

void FullDriveTest::anImportOnTheFullDriveIsRefusedAndChangesNothing()
{
    const QString video = m_local->filePath(QStringLiteral("video.bin"));
    const QString song = m_local->filePath(QStringLiteral("musica.bin"));
    QVERIFY(TestFiles::writePattern(video, MiB + 5, 3));
    QVERIFY(TestFiles::writePattern(song, 200 * KiB, 4));
    QVERIFY(fillTheDrive());
    const QByteArray index = m_vault.index().toJson();
    const QByteArray bytes = TestFiles::read(m_container);

    QVERIFY(!m_vault.importFile(video, QStringLiteral("video.bin")));
    QCOMPARE(m_vault.lastFailure().reason, Failure::Reason::NoSpace);
    QCOMPARE(m_vault.index().toJson(), index);
    // Into a folder the vault has: a folder item ahead of a stop would be kept like a whole file.
    const Core::ImportBatch::Outcome outcome =
        m_vault.importBatch({{song, QStringLiteral("Docs/musica.bin"), 200 * KiB, false},
                             {video, QStringLiteral("Docs/video.bin"), MiB + 5, false}});
    QVERIFY(outcome.stopped);
    QCOMPARE(outcome.stoppedAt, 0);
    QCOMPARE(outcome.imported, 0);
    QCOMPARE(m_vault.lastFailure().reason, Failure::Reason::NoSpace);
    QCOMPARE(m_vault.index().toJson(), index);
    // Whatever was appended was cut back: the container is the one before, to the byte.
    QCOMPARE(TestFiles::read(m_container), bytes);
    QVERIFY(everyFileExports(m_files));

    QVERIFY(m_vault.lock());
    QCOMPARE(m_drive->rootNames(),
             QStringList({QStringLiteral("enchimento.bin"), QStringLiteral("velmarin.vltx")}));
    QCOMPARE(TestFiles::read(m_container), bytes);
    QVERIFY(m_vault.unlock(m_container, TestFiles::password()));
    QCOMPARE(m_vault.index().toJson(), index);
    QVERIFY(everyFileExports(m_files));

    // Room given back is there for the open session at once.
    QVERIFY(QFile::remove(m_filler));
    QVERIFY2(m_vault.importFile(video, QStringLiteral("video.bin")),
             qPrintable(m_vault.lastFailure().systemError));
    QMap<QString, QString> files = m_files;
    files.insert(QStringLiteral("video.bin"), video);
    QVERIFY(m_vault.lock());
    QVERIFY(m_vault.unlock(m_container, TestFiles::password()));
    QVERIFY(everyFileExports(files));
}

void FullDriveTest::anIndexOnlyChangeOnTheFullDriveLosesNothing_data()
{
    QTest::addColumn<QString>("change");
    // Filled while the vault is open, or before it is unlocked: whatever room the session sets
    // aside at unlock is then not there to take.
    QTest::addColumn<bool>("filledBeforeUnlock");
    for (const char* change :
         {"renameFile", "renameFolder", "createFolder", "deleteFile", "moveFile", "deleteEmptyFolder"}) {
        QTest::addRow("%s while open", change) << QString::fromLatin1(change) << false;
    }
    for (const char* change : {"renameFile", "createFolder"}) {
        QTest::addRow("%s before unlock", change) << QString::fromLatin1(change) << true;
    }
}

// Such a change needs no new room in the container. It either succeeds, and shows after the next
// unlock, or is refused as NoSpace, and the next unlock finds the vault exactly as it was.
void FullDriveTest::anIndexOnlyChangeOnTheFullDriveLosesNothing()
{
    QFETCH(QString, change);
    QFETCH(bool, filledBeforeUnlock);
    // What the vault holds if the change goes through.
    QMap<QString, QString> changed = m_files;
    QStringList foldersAfter{QStringLiteral("Docs"), QStringLiteral("Vazia")};
    if (filledBeforeUnlock) {
        QVERIFY(m_vault.lock());
        QVERIFY(fillTheDrive());
        QVERIFY(m_vault.unlock(m_container, TestFiles::password()));
    } else {
        QVERIFY(fillTheDrive());
    }
    const QByteArray index = m_vault.index().toJson();

    bool done = false;
    if (change == QLatin1String("renameFile")) {
        done = m_vault.renameFile(QStringLiteral("foto.jpg"), QStringLiteral("retrato.jpg"));
        changed.insert(QStringLiteral("retrato.jpg"), changed.take(QStringLiteral("foto.jpg")));
    } else if (change == QLatin1String("renameFolder")) {
        done = m_vault.renameFolder(QStringLiteral("Docs"), QStringLiteral("Cartas"));
        changed.insert(QStringLiteral("Cartas/carta.txt"), changed.take(QStringLiteral("Docs/carta.txt")));
        foldersAfter = QStringList{QStringLiteral("Cartas"), QStringLiteral("Vazia")};
    } else if (change == QLatin1String("createFolder")) {
        done = m_vault.createFolder(QStringLiteral("Nova"));
        foldersAfter << QStringLiteral("Nova");
    } else if (change == QLatin1String("deleteFile")) {
        done = m_vault.deleteFile(QStringLiteral("foto.jpg"));
        changed.remove(QStringLiteral("foto.jpg"));
    } else if (change == QLatin1String("moveFile")) {
        done = m_vault.moveFile(QStringLiteral("foto.jpg"), QStringLiteral("Docs"));
        changed.insert(QStringLiteral("Docs/foto.jpg"), changed.take(QStringLiteral("foto.jpg")));
    } else {
        done = m_vault.deleteEmptyFolder(QStringLiteral("Vazia"));
        foldersAfter.removeAll(QStringLiteral("Vazia"));
    }
    const Failure failure = m_vault.lastFailure();
    qInfo("%s on a full drive: %s", QTest::currentDataTag(), done ? "done" : "refused");
    if (done) {
        QCOMPARE(failure.reason, Failure::Reason::None);
    } else {
        QCOMPARE(failure.reason, Failure::Reason::NoSpace);
        QCOMPARE(m_vault.index().toJson(), index);
    }
    QVERIFY(everyFileExports(done ? changed : m_files));

    QVERIFY(m_vault.lock());
    // Done or refused, no journal stays on the drive, nor anything set aside for one.
    QCOMPARE(m_drive->rootNames(),
             QStringList({QStringLiteral("enchimento.bin"), QStringLiteral("velmarin.vltx")}));
    QVERIFY(m_vault.unlock(m_container, TestFiles::password()));
    if (done) {
        QStringList folders;
        for (const Core::DirectoryEntry& folder : m_vault.index().directories()) {
            folders << folder.path;
        }
        folders.sort();
        foldersAfter.sort();
        QCOMPARE(folders, foldersAfter);
    } else {
        QCOMPARE(m_vault.index().toJson(), index);
    }
    QVERIFY(everyFileExports(done ? changed : m_files));
}

QTEST_GUILESS_MAIN(FullDriveTest)
#include "tst_fulldrive.moc"
