#include "core/container/CacheAdvice.h"

#include <QFileDevice>
#include <QIODevice>

#ifdef Q_OS_UNIX
#include <fcntl.h>
#endif

namespace Velmarin::Core {

namespace {

#ifdef Q_OS_UNIX
void advise(QIODevice& device, qint64 from, qint64 length, int advice)
{
    const auto* file = qobject_cast<QFileDevice*>(&device);
    if (file != nullptr && file->handle() >= 0) {
        ::posix_fadvise(file->handle(), from, length, advice);
    }
}
#endif

} // namespace

#ifdef Q_OS_UNIX
void CacheAdvice::sequential(QIODevice& device)
{
    advise(device, 0, 0, POSIX_FADV_SEQUENTIAL);
}

void CacheAdvice::next(QIODevice& device, qint64 length)
{
    advise(device, device.pos(), length, POSIX_FADV_WILLNEED);
}

void CacheAdvice::forget(QIODevice& device, qint64 from, qint64 length)
{
    // A length of 0 would mean the whole rest of the file.
    if (length > 0) {
        advise(device, from, length, POSIX_FADV_DONTNEED);
    }
}
#else
// Windows reads ahead on its own for files read in order, and has no per-range equivalent.
void CacheAdvice::sequential(QIODevice&) {}
void CacheAdvice::next(QIODevice&, qint64) {}
void CacheAdvice::forget(QIODevice&, qint64, qint64) {}
#endif

} // namespace Velmarin::Core
