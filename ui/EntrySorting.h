#pragma once

#include "DirectoryEntry.h"
#include "FileEntry.h"

#include <QList>
#include <QString>

namespace Velmarin::UI {

// The file table's order: a stable sort on the clicked column, names (ignoring case) breaking ties.
// Folders and files are sorted apart; the table puts the folders first whatever the column.
class EntrySorting
{
public:
    // Three-way comparisons for a column (0 to 4).
    static int compareFolders(const Core::DirectoryEntry& a, const Core::DirectoryEntry& b, int column);
    static int compareFiles(const Core::FileEntry& a, const Core::FileEntry& b, int column);

    static void sortFolders(QList<Core::DirectoryEntry>& folders, int column, Qt::SortOrder order);
    static void sortFiles(QList<Core::FileEntry>& files, int column, Qt::SortOrder order);

    // The upper-cased suffix, or "Arquivo" for a name without one.
    static QString typeText(const QString& fileName);
};

} // namespace Velmarin::UI
