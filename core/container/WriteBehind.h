#pragma once

#include <QString>
#include <QtGlobal>

class QFileDevice;
class QIODevice;

namespace Velmarin::Core {

// Sends a long write to the drive while it is being made, and lets the system forget each piece once
// the drive holds it. A USB stick then receives bytes at the pace the progress shows instead of
// all of them at the final sync, and gigabytes nobody reads again do not crowd the system's cache:
// their pages are reused for the next piece rather than taken fresh.
// Devices that are not files, and systems without the means, are written as before.
class WriteBehind
{
public:
    explicit WriteBehind(QIODevice& device);

    // Called after each write with everything up to the device's position written.
    // False when the system reports that bytes already handed over did not reach the drive: that
    // report is given once, so the caller must treat the write as failed.
    bool advance();
    // The system's words for the failure advance() reported.
    QString errorString() const { return m_error; }

    // Pieces smaller than this are not worth a call each.
    static constexpr qint64 PieceSize = 8388608;

private:
    QFileDevice* m_file = nullptr;
    // Bytes before m_started were handed to the drive; bytes before m_settled are on it and forgotten.
    qint64 m_started = 0;
    qint64 m_settled = 0;
    QString m_error;
};

} // namespace Velmarin::Core
