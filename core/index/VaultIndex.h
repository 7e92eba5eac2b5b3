#pragma once

#include "core/index/DirectoryEntry.h"
#include "core/index/FileEntry.h"
#include "core/index/FoldedPaths.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

namespace Velmarin::Core {

// The catalogue of one vault. Upsert and remove match paths exactly; the existence tests that
// guard user actions ignore letter case. Callers test first, then upsert, so both rules hold.
class VaultIndex
{
public:
    const QList<FileEntry>& files() const { return m_files; }
    const QList<DirectoryEntry>& directories() const { return m_directories; }

    bool upsertFile(const FileEntry& entry);
    bool upsertDirectory(const DirectoryEntry& entry);
    bool removeFile(const QString& vaultPath);
    bool removeDirectory(const QString& path);

    bool fileExists(const QString& path) const;
    bool directoryExists(const QString& path) const;
    // The first entry whose path matches ignoring letter case, or null.
    const FileEntry* findFile(const QString& path) const;
    const DirectoryEntry* findDirectory(const QString& path) const;
    // The entry whose path is exactly path, or else the first that matches ignoring letter case: an
    // index from elsewhere may hold two files whose paths differ only in case, each its own.
    const FileEntry* findFilePreferringExact(const QString& path) const;
    // True when any file or folder lies inside folder.
    bool hasEntriesBelow(const QString& folder) const;
    // True when a file stands where one of path's folders would have to be.
    bool crossesFile(const QString& path) const;

    // Adds a folder entry, stamped with one current UTC time, for every missing ancestor of path.
    void ensureParentDirectories(const QString& path);
    void clear();

    QByteArray toJson() const;
    // What one more entry adds to toJson(), its separating comma included.
    static qint64 jsonSize(const FileEntry& file);
    static qint64 jsonSize(const DirectoryEntry& directory);
    // Anything that is not a JSON object gives an empty index.
    static VaultIndex fromJson(const QByteArray& json);

    static QString formatTimestamp(const QDateTime& dateTime);
    static QDateTime parseTimestamp(const QString& text);

private:
    QList<FileEntry> m_files;
    QList<DirectoryEntry> m_directories;
    // Where each exact path sits in its list, so that rebuilding an index of thousands of entries
    // one upsert at a time stays linear.
    QHash<QString, qsizetype> m_filePositions;
    QHash<QString, qsizetype> m_directoryPositions;
    FoldedPaths m_foldedFiles;
    FoldedPaths m_foldedDirectories;
};

} // namespace Velmarin::Core
