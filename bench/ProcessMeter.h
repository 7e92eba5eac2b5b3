#pragma once

#include <QtGlobal>

namespace Velmarin::Bench {

// What the kernel counts for this process: resident memory and bytes handed to write calls.
class ProcessMeter
{
public:
    // Starts a new peak, so Argon2id's 256 MiB during an earlier unlock does not hide what follows.
    static void resetPeakResident();
    static qint64 peakResidentBytes();
    // Every byte passed to write, pwrite and friends so far, whatever the file.
    static qint64 bytesWritten();
    // Puts dirty pages on the device, so one measurement does not pay for the previous one's writes.
    static void settle();
};

} // namespace Velmarin::Bench
