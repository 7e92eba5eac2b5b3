#pragma once

namespace Velmarin::Core {

// What the process does to keep an unlocked vault's secrets out of crash dumps.
class ProcessProtection
{
public:
    // From the first unlock on, for the rest of the process: a crash writes no core file, and no other
    // process of the same user may read this one's memory. One-way on purpose: freed memory can still
    // hold names and decrypted pieces after the vault is locked again.
    // Linux: RLIMIT_CORE 0 and PR_SET_DUMPABLE 0. Windows: no error box, and crash reports without
    // the heap. True when every step took.
    static bool disableCoreDumps();
};

} // namespace Velmarin::Core
