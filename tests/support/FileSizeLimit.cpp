#include "FileSizeLimit.h"

#include <csignal>

namespace Velmarin::Tests {

FileSizeLimit::FileSizeLimit([[maybe_unused]] qint64 limit)
{
#ifdef Q_OS_UNIX
    if (getrlimit(RLIMIT_FSIZE, &m_saved) != 0) {
        return;
    }
    m_changed = true;
    m_previousHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit reduced{static_cast<rlim_t>(limit), m_saved.rlim_max};
    m_set = setrlimit(RLIMIT_FSIZE, &reduced) == 0;
#endif
}

FileSizeLimit::~FileSizeLimit()
{
#ifdef Q_OS_UNIX
    if (!m_changed) {
        return;
    }
    setrlimit(RLIMIT_FSIZE, &m_saved);
    std::signal(SIGXFSZ, m_previousHandler);
#endif
}

} // namespace Velmarin::Tests
