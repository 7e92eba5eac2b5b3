#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace Velmarin::Tests {

// A real file system for a test, the kind a user's stick has: a FAT32 image through fusefat, an
// exFAT image on a loop device through exfat-fuse, or a small tmpfs to fill to the last byte.
// Unmounted when it goes. Where the machine lacks the tools, root, FUSE or loop devices, nothing is
// mounted and skipReason() says why, for the test to print (through QTest::qSkip: clang's
// -Wpedantic rejects QSKIP's empty variadic argument in C++17).
class MountedDrive
{
public:
    enum class Kind
    {
        Fat32,
        Exfat,
        Tmpfs
    };

    MountedDrive(Kind kind, qint64 size);
    ~MountedDrive();
    MountedDrive(const MountedDrive&) = delete;
    MountedDrive& operator=(const MountedDrive&) = delete;

    bool isMounted() const { return m_mounted; }
    QString skipReason() const { return m_skipReason; }
    // The drive's root.
    QString path() const { return m_mountPoint; }
    QString filePath(const QString& name) const { return m_mountPoint + QLatin1Char('/') + name; }
    // Everything at the drive's root, hidden names included, sorted.
    QStringList rootNames() const;

private:
    // An empty image of size bytes for a FUSE file system, or the reason there can be none.
    bool makeImage(const QString& image, qint64 size);
    bool mountFat32(const QString& image, qint64 size);
    bool mountExfat(const QString& image, qint64 size);
    bool mountTmpfs(qint64 size);
    bool run(const QString& program, const QStringList& arguments, QString* output = nullptr);
    bool waitForMount();
    bool needs(const QStringList& programs);
    void unmount();

    Kind m_kind;
    QTemporaryDir m_dir;
    QString m_mountPoint;
    QString m_loopDevice;
    QString m_skipReason;
    bool m_mounted = false;
};

} // namespace Velmarin::Tests
