#include "core/crypto/ProcessProtection.h"

#include <QtGlobal>

#ifdef Q_OS_WIN
#include <windows.h>

// From werapi.h, whose mingw copy does not compile; the function lives in kernel32.
extern "C" __declspec(dllimport) HRESULT WINAPI WerSetFlags(DWORD flags);
#else
#include <sys/resource.h>
#ifdef Q_OS_LINUX
#include <sys/prctl.h>
#endif
#endif

namespace Velmarin::Core {

bool ProcessProtection::disableCoreDumps()
{
#ifdef Q_OS_WIN
    // WER_FAULT_REPORTING_FLAG_NOHEAP: a crash report carries no heap, where the keys live.
    constexpr DWORD NoHeap = 1;
    SetErrorMode(GetErrorMode() | SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    return SUCCEEDED(WerSetFlags(NoHeap));
#else
    const rlimit none{0, 0};
    bool done = setrlimit(RLIMIT_CORE, &none) == 0;
#ifdef Q_OS_LINUX
    // Also closes /proc/<pid>/mem and ptrace to other processes of the same user.
    done = prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0 && done;
#endif
    return done;
#endif
}

} // namespace Velmarin::Core
