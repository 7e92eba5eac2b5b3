#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Velmarin::Tests {

// Compaction and re-keying build their new container in a work folder below the system's temporary
// folder; this points TMPDIR at a folder of the test's own, so a test can see what is left there.
// The manager reads TMPDIR at each compaction, so it may be set after a vault was made.
class CompactionTemp
{
public:
    // Makes folder and points TMPDIR at it; false when the folder cannot be made.
    bool set(const QString& folder);
    // Puts back the TMPDIR the process had before set.
    void restore();

    QString path() const { return m_folder; }
    // The compaction work folders now in it.
    QStringList workFolders() const;

private:
    QString m_folder;
    QByteArray m_saved;
};

} // namespace Velmarin::Tests
