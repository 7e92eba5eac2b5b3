#include "FileSync.h"

#include <QFileDevice>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace Velmarin::Core {

bool FileSync::flushToDevice(QFileDevice& file)
{
    if (!file.flush()) {
        return false;
    }
    const int descriptor = file.handle();
    if (descriptor < 0) {
        return false;
    }
#ifdef Q_OS_WIN
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(descriptor));
    return handle != INVALID_HANDLE_VALUE && FlushFileBuffers(handle) != 0;
#else
    return ::fsync(descriptor) == 0;
#endif
}

} // namespace Velmarin::Core
