#pragma once

#include "core/index/DirectoryEntry.h"
#include "core/index/FileEntry.h"

#include <QList>
#include <QString>

namespace Velmarin::Core {

// How entry lists are ordered (the window's file table, the command line's listing): a stable sort
// on a column, names (ignoring case) breaking ties.
// Folders and files are sorted apart; lists show the folders first whatever the column.
class EntrySorting
{
public:
    // Three-way comparisons for a column (0 to 4).
    static int compareFolders(const DirectoryEntry& a, const DirectoryEntry& b, int column);
    static int compareFiles(const FileEntry& a, const FileEntry& b, int column);

    static void sortFolders(QList<DirectoryEntry>& folders, int column, Qt::SortOrder order);
    static void sortFiles(QList<FileEntry>& files, int column, Qt::SortOrder order);

    // The upper-cased suffix, or "Arquivo" for a name without one.
    static QString typeText(const QString& fileName);
};

} // namespace Velmarin::Core
