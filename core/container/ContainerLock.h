#pragma once

#include <QString>

namespace Velmarin::Core {

// Keeps every other Velmarin session (another window, the command line, a second session in this
// process) away from a container while one works on it. Two sessions that both append blocks and
// rewrite the header would silently overwrite each other's index and lose files.
//
// It is the system's own lock on the container file (flock on Linux, LockFileEx on Windows), not a
// lock file beside it: the system drops it the moment the process ends, crash included, so there is
// never a stale lock to recover, and nothing more is written on the drive.
class ContainerLock
{
public:
    enum class Result
    {
        Acquired,
        // Another session holds it.
        InUse,
        // The container could not be opened at all.
        Failed
    };

    ContainerLock() = default;
    ~ContainerLock();
    ContainerLock(const ContainerLock&) = delete;
    ContainerLock& operator=(const ContainerLock&) = delete;

    Result acquire(const QString& containerPath);
    void release();
    bool isHeld() const { return m_handle != InvalidHandle; }

    // Whether some session holds containerPath right now: a lock taken and dropped at once, for
    // choosing what to tell the user after an operation was refused.
    static bool isInUse(const QString& containerPath);

    // Whether the lock stays on a container that is deleted while held. On Windows the open handle
    // would keep a deleted name from being created again, so compaction drops the lock first.
#ifdef Q_OS_WIN
    static constexpr bool SurvivesReplacement = false;
#else
    static constexpr bool SurvivesReplacement = true;
#endif

private:
    static constexpr qintptr InvalidHandle = -1;
    qintptr m_handle = InvalidHandle;
};

} // namespace Velmarin::Core
