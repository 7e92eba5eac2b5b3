#include "core/container/ContainerLock.h"

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <QFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace Velmarin::Core {

namespace {

#ifdef Q_OS_WIN
// One byte far past any real container's end: Windows byte-range locks are mandatory, and a lock
// over real bytes would block this process's own reads and writes through other handles.
constexpr DWORD LockOffsetHigh = 0x7fffffff;

HANDLE toHandle(qintptr handle)
{
    return reinterpret_cast<HANDLE>(handle);
}
#endif

} // namespace

ContainerLock::~ContainerLock()
{
    release();
}

ContainerLock::Result ContainerLock::acquire(const QString& containerPath)
{
    release();
#ifdef Q_OS_WIN
    const HANDLE file = CreateFileW(reinterpret_cast<LPCWSTR>(containerPath.utf16()), GENERIC_READ,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return Result::Failed;
    }
    OVERLAPPED where{};
    where.OffsetHigh = LockOffsetHigh;
    if (!LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &where)) {
        const DWORD error = GetLastError();
        CloseHandle(file);
        return error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING ? Result::InUse : Result::Failed;
    }
    m_handle = reinterpret_cast<qintptr>(file);
#else
    // Like every open of a container: a pipe must not hold the lock's open forever, nor a link lead
    // elsewhere. What is not a regular file is left for the reader to name.
    const int file =
        ::open(QFile::encodeName(containerPath).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW);
    if (file < 0) {
        return Result::Failed;
    }
    struct stat status = {};
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(file);
        return Result::Failed;
    }
    int locked = -1;
    do {
        locked = ::flock(file, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0) {
        const bool inUse = errno == EWOULDBLOCK;
        ::close(file);
        return inUse ? Result::InUse : Result::Failed;
    }
    m_handle = file;
#endif
    return Result::Acquired;
}

void ContainerLock::release()
{
    if (!isHeld()) {
        return;
    }
    // Closing the handle drops the lock with it.
#ifdef Q_OS_WIN
    CloseHandle(toHandle(m_handle));
#else
    ::close(static_cast<int>(m_handle));
#endif
    m_handle = InvalidHandle;
}

bool ContainerLock::isInUse(const QString& containerPath)
{
    ContainerLock probe;
    return probe.acquire(containerPath) == Result::InUse;
}

} // namespace Velmarin::Core
