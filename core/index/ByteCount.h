#pragma once

#include <QtGlobal>
#include <QtNumeric>

#include <limits>

namespace Velmarin::Core {

// Sums and ratios of sizes taken from an index. The engine never writes a negative size or sizes
// that add up near 2^63, but an index written by anything else may hold them: a negative size
// counts as nothing and a sum stops at the largest qint64 instead of overflowing.
inline qint64 addByteCount(qint64 total, qint64 size)
{
    qint64 sum = 0;
    if (qAddOverflow(qMax<qint64>(0, total), qMax<qint64>(0, size), &sum)) {
        return std::numeric_limits<qint64>::max();
    }
    return sum;
}

// done out of total as a whole number from 0 to scale; total must be at least 1.
inline int scaledProgress(qint64 done, qint64 total, int scale)
{
    done = qBound<qint64>(0, done, total);
    if (done <= std::numeric_limits<qint64>::max() / scale) {
        return static_cast<int>(done * scale / total);
    }
    return static_cast<int>(static_cast<double>(done) / static_cast<double>(total) * scale);
}

} // namespace Velmarin::Core
