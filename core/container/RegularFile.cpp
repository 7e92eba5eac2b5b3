#include "core/container/RegularFile.h"

#include <QFile>
#include <QFileInfo>

#ifndef Q_OS_WIN
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace Velmarin::Core {

namespace {

RegularFile::Result outcome(RegularFile::Outcome outcome, int errorNumber = 0,
                            const QString& systemError = {})
{
    return RegularFile::Result{outcome, errorNumber, systemError};
}

} // namespace

#ifdef Q_OS_WIN
RegularFile::Result RegularFile::open(const QString& path, QIODevice::OpenMode mode, QFile& file)
{
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink()) {
        return outcome(Outcome::Missing);
    }
    // Windows opens pipes and devices only under their own namespaces, never as a drive's file.
    if (!info.isFile() || info.isSymLink() || info.isJunction()) {
        return outcome(Outcome::NotAFile);
    }
    file.setFileName(path);
    if (!file.open(mode)) {
        return outcome(Outcome::Refused, 0, file.errorString());
    }
    return outcome(Outcome::Opened);
}
#else
RegularFile::Result RegularFile::open(const QString& path, QIODevice::OpenMode mode, QFile& file)
{
    const int access = mode.testFlag(QIODevice::WriteOnly) ? O_RDWR : O_RDONLY;
    const QByteArray name = QFile::encodeName(path);
    const int descriptor = ::open(name.constData(), access | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (descriptor < 0) {
        const int error = errno;
        if (error == ENOENT) {
            return outcome(Outcome::Missing);
        }
        // A link (ELOOP), a socket (ENXIO) or a folder opened for writing (EISDIR) is refused by the
        // open itself: what the path is decides, not the error.
        struct stat status = {};
        if (::lstat(name.constData(), &status) == 0 && !S_ISREG(status.st_mode)) {
            return outcome(Outcome::NotAFile);
        }
        return outcome(Outcome::Refused, error, qt_error_string(error));
    }
    struct stat status = {};
    if (::fstat(descriptor, &status) != 0) {
        const int error = errno;
        ::close(descriptor);
        return outcome(Outcome::Refused, error, qt_error_string(error));
    }
    if (!S_ISREG(status.st_mode)) {
        ::close(descriptor);
        return outcome(Outcome::NotAFile);
    }
    // A regular file never blocks; the flag only mattered until its kind was known.
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
    // From here the file owns the descriptor, and closes it even when this open fails. The name stays
    // for the reasons a failure gives later.
    file.setFileName(path);
    if (!file.open(descriptor, mode, QFileDevice::AutoCloseHandle)) {
        return outcome(Outcome::Refused, 0, file.errorString());
    }
    return outcome(Outcome::Opened);
}
#endif

} // namespace Velmarin::Core
