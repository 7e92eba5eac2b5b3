#pragma once

#include <QByteArray>
#include <QString>

namespace Velmarin::Tests {

// Makes the preloaded shim fail chosen calls on paths containing pathPart, for as long as it lives;
// a pathPart ending in '$' matches only the end of a path.
// calls is a comma list of: open-write, open-read, write, read, corrupt, fsync, unlink, rename,
// read-only, no-room, no-size, writeback, writeback-unsupported (see failshim.c).
// writeAllowance is how many bytes a matching descriptor may write (or read) before "write"
// ("read") fails.
class FailureInjection
{
public:
    FailureInjection(const QString& pathPart, const QByteArray& calls, qint64 writeAllowance = 0);
    ~FailureInjection();
    FailureInjection(const FailureInjection&) = delete;
    FailureInjection& operator=(const FailureInjection&) = delete;

    // True when the shim is really preloaded, proven by making it fail a write-open.
    static bool isAvailable();
};

} // namespace Velmarin::Tests
