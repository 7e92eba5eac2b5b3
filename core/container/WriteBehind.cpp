#include "core/container/WriteBehind.h"

#include <QFileDevice>
#include <QIODevice>

#ifdef Q_OS_LINUX
#include <cerrno>
#include <fcntl.h>
#endif

namespace Velmarin::Core {

WriteBehind::WriteBehind(QIODevice& device)
{
#ifdef Q_OS_LINUX
    auto* file = qobject_cast<QFileDevice*>(&device);
    if (file != nullptr && file->handle() >= 0 && !file->isSequential()) {
        m_file = file;
        m_started = file->pos();
        m_settled = m_started;
    }
#else
    // Windows caches a removable drive's writes far less, and has no per-range equivalent.
    Q_UNUSED(device);
#endif
}

bool WriteBehind::advance()
{
#ifdef Q_OS_LINUX
    if (m_file == nullptr) {
        return true;
    }
    const qint64 end = m_file->pos();
    if (end - m_started < PieceSize) {
        return true;
    }
    if (!m_file->flush()) {
        return true; // the caller's own write reports this
    }
    const int descriptor = m_file->handle();
    // The new piece starts towards the drive; the one before it, started a piece ago, is waited
    // for and forgotten, so the drive and the program work side by side.
    int failed = 0;
    if (::sync_file_range(descriptor, m_started, end - m_started, SYNC_FILE_RANGE_WRITE) != 0) {
        failed = errno;
    } else if (m_started > m_settled &&
               ::sync_file_range(descriptor, m_settled, m_started - m_settled,
                                 SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE |
                                     SYNC_FILE_RANGE_WAIT_AFTER) != 0) {
        failed = errno;
    }
    if (failed == EIO || failed == ENOSPC || failed == EDQUOT || failed == EFBIG) {
        m_error = qt_error_string(failed);
        return false;
    }
    if (failed != 0) {
        // A file system or file that cannot do this (ESPIPE, EINVAL) is simply written as before.
        m_file = nullptr;
        return true;
    }
    if (m_started > m_settled) {
        ::posix_fadvise(descriptor, m_settled, m_started - m_settled, POSIX_FADV_DONTNEED);
    }
    m_settled = m_started;
    m_started = end;
#endif
    return true;
}

} // namespace Velmarin::Core
