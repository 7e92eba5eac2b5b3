#include "CompactionTemp.h"

#include <QDir>

namespace Velmarin::Tests {

bool CompactionTemp::set(const QString& folder)
{
    m_folder = folder;
    m_saved = qgetenv("TMPDIR");
    if (!QDir().mkpath(folder)) {
        return false;
    }
    qputenv("TMPDIR", folder.toUtf8());
    return QDir::tempPath() == folder;
}

void CompactionTemp::restore()
{
    if (m_saved.isEmpty()) {
        qunsetenv("TMPDIR");
    } else {
        qputenv("TMPDIR", m_saved);
    }
}

QStringList CompactionTemp::workFolders() const
{
    return QDir(m_folder).entryList({QStringLiteral("Velmarin-compact-*")}, QDir::Dirs);
}

} // namespace Velmarin::Tests
