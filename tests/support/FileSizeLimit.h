#pragma once

#include <QtGlobal>

#include <csignal>
#ifdef Q_OS_UNIX
#include <sys/resource.h>
#endif

namespace Velmarin::Tests {

// Makes every file this process writes stop at a size, with EFBIG, as a file system whose largest
// file is that size would; the signal that would otherwise end the process is ignored meanwhile.
// Everything is put back when it goes. Elsewhere than on POSIX systems it is never set.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(qint64 limit);
    ~FileSizeLimit();
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

    bool isSet() const { return m_set; }

private:
#ifdef Q_OS_UNIX
    rlimit m_saved{};
#endif
    void (*m_previousHandler)(int) = SIG_DFL;
    bool m_changed = false;
    bool m_set = false;
};

} // namespace Velmarin::Tests
