#include "MountedDrive.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThread>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

namespace Velmarin::Tests {

namespace {

// Where Debian puts mkfs and mount helpers, which a user's PATH may lack.
const QStringList SystemFolders = {QStringLiteral("/usr/local/sbin"), QStringLiteral("/usr/local/bin"),
                                   QStringLiteral("/usr/sbin"),       QStringLiteral("/usr/bin"),
                                   QStringLiteral("/sbin"),           QStringLiteral("/bin")};

QString findProgram(const QString& name)
{
    const QString found = QStandardPaths::findExecutable(name);
    return found.isEmpty() ? QStandardPaths::findExecutable(name, SystemFolders) : found;
}

bool isRoot()
{
#ifdef Q_OS_UNIX
    return geteuid() == 0;
#else
    return false;
#endif
}

bool isMountPoint(const QString& path)
{
    QFile mounts(QStringLiteral("/proc/self/mounts"));
    if (!mounts.open(QIODevice::ReadOnly)) {
        return false;
    }
    const QByteArray wanted = QFile::encodeName(QDir::cleanPath(path));
    for (const QByteArray& line : mounts.readAll().split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() > 1 && fields.at(1) == wanted) {
            return true;
        }
    }
    return false;
}

} // namespace

MountedDrive::MountedDrive(Kind kind, qint64 size)
    : m_kind(kind)
{
    if (!m_dir.isValid()) {
        m_skipReason = QStringLiteral("no temporary folder for the drive");
        return;
    }
    m_mountPoint = m_dir.filePath(QStringLiteral("drive"));
    QDir().mkpath(m_mountPoint);
    const QString image = m_dir.filePath(QStringLiteral("drive.img"));
    switch (kind) {
    case Kind::Fat32:
        m_mounted = mountFat32(image, size);
        break;
    case Kind::Exfat:
        m_mounted = mountExfat(image, size);
        break;
    case Kind::Tmpfs:
        m_mounted = mountTmpfs(size);
        break;
    }
}

QStringList MountedDrive::rootNames() const
{
    QStringList names =
        QDir(m_mountPoint).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    names.sort();
    return names;
}

MountedDrive::~MountedDrive()
{
    unmount();
}

bool MountedDrive::needs(const QStringList& programs)
{
    for (const QString& program : programs) {
        if (findProgram(program).isEmpty()) {
            m_skipReason = QStringLiteral("%1 is not installed").arg(program);
            return false;
        }
    }
    return true;
}

bool MountedDrive::makeImage(const QString& image, qint64 size)
{
    if (!QFileInfo::exists(QStringLiteral("/dev/fuse"))) {
        m_skipReason = QStringLiteral("this machine has no /dev/fuse");
        return false;
    }
    QFile file(image);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(size)) {
        m_skipReason = QStringLiteral("no room for a %1-byte image").arg(size);
        return false;
    }
    return true;
}

bool MountedDrive::mountFat32(const QString& image, qint64 size)
{
    if (!needs({QStringLiteral("mkfs.vfat"), QStringLiteral("fusefat"), QStringLiteral("fusermount")})) {
        return false;
    }
    if (!makeImage(image, size)) {
        return false;
    }
    if (!run(QStringLiteral("mkfs.vfat"), {QStringLiteral("-F"), QStringLiteral("32"), image})) {
        return false;
    }
    return run(QStringLiteral("fusefat"),
               {QStringLiteral("-o"), QStringLiteral("rw+"), image, m_mountPoint}) &&
           waitForMount();
}

bool MountedDrive::mountExfat(const QString& image, qint64 size)
{
    if (!needs({QStringLiteral("mkfs.exfat"), QStringLiteral("losetup"), QStringLiteral("mount.exfat-fuse"),
                QStringLiteral("umount")})) {
        return false;
    }
    if (!isRoot()) {
        m_skipReason = QStringLiteral("a loop device needs root");
        return false;
    }
    if (!makeImage(image, size)) {
        return false;
    }
    QString loop;
    if (!run(QStringLiteral("mkfs.exfat"), {image}) ||
        !run(QStringLiteral("losetup"), {QStringLiteral("-f"), QStringLiteral("--show"), image}, &loop)) {
        return false;
    }
    m_loopDevice = loop.trimmed();
    return run(QStringLiteral("mount.exfat-fuse"), {m_loopDevice, m_mountPoint}) && waitForMount();
}

bool MountedDrive::mountTmpfs(qint64 size)
{
    if (!needs({QStringLiteral("mount"), QStringLiteral("umount")})) {
        return false;
    }
    if (!isRoot()) {
        m_skipReason = QStringLiteral("mounting a tmpfs needs root");
        return false;
    }
    return run(QStringLiteral("mount"),
               {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                QStringLiteral("size=%1").arg(size), QStringLiteral("tmpfs"), m_mountPoint}) &&
           waitForMount();
}

bool MountedDrive::run(const QString& program, const QStringList& arguments, QString* output)
{
    QProcess process;
    process.setProcessChannelMode(output != nullptr ? QProcess::SeparateChannels : QProcess::MergedChannels);
    process.start(findProgram(program), arguments);
    const bool finished = process.waitForFinished(60000);
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        m_skipReason = QStringLiteral("%1 failed: %2")
                           .arg(program, QString::fromLocal8Bit(process.readAllStandardError() +
                                                                process.readAllStandardOutput())
                                             .trimmed());
        return false;
    }
    if (output != nullptr) {
        *output = QString::fromLocal8Bit(process.readAllStandardOutput());
    }
    return true;
}

bool MountedDrive::waitForMount()
{
    // A FUSE daemon may answer a moment after its command returned.
    const QDeadlineTimer deadline(10000);
    while (!isMountPoint(m_mountPoint)) {
        if (deadline.hasExpired()) {
            m_skipReason = QStringLiteral("%1 did not appear as a mount").arg(m_mountPoint);
            return false;
        }
        QThread::msleep(20);
    }
    return true;
}

void MountedDrive::unmount()
{
    if (isMountPoint(m_mountPoint)) {
        const bool fuse = m_kind == Kind::Fat32;
        QProcess::execute(findProgram(fuse ? QStringLiteral("fusermount") : QStringLiteral("umount")),
                          fuse ? QStringList{QStringLiteral("-u"), m_mountPoint} : QStringList{m_mountPoint});
        // The daemon lets go of the mount point a moment later.
        const QDeadlineTimer deadline(10000);
        while (isMountPoint(m_mountPoint) && !deadline.hasExpired()) {
            QThread::msleep(20);
        }
    }
    if (!m_loopDevice.isEmpty()) {
        QProcess::execute(findProgram(QStringLiteral("losetup")), {QStringLiteral("-d"), m_loopDevice});
        m_loopDevice.clear();
    }
    m_mounted = false;
}

} // namespace Velmarin::Tests
