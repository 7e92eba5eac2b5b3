#include "FakeMachine.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace Velmarin::Platform::Linux {

void FakeMachine::addPartition(const char* host, const QString& disk, const QString& partition,
                               const QString& number, bool removable, const QString& uuid,
                               const QString& labelLink)
{
    const QString diskDir = path(QString::fromLatin1(host) + QLatin1Char('/') + disk);
    const QString partitionDir = diskDir + QLatin1Char('/') + partition;
    QDir().mkpath(partitionDir);
    write(diskDir + QStringLiteral("/removable"), removable ? "1\n" : "0\n");
    write(partitionDir + QStringLiteral("/partition"), "1\n");
    write(partitionDir + QStringLiteral("/dev"), number.toLatin1() + '\n');
    m_sysDirs.insert(partition, partitionDir);
    link(partitionDir, QStringLiteral("sys/class/block/") + partition);
    if (!uuid.isEmpty()) {
        link(path(QStringLiteral("dev/") + partition), QStringLiteral("dev/disk/by-uuid/") + uuid);
    }
    if (!labelLink.isEmpty()) {
        link(path(QStringLiteral("dev/") + partition), QStringLiteral("dev/disk/by-label/") + labelLink);
    }
}

void FakeMachine::addMapping(const QString& name, const QString& number, const QStringList& slaves,
                             const QString& uuid)
{
    const QString mappingDir = path(QStringLiteral("sys/devices/virtual/block/") + name);
    QDir().mkpath(mappingDir + QStringLiteral("/slaves"));
    QDir().mkpath(mappingDir + QStringLiteral("/dm"));
    write(mappingDir + QStringLiteral("/dev"), number.toLatin1() + '\n');
    write(mappingDir + QStringLiteral("/removable"), "0\n");
    m_sysDirs.insert(name, mappingDir);
    link(mappingDir, QStringLiteral("sys/class/block/") + name);
    for (const QString& slave : slaves) {
        const QString slaveDir = m_sysDirs.value(slave);
        QVERIFY2(!slaveDir.isEmpty(), qPrintable(slave));
        QVERIFY(QFile::link(slaveDir, mappingDir + QStringLiteral("/slaves/") + slave));
        QDir().mkpath(slaveDir + QStringLiteral("/holders"));
        QVERIFY(QFile::link(mappingDir, slaveDir + QStringLiteral("/holders/") + name));
    }
    if (!uuid.isEmpty()) {
        link(path(QStringLiteral("dev/") + name), QStringLiteral("dev/disk/by-uuid/") + uuid);
    }
}

void FakeMachine::mount(const QString& number, const QString& escapedMountPoint, const QString& fileSystem,
                        const QString& source, const QString& root)
{
    m_mountInfo += QStringLiteral("%1 29 %2 %3 %4 rw,nosuid,nodev,relatime shared:1 - %5 %6 rw\n")
                       .arg(++m_mountId)
                       .arg(number, root, escapedMountPoint, fileSystem, source);
    QDir().mkpath(path(QStringLiteral("proc")));
    write(path(QStringLiteral("proc/mountinfo")), m_mountInfo.toUtf8());
}

void FakeMachine::udevRecord(const QString& number, const QByteArray& contents)
{
    QDir().mkpath(path(QStringLiteral("run/udev/data")));
    write(path(QStringLiteral("run/udev/data/b") + number), contents);
}

LinuxDeviceManager FakeMachine::manager() const
{
    LinuxDeviceManager::Roots roots;
    roots.mountInfo = path(QStringLiteral("proc/mountinfo"));
    roots.sysClassBlock = path(QStringLiteral("sys/class/block"));
    roots.devDisk = path(QStringLiteral("dev/disk"));
    roots.udevData = path(QStringLiteral("run/udev/data"));
    roots.dev = QStringLiteral("/dev");
    return LinuxDeviceManager(roots);
}

void FakeMachine::write(const QString& file, const QByteArray& bytes)
{
    QFile out(file);
    QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
    out.write(bytes);
}

void FakeMachine::link(const QString& target, const QString& relativeLink)
{
    const QString linkPath = path(relativeLink);
    QDir().mkpath(QFileInfo(linkPath).absolutePath());
    QVERIFY(QFile::link(target, linkPath));
}

} // namespace Velmarin::Platform::Linux
